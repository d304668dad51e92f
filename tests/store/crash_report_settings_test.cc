// CrashReport.settings in a real report folder: exact bytes, odd files, the
// delete-then-create save and its log lines.
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
using testing_support::ReadFileBytes;
using testing_support::WriteFileBytes;

const Bytes kDefaultFile = {0x01, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};

class CrashReportSettingsTest : public testing::Test {
 protected:
  CrashReportSettingsTest() { testing_support::MakeFolders(folder_); }  // as the install leaves it

  // Exactly one log line since the last look: a warning about this path.
  void ExpectWarning(const char* text, const std::string& path) {
    const auto lines = log_.Drain();
    ASSERT_EQ(lines.size(), 1u) << text;
    EXPECT_EQ(lines[0].first, kLogWarning);
    EXPECT_EQ(lines[0].second, Utf8ToWide(std::string(text) + " '" + path + "'."));
  }

  mode_t FileMode() const {
    struct stat info;
    return lstat(file_.c_str(), &info) == 0 ? info.st_mode : 0;
  }

  testing_support::TestRoot root_;
  testing_support::LogCapture log_{root_};
  std::string folder_ = root_.ReportFolder();
  std::string file_ = folder_ + "/CrashReport.settings";
};

TEST_F(CrashReportSettingsTest, DefaultsAreFourteenBytesAndNumbersAreUtf8) {
  ASSERT_TRUE(log_.bound());
  CrashReportSettingsT settings;
  EXPECT_FALSE(settings.Load(PathBuffer()));
  ASSERT_TRUE(settings.Save(PathBuffer()));
  EXPECT_EQ(ReadFileBytes(file_), kDefaultFile);
  EXPECT_TRUE(log_.Drain().empty());
  PathBuffer path;
  EXPECT_EQ(SettingsFilePath(path).ToUtf8(), file_);

  // A number beyond ASCII is kept as UTF-8.
  settings.dumpLevel = 1;
  settings.askBeforeSending = true;
  settings.smaNumber = u"SMA-\u00DF\u4E2D\U0001F600";
  ASSERT_TRUE(settings.Save(PathBuffer()));
  EXPECT_EQ(ReadFileBytes(file_), (Bytes{0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x01, 0x0D, 0x00, 0x00,
                                         0x00, 'S', 'M', 'A', '-', 0xC3, 0x9F, 0xE4, 0xB8, 0xAD, 0xF0, 0x9F, 0x98, 0x80}));
  CrashReportSettingsT loaded;
  ASSERT_TRUE(loaded.Load(PathBuffer()));
  EXPECT_EQ(loaded.smaNumber, settings.smaNumber);
}

TEST_F(CrashReportSettingsTest, OddFilesReadAsTheRulesSay) {
  CrashReportSettingsT settings;
  settings.smaNumber = u"kept";
  // Another version: a warning, and nothing changes.
  WriteFileBytes(file_, {0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00});
  EXPECT_FALSE(settings.Load(PathBuffer()));
  ExpectWarning("Cannot read from file", file_);
  EXPECT_EQ(settings.dumpLevel, 3u);
  EXPECT_EQ(settings.smaNumber, u"kept");

  // Cut off behind byte 9: what is there is read, the number is cleared; a
  // sendReports byte of 2 is false.
  WriteFileBytes(file_, {0x01, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x02, 0x01});
  EXPECT_TRUE(settings.Load(PathBuffer()));
  EXPECT_EQ(settings.dumpLevel, 7u);
  EXPECT_FALSE(settings.sendReports);
  EXPECT_TRUE(settings.askBeforeSending);
  EXPECT_TRUE(settings.smaNumber.empty());

  // Cut inside the version word: the word starts zeroed, so 01 00 is still
  // version 1 and the fields keep their values. An empty file is version 0.
  WriteFileBytes(file_, {0x01, 0x00});
  EXPECT_TRUE(settings.Load(PathBuffer()));
  EXPECT_EQ(settings.dumpLevel, 7u);
  WriteFileBytes(file_, {});
  EXPECT_FALSE(settings.Load(PathBuffer()));
  ExpectWarning("Cannot read from file", file_);
}

