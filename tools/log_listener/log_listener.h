// The log listener: binds the log endpoint and prints every record as one
// readable line on stdout, so that whoever runs the system can watch its log.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct LogRecord;

namespace log_listener {

struct Options {
  std::optional<std::string> root;  // --root; else MARLOWEN_ROOT
  std::uint64_t count = 0;          // --count; 0 listens until a signal
};

// The options of the command line, without the program name. nullopt with
// *error set for anything it doesn't understand.
std::optional<Options> ParseOptions(const std::vector<std::string>& arguments, std::string* error);

// One line without its line feed:
//   "2026-11-21 09:24:16.123 UTC | warning | Marlowen | Crash Reporting | text"
// Each field is read up to its first zero or its end. Control characters are
// escaped so that a record always stays on one line; a detail or an origin,
// when a record has one, follows in brackets.
std::string FormatLogLine(const LogRecord& record);

// The whole tool: exit status 0 after --count records or SIGTERM/SIGINT (the
// socket is removed then), 1 when the endpoint can't be bound or stdout fails,
// 2 for a bad command line.
int LogListenerMain(int argc, char** argv);

}  // namespace log_listener
