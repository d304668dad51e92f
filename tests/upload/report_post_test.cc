// The report post: the host and content-type helpers, and the body that a
// real server on loopback receives, byte for byte.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "shell/failures.h"
#include "test_root.h"
#include "upload/report_post.h"

namespace {

using Marlowen::PathBuffer;
using upload_test::CollectorProcess;
using upload_test::LogLines;
using upload_test::StatusList;

// The usual forms are seen in the posts below, in the Host and Content-Type
// the collector receives.
TEST(ReportPostTest, ExtractHostNameAndContentTypeOddForms) {
  EXPECT_EQ(Marlowen::ExtractHostName(u"https://host.only"), u"host.only");
  EXPECT_EQ(Marlowen::ExtractHostName(u"reports.example:81/path"), u"reports.example:81");
  EXPECT_EQ(Marlowen::ExtractHostName(u"HTTP://upper/x"), u"HTTP:");  // the scheme test minds the case
  EXPECT_EQ(Marlowen::ExtractContentType("Content-Type: caf\xc3\xa9\r\nContent-Type: 2\r\n"), u"caf\u00e9");
  EXPECT_EQ(Marlowen::ExtractContentType("Content-Type: no line end"), u"");
  EXPECT_EQ(Marlowen::ExtractContentType("content-type: lower\r\n"), u"");
}

class ReportPostCollectorTest : public upload_test::CollectorTest {
 protected:
  // A zip-like file with every byte value in it.
  std::string MakeZip(const std::string& name, std::size_t size) {
    std::string bytes = "PK\x03\x04";
    for (std::size_t i = 4; i < size; ++i) bytes += static_cast<char>(i * 37);
    testing_support::WriteFileText(root_.Path(name), bytes);
    return root_.Path(name);
  }
  bool Post(const std::string& zipPath, const std::string& url) {
    return Marlowen::PostPackage(PathBuffer::FromUtf8(zipPath), Utf8ToWide(url), progress_);
  }

  StatusList statuses_;
  Marlowen::UploadProgress progress_{&upload_test::RecordStatus, &statuses_};
};

TEST_F(ReportPostCollectorTest, BodyIsTheSeventeenLinesByteForByte) {
  const std::string zipName = "App_20261121093000_1234_5678.zip";
  const std::string zip = testing_support::ReadFileText(MakeZip(zipName, 1000));
  ASSERT_TRUE(Post(root_.Path(zipName), collector_.Value("uploadUrl") + "?kind=report"));

  const std::u16string id = u"App_20261121093000_1234_5678";
  EXPECT_EQ(statuses_, (StatusList{{id, 3}, {id, 4}, {id, 5}, {id, 6}, {id, 7}}));
  EXPECT_TRUE(log_.Drain().empty());

  const auto bodies = testing_support::ListFolder(collector_.Value("bodiesDir"));
  const std::vector<std::string> records = collector_.UploadRecords();
  ASSERT_EQ(bodies.size(), 1u);
  ASSERT_EQ(records.size(), 1u);
  const std::string body = testing_support::ReadFileText(collector_.Value("bodiesDir") + "/" + bodies[0]);

  // The boundary as the server saw it in the request's Content-Type.
  const std::string requestType = upload_test::JsonValue(records[0], "contentType");
  const std::string lead = "multipart/form-data; boundary=\"";
  const std::string b = requestType.substr(lead.size(), 50);
  ASSERT_EQ(requestType, lead + b + "\"");

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
  const std::string expected = "Content-Length: " + std::to_string(n) + "\r\n"
                               "Content-Type: multipart/form-data; boundary=\"" + b + "\"\r\n"
                               "Host: 127.0.0.1:" + collector_.Value("uploadPort") + "\r\n"
                               "User-Agent: Marlowen/1.0\r\n"
                               "\r\n" + counted;
  EXPECT_TRUE(body == expected) << "body of " << body.size() << " bytes differs";

  EXPECT_EQ(upload_test::JsonValue(records[0], "contentLength"), std::to_string(expected.size()));
  EXPECT_EQ(upload_test::JsonValue(records[0], "target"), "/CrashReportServer/Upload?kind=report");
  EXPECT_EQ(testing_support::ReadFileText(collector_.Value("receivedDir") + "/" + zipName), zip);
}

TEST_F(ReportPostCollectorTest, TwoHundredIsSuccessWhateverTheReplySays) {
  ASSERT_TRUE(collector_.SetBehaviour(
      R"({"upload": {"refusal": {"status": "failed", "errorDescription": "no"}}})"));
  EXPECT_TRUE(Post(MakeZip("r.zip", 64), collector_.Value("uploadUrl")));
  EXPECT_EQ(statuses_.back(), (std::pair<std::u16string, std::uint32_t>{u"r", 7}));
  EXPECT_TRUE(log_.Drain().empty());
}

TEST_F(ReportPostCollectorTest, EmptyHostStopsBeforeSendingAndUnopenableZipThrows) {
  EXPECT_FALSE(Post(MakeZip("r.zip", 10), "https://"));
  EXPECT_EQ(log_.Drain(), (LogLines{{4, u"Cannot extract upload server name."}}));
  EXPECT_EQ(statuses_, (StatusList{{u"r", 3}, {u"r", 4}, {u"r", 5}}));

  EXPECT_THROW((void)Post(root_.Path("gone.zip"), collector_.Value("uploadUrl")), FE_FileNotFound);
  EXPECT_EQ(collector_.UploadCount(), 0u);
}

TEST(ReportPostHttpsTest, SelfSignedUploadServerIsAccepted) {
  testing_support::TestRoot root;
  CollectorProcess collector(root.Path("collector"), {"--upload-scheme", "https"});
  ASSERT_TRUE(collector.started());
  const std::string url = collector.Value("uploadUrl");
  ASSERT_EQ(url.substr(0, 8), "https://");
  testing_support::WriteFileText(root.Path("secure.zip"), "PK\x03\x04 secure");
  EXPECT_TRUE(Marlowen::PostPackage(PathBuffer::FromUtf8(root.Path("secure.zip")), Utf8ToWide(url), {}));
  EXPECT_EQ(testing_support::ReadFileText(collector.Value("receivedDir") + "/secure.zip"),
            "PK\x03\x04 secure");
}

}  // namespace
