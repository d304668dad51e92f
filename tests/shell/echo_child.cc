// The child of the launcher tests: tells on its standard output what it was
// started with, one "key=value" line each.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  std::string fds;
  if (DIR* dir = opendir("/proc/self/fd")) {
    while (dirent* entry = readdir(dir)) {
      if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == dirfd(dir)) continue;
      if (!fds.empty()) fds += ',';
      fds += entry->d_name;
    }
    closedir(dir);
  }
  std::printf("argc=%d\nprogram=%s\ntext=%s\nuid=%u\ngid=%u\ngroups=%d\nfds=%s\n", argc,
              argv[0], argc > 1 ? argv[1] : "", static_cast<unsigned>(getuid()),
              static_cast<unsigned>(getgid()), getgroups(0, nullptr), fds.c_str());
  return 0;
}
