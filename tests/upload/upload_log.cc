#include "upload_log.h"

#include <cstring>

#include "shell/wide_string.h"

namespace upload_test {

namespace {

constexpr std::size_t kMessageOffset = 348;
constexpr std::size_t kMessageUnits = 256;

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.severity << " \"" << WideToUtf8(line.message) << "\"";
}

std::vector<LogLine> TakeLogLines(testing_support::LogCapture& capture) {
  std::vector<LogLine> lines;
  while (capture.HasPending()) {
    const auto record = capture.Receive(0);
    if (!record || record->size() < kMessageOffset + 2 * kMessageUnits) break;
    LogLine line{};
    std::memcpy(&line.severity, record->data(), sizeof(line.severity));
    for (std::size_t i = 0; i < kMessageUnits; ++i) {
      const auto* unit = record->data() + kMessageOffset + 2 * i;
      const char16_t c = static_cast<char16_t>(unit[0] | (unit[1] << 8));
      if (c == 0) break;
      line.message += c;
    }
    lines.push_back(line);
  }
  return lines;
}

void RecordStatus(const std::u16string& reportId, std::uint32_t status, void* data) {
  static_cast<StatusList*>(data)->emplace_back(reportId, status);
}

}  // namespace upload_test
