// The report post: host and content-type helpers, the reply reader, and the
// body that a real server on loopback receives, byte for byte.
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "log_capture.h"
#include "platform/xml_platform.h"
#include "shell/failures.h"
#include "shell/wide_string.h"
#include "test_root.h"
#include "upload/report_post.h"
#include "upload/server_discovery.h"
#include "upload_log.h"

namespace {

using Marlowen::ExtractContentType;
using Marlowen::ExtractHostName;
using Marlowen::PathBuffer;
using Marlowen::ReplyElementText;
using testing_support::TestRoot;
using upload_test::CollectorProcess;
using upload_test::LogLine;
using upload_test::StatusList;

constexpr std::uint32_t kError = 4;

struct HostCase {
  const char16_t* url;
  const char16_t* host;
};

void PrintTo(const HostCase& c, std::ostream* out) { *out << WideToUtf8(c.url); }

class ExtractHostNameTest : public testing::TestWithParam<HostCase> {};

TEST_P(ExtractHostNameTest, Host) { EXPECT_EQ(ExtractHostName(GetParam().url), GetParam().host); }

INSTANTIATE_TEST_SUITE_P(
    Urls, ExtractHostNameTest,
    testing::Values(HostCase{u"http://reports.example/CrashReportServer/Upload", u"reports.example"},
                    HostCase{u"https://127.0.0.1:8443/a/b?c=d", u"127.0.0.1:8443"},
                    HostCase{u"https://host.only", u"host.only"},
                    HostCase{u"reports.example:81/path", u"reports.example:81"},
                    HostCase{u"HTTP://upper/x", u"HTTP:"},  // the scheme test minds the case
                    HostCase{u"https://", u""},
                    HostCase{u"http:///path", u""}));

TEST(ExtractContentTypeTest, FirstLineUpToItsEnd) {
  EXPECT_EQ(ExtractContentType("Content-Length: 5\r\nContent-Type: a/b; x=\"y\"\r\n"
                               "Content-Type: second\r\n"),
            u"a/b; x=\"y\"");
  EXPECT_EQ(ExtractContentType("Content-Type: caf\xc3\xa9\r\n"), u"caf\u00e9");
  EXPECT_EQ(ExtractContentType("Content-Type: no line end"), u"");
  EXPECT_EQ(ExtractContentType("content-type: lower\r\n"), u"");
  EXPECT_EQ(ExtractContentType(""), u"");
}

TEST(ReplyElementTextTest, FirstChildMustBeText) {
  ASSERT_TRUE(Marlowen::InitializeXmlPlatform());
  const std::string reply =
      "<reply><status><b>x</b>failed</status><errorDescription><![CDATA[a<b]]></errorDescription>"
      "<deep><status>nested</status></deep><empty/><plain>one</plain><plain>two</plain></reply>";
  const Marlowen::XmlDocumentPtr document = Marlowen::ParseServerReply(reply);
  ASSERT_TRUE(document);
  const auto* root = document->getDocumentElement();
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(ReplyElementText(root, u"status"), u"");  // an element comes first
  EXPECT_EQ(ReplyElementText(root, u"errorDescription"), u"a<b");
  EXPECT_EQ(ReplyElementText(root, u"empty"), u"");
  EXPECT_EQ(ReplyElementText(root, u"plain"), u"one");
  EXPECT_EQ(ReplyElementText(root, u"missing"), u"");
  EXPECT_EQ(ReplyElementText(nullptr, u"status"), u"");
}

// A post against the collector's upload endpoint, called directly.
class ReportPostTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(log_.bound());
    ASSERT_TRUE(collector_.started());
  }

  // A zip-like file of size bytes with every byte value in it.
  std::string MakeZip(const std::string& name, std::size_t size) {
    std::string bytes(size, '\0');
    std::mt19937 random(static_cast<unsigned>(size));
    for (auto& b : bytes) b = static_cast<char>(random() & 0xFF);
    if (size > 4) bytes.replace(0, 4, "PK\x03\x04");
    const std::string path = root_.Path(name);
    testing_support::WriteFileText(path, bytes);
    return path;
  }

  TestRoot root_;
  testing_support::LogCapture log_{root_};
  CollectorProcess collector_{root_.Path("collector")};
  StatusList statuses_;
  Marlowen::UploadProgress progress_{&upload_test::RecordStatus, &statuses_};
};

