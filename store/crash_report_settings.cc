#include "store/crash_report_settings.h"

#include "shell/format_string.h"
#include "shell/log_client.h"
#include "store/byte_stream.h"
#include "store/file.h"
#include "store/file_attributes.h"
#include "store/path_helpers.h"
#include "store/report_folder.h"
#include "store/stream_primitives.h"

namespace Marlowen {
namespace {

void Warn(const char16_t* format, const PathBuffer& path) {
  LogCrashReporting(kLogWarning, FormatString(format, path.c_str()));
}

// A path that names no existing file means the machine's settings file.
PathBuffer ChooseSettingsPath(const PathBuffer& path) {
  PathBuffer local = path;
  if (local.IsEmpty() || !Exists(local)) SettingsFilePath(local);
  return local;
}

}  // namespace

bool CrashReportSettingsT::Write(ByteStream& stream) const {
  WriteU32(stream, kCrashReportSettingsVersion);
  WriteU32(stream, dumpLevel);
  WriteBool(stream, sendReports);
  WriteBool(stream, askBeforeSending);
  WriteString(stream, smaNumber);
  return true;
}

bool CrashReportSettingsT::Read(ByteStream& stream) {
  std::uint32_t version = 0;
  ReadU32(stream, version);
  if (version != kCrashReportSettingsVersion) return false;
  ReadU32(stream, dumpLevel);
  ReadBool(stream, sendReports);
  ReadBool(stream, askBeforeSending);
  ReadString(stream, smaNumber);
  return true;
}

bool CrashReportSettingsT::Load(const PathBuffer& path) {
  const PathBuffer local = ChooseSettingsPath(path);
  // No file is the usual case on a fresh machine: the defaults hold, quietly.
  if (local.IsEmpty() || !Exists(local)) return false;

  File file(local);
  if (!file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential)) {
    Warn(u"Cannot open file '%s'.", local);
    return false;
  }
  bool result = true;
  if (!Read(file)) {
    Warn(u"Cannot read from file '%s'.", local);
    result = false;
  }
  file.Close();
  return result;
}

bool CrashReportSettingsT::Save(const PathBuffer& path) const {
  const PathBuffer local = ChooseSettingsPath(path);

  // Only the last level is made: the folders above come from the install or
  // from the first crash.
  PathBuffer parent;
  local.ParentFolder(parent);
  if (!IsDirectory(parent) && !CreateFolder(parent, false)) {
    Warn(u"Cannot create directory '%s'.", parent);
    return false;
  }
  // Delete first, then create: no temporary file, no rename. A reader or
  // writer holding the file makes the delete fail instead of tearing it.
  if (Exists(local) && !Delete(local)) {
    Warn(u"Cannot delete file '%s'.", local);
    return false;
  }
  File file(local);
  if (!file.Create(FileAccess_Write, FileShare_Read, FileAccessHint_Sequential, true,
                   kFileAttributeNormal | kFileAttributeReadableByAll)) {
    Warn(u"Cannot create file '%s'.", local);
    return false;
  }
  bool result = true;
  if (!Write(file)) {
    Warn(u"Cannot write to file '%s'.", local);
    result = false;
  }
  file.Close();
  return result;
}

PathBuffer& SettingsFilePath(PathBuffer& destination) {
  PathBuffer folder;
  ReportFolder(folder);
  destination = FormatString(u"%s/%s", folder.c_str(), kSettingsFileName);
  return destination;
}

}  // namespace Marlowen
