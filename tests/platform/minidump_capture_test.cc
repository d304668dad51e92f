// Crash tests of the dump library: a child program crashes and writes its
// own dump through the loaded module; the test reads what it left behind
// with the plain-text reader's parser, with readelf and with LLDB.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "test_root.h"
#include "tools/minidump_reader/minidump_file.h"
#include "tools/minidump_reader/reader_main.h"

namespace {

using minidump_reader::MinidumpFile;

constexpr int kDumpWritten = 42;
constexpr int kDumpFailed = 43;
constexpr int kWorkerThreads = 8;
constexpr uint64_t kStackMarker = 0x5354414b4d41524bULL;
constexpr uint64_t kHeapMarker = 0x4845415056414c55ULL;
constexpr uint64_t kDataMarker = 0x444154415345474dULL;
constexpr uint32_t kSigSegv = 11;
constexpr uint64_t kFaultAddress = 0x40;
constexpr uint32_t kCaptureByTracer = 1;
constexpr uint32_t kCaptureFromInside = 2;
constexpr auto kChildTimeout = std::chrono::seconds(20);

struct Crash {
  int exitStatus = -1;  // -1: killed or timed out
  std::vector<std::string> lines;
  std::string dumpPath;

  std::vector<std::string> Values(const std::string& key) const {
    std::vector<std::string> values;
    for (const std::string& line : lines)
      if (line.rfind(key + " ", 0) == 0) values.push_back(line.substr(key.size() + 1));
    return values;
  }
  uint64_t Number(const std::string& key) const {
    auto values = Values(key);
    return values.empty() ? 0 : std::stoull(values[0], nullptr, 0);
  }
};

// Runs the crashing program and collects its stdout lines and exit status.
Crash RunCrasher(const std::string& dumpPath, const std::string& type, std::vector<std::string> options) {
  Crash crash;
  crash.dumpPath = dumpPath;
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return crash;
  std::vector<std::string> args = {ML_DUMP_CRASHER, dumpPath, type};
  args.insert(args.end(), options.begin(), options.end());
  pid_t child = fork();
  if (child == 0) {
    dup2(out[1], STDOUT_FILENO);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out[1]);
  std::string text;
  auto deadline = std::chrono::steady_clock::now() + kChildTimeout;
  for (;;) {
    pollfd p{out[0], POLLIN, 0};
    int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                    deadline - std::chrono::steady_clock::now()).count());
    if (left <= 0 || poll(&p, 1, left) <= 0) {
      kill(child, SIGKILL);
      break;
    }
    char buffer[4096];
    ssize_t n = read(out[0], buffer, sizeof(buffer));
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  close(out[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) crash.exitStatus = WEXITSTATUS(status);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) crash.lines.push_back(line);
  return crash;
}

std::string RunCommand(const std::string& command) {
  std::string output;
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) return output;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof(buffer), pipe.get())) > 0) output.append(buffer, n);
  return output;
}

// The GNU build id that readelf reports for a file, in lower-case hex.
std::string ReadelfBuildId(const std::string& path) {
  std::string text = RunCommand("readelf -n '" + path + "' 2>/dev/null");
  auto at = text.find("Build ID: ");
  if (at == std::string::npos) return {};
  at += 10;
  return text.substr(at, text.find('\n', at) - at);
}

const minidump_reader::ModuleRecord* FindModule(const MinidumpFile& dump, const std::string& suffix) {
  for (const auto& m : dump.modules())
    if (m.path.size() >= suffix.size() && m.path.compare(m.path.size() - suffix.size(), suffix.size(), suffix) == 0)
      return &m;
  return nullptr;
}

