// The crash record: its exact bytes against buffers written out by hand,
// both readable versions, the unknown one, the logged failures, the process
// facts of a running process, and a record written from a real crash in a
// stamped child program.
#include <dlfcn.h>
#include <link.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "store/crashed_module.h"
#include "store/file.h"
#include "test_root.h"

extern char** environ;

namespace Marlowen {
namespace {

using Bytes = std::vector<std::uint8_t>;
using store_test::LogCapture;
using testing_support::ReadFileBytes;
using testing_support::TestRoot;
using testing_support::WriteFileBytes;

// Version 2 of the record below: texts as length and UTF-8, the time low
// half first, then the eleven counters 1 to 11.
const Bytes kVersion2 = {
    0x02, 0x00, 0x00, 0x00,                                      // version
    0x05, 0x00, 0x00, 0x00, 'A', 'p', 'p', '_', '1',             // reportName
    0x02, 0x00, 0x00, 0x00, 'A', 'V',                            // exceptionType
    0x08, 0x00, 0x00, 0x00, '0', 'x', '4', '0', '1', '0', '0', '0',  // crashAddress
    0x04, 0x00, 0x00, 0x00, 0xC3, 0x84, 'p', 'p',                // moduleName "Äpp"
    0x00, 0x00, 0x00, 0x00,                                      // commandLine, empty
    0x07, 0x00, 0x00, 0x00, '2', '.', '3', '.', '4', '.', '5',   // fileVersion
    0x03, 0x00, 0x00, 0x00, 'N', '/', 'A',                       // productVersion
    0x06, 0x00, 0x00, 0x00, '/', 'o', 'p', 't', '/', 'a',        // fileName
    0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55,              // creationTime
    0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,
    0x04, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00,
    0x07, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00,
    0x0A, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF,
};

// The same facts in version 1, which has no crashAddress.
const Bytes kVersion1 = {
    0x01, 0x00, 0x00, 0x00,
    0x05, 0x00, 0x00, 0x00, 'A', 'p', 'p', '_', '1',
    0x02, 0x00, 0x00, 0x00, 'A', 'V',
    0x04, 0x00, 0x00, 0x00, 0xC3, 0x84, 'p', 'p',
    0x00, 0x00, 0x00, 0x00,
    0x07, 0x00, 0x00, 0x00, '2', '.', '3', '.', '4', '.', '5',
    0x03, 0x00, 0x00, 0x00, 'N', '/', 'A',
    0x06, 0x00, 0x00, 0x00, '/', 'o', 'p', 't', '/', 'a',
    0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55,
    0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,
    0x04, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00,
    0x07, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00,
    0x0A, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF,
};

CrashedModuleT KnownRecord() {
  CrashedModuleT record;
  record.reportName = u"App_1";
  record.exceptionType = u"AV";
  record.crashAddress = u"0x401000";
  record.moduleName = u"\u00C4pp";
  record.fileVersion = u"2.3.4.5";
  record.productVersion = u"N/A";
  record.fileName = u"/opt/a";
  record.creationTime = FILETIME{0x11223344, 0x55667788};
  record.handleCount = 1;
  record.threadCount = 2;
  record.pageFaultCount = 3;
  record.peakWorkingSetSize = 4;
  record.workingSetSize = 5;
  record.quotaPeakPagedPoolUsage = 6;
  record.quotaPagedPoolUsage = 7;
  record.quotaPeakNonPagedPoolUsage = 8;
  record.quotaNonPagedPoolUsage = 9;
  record.pageFileUsage = 10;
  record.peakPageFileUsage = 0xFFFFFFFF;
  return record;
}

void ExpectKnownFields(const CrashedModuleT& record, const WideString& crashAddress) {
  EXPECT_EQ(record.reportName, u"App_1");
  EXPECT_EQ(record.exceptionType, u"AV");
  EXPECT_EQ(record.crashAddress, crashAddress);
  EXPECT_EQ(record.moduleName, u"\u00C4pp");
  EXPECT_EQ(record.commandLine, u"");
  EXPECT_EQ(record.fileVersion, u"2.3.4.5");
  EXPECT_EQ(record.productVersion, u"N/A");
  EXPECT_EQ(record.fileName.View(), u"/opt/a");
  EXPECT_EQ(record.creationTime.dwLowDateTime, 0x11223344u);
  EXPECT_EQ(record.creationTime.dwHighDateTime, 0x55667788u);
  EXPECT_EQ(record.handleCount, 1u);
  EXPECT_EQ(record.threadCount, 2u);
  EXPECT_EQ(record.pageFaultCount, 3u);
  EXPECT_EQ(record.peakWorkingSetSize, 4u);
  EXPECT_EQ(record.workingSetSize, 5u);
  EXPECT_EQ(record.quotaPeakPagedPoolUsage, 6u);
  EXPECT_EQ(record.quotaPagedPoolUsage, 7u);
  EXPECT_EQ(record.quotaPeakNonPagedPoolUsage, 8u);
  EXPECT_EQ(record.quotaNonPagedPoolUsage, 9u);
  EXPECT_EQ(record.pageFileUsage, 10u);
  EXPECT_EQ(record.peakPageFileUsage, 0xFFFFFFFFu);
}

class CrashedModuleFileTest : public testing::Test {
 protected:
  std::string Messages() {
    std::string all;
    for (const auto& line : log_.Drain()) all += WideToUtf8(line.message) + "\n";
    return all;
  }

