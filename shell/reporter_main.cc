#include "shell/reporter_main.h"

#include <setjmp.h>
#include <signal.h>
#include <ucontext.h>

#include "capture/exception_record.h"
#include "capture/fault_handlers.h"
#include "capture/top_level_filter.h"
#include "capture/unhandled_exception_filter.h"
#include "shell/dialog_modes.h"
#include "shell/report_modes.h"
#include "shell/string_helpers.h"

namespace {

HINSTANCE instanceHandle = nullptr;

// The tool's apartment scope. The other platform set up COM on the entry
// thread here for the XML and HTTP objects; their stand-ins (Xerces-C,
// libcurl) are set up by the code that uses them, so this scope keeps only
// its place in the order of set-up and tear-down.
class ComApartmentGuard final {
 public:
  explicit ComApartmentGuard(int /*threadingModel*/) {}
  ~ComApartmentGuard() = default;
  ComApartmentGuard(const ComApartmentGuard&) = delete;
  ComApartmentGuard& operator=(const ComApartmentGuard&) = delete;
};
constexpr int kMultiThreadedApartment = 0;

struct OptionEntry {
  const char16_t* literal;
  ReporterMode mode;
};

// Tested in this order: "-sendAll" ahead of "-send", whose prefix it is.
constexpr OptionEntry kOptions[] = {
    {u"-crash", ReporterMode::kCrash},
    {u"-sendAll", ReporterMode::kSendAll},
    {u"-send", ReporterMode::kSend},
    {u"-report", ReporterMode::kReport},
};

// Where the report name of "-send" starts: the option and one separator,
// which is counted, not looked at.
constexpr std::size_t kReportNamePosition = 6;

int RunMode(const ModeChoice& choice) {
  switch (choice.mode) {
    case ReporterMode::kCrash:
      return RunCrashMode();
    case ReporterMode::kSendAll:
      return RunSendAllMode();
    case ReporterMode::kSend:
      return RunSendMode(choice.reportName);
    case ReporterMode::kReport:
      return RunReportMode();
    case ReporterMode::kSettings:
      break;
  }
  return RunSettingsMode();
}

// The guarded block of RunCrashMode: its fault goes straight to the
// top-level filter, as a structured handler's filter expression would send
// it, and a filter that returns lets the block end.
sigjmp_buf crashBlockExit;

void CrashBlockHandler(int /*signal*/, siginfo_t* info, void* context) {
  auto* userContext = static_cast<ucontext_t*>(context);
  Marlowen::EXCEPTION_RECORD record;
  Marlowen::FillExceptionRecord(*info, *userContext, record);
  Marlowen::EXCEPTION_POINTERS pointers;
  pointers.ExceptionRecord = &record;
  pointers.ContextRecord = userContext;
  pointers.SignalInfo = info;
  Marlowen::TopLevelFilter(&pointers);
  siglongjmp(crashBlockExit, 1);
}

// The fault itself. volatile keeps the compiler from proving the store
// undefined and dropping it; the sanitizers' null check is off so that a
// sanitizer build faults as well instead of stopping with its own report.
[[gnu::noinline, gnu::no_sanitize("null")]] void StoreToAddressZero() {
  volatile char* volatile nowhere = nullptr;
  *nowhere = 1;
}

}  // namespace

void SetInstanceHandle(HINSTANCE instance) { instanceHandle = instance; }

HINSTANCE GetInstanceHandle() { return instanceHandle; }

std::string CommandLineFromArguments(int argc, char** argv) {
  std::string line;
  for (int i = 1; i < argc; ++i) {
    if (i > 1) line += ' ';
    line += argv[i];
  }
  return line;
}

WideString CommandTextFromCommandLine(std::string_view commandLine) {
  return TrimWhitespace(MultiByteToWide(commandLine, kCodePageUtf8));
}

ModeChoice ChooseMode(const WideString& commandText) {
  for (const OptionEntry& option : kOptions) {
    if (!commandText.starts_with(option.literal)) continue;
    ModeChoice choice{option.mode, WideString()};
    // substr throws std::out_of_range for a bare "-send"; that is meant to
    // reach the filter like any other failure of the tool.
    if (option.mode == ReporterMode::kSend) {
      choice.reportName = TrimWhitespace(commandText.substr(kReportNamePosition));
    }
    return choice;
  }
  return ModeChoice{ReporterMode::kSettings, WideString()};
}

int ReporterMain(HINSTANCE instance, const std::string& commandLine) {
  ComApartmentGuard apartment(kMultiThreadedApartment);
  // From here on a fault or an uncaught failure of the tool becomes a report
  // of its own. The previous filter is dropped.
  (void)Marlowen::InstallFaultHandlers();
  Marlowen::SetUnhandledExceptionFilter(Marlowen::TopLevelFilter);
  SetInstanceHandle(instance);
  // The common controls need no set-up: the dialog layer makes its widgets
  // on demand.
  const WideString commandText = CommandTextFromCommandLine(commandLine);

  const int value = RunMode(ChooseMode(commandText));
  PurgeUnusableReports();
  return value;
}

int RunCrashMode() {
  struct sigaction guarded = {};
  guarded.sa_sigaction = CrashBlockHandler;
  guarded.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigemptyset(&guarded.sa_mask);
  struct sigaction previous = {};
  sigaction(SIGSEGV, &guarded, &previous);

  if (sigsetjmp(crashBlockExit, 1) == 0) StoreToAddressZero();
  sigaction(SIGSEGV, &previous, nullptr);
  return 0;
}
