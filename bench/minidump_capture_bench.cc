// Time from a fault until the minidump file is closed, and the dump's size.
//
//   minidump_capture_bench [RUNS]      (default 15)
//
// Each run forks a child with 8 extra threads (and 200 MB of touched heap
// where the scenario says so) that faults; its handler loads the dump
// library, writes a 0x104 dump and closes the file. The child stamps the
// clock just before the faulting store and again after close, in a page
// shared with this parent. The same crash without any capture is the
// baseline. Prints median, minimum and maximum over the runs.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/dbghelp/minidump_api.h"

namespace {

constexpr int kExtraThreads = 8;
constexpr size_t kMegabyte = 1 << 20;

struct Shared {
  int64_t faultNs;
  int64_t closedNs;
  int ok;
};

struct Scenario {
  const char* name;
  size_t heapMegabytes;
  bool capture;
};

Shared* g_shared;
bool g_capture;
const char* g_dumpPath;
volatile uintptr_t g_faultAddress = 0x40;  // unmapped; volatile so the store stays

int64_t NowNs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec * 1000000000LL + t.tv_nsec;
}

void OnFault(int, siginfo_t* info, void* context) {
  int ok = 1;
  if (g_capture) {
    // As a capture does it: load the library at the last moment.
    void* library = dlopen(ML_DBGHELP_PATH, RTLD_NOW | RTLD_LOCAL);
    auto writeDump = library ? reinterpret_cast<MiniDumpWriteDumpFunction>(dlsym(library, ML_DBGHELP_EXPORT_NAME)) : nullptr;
    int fd = open(g_dumpPath, O_CREAT | O_TRUNC | O_RDWR | O_CLOEXEC, 0600);
    ML_EXCEPTION_POINTERS pointers{info, static_cast<ucontext_t*>(context)};
    MINIDUMP_EXCEPTION_INFORMATION exception{static_cast<uint32_t>(gettid()), &pointers, 1};
    ok = writeDump && fd >= 0 &&
         writeDump(ML_CURRENT_PROCESS, static_cast<uint32_t>(getpid()), fd, ML_MINIDUMP_TYPE_NORMAL, &exception, nullptr, nullptr);
    close(fd);
  }
  g_shared->closedNs = NowNs();
  g_shared->ok = ok;
  _exit(0);
}

void* Idle(void*) {
  for (;;) pause();
}

[[noreturn]] void CrashingChild(const Scenario& scenario) {
  for (int i = 0; i < kExtraThreads; ++i) {
    pthread_t thread;
    pthread_create(&thread, nullptr, Idle, nullptr);
  }
  std::vector<char*> heap;
  for (size_t i = 0; i < scenario.heapMegabytes; ++i) {
    heap.push_back(static_cast<char*>(std::malloc(kMegabyte)));
    std::memset(heap.back(), static_cast<int>(i), kMegabyte);
  }
  static char alternate[128 * 1024];
  stack_t stack{alternate, 0, sizeof(alternate)};
  sigaltstack(&stack, nullptr);
  struct sigaction action {};
  action.sa_sigaction = OnFault;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigaction(SIGSEGV, &action, nullptr);
  usleep(20000);  // let the threads settle into pause()
  g_shared->faultNs = NowNs();
  *reinterpret_cast<volatile int*>(g_faultAddress) = 1;
  _exit(1);
}

bool RunOnce(const Scenario& scenario, double* ms, off_t* size) {
  g_shared->faultNs = g_shared->closedNs = 0;
  g_shared->ok = 0;
  pid_t child = fork();
  if (child == 0) CrashingChild(scenario);
  int status = 0;
  waitpid(child, &status, 0);
  if (!g_shared->ok || !g_shared->closedNs) return false;
  *ms = static_cast<double>(g_shared->closedNs - g_shared->faultNs) / 1e6;
  struct stat info {};
  *size = scenario.capture && stat(g_dumpPath, &info) == 0 ? info.st_size : 0;
  unlink(g_dumpPath);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
  std::string path = std::string(getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") + "/minidump_bench_" +
                     std::to_string(getpid()) + ".dmp";
  g_dumpPath = path.c_str();
  g_shared = static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  const Scenario scenarios[] = {
      {"capture 0x104, 8 threads, 200 MB heap", 200, true},
      {"capture 0x104, 8 threads, no heap", 0, true},
      {"no capture,    8 threads, 200 MB heap", 200, false},
  };
  std::printf("%-40s %9s %9s %9s %11s  (%d runs)\n", "scenario", "median ms", "min ms", "max ms", "dump bytes", runs);
  for (const Scenario& scenario : scenarios) {
    g_capture = scenario.capture;
    std::vector<double> times;
    std::vector<off_t> sizes;
    for (int i = 0; i < runs; ++i) {
      double ms;
      off_t size;
      if (!RunOnce(scenario, &ms, &size)) {
        std::fprintf(stderr, "%s: run %d failed\n", scenario.name, i);
        return 1;
      }
      times.push_back(ms);
      sizes.push_back(size);
    }
    std::sort(times.begin(), times.end());
    std::sort(sizes.begin(), sizes.end());
    std::printf("%-40s %9.2f %9.2f %9.2f %11lld\n", scenario.name, times[times.size() / 2], times.front(),
                times.back(), static_cast<long long>(sizes[sizes.size() / 2]));
  }
  return 0;
}
