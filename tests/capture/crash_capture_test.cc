// The capture in a real crashing process: the sample product faults in a
// child, and the tests look at what it left behind (exit status, report
// files, the tool's recorded start, the log) on a machine of their own.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/tool_registry_entry.h"
#include "log_capture.h"
#include "run_command.h"
#include "shell/registry.h"
#include "shell/wide_string.h"
#include "store/crash_report_settings.h"
#include "store/crashed_module.h"
#include "store/file_time.h"
#include "store/path_buffer.h"
#include "test_root.h"

namespace capture_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing_support::ListFolder;

using LogLine = std::pair<std::uint32_t, std::u16string>;

constexpr int kCrashExitStatus = 254;
constexpr char kProduct[] = "Marlowen Sample Product";
constexpr char kReporter[] = "Marlowen Crash Reporter";
const std::string kStarted = "A top-level exception has occurred. The process will be restarted (";

void WriteToolEntry(const std::string& toolPath, const std::string& folder) {
  if (!toolPath.empty()) {
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolPathValueName, Utf8ToWide(toolPath)));
  }
  if (!folder.empty()) {
    ASSERT_TRUE(WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolFolderValueName, Utf8ToWide(folder)));
  }
}

struct ChildResult {
  int pid = 0;
  int status = 0;      // as waitpid gives it
  std::string output;  // standard output
};

// The sample product with extra "NAME=value" environment entries, run to its end.
ChildResult RunSample(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {}) {
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

struct ReportNameParts {
  std::string application;
  std::time_t time = 0;
  int processId = 0;
  int threadId = 0;
};

ReportNameParts SplitReportName(const std::string& name) {
  static const std::regex form(R"(^(.*)_(\d{14})_(\d+)_(\d+)$)");
  std::smatch match;
  if (!std::regex_match(name, match, form)) return {};
  std::tm utc{};
  strptime(match[2].str().c_str(), "%Y%m%d%H%M%S", &utc);
  return {match[1], timegm(&utc), std::stoi(match[3]), std::stoi(match[4])};
}

LogLine Line(std::uint32_t severity, const std::string& message) { return {severity, Utf8ToWide(message)}; }
LogLine Ending(const std::string& module) {
  return Line(3, "Terminating process for '" + module + "' after crash report writing.");
}

// A minidump read by the published layout, independently of the writer.
class DumpFile {
 public:
  explicit DumpFile(const std::string& path) : bytes_(testing_support::ReadFileBytes(path)) {
    if (U32(0) != 0x504D444Du) return;  // "MDMP"
    for (std::uint32_t i = 0; i < U32(8); ++i) streams_[U32(U32(12) + 12 * i)] = U32(U32(12) + 12 * i + 8);
  }
  bool valid() const { return !streams_.empty(); }
  bool Has(std::uint32_t type) const { return streams_.contains(type); }
  std::uint32_t ExceptionThreadId() const { return Has(kException) ? U32(streams_.at(kException)) : 0; }
  // Rip of the thread context that the exception stream points to.
  std::uint64_t ExceptionInstructionPointer() const {
    if (!Has(kException)) return 0;
    const std::size_t rip = U32(streams_.at(kException) + 8 + 152 + 4) + 0xF8;
    return U32(rip) | std::uint64_t{U32(rip + 4)} << 32;
  }

 private:
  static constexpr std::uint32_t kException = 6;
  std::uint32_t U32(std::size_t at) const {
    if (at + 4 > bytes_.size()) return 0;
    return bytes_[at] | bytes_[at + 1] << 8 | bytes_[at + 2] << 16 | std::uint32_t{bytes_[at + 3]} << 24;
  }

  std::vector<std::uint8_t> bytes_;
  std::map<std::uint32_t, std::size_t> streams_;
};

class CaptureTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(log_.bound()); }
  void WithToolAndLibrary(const std::string& libraryFolder = ML_DUMP_LIBRARY_DIR) {
    WriteToolEntry(ML_FAKE_TOOL, libraryFolder);
  }
  std::string File(const std::string& name, const char* extension) const {
    return root_.ReportFolder() + "/" + name + extension;
  }
  Marlowen::CrashedModuleT Record(const std::string& name) const {
    Marlowen::CrashedModuleT record;
    EXPECT_TRUE(record.Load(Marlowen::PathBuffer::FromUtf8(File(name, ".dat")))) << name;
    return record;
  }
  // Report names in the folder (file names without extension, once each), sorted.
  std::vector<std::string> ReportNames() const {
    std::set<std::string> names;
    for (const std::string& file : ListFolder(root_.ReportFolder())) names.insert(file.substr(0, file.rfind('.')));
    return {names.begin(), names.end()};
  }
  // The command texts the fake tool recorded, waiting up to timeoutMs for at least minimum of them.
  std::vector<std::string> ToolCalls(std::size_t minimum, int timeoutMs = 5000) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
      std::vector<std::string> calls;
      std::istringstream lines(testing_support::ReadFileText(root_.Path("tool-calls.txt")));
      for (std::string line; std::getline(lines, line);) calls.push_back(line);
      if (calls.size() >= minimum || std::chrono::steady_clock::now() >= deadline) return calls;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  // The name of the one report in the folder, which holds its dump and record.
  std::string OnlyReport() const {
    const std::vector<std::string> names = ReportNames();
    EXPECT_THAT(names, SizeIs(1));
    if (names.size() != 1) return "none";
    EXPECT_THAT(ListFolder(root_.ReportFolder()), ElementsAre(names[0] + ".dat", names[0] + ".dmp"));
    return names[0];
  }

  testing_support::TestRoot root_;
  testing_support::LogCapture log_{root_};
};

