// A value's address in a settings store, cut into its parts.
//
// The value name is split at every '.', '-' and '>', with runs of these
// characters counting as one cut and none kept at either end, so that
// "files[2].alias" and "files[2]->alias" name the same value. All parts but
// the last name Struct elements; the last names the value element, whose tag
// is the type's tag.
#pragma once

#include <vector>

#include "shell/wide_string.h"

namespace Marlowen {

struct SettingsAddress {
  std::vector<WideString> parts;
  WideString group;
  WideString typeTag;
};

SettingsAddress CutSettingsAddress(WideStringView group, WideStringView name, WideStringView typeTag);

// True if both hold the same number of parts and agree in all but the last.
bool SameEnclosingParts(const SettingsAddress& a, const SettingsAddress& b);

// True if every part of `inner` but its last is the leading part of `outer`
// at the same position; `outer` must have at least as many parts.
bool LeadingPartsMatch(const SettingsAddress& outer, const SettingsAddress& inner);

}  // namespace Marlowen
