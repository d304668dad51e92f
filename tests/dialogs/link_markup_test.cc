#include "dialogs/link_markup.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Pieces written as "text" for plain text and "[id|url|text]" for a link.
std::string Describe(const std::vector<LinkMarkupPiece>& pieces) {
  std::string out;
  for (const LinkMarkupPiece& piece : pieces) {
    if (!out.empty()) out += " ";
    if (piece.isLink) {
      out += "[" + WideToUtf8(piece.id) + "|" + WideToUtf8(piece.url) + "|" + WideToUtf8(piece.text) + "]";
    } else {
      out += "\"" + WideToUtf8(piece.text) + "\"";
    }
  }
  return out;
}

struct MarkupCase {
  const char* markup;
  const char* expected;
};

void PrintTo(const MarkupCase& c, std::ostream* out) { *out << c.markup; }

class LinkMarkupTest : public testing::TestWithParam<MarkupCase> {};

TEST_P(LinkMarkupTest, SplitsTextAndLinks) {
  EXPECT_EQ(Describe(ParseLinkMarkup(Utf8ToWide(GetParam().markup))), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LinkMarkupTest,
    testing::Values(
        MarkupCase{"Read <a href='u1' id=one>this</a> and <A\tID=\"two\" >that</A>.",
                   "\"Read \" [one|u1|this] \" and \" [two||that] \".\""},
        MarkupCase{"", ""},
        MarkupCase{"a < b <A ID=\"x\">open without end", "\"a < b <A ID=\"x\">open without end\""},
        MarkupCase{"<ABBR>not a link</ABBR>", "\"<ABBR>not a link</ABBR>\""},
        MarkupCase{"<A ID=\"x\"></A>", "[x||]"},
        MarkupCase{"<A ID=\"unterminated>text</A>", "\"<A ID=\"unterminated>text</A>\""}));

}  // namespace
