// Time from a fault to the end of the process, for the sample product with 8
// extra threads and 200 MB of touched heap: with the capture (dump, record,
// tool start, exit) and with no capture at all (death by SIGSEGV).
//
//   capture_crash_bench [RUNS]      (default 15)
//
// The child writes CLOCK_MONOTONIC into a pipe just before its faulting
// store; the end is when waitpid reaps it. Both scenarios pay the same
// teardown of 200 MB, so the difference of the medians is the capture's
// cost. Runs on a machine root of its own (MARLOWEN_ROOT in a temporary
// folder) whose registry names /bin/true as the tool. Core files are off.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr int kDefaultRuns = 15;
constexpr char kThreads[] = "8";
constexpr char kHeapMegabytes[] = "200";
constexpr char kTool[] = "/bin/true";

std::int64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// Milliseconds from the fault to the reaped child; negative if the run went
// wrong (no time stamp, or an unexpected end).
double RunOnce(bool capture) {
  int pipeFds[2];
  if (pipe(pipeFds) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    close(pipeFds[0]);
    rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const std::string fd = std::to_string(pipeFds[1]);
    std::vector<const char*> argv{ML_SAMPLE_PRODUCT, "--threads", kThreads, "--heap-mb", kHeapMegabytes,
                                  "--fault-time-fd", fd.c_str()};
    if (!capture) argv.push_back("--no-capture");
    argv.push_back("null-write");
    argv.push_back(nullptr);
    execv(argv[0], const_cast<char* const*>(argv.data()));
    _exit(127);
  }
  close(pipeFds[1]);
  int status = 0;
  waitpid(child, &status, 0);
  const std::int64_t end = NowNs();
  std::int64_t fault = 0;
  const bool stamped = read(pipeFds[0], &fault, sizeof fault) == sizeof fault;
  close(pipeFds[0]);
  const bool expectedEnd = capture ? (WIFEXITED(status) && WEXITSTATUS(status) == 254)
                                   : (WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);
  if (!stamped || !expectedEnd) return -1;
  return static_cast<double>(end - fault) / 1e6;
}

struct Figures {
  double median, minimum, maximum;
};

Figures Summarise(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  const double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
  return {median, values.front(), values.back()};
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultRuns;

  char rootTemplate[] = "/tmp/ml-capture-bench-XXXXXX";
  if (mkdtemp(rootTemplate) == nullptr) return 1;
  const std::filesystem::path root = rootTemplate;
  std::filesystem::create_directories(root / "etc/marlowen");
  std::ofstream(root / "etc/marlowen/registry.reg")
      << "Windows Registry Editor Version 5.00\n\n"
      << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\MLCrashReporter.exe]\n"
      << "@=\"" << kTool << "\"\n"
      << "\"Path\"=\"" << ML_DBGHELP_DIR << "\"\n";
  setenv("MARLOWEN_ROOT", rootTemplate, 1);

  std::vector<double> withCapture, without;
  for (int i = 0; i < runs; ++i) {
    // Alternate, so both see the same background load.
    const double captured = RunOnce(true);
    const double plain = RunOnce(false);
    if (captured < 0 || plain < 0) {
      std::fprintf(stderr, "run %d ended unexpectedly\n", i);
      std::filesystem::remove_all(root);
      return 1;
    }
    withCapture.push_back(captured);
    without.push_back(plain);
    std::filesystem::remove_all(root / "var");
  }
  std::filesystem::remove_all(root);

  const Figures a = Summarise(withCapture);
  const Figures b = Summarise(without);
  std::printf("fault to end of process, %d runs, %s extra threads, %s MB touched heap\n", runs, kThreads,
              kHeapMegabytes);
  std::printf("  with capture:    median %8.2f ms  min %8.2f  max %8.2f\n", a.median, a.minimum, a.maximum);
  std::printf("  without capture: median %8.2f ms  min %8.2f  max %8.2f\n", b.median, b.minimum, b.maximum);
  std::printf("  capture adds:    %8.2f ms (median difference; target under 30 ms)\n", a.median - b.median);
  return 0;
}
