// Path and folder helpers on real folders of a test root.
#include "store/path_helpers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "store/file.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using testing_support::MakeFolders;
using testing_support::PathExists;
using testing_support::ReadFileText;
using testing_support::WriteFileText;

class PathHelpersTest : public testing::Test {
 protected:
  std::string Utf8(const std::string& name) const { return root_.Path(name); }
  PathBuffer Path(const std::string& name) const { return PathBuffer::FromUtf8(Utf8(name)); }

  testing_support::TestRoot root_;
};

struct JoinCase {
  const char16_t* first;
  const char16_t* second;
  const char16_t* joined;
};

void PrintTo(const JoinCase& c, std::ostream* out) {
  *out << '"' << WideToUtf8(c.first) << "\" + \"" << WideToUtf8(c.second) << '"';
}

class JoinPathTest : public testing::TestWithParam<JoinCase> {};

TEST_P(JoinPathTest, PutsOneSeparatorBetween) {
  PathBuffer out(u"stale");
  EXPECT_EQ(JoinPath(out, GetParam().first, GetParam().second).View(), GetParam().joined);
}

INSTANTIATE_TEST_SUITE_P(Cases, JoinPathTest,
                         testing::Values(JoinCase{u"/a///", u"//b/c", u"/a/b/c"}, JoinCase{u"/a//", u"", u"/a"},
                                         JoinCase{u"", u"//b", u"b"}, JoinCase{u"//", u"", u"/"},
                                         JoinCase{u"/", u"x", u"/x"}, JoinCase{u"a", u"b", u"a/b"},
                                         JoinCase{u"", u"", u""}));

TEST_F(PathHelpersTest, ExistsIsDirectoryAndFileLengthTellFilesFromFolders) {
  WriteFileText(Utf8("file.dmp"), "12345");
  MakeFolders(Utf8("folder"));
  ASSERT_EQ(symlink(Utf8("file.dmp").c_str(), Utf8("link.dmp").c_str()), 0);

  EXPECT_TRUE(Exists(Path("file.dmp")));
  EXPECT_TRUE(Exists(Path("link.dmp")));
  EXPECT_FALSE(Exists(Path("folder")));
  EXPECT_FALSE(Exists(Path("missing")));
  EXPECT_FALSE(Exists(PathBuffer()));

  EXPECT_TRUE(IsDirectory(Path("folder")));
  EXPECT_TRUE(IsDirectory(Path("folder/")));
  EXPECT_TRUE(IsDirectory(PathBuffer(u"/")));
  EXPECT_FALSE(IsDirectory(Path("file.dmp")));
  EXPECT_FALSE(IsDirectory(Path("missing")));

  EXPECT_EQ(FileLength(Path("file.dmp")), 5u);
  EXPECT_EQ(FileLength(Path("link.dmp")), 5u);
  EXPECT_EQ(FileLength(Path("missing")), 0u);
  EXPECT_EQ(FileLength(Path("folder")), 0u);
}

TEST_F(PathHelpersTest, FoldersWithoutRightsAnswerFalseNotAnError) {
  if (geteuid() == 0) GTEST_SKIP() << "rights do not bind root";
  MakeFolders(Utf8("closed/inner"));
  WriteFileText(Utf8("closed/f"), "x");
  ASSERT_EQ(chmod(Utf8("closed").c_str(), 0), 0);
  EXPECT_FALSE(Exists(Path("closed/f")));
  EXPECT_FALSE(IsDirectory(Path("closed/inner")));
  EXPECT_EQ(FileLength(Path("closed/f")), 0u);
  EXPECT_FALSE(CreateFolder(Path("closed/inner/new"), true));
}

TEST_F(PathHelpersTest, DeleteRemovesFilesAndLinksButNoFolder) {
  WriteFileText(Utf8("target"), "keep");
  WriteFileText(Utf8("doomed"), "x");
  ASSERT_EQ(symlink(Utf8("target").c_str(), Utf8("link").c_str()), 0);
  MakeFolders(Utf8("folder"));

  EXPECT_TRUE(Delete(Path("doomed")));
  EXPECT_FALSE(PathExists(Utf8("doomed")));
  EXPECT_TRUE(Delete(Path("link")));
  EXPECT_EQ(ReadFileText(Utf8("target")), "keep");
  EXPECT_FALSE(Delete(Path("folder")));
  EXPECT_FALSE(Delete(Path("missing")));
  EXPECT_FALSE(Delete(PathBuffer()));
}

TEST_F(PathHelpersTest, CreateFolderMakesTheMissingParentsFromTheTop) {
  MakeFolders(Utf8("a"));
  EXPECT_FALSE(CreateFolder(Path("a/b/c"), false));
  EXPECT_TRUE(CreateFolder(Path("a/b/c"), true));
  EXPECT_TRUE(IsDirectory(Path("a/b")));
  EXPECT_TRUE(IsDirectory(Path("a/b/c")));

  // An existing folder: the plain call fails, with parents it passes.
  EXPECT_FALSE(CreateFolder(Path("a/b/c"), false));
  EXPECT_TRUE(CreateFolder(Path("a/b/c"), true));
  // Separators doubled or trailing do no harm.
  EXPECT_TRUE(CreateFolder(Path("x//y/z/"), true));
  EXPECT_TRUE(IsDirectory(Path("x/y/z")));

  // A file in the way stops the walk; what was made above it stays.
  MakeFolders(Utf8("p"));
  WriteFileText(Utf8("p/file"), "");
  EXPECT_FALSE(CreateFolder(Path("p/file/q"), true));
  EXPECT_FALSE(CreateFolder(PathBuffer(), true));
}

