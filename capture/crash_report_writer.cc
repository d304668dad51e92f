#include "capture/crash_report_writer.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "capture/crashed_module_record.h"
#include "capture/tool_registry_entry.h"
#include "capture/unhandled_exception_filter.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/registry.h"
#include "shell/string_helpers.h"
#include "store/file.h"
#include "store/file_attributes.h"
#include "store/path_helpers.h"

namespace Marlowen {
namespace {

// Owns the loaded dump library; releases it on every way out, a throw included.
class LoadedLibrary final {
 public:
  explicit LoadedLibrary(const PathBuffer& path) : handle_(dlopen(path.ToUtf8().c_str(), RTLD_NOW | RTLD_LOCAL)) {}
  ~LoadedLibrary() {
    if (handle_ != nullptr) dlclose(handle_);
  }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  bool IsLoaded() const { return handle_ != nullptr; }
  void* Find(const char* name) const { return dlsym(handle_, name); }

 private:
  void* handle_;
};

// The dump library writes to a descriptor, and File keeps its own to itself.
// A second descriptor on the file that Create has just made and locked: no
// link is followed, and only a regular file is taken. In the report folder
// (sticky, owner-only files) nobody else can put another file in its place.
int OpenDumpDescriptor(const PathBuffer& path) {
  const int fd = open(path.ToUtf8().c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat info;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    close(fd);
    errno = EINVAL;
    return -1;
  }
  return fd;
}

}  // namespace

MINIDUMP_TYPE DumpTypeForLevel(std::uint32_t dumpLevel) {
  switch (dumpLevel) {
    case 1: return ML_MINIDUMP_TYPE_FULL;
    case 2: return ML_MINIDUMP_TYPE_DATA;
    default: return ML_MINIDUMP_TYPE_NORMAL;
  }
}

int AlwaysIncludeCallback(void* callbackParam, const MINIDUMP_CALLBACK_INPUT* callbackInput,
                          MINIDUMP_CALLBACK_OUTPUT* callbackOutput) {
  return 1;
}

void WriteCrashReport(CrashContext& context) {
  const PathBuffer folder = ReadRegistryString(kToolRegistryPath, kToolFolderValueName);
  PathBuffer candidate;
  JoinPath(candidate, folder, PathBuffer(kDumpLibraryName));
  if (!Exists(candidate)) candidate = kDumpLibraryName;

  LoadedLibrary library(candidate);
  if (!library.IsLoaded()) {
    LogCrashReporting(kLogWarning, u"Cannot load 'DbgHelp.dll' to write crash report.");
    return;
  }
  auto writeDump = reinterpret_cast<MiniDumpWriteDumpFunction>(library.Find(ML_DBGHELP_EXPORT_NAME));
  if (writeDump == nullptr) {
    LogCrashReporting(kLogWarning, u"Required function not found in 'DbgHelp.dll' to write minidump.");
    return;
  }

  PathBuffer reportFolder;
  context.dumpPath.ParentFolder(reportFolder);
  if (!IsDirectory(reportFolder) && !CreateFolder(reportFolder, true)) {
    LogCrashReporting(kLogError, FormatString(u"Cannot create directory structure '%s' to write crash report.",
                                              reportFolder.c_str()));
    return;
  }

  File dumpFile(context.dumpPath);
  if (!dumpFile.Create(FileAccess_ReadWrite, FileShare_None, FileAccessHint_Random, true,
                       kFileAttributeNormal)) {
    LogCrashReporting(kLogError, FormatString(u"Cannot create crash report file '%s'.", context.dumpPath.c_str()));
    return;
  }

  ML_EXCEPTION_POINTERS signalFacts{};
  if (context.exceptionPointers != nullptr) {
    signalFacts.SignalInfo = context.exceptionPointers->SignalInfo;
    signalFacts.SignalContext = context.exceptionPointers->ContextRecord;
  }
  MINIDUMP_EXCEPTION_INFORMATION exceptionInformation{};
  exceptionInformation.ThreadId = context.threadId;
  exceptionInformation.ExceptionPointers = &signalFacts;
  exceptionInformation.ClientPointers = 1;
  // A fault without signal facts is dumped without an exception stream.
  const bool hasFault = signalFacts.SignalInfo != nullptr && signalFacts.SignalContext != nullptr;

  std::uint32_t callbackThreadId = GetCurrentThreadId();
  MINIDUMP_CALLBACK_INFORMATION callbackInformation{};
  callbackInformation.CallbackRoutine = AlwaysIncludeCallback;
  callbackInformation.CallbackParam = &callbackThreadId;

  const MINIDUMP_TYPE dumpType = DumpTypeForLevel(context.settings.dumpLevel);
  int written = 0;
  int lastError = 0;
  const int fd = OpenDumpDescriptor(context.dumpPath);
  if (fd < 0) {
    lastError = errno;
  } else {
    written = writeDump(ML_CURRENT_PROCESS, GetCurrentProcessId(), fd, dumpType,
                        hasFault ? &exceptionInformation : nullptr, nullptr, &callbackInformation);
    lastError = errno;
    close(fd);
  }
  if (written != 0) {
    LogCrashReporting(kLogInformation, FormatString(u"Crash report written to '%s'.", context.dumpPath.c_str()));
  } else {
    LogCrashReporting(kLogError, FormatString(u"Cannot write crash report (%s).",
                                              LastErrorText(static_cast<std::uint32_t>(lastError)).c_str()));
  }
  dumpFile.Close();

  if (WriteCrashedModuleRecord(context)) {
    LogCrashReporting(kLogInformation, u"Crashing module's data written to disk.");
  } else {
    LogCrashReporting(kLogError, u"Cannot write crashing module's data to disk.");
  }
}

}  // namespace Marlowen
