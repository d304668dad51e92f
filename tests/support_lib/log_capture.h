// A listener on the log endpoint of the current test root, written with plain
// socket calls, so that tests check what the system logs against the record's
// layout and not against the log client's own code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

class TestRoot;

class LogCapture {
 public:
  // Binds <root>/run/marlowen/MLLog.1; see bound().
  explicit LogCapture(const TestRoot& root);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  bool bound() const { return fd_ >= 0; }

  // The next datagram as it arrived, or nullopt after timeoutMs without one.
  std::optional<std::vector<std::uint8_t>> Receive(int timeoutMs = 5000);

  // The message field (offset 348, 256 UTF-16LE units) of the next record.
  std::optional<std::u16string> NextMessage(int timeoutMs = 5000);

  // Whether a datagram waits, without waiting for one.
  bool HasPending();

  // Every record that has arrived so far, as (severity, message), without
  // waiting for more.
  std::vector<std::pair<std::uint32_t, std::u16string>> Drain();

  // As a listener that ends: the socket closes and its file goes.
  void Stop();

 private:
  std::string path_;
  int fd_ = -1;
};

}  // namespace testing_support