TEST_F(CaptureTest, AccessViolationLeavesDumpRecordToolStartAndLogLines) {
  WithToolAndLibrary();
  const std::time_t before = std::time(nullptr);
  const ChildResult child = RunSample({"--print-address", "null-write"});
  const std::time_t after = std::time(nullptr);
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);

  const std::string name = OnlyReport();
  const ReportNameParts parts = SplitReportName(name);
  EXPECT_EQ(parts.application, kProduct);
  EXPECT_EQ(parts.processId, child.pid);
  EXPECT_EQ(parts.threadId, child.pid);  // the main thread faulted
  EXPECT_GE(parts.time, before - 1);
  EXPECT_LE(parts.time, after + 1);
  const DumpFile dump(File(name, ".dmp"));
  EXPECT_TRUE(dump.valid());

  const Marlowen::CrashedModuleT record = Record(name);
  EXPECT_EQ(WideToUtf8(record.reportName), name);
  EXPECT_EQ(WideToUtf8(record.exceptionType), "Access Violation");
  EXPECT_EQ(WideToUtf8(record.moduleName), kProduct);
  EXPECT_EQ(record.fileName.ToUtf8(), ML_SAMPLE_PRODUCT);
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

  EXPECT_THAT(ToolCalls(1), ElementsAre("-send " + name));
  EXPECT_THAT(log_.Drain(), ElementsAre(Line(4, kStarted + "Access Violation)."),
                                        Line(2, "Crash report written to '" + File(name, ".dmp") + "'."),
                                        Line(2, "Crashing module's data written to disk."),
                                        Line(2, "Crash report uploader started."), Ending(kProduct)));
}

struct NamedFault {
  const char* mode;
  const char* exceptionName;
};

class FaultNameTest : public CaptureTest, public testing::WithParamInterface<NamedFault> {};

TEST_P(FaultNameTest, ReportCarriesTheExceptionName) {
  WithToolAndLibrary();
  ASSERT_EQ(ExitStatus(RunSample({GetParam().mode})), kCrashExitStatus);
  const std::string name = OnlyReport();
  EXPECT_EQ(WideToUtf8(Record(name).exceptionType), GetParam().exceptionName);
  EXPECT_THAT(ToolCalls(1), ElementsAre("-send " + name));
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
  // The second overflows a thread that has a signal stack of its own.
  for (const char* mode : {"stack-overflow", "thread-stack-overflow"}) {
    EXPECT_EQ(ExitStatus(RunSample({mode})), kCrashExitStatus) << mode;
    EXPECT_FALSE(testing_support::PathExists(root_.ReportFolder())) << mode;
    EXPECT_THAT(log_.Drain(), ElementsAre(Line(4, kStarted + "Stack Overflow)."))) << mode;
  }
  // A tool started from the crash would have been running before the exit.
  EXPECT_THAT(ToolCalls(1, 200), IsEmpty());
}