TEST_F(PathHelpersTest, CreateFolderWalksRelativePathsToTheirFirstElement) {
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof(previous)), nullptr);
  ASSERT_EQ(chdir(root_.path().c_str()), 0);
  const bool made = CreateFolder(PathBuffer(u"r/s/t"), true);
  ASSERT_EQ(chdir(previous), 0);
  EXPECT_TRUE(made);
  EXPECT_TRUE(IsDirectory(Path("r/s/t")));
}

TEST_F(PathHelpersTest, TempFolderHonoursTheOverride) {
  PathBuffer folder;
  EXPECT_EQ(TempFolder(folder).ToUtf8(), Utf8("tmp/"));
  SetTempFolderOverride(Path("elsewhere"));
  EXPECT_EQ(TempFolder(folder).ToUtf8(), Utf8("elsewhere"));
  // Readers on other threads see either value whole, never a mix.
  std::vector<std::thread> readers;
  std::vector<PathBuffer> seen(4);
  for (PathBuffer& out : seen) readers.emplace_back([&out] { TempFolder(out); });
  SetTempFolderOverride(PathBuffer());
  for (std::thread& t : readers) t.join();
  for (const PathBuffer& out : seen) {
    EXPECT_TRUE(out.ToUtf8() == Utf8("elsewhere") || out.ToUtf8() == Utf8("tmp/")) << out.ToUtf8();
  }
  EXPECT_EQ(TempFolder(folder).ToUtf8(), Utf8("tmp/"));
}

TEST_F(PathHelpersTest, TempFileNameGivesUniqueNamesAndKeepsTheFileOnlyIfAsked) {
  PathBuffer kept, second, dropped;
  TempFileName(kept, u"MLCrash", true);
  TempFileName(second, u"MLCrash", true);
  TempFileName(dropped, u"MLC", false);
  ASSERT_FALSE(kept.IsEmpty());
  EXPECT_NE(kept, second);
  PathBuffer name;
  kept.BaseName(name, true);
  EXPECT_EQ(name.View().substr(0, 3), u"MLC");
  EXPECT_EQ(name.View().substr(name.Length() - 4), u".tmp");
  PathBuffer parent;
  EXPECT_EQ(kept.ParentFolder(parent).ToUtf8() + "/", Utf8("tmp/"));
  struct stat info;
  ASSERT_EQ(stat(kept.ToUtf8().c_str(), &info), 0);
  EXPECT_EQ(info.st_size, 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_FALSE(dropped.IsEmpty());
  EXPECT_FALSE(PathExists(dropped.ToUtf8()));

  // A folder that is not there leaves the destination empty.
  SetTempFolderOverride(Path("missing/"));
  TempFileName(kept, u"MLC", true);
  SetTempFolderOverride(PathBuffer());
  EXPECT_TRUE(kept.IsEmpty());
}

TEST_F(PathHelpersTest, WriteTextWritesUtf8WithoutMarkAndRespectsOverwrite) {
  const WideString text = u"[InternetShortcut]\r\nURL=caf\u00E9";
  EXPECT_TRUE(WriteUtf8Text(Path("a.url"), text, false));
  EXPECT_EQ(ReadFileText(Utf8("a.url")), "[InternetShortcut]\r\nURL=caf\xC3\xA9");
  struct stat info;
  ASSERT_EQ(stat(Utf8("a.url").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  EXPECT_FALSE(WriteUtf8Text(Path("a.url"), u"other", false));
  EXPECT_EQ(ReadFileText(Utf8("a.url")), "[InternetShortcut]\r\nURL=caf\xC3\xA9");
  EXPECT_TRUE(WriteText(Path("a.url"), kCodePageAnsi, u"short", true));
  EXPECT_EQ(ReadFileText(Utf8("a.url")), "short");
  EXPECT_TRUE(WriteUtf8Text(Path("empty"), u"", true));
  EXPECT_TRUE(PathExists(Utf8("empty")));

  // A code page this system cannot write touches nothing.
  EXPECT_FALSE(WriteText(Path("latin"), 1252u, u"x", true));
  EXPECT_FALSE(PathExists(Utf8("latin")));
  EXPECT_FALSE(WriteUtf8Text(Path("missing/a.url"), u"x", true));
  // A file held open elsewhere is not overwritten.
  File holder(Path("a.url"));
  ASSERT_TRUE(holder.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None));
  EXPECT_FALSE(WriteUtf8Text(Path("a.url"), u"clobber", true));
  EXPECT_EQ(ReadFileText(Utf8("a.url")), "short");
}

}  // namespace
}  // namespace Marlowen
