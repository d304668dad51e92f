// The real ml-log-listener binary, run in a test root: what it prints for the
// records that the log client sends, and how it starts and ends.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "log_test_fixture.h"
#include "run_command.h"
#include "shell/log_client.h"
#include "test_root.h"

namespace {

using testing_support::RunCommand;

const std::string kListener = "'" ML_LOG_LISTENER_PATH "'";

// The listener with its standard output and error on one pipe; a listener
// that hangs is ended by timeout, so a read never waits for ever.
class ListenerProcess {
 public:
  explicit ListenerProcess(const std::string& arguments)
      : pipe_(popen(("timeout 20 " + kListener + " " + arguments + " 2>&1").c_str(), "r")) {}
  ~ListenerProcess() {
    if (pipe_) pclose(pipe_);
  }
  std::string Line() {
    char line[2048];
    if (!pipe_ || !std::fgets(line, sizeof line, pipe_)) return "";
    return std::string(line, strcspn(line, "\n"));
  }
  int Close() {
    const int status = pclose(pipe_);
    pipe_ = nullptr;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  FILE* pipe_;
};

class LogListenerTest : public LogTest {
 protected:
  std::string Endpoint() const { return root_.Path("run/marlowen/MLLog.1"); }
  std::string Listening() const { return "ml-log-listener: listening on " + Endpoint(); }
};

TEST_F(LogListenerTest, ReplacesALeftoverSocketPrintsOneLinePerRecordAndEndsAfterTheCount) {
  // What a killed listener leaves: a socket file that nobody is bound to.
  testing_support::MakeFolders(root_.Path("run/marlowen"));
  const int stale = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, Endpoint().c_str(), sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  close(stale);

  ListenerProcess listener("--root '" + root_.path() + "' --count 2");
  ASSERT_EQ(listener.Line(), Listening());
  struct stat status {};
  ASSERT_EQ(stat(Endpoint().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0666u);
  // A live listener is not replaced; the root comes from the environment.
  const auto second = RunCommand(kListener + " --count 1 2>&1");
  EXPECT_EQ(second.output, "ml-log-listener: Another listener is bound at " + Endpoint() + "\n");
  EXPECT_EQ(second.status, 1);

  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(LogCrashReporting(kLogError, u"Upload failed\nstatus 503 \u00E9"), 1);
  EXPECT_EQ(LogMessage(kLogInformation, 0, u"Tool", u"Setup", u"ready", u"/opt/x/tool"), 1);
  const std::time_t after = std::time(nullptr);

  const std::string first = listener.Line();
  EXPECT_TRUE(std::regex_match(first, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} UTC \| error \| Marlowen \| )"
                                                 R"(Crash Reporting \| Upload failed\\nstatus 503 \xC3\xA9)")))
      << first;
  std::tm tm{};
  ASSERT_NE(strptime(first.c_str(), "%Y-%m-%d %H:%M:%S", &tm), nullptr);
  EXPECT_GE(timegm(&tm), before);
  EXPECT_LE(timegm(&tm), after);
  EXPECT_EQ(listener.Line().substr(27), " | information | Tool | Setup | ready [origin: /opt/x/tool]");
  EXPECT_EQ(listener.Close(), 0);
  EXPECT_FALSE(testing_support::PathExists(Endpoint()));
}

TEST_F(LogListenerTest, BadCommandLineIsRefusedAndTermSignalEndsItCleanly) {
  for (const char* arguments : {"--count 0", "--count x1", "--root", "--verbose"}) {
    const auto result = RunCommand(kListener + " " + arguments + " 2>&1");
    EXPECT_EQ(result.output.rfind("ml-log-listener: ", 0), 0u) << arguments;
    EXPECT_EQ(result.status, 2) << arguments;
  }
  EXPECT_FALSE(testing_support::PathExists(Endpoint()));

  const auto result = RunCommand(kListener + " 2>&1 & for i in $(seq 1000); do [ -S '" + Endpoint() +
                                 "' ] && break; sleep 0.01; done; kill -TERM $!; wait $!; echo \"exit $?\"");
  EXPECT_EQ(result.output, Listening() + "\nexit 0\n");
  EXPECT_FALSE(testing_support::PathExists(Endpoint()));
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"after"), 0);
}

}  // namespace
