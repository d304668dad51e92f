// SearchFolder and FindFiles on real folders: prefixes, filters, the
// housekeeping names, recursion, and the wildcard rules.
#include "store/folder_search.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
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
  FolderSearchTest() : folder_(root_.Path("reports")) { MakeFolders(folder_); }

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
  std::string folder_;
  bool found_ = false;
};

TEST_F(FolderSearchTest, PrefixesNamesWithTheFolderAsGivenPlusASeparator) {
  WriteFileText(In("a.dmp"), "");
  WriteFileText(In("b.zip"), "");
  EXPECT_EQ(Search(folder_, u"*.dmp", FindFilter_Files), Names{In("a.dmp")});
  // A trailing separator gives a doubled one before the names; the query
  // itself has a single one and still matches.
  EXPECT_EQ(Search(folder_ + "/", u"*.DMP", FindFilter_Files), Names{folder_ + "//a.dmp"});
}

TEST_F(FolderSearchTest, FindFilesSkipsHousekeepingHiddenSystemAndFolders) {
  for (const char* name : {"Thumbs.db", "desktop.INI", "MyThumbs.db", "report.dmp", ".hidden"}) {
    WriteFileText(In(name), "");
  }
  MakeFolders(In("sub"));
  ASSERT_EQ(mkfifo(In("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink(In("nowhere").c_str(), In("dangling").c_str()), 0);
  ASSERT_EQ(symlink(In("sub").c_str(), In("linked").c_str()), 0);

  PathList results{PathBuffer(u"/cleared")};
  FindFiles(results, PathBuffer::FromUtf8(folder_), u"*.*", false);
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(Search(folder_, u"*", FindFilter_Files), (Names{In("MyThumbs.db"), In("report.dmp")}));

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
  WriteFileText(In("r1/r1.txt"), "");
  WriteFileText(In("r1/r2/r-deep"), "");
  WriteFileText(In("other/r-not-reached"), "");
  // A link back up would never end if it were followed.
  ASSERT_EQ(symlink(folder_.c_str(), In("r1/r-loop").c_str()), 0);
  EXPECT_EQ(Search(folder_, u"r*", FindFilter_Files, true), (Names{In("r1/r1.txt"), In("r1/r2/r-deep")}));
}

TEST_F(FolderSearchTest, AnswersFalseOnlyWhenTheFirstLookUpFindsNothing) {
  WriteFileText(In("file"), "");
  EXPECT_TRUE(Search(folder_, u"*.dmp", FindFilter_Files).empty());
  EXPECT_FALSE(found_);
  Search(In("missing"), u"*", FindFilter_Files);
  EXPECT_FALSE(found_);
  Search(In("file"), u"*", FindFilter_Files);
  EXPECT_FALSE(found_);
  // Found but refused by the filter still counts as found.
  EXPECT_TRUE(Search(folder_, u"file", FindFilter_Folders).empty());
  EXPECT_TRUE(found_);
}

struct WildcardCase {
  const char16_t* pattern;
  const char16_t* name;
  bool matches;
};

void PrintTo(const WildcardCase& c, std::ostream* out) {
  *out << '"' << WideToUtf8(c.pattern) << "\" on \"" << WideToUtf8(c.name) << '"';
}

class WildcardTest : public testing::TestWithParam<WildcardCase> {};

TEST_P(WildcardTest, MatchesLikeTheSearchPatternsOfTheSystem) {
  EXPECT_EQ(MatchesWildcard(GetParam().pattern, GetParam().name), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WildcardTest,
    testing::Values(WildcardCase{u"*.dmp", u"X.DMP", true}, WildcardCase{u"*.dmp", u"a.dmp.zip", false},
                    WildcardCase{u"*.*", u"noext", true}, WildcardCase{u"App_1*", u"App_1.dmp", true},
                    WildcardCase{u"a?c", u"ac", false}, WildcardCase{u"a[1]*", u"a[1].dmp", true},
                    WildcardCase{u"*a*b", u"xaxxab", true}, WildcardCase{u"caf\u00C9*", u"caf\u00E9.dmp", true}));

}  // namespace
}  // namespace Marlowen
