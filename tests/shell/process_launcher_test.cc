// Real starts of a small child program that writes what it received to the
// pipe given as its standard output: how the command line is split, what the
// child gets as its command text, descriptors, identity, and that nothing is
// left to reap.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "shell/process_launcher.h"
#include "shell/wide_string.h"
#include "test_root.h"

namespace {

namespace fs = std::filesystem;
using Report = std::map<std::string, std::string>;

constexpr auto kExecutable = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                             fs::perms::others_read | fs::perms::others_exec;

void CopyChild(const std::string& to, fs::perms mode) {
  fs::create_directories(fs::path(to).parent_path());
  fs::copy_file(ML_ECHO_CHILD, to);
  fs::permissions(to, mode);
}

bool HasFd(const std::string& list, int fd) {
  return ("," + list + ",").find("," + std::to_string(fd) + ",") != std::string::npos;
}

// Starts the program with its output going to a pipe, and gives back the
// "key=value" lines it printed until it closed the pipe.
Report RunChild(const std::string& program, const std::u16string& arguments, LaunchOptions options = {}) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return {};
  options.standardOutput = fds[1];
  {
    ProcessLauncher launcher(Utf8ToWide(program), arguments, options);
    EXPECT_TRUE(launcher.Start(false)) << program << ": " << strerror(errno);
    EXPECT_GT(launcher.processInformation().processId, 0u);
  }
  std::string text;
  char buffer[4096];
  for (pollfd p{fds[0], POLLIN, 0}; poll(&p, 1, 10000) == 1;) {
    const ssize_t n = read(fds[0], buffer, sizeof buffer);
    if (n <= 0) break;
    text.append(buffer, static_cast<std::size_t>(n));
  }
  close(fds[0]);
  Report report;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t eq = line.find('=');
    if (eq != std::string::npos) report[line.substr(0, eq)] = line.substr(eq + 1);
  }
  return report;
}

class ProcessLauncherTest : public testing::Test {
 protected:
  void TearDown() override {
    // The starts leave no child of ours behind to reap.
    errno = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  }
  testing_support::TestRoot root_;
};

TEST_F(ProcessLauncherTest, PathWithoutBlanksGetsTheTextWholeAndOneWithBlanksTheRestOfThePathFirst) {
  const std::string plain = root_.Path("bin/ml_echo_child");
  CopyChild(plain, kExecutable);
  Report report = RunChild(plain, u"-send Marlowen Crash_20261121093000_4242_4243");
  EXPECT_EQ(report["argc"], "2");
  EXPECT_EQ(report["program"], plain);
  EXPECT_EQ(report["text"], "-send Marlowen Crash_20261121093000_4242_4243");
  EXPECT_EQ(RunChild(plain, u"")["argc"], "1");

  const std::string spaced = root_.Path("My Tools/echo child");
  CopyChild(spaced, kExecutable);
  report = RunChild(spaced, u"-send Product_20261121093000_1_2");
  EXPECT_EQ(report["program"], spaced);
  EXPECT_EQ(report["text"], "Tools/echo child -send Product_20261121093000_1_2");

  // A plain file at the shortest candidate is passed over; an executable one
  // runs instead of the intended program.
  CopyChild(root_.Path("My"), fs::perms::owner_read);
  EXPECT_EQ(RunChild(spaced, u"-send X")["program"], spaced);
  fs::permissions(root_.Path("My"), kExecutable);
  report = RunChild(spaced, u"-send X");
  EXPECT_EQ(report["program"], root_.Path("My"));
  EXPECT_EQ(report["text"], "Tools/echo child -send X");
}

TEST_F(ProcessLauncherTest, FailedStartsReportTheCauseAndLeaveTheCallerAsItWas) {
  // Executable by its mode, so it is the candidate that runs, but no program.
  const std::string script = root_.Path("bin/not a program");
  fs::create_directories(root_.Path("bin"));
  testing_support::WriteFileText(script, "no interpreter line\n");
  fs::permissions(script, kExecutable);
  sigset_t blocked, before, after;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);

  for (const auto& [path, error] : {std::pair{root_.Path("nowhere/tool"), ENOENT}, std::pair{script, ENOEXEC}}) {
    ProcessLauncher launcher(Utf8ToWide(path), u"-send X");
    errno = 0;
    EXPECT_FALSE(launcher.Start(false)) << path;
    EXPECT_EQ(errno, error) << path;
    EXPECT_FALSE(launcher.started());
    EXPECT_EQ(launcher.processInformation().processHandle, kNoHandle);
    EXPECT_EQ(launcher.processInformation().processId, 0u);
  }
  pthread_sigmask(SIG_SETMASK, &before, &after);
  EXPECT_TRUE(sigismember(&after, SIGUSR1));
  EXPECT_FALSE(sigismember(&after, SIGTERM));
}

