// The capture in a real crashing process: the sample product faults in a
// child, and the tests look at what it left behind (exit status, report
// files, the tool's recorded start, the log) on a machine of their own.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture_test_support.h"
#include "log_capture.h"
#include "shell/wide_string.h"
#include "store/crash_report_settings.h"
#include "store/crashed_module.h"
#include "store/file_time.h"
#include "store/path_buffer.h"
#include "test_root.h"

namespace capture_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing_support::LogCapture;
using testing_support::TestRoot;

constexpr int kCrashExitStatus = 254;
constexpr char kProduct[] = "Marlowen Sample Product";
constexpr std::time_t kClockSlackSeconds = 10;

const std::regex kReportName(R"(^(.*)_(\d{14})_(\d+)_(\d+)$)");

struct ReportNameParts {
  std::string application;
  std::string digits;
  int processId = 0;
  int threadId = 0;
};

ReportNameParts SplitReportName(const std::string& name) {
  std::smatch match;
  ReportNameParts parts;
  if (!std::regex_match(name, match, kReportName)) return parts;
  parts.application = match[1];
  parts.digits = match[2];
  parts.processId = std::stoi(match[3]);
  parts.threadId = std::stoi(match[4]);
  return parts;
}

// The UTC time that 14 digits stand for.
std::time_t DigitsToTime(const std::string& digits) {
  std::tm utc{};
  utc.tm_year = std::stoi(digits.substr(0, 4)) - 1900;
  utc.tm_mon = std::stoi(digits.substr(4, 2)) - 1;
  utc.tm_mday = std::stoi(digits.substr(6, 2));
  utc.tm_hour = std::stoi(digits.substr(8, 2));
  utc.tm_min = std::stoi(digits.substr(10, 2));
  utc.tm_sec = std::stoi(digits.substr(12, 2));
  return timegm(&utc);
}

LogLine Line(std::uint32_t severity, const std::string& message) { return {severity, Utf8ToWide(message)}; }

std::string ReportFile(const TestRoot& root, const std::string& name, const char* extension) {
  return root.ReportFolder() + "/" + name + extension;
}

bool LoadRecord(const TestRoot& root, const std::string& name, Marlowen::CrashedModuleT& record) {
  return record.Load(Marlowen::PathBuffer::FromUtf8(ReportFile(root, name, ".dat")));
}

// A minidump read by the published layout, independently of the writer.
class DumpFile {
 public:
  explicit DumpFile(const std::string& path) : bytes_(testing_support::ReadFileBytes(path)) {}

  bool HasSignature() const { return bytes_.size() >= 32 && U32(0) == 0x504D444Du; }  // "MDMP"

  std::vector<std::uint32_t> StreamTypes() const {
    std::vector<std::uint32_t> types;
    if (!HasSignature()) return types;
    for (std::uint32_t i = 0; i < U32(8); ++i) types.push_back(U32(U32(12) + 12 * i));
    return types;
  }

  // The thread id of the exception stream; 0 if none.
  std::uint32_t ExceptionThreadId() const {
    const std::size_t stream = ExceptionStream();
    return stream != 0 ? U32(stream) : 0;
  }

  // Rip of the thread context that the exception stream points to; 0 if none.
  std::uint64_t ExceptionInstructionPointer() const {
    constexpr std::size_t kContextLocation = 8 + 152;  // thread id, alignment, MINIDUMP_EXCEPTION
    constexpr std::size_t kRipInContext = 0xF8;
    const std::size_t stream = ExceptionStream();
    if (stream == 0) return 0;
    const std::size_t context = U32(stream + kContextLocation + 4);
    return U32(context + kRipInContext) | (static_cast<std::uint64_t>(U32(context + kRipInContext + 4)) << 32);
  }

 private:
  std::size_t ExceptionStream() const {
    constexpr std::uint32_t kExceptionStream = 6;
    if (!HasSignature()) return 0;
    for (std::uint32_t i = 0; i < U32(8); ++i) {
      const std::size_t entry = U32(12) + 12 * i;
      if (U32(entry) == kExceptionStream) return U32(entry + 8);
    }
    return 0;
  }

  std::uint32_t U32(std::size_t at) const {
    if (at + 4 > bytes_.size()) return 0;
    return bytes_[at] | (bytes_[at + 1] << 8) | (bytes_[at + 2] << 16) | (static_cast<std::uint32_t>(bytes_[at + 3]) << 24);
  }

