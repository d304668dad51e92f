// A small product that links the crash capture and fails on request, for the
// capture's tests, its benchmark and the demo.
//
//   ml-sample-product [options] MODE
//
// MODE: none, null-write, divide-by-zero, illegal-instruction, breakpoint,
// abort, uncaught-exception, stack-overflow, thread-stack-overflow (on a
// thread that prepared its own alternate stack), thread-fault,
// two-thread-fault, capture-fault.
// Options: --name NAME (application name), --disposition N, --no-capture,
// --threads N (idle extra threads), --heap-mb N (touched heap),
// --fault-time-fd FD (8 bytes of CLOCK_MONOTONIC nanoseconds written there
// just before the fault), --print-address (prints the address of the
// null-write function on standard output first, for checking a report).
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "capture/crash_capture.h"
#include "shell/wide_string.h"

namespace sample {
namespace {

struct Options {
  std::string mode;
  std::string name = "Marlowen Sample Product";
  int disposition = 0;
  bool capture = true;
  int threads = 0;
  std::size_t heapMegabytes = 0;
  int faultTimeFd = -1;
  bool printAddress = false;
};

int g_faultTimeFd = -1;
volatile int g_zero = 0;
int* volatile g_nullPointer = nullptr;
std::atomic<int> g_threadsAtBarrier{0};
volatile char* volatile g_heap = nullptr;

// Stamped as late as possible, so the benchmark measures the capture only.
void StampFaultTime() {
  if (g_faultTimeFd < 0) return;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const std::int64_t nanoseconds = now.tv_sec * 1000000000LL + now.tv_nsec;
  if (write(g_faultTimeFd, &nanoseconds, sizeof nanoseconds) != sizeof nanoseconds) _exit(3);
}

// The faults below are the point of this program: sanitizer builds must let
// them happen instead of stopping the process ahead of the capture.
[[gnu::noinline, gnu::no_sanitize("undefined")]] void CrashByNullWrite() {
  StampFaultTime();
  *g_nullPointer = 42;
}

[[gnu::noinline, gnu::no_sanitize("undefined")]] int CrashByDivideByZero() {
  StampFaultTime();
  return 7 / g_zero;
}

[[gnu::noinline]] void CrashByIllegalInstruction() {
  StampFaultTime();
  __builtin_trap();
}

[[gnu::noinline]] void CrashByBreakpoint() {
  StampFaultTime();
  asm volatile("int3");
}

[[gnu::noinline]] void CrashByAbort() {
  StampFaultTime();
  std::abort();
}

[[gnu::noinline]] void CrashByUncaughtException() {
  StampFaultTime();
  throw std::runtime_error("nobody catches this");
}

// Each frame keeps a page of its own, and the call is not in tail position,
// so the recursion cannot be turned into a loop.
[[gnu::noinline]] int RecurseWithoutEnd(int depth) {
  if (depth == g_zero - 1) return 0;  // never true; keeps the recursion a finite one to the compiler
  volatile char frame[4096];
  frame[0] = static_cast<char>(depth);
  return RecurseWithoutEnd(depth + 1) + frame[0];
}

[[gnu::noinline]] void CrashByStackOverflow() {
  StampFaultTime();
  std::printf("%d\n", RecurseWithoutEnd(0));
}

void OverflowOnPreparedThread() {
  std::thread worker([] {
    if (!Marlowen::PrepareThreadForCrashCapture()) std::_Exit(3);
    CrashByStackOverflow();
  });
  worker.join();
}

void CrashOnSecondThread() {
  std::thread worker([] { CrashByNullWrite(); });
  worker.join();
}

// Both threads leave the barrier within moments of each other and fault.
[[gnu::noinline, gnu::no_sanitize("undefined")]] void FaultTogether() {
  g_threadsAtBarrier.fetch_add(1);
  while (g_threadsAtBarrier.load() < 2) {
  }
  *g_nullPointer = 1;
}

void CrashOnTwoThreads() {
  std::thread first(FaultTogether);
  std::thread second(FaultTogether);
  first.join();
  second.join();
}

// Threads that only wait, so the dump has more than one thread to collect.
void StartIdleThreads(int count) {
  for (int i = 0; i < count; ++i) {
    std::thread([] {
      for (;;) pause();
    }).detach();
  }
}

// Heap the kernel has really given us: every page written once.
void TouchHeap(std::size_t megabytes) {
  if (megabytes == 0) return;
  const std::size_t bytes = megabytes << 20;
  // Volatile, so the compiler can neither drop the writes nor the block.
  auto* block = static_cast<volatile char*>(std::malloc(bytes));
  if (block == nullptr) {
    std::fprintf(stderr, "cannot allocate %zu MB\n", megabytes);
    std::exit(2);
  }
  for (std::size_t offset = 0; offset < bytes; offset += 4096) block[offset] = static_cast<char>(offset);
  g_heap = block;
}

bool ParseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const bool hasValue = i + 1 < argc;
    if (argument == "--name" && hasValue) {
      options.name = argv[++i];
    } else if (argument == "--disposition" && hasValue) {
      options.disposition = std::atoi(argv[++i]);
    } else if (argument == "--no-capture") {
      options.capture = false;
    } else if (argument == "--threads" && hasValue) {
      options.threads = std::atoi(argv[++i]);
    } else if (argument == "--heap-mb" && hasValue) {
      options.heapMegabytes = static_cast<std::size_t>(std::atoll(argv[++i]));
    } else if (argument == "--fault-time-fd" && hasValue) {
      options.faultTimeFd = std::atoi(argv[++i]);
    } else if (argument == "--print-address") {
      options.printAddress = true;
    } else if (argument.rfind("--", 0) != 0 && options.mode.empty()) {
      options.mode = argument;
    } else {
      return false;
    }
  }
  return !options.mode.empty();
}

