// The crash record: exact bytes against buffers written by hand, the unknown
// version, logged failures, and a record written from a real crash.
#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "run_command.h"
#include "store/crashed_module.h"
#include "store/file.h"
#include "store/file_time.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing_support::ReadFileBytes;
using testing_support::TestRoot;
using testing_support::WriteFileBytes;

// Texts as length and UTF-8, the time low half first, then the eleven
// counters 1 to 10 and 0xFFFFFFFF.
const Bytes kVersion2 = {
    0x02, 0x00, 0x00, 0x00,                                          // version
    0x05, 0x00, 0x00, 0x00, 'A', 'p', 'p', '_', '1',                 // reportName
    0x02, 0x00, 0x00, 0x00, 'A', 'V',                                // exceptionType
    0x08, 0x00, 0x00, 0x00, '0', 'x', '4', '0', '1', '0', '0', '0',  // crashAddress
    0x04, 0x00, 0x00, 0x00, 0xC3, 0x84, 'p', 'p',                    // moduleName "Äpp"
    0x00, 0x00, 0x00, 0x00,                                          // commandLine, empty
    0x07, 0x00, 0x00, 0x00, '2', '.', '3', '.', '4', '.', '5',       // fileVersion
    0x03, 0x00, 0x00, 0x00, 'N', '/', 'A',                           // productVersion
    0x06, 0x00, 0x00, 0x00, '/', 'o', 'p', 't', '/', 'a',            // fileName
    0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55,                  // creationTime
    0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00,
    0x05, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00,
    0x09, 0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF,
};
constexpr std::size_t kCrashAddressAt = 19, kCrashAddressSize = 12;

// The same facts in version 1, which has no crashAddress.
Bytes Version1() {
  Bytes bytes = kVersion2;
  bytes[0] = 0x01;
  bytes.erase(bytes.begin() + kCrashAddressAt, bytes.begin() + kCrashAddressAt + kCrashAddressSize);
  return bytes;
}

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
  std::uint32_t* counters[] = {&record.handleCount, &record.threadCount, &record.pageFaultCount,
                               &record.peakWorkingSetSize, &record.workingSetSize,
                               &record.quotaPeakPagedPoolUsage, &record.quotaPagedPoolUsage,
                               &record.quotaPeakNonPagedPoolUsage, &record.quotaNonPagedPoolUsage,
                               &record.pageFileUsage, &record.peakPageFileUsage};
  for (std::uint32_t i = 0; i < 11; ++i) *counters[i] = i < 10 ? i + 1 : 0xFFFFFFFF;
  return record;
}

class CrashedModuleFileTest : public testing::Test {
 protected:
  std::string Messages() {
    std::string all;
    for (const auto& line : log_.Drain()) all += WideToUtf8(line.second) + "\n";
    return all;
  }
  PathBuffer Path(const char* name) const { return PathBuffer::FromUtf8(root_.Path(name)); }

  TestRoot root_;
  testing_support::LogCapture log_{root_};
};

