// Packaging a report whose dump is 100 MB, against the zip command at its
// default level on the same files in the same run.
//
//   packaging_bench [RUNS] [MEGABYTES]      (defaults 3 and 100)
//
// The dump is made of what process memory holds, in 64 KiB stretches:
// machine code and tables taken from the system's own shared libraries,
// zero pages, text (ASCII and UTF-16), pointer-rich heap and
// incompressible buffers. Each run packages the report as the uploader
// does (document from the record, then the zip of .dmp and .xml) and zips
// the same two files with `zip -q -j`; the order alternates between runs.
// Prints the medians, the sizes and the ratio of our zip time to zip's.
#include <dirent.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "packaging/report_xml.h"
#include "packaging/zip_package.h"
#include "store/crash_report_settings.h"
#include "store/crashed_module.h"
#include "store/path_helpers.h"

extern char** environ;

namespace {

using Marlowen::PathBuffer;

constexpr std::size_t kStretch = 64 * 1024;
constexpr char kReportName[] = "BenchApp_20260102030405_4242_4243";

double Now() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

struct Random {
  std::uint64_t state;
  std::uint64_t Next() {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  }
};

// Bytes of the system's shared libraries: real code, relocations, tables.
std::vector<char> LibraryBytes(std::size_t wanted) {
  std::vector<char> bytes;
  const char* folders[] = {"/usr/lib/x86_64-linux-gnu", "/usr/lib64", "/usr/lib", "/lib"};
  for (const char* folder : folders) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
      const std::string name = entry.path().filename().string();
      if (name.find(".so") == std::string::npos || !entry.is_regular_file(error)) continue;
      std::ifstream in(entry.path(), std::ios::binary);
      std::vector<char> file((std::istreambuf_iterator<char>(in)), {});
      bytes.insert(bytes.end(), file.begin(), file.end());
      if (bytes.size() >= wanted) return bytes;
    }
  }
  return bytes;
}

void FillText(char* out, std::size_t size, Random& random) {
  static const char* kPieces[] = {
      "/usr/lib/x86_64-linux-gnu/libstdc++.so.6 ", "Access Violation at 0x7f3a1c2b4d10 ",
      "SELECT id, name FROM accounts WHERE id = ? ", "<entry key=\"window.width\" value=\"1280\"/> ",
      "2026-01-02 03:04:05 INFO worker 7 finished batch 1942 in 35 ms\n", "HTTP/1.1 200 OK\r\nContent-Type: ",
      "std::vector<std::basic_string<char>> ", "The quick brown fox jumps over the lazy dog. "};
  const bool wide = random.Next() % 3 == 0;
  std::size_t at = 0;
  while (at < size) {
    const char* piece = kPieces[random.Next() % (sizeof(kPieces) / sizeof(kPieces[0]))];
    for (const char* c = piece; *c && at < size; ++c) {
      out[at++] = *c;
      if (wide && at < size) out[at++] = 0;
    }
  }
}

void FillHeap(char* out, std::size_t size, Random& random) {
  const std::uint64_t bases[] = {0x000055d4c0a00000ull, 0x00007f3a1c000000ull, 0x00007ffc9e400000ull,
                                 0x00007f3a20000000ull};
  for (std::size_t at = 0; at + 8 <= size; at += 8) {
    std::uint64_t value = 0;
    switch (random.Next() % 6) {
      case 0:
      case 1:
      case 2:
        value = bases[random.Next() % 4] + (random.Next() % 0x40000) * 16;
        break;
      case 3:
        value = random.Next() % 1000;
        break;
      case 4:
        value = 0;
        break;
      default:
        value = random.Next() & 0xFFFFFFFFull;
    }
    std::memcpy(out + at, &value, 8);
  }
}

std::vector<char> DumpBytes(std::size_t size) {
  std::vector<char> dump(size, 0);
  const std::vector<char> code = LibraryBytes(16u << 20);
  Random random{0x9E3779B97F4A7C15ull};
  std::size_t codeAt = 0;
  for (std::size_t at = 0; at < size; at += kStretch) {
    char* out = dump.data() + at;
    const std::size_t length = std::min(kStretch, size - at);
    const std::uint64_t pick = random.Next() % 100;
    if (pick < 25 && !code.empty()) {  // code and tables
      for (std::size_t i = 0; i < length; ++i) out[i] = code[(codeAt + i) % code.size()];
      codeAt = (codeAt + length) % code.size();
    } else if (pick < 50) {  // zero pages
    } else if (pick < 65) {
      FillText(out, length, random);
    } else if (pick < 85) {
      FillHeap(out, length, random);
    } else {  // compressed images, keys, caches
      for (std::size_t i = 0; i + 8 <= length; i += 8) {
        const std::uint64_t value = random.Next();
        std::memcpy(out + i, &value, 8);
      }
    }
  }
  return dump;
}

