// The text layer: trimming, conversion, upper case, numbers, error texts and
// the formatter with its measuring walk.
#include <errno.h>

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "shell/format_string.h"
#include "shell/string_helpers.h"
#include "shell/wide_string.h"

namespace {

TEST(StringHelpers, TrimUpperCaseNumbersAndErrorTexts) {
  EXPECT_EQ(TrimWhitespace(u" \t\r\n-send x \n"), u"-send x");
  EXPECT_EQ(TrimWhitespace(u" \t\r\n "), u"");
  // A vertical tab or no-break space is not one of the four blanks.
  EXPECT_EQ(TrimWhitespace(u"\v a\u00A0"), u"\v a\u00A0");
  EXPECT_EQ(ToUpperCopy(u"\u00E9t\u00E9 \u0444 thumbs.db"), u"\u00C9T\u00C9 \u0424 THUMBS.DB");
  EXPECT_EQ(NumberToString(7, 3), u"007");
  EXPECT_EQ(NumberToString(1234, 3), u"1234");
  EXPECT_EQ(NumberToString(4294967295u, 3), u"4294967295");
  EXPECT_EQ(LastErrorText(EACCES), u"Permission denied (13)");
  EXPECT_EQ(LastErrorText(999999), u"");
}

TEST(Conversion, Utf8RoundTripsAndInvalidBytesBecomeReplacements) {
  const std::string text = "Tarnhollows \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  const WideString wide = MultiByteToWide(text, kCodePageUtf8);
  EXPECT_EQ(wide, u"Tarnhollows \u00E9\u20AC\U0001F600");
  EXPECT_EQ(WideToUtf8(wide), text);
  EXPECT_EQ(MultiByteToWide("a\xFF" "b\xC3", kCodePageAnsi), u"a\uFFFDb\uFFFD");
  // An overlong encoding of "/" must not turn into a slash.
  EXPECT_EQ(MultiByteToWide("\xC0\xAF", kCodePageUtf8), u"\uFFFD\uFFFD");
  // An unpaired surrogate cannot be written as UTF-8.
  EXPECT_EQ(WideToUtf8(WideString(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

TEST(FormatString, DirectivesWidthsAndPrecisions) {
  EXPECT_EQ(FormatString(u"Cannot open file '%s'.", u"/var/x.dat"), u"Cannot open file '/var/x.dat'.");
  EXPECT_EQ(FormatString(u"%S and %hs", "narrow", "\xC3\xA9"), u"narrow and \u00E9");
  EXPECT_EQ(FormatString(u"%i|%d|%02d|%x|%X|%c%c", -5, 42, 7, 255, 255, u'\u20AC', 'a'), u"-5|42|07|ff|FF|\u20ACa");
  EXPECT_EQ(FormatString(u"%.6f 100%%", 3.25), u"3.250000 100%");
  EXPECT_EQ(FormatString(u"%I64u %I64d", std::uint64_t{18446744073709551615ull}, std::int64_t{-1}),
            u"18446744073709551615 -1");
  EXPECT_EQ(FormatString(u"[%5s][%-5s][%.2s][%.*s]", u"ab", u"ab", u"abcdef", 3, u"abcdef"), u"[   ab][ab   ][ab][abc]");
  EXPECT_EQ(FormatString(u"[%*d][%-*d][%#x][%+d][% d][%10.3f]", 4, 7, 3, 7, 255, 5, 5, 2.5),
            u"[   7][7  ][0xff][+5][ 5][     2.500]");
}

TEST(FormatString, EdgeCases) {
  EXPECT_EQ(FormatString(nullptr), u"");
  EXPECT_EQ(FormatString(u"%s|%S", static_cast<const char16_t*>(nullptr), static_cast<const char*>(nullptr)),
            u"(null)|(null)");
  EXPECT_EQ(FormatString(u"ab%ccd", 0), u"ab");  // the result ends at a zero character
  EXPECT_EQ(FormatString(u"a%yb%s", u"c"), u"abc");  // unknown types take no argument
  EXPECT_EQ(FormatString(u"tail%"), u"tail");

  const WideString big(100000, u'x');
  EXPECT_EQ(FormatString(u"<%s|%s>", big.c_str(), big.c_str()).size(), 2 * big.size() + 3);
  // The largest double prints in full with the precision the bound allows.
  EXPECT_EQ(FormatString(u"%.6f", 1.7976931348623157e308).size(), 309u + 7u);
}

TEST(FormatStringDeathTest, OverrunningTheMeasuredBoundEndsTheProcess) {
  // A width beyond what the walk allows for "f" is the platform's failure.
  EXPECT_DEATH(FormatString(u"%400f", 1.0), "");
}

}  // namespace