// The process handle names the program itself, found in $PATH here: its
// pid, and readable once the program has ended.
TEST_F(ProcessLauncherTest, ProcessHandleIsThePidfdOfTheProgram) {
  int in[2];
  ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
  LaunchOptions options;
  options.standardInput = in[0];  // cat runs until this pipe closes; the launcher owns it
  options.standardOutput = -1;
  ProcessLauncher launcher(u"cat", u"", options);
  ASSERT_TRUE(launcher.Start(false)) << strerror(errno);
  const int pidfd = launcher.processInformation().processHandle;
  const std::string pid = std::to_string(launcher.processInformation().processId);
  ASSERT_GE(pidfd, 3);
  EXPECT_NE(fcntl(pidfd, F_GETFD) & FD_CLOEXEC, 0);
  const std::string info = testing_support::ReadFileText("/proc/self/fdinfo/" + std::to_string(pidfd));
  EXPECT_NE(info.find("\nPid:\t" + pid + "\n"), std::string::npos) << info;
  EXPECT_EQ(fs::read_symlink("/proc/" + pid + "/exe").filename(), "cat");

  pollfd ended{pidfd, POLLIN, 0};
  EXPECT_EQ(poll(&ended, 1, 0), 0);
  close(in[1]);
  EXPECT_EQ(poll(&ended, 1, 10000), 1);
}

TEST_F(ProcessLauncherTest, DescriptorsAndOwnership) {
  int stray = open("/dev/null", O_RDONLY);  // inheritable on purpose
  ASSERT_GE(stray, 3);
  Report report = RunChild(ML_ECHO_CHILD, u"x");
  EXPECT_FALSE(HasFd(report["fds"], stray)) << report["fds"];
  EXPECT_TRUE(HasFd(report["fds"], 1));

  LaunchOptions inherit;
  inherit.inheritHandles = true;
  inherit.standardInput = -1;
  report = RunChild(ML_ECHO_CHILD, u"x", inherit);
  EXPECT_TRUE(HasFd(report["fds"], stray)) << report["fds"];
  EXPECT_TRUE(HasFd(report["fds"], 0));

  // The process's own standard descriptors survive the launcher; one that
  // was handed over is closed with it.
  LaunchOptions options;
  options.standardOutput = stray;
  { ProcessLauncher launcher(Utf8ToWide(ML_ECHO_CHILD), u"x", options); }
  EXPECT_EQ(fcntl(stray, F_GETFD), -1);
  EXPECT_NE(fcntl(0, F_GETFD), -1);
  EXPECT_NE(fcntl(2, F_GETFD), -1);
}

TEST_F(ProcessLauncherTest, StartsUnderAnotherIdentity) {
  LaunchOptions options;
  if (geteuid() != 0) {
    // Without the right to change ids the start fails as a whole.
    options.userToken = UserToken{0, 0};
    ProcessLauncher launcher(Utf8ToWide(ML_ECHO_CHILD), u"x", options);
    errno = 0;
    EXPECT_FALSE(launcher.Start(false));
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(launcher.processInformation().processId, 0u);
    return;
  }
  options.userToken = UserToken{65534, 65534};
  Report report = RunChild(ML_ECHO_CHILD, u"as nobody", options);
  EXPECT_EQ(report["uid"], "65534");
  EXPECT_EQ(report["gid"], "65534");
  EXPECT_EQ(report["groups"], "1");
  // The program's change of identity does not reach the caller.
  EXPECT_EQ(geteuid(), 0u);
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
}

// Started from inside a signal handler, where that signal is blocked, and
// with SIGPIPE ignored: the program must start with neither.
Report* handlerReport = nullptr;
void StartFromHandler(int) { *handlerReport = RunChild(ML_ECHO_CHILD, u"from a handler"); }

TEST_F(ProcessLauncherTest, ProgramStartsWithCleanSignalState) {
  Report report;
  handlerReport = &report;
  struct sigaction action = {}, oldUsr2 = {}, oldPipe = {};
  action.sa_handler = StartFromHandler;
  ASSERT_EQ(sigaction(SIGUSR2, &action, &oldUsr2), 0);
  action.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGPIPE, &action, &oldPipe), 0);
  raise(SIGUSR2);
  sigaction(SIGUSR2, &oldUsr2, nullptr);
  sigaction(SIGPIPE, &oldPipe, nullptr);
  EXPECT_EQ(report["text"], "from a handler");
  EXPECT_EQ(report["blocked"], "0000000000000000");
  EXPECT_EQ(report["ignored"], "0000000000000000");
}

TEST(CommandTextTest, SkipsTheProgramAsTheChildSeesIt) {
  EXPECT_EQ(CommandTextOf(u"/opt/tool -send A B"), u"-send A B");
  EXPECT_EQ(CommandTextOf(u"/opt/My Tools/tool -send A"), u"Tools/tool -send A");
  EXPECT_EQ(CommandTextOf(u"\"/opt/My Tools/tool\"  -send A"), u"-send A");
  EXPECT_EQ(CommandTextOf(u"/opt/tool\t \tx"), u"x");
  EXPECT_EQ(CommandTextOf(u"/opt/tool "), u"");
}

}  // namespace
