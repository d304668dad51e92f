// What the upload chain logged, read from a LogCapture bound in the test's
// root: (severity, message) in the order sent.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "log_capture.h"

namespace upload_test {

struct LogLine {
  std::uint32_t severity;
  std::u16string message;
  friend bool operator==(const LogLine&, const LogLine&) = default;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

// Every record that is waiting now; the client sends before it returns, so
// nothing of a finished call is still on its way.
std::vector<LogLine> TakeLogLines(testing_support::LogCapture& capture);

// The status callback of the tests: appends (report id, status) to the
// std::vector<std::pair<std::u16string, std::uint32_t>> behind data.
void RecordStatus(const std::u16string& reportId, std::uint32_t status, void* data);
using StatusList = std::vector<std::pair<std::u16string, std::uint32_t>>;

}  // namespace upload_test