TEST_F(CrashReportSettingsTest, SaveDeletesTheOldFileThenCreatesANewOne) {
  WriteFileBytes(file_, {0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
  ASSERT_EQ(chmod(file_.c_str(), 0600), 0);
  // A second name of the old file shows whether it was rewritten in place.
  const std::string oldName = root_.Path("old.settings");
  ASSERT_EQ(link(file_.c_str(), oldName.c_str()), 0);
  ASSERT_TRUE(CrashReportSettingsT().Save(PathBuffer()));
  EXPECT_EQ(ReadFileBytes(oldName)[4], 0x01);
  EXPECT_EQ(FileMode() & 0777, 0644u);

  // A link in the file's place is removed, not written through.
  const std::string target = root_.Path("elsewhere");
  testing_support::WriteFileText(target, "not settings");
  ASSERT_EQ(unlink(file_.c_str()), 0);
  ASSERT_EQ(symlink(target.c_str(), file_.c_str()), 0);
  ASSERT_TRUE(CrashReportSettingsT().Save(PathBuffer()));
  EXPECT_EQ(testing_support::ReadFileText(target), "not settings");
  EXPECT_TRUE(S_ISREG(FileMode()));
}

TEST_F(CrashReportSettingsTest, AFileHeldElsewhereIsNeitherTornNorReadHalfWritten) {
  WriteFileBytes(file_, kDefaultFile);
  File reader(PathBuffer::FromUtf8(file_));
  ASSERT_TRUE(reader.Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential));
  CrashReportSettingsT changed;
  changed.sendReports = false;
  EXPECT_FALSE(changed.Save(PathBuffer()));
  ExpectWarning("Cannot delete file", file_);
  EXPECT_EQ(ReadFileBytes(file_), kDefaultFile);
  reader.Close();

  File writer(PathBuffer::FromUtf8(file_));
  ASSERT_TRUE(writer.Open(FileAccess_Write, FileShare_Read, FileAccessHint_Sequential));
  EXPECT_FALSE(changed.Load(PathBuffer()));
  ExpectWarning("Cannot open file", file_);
}

TEST_F(CrashReportSettingsTest, SaveMakesOnlyTheLastFolderLevelAndUsesAnOtherPathOnlyIfItExists) {
  ASSERT_EQ(rmdir(folder_.c_str()), 0);
  const PathBuffer own = PathBuffer::FromUtf8(root_.Path("own.settings"));
  CrashReportSettingsT settings;
  settings.dumpLevel = 2;
  ASSERT_TRUE(settings.Save(own));  // not there yet: the machine's file
  EXPECT_EQ(ReadFileBytes(file_)[4], 0x02);
  WriteFileBytes(own.ToUtf8(), {});
  settings.dumpLevel = 1;
  ASSERT_TRUE(settings.Save(own));
  EXPECT_EQ(ReadFileBytes(own.ToUtf8())[4], 0x01);

  const std::string marlowen = root_.Path("var/lib/Marlowen");
  ASSERT_EQ(unlink(file_.c_str()), 0);
  ASSERT_EQ(rmdir(folder_.c_str()), 0);
  ASSERT_EQ(rmdir(marlowen.c_str()), 0);
  EXPECT_FALSE(CrashReportSettingsT().Save(PathBuffer()));
  ExpectWarning("Cannot create directory", folder_);
  EXPECT_FALSE(testing_support::PathExists(marlowen));

  // A data folder too long to hold gives an empty report folder.
  setenv("MARLOWEN_ROOT", ("/" + std::string(300, 'r')).c_str(), 1);
  PathBuffer path(u"stale");
  EXPECT_TRUE(ReportFolder(path).IsEmpty());
  EXPECT_EQ(SettingsFilePath(path).View(), u"/CrashReport.settings");
}

}  // namespace
}  // namespace Marlowen
