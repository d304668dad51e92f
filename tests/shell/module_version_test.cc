// Version blocks read back from real ELF files: a program stamped by the
// macro, copies with the section table gone or the signature broken, and
// files without any block. The build's project stamp is read back by the
// capture test.
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

std::uint32_t Pack(unsigned high, unsigned low) { return high << 16 | low; }

bool Read(CModuleVersion& version, const std::string& path) {
  return version.ReadVersionInfo(Utf8ToWide(path).c_str());
}

TEST(ModuleVersionTest, ReadsStampedProgram) {
  CModuleVersion version;
  ASSERT_TRUE(Read(version, ML_STAMPED_PROGRAM));
  EXPECT_EQ(version.dwSignature, 0xFEEF04BDu);
  EXPECT_EQ(version.dwFileVersionMS, Pack(2, 3));
  EXPECT_EQ(version.dwFileVersionLS, Pack(4, 5));
  EXPECT_EQ(version.dwProductVersionMS, Pack(6, 7));
  EXPECT_EQ(version.dwProductVersionLS, Pack(8, 9));
  EXPECT_EQ(version.translationLanguage(), 0x0409);
  EXPECT_EQ(version.translationCodePage(), 1200);
  ASSERT_EQ(version.versionDataSize(), 56u);
  EXPECT_EQ(std::memcmp(version.versionData(), static_cast<const VS_FIXEDFILEINFO*>(&version),
                        sizeof(VS_FIXEDFILEINFO)), 0);

}

TEST(ModuleVersionTest, FilesWithoutBlockGiveFalse) {
  TestRoot root;
  const std::string text = root.Path("notes.txt");
  testing_support::WriteFileText(text, "not an executable at all");
  // The test program itself carries no version block.
  for (const std::string& path : {std::string("/proc/self/exe"), text, root.Path("missing"), root.path()}) {
    CModuleVersion version;
    EXPECT_FALSE(Read(version, path)) << path;
    EXPECT_EQ(version.dwFileVersionMS, 0u) << path;
    EXPECT_EQ(version.translationCodePage(), 1252) << path;
    EXPECT_FALSE(version.ReadVersionInfo(nullptr));
    EXPECT_TRUE(Read(version, ML_STAMPED_PROGRAM));  // still usable after a failed read
  }
}

TEST(ModuleVersionTest, DamagedCopies) {
  TestRoot root;
  // Section table gone from the ELF header: the note segment still serves.
  std::vector<std::uint8_t> bytes = ReadFileBytes(ML_STAMPED_PROGRAM);
  ASSERT_GT(bytes.size(), 64u);
  std::fill_n(bytes.begin() + 0x28, 8, 0);  // section table offset
  std::fill_n(bytes.begin() + 0x3C, 4, 0);  // section count, names index
  testing_support::WriteFileBytes(root.Path("no_sections"), bytes);
  CModuleVersion version;
  ASSERT_TRUE(Read(version, root.Path("no_sections")));
  EXPECT_EQ(version.dwProductVersionLS, Pack(8, 9));

  // A broken signature gives false with the data copied all the same.
  bytes = ReadFileBytes(ML_STAMPED_PROGRAM);
  static const char kOwner[12] = "Marlowen";
  const auto owner = std::search(bytes.begin(), bytes.end(), kOwner, kOwner + sizeof kOwner);
  ASSERT_NE(owner, bytes.end());
  ASSERT_EQ(owner[12], 0xBD);
  owner[12] = 0xBE;
  testing_support::WriteFileBytes(root.Path("bad_signature"), bytes);
  EXPECT_FALSE(Read(version, root.Path("bad_signature")));
  EXPECT_EQ(version.dwSignature, 0xFEEF04BEu);
  EXPECT_EQ(version.dwFileVersionLS, Pack(4, 5));
}

}  // namespace
