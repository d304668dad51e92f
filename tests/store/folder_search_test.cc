// SearchFolder and FindFiles on real folders: prefixes, filters, the
// housekeeping names, recursion, and the wildcard rules.
#include "store/folder_search.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "test_root.h"

namespace Marlowen {
namespace {

using testing_support::MakeFolders;
using testing_support::WriteFileText;

std::vector<std::string> Sorted(const PathList& list) {
  std::vector<std::string> paths;
  for (const PathBuffer& path : list) paths.push_back(path.ToUtf8());
  std::sort(paths.begin(), paths.end());
  return paths;
}

class FolderSearchTest : public testing::Test {
 protected:
  FolderSearchTest() : folder_(root_.Path("reports")) { MakeFolders(folder_); }

  std::string In(const std::string& name) const { return folder_ + "/" + name; }
  PathBuffer Folder() const { return PathBuffer::FromUtf8(folder_); }

  testing_support::TestRoot root_;
  std::string folder_;
};

TEST_F(FolderSearchTest, PrefixesEveryNameWithTheFolderAndOneMoreSeparator) {
  WriteFileText(In("a.dmp"), "");
  WriteFileText(In("b.zip"), "");
  PathList results;
  EXPECT_TRUE(SearchFolder(Folder(), u"*.dmp", FindFilter_Files, false, results));
  EXPECT_EQ(Sorted(results), std::vector<std::string>{In("a.dmp")});

  // Given with a trailing separator, the folder gives a doubled one in front
  // of the names; the query itself has a single one and still matches.
  results.clear();
  EXPECT_TRUE(SearchFolder(PathBuffer::FromUtf8(folder_ + "/"), u"*.dmp", FindFilter_Files, false, results));
  EXPECT_EQ(Sorted(results), std::vector<std::string>{folder_ + "//a.dmp"});
}

TEST_F(FolderSearchTest, HousekeepingNamesAreSkippedInAnyCaseUnlessKept) {
  for (const char* name : {"Thumbs.db", "desktop.INI", "MyThumbs.db", "report.dmp"}) WriteFileText(In(name), "");
  PathList results;
  FindFiles(results, Folder(), u"*", false);
  EXPECT_EQ(Sorted(results), (std::vector<std::string>{In("MyThumbs.db"), In("report.dmp")}));

  results.clear();
  SearchFolder(Folder(), u"*", FindFilter_Files | FindFilter_KeepSystemNames, false, results);
  EXPECT_EQ(results.size(), 4u);
}

TEST_F(FolderSearchTest, FiltersFoldersHiddenAndSystemEntries) {
  WriteFileText(In("plain"), "");
  WriteFileText(In(".hidden"), "");
  MakeFolders(In("sub"));
  ASSERT_EQ(mkfifo(In("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink(In("nowhere").c_str(), In("dangling").c_str()), 0);
  ASSERT_EQ(symlink(In("sub").c_str(), In("linked").c_str()), 0);

  PathList results;
  FindFiles(results, Folder(), u"*.*", false);
  EXPECT_EQ(Sorted(results), std::vector<std::string>{In("plain")});

  results.clear();
  SearchFolder(Folder(), u"*", FindFilter_Folders, false, results);
  EXPECT_EQ(Sorted(results), (std::vector<std::string>{In("linked"), In("sub")}));

  results.clear();
  SearchFolder(Folder(), u"*", FindFilter_Files | FindFilter_Hidden, false, results);
  EXPECT_EQ(Sorted(results), (std::vector<std::string>{In(".hidden"), In("plain")}));

  results.clear();
  SearchFolder(Folder(), u"*", FindFilter_Files | FindFilter_System, false, results);
  EXPECT_EQ(Sorted(results), (std::vector<std::string>{In("dangling"), In("fifo"), In("plain")}));

  // "." and ".." are listed but never reported.
  results.clear();
  EXPECT_TRUE(SearchFolder(Folder(), u".*", 0xFF, false, results));
  EXPECT_EQ(Sorted(results), std::vector<std::string>{In(".hidden")});
}

TEST_F(FolderSearchTest, RecursionEntersOnlyFoldersThatMatchAndNoLinks) {
  MakeFolders(In("r1/r2"));
  MakeFolders(In("other"));
  WriteFileText(In("r1/r1.txt"), "");
  WriteFileText(In("r1/r2/r-deep"), "");
  WriteFileText(In("other/r-hidden-from-search"), "");
  // A link back up would loop forever if it were followed.
  ASSERT_EQ(symlink(folder_.c_str(), In("r1/r-loop").c_str()), 0);

  PathList results;
  FindFiles(results, Folder(), u"r*", true);
  EXPECT_EQ(Sorted(results), (std::vector<std::string>{In("r1/r1.txt"), In("r1/r2/r-deep")}));
  // FindFiles starts from an empty list.
  FindFiles(results, Folder(), u"nothing*", true);
  EXPECT_TRUE(results.empty());
}

TEST_F(FolderSearchTest, AnswersFalseWhenTheFirstLookUpFindsNothing) {
  PathList results{PathBuffer(u"/kept")};
  EXPECT_FALSE(SearchFolder(Folder(), u"*.dmp", FindFilter_Files, false, results));
  EXPECT_FALSE(SearchFolder(PathBuffer::FromUtf8(In("missing")), u"*", FindFilter_Files, false, results));
  WriteFileText(In("file"), "");
  EXPECT_FALSE(SearchFolder(PathBuffer::FromUtf8(In("file")), u"*", FindFilter_Files, false, results));
  ASSERT_EQ(results.size(), 1u);
  // Something found that the filter refuses still counts as found.
  EXPECT_TRUE(SearchFolder(Folder(), u"file", FindFilter_Folders, false, results));
  EXPECT_EQ(results.size(), 1u);
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
    testing::Values(WildcardCase{u"*.dmp", u"App_20240101.dmp", true}, WildcardCase{u"*.dmp", u"X.DMP", true},
                    WildcardCase{u"*.dmp", u"a.dmp.zip", false}, WildcardCase{u"*.*", u"noext", true},
                    WildcardCase{u"*.*", u".", true}, WildcardCase{u"App_1*", u"App_1.dmp", true},
                    WildcardCase{u"App_1*", u"App_2.dmp", false}, WildcardCase{u"a?c", u"abc", true},
                    WildcardCase{u"a?c", u"ac", false}, WildcardCase{u"a[1]*", u"a[1].dmp", true},
                    WildcardCase{u"*a*b", u"xaxxab", true}, WildcardCase{u"caf\u00C9*", u"caf\u00E9.dmp", true},
                    WildcardCase{u"exact", u"exact", true}, WildcardCase{u"exact", u"exact2", false}));

}  // namespace
}  // namespace Marlowen