  std::vector<std::uint8_t> bytes_;
};

class CaptureTest : public testing::Test {
 protected:
  void WithToolAndLibrary() { WriteToolEntry(FakeToolPath(), DumpLibraryFolder()); }

  TestRoot root_;
  LogCapture log_{root_};
};

TEST_F(CaptureTest, AccessViolationLeavesDumpRecordToolStartAndLogLines) {
  ASSERT_TRUE(log_.bound());
  WithToolAndLibrary();
  const std::time_t before = std::time(nullptr);
  const ChildResult child = RunSample({"--print-address", "null-write"});
  const std::time_t after = std::time(nullptr);
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);

  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, SizeIs(1));
  const std::string& name = names[0];
  EXPECT_THAT(ReportFiles(root_), ElementsAre(name + ".dat", name + ".dmp"));
  const ReportNameParts parts = SplitReportName(name);
  EXPECT_EQ(parts.application, kProduct);
  EXPECT_EQ(parts.processId, child.pid);
  EXPECT_EQ(parts.threadId, child.pid);  // the main thread faulted
  EXPECT_GE(DigitsToTime(parts.digits), before - 1);
  EXPECT_LE(DigitsToTime(parts.digits), after + 1);
  const DumpFile dump(ReportFile(root_, name, ".dmp"));
  EXPECT_TRUE(dump.HasSignature());

  Marlowen::CrashedModuleT record;
  ASSERT_TRUE(LoadRecord(root_, name, record));
  EXPECT_EQ(WideToUtf8(record.reportName), name);
  EXPECT_EQ(WideToUtf8(record.exceptionType), "Access Violation");
  EXPECT_EQ(WideToUtf8(record.moduleName), kProduct);
  EXPECT_EQ(record.fileName.ToUtf8(), SampleProductPath());
  EXPECT_EQ(WideToUtf8(record.fileVersion), ML_PROJECT_VERSION);
  const std::time_t created = Marlowen::FileTimeToUnixTime(record.creationTime);
  EXPECT_GE(created, before - 1);
  EXPECT_LE(created, after + 1);
  // The address is the faulting store's: the instruction pointer of the
  // dump's exception context, inside the function that stores.
  const std::string crashAddress = WideToUtf8(record.crashAddress);
  ASSERT_EQ(crashAddress.rfind("0x", 0), 0u) << crashAddress;
  const auto fault = std::stoull(crashAddress, nullptr, 16);
  EXPECT_EQ(fault, dump.ExceptionInstructionPointer()) << crashAddress;
  const auto function = std::stoull(child.output.substr(child.output.find('=') + 1), nullptr, 16);
  EXPECT_GE(fault, function);
  EXPECT_LT(fault, function + 256) << crashAddress;

  EXPECT_THAT(ToolCalls(root_, 1), ElementsAre("-send " + name));

  EXPECT_THAT(DrainLog(log_),
              ElementsAre(Line(4, "A top-level exception has occurred. The process will be restarted (Access Violation)."),
                          Line(2, "Crash report written to '" + ReportFile(root_, name, ".dmp") + "'."),
                          Line(2, "Crashing module's data written to disk."),
                          Line(2, "Crash report uploader started."),
                          Line(3, std::string("Terminating process for '") + kProduct + "' after crash report writing.")));
}

struct NamedFault {
  const char* mode;
  const char* exceptionName;
};

class FaultNameTest : public CaptureTest, public testing::WithParamInterface<NamedFault> {};

TEST_P(FaultNameTest, ReportCarriesTheExceptionName) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({GetParam().mode});
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, SizeIs(1));
  Marlowen::CrashedModuleT record;
  ASSERT_TRUE(LoadRecord(root_, names[0], record));
  EXPECT_EQ(WideToUtf8(record.exceptionType), GetParam().exceptionName);
  EXPECT_THAT(ToolCalls(root_, 1), ElementsAre("-send " + names[0]));
}

INSTANTIATE_TEST_SUITE_P(Modes, FaultNameTest,
                         testing::Values(NamedFault{"uncaught-exception", "Exception Unknown"},
                                         NamedFault{"abort", "Exception Unknown"},
                                         NamedFault{"divide-by-zero", "Int Divide by Zero"},
                                         NamedFault{"illegal-instruction", "Illegal Instruction"},
                                         NamedFault{"breakpoint", "Breakpoint"}),
                         [](const auto& info) {
                           std::string name = info.param.mode;
                           std::erase(name, '-');
                           return name;
                         });

