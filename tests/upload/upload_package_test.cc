// Server discovery and the whole way of one package against the test
// collector: the certificate check of the information request, the reading
// of its reply, and every failure with its log lines in order.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "log_capture.h"
#include "shell/wide_string.h"
#include "test_root.h"
#include "upload/ca_bundle.h"
#include "upload/server_discovery.h"
#include "upload_log.h"

namespace {

using Marlowen::PathBuffer;
using testing_support::TestRoot;
using upload_test::CollectorProcess;
using upload_test::LogLine;
using upload_test::StatusList;

constexpr std::uint32_t kError = 4;
constexpr std::uint32_t kInformation = 2;

// Temporary files of the CA bundle left in the test's temporary folder.
std::vector<std::string> LeftoverCaFiles(const TestRoot& root) {
  std::vector<std::string> found;
  const std::string tmp = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp";
  for (const auto& name : testing_support::ListFolder(tmp)) {
    if (name.rfind("MLC", 0) == 0) found.push_back(name);
  }
  return found;
}

class ServerDiscoveryTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(log_.bound());
    ASSERT_TRUE(collector_.started());
    collector_.UseAsServers();
  }
  void TearDown() override {
    unsetenv("MARLOWEN_INFO_SERVER");
    unsetenv("MARLOWEN_CA_BUNDLE");
  }

  TestRoot root_;
  testing_support::LogCapture log_{root_};
  CollectorProcess collector_{root_.Path("collector")};
};

TEST_F(ServerDiscoveryTest, TrustsTheGivenCaOnlyAndLeavesNoCaFile) {
  WideString state, url;
  ASSERT_TRUE(Marlowen::RequestUploadServerInfo(state, url));
  EXPECT_EQ(state, u"running");
  EXPECT_EQ(url, Utf8ToWide(collector_.Value("uploadUrl")));
  EXPECT_TRUE(LeftoverCaFiles(root_).empty());

  ASSERT_TRUE(collector_.SetBehaviour(R"({"info": {"certificate": "self-signed"}})"));
  EXPECT_FALSE(Marlowen::RequestUploadServerInfo(state, url));
  EXPECT_TRUE(LeftoverCaFiles(root_).empty());

  // Without the override the carried bundle is used, and it does not hold
  // the collector's CA.
  ASSERT_TRUE(collector_.ResetBehaviour());
  unsetenv("MARLOWEN_CA_BUNDLE");
  EXPECT_FALSE(Marlowen::RequestUploadServerInfo(state, url));
  EXPECT_TRUE(LeftoverCaFiles(root_).empty());

  EXPECT_EQ(upload_test::TakeLogLines(log_),
            (std::vector<LogLine>{{kError, u"Failed to request crash report upload URL"},
                                  {kError, u"Failed to request crash report upload URL"}}));
  EXPECT_GE(collector_.InfoRequestCount(), 3u);
}

TEST(CarriedCaBundleTest, IsTheBundleOfTheBuildMachine) {
  const std::string bundle = testing_support::ReadFileText(ML_CA_BUNDLE_FILE);
  ASSERT_FALSE(bundle.empty());
  EXPECT_TRUE(Marlowen::EmbeddedCaBundle() == bundle);
  unsetenv("MARLOWEN_CA_BUNDLE");
  EXPECT_EQ(Marlowen::CaBundleText(), Utf8ToWide(bundle));
}

struct ReplyCase {
  const char* name;
  const char* body;
  bool valid;
  const char16_t* state;
  const char16_t* url;
};

