// Helpers of the capture tests: a machine with the tool's registry entry,
// the sample product run in a child, and what a crash left behind.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "log_capture.h"
#include "test_root.h"

namespace capture_test {

// Where the build put the programs and libraries the tests use.
std::string SampleProductPath();
std::string FakeToolPath();
std::string DumpLibraryFolder();
std::string EmptyLibraryFolder();
std::string FaultingLibraryFolder();

// Writes the tool's registry entry: the default value (skipped when empty)
// and "Path" (skipped when empty).
void WriteToolEntry(const std::string& toolPath, const std::string& folder);

struct ChildResult {
  int pid = 0;
  int status = 0;  // as waitpid gives it
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
std::vector<std::string> ReportFiles(const testing_support::TestRoot& root);

// The command texts the fake tool recorded, waiting up to timeoutMs for at
// least minimum of them.
std::vector<std::string> ToolCalls(const testing_support::TestRoot& root, std::size_t minimum, int timeoutMs = 5000);

struct LogLine {
  std::uint32_t severity = 0;
  std::u16string message;
  bool operator==(const LogLine&) const = default;
};

// Every record waiting at the listener, in the order sent (the child that
// sent them has ended, so nothing more is on its way).
std::vector<LogLine> DrainLog(testing_support::LogCapture& log);

}  // namespace capture_test
