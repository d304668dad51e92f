// A registry file in the registry editor's export format, read and edited
// line by line.
//
// Accepted: an optional first line "Windows Registry Editor Version 5.00" or
// "REGEDIT4"; UTF-8 (with or without BOM) or UTF-16LE with BOM; comments
// after ';'; sections "[ROOT\path]" and "[-ROOT\path]" (deletes the key and
// its subkeys); values "name"=... or @=... (the default value) as
//   "text"            string, escapes \\ and \"
//   dword:1a2b        32-bit number
//   hex:01,02         binary
//   hex(N):..         raw bytes of type N, e.g. hex(2) expandable text kept
//                     as UTF-16LE bytes (8-bit bytes under "REGEDIT4");
//                     a line ending in '\' continues on the next one
//   -                 deletes the value.
// Key and value names compare without case. Values keep their type and their
// bytes as the other platform stores them: a string is UTF-16LE with its
// terminating zero.
//
// One bad line makes the whole file unusable: Parse answers false and the
// object is empty, so a damaged registry reads as no registry at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "shell/wide_string.h"

// Value types with the other platform's numbers.
inline constexpr std::uint32_t kRegNone = 0;
inline constexpr std::uint32_t kRegString = 1;
inline constexpr std::uint32_t kRegExpandString = 2;
inline constexpr std::uint32_t kRegBinary = 3;
inline constexpr std::uint32_t kRegDword = 4;
inline constexpr std::uint32_t kRegMultiString = 7;

struct RegistryValue {
  std::uint32_t type = kRegNone;
  std::vector<std::uint8_t> data;
};

class RegistryFile final {
 public:
  RegistryFile() = default;

  // Reads and parses the file. A missing file gives an empty registry and
  // true; an unreadable or malformed one an empty registry and false.
  bool Load(const std::string& path);

  // Parses file bytes (BOM decides the encoding); false on any bad line.
  bool Parse(std::string_view bytes);

  // keyPath is the full key with its root, e.g. u"HKEY_LOCAL_MACHINE\\SOFTWARE".
  // Null if the key or the value does not exist; an empty name is the default
  // value. The pointer lives until the next change of the object.
  const RegistryValue* FindValue(WideStringView keyPath, WideStringView valueName) const;

  // Sets a string value, replacing the lines of an existing definition or
  // adding one at the end of the key's section (a new section at the end of
  // the file for a new key). All other lines stay as they were. False, with
  // nothing changed, for an unknown root or a name with a line break.
  [[nodiscard]] bool SetString(WideStringView keyPath, WideStringView valueName,
                               WideStringView text);

  // The file's bytes in the encoding and line ending it was read with
  // (UTF-8 and "\n" for a new file).
  std::string Serialize() const;

  // Writes Serialize() to a temporary file beside path and renames it over
  // path, creating missing parent folders. Mode 0644.
  [[nodiscard]] bool Save(const std::string& path) const;

 private:
  struct ValueEntry {
    RegistryValue value;
    std::size_t firstLine = 0;  // lines of the definition, both inclusive
    std::size_t lastLine = 0;
  };
  struct KeyEntry {
    std::map<WideString, ValueEntry> values;  // by upper-cased name
    std::size_t sectionEnd = 0;               // last header or value line of its last section
  };

  bool ParseLines();
  void Clear();

  std::vector<WideString> lines_;
  std::map<WideString, KeyEntry> keys_;  // by upper-cased full path
  bool utf16_ = false;
  bool utf8Bom_ = false;
  bool crlf_ = false;
  bool regedit4_ = false;
};