// One crash of the eight-thread program at 0x104 serves several tests.
class EightThreadCrash : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    root_ = new testing_support::TestRoot();
    crash_ = new Crash(RunCrasher(root_->Path("crash.dmp"), "0x104", {"--threads", std::to_string(kWorkerThreads)}));
    dump_ = new MinidumpFile();
    dumpOpened_ = dump_->Open(crash_->dumpPath, &openError_);
  }
  static void TearDownTestSuite() {
    delete dump_;
    delete crash_;
    delete root_;
  }
  void SetUp() override {
    ASSERT_EQ(crash_->exitStatus, kDumpWritten);
    ASSERT_TRUE(dumpOpened_) << openError_;
  }

  static testing_support::TestRoot* root_;
  static Crash* crash_;
  static MinidumpFile* dump_;
  static bool dumpOpened_;
  static std::string openError_;
};
testing_support::TestRoot* EightThreadCrash::root_;
Crash* EightThreadCrash::crash_;
MinidumpFile* EightThreadCrash::dump_;
bool EightThreadCrash::dumpOpened_;
std::string EightThreadCrash::openError_;

TEST_F(EightThreadCrash, HoldsEveryThreadWithRegistersAndStack) {
  const MinidumpFile& dump = *dump_;
  ASSERT_EQ(dump.threads().size(), 1u + kWorkerThreads);
  ASSERT_TRUE(dump.capture().has_value());
  EXPECT_EQ(dump.capture()->method, kCaptureByTracer) << "tracing refused with errno " << dump.capture()->traceError;
  std::vector<std::string> expected = crash_->Values("thread");
  expected.push_back(crash_->Values("crash-thread").at(0));
  for (const std::string& tid : expected) {
    bool found = false;
    for (const auto& t : dump.threads()) found = found || std::to_string(t.id) == tid;
    EXPECT_TRUE(found) << "thread " << tid << " missing";
  }
  for (const auto& t : dump.threads()) {
    EXPECT_NE(t.contextFlags, 0u) << t.id;
    EXPECT_GE(t.rsp, t.stackStart) << t.id;
    EXPECT_LT(t.rsp, t.stackStart + t.stackSize) << t.id;
    EXPECT_FALSE(dump.ReadMemory(t.stackStart, t.stackSize).empty()) << t.id;
    EXPECT_FALSE(dump.ReadMemory(t.rip, 16).empty()) << "no code around rip of " << t.id;
  }
  for (uint64_t i = 0; i < kWorkerThreads; ++i) EXPECT_TRUE(dump.MemoryContains(kStackMarker + i)) << i;
  EXPECT_EQ(dump.threadInfo().size(), 1u + kWorkerThreads);
}

TEST_F(EightThreadCrash, ExceptionIsTheSignalOfTheFaultingThread) {
  const MinidumpFile& dump = *dump_;
  ASSERT_TRUE(dump.exception().has_value());
  EXPECT_EQ(dump.exception()->threadId, crash_->Number("crash-thread"));
  EXPECT_EQ(dump.exception()->signal, kSigSegv);
  EXPECT_EQ(dump.exception()->address, kFaultAddress);
}

TEST_F(EightThreadCrash, ModulesCarryTheirRealBuildIds) {
  const MinidumpFile& dump = *dump_;
  const auto* exe = FindModule(dump, "/ml_dump_crasher");
  const auto* libc = FindModule(dump, "/libc.so.6");
  ASSERT_TRUE(exe && libc);
  EXPECT_EQ(exe->buildId, ReadelfBuildId(exe->path));
  EXPECT_EQ(libc->buildId, ReadelfBuildId(libc->path));
  EXPECT_FALSE(libc->buildId.empty());
  // The dynamic linker's own list names the same object (by the path it
  // loaded, which may differ from the one in the maps by a symbolic link).
  bool listed = false;
  for (const std::string& name : dump.dsoNames())
    listed = listed || (name.size() >= 10 && name.compare(name.size() - 10, 10, "/libc.so.6") == 0);
  EXPECT_TRUE(listed);
}

