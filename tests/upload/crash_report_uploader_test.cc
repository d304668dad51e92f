// The uploader's finding and packaging steps on a real report folder: what
// counts as pending, prefix matching of a report's files, and a captured
// report packaged into its zip alone, checked with python3's zipfile and
// XML parser, with the failure rows (no record, a file that cannot be
// zipped, hidden files, an old zip in capitals).
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "report_test_support.h"
#include "store/crash_report_settings.h"
#include "test_root.h"
#include "upload/crash_report_uploader.h"

namespace Marlowen {

// Reaches the private steps, which the upload chain calls in the product.
class CrashReportUploaderPeer {
 public:
  static bool PackageReport(CrashReportUploader& uploader, const std::string& name) {
    const PathBuffer zip = PathBuffer::FromUtf8(uploader.ReportFolderPath().ToUtf8() + "/" + name + ".zip");
    return uploader.PackageReport(Utf8ToWide(name), zip);
  }
};

namespace {

using packaging_test::DumpLikeBytes;
using packaging_test::ExtractZipEntry;
using packaging_test::FlattenXml;
using packaging_test::ListZip;
using packaging_test::LogLines;
using packaging_test::WriteCapturedReport;
using testing_support::ListFolder;
using testing_support::PathExists;
using testing_support::WriteFileText;

constexpr char kName[] = "App_20260102030405_100_101";

std::vector<std::string> Names(const PathList& paths) {
  std::vector<std::string> names;
  for (const PathBuffer& path : paths) {
    PathBuffer name;
    names.push_back(path.BaseName(name, true).ToUtf8());
  }
  return names;
}

std::vector<std::string> Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

// Entry names of a zip that python3's zipfile has tested; empty if it is
// damaged or missing.
std::vector<std::string> ZipNames(const std::string& zip) {
  const packaging_test::CommandResult listing = ListZip(zip);
  std::vector<std::string> names;
  if (listing.exitCode != 0) return names;
  std::size_t start = 0;
  while (start < listing.output.size()) {
    const std::size_t end = listing.output.find('\n', start);
    const std::string line = listing.output.substr(start, end - start);
    names.push_back(line.substr(0, line.find(' ')));
    start = end + 1;
  }
  return names;
}

std::vector<std::string> Messages(LogLines& log) {
  std::vector<std::string> messages;
  for (const auto& line : log.Drain()) {
    messages.push_back(std::to_string(line.severity) + " " + WideToUtf8(line.message));
  }
  return messages;
}

class CrashReportUploaderTest : public ::testing::Test {
 protected:
  void SetUp() override { testing_support::MakeFolders(folder_); }
  std::string In(const std::string& name) const { return folder_ + "/" + name; }

