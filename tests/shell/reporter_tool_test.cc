// The reporter tool end to end: a product crashes, its capture starts the
// tool, and the tool sends or keeps the report. Every process is real; the
// collector on loopback plays the servers.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/tool_registry_entry.h"
#include "collector_process.h"
#include "run_command.h"
#include "shell/registry.h"
#include "store/crash_report_settings.h"
#include "store/path_buffer.h"
#include "test_root.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;
using testing_support::CommandResult;
using testing_support::ListFolder;

constexpr int kExitFailed = 255;
constexpr int kExitCrashed = 254;
constexpr char kOwnName[] = "Marlowen Crash Report Uploader_";
constexpr char kSettingsShown[] = "settings dialog";

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The output is the standard error of the program and of every tool it
// starts: the pipe stays open, and so the call waits, until all have ended.
// A time limit on each makes a hang fail the test instead of holding it.
CommandResult RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
  std::string command = "timeout 60 '" + program + "'";
  for (const std::string& argument : arguments) command += " '" + argument + "'";
  return testing_support::RunCommand(command + " 2>&1 >/dev/null");
}

class ReporterToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // No display: a dialog mode must say so and return instead of waiting.
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) unsetenv(name);
    testing_support::MakeFolders(root_.ReportFolder());
    // The discard port: nobody answers there.
    setenv("MARLOWEN_INFO_SERVER", "127.0.0.1:9", 1);
    // The registry names a wrapper around the real tool that notes each run's
    // exit value and command text in runs.log, for the runs nobody waits for.
    const std::string folder = root_.Path("opt/marlowen");
    testing_support::MakeFolders(folder);
    const std::string wrapper = folder + "/MLCrashReporter";
    testing_support::WriteFileText(wrapper, "#!/bin/sh\ntimeout 60 '" + std::string(ML_REPORTER_TOOL) +
                                                "' \"$@\"\necho \"$? $*\" >> '" + root_.Path("runs.log") + "'\n");
    chmod(wrapper.c_str(), 0755);
    symlink(ML_DUMP_LIBRARY, (folder + "/libmldbghelp.so").c_str());
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolPathValueName, Utf8ToWide(wrapper)));
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolFolderValueName, Utf8ToWide(folder)));
  }

  void StartCollector() {
    collector_ = std::make_unique<upload_test::CollectorProcess>(root_.Path("collector"));
    ASSERT_TRUE(collector_->started());
    collector_->UseAsServers();
  }
  std::vector<std::string> Received() const { return ListFolder(collector_->Value("receivedDir")); }

  std::vector<std::string> Runs() const { return Lines(testing_support::ReadFileText(root_.Path("runs.log"))); }

  std::string CrashProduct() {
    const CommandResult result = RunProgram(ML_SAMPLE_PRODUCT, {"--name", "Orbit Designer", "illegal-instruction"});
    EXPECT_EQ(result.status, kExitCrashed);
    return result.output;
  }

  CommandResult RunTool(const std::vector<std::string>& arguments) { return RunProgram(ML_REPORTER_TOOL, arguments); }

  std::vector<std::string> ReportFiles() const {
    std::vector<std::string> names = ListFolder(root_.ReportFolder());
    std::erase(names, "CrashReport.settings");
    return names;
  }

  // The report name from the one .dmp in the folder.
  std::string OnlyReportName() const {
    for (const std::string& name : ReportFiles()) {
      if (name.ends_with(".dmp")) return name.substr(0, name.size() - 4);
    }
    return std::string();
  }

  void ExpectKept(const std::string& reportName) {
    EXPECT_THAT(ReportFiles(), UnorderedElementsAre(reportName + ".dmp", reportName + ".dat"));
  }

  void ExpectReceivedWhole(const std::string& reportName) {
    ASSERT_THAT(Received(), ElementsAre(reportName + ".zip"));
    const std::string zip = collector_->Value("receivedDir") + "/" + reportName + ".zip";
    EXPECT_THAT(Lines(testing_support::RunCommand("unzip -Z1 '" + zip + "'").output),
                UnorderedElementsAre(reportName + ".dmp", reportName + ".xml"));
    EXPECT_THAT(ReportFiles(), IsEmpty());
  }

  testing_support::TestRoot root_;
  std::unique_ptr<upload_test::CollectorProcess> collector_;
};

TEST_F(ReporterToolTest, CrashWithDefaultSettingsReachesTheCollectorSilently) {
  StartCollector();
  const std::string output = CrashProduct();
  ASSERT_EQ(Runs().size(), 1u);
  const std::string run = Runs()[0];
  ASSERT_TRUE(run.starts_with("0 -send Orbit Designer_")) << run;
  ExpectReceivedWhole(run.substr(std::string("0 -send ").size()));
  EXPECT_THAT(output, Not(HasSubstr("dialog")));
}

struct HeldSettings {
  const char* name;
  bool sendReports;
  bool askBeforeSending;
};

class HeldReportTest : public ReporterToolTest, public ::testing::WithParamInterface<HeldSettings> {};

TEST_P(HeldReportTest, ReportStaysUntilSendAll) {
  Marlowen::CrashReportSettingsT settings;
  settings.sendReports = GetParam().sendReports;
  settings.askBeforeSending = GetParam().askBeforeSending;
  ASSERT_TRUE(settings.Save(Marlowen::PathBuffer()));
  StartCollector();

  CrashProduct();
  const std::string reportName = OnlyReportName();
  EXPECT_THAT(Runs(), ElementsAre("0 -send " + reportName));
  EXPECT_THAT(Received(), IsEmpty());
  ExpectKept(reportName);

  // The settings hold back only the run after the crash.
  EXPECT_EQ(RunTool({"-sendAll"}).status, 0);
  ExpectReceivedWhole(reportName);
  EXPECT_EQ(RunTool({"-sendAll"}).status, kExitFailed);
}

