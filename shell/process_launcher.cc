#include "shell/process_launcher.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace {

// Messages of the children to the caller, over a pipe that closes on exec.
enum MessageKind : std::int32_t {
  kChildPid = 1,     // value: the program's process id
  kForkFailed = 2,   // value: errno
  kSetupFailed = 3,  // value: errno of identity, descriptors or exec
};

struct Message {
  std::int32_t kind;
  std::int32_t value;
};

bool IsExecutableFile(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

// A candidate with a slash names a file; one without is looked up in $PATH.
std::string ResolveCandidate(const std::string& candidate) {
  if (candidate.empty()) return std::string();
  if (candidate.find('/') != std::string::npos) {
    return IsExecutableFile(candidate) ? candidate : std::string();
  }
  const char* searchPath = getenv("PATH");
  std::string folders = searchPath ? searchPath : "/usr/local/bin:/usr/bin:/bin";
  std::size_t start = 0;
  while (start <= folders.size()) {
    std::size_t end = folders.find(':', start);
    if (end == std::string::npos) end = folders.size();
    std::string folder = folders.substr(start, end - start);
    std::string path = (folder.empty() ? std::string(".") : folder) + "/" + candidate;
    if (IsExecutableFile(path)) return path;
    start = end + 1;
  }
  return std::string();
}

// The program that the line names, found as the other platform does.
std::string FindProgram(const std::string& line) {
  if (!line.empty() && line[0] == '"') {
    std::size_t close = line.find('"', 1);
    return ResolveCandidate(line.substr(1, close == std::string::npos ? std::string::npos
                                                                      : close - 1));
  }
  for (std::size_t blank = line.find(' '); ; blank = line.find(' ', blank + 1)) {
    std::string found = ResolveCandidate(line.substr(0, blank));
    if (!found.empty() || blank == std::string::npos) return found;
  }
}

// Everything the child needs, made before the fork: after it, only raw
// system calls on these plain values run.
struct ChildPlan {
  const char* program;
  char* const* argv;
  char* const* envp;
  int standard[3];
  bool inheritHandles;
  bool changeIdentity;
  uid_t userId;
  gid_t groupId;
  bool dropGroups;
  int reportFd;    // write end of the message pipe, close-on-exec
  int goFd;        // read end: the caller closes the write end once ready
  int goWriteFd;   // the child's copy of that write end, closed first
  int maxFd;
};

void Report(int fd, std::int32_t kind, std::int32_t value) {
  Message message{kind, value};
  // A pipe write of this size is atomic; nothing to do if it fails.
  [[maybe_unused]] ssize_t ignored = write(fd, &message, sizeof message);
}

// The kernel's own sigaction record on x86-64, for the raw call.
struct KernelSigaction {
  void (*handler)(int);
  unsigned long flags;
  void (*restorer)();
  std::uint64_t mask;
};

// A new program starts with no blocked and no ignored signals, also when
// the start comes from a signal handler, where the fault signal is blocked:
// both would survive exec and cripple the program's own fault handling.
void ResetSignals() {
  const std::uint64_t none = 0;
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
  KernelSigaction standard{SIG_DFL, 0, nullptr, 0};
  for (int signal = 1; signal <= 64; ++signal) {
    if (signal == SIGKILL || signal == SIGSTOP) continue;
    syscall(SYS_rt_sigaction, signal, &standard, nullptr, sizeof standard.mask);
  }
}

[[noreturn]] void FailChild(const ChildPlan& plan) {
  Report(plan.reportFd, kSetupFailed, errno);
  _exit(127);
}

// Runs in the grandchild, between fork and exec. Raw system calls only: the
// caller may be a crashing, multi-threaded process whose library state is
// not to be trusted.
[[noreturn]] void RunChild(const ChildPlan& plan) {
  close(plan.goWriteFd);
  char byte;
  while (read(plan.goFd, &byte, 1) < 0 && errno == EINTR) {
  }
  close(plan.goFd);

  // Move the sources out of 0..2 first, so that no dup2 overwrites a source
  // that a later one still needs.
  int moved[3];
  for (int i = 0; i < 3; ++i) {
    moved[i] = plan.standard[i] < 0 ? open("/dev/null", O_RDWR | O_CLOEXEC)
                                    : fcntl(plan.standard[i], F_DUPFD_CLOEXEC, 3);
    if (moved[i] < 0) FailChild(plan);
  }
  for (int i = 0; i < 3; ++i) {
    if (dup2(moved[i], i) < 0) FailChild(plan);
  }
  if (!plan.inheritHandles) {
    // Close-on-exec rather than close: the report pipe must stay usable
    // until exec has succeeded.
    if (syscall(SYS_close_range, 3u, ~0u, CLOSE_RANGE_CLOEXEC) != 0) {
      for (int fd = 3; fd < plan.maxFd; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
  }
  if (plan.changeIdentity) {
    // Group first: after setuid the right to change it is gone.
    if (plan.dropGroups && syscall(SYS_setgroups, 1, &plan.groupId) != 0) FailChild(plan);
    if (syscall(SYS_setgid, plan.groupId) != 0) FailChild(plan);
    if (syscall(SYS_setuid, plan.userId) != 0) FailChild(plan);
  }
  ResetSignals();
  execve(plan.program, plan.argv, plan.envp);
  FailChild(plan);
}

bool ReadMessage(int fd, Message& message) {
  std::size_t done = 0;
  auto* bytes = reinterpret_cast<char*>(&message);
  while (done < sizeof message) {
    ssize_t n = read(fd, bytes + done, sizeof message - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

bool IsBlankOrTab(char16_t c) { return c == u' ' || c == u'\t'; }

void CloseIfOwned(ProcessHandle handle) {
  if (handle != kNoHandle && handle != 0) close(handle);
}

}  // namespace

WideString CommandTextOf(WideStringView commandLine) {
  std::size_t pos = 0;
  if (!commandLine.empty() && commandLine[0] == u'"') {
    pos = commandLine.find(u'"', 1);
    pos = pos == WideStringView::npos ? commandLine.size() : pos + 1;
  } else {
    while (pos < commandLine.size() && !IsBlankOrTab(commandLine[pos])) ++pos;
  }
  while (pos < commandLine.size() && IsBlankOrTab(commandLine[pos])) ++pos;
  return WideString(commandLine.substr(pos));
}

ProcessLauncher::ProcessLauncher(const WideString& programPath, const WideString& arguments)
    : ProcessLauncher(programPath, arguments, LaunchOptions{}) {}

ProcessLauncher::ProcessLauncher(const WideString& programPath, const WideString& arguments,
                                 const LaunchOptions& options)
    : programPath_(programPath),
      arguments_(arguments),
      userToken_(options.userToken),
      standardHandles_{options.standardInput, options.standardOutput, options.standardError},
      inheritHandles_(options.inheritHandles) {}

ProcessLauncher::~ProcessLauncher() {
  for (int i = 0; i < 3; ++i) {
    ProcessHandle handle = standardHandles_[i];
    if (handle != kNoHandle && handle != 0 && handle != i) close(handle);
  }
  CloseIfOwned(processInformation_.processHandle);
  CloseIfOwned(processInformation_.threadHandle);
}

bool ProcessLauncher::Start(bool /*noWindow*/) {
  const std::string line = WideToUtf8(programPath_ + u" " + arguments_);

  CloseIfOwned(processInformation_.processHandle);
  CloseIfOwned(processInformation_.threadHandle);
  processInformation_ = ProcessInformation{};
  started_ = false;

  std::string program = FindProgram(line);
  if (program.empty()) {
    errno = ENOENT;
    return false;
  }
  std::string commandText = WideToUtf8(CommandTextOf(Utf8ToWide(line)));
  std::vector<char*> argv{program.data()};
  if (!commandText.empty()) argv.push_back(commandText.data());
  argv.push_back(nullptr);

  int reportPipe[2];
  int goPipe[2];
  if (pipe2(reportPipe, O_CLOEXEC) != 0) return false;
  if (pipe2(goPipe, O_CLOEXEC) != 0) {
    int saved = errno;
    close(reportPipe[0]);
    close(reportPipe[1]);
    errno = saved;
    return false;
  }

  ChildPlan plan{};
  plan.program = program.c_str();
  plan.argv = argv.data();
  plan.envp = environ;
  for (int i = 0; i < 3; ++i) plan.standard[i] = standardHandles_[i];
  plan.inheritHandles = inheritHandles_;
  plan.changeIdentity = userToken_.has_value();
  if (userToken_) {
    plan.userId = userToken_->userId;
    plan.groupId = userToken_->groupId;
    plan.dropGroups = geteuid() == 0;
  }
  plan.reportFd = reportPipe[1];
  plan.goFd = goPipe[0];
  plan.goWriteFd = goPipe[1];
  long openMax = sysconf(_SC_OPEN_MAX);
  plan.maxFd = openMax > 0 && openMax < 65536 ? static_cast<int>(openMax) : 65536;

  // The raw call skips the library's fork handlers, which may take locks
  // that a crashing thread still holds.
  pid_t middle = static_cast<pid_t>(syscall(SYS_fork));
  if (middle == 0) {
    close(reportPipe[0]);
    pid_t child = static_cast<pid_t>(syscall(SYS_fork));
    if (child == 0) RunChild(plan);
    Report(plan.reportFd, child < 0 ? kForkFailed : kChildPid, child < 0 ? errno : child);
    _exit(0);
  }
  int forkError = errno;
  close(reportPipe[1]);
  close(goPipe[0]);
  if (middle < 0) {
    close(reportPipe[0]);
    close(goPipe[1]);
    errno = forkError;
    return false;
  }

  Message message{};
  bool haveMessage = ReadMessage(reportPipe[0], message);
  while (waitpid(middle, nullptr, 0) < 0 && errno == EINTR) {
  }
  pid_t child = 0;
  int error = 0;
  if (!haveMessage) {
    error = ECHILD;
  } else if (message.kind == kChildPid) {
    child = message.value;
    // Opened while the child still waits for the go, so the id cannot yet
    // belong to another process.
    processInformation_.processHandle = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    if (processInformation_.processHandle < 0) processInformation_.processHandle = kNoHandle;
  } else {
    error = message.value;
  }
  close(goPipe[1]);
  // End of file without a message means exec succeeded.
  if (child > 0 && ReadMessage(reportPipe[0], message)) error = message.value;
  close(reportPipe[0]);

  if (error != 0) {
    CloseIfOwned(processInformation_.processHandle);
    processInformation_ = ProcessInformation{};
    errno = error;
    return false;
  }
  processInformation_.processId = static_cast<std::uint32_t>(child);
  processInformation_.threadId = static_cast<std::uint32_t>(child);
  started_ = true;
  return true;
}
