#include "test_root.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testing_support {

TestRoot::TestRoot() {
  const char* base = std::getenv("ML_TEST_TMP");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/mltest.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
  root_ = buf.data();
  if (const char* r = std::getenv("MARLOWEN_ROOT")) { hadRoot_ = true; oldRoot_ = r; }
  if (const char* t = std::getenv("TMPDIR")) { hadTmp_ = true; oldTmp_ = t; }
  fs::create_directories(root_ + "/tmp");
  setenv("MARLOWEN_ROOT", root_.c_str(), 1);
  setenv("TMPDIR", (root_ + "/tmp").c_str(), 1);
}

TestRoot::~TestRoot() {
  if (hadRoot_) setenv("MARLOWEN_ROOT", oldRoot_.c_str(), 1); else unsetenv("MARLOWEN_ROOT");
  if (hadTmp_) setenv("TMPDIR", oldTmp_.c_str(), 1); else unsetenv("TMPDIR");
  if (!std::getenv("ML_KEEP_TEST_ROOT")) {
    std::error_code ec;
    // Tests make read-only folders on purpose; give rights back before removal.
    for (auto it = fs::recursive_directory_iterator(root_, fs::directory_options::skip_permission_denied, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
      if (it->is_directory(ec) && !it->is_symlink(ec)) chmod(it->path().c_str(), 0700);
    }
    chmod(root_.c_str(), 0700);
    fs::remove_all(root_, ec);
  }
}

std::string TestRoot::Path(const std::string& relative) const { return root_ + "/" + relative; }

std::string TestRoot::ReportFolder() const { return root_ + "/var/lib/Marlowen/Crash Reports"; }

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::string ReadFileText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void WriteFileText(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

void MakeFolders(const std::string& path) { fs::create_directories(path); }

bool PathExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListFolder(const std::string& path) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(path, ec)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The environment wins, so a test binary can be pointed at another tree; the
// folders of the build that made it are the fallback.
std::string BuildDir() {
  const char* d = std::getenv("ML_BUILD_DIR");
  return d && *d ? d : ML_DEFAULT_BUILD_DIR;
}

std::string SourceDir() {
  const char* d = std::getenv("ML_SOURCE_DIR");
  return d && *d ? d : ML_DEFAULT_SOURCE_DIR;
}

}  // namespace testing_support
