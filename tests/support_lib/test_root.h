// Shared helpers of the test suite.
//
// TestRoot gives a test its own machine: a fresh folder that MARLOWEN_ROOT
// and TMPDIR point into while the object lives, removed afterwards. Every
// machine-wide location of the system (report folder, registry file, log
// endpoint) then lies inside it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

class TestRoot {
 public:
  TestRoot();
  ~TestRoot();
  TestRoot(const TestRoot&) = delete;
  TestRoot& operator=(const TestRoot&) = delete;

  // The root folder, UTF-8, no trailing slash.
  const std::string& path() const { return root_; }
  // root + "/" + relative.
  std::string Path(const std::string& relative) const;
  // <root>/var/lib/Marlowen/Crash Reports, not created.
  std::string ReportFolder() const;

 private:
  std::string root_;
  std::string oldRoot_;
  std::string oldTmp_;
  bool hadRoot_ = false;
  bool hadTmp_ = false;
};

std::vector<std::uint8_t> ReadFileBytes(const std::string& path);
std::string ReadFileText(const std::string& path);
void WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes);
void WriteFileText(const std::string& path, const std::string& text);
void MakeFolders(const std::string& path);  // mkdir -p
bool PathExists(const std::string& path);
std::vector<std::string> ListFolder(const std::string& path);  // names, sorted

// Folder of the build tree and of the sources: ML_BUILD_DIR / ML_SOURCE_DIR
// when set, else the folders of the build that made the test.
std::string BuildDir();
std::string SourceDir();

}  // namespace testing_support