TEST_F(EightThreadCrash, HoldsSystemFactsLinuxStreamsAndDescriptors) {
  const MinidumpFile& dump = *dump_;
  ASSERT_TRUE(dump.system().has_value());
  EXPECT_EQ(dump.system()->architecture, 9);
  EXPECT_EQ(dump.system()->platformId, 0x8201u);
  EXPECT_EQ(dump.system()->processors, sysconf(_SC_NPROCESSORS_CONF));
  EXPECT_EQ(dump.system()->osText.rfind("Linux ", 0), 0u);
  for (uint32_t type : {0x47670003u, 0x47670004u, 0x47670005u, 0x47670007u, 0x47670008u, 0x47670009u})
    EXPECT_FALSE(dump.Stream(type).empty()) << minidump_reader::StreamName(type);
  EXPECT_NE(dump.Stream(0x47670006).find(crash_->dumpPath), std::string::npos);  // cmdline
  bool dumpFileListed = false;
  for (const auto& h : dump.handles()) dumpFileListed = dumpFileListed || h.target == crash_->dumpPath;
  EXPECT_TRUE(dumpFileListed);
}

TEST_F(EightThreadCrash, ReaderPrintsTheDumpAndSingleStreams) {
  std::string path = crash_->dumpPath;
  auto run = [&](std::vector<std::string> args, std::string* out) {
    args.insert(args.begin(), "ml-minidump-reader");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    std::ostringstream o, e;
    int status = minidump_reader::ReaderMain(static_cast<int>(argv.size()), argv.data(), o, e);
    *out = o.str() + e.str();
    return status;
  };
  std::string text;
  ASSERT_EQ(run({path}, &text), 0);
  EXPECT_NE(text.find("Exception: thread " + crash_->Values("crash-thread").at(0) + ", signal 11"), std::string::npos) << text;
  EXPECT_NE(text.find("Threads: 9\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Capture: tracer"), std::string::npos) << text;
  ASSERT_EQ(run({path, "--stream", "LinuxMaps"}, &text), 0);
  EXPECT_NE(text.find("/ml_dump_crasher\n"), std::string::npos);
  EXPECT_EQ(run({path, "--stream", "NoSuchStream"}, &text), 1);
  EXPECT_EQ(run({root_->Path("absent.dmp")}, &text), 1);
}

TEST_F(EightThreadCrash, LldbNamesTheCrashingFunction) {
  if (access("/usr/bin/lldb-15", X_OK) != 0) GTEST_SKIP() << "lldb-15 not installed";
  std::string output = RunCommand("timeout 60 /usr/bin/lldb-15 --batch -c '" + crash_->dumpPath + "' '" +
                                  ML_DUMP_CRASHER + "' -o 'thread list' -o 'bt' 2>&1");
  size_t threads = 0;
  for (size_t at = 0; (at = output.find("\n  thread #", at)) != std::string::npos; ++at) ++threads;
  for (size_t at = 0; (at = output.find("\n* thread #", at)) != std::string::npos; ++at) ++threads;
  // "thread list" prints every thread once, "bt" the selected one again.
  EXPECT_EQ(threads, 1u + kWorkerThreads + 1) << output;
  EXPECT_NE(output.find("stop reason = signal SIGSEGV"), std::string::npos) << output;
  EXPECT_NE(output.find("frame #0: 0x"), std::string::npos) << output;
  auto frame0 = output.substr(output.find("frame #0:"));
  frame0 = frame0.substr(0, frame0.find('\n'));
  EXPECT_NE(frame0.find("CrashInNamedFunction"), std::string::npos) << output;
  EXPECT_NE(output.find("frame #1:"), std::string::npos) << "no unwinding: " << output;
}

