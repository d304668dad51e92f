#include "packaging/zip_archive_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace Marlowen {
namespace {

// Large buffers: libzip moves data in small pieces, and a package is mostly
// one big dump.
constexpr std::size_t kStreamBufferBytes = 1 << 20;

struct ArchiveFile {
  std::string path;
  zip_error_t error;
  // Reading the existing archive.
  std::FILE* in = nullptr;
  std::vector<char> inBuffer;
  zip_uint64_t size = 0;
  // Writing the new one.
  std::string tempPath;
  std::FILE* out = nullptr;
  std::vector<char> outBuffer;
};

zip_int64_t Fail(ArchiveFile& file, int zipError, int systemError) {
  zip_error_set(&file.error, zipError, systemError);
  return -1;
}

// Opens the archive for reading: no link followed, regular files only.
std::FILE* OpenArchiveForReading(const std::string& path, struct stat& info, int& systemError) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    systemError = errno;
    return nullptr;
  }
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    systemError = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    close(fd);
    return nullptr;
  }
  std::FILE* stream = fdopen(fd, "rb");
  if (!stream) {
    systemError = errno;
    close(fd);
  }
  return stream;
}

zip_int64_t Stat(ArchiveFile& file, void* data, zip_uint64_t length) {
  auto* st = ZIP_SOURCE_GET_ARGS(zip_stat_t, data, length, &file.error);
  if (!st) return -1;
  struct stat info {};
  if (lstat(file.path.c_str(), &info) != 0) {
    // libzip starts a new archive on a read error carrying ENOENT.
    return Fail(file, ZIP_ER_READ, errno);
  }
  if (S_ISLNK(info.st_mode)) return Fail(file, ZIP_ER_OPEN, ELOOP);
  if (!S_ISREG(info.st_mode)) return Fail(file, ZIP_ER_OPEN, EINVAL);
  zip_stat_init(st);
  st->size = static_cast<zip_uint64_t>(info.st_size);
  st->mtime = info.st_mtime;
  st->valid |= ZIP_STAT_SIZE | ZIP_STAT_MTIME;
  return sizeof(*st);
}

zip_int64_t OpenForReading(ArchiveFile& file) {
  struct stat info {};
  int systemError = 0;
  file.in = OpenArchiveForReading(file.path, info, systemError);
  if (!file.in) return Fail(file, ZIP_ER_OPEN, systemError);
  file.inBuffer.resize(kStreamBufferBytes);
  setvbuf(file.in, file.inBuffer.data(), _IOFBF, file.inBuffer.size());
  file.size = static_cast<zip_uint64_t>(info.st_size);
  return 0;
}

zip_int64_t Read(ArchiveFile& file, void* data, zip_uint64_t length) {
  if (!file.in) return Fail(file, ZIP_ER_INVAL, 0);
  const std::size_t count = std::fread(data, 1, static_cast<std::size_t>(length), file.in);
  if (count < length && std::ferror(file.in)) return Fail(file, ZIP_ER_READ, errno);
  return static_cast<zip_int64_t>(count);
}

zip_int64_t SeekReading(ArchiveFile& file, void* data, zip_uint64_t length) {
  if (!file.in) return Fail(file, ZIP_ER_INVAL, 0);
  const off_t current = ftello(file.in);
  const zip_int64_t target =
      zip_source_seek_compute_offset(static_cast<zip_uint64_t>(current), file.size, data, length, &file.error);
  if (target < 0) return -1;
  if (fseeko(file.in, static_cast<off_t>(target), SEEK_SET) != 0) return Fail(file, ZIP_ER_SEEK, errno);
  return 0;
}

zip_int64_t BeginWrite(ArchiveFile& file) {
  std::string pattern = file.path + ".XXXXXX";
  // mkostemp creates with O_EXCL and mode 0600: nothing is followed and
  // nobody else can read what is written.
  const int fd = mkostemp(pattern.data(), O_CLOEXEC);
  if (fd < 0) return Fail(file, ZIP_ER_TMPOPEN, errno);
  fchmod(fd, S_IRUSR | S_IWUSR);
  file.out = fdopen(fd, "w+b");
  if (!file.out) {
    const int systemError = errno;
    close(fd);
    unlink(pattern.c_str());
    return Fail(file, ZIP_ER_TMPOPEN, systemError);
  }
  file.outBuffer.resize(kStreamBufferBytes);
  setvbuf(file.out, file.outBuffer.data(), _IOFBF, file.outBuffer.size());
  file.tempPath = std::move(pattern);
  return 0;
}

