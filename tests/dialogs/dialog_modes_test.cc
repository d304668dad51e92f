// The tool itself, run as a program: its dialog modes without a display,
// and "-report" with nothing to report.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "report_dialog_test_support.h"
#include "test_root.h"

namespace {

using report_dialog_test::ReportDialogTest;

struct ToolRun {
  int exitCode = -1;
  std::string errorText;
};

// Runs the tool with exactly this environment and its arguments.
ToolRun RunTool(const std::vector<std::string>& arguments, std::vector<std::string> environment) {
  const std::string tool = testing_support::BuildDir() + "/shell/MLCrashReporter";
  int err[2];
  if (pipe(err) != 0) return {};
  pid_t child = fork();
  if (child == 0) {
    dup2(err[1], 2);
    close(err[0]);
    std::vector<char*> argv{const_cast<char*>(tool.c_str())};
    std::vector<std::string> copies = arguments;
    for (std::string& argument : copies) argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    execve(tool.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(err[1]);
  ToolRun run;
  char buffer[512];
  ssize_t n;
  while ((n = read(err[0], buffer, sizeof buffer)) > 0) run.errorText.append(buffer, static_cast<size_t>(n));
  close(err[0]);
  int status = 0;
  waitpid(child, &status, 0);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

class DialogModesTest : public ReportDialogTest, public testing::WithParamInterface<std::vector<std::string>> {
 protected:
  std::vector<std::string> BaseEnvironment() const {
    return {"MARLOWEN_ROOT=" + root_.path(), "TMPDIR=" + root_.Path("tmp"), "PATH=/usr/bin:/bin"};
  }
};

TEST_P(DialogModesTest, WithoutADisplayTheToolSaysSoAndLeavesTheReports) {
  ASSERT_FALSE(testing_support::BuildDir().empty());
  AddReport("Tarnhollows_20260102030405_1_1");
  SaveSettings(true, false, "");
  const std::vector<std::string> before = FolderNames();
  const std::vector<std::uint8_t> settings = SettingsBytes();
  ToolRun run = RunTool(GetParam(), BaseEnvironment());
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_NE(run.errorText.find("MLCrashReporter: no display to show"), std::string::npos) << run.errorText;
  EXPECT_EQ(FolderNames(), before);
  EXPECT_EQ(SettingsBytes(), settings);
}

INSTANTIATE_TEST_SUITE_P(Modes, DialogModesTest,
                         testing::Values(std::vector<std::string>{"-report"}, std::vector<std::string>{},
                                         std::vector<std::string>{"-send", "Tarnhollows_20260102030405_1_1"}));

class ToolRunTest : public ReportDialogTest {};

TEST_F(ToolRunTest, ReportModeWithNothingPendingEndsAtOnce) {
  ASSERT_FALSE(testing_support::BuildDir().empty());
  ToolRun run = RunTool({"-report"}, {"MARLOWEN_ROOT=" + root_.path(), "TMPDIR=" + root_.Path("tmp"),
                                      "QT_QPA_PLATFORM=offscreen"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.errorText, "");
}

}  // namespace
