// The reporter tool end to end: a product crashes, its capture starts the
// tool, and the tool sends or keeps the report. Every process is real; the
// collector on loopback plays the servers.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/tool_registry_entry.h"
#include "reporter_tool_harness.h"
#include "shell/registry.h"
#include "store/crash_report_settings.h"
#include "store/path_buffer.h"
#include "test_root.h"

namespace reporter_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

constexpr int kExitSuccess = 0;
constexpr int kExitFailed = 255;  // -1
constexpr int kExitCrashed = 254;  // 0xFFFFFFFE
constexpr char kProduct[] = "Orbit Designer";
constexpr char kOwnName[] = "Marlowen Crash Report Uploader_";

std::vector<std::string> Without(std::vector<std::string> names, const std::string& name) {
  names.erase(std::remove(names.begin(), names.end(), name), names.end());
  return names;
}

class ReporterToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // No display: a dialog mode must say so and return instead of waiting
    // for a click.
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) unsetenv(name);
    testing_support::MakeFolders(root_.ReportFolder());
    UseUnreachableServers();
    InstallTool("opt/marlowen");
  }

  // The registry names a wrapper around the real tool that notes each run's
  // exit value and command text in runs.log, for the runs nobody waits for.
  void InstallTool(const std::string& relativeFolder) {
    const std::string folder = root_.Path(relativeFolder);
    testing_support::MakeFolders(folder);
    const std::string wrapper = folder + "/MLCrashReporter";
    testing_support::WriteFileText(
        wrapper, "#!/bin/sh\n'" + std::string(ML_REPORTER_TOOL) + "' \"$@\"\necho \"$? $*\" >> '" +
                     RunsLog() + "'\n");
    chmod(wrapper.c_str(), 0755);
    symlink(ML_DUMP_LIBRARY, (folder + "/libmldbghelp.so").c_str());
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolPathValueName,
                                    Utf8ToWide(wrapper)));
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolFolderValueName,
                                    Utf8ToWide(folder)));
  }

  std::string RunsLog() const { return root_.Path("runs.log"); }
  std::vector<std::string> Runs() const {
    std::vector<std::string> lines;
    const std::string text = testing_support::ReadFileText(RunsLog());
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1) {
      lines.push_back(text.substr(start, end - start));
    }
    return lines;
  }

  // Crashes the sample product and waits for the tool its capture starts;
  // the tool writes to the product's standard error.
  ProcessResult CrashProduct(const std::string& product = kProduct) {
    const std::string errorPath = root_.Path("product.stderr");
    ProcessResult result =
        RunProgram(ML_SAMPLE_PRODUCT, {"--name", product, "illegal-instruction"}, errorPath);
    EXPECT_EQ(result.exitStatus, kExitCrashed);
    EXPECT_TRUE(WaitForLines(RunsLog(), Runs().size() + 1)) << "the tool never ended";
    result.standardError = testing_support::ReadFileText(errorPath);
    return result;
  }

  ProcessResult RunTool(const std::vector<std::string>& arguments) {
    return RunProgram(ML_REPORTER_TOOL, arguments);
  }

  std::vector<std::string> ReportFiles() const {
    return Without(testing_support::ListFolder(root_.ReportFolder()), "CrashReport.settings");
  }

  // The report name from the one .dmp in the folder.
  std::string OnlyReportName() const {
    for (const std::string& name : ReportFiles()) {
      if (name.size() > 4 && name.ends_with(".dmp")) return name.substr(0, name.size() - 4);
    }
    return std::string();
  }

  void SaveSettings(bool sendReports, bool askBeforeSending) {
    Marlowen::CrashReportSettingsT settings;
    settings.sendReports = sendReports;
    settings.askBeforeSending = askBeforeSending;
    ASSERT_TRUE(settings.Save(Marlowen::PathBuffer()));
  }

  void ExpectReceivedWhole(const Collector& collector, const std::string& reportName) {
    ASSERT_THAT(collector.Received(), ElementsAre(reportName + ".zip"));
    EXPECT_THAT(ZipEntries(collector.ReceivedPath(reportName + ".zip")),
                UnorderedElementsAre(reportName + ".dmp", reportName + ".xml"));
  }

  testing_support::TestRoot root_;
};

TEST_F(ReporterToolTest, CrashWithDefaultSettingsReachesTheCollectorSilently) {
  Collector collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();

  const ProcessResult crash = CrashProduct();
  ASSERT_EQ(Runs().size(), 1u);
  const std::string run = Runs()[0];
  EXPECT_TRUE(run.starts_with("0 -send Orbit Designer_")) << run;
  const std::string reportName = run.substr(std::string("0 -send ").size());
  ExpectReceivedWhole(collector, reportName);
  EXPECT_THAT(ReportFiles(), IsEmpty());
  EXPECT_THAT(crash.standardError, Not(HasSubstr("dialog")));
}