void DiscardTemporary(ArchiveFile& file) {
  if (file.out) {
    std::fclose(file.out);
    file.out = nullptr;
  }
  if (!file.tempPath.empty()) {
    unlink(file.tempPath.c_str());
    file.tempPath.clear();
  }
}

zip_int64_t CommitWrite(ArchiveFile& file) {
  if (!file.out) return Fail(file, ZIP_ER_INVAL, 0);
  const bool flushed = std::fflush(file.out) == 0;
  const int flushError = errno;
  const bool closed = std::fclose(file.out) == 0;
  file.out = nullptr;
  if (!flushed || !closed) {
    DiscardTemporary(file);
    return Fail(file, ZIP_ER_WRITE, flushed ? EIO : flushError);
  }
  // rename replaces whatever stands under the name, a link included,
  // without following it.
  if (rename(file.tempPath.c_str(), file.path.c_str()) != 0) {
    const int systemError = errno;
    DiscardTemporary(file);
    return Fail(file, ZIP_ER_RENAME, systemError);
  }
  file.tempPath.clear();
  return 0;
}

zip_int64_t Write(ArchiveFile& file, const void* data, zip_uint64_t length) {
  if (!file.out) return Fail(file, ZIP_ER_INVAL, 0);
  const std::size_t count = std::fwrite(data, 1, static_cast<std::size_t>(length), file.out);
  if (count < length) return Fail(file, ZIP_ER_WRITE, errno);
  return static_cast<zip_int64_t>(count);
}

zip_int64_t SeekWriting(ArchiveFile& file, void* data, zip_uint64_t length) {
  auto* args = ZIP_SOURCE_GET_ARGS(zip_source_args_seek_t, data, length, &file.error);
  if (!args || !file.out) return -1;
  if (fseeko(file.out, static_cast<off_t>(args->offset), args->whence) != 0)
    return Fail(file, ZIP_ER_SEEK, errno);
  return 0;
}

zip_int64_t Callback(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command) {
  auto& file = *static_cast<ArchiveFile*>(state);
  switch (command) {
    case ZIP_SOURCE_STAT:
      return Stat(file, data, length);
    case ZIP_SOURCE_OPEN:
      return OpenForReading(file);
    case ZIP_SOURCE_READ:
      return Read(file, data, length);
    case ZIP_SOURCE_CLOSE:
      if (file.in) std::fclose(file.in);
      file.in = nullptr;
      return 0;
    case ZIP_SOURCE_SEEK:
      return SeekReading(file, data, length);
    case ZIP_SOURCE_TELL:
      return file.in ? static_cast<zip_int64_t>(ftello(file.in)) : Fail(file, ZIP_ER_INVAL, 0);
    case ZIP_SOURCE_BEGIN_WRITE:
      return BeginWrite(file);
    case ZIP_SOURCE_WRITE:
      return Write(file, data, length);
    case ZIP_SOURCE_SEEK_WRITE:
      return SeekWriting(file, data, length);
    case ZIP_SOURCE_TELL_WRITE:
      return file.out ? static_cast<zip_int64_t>(ftello(file.out)) : Fail(file, ZIP_ER_INVAL, 0);
    case ZIP_SOURCE_COMMIT_WRITE:
      return CommitWrite(file);
    case ZIP_SOURCE_ROLLBACK_WRITE:
      DiscardTemporary(file);
      return 0;
    case ZIP_SOURCE_REMOVE:
      if (unlink(file.path.c_str()) != 0 && errno != ENOENT) return Fail(file, ZIP_ER_REMOVE, errno);
      return 0;
    case ZIP_SOURCE_ERROR:
      return zip_error_to_data(&file.error, data, length);
    case ZIP_SOURCE_FREE:
      if (file.in) std::fclose(file.in);
      DiscardTemporary(file);
      zip_error_fini(&file.error);
      delete &file;
      return 0;
    case ZIP_SOURCE_SUPPORTS:
      return ZIP_SOURCE_SUPPORTS_WRITABLE;
    default:
      return Fail(file, ZIP_ER_OPNOTSUPP, 0);
  }
}

}  // namespace

zip_source_t* CreateArchiveFileSource(const std::string& utf8Path, zip_error_t* error) {
  auto* file = new (std::nothrow) ArchiveFile;
  if (!file) {
    if (error) zip_error_set(error, ZIP_ER_MEMORY, 0);
    return nullptr;
  }
  file->path = utf8Path;
  zip_error_init(&file->error);
  zip_source_t* source = zip_source_function_create(Callback, file, error);
  if (!source) {
    zip_error_fini(&file->error);
    delete file;
  }
  return source;
}

}  // namespace Marlowen
