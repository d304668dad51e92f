// Binds the log endpoint of the current test root and collects what the log
// client sends, as (severity, message) pairs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "shell/wide_string.h"

namespace store_test {

struct LoggedLine {
  std::uint32_t severity;
  WideString message;
};

class LogCapture {
 public:
  LogCapture();  // binds <MARLOWEN_ROOT>/run/marlowen/MLLog.1
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  bool bound() const { return fd_ >= 0; }
  // Every record that has arrived so far, without waiting for more.
  std::vector<LoggedLine> Drain();

 private:
  int fd_ = -1;
  std::string path_;
};

}  // namespace store_test