struct HeldSettings {
  const char* name;
  bool sendReports;
  bool askBeforeSending;
};

class HeldReportTest : public ReporterToolTest,
                       public ::testing::WithParamInterface<HeldSettings> {};

TEST_P(HeldReportTest, ReportStaysUntilSendAll) {
  SaveSettings(GetParam().sendReports, GetParam().askBeforeSending);
  Collector collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();

  CrashProduct();
  const std::string reportName = OnlyReportName();
  EXPECT_THAT(Runs(), ElementsAre("0 -send " + reportName));
  EXPECT_THAT(collector.Received(), IsEmpty());
  EXPECT_THAT(ReportFiles(), UnorderedElementsAre(reportName + ".dmp", reportName + ".dat"));

  // The settings hold back only the run after the crash.
  EXPECT_EQ(RunTool({"-sendAll"}).exitStatus, kExitSuccess);
  ExpectReceivedWhole(collector, reportName);
  EXPECT_THAT(ReportFiles(), IsEmpty());

  EXPECT_EQ(RunTool({"-sendAll"}).exitStatus, kExitFailed);
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
  const std::string reportName = files[0].substr(0, files[0].size() - 4);

  Collector collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();
  EXPECT_EQ(RunTool({"-sendAll"}).exitStatus, kExitSuccess);
  ExpectReceivedWhole(collector, reportName);
  EXPECT_THAT(ReportFiles(), IsEmpty());
}

// "-crash", and a bare "-send" whose report name lies beyond the text's end:
// both end in the tool's own filter.
class OwnReportTest : public ReporterToolTest,
                      public ::testing::WithParamInterface<const char*> {};

TEST_P(OwnReportTest, ToolReportsItselfAndNeverSendsIt) {
  Collector collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();

  EXPECT_EQ(RunTool({GetParam()}).exitStatus, kExitCrashed);
  ASSERT_TRUE(WaitForLines(RunsLog(), 1));
  const std::string reportName = OnlyReportName();
  EXPECT_TRUE(reportName.starts_with(kOwnName)) << reportName;
  EXPECT_THAT(Runs(), ElementsAre("0 -send " + reportName));
  EXPECT_THAT(ReportFiles(), UnorderedElementsAre(reportName + ".dmp", reportName + ".dat"));

  EXPECT_EQ(RunTool({"-sendAll"}).exitStatus, kExitFailed);
  EXPECT_THAT(collector.Received(), IsEmpty());
  EXPECT_THAT(ReportFiles(), UnorderedElementsAre(reportName + ".dmp", reportName + ".dat"));
}

INSTANTIATE_TEST_SUITE_P(Modes, OwnReportTest, ::testing::Values("-crash", "-send"),
                         [](const auto& info) {
                           return std::string(info.param == std::string("-crash") ? "Crash"
                                                                                  : "BareSend");
                         });

TEST_F(ReporterToolTest, ToolPathWithBlankShowsSettingsAndKeepsReport) {
  InstallTool("opt/with blank");
  Collector collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();

  const ProcessResult crash = CrashProduct();
  const std::string reportName = OnlyReportName();
  // The tool takes the rest of its own path for the start of its command text.
  EXPECT_THAT(Runs(), ElementsAre("0 blank/MLCrashReporter -send " + reportName));
  EXPECT_THAT(crash.standardError, HasSubstr("settings dialog"));
  EXPECT_THAT(collector.Received(), IsEmpty());
  EXPECT_THAT(ReportFiles(), UnorderedElementsAre(reportName + ".dmp", reportName + ".dat"));
}

struct CommandCase {
  const char* name;
  std::vector<std::string> arguments;
  int exitStatus;
  const char* standardError;  // a part of it; "" for nothing at all
};

class CommandTextTest : public ReporterToolTest,
                        public ::testing::WithParamInterface<CommandCase> {};

TEST_P(CommandTextTest, ChoosesTheMode) {
  const ProcessResult result = RunTool(GetParam().arguments);
  EXPECT_EQ(result.exitStatus, GetParam().exitStatus);
  if (*GetParam().standardError == 0) {
    EXPECT_THAT(result.standardError, IsEmpty());
  } else {
    EXPECT_THAT(result.standardError, HasSubstr(GetParam().standardError));
  }
  EXPECT_THAT(ReportFiles(), IsEmpty());
}

