// The uploader's finding and packaging steps on a real report folder, the
// zips read back by python3's zipfile and the document by its XML parser.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "report_test_support.h"
#include "store/crash_report_settings.h"
#include "test_root.h"
#include "upload/crash_report_uploader.h"

namespace Marlowen {

// Reaches the private step, which the upload chain calls in the product.
class CrashReportUploaderPeer {
 public:
  static bool PackageReport(const std::string& name) {
    CrashReportUploader uploader(nullptr, nullptr);
    const std::string zip = uploader.ReportFolderPath().ToUtf8() + "/" + name + ".zip";
    return uploader.PackageReport(Utf8ToWide(name), PathBuffer::FromUtf8(zip));
  }
};

namespace {

using packaging_test::WriteCapturedReport;
using testing_support::ListFolder;
using testing_support::WriteFileText;
using Names = std::vector<std::string>;
using LogLines = std::vector<std::pair<std::uint32_t, std::u16string>>;

constexpr char kName[] = "App_20260102030405_100_101";

Names SortedNames(const PathList& paths) {
  Names names;
  for (const PathBuffer& path : paths) {
    PathBuffer name;
    names.push_back(path.BaseName(name, true).ToUtf8());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Entry names of a zip that python3's zipfile has tested.
Names ZipNames(const std::string& zip) {
  std::istringstream lines(packaging_test::ListZip(zip).output);
  Names names;
  for (std::string name, rest; lines >> name && std::getline(lines, rest);) names.push_back(name);
  return names;
}

class CrashReportUploaderTest : public ::testing::Test {
 protected:
  void SetUp() override { testing_support::MakeFolders(folder_); }
  std::string In(const std::string& name) const { return folder_ + "/" + name; }

  testing_support::TestRoot root_;
  const std::string folder_ = root_.ReportFolder();
  testing_support::LogCapture log_{root_};
};

TEST_F(CrashReportUploaderTest, FindsPendingReportsAndTheFilesOfOne) {
  const CrashReportUploader uploader(nullptr, nullptr);
  PathList found = {PathBuffer(u"/stale")};
  uploader.FindPendingReports(found);
  EXPECT_TRUE(found.empty());

  for (const char* name : {"B_1.zip", "A_1.dmp", "A_1.dat", "C_1.ZIP", "A_2.DMP", ".H_1.dmp", "A_1.zip",
                           "notes.txt", "a_1.xml", "A_12.dmp", "XA_1.dmp"}) {
    WriteFileText(In(name), "x");
  }
  // Dumps first, then zips.
  uploader.FindPendingReports(found);
  ASSERT_EQ(found.size(), 7u);
  EXPECT_EQ(SortedNames(PathList(found.begin(), found.begin() + 4)),
            (Names{"A_1.dmp", "A_12.dmp", "A_2.DMP", "XA_1.dmp"}));
  EXPECT_EQ(SortedNames(PathList(found.begin() + 4, found.end())), (Names{"A_1.zip", "B_1.zip", "C_1.ZIP"}));

  // Any file whose name begins with the report's, case ignored, hidden ones aside.
  uploader.FindReportFiles(found, u"A_1");
  EXPECT_EQ(SortedNames(found), (Names{"A_1.dat", "A_1.dmp", "A_1.zip", "A_12.dmp", "a_1.xml"}));
  uploader.FindReportFiles(found, u"Other");
  EXPECT_TRUE(found.empty());
}

TEST_F(CrashReportUploaderTest, ACapturedReportBecomesItsZipAlone) {
  const std::vector<std::uint8_t> dump = packaging_test::DumpLikeBytes(2'000'000, 11);
  ASSERT_TRUE(WriteCapturedReport(folder_, kName, dump));
  CrashReportSettingsT settings;
  settings.smaNumber = u"SMA-42";
  ASSERT_TRUE(settings.Save(PathBuffer()));

  ASSERT_TRUE(CrashReportUploaderPeer::PackageReport(kName));
  const std::string zip = In(std::string(kName) + ".zip");
  EXPECT_EQ(ListFolder(folder_), (Names{std::string(kName) + ".zip", "CrashReport.settings"}));
  EXPECT_TRUE(log_.Drain().empty());

  EXPECT_EQ(ZipNames(zip), (Names{std::string(kName) + ".dmp", std::string(kName) + ".xml"}));
  EXPECT_EQ(packaging_test::ExtractZipEntry(zip, std::string(kName) + ".dmp"), dump);

  // The document inside parses and carries the record and the settings.
  testing_support::WriteFileBytes(root_.Path("extracted.xml"),
                                  packaging_test::ExtractZipEntry(zip, std::string(kName) + ".xml"));
  const packaging_test::CommandResult flat = packaging_test::FlattenXml(root_.Path("extracted.xml"));
  ASSERT_EQ(flat.exitCode, 0);
  EXPECT_NE(flat.output.find("\n/MARLOWEN_CRASH_REPORT/SMA=SMA-42\n"), std::string::npos) << flat.output;
  EXPECT_NE(flat.output.find("/CRASH_REPORT/ID=" + std::string(kName) + "\n"), std::string::npos);
  EXPECT_NE(flat.output.find("/PROCESS_MEMORY/PAGE_FAULT_COUNT=1234\n"), std::string::npos);
}

// A report whose name is a prefix of another's takes that one's files along;
// an old zip in capitals and hidden files are neither zipped nor deleted.
TEST_F(CrashReportUploaderTest, PackagesEveryFileByPrefixButOldZipsAndHiddenFiles) {
  ASSERT_TRUE(WriteCapturedReport(folder_, "App_1", {1, 2}));
  ASSERT_TRUE(WriteCapturedReport(folder_, "App_12", {3, 4}));
  WriteFileText(In("App_1.ZIP"), "old package");
  WriteFileText(In(".App_1.dmp"), "hidden");
  ASSERT_TRUE(WriteCapturedReport(folder_, ".Hidden_1", {2}));
  ASSERT_TRUE(CrashReportUploaderPeer::PackageReport("App_1"));
  EXPECT_EQ(ZipNames(In("App_1.zip")), (Names{"App_1.dmp", "App_1.xml", "App_12.dat", "App_12.dmp"}));

  EXPECT_FALSE(CrashReportUploaderPeer::PackageReport(".Hidden_1"));
  EXPECT_EQ(ListFolder(folder_), (Names{".App_1.dmp", ".Hidden_1.dmp", ".Hidden_1.xml", "App_1.ZIP", "App_1.zip"}));
  EXPECT_EQ(log_.Drain(), (LogLines{{4, u"Cannot create crash report ZIP file (.Hidden_1)."}}));
}

}  // namespace
}  // namespace Marlowen
