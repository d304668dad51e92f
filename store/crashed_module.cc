#include "store/crashed_module.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include "platform/process_facts.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/module_version.h"
#include "store/byte_stream.h"
#include "store/file.h"
#include "store/file_attributes.h"
#include "store/path_helpers.h"
#include "store/stream_primitives.h"

namespace Marlowen {
namespace {

constexpr char16_t kNotAvailable[] = u"N/A";
// The running executable as the kernel holds it, also after the file on
// disk has been replaced or removed.
constexpr char16_t kOwnExecutable[] = u"/proc/self/exe";

void Warn(const char16_t* format, const PathBuffer& path) {
  LogCrashReporting(kLogWarning, FormatString(format, path.c_str()));
}

std::uint32_t Saturated(std::uint64_t value) {
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(value, std::numeric_limits<std::uint32_t>::max()));
}

WideString FourParts(std::uint32_t mostSignificant, std::uint32_t leastSignificant) {
  return FormatString(u"%i.%i.%i.%i", mostSignificant >> 16, mostSignificant & 0xFFFF,
                      leastSignificant >> 16, leastSignificant & 0xFFFF);
}

// Everything behind the crash address: the same in both versions.
void ReadModuleFacts(ByteStream& stream, CrashedModuleT& record) {
  ReadString(stream, record.moduleName);
  ReadString(stream, record.commandLine);
  ReadString(stream, record.fileVersion);
  ReadString(stream, record.productVersion);
  ReadPath(stream, record.fileName);
  ReadFileTime(stream, record.creationTime);
  ReadU32(stream, record.handleCount);
  ReadU32(stream, record.threadCount);
  ReadU32(stream, record.pageFaultCount);
  ReadU32(stream, record.peakWorkingSetSize);
  ReadU32(stream, record.workingSetSize);
  ReadU32(stream, record.quotaPeakPagedPoolUsage);
  ReadU32(stream, record.quotaPagedPoolUsage);
  ReadU32(stream, record.quotaPeakNonPagedPoolUsage);
  ReadU32(stream, record.quotaNonPagedPoolUsage);
  ReadU32(stream, record.pageFileUsage);
  ReadU32(stream, record.peakPageFileUsage);
}

}  // namespace

CrashedModuleT::CrashedModuleT(bool collect) {
  if (collect) Collect();
}

CrashedModuleT::~CrashedModuleT() = default;

void CrashedModuleT::Collect() {
  CollectVersions();
  CollectProcessFacts();
  CollectMemoryCounters();
}

void CrashedModuleT::Collect(const PathBuffer& dumpPath, const WideString& exceptionName,
                             std::uint64_t exceptionAddress, const WideString& applicationName,
                             const FILETIME& crashTime) {
  PathBuffer name;
  reportName = dumpPath.BaseName(name, false).ToWide();
  exceptionType = exceptionName;
  creationTime = crashTime;
  moduleName = applicationName;
  crashAddress = FormatString(u"0x%I64x", exceptionAddress);
  Collect();
}

void CrashedModuleT::CollectVersions() {
  productVersion = kNotAvailable;
  fileVersion = productVersion;
  CModuleVersion version;
  if (!version.ReadVersionInfo(kOwnExecutable)) return;
  fileVersion = FourParts(version.dwFileVersionMS, version.dwFileVersionLS);
  productVersion = FourParts(version.dwProductVersionMS, version.dwProductVersionLS);
}

void CrashedModuleT::CollectProcessFacts() {
  const std::uint32_t id = static_cast<std::uint32_t>(getpid());
  handleCount = CountModules(id);
  threadCount = CountThreads(id);
  // A path that does not fit stays empty: ending the crashing process over
  // a fact for the report would lose the report.
  WideString executable = Utf8ToWide(platform::ExecutablePath());
  if (executable.size() <= kMaxPathLength) {
    fileName = executable;
  } else {
    fileName.Clear();
  }
  commandLine = Utf8ToWide(platform::CommandLineText());
}

