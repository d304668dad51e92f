// File: the one ByteStream over the file system.
//
// Linux mapping, decided for the whole system:
// - Creating never follows a symbolic link: a link in the final place makes
//   Create fail and leaves the link's target untouched. Opening an existing
//   file for writing does not follow one either; opening for reading does.
// - New files get mode 0600, or 0644 with kFileAttributeReadableByAll, set
//   exactly (the umask does not narrow it).
// - Folders, fifos and the like are refused: a File is a regular file.
// - Share modes are advisory flock(2) locks, taken without waiting. Share none,
//   and share read with write access, lock exclusively; every other mix locks
//   shared. A lock that is held elsewhere makes Create or Open fail at once,
//   and Delete (path_helpers.h) refuses a file that someone holds open.
#pragma once

#include <cstdint>

#include "store/byte_stream.h"
#include "store/path_buffer.h"

namespace Marlowen {

class File final : public ByteStream {
 public:
  explicit File(const PathBuffer& path);
  ~File() override;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Closes an open handle first. overwrite false fails on an existing file;
  // true replaces its content. attributes: kFileAttribute* and kFileFlag*
  // bits; unknown bits are ignored. On failure the stored access, share and
  // hint stay as they were and the File stays usable.
  [[nodiscard]] bool Create(FileAccess access, FileShare share, FileAccessHint hint, bool overwrite,
                            std::uint32_t attributes);
  // Opens an existing file.
  [[nodiscard]] bool Open(FileAccess access, FileShare share, FileAccessHint hint);
  void Close();

  const PathBuffer& Path() const { return path_; }

  // ByteStream:
  FileAccess GetAccess() const override { return access_; }
  FileShare GetShare() const override { return share_; }
  FileAccessHint GetAccessHint() const override { return hint_; }
  std::uint32_t Read(void* buffer, std::uint32_t count) override;
  std::uint32_t Write(const void* buffer, std::uint32_t count) override;
  std::uint32_t Tell() override;
  std::uint32_t Seek(std::int32_t offset, std::uint32_t origin) override;
  std::uint32_t GetSize() override;
  bool IsOpen() const override { return handle_ != kInvalidHandle; }

 private:
  static constexpr int kInvalidHandle = -1;

  bool OpenHandle(FileAccess access, FileShare share, FileAccessHint hint, int disposition,
                  std::uint32_t flags);

  int handle_ = kInvalidHandle;
  PathBuffer path_;
  FileAccess access_ = FileAccess_Read;
  FileShare share_ = FileShare_None;
  FileAccessHint hint_ = FileAccessHint_None;
};

}  // namespace Marlowen
