// SendReport and SendAllReports on a real report folder against the test
// collector: the statuses a caller sees, every failure of server discovery
// and of the post with its log lines in order, which files stay, and that a
// later run sends what an earlier one could not.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "log_capture.h"
#include "report_test_support.h"
#include "shell/wide_string.h"
#include "test_root.h"
#include "upload/crash_report_uploader.h"
#include "upload_log.h"

namespace {

using Marlowen::CrashReportUploader;
using testing_support::TestRoot;
using upload_test::CollectorProcess;
using upload_test::LogLine;
using upload_test::StatusList;

constexpr std::uint32_t kError = 4;
constexpr std::uint32_t kInformation = 2;
const LogLine kUploaded{kInformation, u"Crash report uploaded successfully."};

class SendReportTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(log_.bound());
    ASSERT_TRUE(collector_.started());
    collector_.UseAsServers();
    testing_support::MakeFolders(folder_);
  }
  void TearDown() override {
    unsetenv("MARLOWEN_INFO_SERVER");
    unsetenv("MARLOWEN_CA_BUNDLE");
  }

  bool Capture(const std::string& name, std::uint32_t seed = 1) {
    return packaging_test::WriteCapturedReport(folder_, name,
                                               packaging_test::DumpLikeBytes(4096, seed));
  }
  std::string InFolder(const std::string& name) const { return folder_ + "/" + name; }
  // The information request's CA file lives in the test's temporary folder.
  bool NoCaFileLeft() const {
    for (const auto& name : testing_support::ListFolder(root_.Path("tmp"))) {
      if (name.rfind("MLC", 0) == 0) return false;
    }
    return true;
  }
  std::string Received(const std::string& name) const {
    return collector_.Value("receivedDir") + "/" + name;
  }

  TestRoot root_;
  std::string folder_ = root_.ReportFolder();
  testing_support::LogCapture log_{root_};
  CollectorProcess collector_{root_.Path("collector")};
  StatusList statuses_;
};

TEST_F(SendReportTest, CapturedReportGoesOutWithStatusesOneToSeven) {
  ASSERT_TRUE(Capture("App_20260102030405_10_11"));
  CrashReportUploader uploader(&upload_test::RecordStatus, &statuses_);
  EXPECT_TRUE(uploader.SendReport(u"App_20260102030405_10_11"));

  const std::u16string id = u"App_20260102030405_10_11";
  StatusList expected;
  for (std::uint32_t s = 1; s <= 7; ++s) expected.emplace_back(id, s);
  EXPECT_EQ(statuses_, expected);
  EXPECT_EQ(upload_test::TakeLogLines(log_), std::vector<LogLine>{kUploaded});
  EXPECT_TRUE(testing_support::ListFolder(folder_).empty());

  // The server got a zip with the dump and the document in it.
  const std::string zip = Received("App_20260102030405_10_11.zip");
  EXPECT_EQ(packaging_test::ListZip(zip).exitCode, 0);
  EXPECT_EQ(packaging_test::ExtractZipEntry(zip, "App_20260102030405_10_11.dmp"),
            packaging_test::DumpLikeBytes(4096, 1));
  EXPECT_FALSE(packaging_test::ExtractZipEntry(zip, "App_20260102030405_10_11.xml").empty());
}

TEST_F(SendReportTest, ReportThatCannotBePackagedSeesStatusOneAlone) {
  testing_support::WriteFileText(InFolder("App_1.dmp"), "dump without record");
  CrashReportUploader uploader(&upload_test::RecordStatus, &statuses_);
  EXPECT_FALSE(uploader.SendReport(u"App_1"));
  EXPECT_EQ(statuses_, (StatusList{{u"App_1", 1}}));
  EXPECT_EQ(upload_test::TakeLogLines(log_),
            (std::vector<LogLine>{{3, u"The file '" + Utf8ToWide(InFolder("App_1.dat")) +
                                          u"' does not exist."},
                                  {kError, u"Cannot create crash report XML file (App_1)."},
                                  {kError, u"Cannot create crash report zip file (App_1)."}}));
  EXPECT_EQ(testing_support::ListFolder(folder_), std::vector<std::string>{"App_1.dmp"});
  EXPECT_EQ(collector_.InfoRequestCount(), 0u);
}

TEST_F(SendReportTest, OwnReportsAreRefusedBeforeAnything) {
  testing_support::WriteFileText(InFolder("Marlowen Crash Report Uploader_1.zip"), "PK own");
  CrashReportUploader uploader(&upload_test::RecordStatus, &statuses_);
  EXPECT_FALSE(uploader.SendReport(u"Marlowen Crash Report Uploader_1"));
  EXPECT_TRUE(statuses_.empty());
  EXPECT_EQ(upload_test::TakeLogLines(log_),
            (std::vector<LogLine>{{kError, u"Cannot upload crash reports from the crash report "
                                           u"uploader. Please send this report to Marlowen by "
                                           u"email."}}));
  EXPECT_EQ(testing_support::ReadFileText(InFolder("Marlowen Crash Report Uploader_1.zip")),
            "PK own");

  // Only the beginning counts.
  testing_support::WriteFileText(InFolder("X Marlowen Crash Report Uploader_1.zip"), "PK other");
  EXPECT_TRUE(uploader.SendReport(u"X Marlowen Crash Report Uploader_1"));
  EXPECT_EQ(collector_.UploadCount(), 1u);
}