TEST_F(CaptureTest, StackOverflowOnlyLogsAndEnds) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({"stack-overflow"});
  EXPECT_EQ(ExitStatus(child), kCrashExitStatus);
  EXPECT_THAT(ReportFiles(root_), IsEmpty());
  EXPECT_FALSE(testing_support::PathExists(root_.ReportFolder()));
  EXPECT_THAT(DrainLog(log_),
              ElementsAre(Line(4, "A top-level exception has occurred. The process will be restarted (Stack Overflow).")));
  // A tool started from the crash would have been running before the exit.
  EXPECT_THAT(ToolCalls(root_, 1, 200), IsEmpty());
}

TEST_F(CaptureTest, FaultDuringCaptureLeavesReportUnderNestedName) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({"capture-fault"});
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, SizeIs(1));
  const ReportNameParts parts = SplitReportName(names[0]);
  EXPECT_EQ(parts.application, "Marlowen Crash Reporter");
  EXPECT_EQ(parts.processId, child.pid);
  EXPECT_THAT(ReportFiles(root_), ElementsAre(names[0] + ".dat", names[0] + ".dmp"));
  Marlowen::CrashedModuleT record;
  ASSERT_TRUE(LoadRecord(root_, names[0], record));
  EXPECT_EQ(WideToUtf8(record.moduleName), "Marlowen Crash Reporter");
  EXPECT_THAT(ToolCalls(root_, 1), ElementsAre("-send " + names[0]));
  const std::vector<LogLine> lines = DrainLog(log_);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), Line(3, "Terminating process for 'Marlowen Crash Reporter' after crash report writing."));
}

TEST_F(CaptureTest, StackOverflowOnThreadWithItsOwnSignalStackOnlyLogs) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({"thread-stack-overflow"});
  EXPECT_EQ(ExitStatus(child), kCrashExitStatus);
  EXPECT_FALSE(testing_support::PathExists(root_.ReportFolder()));
  EXPECT_THAT(DrainLog(log_),
              ElementsAre(Line(4, "A top-level exception has occurred. The process will be restarted (Stack Overflow).")));
}

// The dump library faults on its first call: the first run keeps its file as
// far as it got (empty, no record, no tool), the nested run reports in full.
TEST_F(CaptureTest, HardwareFaultInsideTheDumpStepLeavesNestedReport) {
  WriteToolEntry(FakeToolPath(), FaultingLibraryFolder());
  const ChildResult child = RunSample({"null-write"});
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, SizeIs(2));
  const std::string& nested = names[0];  // "Marlowen Crash Reporter_..." sorts first
  const std::string& first = names[1];
  EXPECT_EQ(SplitReportName(nested).application, "Marlowen Crash Reporter");
  EXPECT_EQ(SplitReportName(first).application, kProduct);
  EXPECT_THAT(ReportFiles(root_), ElementsAre(nested + ".dat", nested + ".dmp", first + ".dmp"));
  EXPECT_EQ(testing_support::ReadFileBytes(ReportFile(root_, first, ".dmp")).size(), 0u);
  EXPECT_TRUE(DumpFile(ReportFile(root_, nested, ".dmp")).HasSignature());
  Marlowen::CrashedModuleT record;
  ASSERT_TRUE(LoadRecord(root_, nested, record));
  EXPECT_EQ(WideToUtf8(record.exceptionType), "Access Violation");
  EXPECT_THAT(ToolCalls(root_, 1), ElementsAre("-send " + nested));
  const std::vector<LogLine> lines = DrainLog(log_);
  ASSERT_THAT(lines, SizeIs(6));
  EXPECT_EQ(lines[0], lines[1]);  // the line of each run's start
  EXPECT_EQ(lines[0], Line(4, "A top-level exception has occurred. The process will be restarted (Access Violation)."));
  EXPECT_EQ(lines[5], Line(3, "Terminating process for 'Marlowen Crash Reporter' after crash report writing."));
}

