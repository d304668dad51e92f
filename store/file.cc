#include "store/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "store/file_attributes.h"

namespace Marlowen {
namespace {

enum Disposition { kCreateNew = 1, kCreateAlways = 2, kOpenExisting = 3 };

std::uint32_t HintFlag(FileAccessHint hint) {
  switch (hint) {
    case FileAccessHint_Random: return kFileFlagRandomAccess;
    case FileAccessHint_Sequential: return kFileFlagSequentialScan;
    default: return 0;
  }
}

int AccessFlags(FileAccess access) {
  switch (access) {
    case FileAccess_Read: return O_RDONLY;
    case FileAccess_Write: return O_WRONLY;
    default: return O_RDWR;
  }
}

// Readers may share with readers; a writer that lets others only read must
// be alone, since a reader that allows only reading would refuse it anyway.
int LockKind(FileAccess access, FileShare share) {
  switch (share) {
    case FileShare_Read: return access == FileAccess_Read ? LOCK_SH : LOCK_EX;
    case FileShare_Write:
    case FileShare_ReadWrite: return LOCK_SH;
    default: return LOCK_EX;
  }
}

void CloseKeepingErrno(int fd) {
  const int saved = errno;
  close(fd);
  errno = saved;
}

}  // namespace

File::File(const PathBuffer& path) : path_(path) {}

File::~File() { Close(); }

bool File::Create(FileAccess access, FileShare share, FileAccessHint hint, bool overwrite,
                  std::uint32_t attributes) {
  Close();
  return OpenHandle(access, share, hint, overwrite ? kCreateAlways : kCreateNew, attributes | HintFlag(hint));
}

bool File::Open(FileAccess access, FileShare share, FileAccessHint hint) {
  Close();
  return OpenHandle(access, share, hint, kOpenExisting, HintFlag(hint));
}

void File::Close() {
  if (handle_ == kInvalidHandle) return;
  close(handle_);
  handle_ = kInvalidHandle;
}

bool File::OpenHandle(FileAccess access, FileShare share, FileAccessHint hint, int disposition,
                      std::uint32_t flags) {
  const std::string path = path_.ToUtf8();
  if (path.empty()) {
    errno = ENOENT;
    return false;
  }
  const bool writes = access != FileAccess_Read;
  // O_NONBLOCK keeps a fifo in the file's place from stalling the open; it is
  // refused right after, like every other file that is not regular.
  int oflags = AccessFlags(access) | O_CLOEXEC | O_NONBLOCK;
  if (disposition == kCreateNew) oflags |= O_CREAT | O_EXCL | O_NOFOLLOW;
  if (disposition == kCreateAlways) oflags |= O_CREAT | O_NOFOLLOW;
  if (disposition == kOpenExisting && writes) oflags |= O_NOFOLLOW;
  const mode_t mode = (flags & kFileAttributeReadableByAll) ? 0644 : 0600;

  int fd;
  do {
    fd = open(path.c_str(), oflags, mode);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return false;

  struct stat info;
  if (fstat(fd, &info) != 0) {
    CloseKeepingErrno(fd);
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    close(fd);
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  if (flock(fd, LockKind(access, share) | LOCK_NB) != 0) {
    CloseKeepingErrno(fd);
    return false;
  }
  if (disposition != kOpenExisting) {
    // Truncate only once the lock is ours, so a file that someone else holds
    // keeps its content.
    if (info.st_size > 0 && ftruncate(fd, 0) != 0) {
      CloseKeepingErrno(fd);
      return false;
    }
    // The mode is set exactly; the umask must not take "readable by all" away.
    if (info.st_uid == geteuid()) fchmod(fd, mode);
  }
  const int statusFlags = fcntl(fd, F_GETFL);
  if (statusFlags >= 0) fcntl(fd, F_SETFL, statusFlags & ~O_NONBLOCK);

  if (flags & kFileFlagRandomAccess) {
    posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
  } else if (flags & kFileFlagSequentialScan) {
    posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  }

  handle_ = fd;
  access_ = access;
  share_ = share;
  hint_ = hint;
  return true;
}

std::uint32_t File::Read(void* buffer, std::uint32_t count) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  std::uint32_t done = 0;
  while (done < count) {
    const ssize_t n = read(handle_, bytes + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::uint32_t>(n);
  }
  return done;
}

std::uint32_t File::Write(const void* buffer, std::uint32_t count) {
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  std::uint32_t done = 0;
  while (done < count) {
    const ssize_t n = write(handle_, bytes + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::uint32_t>(n);
  }
  return done;
}

std::uint32_t File::Tell() {
  const off_t position = lseek(handle_, 0, SEEK_CUR);
  if (position < 0 || position >= static_cast<off_t>(kInvalidPosition)) return kInvalidPosition;
  return static_cast<std::uint32_t>(position);
}

std::uint32_t File::Seek(std::int32_t offset, std::uint32_t origin) {
  if (origin > kSeekEnd) {
    errno = EINVAL;
    return kInvalidPosition;
  }
  const off_t before = lseek(handle_, 0, SEEK_CUR);
  if (before < 0) return kInvalidPosition;
  static_assert(kSeekBegin == SEEK_SET && kSeekCurrent == SEEK_CUR && kSeekEnd == SEEK_END);
  const off_t position = lseek(handle_, offset, static_cast<int>(origin));
  if (position < 0) return kInvalidPosition;
  if (position >= static_cast<off_t>(kInvalidPosition)) {
    // A position that 32 bits cannot tell is refused, and the file stays put.
    lseek(handle_, before, SEEK_SET);
    errno = EOVERFLOW;
    return kInvalidPosition;
  }
  return static_cast<std::uint32_t>(position);
}

std::uint32_t File::GetSize() {
  struct stat info;
  if (fstat(handle_, &info) != 0) return kInvalidPosition;
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(info.st_size) & 0xFFFFFFFFu);
}

}  // namespace Marlowen