// One way for the upload to fail: the collector's behaviour and what the
// chain logs before the uploader's own line.
struct FailureRow {
  const char* name;
  const char* behaviour;
  std::vector<LogLine> lines;
  bool posted;  // the chain reached the send
};

void PrintTo(const FailureRow& row, std::ostream* out) { *out << row.name; }

class FailedUploadTest : public SendReportTest, public testing::WithParamInterface<FailureRow> {};

TEST_P(FailedUploadTest, LogsInOrderKeepsTheZipAndALaterRunSendsIt) {
  // A package left by an earlier run: packaging is skipped.
  const std::u16string id = u"Tool_20260102030405_7_8";
  const std::string zip = "PK\x03\x04 package of an earlier run";
  testing_support::WriteFileText(InFolder("Tool_20260102030405_7_8.zip"), zip);
  ASSERT_TRUE(collector_.SetBehaviour(GetParam().behaviour));
  {
    CrashReportUploader uploader(&upload_test::RecordStatus, &statuses_);
    EXPECT_FALSE(uploader.SendReport(id));
  }
  StatusList expected{{id, 1}, {id, 2}};
  if (GetParam().posted) {
    for (std::uint32_t s : {3u, 4u, 5u, 6u}) expected.emplace_back(id, s);
  }
  expected.emplace_back(id, 0);
  EXPECT_EQ(statuses_, expected);
  std::vector<LogLine> lines = GetParam().lines;
  lines.push_back({kError, u"Cannot upload crash report to Marlowen (Tool_20260102030405_7_8)."});
  EXPECT_EQ(upload_test::TakeLogLines(log_), lines);
  EXPECT_EQ(testing_support::ListFolder(folder_),
            std::vector<std::string>{"Tool_20260102030405_7_8.zip"});
  EXPECT_EQ(testing_support::ReadFileText(InFolder("Tool_20260102030405_7_8.zip")), zip);
  EXPECT_TRUE(NoCaFileLeft());

  // The next run finds the zip and posts the same bytes.
  ASSERT_TRUE(collector_.ResetBehaviour());
  statuses_.clear();
  CrashReportUploader later(&upload_test::RecordStatus, &statuses_);
  EXPECT_TRUE(later.SendAllReports());
  expected.clear();
  for (std::uint32_t s = 1; s <= 7; ++s) expected.emplace_back(id, s);
  EXPECT_EQ(statuses_, expected);
  EXPECT_EQ(upload_test::TakeLogLines(log_), std::vector<LogLine>{kUploaded});
  EXPECT_TRUE(testing_support::ListFolder(folder_).empty());
  EXPECT_EQ(testing_support::ReadFileText(Received("Tool_20260102030405_7_8.zip")), zip);
  EXPECT_TRUE(NoCaFileLeft());
}

const LogLine kCannotRetrieve{kError, u"Cannot retrieve the crash report upload information."};
const LogLine kInvalidXml{kError, u"Invalid XML retrieved from upload URL"};
const LogLine kPostFailed{kError, u"Error during crash report upload wit XML server."};
const LogLine kStatus500{kError, u"500 status code received from the upload server."};

