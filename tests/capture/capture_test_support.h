// Helpers of the capture tests: a machine with the tool's registry entry,
// the sample product run in a child, and what a crash left behind.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "test_root.h"

namespace capture_test {

// Writes the tool's registry entry: "" skips the default value or "Path".
void WriteToolEntry(const std::string& toolPath, const std::string& folder);

struct ChildResult {
  int pid = 0;
  int status = 0;      // as waitpid gives it
  std::string output;  // standard output
};

// Runs the sample product with these arguments and extra "NAME=value"
// environment entries, and waits for it to end.
ChildResult RunSample(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {});

// Exit status of a child that exited, -1 if it ended by a signal.
int ExitStatus(const ChildResult& result);

// The report names in the report folder (file names without extension,
// once each), sorted.
std::vector<std::string> ReportNames(const testing_support::TestRoot& root);

// The command texts the fake tool recorded, waiting up to timeoutMs for at
// least minimum of them.
std::vector<std::string> ToolCalls(const testing_support::TestRoot& root, std::size_t minimum, int timeoutMs = 5000);

using LogLine = std::pair<std::uint32_t, std::u16string>;

}  // namespace capture_test
