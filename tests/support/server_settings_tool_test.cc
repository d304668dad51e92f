// ml-server-settings run as a program against a test root.
#include <gtest/gtest.h>

#include <string>

#include "run_command.h"
#include "support/server_settings.h"
#include "test_root.h"

namespace {

using namespace Marlowen;
using testing_support::ReadFileText;

// The tool with `input` on its standard input; the test root's MARLOWEN_ROOT
// reaches it through the environment.
testing_support::CommandResult RunTool(const std::string& arguments, const std::string& input = "") {
  return testing_support::RunCommand("printf '%s' '" + input + "' | '" ML_SERVER_SETTINGS_TOOL "' " + arguments + " 2>&1");
}

TEST(ServerSettingsToolTest, WritesWhatTheReadersSeeAndRefusesBadInput) {
  testing_support::TestRoot root;
  const std::string file = root.Path("var/lib/Marlowen/Server Settings/Server.xml");
  const WideString path = Utf8ToWide(file);
  auto shown = RunTool("show");
  EXPECT_EQ(shown.status, 0);
  EXPECT_NE(shown.output.find("ServerPort: 7000\n"), std::string::npos) << shown.output;
  EXPECT_NE(shown.output.find("(absent; defaults shown)"), std::string::npos);

  EXPECT_EQ(RunTool("set-port 8080").status, 0);
  EXPECT_EQ(RunTool("set-require-client-ssl on").status, 0);
  EXPECT_EQ(RunTool("set-sma-number SMA-1234").status, 0);
  // The account replaces the file, but the tool carries the other settings over.
  EXPECT_EQ(RunTool("set-account backup CORP", "pa55 word\n").status, 0);
  EXPECT_EQ(GetServerPort(path.c_str(), false), 8080);
  EXPECT_EQ(GetRequireClientSSL(path.c_str()), 1);
  WideString sma, user, password, domain;
  GetSMANumber(path.c_str(), sma);
  EXPECT_EQ(sma, u"SMA-1234");
  ASSERT_EQ(GetAccount(path.c_str(), user, password, domain, 256), 1);
  EXPECT_EQ(user + u"|" + password + u"|" + domain, u"backup|pa55 word|CORP");

  shown = RunTool("show");
  EXPECT_NE(shown.output.find("ServerPort: 8080\nServerPortSSL: 7001\nRequireClientSSL: 1\n"), std::string::npos)
      << shown.output;
  EXPECT_NE(shown.output.find("Password: set\n"), std::string::npos);
  EXPECT_EQ(shown.output.find("pa55"), std::string::npos);

  const std::string before = ReadFileText(file);
  for (const char* bad : {"", "set-port", "set-port 0", "set-port 70000", "set-port 80x", "set-debug-logging maybe",
                          "frobnicate", "--file"}) {
    auto result = RunTool(bad);
    EXPECT_EQ(result.status, 2) << bad;
    EXPECT_NE(result.output.find("Usage: ml-server-settings"), std::string::npos) << bad;
  }
  EXPECT_EQ(RunTool("set-account someone", std::string(65, 'x')).status, 2);
  EXPECT_EQ(ReadFileText(file), before);

  // A file that is not a settings file is left alone.
  const std::string other = root.Path("other.xml");
  testing_support::WriteFileText(other, "<html/>");
  auto refused = RunTool("--file '" + other + "' set-port 9000");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("not a settings file"), std::string::npos) << refused.output;
  EXPECT_EQ(ReadFileText(other), "<html/>");
}

}  // namespace
