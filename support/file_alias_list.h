// A small list of file aliases (a short name and the path it stands for),
// kept in a settings store under its own group as the Int "numFiles" and,
// per index, the Strings "files[i].alias" and "files[i].path".
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "shell/wide_string.h"

namespace Marlowen {

struct SettingsStore;

inline constexpr std::size_t kMaxAliasText = 259;       // alias and path, each
inline constexpr std::size_t kMaxAliasGroupName = 63;

struct FileAliasT {
  WideString alias;
  WideString path;
};

struct FileAliasList {
  std::int32_t capacity = 0;
  std::int32_t count = 0;
  std::vector<FileAliasT> entries;
  WideString groupName;
};

// An empty list for the group; the name is cut to kMaxAliasGroupName.
std::unique_ptr<FileAliasList> NewFileAliasList(WideStringView groupName);
void FreeFileAliasList(std::unique_ptr<FileAliasList>& list);

// Replaces the path of `alias` (compared exactly), or appends the pair; a
// full list grows by 20 entries. Both texts are cut to kMaxAliasText.
void SetFileAlias(FileAliasList& list, WideStringView alias, WideStringView path);
// The path of `alias`, or the empty string.
WideString GetFileAlias(const FileAliasList& list, WideStringView alias);

// Writes the list into the store's document (SaveStore puts it on disk).
void SaveFileAliasList(SettingsStore& store, const FileAliasList& list);
// Replaces the list's entries with those of the store; the capacity becomes
// the count plus 10.
void LoadFileAliasList(SettingsStore& store, FileAliasList& list);

}  // namespace Marlowen
