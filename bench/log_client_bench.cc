// Cost of one log line: with a listener that keeps reading, and with no
// listener at all, where every call tries one connect and gives up.
//
// Lines go out in bursts of kBurst, below the kernel's default queue of ten
// datagrams per socket, and the timer stops while the reader catches up: a
// full queue is a failed line, and each such failure costs the process the
// descriptor of its reopen, so an unpaced loop would measure running out of
// descriptors instead.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <benchmark/benchmark.h>

#include "shell/log_client.h"

namespace {

constexpr long kBurst = 8;

// A private machine root for the run, removed afterwards.
class BenchRoot {
 public:
  BenchRoot() {
    char pattern[] = "/tmp/mlbench.XXXXXX";
    path_ = mkdtemp(pattern);
    setenv("MARLOWEN_ROOT", path_.c_str(), 1);
  }
  ~BenchRoot() {
    unsetenv("MARLOWEN_ROOT");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void ResetHandle() {
  if (LogMailslotHandle > 0) close(LogMailslotHandle);
  LogMailslotHandle = 0;
}

void BM_LogLineToReadingListener(benchmark::State& state) {
  BenchRoot root;
  std::filesystem::create_directories(root.path() + "/run/marlowen");
  const std::string path = root.path() + "/run/marlowen/MLLog.1";
  const int listener = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    state.SkipWithError("cannot bind the listener");
    return;
  }
  std::atomic<bool> stop{false};
  std::atomic<long> received{0};
  std::thread reader([&] {
    LogRecord record;
    while (!stop) {
      pollfd wait{listener, POLLIN, 0};
      if (poll(&wait, 1, 50) == 1 && recv(listener, &record, sizeof(record), 0) > 0) ++received;
    }
  });

  ResetHandle();
  const WideString message = u"Cannot open connection to the upload server (timeout).";
  long sent = 0;
  long inBurst = 0;
  for (auto _ : state) {
    sent += LogCrashReporting(kLogError, message);
    if (++inBurst == kBurst) {
      state.PauseTiming();
      while (received.load() < sent) std::this_thread::yield();
      inBurst = 0;
      state.ResumeTiming();
    }
  }
  stop = true;
  reader.join();
  close(listener);
  ResetHandle();
  state.counters["lost"] = static_cast<double>(state.iterations() - sent);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LogLineToReadingListener);

void BM_LogLineWithoutListener(benchmark::State& state) {
  BenchRoot root;
  ResetHandle();
  const WideString message = u"Nobody hears this.";
  for (auto _ : state) benchmark::DoNotOptimize(LogCrashReporting(kLogError, message));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LogLineWithoutListener);

}  // namespace
