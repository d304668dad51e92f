// File on real files in a test root: dispositions, modes, links, share
// locks, positions and the access checks.
#include "store/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "store/file_attributes.h"
#include "store/path_helpers.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using testing_support::ReadFileText;
using testing_support::WriteFileText;

mode_t ModeOf(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0;
}

class FileTest : public testing::Test {
 protected:
  std::string Utf8(const char* name) const { return root_.Path(name); }
  PathBuffer Path(const char* name) const { return PathBuffer::FromUtf8(Utf8(name)); }

  testing_support::TestRoot root_;
};

TEST_F(FileTest, CreateNewRefusesAnExistingFileAndCreateAlwaysEmptiesIt) {
  WriteFileText(Utf8("f"), "old content");
  File file(Path("f"));
  EXPECT_FALSE(file.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, false, kFileAttributeNormal));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(ReadFileText(Utf8("f")), "old content");

  ASSERT_TRUE(file.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, true, kFileAttributeNormal));
  EXPECT_EQ(file.GetSize(), 0u);
  EXPECT_EQ(file.Write("new", 3), 3u);
  file.Close();
  EXPECT_EQ(ReadFileText(Utf8("f")), "new");

  File fresh(Path("g"));
  ASSERT_TRUE(fresh.Create(FileAccess_ReadWrite, FileShare_Read, FileAccessHint_Random, false, kFileAttributeNormal));
  EXPECT_EQ(fresh.GetAccess(), FileAccess_ReadWrite);
  EXPECT_EQ(fresh.GetShare(), FileShare_Read);
  EXPECT_EQ(fresh.GetAccessHint(), FileAccessHint_Random);
}

TEST_F(FileTest, NewFilesAreOwnerOnlyUnlessReadableByAllWhateverTheUmask) {
  const mode_t oldMask = umask(077);
  File normal(Path("normal"));
  ASSERT_TRUE(normal.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, false, kFileAttributeNormal));
  File shared(Path("shared"));
  ASSERT_TRUE(shared.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, false,
                            kFileAttributeNormal | kFileAttributeReadableByAll));
  umask(oldMask);
  EXPECT_EQ(ModeOf(Utf8("normal")), 0600u);
  EXPECT_EQ(ModeOf(Utf8("shared")), 0644u);
}

TEST_F(FileTest, NeverCreatesThroughASymbolicLink) {
  WriteFileText(Utf8("target"), "precious");
  ASSERT_EQ(symlink(Utf8("target").c_str(), Utf8("report.dmp").c_str()), 0);
  ASSERT_EQ(symlink(Utf8("nowhere").c_str(), Utf8("dangling.dmp").c_str()), 0);

  for (bool overwrite : {false, true}) {
    File viaLink(Path("report.dmp"));
    EXPECT_FALSE(viaLink.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, overwrite,
                                kFileAttributeNormal))
        << "overwrite " << overwrite;
    File viaDangling(Path("dangling.dmp"));
    EXPECT_FALSE(viaDangling.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, overwrite,
                                    kFileAttributeNormal));
  }
  // Opening an existing file for writing does not follow a link either;
  // reading through one does.
  File writer(Path("report.dmp"));
  EXPECT_FALSE(writer.Open(FileAccess_Write, FileShare_None, FileAccessHint_None));
  File reader(Path("report.dmp"));
  EXPECT_TRUE(reader.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));

  EXPECT_EQ(ReadFileText(Utf8("target")), "precious");
  EXPECT_FALSE(testing_support::PathExists(Utf8("nowhere")));
}

TEST_F(FileTest, RefusesFoldersAndDoesNotWaitOnAFifo) {
  testing_support::MakeFolders(Utf8("folder"));
  File folder(Path("folder"));
  EXPECT_FALSE(folder.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  EXPECT_FALSE(folder.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, true, kFileAttributeNormal));

  ASSERT_EQ(mkfifo(Utf8("fifo").c_str(), 0600), 0);
  File fifo(Path("fifo"));
  EXPECT_FALSE(fifo.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  EXPECT_FALSE(fifo.Open(FileAccess_Write, FileShare_None, FileAccessHint_None));

  File missing(Path("missing"));
  EXPECT_FALSE(missing.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  File unnamed{PathBuffer()};
  EXPECT_FALSE(unnamed.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, true, kFileAttributeNormal));
}

TEST_F(FileTest, AFailedOpenLeavesTheFileUsableAndItsSettingsUntouched) {
  File file(Path("later"));
  ASSERT_FALSE(file.Open(FileAccess_Write, FileShare_ReadWrite, FileAccessHint_Random));
  EXPECT_EQ(file.GetAccess(), FileAccess_Read);
  EXPECT_EQ(file.GetShare(), FileShare_None);
  EXPECT_EQ(file.Read(nullptr, 0), 0u);
  char byte = 'x';
  EXPECT_EQ(file.Write(&byte, 1), 0u);
  EXPECT_EQ(file.Tell(), kInvalidPosition);
  EXPECT_EQ(file.GetSize(), kInvalidPosition);

  WriteFileText(Utf8("later"), "abc");
  ASSERT_TRUE(file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential));
  EXPECT_EQ(file.GetAccessHint(), FileAccessHint_Sequential);
  char text[8] = {};
  EXPECT_EQ(file.Read(text, sizeof(text)), 3u);
  EXPECT_STREQ(text, "abc");
}

