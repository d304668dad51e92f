// PathBuffer: the checked copy and the three splitting operations.
#include "store/path_buffer.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace Marlowen {
namespace {

WideString Repeat(char16_t c, std::size_t count) { return WideString(count, c); }

TEST(PathBufferTest, HoldsTheLongestPathAndEndsTheProcessBeyondIt) {
  const WideString longest = Repeat(u'a', kMaxPathLength);
  PathBuffer path(longest);
  EXPECT_EQ(path.Length(), 259u);
  EXPECT_EQ(path.View(), longest);
  // Assignment from a wide string keeps the same limit.
  PathBuffer assigned;
  assigned = longest;
  EXPECT_EQ(assigned, path);

  EXPECT_DEATH({ PathBuffer tooLong(Repeat(u'a', kMaxPathLength + 1)); }, "longer than 259");
  EXPECT_DEATH(
      {
        PathBuffer target;
        target = Repeat(u'b', 300);
      },
      "");
  // UTF-16 units count, not bytes: 259 two-byte characters fit, 260 do not.
  const std::string twoByte = "\xC3\xA9";
  std::string utf8;
  for (std::size_t i = 0; i < kMaxPathLength; ++i) utf8 += twoByte;
  EXPECT_EQ(PathBuffer::FromUtf8(utf8).Length(), 259u);
  EXPECT_DEATH(PathBuffer::FromUtf8(utf8 + twoByte), "");
}

TEST(PathBufferTest, CopiesEmptyValuesAndItself) {
  PathBuffer path(u"/var/x");
  path = WideString();
  EXPECT_TRUE(path.IsEmpty());
  path = u"/var/y";
  const PathBuffer& same = path;
  path = same;
  path = path.c_str();
  EXPECT_EQ(path.View(), u"/var/y");
  // A source with a zero inside is taken up to the zero, as a C text is.
  path = WideString(u"ab\0cd", 5);
  EXPECT_EQ(path.View(), u"ab");
  EXPECT_EQ(PathBuffer::FromUtf8("/tmp/caf\xC3\xA9").ToUtf8(), "/tmp/caf\xC3\xA9");
}

struct SplitCase {
  const char16_t* path;
  const char16_t* extension;
  const char16_t* baseName;
  const char16_t* baseNameWithExtension;
  const char16_t* parent;
};

void PrintTo(const SplitCase& c, std::ostream* out) { *out << '"' << WideToUtf8(c.path) << '"'; }

class PathSplitTest : public testing::TestWithParam<SplitCase> {};

TEST_P(PathSplitTest, SplitsAsTheLastSeparatorAndDotSay) {
  const SplitCase& c = GetParam();
  const PathBuffer path(c.path);
  PathBuffer out(u"stale");
  EXPECT_EQ(path.Extension(out).View(), c.extension);
  EXPECT_EQ(&path.BaseName(out, false), &out);
  EXPECT_EQ(out.View(), c.baseName);
  EXPECT_EQ(path.BaseName(out, true).View(), c.baseNameWithExtension);
  EXPECT_EQ(path.ParentFolder(out).View(), c.parent);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PathSplitTest,
    testing::Values(SplitCase{u"a.b/c", u"", u"c", u"c", u"a.b"},
                    SplitCase{u"a/.b", u"b", u"", u".b", u"a"},
                    SplitCase{u"a.TAR.GZ", u"GZ", u"a.TAR", u"a.TAR.GZ", u""},
                    SplitCase{u"/x/report.dmp", u"dmp", u"report", u"report.dmp", u"/x"},
                    SplitCase{u"report.dmp", u"dmp", u"report", u"report.dmp", u""},
                    SplitCase{u"/x/", u"", u"", u"", u"/x"},
                    SplitCase{u"/", u"", u"", u"", u""},
                    SplitCase{u"/x", u"", u"x", u"x", u""},
                    SplitCase{u"name.", u"", u"name", u"name.", u""},
                    SplitCase{u"", u"", u"", u"", u""}));

TEST(PathBufferTest, SplitsIntoItself) {
  PathBuffer path(u"/var/lib/report.dmp");
  path.ParentFolder(path);
  EXPECT_EQ(path.View(), u"/var/lib");
  path.BaseName(path, true);
  EXPECT_EQ(path.View(), u"lib");
}

}  // namespace
}  // namespace Marlowen
