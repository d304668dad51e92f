#include "log_capture.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "platform/log_endpoint.h"
#include "platform/machine_paths.h"
#include "shell/log_client.h"

namespace store_test {

LogCapture::LogCapture() : path_(platform::LogEndpointPath("MLLog.1")) {
  std::string error;
  fd_ = platform::BindLogEndpoint(path_, &error);
}

LogCapture::~LogCapture() {
  if (fd_ < 0) return;
  close(fd_);
  unlink(path_.c_str());
}

std::vector<LoggedLine> LogCapture::Drain() {
  std::vector<LoggedLine> lines;
  LogRecord record;
  while (fd_ >= 0 && recv(fd_, &record, sizeof(record), MSG_DONTWAIT) == static_cast<ssize_t>(sizeof(record))) {
    std::size_t length = 0;
    while (length < std::size(record.message) && record.message[length] != 0) ++length;
    lines.push_back({record.severity, WideString(record.message, length)});
  }
  return lines;
}

}  // namespace store_test
