// SearchFolder and FindFiles on real folders: prefixes, filters, the
// housekeeping names, recursion, and the wildcard rules.
#include "store/folder_search.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "test_root.h"

namespace Marlowen {
namespace {

using Names = std::vector<std::string>;
using testing_support::MakeFolders;
using testing_support::WriteFileText;

class FolderSearchTest : public testing::Test {
 protected:
  FolderSearchTest() { MakeFolders(folder_); }

  std::string In(const std::string& name) const { return folder_ + "/" + name; }

  // The paths found, sorted, since listings come in the file system's order.
  Names Search(const std::string& folder, const char16_t* pattern, std::uint32_t flags, bool recursive = false) {
    PathList results;
    found_ = SearchFolder(PathBuffer::FromUtf8(folder), pattern, flags, recursive, results);
    Names paths;
    for (const PathBuffer& path : results) paths.push_back(path.ToUtf8());
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  testing_support::TestRoot root_;
  std::string folder_ = root_.Path("reports");
  bool found_ = false;
};

TEST_F(FolderSearchTest, FiltersSkipHousekeepingHiddenSystemAndFolders) {
  for (const char* name : {"Thumbs.db", "desktop.INI", "MyThumbs.db", "report.dmp", ".hidden"}) WriteFileText(In(name), "");
  MakeFolders(In("sub"));
  ASSERT_EQ(mkfifo(In("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink(In("nowhere").c_str(), In("dangling").c_str()), 0);
  ASSERT_EQ(symlink(In("sub").c_str(), In("linked").c_str()), 0);

  PathList results{PathBuffer(u"/cleared")};
  FindFiles(results, PathBuffer::FromUtf8(folder_), u"*.*", false);
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(Search(folder_, u"*", FindFilter_Files), (Names{In("MyThumbs.db"), In("report.dmp")}));
  // A trailing separator gives a doubled one before the names.
  EXPECT_EQ(Search(folder_ + "/", u"*.DMP", FindFilter_Files), Names{folder_ + "//report.dmp"});
  EXPECT_EQ(Search(folder_, u"*", FindFilter_Files | FindFilter_KeepSystemNames).size(), 4u);
  EXPECT_EQ(Search(folder_, u"*", FindFilter_Folders), (Names{In("linked"), In("sub")}));
  EXPECT_EQ(Search(folder_, u"*.*", FindFilter_Files | FindFilter_System),
            (Names{In("MyThumbs.db"), In("dangling"), In("fifo"), In("report.dmp")}));
  // "." and ".." are listed but never reported.
  EXPECT_EQ(Search(folder_, u".*", 0xFF), Names{In(".hidden")});
}

TEST_F(FolderSearchTest, RecursionEntersMatchingFoldersButNoLinks) {
  MakeFolders(In("r1/r2"));
  MakeFolders(In("other"));
  for (const char* name : {"r1/r1.txt", "r1/r2/r-deep", "other/r-not-reached"}) WriteFileText(In(name), "");
  // A link back up would never end if it were followed.
  ASSERT_EQ(symlink(folder_.c_str(), In("r1/r-loop").c_str()), 0);
  EXPECT_EQ(Search(folder_, u"r*", FindFilter_Files, true), (Names{In("r1/r1.txt"), In("r1/r2/r-deep")}));
}

TEST_F(FolderSearchTest, AnswersFalseOnlyWhenTheFirstLookUpFindsNothing) {
  WriteFileText(In("file"), "");
  for (const std::string& folder : {folder_, In("missing"), In("file")}) {
    EXPECT_TRUE(Search(folder, u"*.dmp", FindFilter_Files).empty());
    EXPECT_FALSE(found_) << folder;
  }
  // Found but refused by the filter still counts as found.
  EXPECT_TRUE(Search(folder_, u"file", FindFilter_Folders).empty());
  EXPECT_TRUE(found_);
}

TEST(WildcardTest, MatchesLikeTheSearchPatternsOfTheSystem) {
  struct Case {
    const char16_t* pattern;
    const char16_t* name;
    bool matches;
  };
  for (const Case& c : {Case{u"*.dmp", u"X.DMP", true}, Case{u"*.dmp", u"a.dmp.zip", false}, Case{u"*.*", u"noext", true},
                        Case{u"a?c", u"ac", false}, Case{u"a[1]*", u"a[1].dmp", true}, Case{u"*a*b", u"xaxxab", true},
                        Case{u"caf\u00C9*", u"caf\u00E9.dmp", true}}) {
    EXPECT_EQ(MatchesWildcard(c.pattern, c.name), c.matches) << WideToUtf8(c.pattern) << " " << WideToUtf8(c.name);
  }
}

}  // namespace
}  // namespace Marlowen