  TestRoot root_;
  LogCapture log_;
};

TEST_F(CrashedModuleFileTest, SaveWritesVersion2BytesAndReplacesOldFile) {
  const std::string path = root_.Path("reports/App_1.dat");
  testing_support::MakeFolders(root_.Path("reports"));
  WriteFileBytes(path, Bytes(500, 0xEE));

  ASSERT_TRUE(KnownRecord().Save(PathBuffer::FromUtf8(path)));
  EXPECT_EQ(ReadFileBytes(path), kVersion2);
  struct stat info;
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_EQ(Messages(), "");
}

TEST_F(CrashedModuleFileTest, LoadsBothVersionsFieldForField) {
  const std::string two = root_.Path("two.dat");
  const std::string one = root_.Path("one.dat");
  WriteFileBytes(two, kVersion2);
  WriteFileBytes(one, kVersion1);

  CrashedModuleT fromTwo;
  ASSERT_TRUE(fromTwo.Load(PathBuffer::FromUtf8(two)));
  ExpectKnownFields(fromTwo, u"0x401000");

  CrashedModuleT fromOne;
  fromOne.crashAddress = u"untouched";
  ASSERT_TRUE(fromOne.Load(PathBuffer::FromUtf8(one)));
  ExpectKnownFields(fromOne, u"untouched");
  EXPECT_EQ(Messages(), "");
}

TEST_F(CrashedModuleFileTest, UnknownVersionConsumesOnlyItsWord) {
  const std::string three = root_.Path("three.dat");
  Bytes bytes = kVersion2;
  bytes[0] = 0x03;
  WriteFileBytes(three, bytes);

  File file(PathBuffer::FromUtf8(three));
  ASSERT_TRUE(file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential));
  CrashedModuleT record;
  EXPECT_FALSE(record.Read(file));
  EXPECT_EQ(file.Tell(), 4u);
  EXPECT_EQ(record.reportName, u"");
  file.Close();

  EXPECT_FALSE(record.Load(PathBuffer::FromUtf8(three)));
  EXPECT_EQ(Messages(), "Cannot read from file '" + three + "'.\n");
}

TEST_F(CrashedModuleFileTest, FailuresAreLogged) {
  CrashedModuleT record;
  const std::string missing = root_.Path("missing.dat");
  EXPECT_FALSE(record.Load(PathBuffer::FromUtf8(missing)));
  EXPECT_FALSE(record.Load(PathBuffer()));
  EXPECT_FALSE(record.Save(PathBuffer()));
  // Only the last folder level is made.
  const std::string deep = root_.Path("a/b/x.dat");
  EXPECT_FALSE(record.Save(PathBuffer::FromUtf8(deep)));
  EXPECT_EQ(Messages(), "The file '" + missing + "' does not exist.\n" +
                            "The file '' does not exist.\n" +
                            "Cannot create directory '" + root_.Path("a/b") + "'.\n");
}

TEST(CrashedModuleTest, RecordLiesBesideTheDump) {
  PathBuffer record;
  CrashedModuleT::RecordPath(u"/var/reports/My App_20261121093000_7_8.dmp", record);
  EXPECT_EQ(record.View(), u"/var/reports/My App_20261121093000_7_8.dat");
}

// Threads that wait until the test lets them go.
class WaitingThreads {
 public:
  explicit WaitingThreads(int count) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back([this] {
        std::unique_lock<std::mutex> lock(mutex_);
        ++running_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return release_; });
      });
    }
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return running_ == count; });
  }
  ~WaitingThreads() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      release_ = true;
    }
    changed_.notify_all();
    for (auto& thread : threads_) thread.join();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int running_ = 0;
  bool release_ = false;
  std::vector<std::thread> threads_;
};

int CountLoadedObjects() {
  int count = 0;
  dl_iterate_phdr([](dl_phdr_info*, size_t, void* data) {
    ++*static_cast<int*>(data);
    return 0;
  }, &count);
  return count;
}

