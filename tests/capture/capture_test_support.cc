#include "capture_test_support.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <set>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "capture/tool_registry_entry.h"
#include "shell/registry.h"
#include "shell/wide_string.h"

namespace capture_test {

void WriteToolEntry(const std::string& toolPath, const std::string& folder) {
  if (!toolPath.empty()) {
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolPathValueName, Utf8ToWide(toolPath)));
  }
  if (!folder.empty()) {
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolFolderValueName, Utf8ToWide(folder)));
  }
}

ChildResult RunSample(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
  std::vector<std::string> argv{ML_SAMPLE_PRODUCT};
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
  // A process left behind by a broken capture may hold the pipe open for ever.
  char buffer[4096];
  ssize_t n = 1;
  for (pollfd wait{output[0], POLLIN, 0}; n > 0 && poll(&wait, 1, 30000) == 1;) {
    if ((n = read(output[0], buffer, sizeof buffer)) > 0) result.output.append(buffer, n);
  }
  if (n != 0) ADD_FAILURE() << "the product's standard output stayed open";
  close(output[0]);
  waitpid(result.pid, &result.status, 0);
  return result;
}

int ExitStatus(const ChildResult& result) { return WIFEXITED(result.status) ? WEXITSTATUS(result.status) : -1; }

std::vector<std::string> ReportNames(const testing_support::TestRoot& root) {
  std::set<std::string> names;
  for (const std::string& file : testing_support::ListFolder(root.ReportFolder())) {
    names.insert(file.substr(0, file.rfind('.')));
  }
  return {names.begin(), names.end()};
}

std::vector<std::string> ToolCalls(const testing_support::TestRoot& root, std::size_t minimum, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    std::vector<std::string> calls;
    std::istringstream lines(testing_support::ReadFileText(root.Path("tool-calls.txt")));
    for (std::string line; std::getline(lines, line);) calls.push_back(line);
    if (calls.size() >= minimum || std::chrono::steady_clock::now() >= deadline) return calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace capture_test
