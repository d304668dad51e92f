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

std::string U8(const WideString& w) { return WideToUtf8(w); }

TEST(TrimWhitespace, RemovesOnlyTheFourBlankCharactersAtBothEnds) {
  EXPECT_EQ(TrimWhitespace(u" \t\r\n-send x \n"), u"-send x");
  EXPECT_EQ(TrimWhitespace(u" \t\r\n "), u"");
  EXPECT_EQ(TrimWhitespace(u""), u"");
  // A vertical tab or no-break space is not one of them.
  EXPECT_EQ(TrimWhitespace(u"\v a\u00A0"), u"\v a\u00A0");
}

TEST(Conversion, Utf8RoundTripsAndInvalidBytesBecomeReplacements) {
  const std::string text = "Tarnhollows \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  const WideString wide = MultiByteToWide(text, kCodePageUtf8);
  EXPECT_EQ(wide, u"Tarnhollows \u00E9\u20AC\U0001F600");
  EXPECT_EQ(WideToUtf8(wide), text);
  EXPECT_EQ(MultiByteToWide("", kCodePageUtf8), u"");
  EXPECT_EQ(MultiByteToWide("a\xFF" "b\xC3", kCodePageAnsi), u"a\uFFFDb\uFFFD");
  // An overlong encoding of "/" must not turn into a slash.
  EXPECT_EQ(MultiByteToWide("\xC0\xAF", kCodePageUtf8), u"\uFFFD\uFFFD");
  // An unpaired surrogate cannot be written as UTF-8.
  EXPECT_EQ(WideToUtf8(WideString(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

TEST(ToUpperCopy, MapsLettersBeyondAscii) {
  EXPECT_EQ(ToUpperCopy(u"thumbs.db"), u"THUMBS.DB");
  EXPECT_EQ(ToUpperCopy(u"\u00E9t\u00E9 \u0444"), u"\u00C9T\u00C9 \u0424");
  EXPECT_EQ(ToUpperCopy(u"123-_"), u"123-_");
}

TEST(NumberToString, PadsToTheMinimumWidthAndNeverCuts) {
  EXPECT_EQ(NumberToString(7, 3), u"007");
  EXPECT_EQ(NumberToString(1234, 3), u"1234");
  EXPECT_EQ(NumberToString(0, 0), u"0");
  EXPECT_EQ(NumberToString(4294967295u, 0), u"4294967295");
}

TEST(LastErrorText, EnglishTextThenTheCodeAndNothingForUnknownCodes) {
  EXPECT_EQ(LastErrorText(EACCES), u"Permission denied (13)");
  EXPECT_EQ(LastErrorText(ENOENT), u"No such file or directory (2)");
  EXPECT_EQ(LastErrorText(999999), u"");
}

TEST(FormatString, TheSystemsDirectives) {
  EXPECT_EQ(FormatString(u"Cannot open file '%s'.", u"/var/x.dat"), u"Cannot open file '/var/x.dat'.");
  EXPECT_EQ(FormatString(u"%S and %hs", "narrow", "\xC3\xA9"), u"narrow and \u00E9");
  EXPECT_EQ(FormatString(u"%i|%d|%02d|%x|%X", -5, 42, 7, 255, 255), u"-5|42|07|ff|FF");
  EXPECT_EQ(FormatString(u"%c%c", u'\u20AC', 'a'), u"\u20ACa");
  EXPECT_EQ(FormatString(u"%.6f", 3.25), u"3.250000");
  EXPECT_EQ(FormatString(u"100%%"), u"100%");
  EXPECT_EQ(FormatString(u"%I64u %I64d", std::uint64_t{18446744073709551615ull}, std::int64_t{-1}),
            u"18446744073709551615 -1");
  EXPECT_EQ(FormatString(u"0x%08X", 0xBEEFu), u"0x0000BEEF");
}

TEST(FormatString, WidthsPrecisionsAndStars) {
  EXPECT_EQ(FormatString(u"[%5s][%-5s][%.2s]", u"ab", u"ab", u"abcdef"), u"[   ab][ab   ][ab]");
  EXPECT_EQ(FormatString(u"[%*d][%-*d]", 4, 7, 3, 7), u"[   7][7  ]");
  EXPECT_EQ(FormatString(u"[%.*s]", 3, u"abcdef"), u"[abc]");
  EXPECT_EQ(FormatString(u"[%#x][%+d][% d]", 255, 5, 5), u"[0xff][+5][ 5]");
  EXPECT_EQ(FormatString(u"[%10.3f]", 2.5), u"[     2.500]");
}

TEST(FormatString, EdgeCases) {
  EXPECT_EQ(FormatString(u"no directive"), u"no directive");
  EXPECT_EQ(FormatString(u""), u"");
  EXPECT_EQ(FormatString(nullptr), u"");
  EXPECT_EQ(FormatString(u"%s|%S", static_cast<const char16_t*>(nullptr), static_cast<const char*>(nullptr)),
            u"(null)|(null)");
  // The result ends at a zero character.
  EXPECT_EQ(FormatString(u"ab%ccd", 0), u"ab");
  // Unknown types take no argument and produce nothing.
  EXPECT_EQ(FormatString(u"a%yb%s", u"c"), u"abc");
  // A directive cut off by the end of the format produces nothing.
  EXPECT_EQ(FormatString(u"tail%"), u"tail");
}

TEST(FormatString, LongResultsNeedNoFixedBuffer) {
  const WideString big(100000, u'x');
  const WideString out = FormatString(u"<%s|%s>", big.c_str(), big.c_str());
  EXPECT_EQ(out.size(), 2 * big.size() + 3);
  // The largest double prints in full with the precision the bound allows.
  const WideString huge = FormatString(u"%.6f", 1.7976931348623157e308);
  EXPECT_EQ(huge.size(), 309u + 7u);
}

TEST(FormatStringDeathTest, OverrunningTheMeasuredBoundEndsTheProcess) {
  // A width beyond what the walk allows for "f" is the platform's failure.
  EXPECT_DEATH(FormatString(u"%400f", 1.0), "");
}

}  // namespace