// A fault inside the capture: from the product's over-long name, and a
// hardware fault in a dump library that faults on its first call only.
struct NestedCase {
  const char* name;
  const char* mode;
  const char* libraryFolder;
  bool productDumpLeft;  // the first run's file, as far as it got
};

class NestedCaptureTest : public CaptureTest, public testing::WithParamInterface<NestedCase> {};

TEST_P(NestedCaptureTest, SecondReportComesUnderTheReportersName) {
  WithToolAndLibrary(GetParam().libraryFolder);
  const ChildResult child = RunSample({GetParam().mode});
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames();
  ASSERT_THAT(names, SizeIs(GetParam().productDumpLeft ? 2 : 1));
  const std::string& nested = names[0];  // "Marlowen Crash Reporter_..." sorts first
  EXPECT_EQ(SplitReportName(nested).application, kReporter);
  EXPECT_EQ(SplitReportName(nested).processId, child.pid);
  EXPECT_TRUE(DumpFile(File(nested, ".dmp")).valid());
  EXPECT_EQ(WideToUtf8(Record(nested).moduleName), kReporter);
  EXPECT_THAT(ToolCalls(1), ElementsAre("-send " + nested));
  const std::vector<LogLine> lines = log_.Drain();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), Ending(kReporter));
  if (!GetParam().productDumpLeft) {
    EXPECT_THAT(ListFolder(root_.ReportFolder()), ElementsAre(nested + ".dat", nested + ".dmp"));
    return;
  }
  const std::string& first = names[1];
  EXPECT_EQ(SplitReportName(first).application, kProduct);
  EXPECT_THAT(ListFolder(root_.ReportFolder()), ElementsAre(nested + ".dat", nested + ".dmp", first + ".dmp"));
  EXPECT_TRUE(testing_support::ReadFileBytes(File(first, ".dmp")).empty());
  EXPECT_EQ(WideToUtf8(Record(nested).exceptionType), "Access Violation");
  ASSERT_THAT(lines, SizeIs(6));
  EXPECT_EQ(lines[0], lines[1]);  // the line of each run's start
  EXPECT_EQ(lines[0], Line(4, kStarted + "Access Violation)."));
}

