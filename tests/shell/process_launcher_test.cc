// Real starts of a small child program that writes what it received to the
// pipe given as its standard output: how the command line is split, what the
// child gets as its command text, descriptors, identity, and that nothing is
// left to reap.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "shell/process_launcher.h"
#include "shell/wide_string.h"
#include "test_root.h"

namespace {

using testing_support::TestRoot;

constexpr int kChildTimeoutMs = 10000;

struct Pipe {
  int read = -1;
  int write = -1;
  Pipe() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) == 0) {
      read = fds[0];
      write = fds[1];
    }
  }
  ~Pipe() {
    if (read >= 0) close(read);
  }
};

// Everything until every writer has closed; what a child printed.
std::string ReadAll(int fd) {
  std::string out;
  char buffer[4096];
  for (;;) {
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, kChildTimeoutMs) <= 0) {
      ADD_FAILURE() << "child output timed out";
      return out;
    }
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return out;
    out.append(buffer, static_cast<std::size_t>(n));
  }
}

// One report per "argc=" block, as key -> value.
std::vector<std::map<std::string, std::string>> ParseReports(const std::string& text) {
  std::vector<std::map<std::string, std::string>> reports;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    std::size_t eq = line.find('=');
    if (eq != std::string::npos) {
      if (line.compare(0, eq, "argc") == 0) reports.emplace_back();
      if (!reports.empty()) reports.back()[line.substr(0, eq)] = line.substr(eq + 1);
    }
    start = end + 1;
  }
  return reports;
}

bool HasFd(const std::string& list, int fd) {
  std::string padded = "," + list + ",";
  return padded.find("," + std::to_string(fd) + ",") != std::string::npos;
}

void CopyChild(const std::string& to, std::filesystem::perms mode) {
  std::filesystem::create_directories(std::filesystem::path(to).parent_path());
  std::filesystem::copy_file(ML_ECHO_CHILD, to);
  std::filesystem::permissions(to, mode);
}

constexpr auto kExecutable = std::filesystem::perms::owner_all |
                             std::filesystem::perms::group_read |
                             std::filesystem::perms::group_exec |
                             std::filesystem::perms::others_read |
                             std::filesystem::perms::others_exec;

// Starts the program with the child's output going to a pipe, and gives back
// what it printed.
std::map<std::string, std::string> RunChild(const std::string& program,
                                            const std::u16string& arguments,
                                            LaunchOptions options = {}) {
  Pipe out;
  options.standardOutput = out.write;
  {
    ProcessLauncher launcher(Utf8ToWide(program), arguments, options);
    EXPECT_TRUE(launcher.Start(false)) << program << ": " << strerror(errno);
    EXPECT_TRUE(launcher.started());
    EXPECT_GT(launcher.processInformation().processId, 0u);
    EXPECT_EQ(launcher.processInformation().threadId, launcher.processInformation().processId);
    EXPECT_GE(launcher.processInformation().processHandle, 0);
  }
  auto reports = ParseReports(ReadAll(out.read));
  EXPECT_EQ(reports.size(), 1u);
  return reports.empty() ? std::map<std::string, std::string>() : reports[0];
}

class ProcessLauncherTest : public testing::Test {
 protected:
  void TearDown() override {
    // Nothing of ours is left to reap: the starts leave no child behind.
    errno = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  }
  TestRoot root_;
};

TEST_F(ProcessLauncherTest, PathWithoutBlanksGetsSendAndWholeName) {
  const std::string program = root_.Path("bin/ml_echo_child");
  CopyChild(program, kExecutable);
  auto report = RunChild(program, u"-send Marlowen Crash_20261121093000_4242_4243");
  EXPECT_EQ(report["argc"], "2");
  EXPECT_EQ(report["program"], program);
  EXPECT_EQ(report["text"], "-send Marlowen Crash_20261121093000_4242_4243");

  report = RunChild(program, u"");
  EXPECT_EQ(report["argc"], "1");
  EXPECT_EQ(report["text"], "");
}

TEST_F(ProcessLauncherTest, PathWithBlanksRunsButTextStartsWithRestOfPath) {
  const std::string program = root_.Path("My Tools/echo child");
  CopyChild(program, kExecutable);
  auto report = RunChild(program, u"-send Product_20261121093000_1_2");
  EXPECT_EQ(report["program"], program);
  EXPECT_EQ(report["text"], "Tools/echo child -send Product_20261121093000_1_2");
}