void CrashedModuleT::CollectMemoryCounters() {
  platform::ProcessMemoryCounters counters;
  if (!platform::ReadProcessMemoryCounters(counters)) return;
  pageFaultCount = Saturated(counters.pageFaultCount);
  peakWorkingSetSize = Saturated(counters.peakWorkingSetSize);
  workingSetSize = Saturated(counters.workingSetSize);
  quotaPeakPagedPoolUsage = Saturated(counters.quotaPeakPagedPoolUsage);
  quotaPagedPoolUsage = Saturated(counters.quotaPagedPoolUsage);
  quotaPeakNonPagedPoolUsage = Saturated(counters.quotaPeakNonPagedPoolUsage);
  quotaNonPagedPoolUsage = Saturated(counters.quotaNonPagedPoolUsage);
  pageFileUsage = Saturated(counters.pageFileUsage);
  peakPageFileUsage = Saturated(counters.peakPageFileUsage);
}

std::uint32_t CrashedModuleT::CountModules(std::uint32_t processId) {
  return platform::CountProcessModules(static_cast<pid_t>(processId));
}

std::uint32_t CrashedModuleT::CountThreads(std::uint32_t processId) {
  return platform::CountProcessThreads(static_cast<pid_t>(processId));
}

PathBuffer& CrashedModuleT::RecordPath(const PathBuffer& dumpPath, PathBuffer& destination) {
  PathBuffer folder;
  PathBuffer name;
  dumpPath.ParentFolder(folder);
  dumpPath.BaseName(name, false);
  destination = FormatString(u"%s/%s.dat", folder.c_str(), name.c_str());
  return destination;
}

bool CrashedModuleT::Write(ByteStream& stream) const {
  WriteU32(stream, kCrashedModuleVersion);
  WriteString(stream, reportName);
  WriteString(stream, exceptionType);
  WriteString(stream, crashAddress);
  WriteString(stream, moduleName);
  WriteString(stream, commandLine);
  WriteString(stream, fileVersion);
  WriteString(stream, productVersion);
  WritePath(stream, fileName);
  WriteFileTime(stream, creationTime);
  WriteU32(stream, handleCount);
  WriteU32(stream, threadCount);
  WriteU32(stream, pageFaultCount);
  WriteU32(stream, peakWorkingSetSize);
  WriteU32(stream, workingSetSize);
  WriteU32(stream, quotaPeakPagedPoolUsage);
  WriteU32(stream, quotaPagedPoolUsage);
  WriteU32(stream, quotaPeakNonPagedPoolUsage);
  WriteU32(stream, quotaNonPagedPoolUsage);
  WriteU32(stream, pageFileUsage);
  WriteU32(stream, peakPageFileUsage);
  return true;
}

bool CrashedModuleT::Read(ByteStream& stream) {
  std::uint32_t version = 0;
  ReadU32(stream, version);
  if (version == 1) return ReadVersion1(stream);
  if (version != kCrashedModuleVersion) return false;
  ReadString(stream, reportName);
  ReadString(stream, exceptionType);
  ReadString(stream, crashAddress);
  ReadModuleFacts(stream, *this);
  return true;
}

// Version 1 is version 2 without the crash address.
bool CrashedModuleT::ReadVersion1(ByteStream& stream) {
  ReadString(stream, reportName);
  ReadString(stream, exceptionType);
  ReadModuleFacts(stream, *this);
  return true;
}

bool CrashedModuleT::Load(const PathBuffer& path) {
  if (path.IsEmpty() || !Exists(path)) {
    Warn(u"The file '%s' does not exist.", path);
    return false;
  }
  File file(path);
  if (!file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential)) {
    Warn(u"Cannot open file '%s'.", path);
    return false;
  }
  bool result = true;
  if (!Read(file)) {
    Warn(u"Cannot read from file '%s'.", path);
    result = false;
  }
  file.Close();
  return result;
}

bool CrashedModuleT::Save(const PathBuffer& path) const {
  if (path.IsEmpty()) return false;
  PathBuffer parent;
  path.ParentFolder(parent);
  if (!IsDirectory(parent) && !CreateFolder(parent, false)) {
    Warn(u"Cannot create directory '%s'.", parent);
    return false;
  }
  // Delete, then create: no temporary file and no rename.
  if (Exists(path) && !Delete(path)) {
    Warn(u"Cannot delete file '%s'.", path);
    return false;
  }
  File file(path);
  if (!file.Create(FileAccess_Write, FileShare_Read, FileAccessHint_Sequential, true,
                   kFileAttributeNormal)) {
    Warn(u"Cannot create file '%s'.", path);
    return false;
  }
  bool result = true;
  if (!Write(file)) {
    Warn(u"Cannot write to file '%s'.", path);
    result = false;
  }
  file.Close();
  return result;
}

}  // namespace Marlowen