  testing_support::TestRoot root_;
  const std::string folder_ = root_.ReportFolder();
};

TEST_F(CrashReportUploaderTest, ReadsTheSettingsOfTheReportFolder) {
  {
    const CrashReportUploader uploader(nullptr, nullptr);
    EXPECT_EQ(uploader.ReportFolderPath().ToUtf8(), folder_);
    EXPECT_TRUE(uploader.Settings().smaNumber.empty()) << "no file: the defaults";
    EXPECT_TRUE(uploader.Settings().sendReports);
  }
  CrashReportSettingsT settings;
  settings.smaNumber = u"SMA-1";
  settings.askBeforeSending = true;
  ASSERT_TRUE(settings.Save(PathBuffer()));
  const CrashReportUploader uploader(nullptr, nullptr);
  EXPECT_EQ(WideToUtf8(uploader.Settings().smaNumber), "SMA-1");
  EXPECT_TRUE(uploader.Settings().askBeforeSending);
}

TEST_F(CrashReportUploaderTest, PendingReportsAreDumpsThenZips) {
  const CrashReportUploader uploader(nullptr, nullptr);
  PathList pending = {PathBuffer(u"/stale")};
  uploader.FindPendingReports(pending);
  EXPECT_TRUE(pending.empty());

  for (const char* name : {"B_1.zip", "A_1.dmp", "A_1.dat", "C_1.ZIP", "A_2.DMP", ".H_1.dmp", "A_1.zip",
                           "notes.txt", "CrashReport.settings"}) {
    WriteFileText(In(name), "x");
  }
  uploader.FindPendingReports(pending);
  ASSERT_EQ(pending.size(), 5u);
  const std::vector<std::string> names = Names(pending);
  EXPECT_EQ(Sorted({names[0], names[1]}), (std::vector<std::string>{"A_1.dmp", "A_2.DMP"}));
  EXPECT_EQ(Sorted({names[2], names[3], names[4]}), (std::vector<std::string>{"A_1.zip", "B_1.zip", "C_1.ZIP"}));
}

TEST_F(CrashReportUploaderTest, ReportFilesMatchByPrefix) {
  for (const char* name : {"App_1.dmp", "App_1.xml", "app_1.ZIP", "App_12.dmp", "App_2.dmp", ".App_1.dmp",
                           "XApp_1.dmp"}) {
    WriteFileText(In(name), "x");
  }
  const CrashReportUploader uploader(nullptr, nullptr);
  PathList files;
  uploader.FindReportFiles(files, u"App_1");
  EXPECT_EQ(Sorted(Names(files)),
            (std::vector<std::string>{"App_1.dmp", "App_1.xml", "App_12.dmp", "app_1.ZIP"}));
  uploader.FindReportFiles(files, u"Other");
  EXPECT_TRUE(files.empty());
}

TEST_F(CrashReportUploaderTest, ACapturedReportBecomesItsZipAlone) {
  const std::vector<std::uint8_t> dump = DumpLikeBytes(2'000'000, 11);
  ASSERT_TRUE(WriteCapturedReport(folder_, kName, dump));
  CrashReportSettingsT settings;
  settings.smaNumber = u"SMA-42";
  ASSERT_TRUE(settings.Save(PathBuffer()));

  LogLines log;
  CrashReportUploader uploader(nullptr, nullptr);
  ASSERT_TRUE(CrashReportUploaderPeer::PackageReport(uploader, kName));
  const std::string zip = In(std::string(kName) + ".zip");
  EXPECT_EQ(ListFolder(folder_), (std::vector<std::string>{std::string(kName) + ".zip", "CrashReport.settings"}));
  EXPECT_TRUE(Messages(log).empty());

  const packaging_test::CommandResult listing = ListZip(zip);
  ASSERT_EQ(listing.exitCode, 0);
  const std::vector<std::string> entries = {std::string(kName) + ".dmp", std::string(kName) + ".xml"};
  EXPECT_EQ(listing.output.substr(0, listing.output.find('\n')), entries[0] + " 2000000 deflated");
  EXPECT_EQ(ExtractZipEntry(zip, entries[0]), dump);

  // The document inside parses and carries the record and the settings.
  const std::string extracted = root_.Path("extracted.xml");
  const std::vector<std::uint8_t> xml = ExtractZipEntry(zip, entries[1]);
  testing_support::WriteFileBytes(extracted, xml);
  const packaging_test::CommandResult flat = FlattenXml(extracted);
  ASSERT_EQ(flat.exitCode, 0);
  EXPECT_NE(flat.output.find("\n/MARLOWEN_CRASH_REPORT/SMA=SMA-42\n"), std::string::npos) << flat.output;
  EXPECT_NE(flat.output.find("/CRASH_REPORT/ID=" + std::string(kName) + "\n"), std::string::npos);
  EXPECT_NE(flat.output.find("/PROCESS_MEMORY/PAGE_FAULT_COUNT=1234\n"), std::string::npos);
}

TEST_F(CrashReportUploaderTest, APrefixOfAnotherReportTakesItsFilesAlong) {
  ASSERT_TRUE(WriteCapturedReport(folder_, "App_1", {1, 2}));
  ASSERT_TRUE(WriteCapturedReport(folder_, "App_12", {3, 4}));
  CrashReportUploader uploader(nullptr, nullptr);
  ASSERT_TRUE(CrashReportUploaderPeer::PackageReport(uploader, "App_1"));
  EXPECT_EQ(ListFolder(folder_), (std::vector<std::string>{"App_1.zip"}));
  EXPECT_EQ(ZipNames(In("App_1.zip")),
            (std::vector<std::string>{"App_1.dmp", "App_1.xml", "App_12.dat", "App_12.dmp"}));
}

TEST_F(CrashReportUploaderTest, WithoutARecordNothingIsPackaged) {
  WriteFileText(In("App_1.dmp"), "dump");
  LogLines log;
  CrashReportUploader uploader(nullptr, nullptr);
  EXPECT_FALSE(CrashReportUploaderPeer::PackageReport(uploader, "App_1"));
  EXPECT_EQ(ListFolder(folder_), (std::vector<std::string>{"App_1.dmp"}));
  EXPECT_EQ(Messages(log), (std::vector<std::string>{"3 The file '" + In("App_1.dat") + "' does not exist.",
                                                     "4 Cannot create crash report XML file (App_1)."}));
}

TEST_F(CrashReportUploaderTest, AFileThatCannotBeZippedLeavesTheDumpAndTheDocument) {
  ASSERT_TRUE(WriteCapturedReport(folder_, "App_1", {1, 2, 3}));
  // Listed as a plain file, but reading it fails.
  ASSERT_EQ(symlink("/proc/self/mem", In("App_1.mem").c_str()), 0);
  LogLines log;
  CrashReportUploader uploader(nullptr, nullptr);
  EXPECT_FALSE(CrashReportUploaderPeer::PackageReport(uploader, "App_1"));
  EXPECT_EQ(ListFolder(folder_), (std::vector<std::string>{"App_1.dmp", "App_1.mem", "App_1.xml"}))
      << "no zip; the record is gone once the document stands";
  EXPECT_EQ(Messages(log), (std::vector<std::string>{"4 Cannot create crash report ZIP file (App_1)."}));
  // A later try has no record any more.
  EXPECT_FALSE(CrashReportUploaderPeer::PackageReport(uploader, "App_1"));
}

TEST_F(CrashReportUploaderTest, AnOldZipInCapitalsIsSkippedAndKept) {
  ASSERT_TRUE(WriteCapturedReport(folder_, "App_1", {9}));
  WriteFileText(In("App_1.ZIP"), "old package");
  CrashReportUploader uploader(nullptr, nullptr);
  ASSERT_TRUE(CrashReportUploaderPeer::PackageReport(uploader, "App_1"));
  EXPECT_EQ(ListFolder(folder_), (std::vector<std::string>{"App_1.ZIP", "App_1.zip"}));
  EXPECT_EQ(ZipNames(In("App_1.zip")), (std::vector<std::string>{"App_1.dmp", "App_1.xml"}));
}

TEST_F(CrashReportUploaderTest, HiddenFilesAreNeitherZippedNorDeleted) {
  // A hidden file beside the report, and a report whose own name is hidden.
  ASSERT_TRUE(WriteCapturedReport(folder_, "App_1", {1}));
  WriteFileText(In(".App_1.dmp"), "hidden");
  ASSERT_TRUE(WriteCapturedReport(folder_, ".Hidden_1", {2}));
  CrashReportUploader uploader(nullptr, nullptr);
  ASSERT_TRUE(CrashReportUploaderPeer::PackageReport(uploader, "App_1"));
  EXPECT_EQ(ZipNames(In("App_1.zip")), (std::vector<std::string>{"App_1.dmp", "App_1.xml"}));

  LogLines log;
  EXPECT_FALSE(CrashReportUploaderPeer::PackageReport(uploader, ".Hidden_1"));
  EXPECT_EQ(ListFolder(folder_),
            (std::vector<std::string>{".App_1.dmp", ".Hidden_1.dmp", ".Hidden_1.xml", "App_1.zip"}));
  EXPECT_EQ(Messages(log), (std::vector<std::string>{"4 Cannot create crash report ZIP file (.Hidden_1)."}));
}

}  // namespace
}  // namespace Marlowen