TEST_F(ServerDiscoveryTest, ReadsTheReplyAsTold) {
  const ReplyCase cases[] = {
      {"upper-case status", "<CrashReportServerInformation><status>RUNNING</status>"
                            "<uploadUrl>http://u/x</uploadUrl></CrashReportServerInformation>",
       true, u"RUNNING", u"http://u/x"},
      {"comment splits the text", "<CrashReportServerInformation><status>run<!-- x -->ning"
                                  "<b>no</b><![CDATA[!]]></status></CrashReportServerInformation>",
       true, u"running", u""},
      {"nested and repeated", "<CrashReportServerInformation><a><b><uploadUrl>first</uploadUrl></b>"
                              "</a><uploadUrl>second</uploadUrl><status> running\n</status>"
                              "</CrashReportServerInformation>",
       true, u" running\n", u"first"},
      {"root in other case", "<crashReportServerInformation><status>running</status>"
                             "</crashReportServerInformation>",
       false, u"", u""},
      {"not XML", "running", false, u"", u""},
  };
  for (const ReplyCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::string body;
    for (const char* p = c.body; *p; ++p) {
      if (*p == '"' || *p == '\\') body += '\\';
      body += *p == '\n' ? std::string("\\n") : std::string(1, *p);
    }
    ASSERT_TRUE(collector_.SetBehaviour(R"({"info": {"body": ")" + body + R"("}})"));
    WideString state = u"old", url = u"old";
    EXPECT_EQ(Marlowen::RequestUploadServerInfo(state, url), c.valid);
    if (c.valid) {
      EXPECT_EQ(state, c.state);
      EXPECT_EQ(url, c.url);
    } else {
      EXPECT_EQ(upload_test::TakeLogLines(log_),
                (std::vector<LogLine>{{kError, u"Invalid XML retrieved from upload URL"}}));
    }
  }
}

struct FailureRow {
  const char* name;
  const char* behaviour;
  std::vector<LogLine> lines;
  bool posted;  // the chain reached the send
};

void PrintTo(const FailureRow& row, std::ostream* out) { *out << row.name; }

class UploadPackageFailureTest : public ServerDiscoveryTest,
                                 public testing::WithParamInterface<FailureRow> {};

const LogLine kCannotRetrieve{kError, u"Cannot retrieve the crash report upload information."};
const LogLine kInvalidXml{kError, u"Invalid XML retrieved from upload URL"};
const LogLine kPostFailed{kError, u"Error during crash report upload wit XML server."};
const LogLine kStatus500{kError, u"500 status code received from the upload server."};

TEST_P(UploadPackageFailureTest, LogsInOrderAndKeepsTheZip) {
  const std::string zipPath = root_.Path("Rep_1.zip");
  testing_support::WriteFileText(zipPath, "PK\x03\x04 zip");
  ASSERT_TRUE(collector_.SetBehaviour(GetParam().behaviour));

  StatusList statuses;
  EXPECT_FALSE(Marlowen::UploadPackage(PathBuffer::FromUtf8(zipPath),
                                       {&upload_test::RecordStatus, &statuses}));
  EXPECT_EQ(upload_test::TakeLogLines(log_), GetParam().lines);
  StatusList expected{{u"Rep_1", 2}};
  if (GetParam().posted) {
    for (std::uint32_t s : {3u, 4u, 5u, 6u}) expected.emplace_back(u"Rep_1", s);
  }
  EXPECT_EQ(statuses, expected);
  EXPECT_EQ(testing_support::ReadFileText(zipPath), "PK\x03\x04 zip");
  EXPECT_TRUE(LeftoverCaFiles(root_).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, UploadPackageFailureTest,
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

TEST_F(ServerDiscoveryTest, WholeWaySucceedsWithStatusesTwoToSeven) {
  const std::string zipPath = root_.Path("Good_2.zip");
  testing_support::WriteFileText(zipPath, "PK\x03\x04 good");
  StatusList statuses;
  EXPECT_TRUE(Marlowen::UploadPackage(PathBuffer::FromUtf8(zipPath),
                                      {&upload_test::RecordStatus, &statuses}));
  EXPECT_EQ(statuses, (StatusList{{u"Good_2", 2}, {u"Good_2", 3}, {u"Good_2", 4},
                                  {u"Good_2", 5}, {u"Good_2", 6}, {u"Good_2", 7}}));
  EXPECT_TRUE(upload_test::TakeLogLines(log_).empty());
  EXPECT_EQ(testing_support::ReadFileText(collector_.Value("receivedDir") + "/Good_2.zip"),
            "PK\x03\x04 good");
  EXPECT_TRUE(LeftoverCaFiles(root_).empty());
}

}  // namespace
