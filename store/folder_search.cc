#include "store/folder_search.h"

#include "shell/string_helpers.h"
#include "store/file_attributes.h"

namespace Marlowen {

bool MatchesFindFilter(const FindEntry& entry, std::uint32_t flags) {
  const bool isFolder = (entry.attributes & kFileAttributeDirectory) != 0;
  if (!(flags & FindFilter_Files) && !isFolder) return false;
  if (!(flags & FindFilter_Folders) && isFolder) return false;
  if (!(flags & FindFilter_Hidden) && (entry.attributes & kFileAttributeHidden)) return false;
  if (!(flags & FindFilter_System) && (entry.attributes & kFileAttributeSystem)) return false;
  if (entry.name == u"." || entry.name == u"..") return false;
  if (flags & FindFilter_KeepSystemNames) return true;
  const WideString enclosed = ToUpperCopy(u"," + entry.name + u",");
  return WideStringView(SystemFileNames).find(enclosed) == WideStringView::npos;
}

bool SearchFolder(const PathBuffer& folder, WideStringView pattern, std::uint32_t flags, bool recursive,
                  PathList& results) {
  const WideString prefix = folder.ToWide() + kPathSeparator;
  WideString query = folder.ToWide();
  if (query.empty() || query.back() != kPathSeparator) query += kPathSeparator;
  query += pattern;

  DirectoryLister lister;
  FindEntry entry;
  if (!lister.First(query, entry)) return false;
  do {
    if (MatchesFindFilter(entry, flags)) results.emplace_back(prefix + entry.name);
    const bool isFolder = (entry.attributes & kFileAttributeDirectory) != 0;
    if (recursive && isFolder && !entry.isSymbolicLink && entry.name != u"." && entry.name != u"..") {
      SearchFolder(PathBuffer(prefix + entry.name), pattern, flags, recursive, results);
    }
  } while (lister.Next(entry));
  return true;
}

PathList& FindFiles(PathList& results, const PathBuffer& folder, WideStringView pattern, bool recursive) {
  results.clear();
  SearchFolder(folder, pattern, FindFilter_Files, recursive, results);
  return results;
}

}  // namespace Marlowen