INSTANTIATE_TEST_SUITE_P(Settings, HeldReportTest,
                         ::testing::Values(HeldSettings{"AskBeforeSending", true, true},
                                           HeldSettings{"DoNotSend", false, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ReporterToolTest, FailedUploadKeepsTheZipForTheNextSendAll) {
  CrashProduct();
  ASSERT_EQ(Runs().size(), 1u);
  EXPECT_TRUE(Runs()[0].starts_with("255 -send Orbit Designer_")) << Runs()[0];
  const std::vector<std::string> files = ReportFiles();
  ASSERT_EQ(files.size(), 1u);
  ASSERT_TRUE(files[0].ends_with(".zip")) << files[0];

  StartCollector();
  EXPECT_EQ(RunTool({"-sendAll"}).status, 0);
  ExpectReceivedWhole(files[0].substr(0, files[0].size() - 4));
}

// "-crash", and a bare "-send" whose report name lies beyond the text's end:
// both end in the tool's own filter.
class OwnReportTest : public ReporterToolTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(OwnReportTest, ToolReportsItselfAndNeverSendsIt) {
  StartCollector();
  EXPECT_EQ(RunTool({GetParam()}).status, kExitCrashed);
  const std::string reportName = OnlyReportName();
  EXPECT_TRUE(reportName.starts_with(kOwnName)) << reportName;
  EXPECT_THAT(Runs(), ElementsAre("0 -send " + reportName));
  ExpectKept(reportName);

  EXPECT_EQ(RunTool({"-sendAll"}).status, kExitFailed);
  EXPECT_THAT(Received(), IsEmpty());
  ExpectKept(reportName);
}

INSTANTIATE_TEST_SUITE_P(Modes, OwnReportTest, ::testing::Values("-crash", "-send"),
                         [](const auto& info) { return std::string(info.param + 1); });

struct CommandCase {
  const char* name;
  std::vector<std::string> arguments;
  int exitStatus;
  const char* output;  // a part of it; "" for nothing at all
};

class CommandTextTest : public ReporterToolTest, public ::testing::WithParamInterface<CommandCase> {};

TEST_P(CommandTextTest, ChoosesTheMode) {
  const CommandResult result = RunTool(GetParam().arguments);
  EXPECT_EQ(result.status, GetParam().exitStatus);
  if (*GetParam().output == 0) {
    EXPECT_THAT(result.output, IsEmpty());
  } else {
    EXPECT_THAT(result.output, HasSubstr(GetParam().output));
  }
  EXPECT_THAT(ReportFiles(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CommandTextTest,
    ::testing::Values(
        CommandCase{"OnlyBlanks", {" \t\r\n ", " "}, 0, kSettingsShown},
        CommandCase{"OptionsHaveCase", {"-SEND", "x"}, 0, kSettingsShown},
        CommandCase{"OptionNotAtStart", {"x", "-send", "y"}, 0, kSettingsShown},
        CommandCase{"ReportWithNothingPending", {"-report"}, 0, ""},
        CommandCase{"SendAllWithTail", {"-sendAll", "now"}, kExitFailed, ""},
        CommandCase{"SixCharactersGiveNoName", {"-sendX"}, 0, ""},
        CommandCase{"OwnReportIsDropped", {"-send", "Marlowen Crash anything"}, 0, ""},
        CommandCase{"AttendedProductGetsTheDialog", {"-send", "tarnhollows_1"}, 0, "error dialog"}),
    [](const auto& info) { return std::string(info.param.name); });

// Forms of "-send" that all name the report "Orbit Designer_1", whose zip
// is then posted.
class SendNameTest : public ReporterToolTest, public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(SendNameTest, NameReachesTheUpload) {
  testing_support::WriteFileText(root_.ReportFolder() + "/Orbit Designer_1.zip", "PK zip");
  StartCollector();
  EXPECT_EQ(RunTool(GetParam()).status, 0);
  EXPECT_THAT(Received(), ElementsAre("Orbit Designer_1.zip"));
  EXPECT_THAT(ReportFiles(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Forms, SendNameTest,
    ::testing::Values(
        // A shell's arguments, joined by single blanks.
        std::vector<std::string>{"-send", "Orbit", "Designer_1"},
        // The launcher's one argument: the separator is counted, not looked
        // at, and the second trim takes the blank after it.
        std::vector<std::string>{"-send_ Orbit Designer_1 "}));

// The purge at the end of every run that returns.
TEST_F(ReporterToolTest, PurgeDropsEmptyDumpsWithEveryFileOfTheirNameAndDumpsOverOneHundredMebibytes) {
  const std::string folder = root_.ReportFolder() + "/";
  testing_support::WriteFileText(folder + "Empty_1.dmp", "");
  testing_support::WriteFileText(folder + "Empty_1.log", "companion");
  testing_support::WriteFileText(folder + "Empty_1_2.txt", "shares the prefix");
  testing_support::WriteFileText(folder + "Kept_1.zip", "a zip");
  for (const auto& [name, size] : {std::pair{"Exact_1", 104857600}, std::pair{"Over_1", 104857601}}) {
    testing_support::WriteFileText(folder + name + ".dat", "record");
    testing_support::WriteFileText(folder + name + ".dmp", "");
    ASSERT_EQ(truncate((folder + name + ".dmp").c_str(), size), 0);
  }
  EXPECT_EQ(RunTool({}).status, 0);
  EXPECT_THAT(ReportFiles(), ElementsAre("Exact_1.dat", "Exact_1.dmp", "Kept_1.zip"));
}

}  // namespace
