// The tool itself, run as a program: its dialog modes without a display,
// and "-report" with nothing to report.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fcntl.h>
#include <signal.h>

#include <string>
#include <vector>

#include "report_dialog_test_support.h"
#include "report_test_support.h"
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

// A child that is ended (SIGTERM) and reaped when this goes.
struct ChildProcess {
  pid_t pid = -1;
  ~ChildProcess() {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
  }
};

// Starts argv[0] with exactly this environment and no output; inherited
// descriptors stay open in it.
pid_t Spawn(const std::vector<std::string>& argv, std::vector<std::string> environment) {
  pid_t child = fork();
  if (child != 0) return child;
  std::vector<char*> args;
  std::vector<std::string> copies = argv;
  for (std::string& argument : copies) args.push_back(argument.data());
  args.push_back(nullptr);
  std::vector<char*> envp;
  for (std::string& entry : environment) envp.push_back(entry.data());
  envp.push_back(nullptr);
  int null = open("/dev/null", O_WRONLY);
  dup2(null, 1);
  dup2(null, 2);
  execve(args[0], args.data(), envp.data());
  _exit(127);
}

TEST_F(ToolRunTest, OnADesktopSessionTheDialogAppearsThere) {
  if (access("/usr/bin/Xvfb", X_OK) != 0 || access("/usr/bin/xwininfo", X_OK) != 0) {
    GTEST_SKIP() << "needs Xvfb and xwininfo (tools/install-deps.sh installs them)";
  }
  // A private X server; it writes its display number once it accepts clients.
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  ChildProcess server;
  server.pid = Spawn({"/usr/bin/Xvfb", "-displayfd", std::to_string(ready[1]), "-nolisten", "tcp", "-screen", "0",
                      "1024x768x24"},
                     {"PATH=/usr/bin:/bin"});
  close(ready[1]);
  std::string number;
  char c;
  while (read(ready[0], &c, 1) == 1 && c != '\n') number += c;
  close(ready[0]);
  ASSERT_FALSE(number.empty());
  const std::string display = ":" + number;

  ChildProcess tool;
  tool.pid = Spawn({testing_support::BuildDir() + "/shell/MLCrashReporter"},
                   {"MARLOWEN_ROOT=" + root_.path(), "TMPDIR=" + root_.Path("tmp"), "DISPLAY=" + display});
  bool shown = false;
  for (int attempt = 0; attempt < 100 && !shown; ++attempt) {
    packaging_test::CommandResult windows =
        packaging_test::RunCommand({"/usr/bin/xwininfo", "-root", "-tree", "-display", display});
    shown = windows.output.find("\"Marlowen Error Reporter - Settings\"") != std::string::npos;
    if (!shown) usleep(100 * 1000);
  }
  EXPECT_TRUE(shown);
}

}  // namespace
