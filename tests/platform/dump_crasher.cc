// A program that crashes on purpose and writes its own minidump with the
// dump library, as a crash capture would: the library is loaded with
// dlopen by its path, the handler runs on an alternate stack.
//
//   ml_dump_crasher DUMP TYPE [--threads N] [--heap-marker] [--hold-malloc-lock]
//                             [--no-trace] [--file-limit BYTES] [--only-crashing-thread]
//                             [--overflow] [--red-zone]
//
// It reports to its parent through stdout (one fact a line, written before
// the crash) and its exit status: 42 when MiniDumpWriteDump succeeded, 43
// when it failed, 44 when the library could not be loaded.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/dbghelp/minidump_api.h"

namespace {

constexpr int kDumpWritten = 42;
constexpr int kDumpFailed = 43;
constexpr int kNoLibrary = 44;
constexpr uint64_t kStackMarker = 0x5354414b4d41524bULL;  // per thread: + index
constexpr uint64_t kHeapMarker = 0x4845415056414c55ULL;

// In the executable's writable data: only dumps with data segments hold it.
volatile uint64_t g_dataMarker = 0x444154415345474dULL;

const char* g_dumpPath;
MINIDUMP_TYPE g_dumpType;
MiniDumpWriteDumpFunction g_writeDump;
std::atomic<int> g_ready{0};

void Say(const std::string& line) {
  std::string text = line + "\n";
  (void)!write(STDOUT_FILENO, text.data(), text.size());
}

int AlwaysInclude(void*, const MINIDUMP_CALLBACK_INPUT*, MINIDUMP_CALLBACK_OUTPUT*) { return 1; }

// Keeps only the thread whose id the parameter holds, and asks for no
// CodeView records.
int OnlyCrashingThread(void* param, const MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output) {
  if (input->CallbackType == IncludeThreadCallback) return input->IncludeThreadId == *static_cast<uint32_t*>(param);
  if (input->CallbackType == ModuleCallback) output->ModuleWriteFlags &= ~ModuleWriteCvRecord;
  return 1;
}
bool g_onlyCrashingThread = false;

void OnCrash(int, siginfo_t* info, void* context) {
  int fd = open(g_dumpPath, O_CREAT | O_TRUNC | O_RDWR | O_CLOEXEC, 0600);
  ML_EXCEPTION_POINTERS pointers{info, static_cast<ucontext_t*>(context)};
  MINIDUMP_EXCEPTION_INFORMATION exception{static_cast<uint32_t>(syscall(SYS_gettid)), &pointers, 1};
  uint32_t param = exception.ThreadId;
  MINIDUMP_CALLBACK_INFORMATION callback{g_onlyCrashingThread ? OnlyCrashingThread : AlwaysInclude, &param};
  int ok = fd >= 0 && g_writeDump(ML_CURRENT_PROCESS, static_cast<uint32_t>(getpid()), fd, g_dumpType,
                                  &exception, nullptr, &callback);
  close(fd);
  _exit(ok ? kDumpWritten : kDumpFailed);
}

void* Worker(void* argument) {
  auto index = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(argument));
  volatile uint64_t marker[4] = {kStackMarker + index, kStackMarker + index, 0, 0};
  Say("thread " + std::to_string(syscall(SYS_gettid)));
  g_ready.fetch_add(1);
  for (;;) pause();
  return reinterpret_cast<void*>(static_cast<uintptr_t>(marker[0]));
}

// Blocks in a write to a full pipe from inside malloc_stats, which holds
// the main allocator lock meanwhile: any malloc in the process now hangs.
std::atomic<long> g_holderTid{0};

void* HoldMallocLock(void*) {
  g_holderTid = syscall(SYS_gettid);
  Say("holder " + std::to_string(g_holderTid.load()));
  malloc_stats();
  return nullptr;
}

void StartLockHolder() {
  int pipeFds[2];
  if (pipe2(pipeFds, O_NONBLOCK) != 0) _exit(3);
  char filler[4096] = {};
  while (write(pipeFds[1], filler, sizeof(filler)) > 0) {
  }
  fcntl(pipeFds[1], F_SETFL, 0);
  dup2(pipeFds[1], STDERR_FILENO);
  pthread_t holder;
  pthread_create(&holder, nullptr, HoldMallocLock, nullptr);
  while (g_holderTid.load() == 0) usleep(1000);
  // Wait, without malloc, until the holder sits in write(2) on stderr.
  char name[64];
  snprintf(name, sizeof(name), "/proc/self/task/%ld/syscall", g_holderTid.load());
  for (int i = 0; i < 2000; ++i) {
    usleep(1000);
    char buffer[256] = {};
    int fd = open(name, O_RDONLY);
    if (fd < 0) continue;
    (void)!read(fd, buffer, sizeof(buffer) - 1);
    close(fd);
    if (std::strncmp(buffer, "1 0x2 ", 6) == 0) {
      Say("lock-held");
      return;
    }
  }
}

