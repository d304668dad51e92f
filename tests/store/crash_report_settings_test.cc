// CrashReport.settings on a real report folder: the exact bytes, the reading
// rules for odd files, the delete-then-create save, and the log lines.
#include "store/crash_report_settings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "log_capture.h"
#include "shell/log_client.h"
#include "store/file.h"
#include "store/report_folder.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using Bytes = std::vector<std::uint8_t>;
using store_test::LogCapture;
using store_test::LoggedLine;
using testing_support::MakeFolders;
using testing_support::ReadFileBytes;
using testing_support::WriteFileBytes;

const Bytes kDefaultFile = {0x01, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};

class CrashReportSettingsTest : public testing::Test {
 protected:
  CrashReportSettingsTest() : folder_(root_.ReportFolder()), file_(folder_ + "/CrashReport.settings") {
    // As the install leaves the machine.
    MakeFolders(folder_);
  }

  std::vector<LoggedLine> Logged() { return log_.Drain(); }
  WideString Quoted(const char* message, const std::string& path) {
    return Utf8ToWide(std::string(message) + " '" + path + "'.");
  }

  testing_support::TestRoot root_;
  LogCapture log_;
  std::string folder_;
  std::string file_;
};

TEST_F(CrashReportSettingsTest, DefaultsAreFourteenBytesReadableByEveryone) {
  ASSERT_TRUE(log_.bound());
  const CrashReportSettingsT defaults;
  ASSERT_TRUE(defaults.Save(PathBuffer()));
  EXPECT_EQ(ReadFileBytes(file_), kDefaultFile);
  struct stat info;
  ASSERT_EQ(stat(file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
  EXPECT_TRUE(Logged().empty());

  PathBuffer path;
  EXPECT_EQ(SettingsFilePath(path).ToUtf8(), file_);
  EXPECT_EQ(ReportFolder(path).ToUtf8(), folder_);
}

TEST_F(CrashReportSettingsTest, NoFileMeansTheDefaultsWithoutAMessage) {
  CrashReportSettingsT settings;
  EXPECT_FALSE(settings.Load(PathBuffer()));
  EXPECT_FALSE(settings.Load(PathBuffer::FromUtf8(root_.Path("nowhere.settings"))));
  EXPECT_EQ(settings.dumpLevel, 3u);
  EXPECT_TRUE(settings.sendReports);
  EXPECT_FALSE(settings.askBeforeSending);
  EXPECT_TRUE(settings.smaNumber.empty());
  EXPECT_TRUE(Logged().empty());
}

TEST_F(CrashReportSettingsTest, NonAsciiNumberSurvivesSaveAndLoad) {
  CrashReportSettingsT settings;
  settings.dumpLevel = 1;
  settings.sendReports = true;
  settings.askBeforeSending = true;
  settings.smaNumber = u"SMA-\u00DF\u4E2D\U0001F600";
  ASSERT_TRUE(settings.Save(PathBuffer()));
  const Bytes expected = {0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x01, 0x0D, 0x00, 0x00, 0x00,
                          'S',  'M',  'A',  '-',  0xC3, 0x9F, 0xE4, 0xB8, 0xAD, 0xF0, 0x9F, 0x98, 0x80};
  EXPECT_EQ(ReadFileBytes(file_), expected);

  CrashReportSettingsT loaded;
  ASSERT_TRUE(loaded.Load(PathBuffer()));
  EXPECT_EQ(loaded.dumpLevel, 1u);
  EXPECT_TRUE(loaded.sendReports);
  EXPECT_TRUE(loaded.askBeforeSending);
  EXPECT_EQ(loaded.smaNumber, settings.smaNumber);
}

TEST_F(CrashReportSettingsTest, AnotherVersionIsAWarningAndChangesNothing) {
  WriteFileBytes(file_, {0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00});
  CrashReportSettingsT settings;
  settings.dumpLevel = 2;
  settings.smaNumber = u"kept";
  EXPECT_FALSE(settings.Load(PathBuffer()));
  EXPECT_EQ(settings.dumpLevel, 2u);
  EXPECT_TRUE(settings.sendReports);
  EXPECT_EQ(settings.smaNumber, u"kept");
  const std::vector<LoggedLine> lines = Logged();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].severity, kLogWarning);
  EXPECT_EQ(lines[0].message, Quoted("Cannot read from file", file_));
}

TEST_F(CrashReportSettingsTest, OddBytesReadAsTheRulesSay) {
  CrashReportSettingsT settings;
  settings.smaNumber = u"stale";
  settings.askBeforeSending = true;
  // Cut off behind byte 9: what is there is read, the number is cleared.
  WriteFileBytes(file_, {0x01, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00});
  EXPECT_TRUE(settings.Load(PathBuffer()));
  EXPECT_EQ(settings.dumpLevel, 7u);
  EXPECT_FALSE(settings.sendReports);
  EXPECT_FALSE(settings.askBeforeSending);
  EXPECT_TRUE(settings.smaNumber.empty());

  // Only a byte of 1 is true.
  WriteFileBytes(file_, {0x01, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00});
  EXPECT_TRUE(settings.Load(PathBuffer()));
  EXPECT_FALSE(settings.sendReports);
  EXPECT_TRUE(settings.askBeforeSending);

  // Cut off inside the first word: the version word starts zeroed, so this
  // still reads as version 1, and every field keeps its value.
  settings.smaNumber = u"stale";
  WriteFileBytes(file_, {0x01, 0x00});
  EXPECT_TRUE(settings.Load(PathBuffer()));
  EXPECT_EQ(settings.dumpLevel, 3u);
  EXPECT_FALSE(settings.sendReports);
  EXPECT_TRUE(settings.askBeforeSending);
  EXPECT_TRUE(settings.smaNumber.empty());
  // An empty file is version 0.
  WriteFileBytes(file_, {});
  EXPECT_FALSE(settings.Load(PathBuffer()));
  EXPECT_EQ(Logged().size(), 1u);
}