TEST_F(ProcessLauncherTest, FirstExecutableCandidateWins) {
  const std::string program = root_.Path("My Tools/echo child");
  CopyChild(program, kExecutable);
  // A plain file at the shortest candidate is passed over...
  CopyChild(root_.Path("My"), std::filesystem::perms::owner_read);
  EXPECT_EQ(RunChild(program, u"-send X")["program"], program);

  // ...an executable one runs instead of the intended program.
  std::filesystem::permissions(root_.Path("My"), kExecutable);
  auto report = RunChild(program, u"-send X");
  EXPECT_EQ(report["program"], root_.Path("My"));
  EXPECT_EQ(report["text"], "Tools/echo child -send X");
}

TEST_F(ProcessLauncherTest, MissingProgramFails) {
  ProcessLauncher launcher(Utf8ToWide(root_.Path("nowhere/tool")), u"-send X");
  errno = 0;
  EXPECT_FALSE(launcher.Start(false));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(launcher.started());
  EXPECT_EQ(launcher.processInformation().processId, 0u);
  EXPECT_EQ(launcher.processInformation().processHandle, kNoHandle);
}

TEST_F(ProcessLauncherTest, DescriptorsAndOwnership) {
  int stray = open("/dev/null", O_RDONLY);  // inheritable on purpose
  ASSERT_GE(stray, 3);

  auto report = RunChild(ML_ECHO_CHILD, u"x");
  EXPECT_FALSE(HasFd(report["fds"], stray)) << report["fds"];
  EXPECT_TRUE(HasFd(report["fds"], 1));

  LaunchOptions inherit;
  inherit.inheritHandles = true;
  inherit.standardInput = -1;
  report = RunChild(ML_ECHO_CHILD, u"x", inherit);
  EXPECT_TRUE(HasFd(report["fds"], stray)) << report["fds"];
  EXPECT_TRUE(HasFd(report["fds"], 0));
  close(stray);

  // The process's own standard descriptors survive the launcher; one that
  // was handed over is closed with it.
  Pipe out;
  {
    LaunchOptions options;
    options.standardOutput = out.write;
    ProcessLauncher launcher(Utf8ToWide(ML_ECHO_CHILD), u"x", options);
  }
  EXPECT_EQ(fcntl(out.write, F_GETFD), -1);
  EXPECT_NE(fcntl(0, F_GETFD), -1);
  EXPECT_NE(fcntl(2, F_GETFD), -1);
}

TEST_F(ProcessLauncherTest, SecondStartLeavesFirstChildRunning) {
  Pipe out;
  LaunchOptions options;
  options.standardOutput = out.write;
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  {
    ProcessLauncher launcher(Utf8ToWide(ML_ECHO_CHILD), u"again", options);
    ASSERT_TRUE(launcher.Start(false));
    first = launcher.processInformation().processId;
    ASSERT_TRUE(launcher.Start(true));
    second = launcher.processInformation().processId;
  }
  EXPECT_NE(first, second);
  auto reports = ParseReports(ReadAll(out.read));
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports[0]["text"], "again");
  EXPECT_EQ(reports[1]["text"], "again");
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
  constexpr uid_t kNobody = 65534;
  constexpr gid_t kNogroup = 65534;
  options.userToken = UserToken{kNobody, kNogroup};
  auto report = RunChild(ML_ECHO_CHILD, u"as nobody", options);
  EXPECT_EQ(report["uid"], std::to_string(kNobody));
  EXPECT_EQ(report["gid"], std::to_string(kNogroup));
  EXPECT_EQ(report["groups"], "1");
  EXPECT_EQ(report["text"], "as nobody");
}

// Started from inside a signal handler, where that signal is blocked, and
// with SIGPIPE ignored: the program must start with neither.
std::map<std::string, std::string>* handlerReport = nullptr;

void StartFromHandler(int) {
  *handlerReport = RunChild(ML_ECHO_CHILD, u"from a handler");
}

TEST_F(ProcessLauncherTest, ProgramStartsWithCleanSignalState) {
  std::map<std::string, std::string> report;
  handlerReport = &report;
  struct sigaction action = {};
  struct sigaction oldUsr2 = {};
  struct sigaction oldPipe = {};
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
  EXPECT_EQ(CommandTextOf(u""), u"");
}

}  // namespace