TEST_F(FileTest, TellSeekAndSizeFollowTheOrigins) {
  File file(Path("positions"));
  ASSERT_TRUE(file.Create(FileAccess_ReadWrite, FileShare_None, FileAccessHint_None, false, kFileAttributeNormal));
  ASSERT_EQ(file.Write("0123456789", 10), 10u);
  EXPECT_EQ(file.Tell(), 10u);
  EXPECT_EQ(file.GetSize(), 10u);
  EXPECT_EQ(file.Seek(2, kSeekBegin), 2u);
  EXPECT_EQ(file.Seek(3, kSeekCurrent), 5u);
  EXPECT_EQ(file.Seek(-1, kSeekEnd), 9u);
  char c = 0;
  EXPECT_EQ(file.Read(&c, 1), 1u);
  EXPECT_EQ(c, '9');
  EXPECT_EQ(file.Read(&c, 1), 0u);

  // Before the start, and origins that do not exist, fail without moving.
  EXPECT_EQ(file.Seek(-20, kSeekCurrent), kInvalidPosition);
  EXPECT_EQ(file.Seek(0, 3), kInvalidPosition);
  EXPECT_EQ(file.Tell(), 10u);
  // A position beyond 32 bits cannot be told and is refused.
  EXPECT_EQ(file.Seek(0x7FFFFFFF, kSeekBegin), 0x7FFFFFFFu);
  EXPECT_EQ(file.Seek(0x7FFFFFFF, kSeekCurrent), 0xFFFFFFFEu);
  EXPECT_EQ(file.Seek(2, kSeekCurrent), kInvalidPosition);
  EXPECT_EQ(file.Tell(), 0xFFFFFFFEu);
}

struct AccessCase {
  std::uint32_t opened;
  bool forRead;
  bool forWrite;
  bool forBoth;
};

void PrintTo(const AccessCase& c, std::ostream* out) { *out << "opened with " << c.opened; }

class IsOpenForTest : public testing::TestWithParam<AccessCase> {};

TEST_P(IsOpenForTest, AnswersByTheAccessGiven) {
  testing_support::TestRoot root;
  const AccessCase& c = GetParam();
  WriteFileText(root.Path("f"), "x");
  File file(PathBuffer::FromUtf8(root.Path("f")));
  EXPECT_FALSE(file.IsOpenFor(FileAccess_Read));
  ASSERT_TRUE(file.Open(static_cast<FileAccess>(c.opened), FileShare_ReadWrite, FileAccessHint_None));
  EXPECT_EQ(file.IsOpenFor(FileAccess_Read), c.forRead);
  EXPECT_EQ(file.IsOpenFor(FileAccess_Write), c.forWrite);
  EXPECT_EQ(file.IsOpenFor(FileAccess_ReadWrite), c.forBoth);
  EXPECT_FALSE(file.IsOpenFor(static_cast<FileAccess>(7)));
  file.Close();
  EXPECT_FALSE(file.IsOpenFor(FileAccess_Read));
}

INSTANTIATE_TEST_SUITE_P(Accesses, IsOpenForTest,
                         testing::Values(AccessCase{0, true, false, false}, AccessCase{1, false, true, false},
                                         AccessCase{2, true, true, true}, AccessCase{9, true, true, true}));

TEST_F(FileTest, ShareModesDecideWhoMayOpenBeside) {
  WriteFileText(Utf8("shared"), "data");
  const PathBuffer path = Path("shared");

  File reader(path);
  ASSERT_TRUE(reader.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  File secondReader(path);
  EXPECT_TRUE(secondReader.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  File writer(path);
  EXPECT_FALSE(writer.Open(FileAccess_Write, FileShare_Read, FileAccessHint_None));
  EXPECT_FALSE(writer.Create(FileAccess_Write, FileShare_Read, FileAccessHint_None, true, kFileAttributeNormal));
  // The refused overwrite did not empty the file under the readers.
  EXPECT_EQ(ReadFileText(Utf8("shared")), "data");
  EXPECT_FALSE(Delete(path));
  reader.Close();
  secondReader.Close();

  ASSERT_TRUE(writer.Open(FileAccess_Write, FileShare_Read, FileAccessHint_None));
  File another(path);
  EXPECT_FALSE(another.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  // Delete-then-create by someone else fails at the delete while a writer
  // holds the file.
  EXPECT_FALSE(Delete(path));
  EXPECT_TRUE(testing_support::PathExists(Utf8("shared")));
  writer.Close();
  EXPECT_TRUE(Delete(path));
}

}  // namespace
}  // namespace Marlowen
