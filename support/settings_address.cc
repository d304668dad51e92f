#include "support/settings_address.h"

namespace Marlowen {

namespace {

bool IsSeparator(char16_t c) { return c == u'.' || c == u'-' || c == u'>'; }

}  // namespace

SettingsAddress CutSettingsAddress(WideStringView group, WideStringView name, WideStringView typeTag) {
  SettingsAddress address;
  address.group.assign(group);
  address.typeTag.assign(typeTag);
  std::size_t i = 0;
  while (i < name.size()) {
    while (i < name.size() && IsSeparator(name[i])) ++i;
    const std::size_t start = i;
    while (i < name.size() && !IsSeparator(name[i])) ++i;
    if (i > start) address.parts.emplace_back(name.substr(start, i - start));
  }
  return address;
}

bool SameEnclosingParts(const SettingsAddress& a, const SettingsAddress& b) {
  if (a.parts.size() != b.parts.size() || a.parts.empty()) return false;
  for (std::size_t i = 0; i + 1 < a.parts.size(); ++i) {
    if (a.parts[i] != b.parts[i]) return false;
  }
  return true;
}

bool LeadingPartsMatch(const SettingsAddress& outer, const SettingsAddress& inner) {
  if (inner.parts.empty() || outer.parts.size() < inner.parts.size()) return false;
  for (std::size_t i = 0; i + 1 < inner.parts.size(); ++i) {
    if (outer.parts[i] != inner.parts[i]) return false;
  }
  return true;
}

}  // namespace Marlowen
