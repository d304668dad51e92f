// The file under a zip package, as a libzip source of our own.
//
// libzip's own file source follows symbolic links and gives a new archive
// the umask's mode. A package holds a process's memory and lies in a folder
// that every user may write to, so this source:
// - reads an existing archive only if it is a regular file reached without
//   a symbolic link (a link in its place makes the open fail);
// - writes the new archive to a private temporary file (mode 0600, made
//   with O_EXCL) beside it and renames that into place on commit, so a
//   half-written archive never stands under the package's name and a link
//   in the package's place is replaced, never written through.
#pragma once

#include <zip.h>

#include <string>

namespace Marlowen {

// A source for zip_open_from_source over the archive at utf8Path. Null,
// with error set, on allocation failure. The archive owns the source once
// zip_open_from_source succeeds; before that the caller frees it.
zip_source_t* CreateArchiveFileSource(const std::string& utf8Path, zip_error_t* error);

}  // namespace Marlowen
