// Server discovery against the test collector: the trusted CA, the carried
// bundle, and the reading of the reply.
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "upload/ca_bundle.h"
#include "upload/server_discovery.h"

namespace {

using upload_test::LogLines;

class ServerDiscoveryTest : public upload_test::CollectorTest {};

// A self-signed information server is one of the failure rows of the upload.
TEST_F(ServerDiscoveryTest, TrustsTheGivenCaOnlyAndLeavesNoCaFile) {
  WideString state, url;
  ASSERT_TRUE(Marlowen::RequestUploadServerInfo(state, url));
  EXPECT_EQ(state, u"running");
  EXPECT_EQ(url, Utf8ToWide(collector_.Value("uploadUrl")));
  EXPECT_TRUE(NoCaFileLeft());

  // Without the override the carried bundle is used, and it does not hold
  // the collector's CA.
  unsetenv("MARLOWEN_CA_BUNDLE");
  EXPECT_FALSE(Marlowen::RequestUploadServerInfo(state, url));
  EXPECT_TRUE(NoCaFileLeft());
  EXPECT_EQ(log_.Drain(), (LogLines{{4, u"Failed to request crash report upload URL"}}));
  // A refused handshake is logged by the collector after the client has
  // already given up, so the second line may trail the call by a moment.
  for (int i = 0; i < 100 && collector_.InfoRequestCount() < 2u; ++i) usleep(20000);
  EXPECT_GE(collector_.InfoRequestCount(), 2u);
}

TEST(CarriedCaBundleTest, IsTheBundleOfTheBuildMachine) {
  const std::string bundle = testing_support::ReadFileText(ML_CA_BUNDLE_FILE);
  ASSERT_FALSE(bundle.empty());
  EXPECT_TRUE(Marlowen::EmbeddedCaBundle() == bundle);
  unsetenv("MARLOWEN_CA_BUNDLE");
  EXPECT_EQ(Marlowen::CaBundleText(), Utf8ToWide(bundle));
}

TEST_F(ServerDiscoveryTest, ReadsTheReplyAsTold) {
  const struct {
    const char* body;  // JSON-escaped
    bool valid;
    const char16_t* state;
    const char16_t* url;
  } cases[] = {
      {"<CrashReportServerInformation><status>RUNNING</status><uploadUrl>http://u/x</uploadUrl>"
       "</CrashReportServerInformation>", true, u"RUNNING", u"http://u/x"},
      {"<CrashReportServerInformation><status>run<!-- x -->ning<b>no</b><![CDATA[!]]></status>"
       "</CrashReportServerInformation>", true, u"running", u""},
      {"<CrashReportServerInformation><a><b><uploadUrl>first</uploadUrl></b></a>"
       "<uploadUrl>second</uploadUrl><status> running\\n</status></CrashReportServerInformation>",
       true, u" running\n", u"first"},
      {"running", false, u"", u""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    ASSERT_TRUE(collector_.SetBehaviour(std::string(R"({"info": {"body": ")") + c.body + R"("}})"));
    WideString state = u"old", url = u"old";
    EXPECT_EQ(Marlowen::RequestUploadServerInfo(state, url), c.valid);
    if (c.valid) {
      EXPECT_EQ(state, c.state);
      EXPECT_EQ(url, c.url);
    } else {
      EXPECT_EQ(log_.Drain(), (LogLines{{4, u"Invalid XML retrieved from upload URL"}}));
    }
  }
}

}  // namespace
