#include "shell/process_launcher.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

// The children of Start share the caller's memory and run on stacks the
// sanitizer runtime knows nothing of; what runs there is left uninstrumented.
#define ML_CHILD_CODE __attribute__((no_sanitize("address", "undefined")))

namespace {

// A system call that touches no library state, not even errno: the children
// of Start run with the caller's thread pointer, so a library call there would
// act on that thread's state. Failure comes back as -errno (x86-64 only).
ML_CHILD_CODE __attribute__((always_inline)) inline long RawSyscall(long number, long a1 = 0,
                                                                    long a2 = 0, long a3 = 0,
                                                                    long a4 = 0) {
  long result;
  register long r10 asm("r10") = a4;
  asm volatile("syscall"
               : "=a"(result)
               : "a"(number), "D"(a1), "S"(a2), "d"(a3), "r"(r10)
               : "rcx", "r11", "memory");
  return result;
}

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

// Everything the children need, made before the first clone, and what they
// leave for the caller. It lies on the caller's stack; the children see it
// because they share the caller's memory.
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
  int maxFd;
  char* programStackTop;

  // Written by the children, read by the caller once the middle has gone.
  volatile int programPid;
  volatile int pidfd;
  // Nonzero until the program is about to exec, then the exec's errno.
  volatile int error;
};

// The kernel's own sigaction record on x86-64, for the raw call.
struct KernelSigaction {
  void (*handler)(int);
  unsigned long flags;
  void (*restorer)();
  std::uint64_t mask;
};

constexpr std::uint64_t kAllSignals = ~std::uint64_t{0};
constexpr std::uint64_t kNoSignals = 0;
// Each child's stack, with a guard page below it.
constexpr std::size_t kChildStackSize = 64 * 1024;
constexpr std::size_t kGuardSize = 4096;

[[noreturn]] ML_CHILD_CODE void ExitChild(ChildPlan& plan, long result) {
  plan.error = static_cast<int>(-result);
  RawSyscall(SYS_exit, 127);
  __builtin_unreachable();
}

// The program's process, from its clone to exec. It shares the caller's
// memory and starts with every signal blocked, so no handler of the caller
// runs on this stack; the new program gets no blocked and no ignored signals,
// also when the start comes from a signal handler, where the fault signal is
// blocked: both would survive exec and cripple the program's own fault
// handling.
ML_CHILD_CODE int RunProgram(void* argument) {
  ChildPlan& plan = *static_cast<ChildPlan*>(argument);

  // Move the sources out of 0..2 first, so that no dup2 overwrites a source
  // that a later one still needs. The descriptor table is this process's own.
  int moved[3];
  for (int i = 0; i < 3; ++i) {
    long fd = plan.standard[i] < 0
                  ? RawSyscall(SYS_open, reinterpret_cast<long>("/dev/null"), O_RDWR | O_CLOEXEC)
                  : RawSyscall(SYS_fcntl, plan.standard[i], F_DUPFD_CLOEXEC, 3);
    if (fd < 0) ExitChild(plan, fd);
    moved[i] = static_cast<int>(fd);
  }
  for (int i = 0; i < 3; ++i) {
    long result = RawSyscall(SYS_dup2, moved[i], i);
    if (result < 0) ExitChild(plan, result);
  }
  if (!plan.inheritHandles &&
      RawSyscall(SYS_close_range, 3, ~0u, CLOSE_RANGE_CLOEXEC) != 0) {
    for (int fd = 3; fd < plan.maxFd; ++fd) RawSyscall(SYS_fcntl, fd, F_SETFD, FD_CLOEXEC);
  }
  if (plan.changeIdentity) {
    // Group first: after setuid the right to change it is gone.
    long result = 0;
    if (plan.dropGroups) {
      gid_t group = plan.groupId;
      result = RawSyscall(SYS_setgroups, 1, reinterpret_cast<long>(&group));
    }
    if (result == 0) result = RawSyscall(SYS_setgid, plan.groupId);
    if (result == 0) result = RawSyscall(SYS_setuid, plan.userId);
    if (result != 0) ExitChild(plan, result);
  }
  KernelSigaction standard{SIG_DFL, 0, nullptr, 0};
  for (int signal = 1; signal <= 64; ++signal) {
    if (signal == SIGKILL || signal == SIGSTOP) continue;
    RawSyscall(SYS_rt_sigaction, signal, reinterpret_cast<long>(&standard), 0, sizeof standard.mask);
  }
  RawSyscall(SYS_rt_sigprocmask, SIG_SETMASK, reinterpret_cast<long>(&kNoSignals), 0,
             sizeof kNoSignals);
  plan.error = 0;
  long result = RawSyscall(SYS_execve, reinterpret_cast<long>(plan.program),
                           reinterpret_cast<long>(plan.argv), reinterpret_cast<long>(plan.envp));
  ExitChild(plan, result);
}

