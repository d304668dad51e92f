// Runs a shell command line and collects what it printed, for the tests of
// the command-line tools.
#pragma once

#include <string>

namespace testing_support {

struct CommandResult {
  int status = -1;     // exit status, -1 if it did not exit normally
  std::string output;  // standard output, and standard error if the command sends it there
};

CommandResult RunCommand(const std::string& command);

}  // namespace testing_support