TEST_F(ReportPostTest, BodyIsTheSeventeenLinesByteForByte) {
  const std::string zipName = "App_20261121093000_1234_5678.zip";
  const std::string zipPath = MakeZip(zipName, 1000);
  const std::string zip = testing_support::ReadFileText(zipPath);
  const WideString url = Utf8ToWide(collector_.Value("uploadUrl") + "?kind=report");

  ASSERT_TRUE(Marlowen::PostPackage(PathBuffer::FromUtf8(zipPath), url, progress_));

  const std::u16string id = u"App_20261121093000_1234_5678";
  EXPECT_EQ(statuses_, (StatusList{{id, 3}, {id, 4}, {id, 5}, {id, 6}, {id, 7}}));
  EXPECT_TRUE(upload_test::TakeLogLines(log_).empty());

  const auto bodies = collector_.BodyFiles();
  ASSERT_EQ(bodies.size(), 1u);
  const std::string body = testing_support::ReadFileText(bodies[0]);
  const std::vector<std::string> records = collector_.UploadRecords();
  ASSERT_EQ(records.size(), 1u);
  const std::string& record = records[0];

  // The boundary as the server saw it in the request's Content-Type.
  const std::string requestType = upload_test::JsonValue(record, "contentType");
  const std::string lead = "multipart/form-data; boundary=\"";
  ASSERT_EQ(requestType.substr(0, lead.size()), lead);
  const std::string b = requestType.substr(lead.size(), 50);
  ASSERT_EQ(requestType, lead + b + "\"");

  const std::string host = "127.0.0.1:" + collector_.Value("uploadPort");
  const std::string counted =                                         // lines 6 to 17
      "--" + b + "\r\n"                                               // 6
      "Content-Disposition: form/data; name=\"uniqueId\"\r\n"         // 7
      "\r\n"                                                          // 8
      "default\r\n"                                                   // 9
      "--" + b + "\r\n"                                               // 10
      "Content-Type: application/x-marlowen-crash-report\r\n"         // 11
      "Content-Transfer-Encoding: binary\r\n"                         // 12
      "Content-Disposition: attachment; filename=\"" + zipName + "\"\r\n"  // 13
      "Content-Length: 1000\r\n"                                      // 14
      "\r\n" +                                                        // 15
      zip + "\r\n"                                                    // 16
      "--" + b + "--";                                                // 17
  const std::size_t n = 376 + zipName.size() + 4 + 1000;
  ASSERT_EQ(counted.size(), n);
  const std::string line1 = "Content-Length: " + std::to_string(n) + "\r\n";
  const std::string expected = line1 +
                               "Content-Type: multipart/form-data; boundary=\"" + b + "\"\r\n"
                               "Host: " + host + "\r\n"
                               "User-Agent: Marlowen/1.0\r\n"
                               "\r\n" + counted;
  EXPECT_EQ(expected.size(), line1.size() + 134 + host.size() + n);
  EXPECT_TRUE(body == expected) << "body of " << body.size() << " bytes differs";

  EXPECT_EQ(upload_test::JsonValue(record, "contentLength"), std::to_string(expected.size()));
  EXPECT_EQ(upload_test::JsonValue(record, "target"), "/CrashReportServer/Upload?kind=report");
  EXPECT_EQ(testing_support::ReadFileText(collector_.Value("receivedDir") + "/" + zipName), zip);
}

TEST_F(ReportPostTest, TwoHundredIsSuccessWhateverTheReplySays) {
  const std::string zipPath = MakeZip("r.zip", 64);
  ASSERT_TRUE(collector_.SetBehaviour(
      R"({"upload": {"refusal": {"status": "failed", "errorDescription": "no"}}})"));
  EXPECT_TRUE(Marlowen::PostPackage(PathBuffer::FromUtf8(zipPath),
                                    Utf8ToWide(collector_.Value("uploadUrl")), progress_));
  EXPECT_EQ(statuses_.back(), (std::pair<std::u16string, std::uint32_t>{u"r", 7}));
  EXPECT_TRUE(upload_test::TakeLogLines(log_).empty());
}

TEST_F(ReportPostTest, EmptyHostStopsBeforeSendingAndUnopenableZipThrows) {
  const std::string zipPath = MakeZip("r.zip", 10);
  EXPECT_FALSE(Marlowen::PostPackage(PathBuffer::FromUtf8(zipPath), u"https://", progress_));
  EXPECT_EQ(upload_test::TakeLogLines(log_),
            (std::vector<LogLine>{{kError, u"Cannot extract upload server name."}}));
  EXPECT_EQ(statuses_, (StatusList{{u"r", 3}, {u"r", 4}, {u"r", 5}}));

  EXPECT_THROW((void)Marlowen::PostPackage(PathBuffer::FromUtf8(root_.Path("gone.zip")),
                                           Utf8ToWide(collector_.Value("uploadUrl")), progress_),
               FE_FileNotFound);
  EXPECT_EQ(collector_.UploadCount(), 0u);
}

TEST(ReportPostHttpsTest, SelfSignedUploadServerIsAccepted) {
  TestRoot root;
  CollectorProcess collector(root.Path("collector"), {"--upload-scheme", "https"});
  ASSERT_TRUE(collector.started());
  const std::string url = collector.Value("uploadUrl");
  ASSERT_EQ(url.substr(0, 8), "https://");
  const std::string zipPath = root.Path("secure.zip");
  testing_support::WriteFileText(zipPath, "PK\x03\x04 secure");
  EXPECT_TRUE(Marlowen::PostPackage(PathBuffer::FromUtf8(zipPath), Utf8ToWide(url), {}));
  EXPECT_EQ(testing_support::ReadFileText(collector.Value("receivedDir") + "/secure.zip"),
            "PK\x03\x04 secure");
}

}  // namespace
