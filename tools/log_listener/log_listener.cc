#include "tools/log_listener/log_listener.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "platform/log_endpoint.h"
#include "platform/machine_paths.h"
#include "shell/log_client.h"
#include "shell/wide_string.h"

namespace log_listener {
namespace {

constexpr char kUsage[] =
    "usage: ml-log-listener [--root DIR] [--count N]\n"
    "  Prints every record sent to the log endpoint as one line on stdout.\n"
    "  --root DIR  machine root (default: $MARLOWEN_ROOT, else /)\n"
    "  --count N   exit after N records\n";

// A fixed field read up to its first zero or its end.
template <std::size_t N>
std::string FieldText(const char16_t (&field)[N]) {
  std::size_t length = 0;
  while (length < N && field[length] != 0) ++length;
  const std::string utf8 = WideToUtf8(WideStringView(field, length));

  std::string text;
  text.reserve(utf8.size());
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      text += "\\n";
    } else if (c == '\r') {
      text += "\\r";
    } else if (c == '\t') {
      text += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof(escaped), "\\x%02X", byte);
      text += escaped;
    } else {
      text += c;
    }
  }
  return text;
}

std::string SeverityName(std::uint32_t severity) {
  switch (severity) {
    case kLogInformation: return "information";
    case kLogWarning: return "warning";
    case kLogError: return "error";
    default: return "severity " + std::to_string(severity);
  }
}

bool ParseCount(const std::string& text, std::uint64_t* count) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
  errno = 0;
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
  if (errno != 0 || value == 0) return false;
  *count = value;
  return true;
}

bool WriteLine(const std::string& line) {
  const std::string withFeed = line + "\n";
  return std::fwrite(withFeed.data(), 1, withFeed.size(), stdout) == withFeed.size() &&
         std::fflush(stdout) == 0;
}

}  // namespace

std::optional<Options> ParseOptions(const std::vector<std::string>& arguments, std::string* error) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const bool hasValue = i + 1 < arguments.size();
    if (argument == "--root" && hasValue) {
      options.root = arguments[++i];
    } else if (argument == "--count" && hasValue) {
      if (!ParseCount(arguments[++i], &options.count)) {
        *error = "--count needs a positive number, not \"" + arguments[i] + "\"";
        return std::nullopt;
      }
    } else if (argument == "--root" || argument == "--count") {
      *error = argument + " needs a value";
      return std::nullopt;
    } else {
      *error = "unknown argument \"" + argument + "\"";
      return std::nullopt;
    }
  }
  return options;
}

std::string FormatLogLine(const LogRecord& record) {
  const platform::SystemTime& t = record.time;
  char when[64];
  std::snprintf(when, sizeof(when), "%04u-%02u-%02u %02u:%02u:%02u.%03u UTC", t.year, t.month,
                t.day, t.hour, t.minute, t.second, t.milliseconds);

  std::string line = std::string(when) + " | " + SeverityName(record.severity) + " | " +
                     FieldText(record.source) + " | " + FieldText(record.category) + " | " +
                     FieldText(record.message);
  if (record.code != 0) line += " [code " + std::to_string(record.code) + "]";
  const std::string detail = FieldText(record.detail);
  if (!detail.empty()) line += " [detail: " + detail + "]";
  const std::string folder = FieldText(record.originFolder);
  const std::string file = FieldText(record.originFile);
  if (!folder.empty() || !file.empty()) {
    line += " [origin: " + (folder.empty() ? file : folder + "/" + file) + "]";
  }
  return line;
}

int LogListenerMain(int argc, char** argv) {
  std::string error;
  const std::optional<Options> options =
      ParseOptions(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc), &error);
  if (!options) {
    std::fprintf(stderr, "ml-log-listener: %s\n%s", error.c_str(), kUsage);
    return 2;
  }
  if (options->root) setenv("MARLOWEN_ROOT", options->root->c_str(), 1);
  const std::string path = platform::LogEndpointPath(WideToUtf8(kLogEndpointName));

  // The stop signals arrive through a descriptor, so that one that comes
  // between two receives is not lost and the socket file is always removed.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
  const int signals = signalfd(-1, &stopSignals, SFD_CLOEXEC);
  // A reader of stdout that goes away ends the listener through a failed
  // write, not through SIGPIPE, so that the socket is removed.
  signal(SIGPIPE, SIG_IGN);

  const int socket = platform::BindLogEndpoint(path, &error);
  if (socket < 0) {
    std::fprintf(stderr, "ml-log-listener: %s\n", error.c_str());
    if (signals >= 0) close(signals);
    return 1;
  }
  std::fprintf(stderr, "ml-log-listener: listening on %s\n", path.c_str());
  std::fflush(stderr);

  int status = 0;
  std::uint64_t printed = 0;
  while (options->count == 0 || printed < options->count) {
    pollfd waits[2] = {{socket, POLLIN, 0}, {signals, POLLIN, 0}};
    if (poll(waits, signals >= 0 ? 2 : 1, -1) < 0) {
      if (errno == EINTR) continue;
      std::fprintf(stderr, "ml-log-listener: poll failed: %s\n", std::strerror(errno));
      status = 1;
      break;
    }
    if (signals >= 0 && (waits[1].revents & POLLIN)) break;
    if (!(waits[0].revents & POLLIN)) continue;

    // One byte more than a record, to tell a longer datagram from a record.
    alignas(LogRecord) unsigned char buffer[kLogRecordSize + 1];
    const ssize_t received = recv(socket, buffer, sizeof(buffer), MSG_DONTWAIT | MSG_TRUNC);
    if (received < 0) {
      if (errno == EAGAIN || errno == EINTR) continue;
      std::fprintf(stderr, "ml-log-listener: receive failed: %s\n", std::strerror(errno));
      status = 1;
      break;
    }
    if (received != static_cast<ssize_t>(kLogRecordSize)) {
      std::fprintf(stderr, "ml-log-listener: ignored a datagram of %zd bytes\n", received);
      continue;
    }
    LogRecord record;
    std::memcpy(&record, buffer, sizeof(record));
    if (!WriteLine(FormatLogLine(record))) {
      status = 1;
      break;
    }
    ++printed;
  }

  close(socket);
  unlink(path.c_str());
  if (signals >= 0) close(signals);
  return status;
}

}  // namespace log_listener