TEST_F(CrashReportSettingsTest, SaveDeletesTheOldFileThenCreatesANewOne) {
  WriteFileBytes(file_, {0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
  ASSERT_EQ(chmod(file_.c_str(), 0600), 0);
  // A second name of the old file shows whether it was rewritten in place.
  const std::string oldName = root_.Path("old.settings");
  ASSERT_EQ(link(file_.c_str(), oldName.c_str()), 0);

  CrashReportSettingsT settings;
  ASSERT_TRUE(settings.Save(PathBuffer()));
  EXPECT_EQ(ReadFileBytes(file_), kDefaultFile);
  EXPECT_EQ(ReadFileBytes(oldName)[4], 0x01);
  struct stat info;
  ASSERT_EQ(stat(file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
  EXPECT_EQ(info.st_nlink, 1u);
}

TEST_F(CrashReportSettingsTest, SaveReplacesALinkInsteadOfWritingThroughIt) {
  const std::string target = root_.Path("elsewhere");
  testing_support::WriteFileText(target, "not settings");
  ASSERT_EQ(symlink(target.c_str(), file_.c_str()), 0);
  ASSERT_TRUE(CrashReportSettingsT().Save(PathBuffer()));
  EXPECT_EQ(testing_support::ReadFileText(target), "not settings");
  struct stat info;
  ASSERT_EQ(lstat(file_.c_str(), &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(ReadFileBytes(file_), kDefaultFile);
}

TEST_F(CrashReportSettingsTest, ASaveBesideAReaderFailsAtTheDeleteAndKeepsTheFile) {
  WriteFileBytes(file_, kDefaultFile);
  File reader(PathBuffer::FromUtf8(file_));
  ASSERT_TRUE(reader.Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential));
  CrashReportSettingsT changed;
  changed.sendReports = false;
  EXPECT_FALSE(changed.Save(PathBuffer()));
  EXPECT_EQ(ReadFileBytes(file_), kDefaultFile);
  const std::vector<LoggedLine> lines = Logged();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].message, Quoted("Cannot delete file", file_));
  reader.Close();

  // A writer holding the file keeps a load out as well.
  File writer(PathBuffer::FromUtf8(file_));
  ASSERT_TRUE(writer.Open(FileAccess_Write, FileShare_Read, FileAccessHint_Sequential));
  CrashReportSettingsT loaded;
  EXPECT_FALSE(loaded.Load(PathBuffer()));
  const std::vector<LoggedLine> more = Logged();
  ASSERT_EQ(more.size(), 1u);
  EXPECT_EQ(more[0].severity, kLogWarning);
  EXPECT_EQ(more[0].message, Quoted("Cannot open file", file_));
}

TEST_F(CrashReportSettingsTest, SaveMakesOnlyTheLastFolderLevel) {
  const std::string marlowen = root_.Path("var/lib/Marlowen");
  ASSERT_EQ(rmdir(folder_.c_str()), 0);
  EXPECT_TRUE(CrashReportSettingsT().Save(PathBuffer()));
  EXPECT_EQ(ReadFileBytes(file_), kDefaultFile);

  ASSERT_EQ(unlink(file_.c_str()), 0);
  ASSERT_EQ(rmdir(folder_.c_str()), 0);
  ASSERT_EQ(rmdir(marlowen.c_str()), 0);
  EXPECT_FALSE(CrashReportSettingsT().Save(PathBuffer()));
  const std::vector<LoggedLine> lines = Logged();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].message, Quoted("Cannot create directory", folder_));
  EXPECT_FALSE(testing_support::PathExists(marlowen));
}

TEST_F(CrashReportSettingsTest, AnOtherPathIsUsedOnlyIfItsFileExists) {
  const std::string own = root_.Path("own.settings");
  CrashReportSettingsT settings;
  settings.dumpLevel = 2;
  // Not there yet: the save goes to the machine's file.
  ASSERT_TRUE(settings.Save(PathBuffer::FromUtf8(own)));
  EXPECT_FALSE(testing_support::PathExists(own));
  EXPECT_EQ(ReadFileBytes(file_)[4], 0x02);

  WriteFileBytes(own, {});
  settings.dumpLevel = 1;
  ASSERT_TRUE(settings.Save(PathBuffer::FromUtf8(own)));
  EXPECT_EQ(ReadFileBytes(own)[4], 0x01);
  EXPECT_EQ(ReadFileBytes(file_)[4], 0x02);

  CrashReportSettingsT loaded;
  ASSERT_TRUE(loaded.Load(PathBuffer::FromUtf8(own)));
  EXPECT_EQ(loaded.dumpLevel, 1u);
  ASSERT_TRUE(loaded.Load(PathBuffer()));
  EXPECT_EQ(loaded.dumpLevel, 2u);
}

TEST(ReportFolderTest, IsEmptyWhenTheDataFolderCannotBeHeld) {
  testing_support::TestRoot root;
  const std::string saved = std::getenv("MARLOWEN_ROOT");
  setenv("MARLOWEN_ROOT", ("/" + std::string(300, 'r')).c_str(), 1);
  PathBuffer path(u"stale");
  EXPECT_TRUE(ReportFolder(path).IsEmpty());
  EXPECT_EQ(SettingsFilePath(path).View(), u"/CrashReport.settings");
  setenv("MARLOWEN_ROOT", saved.c_str(), 1);
}

}  // namespace
}  // namespace Marlowen
