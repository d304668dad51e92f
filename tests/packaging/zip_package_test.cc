// The zip package on real files, read back by python3's zipfile and unzip.
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "packaging/zip_package.h"
#include "report_test_support.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using packaging_test::ListZip;
using testing_support::ReadFileText;
using testing_support::WriteFileText;

class ZipPackageTest : public ::testing::Test {
 protected:
  void SetUp() override { testing_support::MakeFolders(folder_); }
  // A file of the report folder, whose own name has a blank in it.
  PathBuffer In(const std::string& name) const { return PathBuffer::FromUtf8(Path(name)); }
  std::string Path(const std::string& name) const { return folder_ + "/" + name; }
  mode_t Mode(const std::string& name) const {
    struct stat info {};
    return lstat(Path(name).c_str(), &info) == 0 && S_ISREG(info.st_mode) ? info.st_mode & 07777 : 0;
  }

  testing_support::TestRoot root_;
  const std::string folder_ = root_.ReportFolder();
};

TEST_F(ZipPackageTest, AddsEveryFileButZipsWhateverTheCaseAndKeepsItPrivate) {
  const std::vector<std::uint8_t> dump = packaging_test::DumpLikeBytes(300'000, 7);
  testing_support::WriteFileBytes(Path("App_1.dmp"), dump);
  WriteFileText(Path("App_1.xml"), "<?xml version=\"1.0\"?><R/>");
  WriteFileText(Path("App_1.ZIP"), "an old package");
  WriteFileText(Path("App_1.old.Zip"), "another");

  const mode_t oldMask = umask(0);
  const bool zipped =
      ZipReportFiles(In("App_1.zip"), {In("App_1.dmp"), In("App_1.ZIP"), In("App_1.xml"), In("App_1.old.Zip")});
  umask(oldMask);
  ASSERT_TRUE(zipped);
  EXPECT_EQ(ListZip(Path("App_1.zip")).output, "App_1.dmp 300000 deflated\nApp_1.xml 25 deflated\n");
  EXPECT_EQ(packaging_test::ExtractZipEntry(Path("App_1.zip"), "App_1.dmp"), dump);
  EXPECT_EQ(packaging_test::RunCommand({"unzip", "-tq", Path("App_1.zip")}).exitCode, 0);
  EXPECT_EQ(ReadFileText(Path("App_1.ZIP")), "an old package");
  EXPECT_EQ(Mode("App_1.zip"), 0600u);
  EXPECT_LT(testing_support::ReadFileBytes(Path("App_1.zip")).size(), 300'000u) << "deflate shrinks dumps";
}

TEST_F(ZipPackageTest, AnOldZipIsReplacedNotExtendedButAnEmptyListLeavesIt) {
  const std::string utf8Name = "App_1 zwei \xC3\xA4.txt";
  WriteFileText(Path("App_1.a"), "first");
  WriteFileText(Path(utf8Name), "second");
  ASSERT_TRUE(ZipReportFiles(In("App_1.zip"), {In("App_1.a")}));
  ASSERT_TRUE(ZipReportFiles(In("App_1.zip"), {In(utf8Name)}));
  EXPECT_EQ(ListZip(Path("App_1.zip")).output, utf8Name + " 6 deflated\n");

  WriteFileText(Path("App_1.zip"), "old");
  EXPECT_FALSE(ZipReportFiles(In("App_1.zip"), {}));
  EXPECT_EQ(ReadFileText(Path("App_1.zip")), "old");
}

TEST_F(ZipPackageTest, AFailureOnTheSecondFileLeavesNoZip) {
  testing_support::WriteFileBytes(Path("App_1.dmp"), packaging_test::DumpLikeBytes(50'000, 3));
  WriteFileText(Path("App_1.xml"), "<R/>");
  // Listed, but gone by the time it is read.
  EXPECT_FALSE(ZipReportFiles(In("App_1.zip"), {In("App_1.dmp"), In("App_1.gone"), In("App_1.xml")}));
  EXPECT_EQ(testing_support::ListFolder(folder_), (std::vector<std::string>{"App_1.dmp", "App_1.xml"}))
      << "no zip and no temporary file";

  // A file that opens but cannot be read.
  ASSERT_EQ(symlink("/proc/self/mem", Path("App_1.mem").c_str()), 0);
  EXPECT_FALSE(ZipReportFiles(In("App_1.zip"), {In("App_1.dmp"), In("App_1.mem")}));
  EXPECT_FALSE(testing_support::PathExists(Path("App_1.zip")));
}

TEST_F(ZipPackageTest, NeverWritesThroughASymbolicLink) {
  const std::string target = root_.Path("target.bin");
  WriteFileText(target, "not yours");
  WriteFileText(Path("App_1.dmp"), "dump");
  ASSERT_EQ(symlink(target.c_str(), Path("App_1.zip").c_str()), 0);

  // Adding to a link is refused outright.
  EXPECT_FALSE(ZipAddFile(In("App_1.zip"), In("App_1.dmp")));
  // Packaging deletes the link as an old zip and makes a file of its own.
  ASSERT_TRUE(ZipReportFiles(In("App_1.zip"), {In("App_1.dmp")}));
  EXPECT_EQ(ReadFileText(target), "not yours");
  EXPECT_EQ(Mode("App_1.zip"), 0600u);
}

}  // namespace
}  // namespace Marlowen