TEST(MinidumpTypes, EachTypeAddsWhatItNames) {
  testing_support::TestRoot root;
  std::map<std::string, Crash> crashes;
  std::map<std::string, MinidumpFile> dumps;
  for (const char* type : {"0x104", "0x105", "0x107"}) {
    crashes[type] = RunCrasher(root.Path(std::string("type") + type + ".dmp"), type, {"--heap-marker"});
    ASSERT_EQ(crashes[type].exitStatus, kDumpWritten) << type;
    std::string error;
    ASSERT_TRUE(dumps[type].Open(crashes[type].dumpPath, &error)) << type << ": " << error;
  }
  auto holds = [&](const char* type, const char* key, uint64_t marker) {
    std::string bytes = dumps[type].ReadMemory(crashes[type].Number(key), 8);
    return bytes.size() == 8 && std::memcmp(bytes.data(), &marker, 8) == 0;
  };
  EXPECT_FALSE(holds("0x104", "global", kDataMarker));
  EXPECT_TRUE(holds("0x105", "global", kDataMarker));
  EXPECT_TRUE(holds("0x107", "global", kDataMarker));
  EXPECT_FALSE(holds("0x104", "heap", kHeapMarker));
  EXPECT_FALSE(dumps["0x104"].MemoryContains(kHeapMarker));
  EXPECT_FALSE(holds("0x105", "heap", kHeapMarker));
  EXPECT_TRUE(holds("0x107", "heap", kHeapMarker));
  EXPECT_TRUE(dumps["0x104"].memory64List().empty());
  EXPECT_FALSE(dumps["0x107"].memory64List().empty());
  for (auto& [type, dump] : dumps) {
    EXPECT_FALSE(dump.handles().empty()) << type;
    EXPECT_FALSE(dump.threadInfo().empty()) << type;
    EXPECT_EQ(dump.flags(), std::stoull(type, nullptr, 16)) << type;
  }
}

TEST(MinidumpCallback, CandidatesTheCallbackRefusesStayOut) {
  testing_support::TestRoot root;
  Crash crash = RunCrasher(root.Path("filtered.dmp"), "0x104", {"--threads", "3", "--only-crashing-thread"});
  ASSERT_EQ(crash.exitStatus, kDumpWritten);
  MinidumpFile dump;
  std::string error;
  ASSERT_TRUE(dump.Open(crash.dumpPath, &error)) << error;
  ASSERT_EQ(dump.threads().size(), 1u);
  EXPECT_EQ(dump.threads()[0].id, crash.Number("crash-thread"));
  ASSERT_FALSE(dump.modules().empty());
  for (const auto& m : dump.modules()) EXPECT_TRUE(m.buildId.empty()) << m.path;
}

TEST(MinidumpRobustness, CrashWhileAnotherThreadHoldsTheAllocatorLock) {
  testing_support::TestRoot root;
  Crash crash = RunCrasher(root.Path("locked.dmp"), "0x104", {"--threads", "2", "--hold-malloc-lock"});
  ASSERT_NE(std::find(crash.lines.begin(), crash.lines.end(), "lock-held"), crash.lines.end())
      << "the lock holder never blocked; exit status " << crash.exitStatus << ", said: " << ::testing::PrintToString(crash.lines);
  ASSERT_EQ(crash.exitStatus, kDumpWritten);
  MinidumpFile dump;
  std::string error;
  ASSERT_TRUE(dump.Open(crash.dumpPath, &error)) << error;
  EXPECT_EQ(dump.threads().size(), 4u);  // main, two workers, the holder
  bool holderListed = false;
  for (const auto& t : dump.threads()) holderListed = holderListed || t.id == crash.Number("holder");
  EXPECT_TRUE(holderListed);
  ASSERT_TRUE(dump.exception().has_value());
  EXPECT_FALSE(dump.modules().empty());
}

