// The process entry of the tool MLCrashReporter: one mode per start, chosen
// from the command text, then the purge of unusable reports, then the mode's
// value as the exit value.
//
// Nothing here catches anything. A failure thrown in a mode unwinds to the
// edge of the process and ends in the capture's filter, so the tool reports
// itself like any other program and never reaches the purge.
#pragma once

#include <string>
#include <string_view>

#include "dialogs/window_types.h"
#include "shell/wide_string.h"

// The modes of the tool, in the order their options are tested.
enum class ReporterMode {
  kCrash,     // "-crash"
  kSendAll,   // "-sendAll"
  kSend,      // "-send" and a report name
  kReport,    // "-report"
  kSettings,  // anything else, or nothing
};

struct ModeChoice {
  ReporterMode mode = ReporterMode::kSettings;
  WideString reportName;  // for kSend only
};

// The command line that the tool's entry would see behind its own name: the
// process's arguments joined by single blanks. A tool started by the process
// launcher gets its whole command text as its one argument, so this is that
// text unchanged.
std::string CommandLineFromArguments(int argc, char** argv);

// The command text of a command line: UTF-8 to wide, then trimmed.
WideString CommandTextFromCommandLine(std::string_view commandLine);

// Tests the options at position 0 of the command text, with case, in the
// order of ReporterMode; what follows an option does not count. The report
// name of "-send" is the text from position 6 on, trimmed again, with no
// quoting. A text of "-send" and nothing more has no position 6: the
// std::out_of_range of the substring is thrown on purpose and not caught.
ModeChoice ChooseMode(const WideString& commandText);

// The entry: set-up, one mode, the purge, the exit value. commandLine is the
// 8-bit command line behind the program's name.
int ReporterMain(HINSTANCE instance, const std::string& commandLine);

// The module handle of the tool, set once by ReporterMain; every mode that
// shows a dialog passes it on.
void SetInstanceHandle(HINSTANCE instance);
HINSTANCE GetInstanceHandle();

// The deliberate crash for trying the capture chain: a write to address 0
// that reaches the capture's filter, which ends the process with exit code
// -2. Answers 0 only if the filter ever returned.
int RunCrashMode();
