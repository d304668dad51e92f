// Searching folders by wildcard pattern (see directory_lister.h for how
// patterns, order and links are read on Linux).
#pragma once

#include <cstdint>
#include <vector>

#include "shell/wide_string.h"
#include "store/directory_lister.h"
#include "store/path_buffer.h"

namespace Marlowen {

using PathList = std::vector<PathBuffer>;

// Bits of a search filter; a clear bit refuses that kind of entry.
enum FindFilter : std::uint32_t {
  FindFilter_Files = 0x1,
  FindFilter_Folders = 0x2,
  FindFilter_Hidden = 0x4,
  FindFilter_System = 0x8,
  // Report the housekeeping files of SystemFileNames too.
  FindFilter_KeepSystemNames = 0x80,
};

// Housekeeping files that desktop shells leave in folders, upper case, each
// between commas so that a search for ",NAME," matches a whole name only.
inline constexpr char16_t SystemFileNames[] =
    u",DESKTOP.INI,FOLDER.HTT,FINDER.DAT,DESKTOP DF,DESKTOPPRINTERS DB,OPENFOLDERLISTDF_,THUMBS.DB,";

// Whether a listed entry passes the filter flags. "." and ".." never do.
bool MatchesFindFilter(const FindEntry& entry, std::uint32_t flags);

// Appends folder + '/' + name for every entry of folder that matches pattern
// and flags, in listing order. A folder given with a trailing '/' thus gives
// names after a doubled separator. With recursive, subfolders whose own name
// matches the pattern are searched too; symbolic links to folders are not
// entered. True if the first look-up found anything.
bool SearchFolder(const PathBuffer& folder, WideStringView pattern, std::uint32_t flags, bool recursive,
                  PathList& results);

// Plain files only, without hidden, system and housekeeping files. The list
// is cleared first and returned.
PathList& FindFiles(PathList& results, const PathBuffer& folder, WideStringView pattern, bool recursive);

}  // namespace Marlowen