// The middle process: starts the program and ends, so that the program is
// nobody's child once it runs and the caller has only this one to reap. It
// shares the caller's memory and descriptor table, so the pidfd it opens is
// the caller's.
ML_CHILD_CODE int RunMiddle(void* argument) {
  ChildPlan& plan = *static_cast<ChildPlan*>(argument);
  // The library's clone wrapper only issues the call and, on failure, writes
  // errno, which here is the suspended caller's: read at once and restored.
  const int callerErrno = errno;
  const int pid = clone(RunProgram, plan.programStackTop, CLONE_VM | CLONE_VFORK | SIGCHLD, &plan);
  if (pid < 0) {
    plan.error = errno;
    errno = callerErrno;
    return 0;
  }
  plan.programPid = pid;
  // The program cannot have been reaped by anyone yet: it is still this
  // process's child, so its id names it.
  if (plan.error == 0) {
    long pidfd = RawSyscall(SYS_pidfd_open, pid, 0);
    plan.pidfd = pidfd < 0 ? -1 : static_cast<int>(pidfd);
  }
  return 0;
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

  // Both children's stacks. A mapping of their own rather than the caller's
  // stack, which on the crash path is the small alternate signal stack.
  const std::size_t slot = kGuardSize + kChildStackSize;
  void* mapping = mmap(nullptr, 2 * slot, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (mapping == MAP_FAILED) return false;
  char* stacks = static_cast<char*>(mapping);
  mprotect(stacks, kGuardSize, PROT_NONE);
  mprotect(stacks + slot, kGuardSize, PROT_NONE);

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
  long openMax = sysconf(_SC_OPEN_MAX);
  plan.maxFd = openMax > 0 && openMax < 65536 ? static_cast<int>(openMax) : 65536;
  plan.programStackTop = stacks + 2 * slot;
  plan.programPid = 0;
  plan.pidfd = -1;
  plan.error = ECHILD;  // stays if the program dies before its exec

  // The children share this memory, so a handler of ours must not run on
  // their stacks: every signal stays blocked in them until the program resets
  // its own. The raw call also blocks the library's internal signals.
  std::uint64_t oldMask = 0;
  RawSyscall(SYS_rt_sigprocmask, SIG_SETMASK, reinterpret_cast<long>(&kAllSignals),
             reinterpret_cast<long>(&oldMask), sizeof oldMask);
  // A change of identity in the program marks the memory it shares with us as
  // not dumpable; ours is restored once the program has its own.
  const int dumpable = plan.changeIdentity ? prctl(PR_GET_DUMPABLE) : -1;

  // The caller is suspended until the middle has ended, and the middle until
  // the program has exec'd or failed: no copy of this address space is made,
  // however large it is.
  const pid_t middle = clone(RunMiddle, stacks + slot, CLONE_VM | CLONE_VFORK | CLONE_FILES | SIGCHLD,
                             &plan);
  const int cloneError = errno;

  if (dumpable == 0 || dumpable == 1) prctl(PR_SET_DUMPABLE, dumpable);
  RawSyscall(SYS_rt_sigprocmask, SIG_SETMASK, reinterpret_cast<long>(&oldMask), 0, sizeof oldMask);
  munmap(mapping, 2 * slot);

  if (middle < 0) {
    errno = cloneError;
    return false;
  }
  while (waitpid(middle, nullptr, 0) < 0 && errno == EINTR) {
  }

  if (plan.error != 0) {
    if (plan.pidfd >= 0) close(plan.pidfd);
    errno = plan.error;
    return false;
  }
  processInformation_.processHandle = plan.pidfd;
  processInformation_.processId = static_cast<std::uint32_t>(plan.programPid);
  processInformation_.threadId = static_cast<std::uint32_t>(plan.programPid);
  started_ = true;
  return true;
}
