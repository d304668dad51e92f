// The real ml-log-listener binary, run in a test root: what it prints for the
// records that the log client sends, and how it starts and ends.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "shell/log_client.h"
#include "log_test_fixture.h"
#include "test_root.h"

namespace {

// The listener as a child process with its stdout and stderr on pipes.
class ListenerProcess {
 public:
  explicit ListenerProcess(std::vector<std::string> arguments) {
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return;
    arguments.insert(arguments.begin(), ML_LOG_LISTENER_PATH);
    std::vector<char*> argv;
    for (std::string& a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], 1);
      dup2(err[1], 2);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(out[1]);
    close(err[1]);
    out_ = out[0];
    err_ = err[0];
  }

  ~ListenerProcess() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(out_);
    close(err_);
  }

  std::optional<std::string> OutLine() { return ReadLine(out_); }
  std::optional<std::string> ErrLine() { return ReadLine(err_); }
  void Signal(int number) { kill(pid_, number); }

  // The exit status, or -1 if it didn't exit normally.
  int Wait() {
    int status = 0;
    const pid_t done = waitpid(pid_, &status, 0);
    pid_ = -1;
    return done > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  static std::optional<std::string> ReadLine(int fd) {
    std::string line;
    for (char c; ;) {
      pollfd wait{fd, POLLIN, 0};
      if (poll(&wait, 1, 10000) != 1 || read(fd, &c, 1) != 1) return std::nullopt;
      if (c == '\n') return line;
      line += c;
    }
  }

  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
};

class LogListenerTest : public LogTest {
 protected:
  std::string Endpoint() const { return root_.Path("run/marlowen/MLLog.1"); }
  std::string Listening() const { return "ml-log-listener: listening on " + Endpoint(); }
};

TEST_F(LogListenerTest, PrintsOneLinePerRecordAndEndsAfterTheCount) {
  ListenerProcess listener({"--root", root_.path(), "--count", "2"});
  ASSERT_EQ(listener.ErrLine(), Listening());
  struct stat status {};
  ASSERT_EQ(stat(Endpoint().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0666u);

  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(LogCrashReporting(kLogError, u"Upload failed\nstatus 503 \u00E9"), 1);
  EXPECT_EQ(LogMessage(kLogInformation, 0, u"Tool", u"Setup", u"ready", u"/opt/x/tool"), 1);
  const std::time_t after = std::time(nullptr);

  const std::string first = listener.OutLine().value_or("");
  EXPECT_TRUE(std::regex_match(first, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} UTC \| error \| Marlowen \| )"
                                                 R"(Crash Reporting \| Upload failed\\nstatus 503 \xC3\xA9)")))
      << first;
  std::tm tm{};
  ASSERT_NE(strptime(first.c_str(), "%Y-%m-%d %H:%M:%S", &tm), nullptr);
  EXPECT_GE(timegm(&tm), before);
  EXPECT_LE(timegm(&tm), after);
  EXPECT_EQ(listener.OutLine().value_or("").substr(27), " | information | Tool | Setup | ready [origin: /opt/x/tool]");
  EXPECT_EQ(listener.Wait(), 0);
  EXPECT_FALSE(testing_support::PathExists(Endpoint()));
}

TEST_F(LogListenerTest, LeftoverSocketIsReplacedButALiveListenerIsNot) {
  // What a killed listener leaves: a socket file that nobody is bound to.
  testing_support::MakeFolders(root_.Path("run/marlowen"));
  const int stale = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, Endpoint().c_str(), sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  close(stale);

  ListenerProcess first({"--count", "1"});
  ASSERT_EQ(first.ErrLine(), Listening());
  ListenerProcess second({"--count", "1"});
  EXPECT_EQ(second.ErrLine(), "ml-log-listener: Another listener is bound at " + Endpoint());
  EXPECT_EQ(second.Wait(), 1);
  EXPECT_EQ(LogCrashReporting(kLogWarning, u"still there"), 1);
  EXPECT_NE(first.OutLine().value_or("").find("| warning | Marlowen | Crash Reporting | still there"),
            std::string::npos);
  EXPECT_EQ(first.Wait(), 0);
}

TEST_F(LogListenerTest, BadCommandLineIsRefusedAndTermSignalEndsItCleanly) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--count", "0"}, {"--count", "x1"}, {"--root"}, {"--verbose"}}) {
    ListenerProcess listener(arguments);
    EXPECT_EQ(listener.ErrLine().value_or("").rfind("ml-log-listener: ", 0), 0u) << arguments[0];
    EXPECT_EQ(listener.Wait(), 2);
  }
  EXPECT_FALSE(testing_support::PathExists(Endpoint()));

  ListenerProcess listener({});  // the root comes from the environment
  ASSERT_EQ(listener.ErrLine(), Listening());
  listener.Signal(SIGTERM);
  EXPECT_EQ(listener.Wait(), 0);
  EXPECT_FALSE(testing_support::PathExists(Endpoint()));
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"after"), 0);
}

}  // namespace
