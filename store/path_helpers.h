// Path and folder helpers of the report store. They keep no state (but the
// temporary-folder override), log nothing and throw nothing: failure is
// false, 0 or an empty path. Those that give a path fill the caller's
// destination and return it.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"
#include "store/path_buffer.h"

namespace Marlowen {

// first and second with one '/' between them: trailing separators of first
// and leading ones of second go. If one side is left empty, the other alone.
PathBuffer& JoinPath(PathBuffer& destination, const PathBuffer& first, const PathBuffer& second);

// True for an entry that is not a folder (a link counts as what it leads
// to). Folders, and paths that cannot be looked at, answer false.
bool Exists(const PathBuffer& path);

// True if the path can be listed as a folder.
bool IsDirectory(const PathBuffer& path);

// Removes a file or a symbolic link, never a folder. A file that another
// File holds open (any share mode) is not removed: false.
bool Delete(const PathBuffer& path);

// The low 32 bits of the length; 0 if unknown.
std::uint32_t FileLength(const PathBuffer& path);

// mkdir with mode 0777 less the umask. With createParents, missing parents
// are made from the top down, and an existing folder is success. The walk
// up stops at an empty parent or at the root "/" (a parent made only of
// separators); see docs/files.md.
bool CreateFolder(const PathBuffer& path, bool createParents);

// The folder for temporary files, with a trailing '/': the override if one
// is set, else $TMPDIR, else /tmp. Thread-safe.
PathBuffer& TempFolder(PathBuffer& destination);
// Sets the process-wide override; an empty path removes it.
void SetTempFolderOverride(const PathBuffer& folder);

// A new unique file <temp folder><first 3 units of prefix>XXXXXX.tmp, made
// with mode 0600. Without keepFile the file is removed again and only the
// name is left. Empty on failure.
PathBuffer& TempFileName(PathBuffer& destination, WideStringView prefix, bool keepFile);

// Writes text in the code page (0 or 65001; both are UTF-8 here) to a file
// made as File::Create does with no sharing: overwrite false fails on an
// existing file and leaves it alone. No byte-order mark. True if every byte
// was written. Another code page answers false and touches nothing.
bool WriteText(const PathBuffer& path, const unsigned& codePage, WideStringView text, bool overwrite);
bool WriteUtf8Text(const PathBuffer& path, WideStringView text, bool overwrite);

}  // namespace Marlowen