int SampleMain(int argc, char** argv) {
  Options options;
  if (!ParseOptions(argc, argv, options)) {
    std::fprintf(stderr,
                 "usage: ml-sample-product [--name NAME] [--disposition N] [--no-capture] [--threads N]\n"
                 "                         [--heap-mb N] [--fault-time-fd FD] [--print-address] MODE\n"
                 "MODE: none null-write divide-by-zero illegal-instruction breakpoint abort\n"
                 "      uncaught-exception stack-overflow thread-stack-overflow thread-fault\n"
                 "      two-thread-fault capture-fault\n");
    return 2;
  }
  // A name too long for a report path: making the path ends the capture's
  // first run, which is how a fault inside the capture looks.
  if (options.mode == "capture-fault") options.name.append(300 - std::min<std::size_t>(options.name.size(), 300), 'x');
  if (options.capture) {
    const WideString name = Utf8ToWide(options.name);
    if (!Marlowen::InstallCrashCapture(name.c_str(), options.disposition)) {
      std::fprintf(stderr, "cannot install the crash capture\n");
      return 2;
    }
  }
  g_faultTimeFd = options.faultTimeFd;
  if (options.printAddress) {
    std::printf("CrashByNullWrite=%p\n", reinterpret_cast<void*>(&CrashByNullWrite));
    std::fflush(stdout);
  }
  StartIdleThreads(options.threads);
  TouchHeap(options.heapMegabytes);

  const std::string& mode = options.mode;
  if (mode == "none") return 0;
  if (mode == "null-write" || mode == "capture-fault") CrashByNullWrite();
  else if (mode == "divide-by-zero") return CrashByDivideByZero();
  else if (mode == "illegal-instruction") CrashByIllegalInstruction();
  else if (mode == "breakpoint") CrashByBreakpoint();
  else if (mode == "abort") CrashByAbort();
  else if (mode == "uncaught-exception") CrashByUncaughtException();
  else if (mode == "stack-overflow") CrashByStackOverflow();
  else if (mode == "thread-stack-overflow") OverflowOnPreparedThread();
  else if (mode == "thread-fault") CrashOnSecondThread();
  else if (mode == "two-thread-fault") CrashOnTwoThreads();
  else {
    std::fprintf(stderr, "unknown mode '%s'\n", mode.c_str());
    return 2;
  }
  // Only a disposition other than 0 on a breakpoint can come back here.
  std::fprintf(stderr, "survived '%s'\n", mode.c_str());
  return 1;
}

}  // namespace
}  // namespace sample

int main(int argc, char** argv) { return sample::SampleMain(argc, argv); }
