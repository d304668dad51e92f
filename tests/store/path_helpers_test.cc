// Path and folder helpers on real folders of a test root.
#include "store/path_helpers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

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

TEST(JoinPathTest, PutsOneSeparatorBetween) {
  struct Case {
    const char16_t* first;
    const char16_t* second;
    const char16_t* joined;
  };
  for (const Case& c : {Case{u"/a///", u"//b/c", u"/a/b/c"}, Case{u"/a//", u"", u"/a"}, Case{u"", u"//b", u"b"},
                        Case{u"/", u"x", u"/x"}, Case{u"", u"", u""}}) {
    PathBuffer out(u"stale");
    EXPECT_EQ(JoinPath(out, c.first, c.second).View(), c.joined) << WideToUtf8(c.first) << " + " << WideToUtf8(c.second);
  }
}

TEST_F(PathHelpersTest, ExistsIsDirectoryFileLengthAndDeleteTellFilesFromFolders) {
  WriteFileText(Utf8("file.dmp"), "12345");
  MakeFolders(Utf8("folder"));
  ASSERT_EQ(symlink(Utf8("file.dmp").c_str(), Utf8("link.dmp").c_str()), 0);
  for (const char* file : {"file.dmp", "link.dmp"}) {
    EXPECT_TRUE(Exists(Path(file))) << file;
    EXPECT_FALSE(IsDirectory(Path(file))) << file;
    EXPECT_EQ(FileLength(Path(file)), 5u) << file;
  }
  EXPECT_TRUE(IsDirectory(Path("folder/")));
  EXPECT_FALSE(IsDirectory(Path("missing")));
  EXPECT_EQ(FileLength(Path("missing")), 0u);
  // Removing a link in a file's place is shown by the settings save.
  for (const char* other : {"folder", "missing"}) {
    EXPECT_FALSE(Exists(Path(other))) << other;
    EXPECT_FALSE(Delete(Path(other))) << other;
  }

  if (geteuid() == 0) return;  // rights do not bind root
  WriteFileText(Utf8("folder/f"), "x");
  ASSERT_EQ(chmod(Utf8("folder").c_str(), 0), 0);
  EXPECT_FALSE(Exists(Path("folder/f")));
}

TEST_F(PathHelpersTest, CreateFolderMakesTheMissingParentsFromTheTop) {
  MakeFolders(Utf8("a"));
  EXPECT_FALSE(CreateFolder(Path("a/b/c"), false));
  EXPECT_TRUE(CreateFolder(Path("a/b/c"), true));
  EXPECT_TRUE(IsDirectory(Path("a/b/c")));
  // An existing folder: the plain call fails, with parents it passes.
  EXPECT_FALSE(CreateFolder(Path("a/b/c"), false));
  EXPECT_TRUE(CreateFolder(Path("a/b/c"), true));
  EXPECT_TRUE(CreateFolder(Path("x//y/z/"), true));
  EXPECT_TRUE(IsDirectory(Path("x/y/z")));
  // A file in the way stops the walk.
  WriteFileText(Utf8("a/file"), "");
  EXPECT_FALSE(CreateFolder(Path("a/file/q"), true));
  EXPECT_FALSE(CreateFolder(PathBuffer(), true));

  // A relative path is made down from its first element.
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof(previous)), nullptr);
  ASSERT_EQ(chdir(root_.path().c_str()), 0);
  const bool made = CreateFolder(PathBuffer(u"r/s/t"), true);
  ASSERT_EQ(chdir(previous), 0);
  EXPECT_TRUE(made);
  EXPECT_TRUE(IsDirectory(Path("r/s/t")));
}

TEST_F(PathHelpersTest, TempFileNamesAreUniqueInTheTempFolderOrItsOverride) {
  PathBuffer folder, kept, second, dropped;
  EXPECT_EQ(TempFolder(folder).ToUtf8(), Utf8("tmp/"));
  TempFileName(kept, u"MLCrash", true);
  TempFileName(second, u"MLCrash", true);
  TempFileName(dropped, u"MLC", false);
  EXPECT_NE(kept, second);
  EXPECT_EQ(kept.ToUtf8().substr(0, folder.Length() + 3) + kept.ToUtf8().substr(kept.Length() - 4), Utf8("tmp/MLC.tmp"));
  EXPECT_EQ(testing_support::ListFolder(Utf8("tmp")).size(), 2u);  // empty files, dropped one gone
  EXPECT_FALSE(dropped.IsEmpty());

  SetTempFolderOverride(Path("missing/"));
  EXPECT_EQ(TempFolder(folder).ToUtf8(), Utf8("missing/"));
  TempFileName(kept, u"MLC", true);
  EXPECT_TRUE(kept.IsEmpty());  // no folder, no name
  SetTempFolderOverride(PathBuffer());
}

TEST_F(PathHelpersTest, WriteTextWritesUtf8WithoutMarkAndRespectsOverwrite) {
  EXPECT_TRUE(WriteUtf8Text(Path("a.url"), u"[InternetShortcut]\r\nURL=caf\u00E9", false));
  EXPECT_EQ(ReadFileText(Utf8("a.url")), "[InternetShortcut]\r\nURL=caf\xC3\xA9");
  EXPECT_FALSE(WriteUtf8Text(Path("a.url"), u"other", false));
  EXPECT_TRUE(WriteText(Path("a.url"), kCodePageAnsi, u"short", true));
  EXPECT_EQ(ReadFileText(Utf8("a.url")), "short");

  // A code page this system cannot write touches nothing; a missing folder fails.
  EXPECT_FALSE(WriteText(Path("latin"), 1252u, u"x", true));
  EXPECT_FALSE(PathExists(Utf8("latin")));
  EXPECT_FALSE(WriteUtf8Text(Path("missing/a.url"), u"x", true));
}

}  // namespace
}  // namespace Marlowen
