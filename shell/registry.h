// Registry reads by a single path string, over the machine's registry file.
//
// The registry here is the text file platform::RegistryFilePath() in the
// registry editor's export format (see shell/registry_file.h). Every call
// reads the file afresh, so a value written by the install is seen at once.
// Nothing here logs or throws (other than allocation failures); any thread,
// the failing thread of a crash included, may call these.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"

// The four roots that a path form can name, with the other platform's key
// values. There is no form for the users root.
enum class RegistryRoot : std::uint32_t {
  kClassesRoot = 0x80000000u,
  kCurrentUser = 0x80000001u,
  kLocalMachine = 0x80000002u,
  kCurrentConfig = 0x80000005u,
};

// The root's name as the registry file's sections spell it,
// e.g. u"HKEY_LOCAL_MACHINE".
WideString RegistryRootName(RegistryRoot root);

// Splits a path form such as u"\\\\HKLM\\SOFTWARE\\Vendor" into root and
// subkey. The root comes from the first six characters, compared with case
// against "\\HKLM", "\\HKCC", "\\HKCR" and "\\HKCU"; anything else means the
// local machine. The seventh character is skipped unseen; the subkey is the
// rest (empty for forms of seven characters or fewer).
void ParseRegistryPath(const WideString& pathForm, RegistryRoot& root, WideString& subKey);

// The text of a string or expandable-string value; an empty valueName reads
// the key's default value. Expandable text comes back unexpanded. The text
// ends at its first zero character. Empty on any failure: no file, a file
// that does not parse, no key, no value, a value of another type, or an
// empty value all look alike.
WideString ReadRegistryString(const WideString& pathForm, const WideString& valueName);

// Sets a string value (an empty valueName sets the default value), creating
// the file, the key and the value as needed and keeping every other line of
// the file as it was. The file is replaced in one rename, so readers see the
// old or the new file, never a half-written one. False if the file exists
// but does not parse (it is left untouched) or cannot be written.
[[nodiscard]] bool WriteRegistryString(const WideString& pathForm, const WideString& valueName,
                                       const WideString& value);
