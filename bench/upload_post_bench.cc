// Posts one large zip package the whole way (information request, then the
// POST) to the test collector on loopback, and prints the throughput and the
// process's peak resident memory as a multiple of the package's size.
//
//   upload_post_bench [MEGABYTES] [RUNS]     (defaults: 100 MB, 1 run)
//
// The collector runs as a child; python3 and openssl must be on PATH.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "store/path_buffer.h"
#include "upload/server_discovery.h"

extern char** environ;

namespace {

constexpr std::size_t kMegabyte = 1000 * 1000;
constexpr std::size_t kChunk = 1 << 20;

std::string JsonText(const std::string& json, const std::string& key) {
  const std::string lead = "\"" + key + "\": ";
  std::size_t at = json.find(lead);
  if (at == std::string::npos) return {};
  at += lead.size();
  if (json[at] == '"') ++at;
  const std::size_t end = json.find_first_of("\",\n}", at);
  return json.substr(at, end - at);
}

// Incompressible bytes, written a chunk at a time so that making the file
// does not raise the peak that is measured.
bool WritePackage(const std::string& path, std::size_t size) {
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (!out) return false;
  std::mt19937_64 random(42);
  std::vector<std::uint64_t> chunk(kChunk / sizeof(std::uint64_t));
  for (std::size_t done = 0; done < size;) {
    for (auto& word : chunk) word = random();
    const std::size_t n = std::min(kChunk, size - done);
    if (std::fwrite(chunk.data(), 1, n, out) != n) break;
    done += n;
  }
  return std::fclose(out) == 0;
}

long PeakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

long CurrentKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100;
  const int runs = argc > 2 ? std::atoi(argv[2]) : 1;
  const std::size_t size = megabytes * kMegabyte;

  char folderTemplate[] = "/tmp/ml-upload-bench.XXXXXX";
  const char* folder = mkdtemp(folderTemplate);
  if (!folder) return 1;
  const std::string root = folder;
  setenv("TMPDIR", root.c_str(), 1);
  const std::string zipPath = root + "/Bench_20260101000000_1_2.zip";
  if (!WritePackage(zipPath, size)) {
    std::fprintf(stderr, "cannot write %s\n", zipPath.c_str());
    return 1;
  }

  const std::string state = root + "/collector";
  const std::string portFile = root + "/ports.json";
  std::vector<std::string> args = {"python3", ML_COLLECTOR_SCRIPT, "--state", state,
                                   "--port-file", portFile, "--timeout", "900"};
  std::vector<char*> childArgv;
  for (auto& a : args) childArgv.push_back(a.data());
  childArgv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t collector = -1;
  if (posix_spawnp(&collector, "python3", &actions, nullptr, childArgv.data(), environ) != 0) {
    std::fprintf(stderr, "cannot start the collector\n");
    return 1;
  }
  posix_spawn_file_actions_destroy(&actions);
  struct stat info;
  while (stat(portFile.c_str(), &info) != 0) {
    if (waitpid(collector, nullptr, WNOHANG) == collector) return 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::ifstream portStream(portFile);
  const std::string json{std::istreambuf_iterator<char>(portStream), {}};
  setenv("MARLOWEN_INFO_SERVER", JsonText(json, "infoServer").c_str(), 1);
  setenv("MARLOWEN_CA_BUNDLE", JsonText(json, "caBundle").c_str(), 1);

  const long baseKilobytes = CurrentKilobytes();
  std::printf("package: %zu bytes; resident before the post: %.1f MB\n", size,
              baseKilobytes / 1000.0);
  bool ok = true;
  for (int run = 0; run < runs && ok; ++run) {
    const auto start = std::chrono::steady_clock::now();
    ok = Marlowen::UploadPackage(Marlowen::PathBuffer::FromUtf8(zipPath), {});
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("run %d: %s in %.2f s, %.1f MB/s\n", run + 1, ok ? "posted" : "FAILED", seconds,
                size / kMegabyte / seconds);
  }
  const long peakKilobytes = PeakKilobytes();
  const double zipKilobytes = size / 1024.0;
  std::printf("peak resident: %.1f MB = %.2f x the package (%.2f x above the start)\n",
              peakKilobytes * 1024.0 / kMegabyte, peakKilobytes / zipKilobytes,
              (peakKilobytes - baseKilobytes) / zipKilobytes);

  kill(collector, SIGKILL);
  waitpid(collector, nullptr, 0);
  std::string command = "rm -rf '" + root + "'";
  if (std::system(command.c_str()) != 0) std::fprintf(stderr, "cannot remove %s\n", root.c_str());
  return ok ? 0 : 1;
}
