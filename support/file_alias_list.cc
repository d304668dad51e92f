#include "support/file_alias_list.h"

#include "shell/format_string.h"
#include "support/settings_store.h"

namespace Marlowen {

namespace {

constexpr std::int32_t kGrowth = 20;
constexpr std::int32_t kLoadHeadroom = 10;
constexpr std::size_t kAliasBuffer = kMaxAliasText + 1;
// A damaged count must not make a load allocate or loop without end.
constexpr std::int32_t kMaxLoadedAliases = 65536;

WideString Cut(WideStringView text, std::size_t limit) { return WideString(text.substr(0, limit)); }

}  // namespace

std::unique_ptr<FileAliasList> NewFileAliasList(WideStringView groupName) {
  auto list = std::make_unique<FileAliasList>();
  list->groupName = Cut(groupName, kMaxAliasGroupName);
  return list;
}

void FreeFileAliasList(std::unique_ptr<FileAliasList>& list) { list.reset(); }

void SetFileAlias(FileAliasList& list, WideStringView alias, WideStringView path) {
  const WideString key = Cut(alias, kMaxAliasText);
  for (std::int32_t i = 0; i < list.count; ++i) {
    if (list.entries[i].alias == key) {
      list.entries[i].path = Cut(path, kMaxAliasText);
      return;
    }
  }
  if (list.count >= list.capacity) {
    list.capacity += kGrowth;
    list.entries.reserve(static_cast<std::size_t>(list.capacity));
  }
  list.entries.push_back(FileAliasT{key, Cut(path, kMaxAliasText)});
  ++list.count;
}

WideString GetFileAlias(const FileAliasList& list, WideStringView alias) {
  for (std::int32_t i = 0; i < list.count; ++i) {
    if (list.entries[i].alias == alias) return list.entries[i].path;
  }
  return WideString();
}

void SaveFileAliasList(SettingsStore& store, const FileAliasList& list) {
  std::int32_t count = list.count;
  IntValue(count, 0, u"numFiles", list.groupName, store, true);
  for (std::int32_t i = 0; i < list.count; ++i) {
    WideString alias = list.entries[i].alias;
    WideString path = list.entries[i].path;
    StringValue(alias, kAliasBuffer, u"", FormatString(u"files[%d].alias", i), list.groupName, store, true);
    StringValue(path, kAliasBuffer, u"", FormatString(u"files[%d].path", i), list.groupName, store, true);
  }
}

void LoadFileAliasList(SettingsStore& store, FileAliasList& list) {
  std::int32_t count = 0;
  IntValue(count, 0, u"numFiles", list.groupName, store, false);
  if (count < 0) count = 0;
  if (count > kMaxLoadedAliases) count = kMaxLoadedAliases;
  list.entries.clear();
  list.capacity = count + kLoadHeadroom;
  list.entries.reserve(static_cast<std::size_t>(list.capacity));
  for (std::int32_t i = 0; i < count; ++i) {
    FileAliasT entry;
    StringValue(entry.alias, kAliasBuffer, u"", FormatString(u"files[%d].alias", i), list.groupName, store, false);
    StringValue(entry.path, kAliasBuffer, u"", FormatString(u"files[%d].path", i), list.groupName, store, false);
    list.entries.push_back(std::move(entry));
  }
  list.count = count;
}

}  // namespace Marlowen