TEST_F(CaptureTest, FaultOnSecondThreadIsReportedUnderThatThread) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({"thread-fault"});
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, SizeIs(1));
  const ReportNameParts parts = SplitReportName(names[0]);
  EXPECT_EQ(parts.application, kProduct);
  EXPECT_EQ(parts.processId, child.pid);
  EXPECT_NE(parts.threadId, child.pid);
  EXPECT_EQ(DumpFile(ReportFile(root_, names[0], ".dmp")).ExceptionThreadId(), static_cast<std::uint32_t>(parts.threadId));
}

// The first thread to finish ends the process, so the second leaves a report
// only if it has begun its own by then. A thread descheduled at the barrier
// on a busy machine may not have, so the scenario gets a few attempts; every
// attempt must still end the process with the crash's status.
TEST_F(CaptureTest, TwoThreadsFaultingTogetherLeaveTwoReportsAndTheProcessEnds) {
  WithToolAndLibrary();
  constexpr int kAttempts = 5;
  std::vector<std::string> names;
  ChildResult child;
  for (int attempt = 0; attempt < kAttempts && names.size() < 2; ++attempt) {
    std::filesystem::remove_all(root_.ReportFolder());
    child = RunSample({"two-thread-fault"});
    ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
    names = ReportNames(root_);
    ASSERT_THAT(names, testing::Not(IsEmpty()));
  }
  ASSERT_THAT(names, SizeIs(2));
  const ReportNameParts first = SplitReportName(names[0]);
  const ReportNameParts second = SplitReportName(names[1]);
  EXPECT_NE(first.threadId, second.threadId);
  for (const ReportNameParts& parts : {first, second}) {
    EXPECT_EQ(parts.processId, child.pid);
    EXPECT_NE(parts.threadId, child.pid);
    EXPECT_TRUE(parts.application == kProduct || parts.application == "Marlowen Crash Reporter") << parts.application;
  }
}

TEST_F(CaptureTest, ReturningDispositionLetsTheFaultEndTheProcess) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({"--disposition", "1", "null-write"});
  ASSERT_TRUE(WIFSIGNALED(child.status));
  EXPECT_EQ(WTERMSIG(child.status), SIGSEGV);
  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, SizeIs(1));
  EXPECT_THAT(ToolCalls(root_, 1), ElementsAre("-send " + names[0]));
  const std::vector<LogLine> lines = DrainLog(log_);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), Line(2, "Crash report uploader started."));
}

TEST_F(CaptureTest, SavedSettingsChangeNothingInACrash) {
  WithToolAndLibrary();
  testing_support::MakeFolders(root_.ReportFolder());
  Marlowen::CrashReportSettingsT settings;
  settings.dumpLevel = 1;  // all memory, were it read
  settings.sendReports = false;
  ASSERT_TRUE(settings.Save(Marlowen::PathBuffer()));
  const ChildResult child = RunSample({"--heap-mb", "64", "null-write"});
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, ElementsAre("CrashReport", HasSubstr(kProduct)));
  const std::vector<std::uint32_t> types = DumpFile(ReportFile(root_, names[1], ".dmp")).StreamTypes();
  constexpr std::uint32_t kHandleData = 12, kThreadInfoList = 17, kMemory64List = 9;
  EXPECT_THAT(types, testing::Contains(kHandleData));
  EXPECT_THAT(types, testing::Contains(kThreadInfoList));
  EXPECT_THAT(types, testing::Not(testing::Contains(kMemory64List)));
  EXPECT_THAT(ToolCalls(root_, 1), ElementsAre("-send " + names[1]));
}

