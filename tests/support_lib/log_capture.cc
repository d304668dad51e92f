#include "log_capture.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "test_root.h"

namespace testing_support {
namespace {

constexpr std::size_t kMessageOffset = 348;
constexpr std::size_t kMessageUnits = 256;
constexpr std::size_t kLargestDatagram = 65536;

}  // namespace

LogCapture::LogCapture(const TestRoot& root) : path_(root.Path("run/marlowen/MLLog.1")) {
  MakeFolders(root.Path("run/marlowen"));
  sockaddr_un address{};
  if (path_.size() >= sizeof(address.sun_path)) return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    close(fd_);
    fd_ = -1;
  }
}

LogCapture::~LogCapture() { Stop(); }

std::optional<std::vector<std::uint8_t>> LogCapture::Receive(int timeoutMs) {
  pollfd wait{fd_, POLLIN, 0};
  if (fd_ < 0 || poll(&wait, 1, timeoutMs) != 1) return std::nullopt;
  std::vector<std::uint8_t> buffer(kLargestDatagram);
  const ssize_t n = recv(fd_, buffer.data(), buffer.size(), 0);
  if (n < 0) return std::nullopt;
  buffer.resize(static_cast<std::size_t>(n));
  return buffer;
}

namespace {

std::u16string MessageOf(const std::vector<std::uint8_t>& bytes) {
  std::u16string message;
  for (std::size_t i = 0; i < kMessageUnits; ++i) {
    const std::size_t at = kMessageOffset + 2 * i;
    const auto unit = static_cast<char16_t>(bytes[at] | (bytes[at + 1] << 8));
    if (unit == 0) break;
    message.push_back(unit);
  }
  return message;
}

}  // namespace

std::optional<std::u16string> LogCapture::NextMessage(int timeoutMs) {
  const std::optional<std::vector<std::uint8_t>> bytes = Receive(timeoutMs);
  if (!bytes || bytes->size() < kMessageOffset + 2 * kMessageUnits) return std::nullopt;
  return MessageOf(*bytes);
}

std::vector<std::pair<std::uint32_t, std::u16string>> LogCapture::Drain() {
  std::vector<std::pair<std::uint32_t, std::u16string>> lines;
  while (HasPending()) {
    const std::optional<std::vector<std::uint8_t>> bytes = Receive(0);
    if (!bytes || bytes->size() < kMessageOffset + 2 * kMessageUnits) break;
    const std::uint32_t severity =
        (*bytes)[0] | (*bytes)[1] << 8 | (*bytes)[2] << 16 | static_cast<std::uint32_t>((*bytes)[3]) << 24;
    lines.emplace_back(severity, MessageOf(*bytes));
  }
  return lines;
}

bool LogCapture::HasPending() {
  pollfd wait{fd_, POLLIN, 0};
  return fd_ >= 0 && poll(&wait, 1, 0) == 1;
}

void LogCapture::Stop() {
  if (fd_ < 0) return;
  close(fd_);
  unlink(path_.c_str());
  fd_ = -1;
}

}  // namespace testing_support