TEST(MinidumpRobustness, UntraceableProcessStillGivesEveryStack) {
  testing_support::TestRoot root;
  Crash crash = RunCrasher(root.Path("untraced.dmp"), "0x104", {"--threads", std::to_string(kWorkerThreads), "--no-trace"});
  ASSERT_EQ(crash.exitStatus, kDumpWritten);
  MinidumpFile dump;
  std::string error;
  ASSERT_TRUE(dump.Open(crash.dumpPath, &error)) << error;
  ASSERT_TRUE(dump.capture().has_value());
  EXPECT_EQ(dump.capture()->method, kCaptureFromInside);
  EXPECT_TRUE(dump.capture()->traceError == EPERM || dump.capture()->traceError == EACCES);
  EXPECT_EQ(dump.capture()->threadsWithoutContext.size(), static_cast<size_t>(kWorkerThreads));
  ASSERT_EQ(dump.threads().size(), 1u + kWorkerThreads);
  const uint64_t crashed = crash.Number("crash-thread");
  for (const auto& t : dump.threads()) {
    EXPECT_GT(t.stackSize, 0u) << t.id;
    if (t.id == crashed) {
      EXPECT_NE(t.contextFlags, 0u);
      EXPECT_GE(t.rsp, t.stackStart);
      EXPECT_LT(t.rsp, t.stackStart + t.stackSize);
    } else {
      EXPECT_EQ(t.contextFlags, 0u) << t.id;
    }
  }
  for (const auto& info : dump.threadInfo())
    EXPECT_EQ(info.dumpFlags != 0, info.id != crashed) << info.id;  // 0x10: no registers
  for (uint64_t i = 0; i < kWorkerThreads; ++i) EXPECT_TRUE(dump.MemoryContains(kStackMarker + i)) << i;
  ASSERT_TRUE(dump.exception().has_value());
  EXPECT_EQ(dump.exception()->threadId, crashed);
}

TEST(MinidumpRobustness, StackOverflowKeepsTheStackAboveTheGuard) {
  testing_support::TestRoot root;
  Crash crash = RunCrasher(root.Path("overflow.dmp"), "0x104", {"--overflow"});
  ASSERT_EQ(crash.exitStatus, kDumpWritten);
  MinidumpFile dump;
  std::string error;
  ASSERT_TRUE(dump.Open(crash.dumpPath, &error)) << error;
  ASSERT_EQ(dump.threads().size(), 1u);
  const auto& thread = dump.threads()[0];
  EXPECT_GT(thread.stackSize, 0u);
  // The faulting stack pointer lies just below the readable stack.
  EXPECT_LE(thread.rsp, thread.stackStart + 4096);
  EXPECT_TRUE(dump.MemoryContains(0x4f564552464c4f57ULL));
}

// The crashing function wrote kRedZoneMarker + i at rsp - 8 * (i + 1) and
// faulted without moving rsp: a debugger needs those 128 bytes for its locals.
TEST(MinidumpRobustness, CrashingThreadKeepsTheRedZoneBelowItsStackPointer) {
  constexpr uint64_t kRedZoneMarker = 0x52454452454430ULL;
  testing_support::TestRoot root;
  Crash crash = RunCrasher(root.Path("redzone.dmp"), "0x104", {"--red-zone"});
  ASSERT_EQ(crash.exitStatus, kDumpWritten);
  MinidumpFile dump;
  std::string error;
  ASSERT_TRUE(dump.Open(crash.dumpPath, &error)) << error;
  ASSERT_EQ(dump.threads().size(), 1u);
  const auto& thread = dump.threads()[0];
  const std::string below = dump.ReadMemory(thread.rsp - 128, 128);
  ASSERT_EQ(below.size(), 128u) << "the dump holds no bytes below rsp";
  for (uint64_t slot = 0; slot < 16; ++slot) {
    uint64_t value = 0;
    std::memcpy(&value, below.data() + 128 - 8 * (slot + 1), sizeof(value));
    EXPECT_EQ(value, kRedZoneMarker + slot) << "rsp - " << 8 * (slot + 1);
  }
}

TEST(MinidumpRobustness, CutOffDumpCarriesNoSignature) {
  testing_support::TestRoot root;
  constexpr int kLimit = 20000;  // well short of a whole dump
  Crash crash = RunCrasher(root.Path("cut.dmp"), "0x104", {"--threads", "2", "--file-limit", std::to_string(kLimit)});
  EXPECT_EQ(crash.exitStatus, kDumpFailed);
  std::vector<uint8_t> bytes = testing_support::ReadFileBytes(crash.dumpPath);
  ASSERT_GE(bytes.size(), 4u);
  EXPECT_LE(bytes.size(), static_cast<size_t>(kLimit));
  EXPECT_NE(std::string(bytes.begin(), bytes.begin() + 4), "MDMP");
  MinidumpFile dump;
  std::string error;
  EXPECT_FALSE(dump.Open(crash.dumpPath, &error));
}

}  // namespace
