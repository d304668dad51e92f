#include "capture_test_support.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <sstream>
#include <thread>

#include "capture/tool_registry_entry.h"
#include "shell/registry.h"
#include "shell/wide_string.h"

namespace capture_test {

std::string SampleProductPath() { return ML_SAMPLE_PRODUCT; }
std::string FakeToolPath() { return ML_FAKE_TOOL; }
std::string DumpLibraryFolder() { return ML_DUMP_LIBRARY_DIR; }
std::string EmptyLibraryFolder() { return ML_EMPTY_LIBRARY_DIR; }
std::string FaultingLibraryFolder() { return ML_FAULTING_LIBRARY_DIR; }

void WriteToolEntry(const std::string& toolPath, const std::string& folder) {
  if (!toolPath.empty() &&
      !WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolPathValueName, Utf8ToWide(toolPath))) {
    std::abort();
  }
  if (!folder.empty() &&
      !WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolFolderValueName, Utf8ToWide(folder))) {
    std::abort();
  }
}

ChildResult RunSample(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
  std::vector<std::string> argv{SampleProductPath()};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  std::vector<char*> rawArgv;
  for (std::string& argument : argv) rawArgv.push_back(argument.data());
  rawArgv.push_back(nullptr);

  int output[2];
  if (pipe2(output, O_CLOEXEC) != 0) std::abort();
  ChildResult result;
  result.pid = fork();
  if (result.pid == 0) {
    // No core files of the crashes that end by their signal.
    rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    dup2(output[1], STDOUT_FILENO);
    for (const std::string& entry : environment) putenv(const_cast<char*>(entry.c_str()));
    execv(rawArgv[0], rawArgv.data());
    _exit(127);
  }
  close(output[1]);
  char buffer[4096];
  ssize_t n;
  while ((n = read(output[0], buffer, sizeof buffer)) > 0) result.output.append(buffer, static_cast<std::size_t>(n));
  close(output[0]);
  waitpid(result.pid, &result.status, 0);
  return result;
}

int ExitStatus(const ChildResult& result) {
  return WIFEXITED(result.status) ? WEXITSTATUS(result.status) : -1;
}

std::vector<std::string> ReportFiles(const testing_support::TestRoot& root) {
  return testing_support::ListFolder(root.ReportFolder());
}

std::vector<std::string> ReportNames(const testing_support::TestRoot& root) {
  std::set<std::string> names;
  for (const std::string& file : ReportFiles(root)) names.insert(file.substr(0, file.rfind('.')));
  return {names.begin(), names.end()};
}

std::vector<std::string> ToolCalls(const testing_support::TestRoot& root, std::size_t minimum, int timeoutMs) {
  const std::string path = root.Path("tool-calls.txt");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  std::vector<std::string> calls;
  for (;;) {
    calls.clear();
    if (testing_support::PathExists(path)) {
      std::istringstream lines(testing_support::ReadFileText(path));
      for (std::string line; std::getline(lines, line);) calls.push_back(line);
    }
    if (calls.size() >= minimum || std::chrono::steady_clock::now() >= deadline) return calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

std::vector<LogLine> DrainLog(testing_support::LogCapture& log) {
  constexpr std::size_t kMessageOffset = 348;
  constexpr std::size_t kMessageUnits = 256;
  std::vector<LogLine> lines;
  while (log.HasPending()) {
    const auto bytes = log.Receive(0);
    if (!bytes || bytes->size() < kMessageOffset + 2 * kMessageUnits) break;
    LogLine line;
    line.severity = (*bytes)[0] | ((*bytes)[1] << 8) | ((*bytes)[2] << 16) | (static_cast<std::uint32_t>((*bytes)[3]) << 24);
    for (std::size_t i = 0; i < kMessageUnits; ++i) {
      const std::size_t at = kMessageOffset + 2 * i;
      const auto unit = static_cast<char16_t>((*bytes)[at] | ((*bytes)[at + 1] << 8));
      if (unit == 0) break;
      line.message.push_back(unit);
    }
    lines.push_back(line);
  }
  return lines;
}

}  // namespace capture_test
