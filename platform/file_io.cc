#include "platform/file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace platform {

bool ReadWholeFile(const std::string& path, std::string& contents) {
  contents.clear();
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  // Small: this also runs inside fault handlers, on an alternate signal stack.
  char chunk[4096];
  for (;;) {
    const ssize_t n = read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int saved = errno;
      close(fd);
      errno = saved;
      return false;
    }
    if (n == 0) break;
    contents.append(chunk, static_cast<std::size_t>(n));
  }
  close(fd);
  return true;
}

bool WriteAll(int fd, std::string_view text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace platform
