// The tool itself, run as a program: its dialog modes without a display and
// on an X display of its own, and "-report" with nothing to report.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "report_dialog_test_support.h"
#include "run_command.h"
#include "test_root.h"

namespace {

using report_dialog_test::ReportDialogTest;

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

class ToolTest : public ReportDialogTest {
 protected:
  // The tool with only the test's machine in its environment, plus extra.
  std::string ToolCommand(const std::string& arguments, const std::string& extra = "") const {
    return "env -i MARLOWEN_ROOT=" + Quoted(root_.path()) + " TMPDIR=" + Quoted(root_.Path("tmp")) + " " + extra + " " +
           Quoted(testing_support::BuildDir() + "/shell/MLCrashReporter") + " " + arguments;
  }
};

class DialogModesTest : public ToolTest, public testing::WithParamInterface<const char*> {};

TEST_P(DialogModesTest, WithoutADisplayTheToolSaysSoAndLeavesTheReports) {
  AddReport("Tarnhollows_20260102030405_1_1");
  SaveSettings(true, false, "");
  const std::vector<std::string> before = FolderNames();
  const std::vector<std::uint8_t> settings = SettingsBytes();
  testing_support::CommandResult run = testing_support::RunCommand(ToolCommand(GetParam()) + " 2>&1");
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.output.find("MLCrashReporter: no display to show"), std::string::npos) << run.output;
  EXPECT_EQ(FolderNames(), before);
  EXPECT_EQ(SettingsBytes(), settings);
}

INSTANTIATE_TEST_SUITE_P(Modes, DialogModesTest,
                         testing::Values("-report", "", "-send Tarnhollows_20260102030405_1_1"));

TEST_F(ToolTest, OnADesktopSessionTheDialogAppearsThere) {
  if (access("/usr/bin/Xvfb", X_OK) != 0 || access("/usr/bin/xwininfo", X_OK) != 0) {
    GTEST_SKIP() << "needs Xvfb and xwininfo (tools/install-deps.sh installs them)";
  }
  // A private X server writes its display number once it accepts clients;
  // the tool starts on it; its window tree is read until the settings window
  // shows or 10 seconds passed. Both processes are ended by their ids.
  const std::string numberFile = Quoted(root_.Path("display"));
  const std::string script =
      "Xvfb -displayfd 3 -nolisten tcp -screen 0 1024x768x24 3>" + numberFile + " >/dev/null 2>&1 & server=$!\n" +
      "for i in $(seq 100); do [ -s " + numberFile + " ] && break; sleep 0.1; done; display=:$(cat " + numberFile + ")\n" +
      ToolCommand("", "DISPLAY=$display") + " >/dev/null 2>&1 & tool=$!\n" +
      "for i in $(seq 100); do xwininfo -root -tree -display $display 2>/dev/null |"
      " grep -q '\"Marlowen Error Reporter - Settings\"' && { echo shown; break; }; sleep 0.1; done\n"
      "kill $tool $server; wait\n";
  EXPECT_EQ(testing_support::RunCommand(script).output, "shown\n");
}

}  // namespace