TEST(CrashedModuleTest, CountsOfTheRunningProcess) {
  const auto self = static_cast<std::uint32_t>(getpid());
  EXPECT_EQ(CrashedModuleT::CountThreads(self), 1u);
  {
    WaitingThreads threads(3);
    EXPECT_EQ(CrashedModuleT::CountThreads(self), 4u);
  }
  EXPECT_EQ(CrashedModuleT::CountThreads(self), 1u);

  // The loader's own list is the independent witness: executable, vDSO,
  // loader, libc and the other libraries.
  const std::uint32_t modules = CrashedModuleT::CountModules(self);
  EXPECT_GE(modules, 3u);
  EXPECT_EQ(modules, static_cast<std::uint32_t>(CountLoadedObjects()));
  void* extra = dlopen("libuuid.so.1", RTLD_NOW);
  ASSERT_NE(extra, nullptr);
  EXPECT_EQ(CrashedModuleT::CountModules(self), modules + 1);
  dlclose(extra);

  constexpr std::uint32_t kNoSuchProcess = 0x7FFFFFF0;
  EXPECT_EQ(CrashedModuleT::CountThreads(kNoSuchProcess), 0u);
  EXPECT_EQ(CrashedModuleT::CountModules(kNoSuchProcess), 0u);
}

TEST(CrashedModuleTest, CollectsFactsOfAnUnstampedProcess) {
  std::vector<char> touched(8 << 20, 1);  // 8 MiB that must show in the working set
  CrashedModuleT record(true);
  EXPECT_EQ(record.fileVersion, u"N/A");
  EXPECT_EQ(record.productVersion, u"N/A");
  EXPECT_EQ(record.threadCount, 1u);
  EXPECT_GE(record.handleCount, 3u);
  char self[4096] = {};
  ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
  EXPECT_EQ(record.fileName.ToUtf8(), self);
  EXPECT_EQ(WideToUtf8(record.commandLine).rfind(self, 0), 0u) << WideToUtf8(record.commandLine);

  EXPECT_GT(record.pageFaultCount, 0u);
  EXPECT_GE(record.workingSetSize, touched.size());
  EXPECT_GE(record.peakWorkingSetSize, record.workingSetSize);
  EXPECT_GE(record.pageFileUsage, touched.size());
  EXPECT_GE(record.peakPageFileUsage, record.pageFileUsage);
  EXPECT_GT(record.quotaNonPagedPoolUsage, 0u);
  EXPECT_GE(record.quotaPeakNonPagedPoolUsage, record.quotaNonPagedPoolUsage);
  EXPECT_EQ(record.quotaPagedPoolUsage, 0u);
  EXPECT_EQ(record.quotaPeakPagedPoolUsage, 0u);
}

// A stamped child crashes with extra threads running; its fault handler
// writes the record, as the capture does, and the test reads what is left.
TEST(CrashedModuleCrashTest, FaultingChildLeavesItsRecord) {
  TestRoot root;
  const std::string dump = root.Path("reports/Probe_20261121093000_11_12.dmp");
  const char* argv[] = {ML_CRASH_PROBE, dump.c_str(), "with blanks", nullptr};
  pid_t child = 0;
  ASSERT_EQ(posix_spawn(&child, ML_CRASH_PROBE, nullptr, nullptr, const_cast<char**>(argv),
                        environ),
            0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 254);

  CrashedModuleT record;
  ASSERT_TRUE(record.Load(PathBuffer::FromUtf8(root.Path("reports/Probe_20261121093000_11_12.dat"))));
  EXPECT_EQ(record.reportName, u"Probe_20261121093000_11_12");
  EXPECT_EQ(record.exceptionType, u"Access Violation");
  EXPECT_EQ(record.crashAddress, u"0x401000");
  EXPECT_EQ(record.moduleName, u"Probe");
  EXPECT_EQ(record.fileVersion, u"2.3.4.5");
  EXPECT_EQ(record.productVersion, u"6.7.8.9");
  EXPECT_EQ(record.fileName.ToUtf8(), ML_CRASH_PROBE);
  EXPECT_EQ(WideToUtf8(record.commandLine),
            std::string(ML_CRASH_PROBE) + " " + dump + " with blanks");
  EXPECT_EQ(record.creationTime.dwLowDateTime, 0x0BADF00Du);
  EXPECT_EQ(record.creationTime.dwHighDateTime, 0x01DC5Au);
  EXPECT_EQ(record.threadCount, 4u);
  EXPECT_GE(record.handleCount, 3u);
  EXPECT_GT(record.workingSetSize, 0u);
}

}  // namespace
}  // namespace Marlowen
