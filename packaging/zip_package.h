// The zip package of a report: <report name>.zip in the report folder,
// holding every file of the report, each compressed with deflate and
// stored under its own name without folder.
#pragma once

#include "store/folder_search.h"
#include "store/path_buffer.h"

namespace Marlowen {

// Adds the files to zipPath one at a time, skipping zip files whatever the
// case of their extension. An old zip at zipPath is deleted first ("Cannot
// delete old zip file '%s'." if it cannot be). False, with nothing said, for
// an empty list. A file that cannot be added ends it: the half-made zip is
// deleted and the answer is false.
[[nodiscard]] bool ZipReportFiles(const PathBuffer& zipPath, const PathList& files);

// Adds one file to the zip, making the zip at the first call. The zip is
// written beside itself and renamed into place with mode 0600, never
// through a symbolic link.
[[nodiscard]] bool ZipAddFile(const PathBuffer& zipPath, const PathBuffer& file);

}  // namespace Marlowen
