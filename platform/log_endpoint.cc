#include "platform/log_endpoint.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

// The client half below runs in crashing processes: it uses fixed buffers on
// the stack, no heap and no lock, and only calls that are async-signal-safe
// (getenv aside, which only reads the environment).

namespace platform {
namespace {

constexpr char kEndpointFolder[] = "/run/marlowen/";

// Appends text to buffer at *length; false when it doesn't fit with its zero.
bool Append(char* buffer, std::size_t capacity, std::size_t* length, const char* text,
            std::size_t textLength) {
  if (*length + textLength + 1 > capacity) return false;
  std::memcpy(buffer + *length, text, textLength);
  *length += textLength;
  buffer[*length] = '\0';
  return true;
}

bool AppendNumber(char* buffer, std::size_t capacity, std::size_t* length, unsigned value) {
  char digits[16];
  std::size_t count = 0;
  do {
    digits[sizeof(digits) - 1 - count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  return Append(buffer, capacity, length, digits + sizeof(digits) - count, count);
}

// The socket address of path. A path too long for sun_path is reached through
// its folder, opened here and left in *folder for the caller to close after
// the connect or bind: the kernel resolves /proc/self/fd/<n>/<name> like any
// other path. path is cut at its last slash for the open and then restored,
// which saves a second path buffer on a signal handler's stack.
bool MakeAddress(char* path, sockaddr_un* address, int* folder) {
  *folder = -1;
  std::memset(address, 0, sizeof(*address));
  address->sun_family = AF_UNIX;
  const std::size_t pathLength = std::strlen(path);
  if (pathLength < sizeof(address->sun_path)) {
    std::memcpy(address->sun_path, path, pathLength + 1);
    return true;
  }

  char* slash = std::strrchr(path, '/');
  if (!slash || slash == path) return false;
  *slash = '\0';
  *folder = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
  *slash = '/';
  if (*folder < 0) return false;

  std::size_t length = 0;
  const std::size_t capacity = sizeof(address->sun_path);
  constexpr char kProcFd[] = "/proc/self/fd/";
  if (Append(address->sun_path, capacity, &length, kProcFd, sizeof(kProcFd) - 1) &&
      AppendNumber(address->sun_path, capacity, &length, static_cast<unsigned>(*folder)) &&
      Append(address->sun_path, capacity, &length, slash, std::strlen(slash))) {
    return true;
  }
  close(*folder);
  *folder = -1;
  return false;
}

// A datagram socket that doesn't sit on descriptor 0, which callers take for
// "no socket".
int NewDatagramSocket() {
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd == 0) {
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 1);
    close(fd);
    fd = moved;
  }
  return fd;
}

int ConnectTo(char* path) {
  sockaddr_un address;
  int folder = -1;
  if (!MakeAddress(path, &address, &folder)) return -1;
  int fd = NewDatagramSocket();
  if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    const int saved = errno;
    close(fd);
    errno = saved;
    fd = -1;
  }
  if (folder >= 0) close(folder);
  return fd;
}

}  // namespace

int ConnectLogEndpoint(const char* name) {
  // The same location as LogEndpointPath in machine_paths.h, built without
  // the heap.
  const char* root = std::getenv("MARLOWEN_ROOT");
  std::size_t rootLength = root ? std::strlen(root) : 0;
  while (rootLength > 0 && root[rootLength - 1] == '/') --rootLength;

  char path[PATH_MAX];
  std::size_t length = 0;
  path[0] = '\0';
  if (!Append(path, sizeof(path), &length, root ? root : "", rootLength) ||
      !Append(path, sizeof(path), &length, kEndpointFolder, sizeof(kEndpointFolder) - 1) ||
      !Append(path, sizeof(path), &length, name, std::strlen(name))) {
    return -1;
  }
  return ConnectTo(path);
}

long SendLogDatagram(int socket, const void* data, std::size_t size) {
  return static_cast<long>(send(socket, data, size, MSG_DONTWAIT | MSG_NOSIGNAL));
}

int BindLogEndpoint(const std::string& path, std::string* error) {
  auto fail = [&](const std::string& what, int code) {
    *error = what + ": " + std::generic_category().message(code);
    return -1;
  };

  // The folder must let every user reach the socket.
  const std::string::size_type slash = path.rfind('/');
  if (slash != std::string::npos && slash > 0) {
    for (std::string::size_type at = path.find('/', 1); at != std::string::npos && at <= slash;
         at = path.find('/', at + 1)) {
      const std::string folder = path.substr(0, at);
      if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
        return fail("Cannot create " + folder, errno);
      }
    }
  }

  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) {
    if (!S_ISSOCK(status.st_mode)) {
      *error = path + " exists and is not a socket";
      return -1;
    }
    std::string probePath = path;
    const int probe = ConnectTo(probePath.data());
    if (probe >= 0) {
      close(probe);
      *error = "Another listener is bound at " + path;
      return -1;
    }
    // Left behind by a listener that is gone.
    if (unlink(path.c_str()) != 0 && errno != ENOENT) return fail("Cannot remove " + path, errno);
  }

  sockaddr_un address;
  int folder = -1;
  std::string addressPath = path;
  if (!MakeAddress(addressPath.data(), &address, &folder)) {
    return fail("Cannot use " + path, ENAMETOOLONG);
  }
  const int fd = NewDatagramSocket();
  if (fd < 0) {
    const int code = errno;
    if (folder >= 0) close(folder);
    return fail("Cannot create a socket", code);
  }
  const int bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  const int bindError = errno;
  if (folder >= 0) close(folder);
  if (bound != 0) {
    close(fd);
    return fail("Cannot bind " + path, bindError);
  }
  // bind honours the umask; every user's processes must be able to connect.
  if (chmod(path.c_str(), 0666) != 0) {
    const int code = errno;
    close(fd);
    unlink(path.c_str());
    return fail("Cannot set the mode of " + path, code);
  }
  return fd;
}

}  // namespace platform