INSTANTIATE_TEST_SUITE_P(Faults, NestedCaptureTest,
                         testing::Values(NestedCase{"InCapture", "capture-fault", ML_DUMP_LIBRARY_DIR, false},
                                         NestedCase{"InDumpLibrary", "null-write", ML_FAULTING_LIBRARY_DIR, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(CaptureTest, FaultOnSecondThreadIsReportedUnderThatThread) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({"thread-fault"});
  ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
  const std::string name = OnlyReport();
  const ReportNameParts parts = SplitReportName(name);
  EXPECT_EQ(parts.processId, child.pid);
  EXPECT_NE(parts.threadId, child.pid);
  EXPECT_EQ(DumpFile(File(name, ".dmp")).ExceptionThreadId(), static_cast<std::uint32_t>(parts.threadId));
}

// The first thread to finish ends the process, so the second leaves a report
// only if it has begun its own by then. A thread descheduled at the barrier
// on a busy machine may not have, so the scenario gets a few attempts; every
// attempt must still end the process with the crash's status.
TEST_F(CaptureTest, TwoThreadsFaultingTogetherLeaveTwoReportsAndTheProcessEnds) {
  WithToolAndLibrary();
  std::vector<std::string> names;
  ChildResult child;
  for (int attempt = 0; attempt < 5 && names.size() < 2; ++attempt) {
    std::filesystem::remove_all(root_.ReportFolder());
    child = RunSample({"two-thread-fault"});
    ASSERT_EQ(ExitStatus(child), kCrashExitStatus);
    names = ReportNames();
    ASSERT_THAT(names, Not(IsEmpty()));
  }
  ASSERT_THAT(names, SizeIs(2));
  EXPECT_NE(SplitReportName(names[0]).threadId, SplitReportName(names[1]).threadId);
  for (const std::string& name : names) {
    const ReportNameParts parts = SplitReportName(name);
    EXPECT_EQ(parts.processId, child.pid);
    EXPECT_NE(parts.threadId, child.pid);
    EXPECT_TRUE(parts.application == kProduct || parts.application == kReporter) << parts.application;
  }
}

TEST_F(CaptureTest, ReturningDispositionLetsTheFaultEndTheProcess) {
  WithToolAndLibrary();
  const ChildResult child = RunSample({"--disposition", "1", "null-write"});
  ASSERT_TRUE(WIFSIGNALED(child.status));
  EXPECT_EQ(WTERMSIG(child.status), SIGSEGV);
  EXPECT_THAT(ToolCalls(1), ElementsAre("-send " + OnlyReport()));
  const std::vector<LogLine> lines = log_.Drain();
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
  ASSERT_EQ(ExitStatus(RunSample({"--heap-mb", "64", "null-write"})), kCrashExitStatus);
  const std::vector<std::string> names = ReportNames();
  ASSERT_THAT(names, ElementsAre("CrashReport", testing::HasSubstr(kProduct)));
  const DumpFile dump(File(names[1], ".dmp"));
  constexpr std::uint32_t kHandleData = 12, kThreadInfoList = 17, kMemory64List = 9;
  EXPECT_TRUE(dump.Has(kHandleData));
  EXPECT_TRUE(dump.Has(kThreadInfoList));
  EXPECT_FALSE(dump.Has(kMemory64List));
  EXPECT_THAT(ToolCalls(1), ElementsAre("-send " + names[1]));
}

TEST_F(CaptureTest, DumpOpensInLldbOnTheCrashingFunction) {
  if (access("/usr/bin/lldb-15", X_OK) != 0) GTEST_SKIP() << "lldb-15 is not installed";
  WithToolAndLibrary();
  ASSERT_EQ(ExitStatus(RunSample({"null-write"})), kCrashExitStatus);
  const std::string output = testing_support::RunCommand("/usr/bin/lldb-15 --batch -c '" + File(OnlyReport(), ".dmp") +
                                                         "' '" ML_SAMPLE_PRODUCT "' -o bt 2>&1")
                                 .output;
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
    case Setup::kLibraryMissing: WithToolAndLibrary(emptyFolder); break;
    case Setup::kBareNameFallback:
      WithToolAndLibrary(emptyFolder);
      environment.push_back("LD_LIBRARY_PATH=" ML_DUMP_LIBRARY_DIR);
      break;
    case Setup::kExportMissing: WithToolAndLibrary(ML_EMPTY_LIBRARY_DIR); break;
    case Setup::kFolderUncreatable:
      WithToolAndLibrary();
      testing_support::WriteFileText(root_.Path("var"), "a file where a folder should be");
      break;
    case Setup::kToolMissing: WriteToolEntry(root_.Path("no-such-tool"), ML_DUMP_LIBRARY_DIR); break;
  }
  EXPECT_EQ(ExitStatus(RunSample({"null-write"}, environment)), kCrashExitStatus);

  if (row.reportWritten) {
    OnlyReport();
  } else {
    EXPECT_THAT(ReportNames(), IsEmpty());
  }
  const std::vector<std::string> calls = ToolCalls(1, row.toolStarted ? 5000 : 200);
  if (row.toolStarted) {
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_THAT(calls[0], testing::StartsWith(std::string("-send ") + kProduct + "_"));
  } else {
    EXPECT_THAT(calls, IsEmpty());
  }

  const std::vector<LogLine> lines = log_.Drain();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), Ending(kProduct));
  std::string expected = row.expectedLine;
  if (const auto at = expected.find("%F"); at != std::string::npos) expected.replace(at, 2, root_.ReportFolder());
  if (!expected.empty()) {
    EXPECT_THAT(lines, Contains(Line(row.severity, expected)));
  }
  const bool anyFailureLine = std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
    return line.second.starts_with(u"Cannot") || line.second.starts_with(u"Required");
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