INSTANTIATE_TEST_SUITE_P(
    Rows, FailedUploadTest,
    testing::Values(
        FailureRow{"InfoRefused", R"({"info": {"mode": "refuse"}})",
                   {{kError, u"Failed to request crash report upload URL"}, kCannotRetrieve}, false},
        FailureRow{"InfoClosed", R"({"info": {"mode": "close"}})",
                   {{kError, u"Failed to request crash report upload URL"}, kCannotRetrieve}, false},
        FailureRow{"InfoSelfSigned", R"({"info": {"certificate": "self-signed"}})",
                   {{kError, u"Failed to request crash report upload URL"}, kCannotRetrieve}, false},
        FailureRow{"InfoNotFoundPage",
                   R"({"info": {"httpStatus": 404, "contentType": "text/html",
                       "body": "<html><body><h1>Not Found</h1></body></html>"}})",
                   {kInvalidXml, kCannotRetrieve}, false},
        FailureRow{"InfoRootCase", R"({"info": {"root": "CRASHREPORTSERVERINFORMATION"}})",
                   {kInvalidXml, kCannotRetrieve}, false},
        FailureRow{"StatusWithBlank", R"({"info": {"status": " running"}})",
                   {{kError, u"Marlowen upload server is not running."}}, false},
        FailureRow{"StatusStopped", R"({"info": {"status": "stopped"}})",
                   {{kError, u"Marlowen upload server is not running."}}, false},
        FailureRow{"NothingUnderRoot", R"({"info": {"status": null, "uploadUrl": null}})",
                   {{kError, u"Marlowen upload server is not running."}}, false},
        FailureRow{"NoUploadUrl", R"({"info": {"uploadUrl": null}})",
                   {{kError, u"Invalid crash report upload information received."}}, false},
        FailureRow{"UploadRefused", R"({"upload": {"mode": "refuse"}})",
                   {{kError, u"Send request failed."}, kPostFailed}, true},
        FailureRow{"UploadClosed", R"({"upload": {"mode": "close"}})",
                   {{kError, u"Send request failed."}, kPostFailed}, true},
        FailureRow{"RefusalDocument",
                   R"({"upload": {"httpStatus": 500, "contentType": "TEXT/XML",
                       "refusal": {"status": "rejected", "errorDescription": "bad package"}}})",
                   {kStatus500,
                    {kInformation, u"Content type of response from the upload server is TEXT/XML."},
                    {kInformation, u"Report submission status from upload server: 'rejected'."},
                    {kInformation, u"Report submission error from upload server: 'bad package'."},
                    kPostFailed},
                   true},
        FailureRow{"RefusalWithCharset",
                   R"({"upload": {"httpStatus": 500, "contentType": "text/xml; charset=utf-8",
                       "refusal": {"status": "rejected"}}})",
                   {kStatus500,
                    {kInformation, u"Content type of response from the upload server is "
                                   u"text/xml; charset=utf-8."},
                    kPostFailed},
                   true},
        FailureRow{"RefusalNestedStatus",
                   R"({"upload": {"httpStatus": 500, "contentType": "text/xml",
                       "body": "<r><status><x/>no</status></r>"}})",
                   {kStatus500,
                    {kInformation, u"Content type of response from the upload server is text/xml."},
                    {kInformation, u"Report submission status from upload server: ''."},
                    {kInformation, u"Report submission error from upload server: ''."},
                    kPostFailed},
                   true},
        FailureRow{"RefusalEmptyBody",
                   R"({"upload": {"httpStatus": 500, "contentType": "text/xml", "body": ""}})",
                   {kStatus500,
                    {kInformation, u"Content type of response from the upload server is text/xml."},
                    {kError, u"The data set from the upload server is empty."},
                    kPostFailed},
                   true},
        FailureRow{"RefusalNotXml",
                   R"({"upload": {"httpStatus": 500, "contentType": "text/xml", "body": "OK"}})",
                   {kStatus500,
                    {kInformation, u"Content type of response from the upload server is text/xml."},
                    {kError, u"Error reading error description from the upload server."},
                    kPostFailed},
                   true},
        FailureRow{"Created", R"({"upload": {"httpStatus": 201}})",
                   {{kError, u"201 status code received from the upload server."},
                    {kInformation, u"Content type of response from the upload server is text/plain."},
                    kPostFailed},
                   true},
        FailureRow{"NoContent", R"({"upload": {"httpStatus": 204}})",
                   {{kError, u"204 status code received from the upload server."},
                    {kError, u"Cannot get the content type of response from the upload server."},
                    kPostFailed},
                   true}),
    [](const testing::TestParamInfo<FailureRow>& info) { return std::string(info.param.name); });

TEST_F(SendReportTest, SendAllIsTrueWhenAnyOneGoesOut) {
  CrashReportUploader uploader(&upload_test::RecordStatus, &statuses_);
  EXPECT_FALSE(uploader.SendAllReports()) << "an empty folder";
  EXPECT_TRUE(statuses_.empty());

  // Two dumps without a record fail to package; one zip goes out.
  testing_support::WriteFileText(InFolder("A_1.dmp"), "no record");
  testing_support::WriteFileText(InFolder("B_2.dmp"), "no record");
  testing_support::WriteFileText(InFolder("C_3.zip"), "PK zip");
  EXPECT_TRUE(uploader.SendAllReports());
  EXPECT_EQ(testing_support::ListFolder(folder_), (std::vector<std::string>{"A_1.dmp", "B_2.dmp"}));
  EXPECT_EQ(collector_.UploadCount(), 1u);

  // Nothing that can go: false, and the dumps stay.
  EXPECT_FALSE(uploader.SendAllReports());
  EXPECT_EQ(testing_support::ListFolder(folder_), (std::vector<std::string>{"A_1.dmp", "B_2.dmp"}));
}

TEST_F(SendReportTest, NullCallbackRunsTheSameWay) {
  ASSERT_TRUE(Capture("Quiet_1", 3));
  CrashReportUploader uploader(nullptr, nullptr);
  EXPECT_TRUE(uploader.SendReport(u"Quiet_1"));
  EXPECT_TRUE(testing_support::PathExists(Received("Quiet_1.zip")));
  EXPECT_EQ(upload_test::TakeLogLines(log_), std::vector<LogLine>{kUploaded});
}

}  // namespace
