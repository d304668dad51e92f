#include "packaging/zip_package.h"

#include <zip.h>

#include "packaging/zip_archive_source.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/string_helpers.h"
#include "store/path_helpers.h"

namespace Marlowen {
namespace {

// libzip's "default" for deflate is its best and slowest level. On dumps,
// level 5 packs within 2% of level 6 and is about a fifth faster than the
// zip tool (bench/packaging_bench); a crash report should leave quickly.
constexpr zip_uint32_t kDeflateLevel = 5;

bool IsZipFile(const PathBuffer& path) {
  PathBuffer extension;
  path.Extension(extension);
  return ToUpperCopy(extension.View()) == u"ZIP";
}

}  // namespace

bool ZipReportFiles(const PathBuffer& zipPath, const PathList& files) {
  if (files.empty()) return false;
  if (Exists(zipPath) && !Delete(zipPath)) {
    LogCrashReporting(kLogError, FormatString(u"Cannot delete old zip file '%s'.", zipPath.c_str()));
    return false;
  }
  for (const PathBuffer& file : files) {
    if (IsZipFile(file)) continue;
    if (!ZipAddFile(zipPath, file)) {
      // No half-made package is left behind.
      Delete(zipPath);
      return false;
    }
  }
  return true;
}

bool ZipAddFile(const PathBuffer& zipPath, const PathBuffer& file) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* archiveSource = CreateArchiveFileSource(zipPath.ToUtf8(), &error);
  if (!archiveSource) {
    zip_error_fini(&error);
    return false;
  }
  zip_t* archive = zip_open_from_source(archiveSource, ZIP_CREATE, &error);
  zip_error_fini(&error);
  if (!archive) {
    zip_source_free(archiveSource);
    return false;
  }

  PathBuffer entryName;
  file.BaseName(entryName, true);
  // Length -1: the whole file.
  zip_source_t* content = zip_source_file_create(file.ToUtf8().c_str(), 0, -1, nullptr);
  bool added = false;
  if (content) {
    const zip_int64_t index =
        zip_file_add(archive, entryName.ToUtf8().c_str(), content, ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8);
    if (index < 0) {
      zip_source_free(content);
    } else {
      added = zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, kDeflateLevel) == 0;
    }
  }
  if (!added) {
    zip_discard(archive);
    return false;
  }
  // The file is read and compressed here; a file that has gone or cannot
  // be read makes the close fail and leaves the zip as it was.
  if (zip_close(archive) != 0) {
    zip_discard(archive);
    return false;
  }
  return true;
}

}  // namespace Marlowen
