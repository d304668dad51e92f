// Language tags to display names, and the case rules of the localization
// files. Both lean on ICU, which carries the names of every language and the
// collation that a language list is sorted by.
#pragma once

#include "shell/wide_string.h"

namespace Marlowen {

// The tag of the master language: strings that have not been translated.
inline constexpr char16_t kUndefinedLanguage[] = u"UNDEFINED";

// The English display name of a language tag such as "de", "pt-BR" or
// "de_DE" ("German", "Portuguese (Brazil)", "German (Germany)"). The master
// language's tag, in any case, gives "UNDEFINED". Empty for a tag whose
// language ICU doesn't know, and for a malformed tag.
WideString LanguageDisplayName(WideStringView tag);

// Each UTF-16 unit mapped to lower case by Unicode's simple case mapping;
// surrogate halves stay as they are.
WideString LowerCaseCopy(WideStringView text);

// A linguistic comparison that ignores case but not accents, as language
// tables and case-blind key lookups use it: below 0, 0 or above 0.
int CompareIgnoringCase(WideStringView a, WideStringView b);

// True if the two texts are equal under CompareIgnoringCase.
inline bool EqualIgnoringCase(WideStringView a, WideStringView b) {
  return CompareIgnoringCase(a, b) == 0;
}

}  // namespace Marlowen
