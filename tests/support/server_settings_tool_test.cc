// ml-server-settings run as a program against a test root.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/server_settings.h"
#include "test_root.h"

namespace {

using namespace Marlowen;

struct RunResult {
  int status = -1;
  std::string output;
};

// Runs the tool through the shell with `input` on its standard input; the
// test root's MARLOWEN_ROOT reaches it through the environment.
RunResult RunTool(const std::string& arguments, const std::string& input = "") {
  const std::string command =
      "printf '%s' '" + input + "' | '" ML_SERVER_SETTINGS_TOOL "' " + arguments + " 2>&1";
  RunResult result;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return result;
  char chunk[4096];
  std::size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) result.output.append(chunk, n);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

TEST(ServerSettingsToolTest, WritesWhatTheReadersSeeAndRefusesBadInput) {
  testing_support::TestRoot root;
  const std::string file = root.Path("var/lib/Marlowen/Server Settings/Server.xml");
  const WideString path = Utf8ToWide(file);

  RunResult shown = RunTool("show");
  EXPECT_EQ(shown.status, 0);
  EXPECT_NE(shown.output.find("ServerPort: 7000\n"), std::string::npos) << shown.output;
  EXPECT_NE(shown.output.find("(absent; defaults shown)"), std::string::npos);

  EXPECT_EQ(RunTool("set-port 8080").status, 0);
  EXPECT_EQ(RunTool("set-require-client-ssl on").status, 0);
  EXPECT_EQ(RunTool("set-sma-number SMA-1234").status, 0);
  // The account replaces the file, but the tool carries the other settings over.
  RunResult account = RunTool("set-account backup CORP", "pa55 word\n");
  EXPECT_EQ(account.status, 0) << account.output;

  EXPECT_EQ(GetServerPort(path.c_str(), false), 8080);
  EXPECT_EQ(GetRequireClientSSL(path.c_str()), 1);
  WideString sma;
  GetSMANumber(path.c_str(), sma);
  EXPECT_EQ(sma, u"SMA-1234");
  WideString user, password, domain;
  ASSERT_EQ(GetAccount(path.c_str(), user, password, domain, 256), 1);
  EXPECT_EQ(user, u"backup");
  EXPECT_EQ(password, u"pa55 word");
  EXPECT_EQ(domain, u"CORP");

  shown = RunTool("show");
  EXPECT_NE(shown.output.find("ServerPort: 8080\nServerPortSSL: 7001\nRequireClientSSL: 1\n"), std::string::npos)
      << shown.output;
  EXPECT_NE(shown.output.find("Password: set\n"), std::string::npos);
  EXPECT_EQ(shown.output.find("pa55"), std::string::npos);

  const std::string before = testing_support::ReadFileText(file);
  for (const char* bad : {"", "set-port", "set-port 0", "set-port 70000", "set-port 80x", "set-debug-logging maybe",
                          "frobnicate", "--file"}) {
    RunResult result = RunTool(bad);
    EXPECT_EQ(result.status, 2) << bad;
    EXPECT_NE(result.output.find("Usage: ml-server-settings"), std::string::npos) << bad;
  }
  EXPECT_EQ(RunTool("set-account someone", std::string(65, 'x')).status, 2);
  EXPECT_EQ(testing_support::ReadFileText(file), before);

  // A file that is not a settings file is left alone.
  const std::string other = root.Path("other.xml");
  testing_support::WriteFileText(other, "<html/>");
  RunResult refused = RunTool("--file '" + other + "' set-port 9000");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("not a settings file"), std::string::npos) << refused.output;
  EXPECT_EQ(testing_support::ReadFileText(other), "<html/>");
}

}  // namespace
