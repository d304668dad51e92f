// The child of the launcher tests: tells on its standard output what it was
// started with, one "key=value" line each.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

// The hexadecimal signal set of one /proc/self/status line, e.g. "SigBlk".
std::string SignalSet(const std::string& key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key + ":", 0) == 0) return line.substr(line.find_first_not_of(" \t", key.size() + 1));
  }
  return "?";
}

}  // namespace

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
  std::printf("blocked=%s\nignored=%s\n", SignalSet("SigBlk").c_str(),
              SignalSet("SigIgn").c_str());
  return 0;
}
