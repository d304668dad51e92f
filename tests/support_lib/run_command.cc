#include "run_command.h"

#include <sys/wait.h>

#include <cstdio>

namespace testing_support {

CommandResult RunCommand(const std::string& command) {
  CommandResult result;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return result;
  char chunk[4096];
  std::size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) result.output.append(chunk, n);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

}  // namespace testing_support