void RefuseTracing() {
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  // Root could trace us regardless; give up that power too.
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) == 0) {
    data[CAP_SYS_PTRACE / 32].effective &= ~(1u << (CAP_SYS_PTRACE % 32));
    data[CAP_SYS_PTRACE / 32].permitted &= ~(1u << (CAP_SYS_PTRACE % 32));
    syscall(SYS_capset, &header, data);
  }
}

// Recurses until the stack's guard stops it; every frame holds a marker.
__attribute__((noinline)) uint64_t OverflowTheStack(uint64_t depth) {
  volatile uint64_t frame[64];
  frame[0] = 0x4f564552464c4f57ULL;
  frame[63] = depth;
  if (depth == UINT64_MAX) return 0;  // never: the guard page comes first
  return OverflowTheStack(depth + 1) + frame[0] + frame[63];
}

// A leaf function keeps live values in the 128 bytes below the stack
// pointer without moving it. Writes a marker into each of the 16 slots there,
// slot i holding kRedZoneMarker + i at rsp - 8 * (i + 1), then faults without
// touching rsp, as such a function would.
__attribute__((noinline)) void CrashWithLiveRedZone() {
  __asm__ volatile(
      "movabs $0x52454452454430, %%rax\n"
      "mov $-8, %%rcx\n"
      "1:\n"
      "mov %%rax, (%%rsp,%%rcx)\n"
      "inc %%rax\n"
      "sub $8, %%rcx\n"
      "cmp $-136, %%rcx\n"
      "jne 1b\n"
      "movl $1, 0x40\n" ::
          : "rax", "rcx", "memory");
}

__attribute__((noinline)) void CrashInNamedFunction() {
  *reinterpret_cast<volatile int*>(0x40) = 1;
  __asm__ volatile("" ::: "memory");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  g_dumpPath = argv[1];
  g_dumpType = static_cast<MINIDUMP_TYPE>(std::strtoul(argv[2], nullptr, 0));
  int threads = 0;
  bool heapMarker = false, holdLock = false, noTrace = false, overflow = false, redZone = false;
  for (int i = 3; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--threads" && i + 1 < argc) threads = std::atoi(argv[++i]);
    if (arg == "--heap-marker") heapMarker = true;
    if (arg == "--hold-malloc-lock") holdLock = true;
    if (arg == "--no-trace") noTrace = true;
    if (arg == "--only-crashing-thread") g_onlyCrashingThread = true;
    if (arg == "--overflow") overflow = true;
    if (arg == "--red-zone") redZone = true;
    if (arg == "--file-limit" && i + 1 < argc) {
      // Writing past the limit fails with EFBIG instead of killing us.
      signal(SIGXFSZ, SIG_IGN);
      rlimit limit{std::strtoul(argv[i + 1], nullptr, 0), RLIM_INFINITY};
      setrlimit(RLIMIT_FSIZE, &limit);
      ++i;
    }
  }

  void* library = dlopen(ML_DBGHELP_PATH, RTLD_NOW | RTLD_LOCAL);
  if (library) g_writeDump = reinterpret_cast<MiniDumpWriteDumpFunction>(dlsym(library, ML_DBGHELP_EXPORT_NAME));
  if (!g_writeDump) return kNoLibrary;

  static std::vector<char> alternateStack(256 * 1024);
  stack_t stack{alternateStack.data(), 0, alternateStack.size()};
  sigaltstack(&stack, nullptr);
  struct sigaction action {};
  action.sa_sigaction = OnCrash;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigaction(SIGSEGV, &action, nullptr);

  if (noTrace) RefuseTracing();
  for (int i = 0; i < threads; ++i) {
    pthread_t thread;
    pthread_create(&thread, nullptr, Worker, reinterpret_cast<void*>(static_cast<uintptr_t>(i)));
  }
  while (g_ready.load() < threads) usleep(1000);
  if (heapMarker) {
    auto* heap = static_cast<volatile uint64_t*>(std::malloc(64));
    for (int i = 0; i < 8; ++i) heap[i] = kHeapMarker;
    char line[64];
    snprintf(line, sizeof(line), "heap 0x%llx", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(heap)));
    Say(line);
  }
  char line[64];
  snprintf(line, sizeof(line), "global 0x%llx", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(&g_dataMarker)));
  Say(line);
  Say("crash-thread " + std::to_string(syscall(SYS_gettid)));
  if (holdLock) StartLockHolder();
  if (overflow) return static_cast<int>(OverflowTheStack(0));
  if (redZone) CrashWithLiveRedZone();
  CrashInNamedFunction();
  return 0;
}