constexpr char kSettingsShown[] = "settings dialog";

INSTANTIATE_TEST_SUITE_P(
    Cases, CommandTextTest,
    ::testing::Values(
        CommandCase{"Nothing", {}, kExitSuccess, kSettingsShown},
        CommandCase{"OnlyBlanks", {" \t\r\n ", " "}, kExitSuccess, kSettingsShown},
        CommandCase{"OptionsHaveCase", {"-SEND", "x"}, kExitSuccess, kSettingsShown},
        CommandCase{"OptionNotAtStart", {"x", "-send", "y"}, kExitSuccess, kSettingsShown},
        CommandCase{"UnknownOption", {"-settings"}, kExitSuccess, kSettingsShown},
        // Nothing pending: nothing to tell.
        CommandCase{"ReportWithNothingPending", {"-report"}, kExitSuccess, ""},
        // Position 6 is counted, not parsed: the name is "l", whose upload fails.
        CommandCase{"SendAlIsSend", {"-sendAl"}, kExitFailed, ""},
        CommandCase{"SendAllWithTail", {"-sendAll", "now"}, kExitFailed, ""},
        CommandCase{"SixCharactersGiveNoName", {"-sendX"}, kExitSuccess, ""},
        CommandCase{"OwnReportIsDropped", {"-send", "Marlowen Crash anything"}, kExitSuccess, ""},
        CommandCase{"AttendedProductGetsTheDialog",
                    {"-send", "tarnhollows_1"},
                    kExitSuccess,
                    "error dialog"}),
    [](const auto& info) { return std::string(info.param.name); });

// Forms of "-send" that all name the report "Orbit Designer_1", whose zip
// is then posted.
class SendNameTest : public ReporterToolTest,
                     public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(SendNameTest, NameReachesTheUpload) {
  testing_support::WriteFileText(root_.ReportFolder() + "/Orbit Designer_1.zip", "PK zip");
  Collector collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();

  EXPECT_EQ(RunTool(GetParam()).exitStatus, kExitSuccess);
  EXPECT_THAT(collector.Received(), ElementsAre("Orbit Designer_1.zip"));
  EXPECT_THAT(ReportFiles(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Forms, SendNameTest,
    ::testing::Values(
        // A shell's arguments, joined by single blanks.
        std::vector<std::string>{"-send", "Orbit", "Designer_1"},
        // The launcher's one argument; the second trim takes the second blank.
        std::vector<std::string>{"-send  Orbit Designer_1 "},
        // The separator is counted, not looked at.
        std::vector<std::string>{"-send_Orbit Designer_1"}));

// The purge at the end of every run that returns.
class PurgeTest : public ReporterToolTest,
                  public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(PurgeTest, EmptyDumpGoesWithEveryFileOfItsName) {
  const std::string folder = root_.ReportFolder() + "/";
  testing_support::WriteFileText(folder + "Empty_1.dmp", "");
  testing_support::WriteFileText(folder + "Empty_1.log", "companion");
  testing_support::WriteFileText(folder + "Empty_1_2.txt", "shares the prefix");
  testing_support::WriteFileText(folder + "Kept_1.zip", "a zip that cannot be posted now");

  RunTool(GetParam());
  EXPECT_THAT(ReportFiles(), ElementsAre("Kept_1.zip"));
}

INSTANTIATE_TEST_SUITE_P(
    Modes, PurgeTest,
    ::testing::Values(std::vector<std::string>{}, std::vector<std::string>{"-report"},
                      std::vector<std::string>{"-sendAll"},
                      std::vector<std::string>{"-send", "Other_1"}));

TEST_F(ReporterToolTest, PurgeKeepsOneHundredMebibytesAndDropsOneByteMore) {
  const std::string folder = root_.ReportFolder() + "/";
  constexpr off_t kLimit = 104857600;
  testing_support::WriteFileText(folder + "Exact_1.dmp", "");
  testing_support::WriteFileText(folder + "Exact_1.dat", "record");
  testing_support::WriteFileText(folder + "Over_1.dmp", "");
  testing_support::WriteFileText(folder + "Over_1.dat", "record");
  ASSERT_EQ(truncate((folder + "Exact_1.dmp").c_str(), kLimit), 0);
  ASSERT_EQ(truncate((folder + "Over_1.dmp").c_str(), kLimit + 1), 0);

  EXPECT_EQ(RunTool({}).exitStatus, kExitSuccess);
  EXPECT_THAT(ReportFiles(), ElementsAre("Exact_1.dat", "Exact_1.dmp"));
}

}  // namespace
}  // namespace reporter_test
