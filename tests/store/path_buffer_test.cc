// PathBuffer: the checked copy and the three splitting operations.
#include "store/path_buffer.h"

#include <gtest/gtest.h>

#include <string>

namespace Marlowen {
namespace {

TEST(PathBufferTest, Holds259UnitsAndEndsTheProcessBeyond) {
  const WideString longest(kMaxPathLength, u'a');
  PathBuffer path;
  path = longest;
  EXPECT_EQ(path.View(), longest);
  EXPECT_DEATH({ PathBuffer tooLong(longest + u'a'); }, "longer than 259");

  // UTF-16 units count, not bytes: 259 two-byte characters fit, 260 do not.
  std::string utf8;
  for (std::size_t i = 0; i < kMaxPathLength; ++i) utf8 += "\xC3\xA9";
  EXPECT_EQ(PathBuffer::FromUtf8(utf8).Length(), kMaxPathLength);
  EXPECT_DEATH(PathBuffer::FromUtf8(utf8 + "\xC3\xA9"), "");
}

TEST(PathBufferTest, SplitsAtTheLastSeparatorAndDotAlsoIntoItself) {
  struct Case {
    const char16_t* path;
    const char16_t* extension;
    const char16_t* baseName;
    const char16_t* baseNameWithExtension;
    const char16_t* parent;
  };
  for (const Case& c : {Case{u"a.b/c", u"", u"c", u"c", u"a.b"}, Case{u"a/.b", u"b", u"", u".b", u"a"},
                        Case{u"a.TAR.GZ", u"GZ", u"a.TAR", u"a.TAR.GZ", u""},
                        Case{u"/x/report.dmp", u"dmp", u"report", u"report.dmp", u"/x"},
                        Case{u"/x/", u"", u"", u"", u"/x"}, Case{u"", u"", u"", u"", u""}}) {
    const PathBuffer path(c.path);
    PathBuffer out(u"stale");
    EXPECT_EQ(path.Extension(out).View(), c.extension) << WideToUtf8(c.path);
    EXPECT_EQ(path.BaseName(out, false).View(), c.baseName) << WideToUtf8(c.path);
    EXPECT_EQ(path.BaseName(out, true).View(), c.baseNameWithExtension) << WideToUtf8(c.path);
    EXPECT_EQ(path.ParentFolder(out).View(), c.parent) << WideToUtf8(c.path);
  }

  PathBuffer path(u"/var/lib/report.dmp");
  path = path.c_str();
  EXPECT_EQ(path.View(), u"/var/lib/report.dmp");
  path.ParentFolder(path);
  EXPECT_EQ(path.View(), u"/var/lib");
  path.BaseName(path, true);
  EXPECT_EQ(path.View(), u"lib");
}

}  // namespace
}  // namespace Marlowen
