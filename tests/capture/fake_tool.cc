// Stands in for the reporter tool in capture tests: appends the command text
// it was started with as one line to $MARLOWEN_ROOT/tool-calls.txt.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  const char* root = std::getenv("MARLOWEN_ROOT");
  if (root == nullptr) return 2;
  std::string line = argc > 1 ? argv[1] : "";
  line += '\n';
  const std::string path = std::string(root) + "/tool-calls.txt";
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) return 2;
  const bool whole = write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  close(fd);
  return whole ? 0 : 2;
}
