// Server discovery against the test collector: the certificate check of the
// information request, the carried bundle, and the reading of its reply.
#include <cstdint>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "log_capture.h"
#include "shell/wide_string.h"
#include "test_root.h"
#include "upload/ca_bundle.h"
#include "upload/server_discovery.h"
#include "upload_log.h"

namespace {

using testing_support::TestRoot;
using upload_test::CollectorProcess;
using upload_test::LogLine;

constexpr std::uint32_t kError = 4;

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
  // A refused handshake is logged by the collector after the client has
  // already given up, so the third line may trail the call by a moment.
  for (int i = 0; i < 100 && collector_.InfoRequestCount() < 3u; ++i) usleep(20000);
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

}  // namespace
