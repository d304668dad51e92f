// The zip package on real files, read back by python3's zipfile and by
// unzip: what is added and what is skipped, the old zip, the half-made zip
// after a failure, the file mode and symbolic links in the zip's place.
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

using packaging_test::CommandResult;
using packaging_test::DumpLikeBytes;
using packaging_test::ExtractZipEntry;
using packaging_test::ListZip;
using packaging_test::RunCommand;
using testing_support::ListFolder;
using testing_support::PathExists;
using testing_support::ReadFileBytes;
using testing_support::WriteFileBytes;
using testing_support::WriteFileText;

class ZipPackageTest : public ::testing::Test {
 protected:
  void SetUp() override { testing_support::MakeFolders(folder_); }
  std::string In(const std::string& name) const { return folder_ + "/" + name; }
  static PathBuffer P(const std::string& path) { return PathBuffer::FromUtf8(path); }

  testing_support::TestRoot root_;
  // The report folder's own name has a blank in it.
  const std::string folder_ = root_.ReportFolder();
};

TEST_F(ZipPackageTest, AddsEveryFileButZipsWhateverTheCase) {
  const std::vector<std::uint8_t> dump = DumpLikeBytes(300'000, 7);
  WriteFileBytes(In("App_1.dmp"), dump);
  WriteFileText(In("App_1.xml"), "<?xml version=\"1.0\"?><R/>");
  WriteFileText(In("App_1.ZIP"), "an old package");
  WriteFileText(In("App_1.old.Zip"), "another");
  const PathList files = {P(In("App_1.dmp")), P(In("App_1.ZIP")), P(In("App_1.xml")), P(In("App_1.old.Zip"))};

  ASSERT_TRUE(ZipReportFiles(P(In("App_1.zip")), files));
  const CommandResult listing = ListZip(In("App_1.zip"));
  ASSERT_EQ(listing.exitCode, 0);
  EXPECT_EQ(listing.output, "App_1.dmp 300000 deflated\nApp_1.xml 25 deflated\n");
  EXPECT_EQ(ExtractZipEntry(In("App_1.zip"), "App_1.dmp"), dump);
  EXPECT_EQ(RunCommand({"unzip", "-tq", In("App_1.zip")}).exitCode, 0);
  // Skipped files stay as they were.
  EXPECT_EQ(testing_support::ReadFileText(In("App_1.ZIP")), "an old package");

  struct stat info {};
  ASSERT_EQ(stat(In("App_1.zip").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
  EXPECT_LT(info.st_size, 300'000) << "deflate shrinks dump-like bytes";
}

TEST_F(ZipPackageTest, AnEmptyListLeavesAnOldZipAlone) {
  WriteFileText(In("App_1.zip"), "old");
  EXPECT_FALSE(ZipReportFiles(P(In("App_1.zip")), {}));
  EXPECT_EQ(testing_support::ReadFileText(In("App_1.zip")), "old");
}

TEST_F(ZipPackageTest, AnOldZipIsReplacedNotExtended) {
  WriteFileText(In("App_1.a"), "first");
  WriteFileText(In("App_1.b"), "second");
  ASSERT_TRUE(ZipReportFiles(P(In("App_1.zip")), {P(In("App_1.a"))}));
  ASSERT_TRUE(ZipReportFiles(P(In("App_1.zip")), {P(In("App_1.b"))}));
  EXPECT_EQ(ListZip(In("App_1.zip")).output, "App_1.b 6 deflated\n");
}

TEST_F(ZipPackageTest, AddingTwiceKeepsTheFirstEntry) {
  WriteFileText(In("one name.txt"), "1");
  WriteFileText(In("zwei \xC3\xA4.txt"), "22");
  ASSERT_TRUE(ZipAddFile(P(In("x.zip")), P(In("one name.txt"))));
  ASSERT_TRUE(ZipAddFile(P(In("x.zip")), P(In("zwei \xC3\xA4.txt"))));
  EXPECT_EQ(ListZip(In("x.zip")).output, "one name.txt 1 deflated\nzwei \xC3\xA4.txt 2 deflated\n");
}

TEST_F(ZipPackageTest, AFailureOnTheSecondFileLeavesNoZip) {
  WriteFileBytes(In("App_1.dmp"), DumpLikeBytes(50'000, 3));
  WriteFileText(In("App_1.xml"), "<R/>");
  // Listed, but gone by the time it is read.
  const PathList files = {P(In("App_1.dmp")), P(In("App_1.gone")), P(In("App_1.xml"))};
  EXPECT_FALSE(ZipReportFiles(P(In("App_1.zip")), files));
  EXPECT_EQ(ListFolder(folder_), (std::vector<std::string>{"App_1.dmp", "App_1.xml"}))
      << "no zip and no temporary file";

  // A file that opens but cannot be read.
  ASSERT_EQ(symlink("/proc/self/mem", In("App_1.mem").c_str()), 0);
  EXPECT_FALSE(ZipReportFiles(P(In("App_1.zip")), {P(In("App_1.dmp")), P(In("App_1.mem"))}));
  EXPECT_FALSE(PathExists(In("App_1.zip")));
}

TEST_F(ZipPackageTest, NeverWritesThroughASymbolicLink) {
  const std::string target = root_.Path("target.bin");
  WriteFileText(target, "not yours");
  WriteFileText(In("App_1.dmp"), "dump");
  ASSERT_EQ(symlink(target.c_str(), In("App_1.zip").c_str()), 0);

  // Adding to a link is refused outright.
  EXPECT_FALSE(ZipAddFile(P(In("App_1.zip")), P(In("App_1.dmp"))));
  EXPECT_EQ(testing_support::ReadFileText(target), "not yours");

  // Packaging deletes the link as an old zip and makes a file of its own.
  ASSERT_TRUE(ZipReportFiles(P(In("App_1.zip")), {P(In("App_1.dmp"))}));
  EXPECT_EQ(testing_support::ReadFileText(target), "not yours");
  struct stat info {};
  ASSERT_EQ(lstat(In("App_1.zip").c_str(), &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST_F(ZipPackageTest, ModeIsPrivateWhateverTheUmask) {
  WriteFileText(In("App_1.dmp"), "dump");
  const mode_t old = umask(0);
  const bool zipped = ZipReportFiles(P(In("App_1.zip")), {P(In("App_1.dmp"))});
  umask(old);
  ASSERT_TRUE(zipped);
  struct stat info {};
  ASSERT_EQ(stat(In("App_1.zip").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
}

}  // namespace
}  // namespace Marlowen
