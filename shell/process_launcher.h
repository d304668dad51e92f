// Starts another program from one command line, optionally under another
// user and group id, and forgets about it.
//
// The command line is the program path, one blank and the arguments, none of
// them quoted. The program is found the way the other platform splits such a
// line: the text up to each blank in turn, shortest first, and the first that
// names an executable file runs (a line that starts with a quotation mark
// names its program up to the closing one). A candidate without '/' is looked
// up in $PATH.
//
// The child gets, as its one argument argv[1], the command text that its own
// entry would find behind its name: the line after the first blank and the
// blanks that follow it. For a path with blanks that text still starts with
// the rest of the path; that is how the other platform behaves, and callers
// rely on it. argv[0] is the file that runs; an empty command text gives no
// argv[1]. Environment and working folder are the caller's.
//
// Nothing waits for the child, and no zombie stays behind: the child is the
// grandchild of the caller, whose own short-lived child is reaped in Start.
// Both are made with clone(CLONE_VM | CLONE_VFORK) and share the caller's
// memory while they run, so the start costs the same for a process of any
// size. Between the clone and exec only raw system calls run, with every
// signal blocked, so Start can be used from a crashing process's signal
// handler as far as the allocation of the argument strings (done before the
// clone) allows.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "shell/wide_string.h"

// A process's handles are file descriptors here; -1 is none.
using ProcessHandle = int;
inline constexpr ProcessHandle kNoHandle = -1;

struct ProcessInformation {
  // A pidfd of the started program (readable once it has ended); -1 if the
  // kernel offers none.
  ProcessHandle processHandle = kNoHandle;
  // No counterpart: a thread is no separate object to hold. Always -1.
  ProcessHandle threadHandle = kNoHandle;
  std::uint32_t processId = 0;
  std::uint32_t threadId = 0;  // the main thread's id, equal to processId
};

// What a start under another identity runs as. A plain value: nothing to
// release, so there is no owner flag for it.
struct UserToken {
  uid_t userId = 0;
  gid_t groupId = 0;
};

// Everything that only the constructor sets.
struct LaunchOptions {
  // Start under this identity: supplementary groups reduced to the group
  // (when running as root), then setgid, then setuid, all in the child.
  std::optional<UserToken> userToken;
  // Descriptors that become the child's 0, 1 and 2; -1 gives /dev/null. The
  // launcher owns those that are not the process's own 0, 1, 2 and closes
  // them in its destructor.
  ProcessHandle standardInput = 0;
  ProcessHandle standardOutput = 1;
  ProcessHandle standardError = 2;
  // False: the child gets no descriptor beyond 0, 1 and 2.
  bool inheritHandles = false;
};

class ProcessLauncher final {
 public:
  ProcessLauncher(const WideString& programPath, const WideString& arguments);
  ProcessLauncher(const WideString& programPath, const WideString& arguments,
                  const LaunchOptions& options);
  // Closes, in this order: owned standard descriptors, the process handle.
  // The child runs on.
  ~ProcessLauncher();
  ProcessLauncher(const ProcessLauncher&) = delete;
  ProcessLauncher& operator=(const ProcessLauncher&) = delete;

  // Starts the program (see above); true once it runs, that is once exec
  // has succeeded. On false errno tells why and the process information is
  // empty. A second Start closes the first child's handle and leaves that
  // child running. noWindow has no meaning here: no start opens a window.
  [[nodiscard]] bool Start(bool noWindow);

  bool started() const { return started_; }
  const ProcessInformation& processInformation() const { return processInformation_; }

 private:
  WideString programPath_;
  WideString arguments_;
  ProcessInformation processInformation_;
  std::optional<UserToken> userToken_;
  bool started_ = false;
  ProcessHandle standardHandles_[3];
  bool inheritHandles_ = false;
};

// The command text that a program started with the given command line finds
// behind its own name: the line after its first blank or tab (after the
// closing quotation mark if it starts with one) and the blanks that follow.
WideString CommandTextOf(WideStringView commandLine);