TEST_F(CrashedModuleFileTest, SavesVersion2OverAnOldFileAndLoadsBothVersionsFieldForField) {
  WriteFileBytes(root_.Path("App_1.dat"), Bytes(500, 0xEE));
  ASSERT_TRUE(KnownRecord().Save(Path("App_1.dat")));
  EXPECT_EQ(ReadFileBytes(root_.Path("App_1.dat")), kVersion2);
  struct stat info;
  ASSERT_EQ(stat(root_.Path("App_1.dat").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  // Every field is distinct, so saving what was loaded gives the hand-made
  // bytes again only if each field landed in its own place.
  WriteFileBytes(root_.Path("one.dat"), Version1());
  CrashedModuleT fromOne, fromTwo;
  fromOne.crashAddress = u"0x401000";  // version 1 leaves it alone
  ASSERT_TRUE(fromOne.Load(Path("one.dat")));
  ASSERT_TRUE(fromTwo.Load(Path("App_1.dat")));
  for (const CrashedModuleT* loaded : {&fromOne, &fromTwo}) {
    ASSERT_TRUE(loaded->Save(Path("again.dat")));
    EXPECT_EQ(ReadFileBytes(root_.Path("again.dat")), kVersion2);
  }
  EXPECT_EQ(Messages(), "");
}

TEST_F(CrashedModuleFileTest, UnknownVersionConsumesOnlyItsWordAndFailuresAreLogged) {
  Bytes bytes = kVersion2;
  bytes[0] = 0x03;
  const std::string three = root_.Path("three.dat");
  WriteFileBytes(three, bytes);
  File file(PathBuffer::FromUtf8(three));
  ASSERT_TRUE(file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential));
  CrashedModuleT record;
  EXPECT_FALSE(record.Read(file));
  EXPECT_EQ(file.Tell(), 4u);

  EXPECT_FALSE(record.Load(PathBuffer::FromUtf8(three)));
  EXPECT_FALSE(record.Load(Path("missing.dat")));
  EXPECT_FALSE(record.Load(PathBuffer()));
  EXPECT_FALSE(record.Save(PathBuffer()));
  EXPECT_FALSE(record.Save(Path("a/b/x.dat")));  // only the last folder level is made
  EXPECT_EQ(Messages(), "Cannot read from file '" + three + "'.\n" + "The file '" + root_.Path("missing.dat") +
                            "' does not exist.\n" + "The file '' does not exist.\n" + "Cannot create directory '" +
                            root_.Path("a/b") + "'.\n");

  PathBuffer beside;
  CrashedModuleT::RecordPath(u"/var/reports/My App_20261121093000_7_8.dmp", beside);
  EXPECT_EQ(beside.View(), u"/var/reports/My App_20261121093000_7_8.dat");
}

// Thread counts, the file name and the command line are checked on the
// crashing child below.
TEST(CrashedModuleTest, CountsAndFactsOfTheRunningProcess) {
  const auto self = static_cast<std::uint32_t>(getpid());
  // The loader's own list is the independent witness.
  int loaded = 0;
  dl_iterate_phdr([](dl_phdr_info*, size_t, void* count) { return ++*static_cast<int*>(count), 0; }, &loaded);
  const std::uint32_t modules = CrashedModuleT::CountModules(self);
  EXPECT_EQ(modules, static_cast<std::uint32_t>(loaded));
  void* extra = dlopen("libuuid.so.1", RTLD_NOW);
  ASSERT_NE(extra, nullptr);
  EXPECT_EQ(CrashedModuleT::CountModules(self), modules + 1);
  dlclose(extra);
  EXPECT_EQ(CrashedModuleT::CountThreads(0x7FFFFFF0), 0u);
  EXPECT_EQ(CrashedModuleT::CountModules(0x7FFFFFF0), 0u);

  std::vector<char> touched(8 << 20, 1);  // 8 MiB that must show in the working set
  CrashedModuleT record(true);
  EXPECT_EQ(record.fileVersion, u"N/A");  // this program carries no stamp
  EXPECT_EQ(record.threadCount, 1u);
  EXPECT_GE(record.handleCount, 3u);
  EXPECT_GT(record.pageFaultCount, 0u);
  EXPECT_GE(record.workingSetSize, touched.size());
  EXPECT_GE(record.peakWorkingSetSize, record.workingSetSize);
  EXPECT_GE(record.pageFileUsage, touched.size());
  EXPECT_GE(record.peakPageFileUsage, record.pageFileUsage);
  EXPECT_GT(record.quotaNonPagedPoolUsage, 0u);
  EXPECT_GE(record.quotaPeakNonPagedPoolUsage, record.quotaNonPagedPoolUsage);
  EXPECT_EQ(record.quotaPeakPagedPoolUsage, 0u);
}

// A stamped child crashes with extra threads running; its fault handler
// writes the record, as the capture does, and the test reads what is left.
TEST(CrashedModuleCrashTest, FaultingChildLeavesItsRecord) {
  TestRoot root;
  const std::string dump = root.Path("reports/Probe_20261121093000_11_12.dmp");
  ASSERT_EQ(testing_support::RunCommand("'" ML_CRASH_PROBE "' '" + dump + "' 'with blanks'").status, 254);

  CrashedModuleT record;
  ASSERT_TRUE(record.Load(PathBuffer::FromUtf8(root.Path("reports/Probe_20261121093000_11_12.dat"))));
  EXPECT_EQ(record.reportName + u"|" + record.exceptionType + u"|" + record.crashAddress + u"|" + record.moduleName +
                u"|" + record.fileVersion + u"|" + record.productVersion,
            u"Probe_20261121093000_11_12|Access Violation|0x401000|Probe|2.3.4.5|6.7.8.9");
  EXPECT_EQ(record.fileName.ToUtf8(), ML_CRASH_PROBE);
  EXPECT_EQ(WideToUtf8(record.commandLine), std::string(ML_CRASH_PROBE) + " " + dump + " with blanks");
  EXPECT_EQ(FileTimeToTicks(record.creationTime), 0x01DC5A0BADF00Dull);
  EXPECT_EQ(record.threadCount, 4u);
  EXPECT_GT(record.workingSetSize, 0u);
}

}  // namespace
}  // namespace Marlowen
