#include "support/language_names.h"

#include <memory>
#include <string>

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/unistr.h>

namespace Marlowen {

namespace {

struct CollatorCloser {
  void operator()(UCollator* collator) const { ucol_close(collator); }
};

// The root collation at secondary strength: case differences vanish, accents
// stay. Opened once; the localization library is for one thread.
UCollator* CaseBlindCollator() {
  static std::unique_ptr<UCollator, CollatorCloser> collator = [] {
    UErrorCode status = U_ZERO_ERROR;
    UCollator* opened = ucol_open("", &status);
    if (U_FAILURE(status)) {
      if (opened) ucol_close(opened);
      return std::unique_ptr<UCollator, CollatorCloser>();
    }
    ucol_setStrength(opened, UCOL_SECONDARY);
    return std::unique_ptr<UCollator, CollatorCloser>(opened);
  }();
  return collator.get();
}

bool IsUndefinedTag(WideStringView tag) {
  const WideStringView undefined(kUndefinedLanguage);
  if (tag.size() != undefined.size()) return false;
  for (std::size_t i = 0; i < tag.size(); ++i) {
    if (u_toupper(tag[i]) != undefined[i]) return false;
  }
  return true;
}

}  // namespace

WideString LanguageDisplayName(WideStringView tag) {
  if (IsUndefinedTag(tag)) return kUndefinedLanguage;
  std::string bcp47 = WideToUtf8(tag);
  for (char& c : bcp47) {
    if (c == '_') c = '-';
  }
  if (bcp47.empty()) return {};
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale locale = icu::Locale::forLanguageTag(bcp47, status);
  if (U_FAILURE(status) || locale.isBogus() || locale.getLanguage()[0] == '\0') return {};

  // ICU echoes a code it has no name for; such a tag has no display name.
  const icu::Locale& english = icu::Locale::getEnglish();
  icu::UnicodeString languageName;
  locale.getDisplayLanguage(english, languageName);
  if (languageName.isEmpty() || languageName == icu::UnicodeString(locale.getLanguage())) return {};

  icu::UnicodeString name;
  locale.getDisplayName(english, name);
  return WideString(reinterpret_cast<const char16_t*>(name.getBuffer()),
                    static_cast<std::size_t>(name.length()));
}

WideString LowerCaseCopy(WideStringView text) {
  WideString out(text);
  for (char16_t& c : out) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const UChar32 lower = u_tolower(c);
    if (lower <= 0xFFFF) c = static_cast<char16_t>(lower);
  }
  return out;
}

int CompareIgnoringCase(WideStringView a, WideStringView b) {
  UCollator* collator = CaseBlindCollator();
  if (!collator) {
    const WideString la = LowerCaseCopy(a), lb = LowerCaseCopy(b);
    return la.compare(lb);
  }
  const UCollationResult result =
      ucol_strcoll(collator, reinterpret_cast<const UChar*>(a.data()), static_cast<int32_t>(a.size()),
                   reinterpret_cast<const UChar*>(b.data()), static_cast<int32_t>(b.size()));
  return result == UCOL_LESS ? -1 : result == UCOL_GREATER ? 1 : 0;
}

}  // namespace Marlowen
