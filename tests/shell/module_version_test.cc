// Version blocks read back from real ELF files: programs stamped by the
// macro and by the build's project stamp, copies with the section table gone
// or the signature broken, and files without any block.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "shell/module_version.h"
#include "shell/wide_string.h"
#include "test_root.h"

namespace {

using testing_support::ReadFileBytes;
using testing_support::TestRoot;
using testing_support::WriteFileBytes;

constexpr std::uint32_t kSignature = 0xFEEF04BDu;
// The test program itself carries no version block.
constexpr char kUnstampedProgram[] = "/proc/self/exe";

std::uint32_t Pack(unsigned high, unsigned low) { return high << 16 | low; }

// Offsets in the 64-bit ELF header.
constexpr std::size_t kSectionTableOffset = 0x28;
constexpr std::size_t kSectionCountOffset = 0x3C;
constexpr std::size_t kSectionNamesIndexOffset = 0x3E;

// Where the fixed record of the version note starts in a file's bytes.
std::size_t FixedRecordOffset(const std::vector<std::uint8_t>& bytes) {
  static const char kOwner[12] = {'M', 'a', 'r', 'l', 'o', 'w', 'e', 'n', 0, 0, 0, 0};
  auto at = std::search(bytes.begin(), bytes.end(), kOwner, kOwner + sizeof kOwner);
  if (at == bytes.end()) return 0;
  return static_cast<std::size_t>(at - bytes.begin()) + sizeof kOwner;
}

TEST(ModuleVersionTest, ReadsStampedProgram) {
  CModuleVersion version;
  EXPECT_EQ(version.dwSignature, 0u);
  EXPECT_EQ(version.versionData(), nullptr);

  ASSERT_TRUE(version.ReadVersionInfo(Utf8ToWide(ML_STAMPED_PROGRAM).c_str()));
  EXPECT_EQ(version.dwSignature, kSignature);
  EXPECT_EQ(version.dwFileVersionMS, Pack(2, 3));
  EXPECT_EQ(version.dwFileVersionLS, Pack(4, 5));
  EXPECT_EQ(version.dwProductVersionMS, Pack(6, 7));
  EXPECT_EQ(version.dwProductVersionLS, Pack(8, 9));
  EXPECT_EQ(version.translationLanguage(), 0x0409);
  EXPECT_EQ(version.translationCodePage(), 1200);
  ASSERT_NE(version.versionData(), nullptr);
  ASSERT_EQ(version.versionDataSize(), 56u);
  EXPECT_EQ(std::memcmp(version.versionData(), static_cast<const VS_FIXEDFILEINFO*>(&version),
                        sizeof(VS_FIXEDFILEINFO)),
            0);

  // The same object serves a second read, here of a module stamped with the
  // project's own version by the build.
  ASSERT_TRUE(version.ReadVersionInfo(Utf8ToWide(ML_PROJECT_STAMPED_PROGRAM).c_str()));
  unsigned parts[4] = {0, 0, 0, 0};
  std::sscanf(ML_PROJECT_VERSION, "%u.%u.%u.%u", &parts[0], &parts[1], &parts[2], &parts[3]);
  EXPECT_EQ(version.dwFileVersionMS, Pack(parts[0], parts[1]));
  EXPECT_EQ(version.dwFileVersionLS, Pack(parts[2], parts[3]));
  EXPECT_EQ(version.dwProductVersionMS, version.dwFileVersionMS);
  EXPECT_EQ(version.dwProductVersionLS, version.dwFileVersionLS);
}

TEST(ModuleVersionTest, FilesWithoutBlockGiveFalse) {
  TestRoot root;
  const std::string text = root.Path("notes.txt");
  testing_support::WriteFileText(text, "not an executable at all");

  for (const std::string& path : {std::string(kUnstampedProgram), text,
                                  root.Path("missing"), root.path()}) {
    CModuleVersion version;
    EXPECT_FALSE(version.ReadVersionInfo(Utf8ToWide(path).c_str())) << path;
    EXPECT_EQ(version.dwSignature, 0u) << path;
    EXPECT_EQ(version.dwFileVersionMS, 0u) << path;
    EXPECT_EQ(version.translationCodePage(), 1252) << path;
  }
  CModuleVersion version;
  EXPECT_FALSE(version.ReadVersionInfo(nullptr));
  // Still usable after a failed read.
  EXPECT_TRUE(version.ReadVersionInfo(Utf8ToWide(ML_STAMPED_PROGRAM).c_str()));
}

TEST(ModuleVersionTest, ReadsNoteSegmentWhenSectionTableIsGone) {
  TestRoot root;
  std::vector<std::uint8_t> bytes = ReadFileBytes(ML_STAMPED_PROGRAM);
  ASSERT_GT(bytes.size(), 64u);
  std::fill_n(bytes.begin() + kSectionTableOffset, 8, 0);
  std::fill_n(bytes.begin() + kSectionCountOffset, 2, 0);
  std::fill_n(bytes.begin() + kSectionNamesIndexOffset, 2, 0);
  const std::string copy = root.Path("no_sections");
  WriteFileBytes(copy, bytes);

  CModuleVersion version;
  ASSERT_TRUE(version.ReadVersionInfo(Utf8ToWide(copy).c_str()));
  EXPECT_EQ(version.dwFileVersionMS, Pack(2, 3));
  EXPECT_EQ(version.dwProductVersionLS, Pack(8, 9));
}

TEST(ModuleVersionTest, WrongSignatureGivesFalseWithDataCopied) {
  TestRoot root;
  std::vector<std::uint8_t> bytes = ReadFileBytes(ML_STAMPED_PROGRAM);
  std::size_t fixed = FixedRecordOffset(bytes);
  ASSERT_NE(fixed, 0u);
  ASSERT_EQ(bytes[fixed], 0xBD);
  bytes[fixed] = 0xBE;
  const std::string copy = root.Path("bad_signature");
  WriteFileBytes(copy, bytes);

  CModuleVersion version;
  EXPECT_FALSE(version.ReadVersionInfo(Utf8ToWide(copy).c_str()));
  EXPECT_EQ(version.dwSignature, 0xFEEF04BEu);
  EXPECT_EQ(version.dwFileVersionMS, Pack(2, 3));
  EXPECT_EQ(version.dwFileVersionLS, Pack(4, 5));
}

}  // namespace
