// File on real files: dispositions, modes, links, share locks, positions.
#include "store/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "store/file_attributes.h"
#include "store/path_helpers.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using testing_support::ReadFileText;
using testing_support::WriteFileText;

constexpr std::uint32_t kNormal = kFileAttributeNormal;

class FileTest : public testing::Test {
 protected:
  std::string Utf8(const char* name) const { return root_.Path(name); }
  PathBuffer Path(const char* name) const { return PathBuffer::FromUtf8(Utf8(name)); }
  mode_t ModeOf(const char* name) const {
    struct stat info;
    return stat(Utf8(name).c_str(), &info) == 0 ? (info.st_mode & 07777) : 0;
  }

  testing_support::TestRoot root_;
};

// Overwriting and the owner-only mode are shown by the crash record tests.
TEST_F(FileTest, CreateNewRefusesAnExistingFileAndModesIgnoreTheUmask) {
  WriteFileText(Utf8("f"), "old content");
  File file(Path("f"));
  EXPECT_FALSE(file.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, false, kNormal));
  EXPECT_EQ(ReadFileText(Utf8("f")), "old content");
  const mode_t oldMask = umask(077);
  File shared(Path("shared"));
  const bool created = shared.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, false,
                                     kNormal | kFileAttributeReadableByAll);
  umask(oldMask);
  ASSERT_TRUE(created);
  EXPECT_TRUE(shared.IsOpenFor(FileAccess_Write));
  EXPECT_FALSE(shared.IsOpenFor(FileAccess_ReadWrite));
  EXPECT_EQ(ModeOf("shared"), 0644u);
}

TEST_F(FileTest, NeverCreatesThroughASymbolicLink) {
  WriteFileText(Utf8("target"), "precious");
  ASSERT_EQ(symlink(Utf8("target").c_str(), Utf8("report.dmp").c_str()), 0);
  ASSERT_EQ(symlink(Utf8("nowhere").c_str(), Utf8("dangling.dmp").c_str()), 0);
  for (bool overwrite : {false, true}) {
    for (const char* name : {"report.dmp", "dangling.dmp"}) {
      File viaLink(Path(name));
      EXPECT_FALSE(viaLink.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, overwrite, kNormal)) << name;
    }
  }
  // Opening for writing does not follow a link either; reading does.
  File link(Path("report.dmp"));
  EXPECT_FALSE(link.Open(FileAccess_ReadWrite, FileShare_None, FileAccessHint_None));
  EXPECT_TRUE(link.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  EXPECT_EQ(ReadFileText(Utf8("target")), "precious");
  EXPECT_FALSE(testing_support::PathExists(Utf8("nowhere")));

  // Nor does it open what is not a regular file, or wait on a pipe.
  testing_support::MakeFolders(Utf8("folder"));
  ASSERT_EQ(mkfifo(Utf8("fifo").c_str(), 0600), 0);
  for (const char* name : {"folder", "fifo", "missing"}) {
    File file(Path(name));
    EXPECT_FALSE(file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None)) << name;
    char byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0u);
  }
}

TEST_F(FileTest, PositionsFollowTheOriginsWithin32Bits) {
  File file(Path("positions"));
  ASSERT_TRUE(file.Create(FileAccess_ReadWrite, FileShare_None, FileAccessHint_None, false, kNormal));
  ASSERT_EQ(file.Write("0123456789", 10), 10u);
  EXPECT_EQ(file.GetSize(), 10u);
  EXPECT_EQ(file.Seek(2, kSeekBegin), 2u);
  EXPECT_EQ(file.Seek(-1, kSeekEnd), 9u);
  char c = 0;
  EXPECT_EQ(file.Read(&c, 4), 1u);
  EXPECT_EQ(c, '9');
  // Before the start, unknown origins and positions past 32 bits fail and
  // leave the position where it was.
  EXPECT_EQ(file.Seek(-20, kSeekCurrent), kInvalidPosition);
  EXPECT_EQ(file.Seek(0, 3), kInvalidPosition);
  EXPECT_EQ(file.Seek(0x7FFFFFFF, kSeekBegin), 0x7FFFFFFFu);
  EXPECT_EQ(file.Seek(0x7FFFFFFF, kSeekCurrent), 0xFFFFFFFEu);
  EXPECT_EQ(file.Seek(2, kSeekCurrent), kInvalidPosition);
  EXPECT_EQ(file.Tell(), 0xFFFFFFFEu);
}

TEST_F(FileTest, ShareModesDecideWhoMayOpenAndDeleteBeside) {
  WriteFileText(Utf8("shared"), "data");
  const PathBuffer path = Path("shared");
  File reader(path), secondReader(path), writer(path);
  ASSERT_TRUE(reader.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  EXPECT_TRUE(secondReader.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  EXPECT_FALSE(writer.Open(FileAccess_Write, FileShare_Read, FileAccessHint_None));
  // A refused overwrite does not empty the file under the readers.
  EXPECT_FALSE(writer.Create(FileAccess_Write, FileShare_Read, FileAccessHint_None, true, kNormal));
  EXPECT_EQ(ReadFileText(Utf8("shared")), "data");
  EXPECT_FALSE(Delete(path));
  reader.Close();
  secondReader.Close();
  EXPECT_TRUE(Delete(path));
}

}  // namespace
}  // namespace Marlowen