bool WriteFile(const std::string& path, const std::vector<char>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

bool RunZipCommand(const std::string& zipPath, const std::vector<std::string>& files) {
  std::vector<std::string> argv = {"zip", "-q", "-j", zipPath};
  argv.insert(argv.end(), files.begin(), files.end());
  std::vector<char*> args;
  for (std::string& arg : argv) args.push_back(arg.data());
  args.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawnp(&pid, "zip", nullptr, nullptr, args.data(), environ) != 0) return false;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

long long FileSize(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : -1;
}

// Processor time of this process, and of its waited-for children.
double OwnCpu() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

double ChildrenCpu() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
  const std::size_t megabytes = argc > 2 ? static_cast<std::size_t>(std::max(1, std::atoi(argv[2]))) : 100;

  const char* tmp = std::getenv("TMPDIR");
  std::string base = std::string(tmp && *tmp ? tmp : "/tmp") + "/packaging_bench.XXXXXX";
  if (!mkdtemp(base.data())) {
    std::perror("mkdtemp");
    return 1;
  }
  const std::string folder = base + "/reports";
  const std::string other = base + "/zip-command";
  std::filesystem::create_directories(folder);
  std::filesystem::create_directories(other);
  const std::string stem = folder + "/" + kReportName;

  std::printf("making a %zu MB dump ...\n", megabytes);
  const std::vector<char> dump = DumpBytes(megabytes << 20);

  std::vector<double> ours, theirs, whole, oursCpu, theirsCpu;
  long long ourSize = 0, theirSize = 0;
  for (int run = 0; run < runs; ++run) {
    // A fresh captured report: the dump and its record.
    if (!WriteFile(stem + ".dmp", dump)) return 1;
    Marlowen::CrashedModuleT record(false);
    record.reportName = Utf8ToWide(kReportName);
    record.exceptionType = u"Access Violation";
    record.commandLine = u"/opt/bench/app --serve";
    if (!record.Save(PathBuffer::FromUtf8(stem + ".dat"))) return 1;

    const double packageStart = Now();
    if (!Marlowen::WriteReportXml(PathBuffer::FromUtf8(folder), Marlowen::CrashReportSettingsT(),
                                  Utf8ToWide(kReportName))) {
      std::fprintf(stderr, "the report document was not written\n");
      return 1;
    }
    const Marlowen::PathList files = {PathBuffer::FromUtf8(stem + ".dmp"), PathBuffer::FromUtf8(stem + ".xml")};
    const std::string ourZip = stem + ".zip";
    const std::string theirZip = other + "/" + kReportName + ".zip";

    auto timeOurs = [&] {
      const double start = Now();
      const double cpuStart = OwnCpu();
      if (!Marlowen::ZipReportFiles(PathBuffer::FromUtf8(ourZip), files)) {
        std::fprintf(stderr, "ZipReportFiles failed\n");
        std::exit(1);
      }
      const double end = Now();
      oursCpu.push_back(OwnCpu() - cpuStart);
      ours.push_back(end - start);
      whole.push_back(end - packageStart);
    };
    auto timeTheirs = [&] {
      std::remove(theirZip.c_str());
      const double start = Now();
      const double cpuStart = ChildrenCpu();
      if (!RunZipCommand(theirZip, {stem + ".dmp", stem + ".xml"})) {
        std::fprintf(stderr, "the zip command failed\n");
        std::exit(1);
      }
      theirs.push_back(Now() - start);
      theirsCpu.push_back(ChildrenCpu() - cpuStart);
    };
    if (run % 2 == 0) {
      timeOurs();
      timeTheirs();
    } else {
      timeTheirs();
      timeOurs();
    }
    ourSize = FileSize(ourZip);
    theirSize = FileSize(theirZip);
    std::printf("run %d: ZipReportFiles %.3f s (cpu %.3f s), zip %.3f s (cpu %.3f s)\n", run + 1, ours.back(),
                oursCpu.back(), theirs.back(), theirsCpu.back());
    std::remove(ourZip.c_str());
    std::remove((stem + ".xml").c_str());
    std::remove((stem + ".dmp").c_str());
  }

  const double ourMedian = Median(ours);
  const double theirMedian = Median(theirs);
  std::printf("dump %zu MB, %d runs (medians)\n", megabytes, runs);
  std::printf("  document + ZipReportFiles: %.3f s\n", Median(whole));
  std::printf("  ZipReportFiles:            %.3f s (cpu %.3f s), %lld bytes\n", ourMedian, Median(oursCpu), ourSize);
  std::printf("  zip -q -j (level 6):       %.3f s (cpu %.3f s), %lld bytes\n", theirMedian, Median(theirsCpu),
              theirSize);
  // On a shared machine the wall clock counts time spent waiting for a
  // processor; the processor-time ratio is the steadier of the two.
  std::printf("  ratio ours / zip:          %.2f wall, %.2f cpu\n", ourMedian / theirMedian,
              Median(oursCpu) / Median(theirsCpu));
  std::filesystem::remove_all(base);
  return 0;
}
