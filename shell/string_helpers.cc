#include "shell/string_helpers.h"

#include <locale.h>
#include <string.h>
#include <wctype.h>

#include <string>

#include "shell/format_string.h"

namespace {

bool IsTrimmed(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

// Locale objects made once; newlocale of the built-in locales does not fail
// in practice, and a null result falls back to the C rules below.
locale_t Utf8Locale() {
  static locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  return locale;
}

locale_t CLocale() {
  static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return locale;
}

}  // namespace

WideString TrimWhitespace(WideStringView text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && IsTrimmed(text[begin])) ++begin;
  while (end > begin && IsTrimmed(text[end - 1])) --end;
  return WideString(text.substr(begin, end - begin));
}

WideString MultiByteToWide(std::string_view bytes, unsigned /*codePage*/) {
  // Both code pages the system names are UTF-8 on this platform.
  if (bytes.empty()) return WideString();
  return Utf8ToWide(bytes);
}

WideString ToUpperCopy(WideStringView text) {
  WideString out(text);
  locale_t locale = Utf8Locale();
  for (char16_t& c : out) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;  // surrogate halves stay
    wint_t upper = locale ? towupper_l(c, locale) : (c >= u'a' && c <= u'z' ? c - 32 : c);
    if (upper <= 0xFFFF) c = static_cast<char16_t>(upper);
  }
  return out;
}

WideString NumberToString(std::uint32_t value, std::uint32_t minimumWidth) {
  WideString digits;
  do {
    digits.insert(digits.begin(), static_cast<char16_t>(u'0' + value % 10));
    value /= 10;
  } while (value != 0);
  if (digits.size() < minimumWidth) digits.insert(0, minimumWidth - digits.size(), u'0');
  return digits;
}

WideString LastErrorText(std::uint32_t code) {
  // strerror in the C locale: the text is English whatever the user's language.
  // glibc answers "Unknown error N" for codes it has no text for; that is
  // "no text" here, as the system shows no code at all then.
  locale_t locale = CLocale();
  const char* text = locale ? strerror_l(static_cast<int>(code), locale) : nullptr;
  if (!text || !*text) return WideString();
  std::string_view view(text);
  if (view.starts_with("Unknown error")) return WideString();
  WideString wide = Utf8ToWide(view);
  for (char16_t& c : wide) {
    if (c == u'\r' || c == u'\n') c = u'-';
  }
  wide += u" (";
  wide += NumberToString(code, 0);
  wide += u")";
  return wide;
}
