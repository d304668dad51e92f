// SendReport and SendAllReports on a real report folder against the test
// collector: statuses, log lines and files kept for every way to fail.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "report_test_support.h"
#include "upload/crash_report_uploader.h"

namespace {

using Marlowen::CrashReportUploader;
using testing_support::ListFolder;
using testing_support::WriteFileText;
using upload_test::LogLines;
using upload_test::StatusList;

const LogLines::value_type kUploaded{2, u"Crash report uploaded successfully."};

StatusList Statuses(const std::u16string& id, std::initializer_list<std::uint32_t> statuses) {
  StatusList list;
  for (std::uint32_t s : statuses) list.emplace_back(id, s);
  return list;
}

class SendReportTest : public upload_test::CollectorTest {
 protected:
  void SetUp() override {
    CollectorTest::SetUp();
    testing_support::MakeFolders(folder_);
  }
  std::string In(const std::string& name) const { return folder_ + "/" + name; }
  std::string Received(const std::string& name) const {
    return collector_.Value("receivedDir") + "/" + name;
  }

  std::string folder_ = root_.ReportFolder();
  StatusList statuses_;
  CrashReportUploader uploader_{&upload_test::RecordStatus, &statuses_};
};

TEST_F(SendReportTest, CapturedReportGoesOutWithStatusesOneToSeven) {
  const std::string name = "App_20260102030405_10_11";
  ASSERT_TRUE(packaging_test::WriteCapturedReport(folder_, name, packaging_test::DumpLikeBytes(4096, 1)));
  EXPECT_TRUE(uploader_.SendReport(Utf8ToWide(name)));

  EXPECT_EQ(statuses_, Statuses(Utf8ToWide(name), {1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(log_.Drain(), LogLines{kUploaded});
  EXPECT_TRUE(ListFolder(folder_).empty());
  EXPECT_EQ(packaging_test::ExtractZipEntry(Received(name + ".zip"), name + ".dmp"),
            packaging_test::DumpLikeBytes(4096, 1));
}

TEST_F(SendReportTest, AnUnpackagedReportStaysAndSendAllIsTrueWhenAnyOneGoesOut) {
  CrashReportUploader quiet(nullptr, nullptr);
  EXPECT_FALSE(quiet.SendAllReports()) << "an empty folder";

  WriteFileText(In("App_1.dmp"), "dump without record");
  EXPECT_FALSE(uploader_.SendReport(u"App_1"));
  EXPECT_EQ(statuses_, (StatusList{{u"App_1", 1}}));
  EXPECT_EQ(log_.Drain(),
            (LogLines{{3, u"The file '" + Utf8ToWide(In("App_1.dat")) + u"' does not exist."},
                      {4, u"Cannot create crash report XML file (App_1)."},
                      {4, u"Cannot create crash report zip file (App_1)."}}));
  EXPECT_EQ(collector_.InfoRequestCount(), 0u);

  // A zip beside it goes out, with nobody told of the statuses.
  WriteFileText(In("C_3.zip"), "PK zip");
  EXPECT_TRUE(quiet.SendAllReports());
  EXPECT_EQ(testing_support::ReadFileText(Received("C_3.zip")), "PK zip");
  EXPECT_FALSE(quiet.SendAllReports()) << "nothing that can go";
  EXPECT_EQ(ListFolder(folder_), std::vector<std::string>{"App_1.dmp"});
}

TEST_F(SendReportTest, OwnReportsAreRefusedBeforeAnything) {
  WriteFileText(In("Marlowen Crash Report Uploader_1.zip"), "PK own");
  EXPECT_FALSE(uploader_.SendReport(u"Marlowen Crash Report Uploader_1"));
  EXPECT_TRUE(statuses_.empty());
  EXPECT_EQ(log_.Drain(), (LogLines{{4, u"Cannot upload crash reports from the crash report uploader. "
                                        u"Please send this report to Marlowen by email."}}));
  EXPECT_TRUE(testing_support::PathExists(In("Marlowen Crash Report Uploader_1.zip")));

  // Only the beginning counts.
  WriteFileText(In("X Marlowen Crash Report Uploader_1.zip"), "PK other");
  EXPECT_TRUE(uploader_.SendReport(u"X Marlowen Crash Report Uploader_1"));
  EXPECT_EQ(collector_.UploadCount(), 1u);
}

// One way for the upload to fail: the collector's behaviour and what the
// chain logs before the uploader's own line.
struct FailureRow {
  const char* name;
  const char* behaviour;
  LogLines lines;
  bool posted;  // the chain reached the send
};

void PrintTo(const FailureRow& row, std::ostream* out) { *out << row.name; }

class FailedUploadTest : public SendReportTest, public testing::WithParamInterface<FailureRow> {};

TEST_P(FailedUploadTest, LogsInOrderKeepsTheZipAndALaterRunSendsIt) {
  // A package left by an earlier run: packaging is skipped.
  const std::u16string id = u"Tool_20260102030405_7_8";
  const std::string zip = "PK\x03\x04 package of an earlier run";
  WriteFileText(In("Tool_20260102030405_7_8.zip"), zip);
  ASSERT_TRUE(collector_.SetBehaviour(GetParam().behaviour));
  EXPECT_FALSE(uploader_.SendReport(id));

  EXPECT_EQ(statuses_, GetParam().posted ? Statuses(id, {1, 2, 3, 4, 5, 6, 0}) : Statuses(id, {1, 2, 0}));
  LogLines lines = GetParam().lines;
  lines.emplace_back(4, u"Cannot upload crash report to Marlowen (Tool_20260102030405_7_8).");
  EXPECT_EQ(log_.Drain(), lines);
  EXPECT_EQ(testing_support::ReadFileText(In("Tool_20260102030405_7_8.zip")), zip);
  EXPECT_TRUE(NoCaFileLeft());

  // The next run finds the zip and posts the same bytes.
  ASSERT_TRUE(collector_.ResetBehaviour());
  statuses_.clear();
  EXPECT_TRUE(CrashReportUploader(&upload_test::RecordStatus, &statuses_).SendAllReports());
  EXPECT_EQ(statuses_, Statuses(id, {1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(log_.Drain(), LogLines{kUploaded});
  EXPECT_TRUE(ListFolder(folder_).empty());
  EXPECT_EQ(testing_support::ReadFileText(Received("Tool_20260102030405_7_8.zip")), zip);
}

LogLines::value_type Error(const char16_t* text) { return {4, text}; }
LogLines::value_type Info(const std::u16string& text) { return {2, text}; }
const auto kPostFailed = Error(u"Error during crash report upload wit XML server.");
const LogLines kNoInfo{Error(u"Failed to request crash report upload URL"),
                       Error(u"Cannot retrieve the crash report upload information.")};
const LogLines kInvalidInfo{Error(u"Invalid XML retrieved from upload URL"),
                            Error(u"Cannot retrieve the crash report upload information.")};
const LogLines kNotRunning{Error(u"Marlowen upload server is not running.")};
const LogLines kSendFailed{Error(u"Send request failed."), kPostFailed};

// The lines of a reply other than 200: its status, its type, what was read of it.
LogLines Refused(const char16_t* status, const std::u16string& type, LogLines read) {
  read.insert(read.begin(), {Error(status), Info(u"Content type of response from the upload server is " + type + u".")});
  read.push_back(kPostFailed);
  return read;
}
LogLines Refused500(LogLines read) {
  return Refused(u"500 status code received from the upload server.", u"text/xml", std::move(read));
}
LogLines Submission(const char16_t* status, const char16_t* error) {
  return {Info(u"Report submission status from upload server: '" + std::u16string(status) + u"'."),
          Info(u"Report submission error from upload server: '" + std::u16string(error) + u"'.")};
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FailedUploadTest,
    testing::Values(
        FailureRow{"InfoRefused", R"({"info": {"mode": "refuse"}})", kNoInfo, false},
        FailureRow{"InfoClosed", R"({"info": {"mode": "close"}})", kNoInfo, false},
        FailureRow{"InfoSelfSigned", R"({"info": {"certificate": "self-signed"}})", kNoInfo, false},
        FailureRow{"InfoNotFoundPage", R"({"info": {"httpStatus": 404, "contentType": "text/html",
                       "body": "<html><body><h1>Not Found</h1></body></html>"}})", kInvalidInfo, false},
        FailureRow{"InfoRootCase", R"({"info": {"root": "CRASHREPORTSERVERINFORMATION"}})", kInvalidInfo, false},
        FailureRow{"StatusWithBlank", R"({"info": {"status": " running"}})", kNotRunning, false},
        FailureRow{"StatusStopped", R"({"info": {"status": "stopped"}})", kNotRunning, false},
        FailureRow{"NothingUnderRoot", R"({"info": {"status": null, "uploadUrl": null}})", kNotRunning, false},
        FailureRow{"NoUploadUrl", R"({"info": {"uploadUrl": null}})",
                   {Error(u"Invalid crash report upload information received.")}, false},
        FailureRow{"UploadRefused", R"({"upload": {"mode": "refuse"}})", kSendFailed, true},
        FailureRow{"UploadClosed", R"({"upload": {"mode": "close"}})", kSendFailed, true},
        FailureRow{"RefusalDocument", R"({"upload": {"httpStatus": 500, "contentType": "TEXT/XML",
                       "refusal": {"status": "rejected", "errorDescription": "bad package"}}})",
                   Refused(u"500 status code received from the upload server.", u"TEXT/XML",
                           Submission(u"rejected", u"bad package")), true},
        FailureRow{"RefusalWithCharset", R"({"upload": {"httpStatus": 500,
                       "contentType": "text/xml; charset=utf-8", "refusal": {"status": "rejected"}}})",
                   Refused(u"500 status code received from the upload server.", u"text/xml; charset=utf-8", {}),
                   true},
        // A status whose first child is an element reads as empty; CDATA reads as text.
        FailureRow{"RefusalNestedStatus", R"({"upload": {"httpStatus": 500, "contentType": "text/xml",
                       "body": "<r><status><x/>no</status><errorDescription><![CDATA[a<b]]></errorDescription></r>"}})",
                   Refused500(Submission(u"", u"a<b")), true},
        FailureRow{"RefusalEmptyBody", R"({"upload": {"httpStatus": 500, "contentType": "text/xml", "body": ""}})",
                   Refused500({Error(u"The data set from the upload server is empty.")}), true},
        FailureRow{"RefusalNotXml", R"({"upload": {"httpStatus": 500, "contentType": "text/xml", "body": "OK"}})",
                   Refused500({Error(u"Error reading error description from the upload server.")}), true},
        FailureRow{"Created", R"({"upload": {"httpStatus": 201}})",
                   Refused(u"201 status code received from the upload server.", u"text/plain", {}), true},
        FailureRow{"NoContent", R"({"upload": {"httpStatus": 204}})",
                   {Error(u"204 status code received from the upload server."),
                    Error(u"Cannot get the content type of response from the upload server."), kPostFailed},
                   true}),
    [](const testing::TestParamInfo<FailureRow>& info) { return std::string(info.param.name); });

}  // namespace