TEST_F(CaptureTest, DumpOpensInLldbOnTheCrashingFunction) {
  if (access("/usr/bin/lldb-15", X_OK) != 0) GTEST_SKIP() << "lldb-15 is not installed";
  WithToolAndLibrary();
  ASSERT_EQ(ExitStatus(RunSample({"null-write"})), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames(root_);
  ASSERT_THAT(names, SizeIs(1));
  const std::string command = "/usr/bin/lldb-15 --batch -c '" + ReportFile(root_, names[0], ".dmp") + "' '" +
                              SampleProductPath() + "' -o bt 2>&1";
  FILE* lldb = popen(command.c_str(), "r");
  ASSERT_NE(lldb, nullptr);
  std::string output;
  char buffer[4096];
  while (std::size_t n = fread(buffer, 1, sizeof buffer, lldb)) output.append(buffer, n);
  pclose(lldb);
  // The first frame of the crashing thread is the function that stored.
  EXPECT_THAT(output, testing::ContainsRegex("frame #0: .*CrashByNullWrite")) << output;
}

// Failure rows: each is logged, the rest of the capture goes on, and the
// process still ends with the crash's status.
enum class Setup { kNoEntry, kLibraryMissing, kBareNameFallback, kExportMissing, kFolderUncreatable, kToolMissing };

struct FailureRow {
  const char* label;
  Setup setup;
  const char* expectedLine;  // "" for none; "%F" stands for the report folder
  std::uint32_t severity;
  bool reportWritten;
  bool toolStarted;
};

class FailureRowTest : public CaptureTest, public testing::WithParamInterface<FailureRow> {};

TEST_P(FailureRowTest, IsLoggedAndTheProcessStillEnds) {
  const FailureRow& row = GetParam();
  const std::string emptyFolder = root_.Path("empty");
  testing_support::MakeFolders(emptyFolder);
  std::vector<std::string> environment;
  switch (row.setup) {
    case Setup::kNoEntry: break;
    case Setup::kLibraryMissing: WriteToolEntry(FakeToolPath(), emptyFolder); break;
    case Setup::kBareNameFallback:
      WriteToolEntry(FakeToolPath(), emptyFolder);
      environment.push_back("LD_LIBRARY_PATH=" + DumpLibraryFolder());
      break;
    case Setup::kExportMissing: WriteToolEntry(FakeToolPath(), EmptyLibraryFolder()); break;
    case Setup::kFolderUncreatable:
      WithToolAndLibrary();
      testing_support::WriteFileText(root_.Path("var"), "a file where a folder should be");
      break;
    case Setup::kToolMissing: WriteToolEntry(root_.Path("no-such-tool"), DumpLibraryFolder()); break;
  }
  const ChildResult child = RunSample({"null-write"}, environment);
  EXPECT_EQ(ExitStatus(child), kCrashExitStatus);

  const std::vector<std::string> names = ReportNames(root_);
  if (row.reportWritten) {
    ASSERT_THAT(names, SizeIs(1));
    EXPECT_THAT(ReportFiles(root_), ElementsAre(names[0] + ".dat", names[0] + ".dmp"));
  } else {
    EXPECT_THAT(names, IsEmpty());
  }
  const std::vector<std::string> calls = ToolCalls(root_, 1, row.toolStarted ? 5000 : 200);
  if (row.toolStarted) {
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_THAT(calls[0], testing::StartsWith(std::string("-send ") + kProduct + "_"));
  } else {
    EXPECT_THAT(calls, IsEmpty());
  }

  const std::vector<LogLine> lines = DrainLog(log_);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), Line(3, std::string("Terminating process for '") + kProduct + "' after crash report writing."));
  std::string expected = row.expectedLine;
  if (const auto at = expected.find("%F"); at != std::string::npos) expected.replace(at, 2, root_.ReportFolder());
  if (!expected.empty()) {
    EXPECT_THAT(lines, testing::Contains(Line(row.severity, expected)));
  }
  const bool anyFailureLine = std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
    return line.message.rfind(u"Cannot", 0) == 0 || line.message.rfind(u"Required", 0) == 0;
  });
  EXPECT_EQ(anyFailureLine, !expected.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FailureRowTest,
    testing::Values(
        FailureRow{"NoRegistryEntry", Setup::kNoEntry, "Cannot locate Marlowen crash report uploader tool.", 4,
                   false, false},
        FailureRow{"DumpLibraryMissing", Setup::kLibraryMissing, "Cannot load 'DbgHelp.dll' to write crash report.", 3,
                   false, true},
        FailureRow{"BareNameFoundBySearch", Setup::kBareNameFallback, "", 0, true, true},
        FailureRow{"ExportMissing", Setup::kExportMissing,
                   "Required function not found in 'DbgHelp.dll' to write minidump.", 3, false, true},
        FailureRow{"FolderUncreatable", Setup::kFolderUncreatable,
                   "Cannot create directory structure '%F' to write crash report.", 4, false, true},
        FailureRow{"ToolMissing", Setup::kToolMissing, "Cannot locate Marlowen crash report uploader tool.", 4, true,
                   false}),
    [](const auto& info) { return std::string(info.param.label); });

}  // namespace
}  // namespace capture_test
