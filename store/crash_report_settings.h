// CrashReportSettingsT: the machine's choice about error reporting, kept in
// CrashReport.settings in the report folder.
//
// File layout, version 1, little-endian, no padding:
//   u32 version (1), u32 dumpLevel, u8 sendReports, u8 askBeforeSending,
//   u32 n, n bytes of smaNumber in UTF-8.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"
#include "store/path_buffer.h"
#include "store/streamable.h"

namespace Marlowen {

inline constexpr std::uint32_t kCrashReportSettingsVersion = 1;
inline constexpr char16_t kSettingsFileName[] = u"CrashReport.settings";

class CrashReportSettingsT : public Streamable {
 public:
  // The defaults: a machine without a settings file sends without asking.
  CrashReportSettingsT() = default;

  // Streamable: Write always answers true; Read answers false, with every
  // field untouched, unless the version word is 1. A stream that ends early
  // leaves the fields it did not reach as they were (the text is cleared).
  bool Write(ByteStream& stream) const override;
  bool Read(ByteStream& stream) override;

  // An empty path, or one that names no existing file, means the default
  // file of SettingsFilePath. False if no file was read; a missing file is
  // no message, a file that cannot be opened or read is a warning in the log.
  bool Load(const PathBuffer& path);
  // Puts the settings on disk, readable by every user: the old file is
  // deleted first, then a new one is created. The same path rule as Load, so
  // a path other than the default is used only if its file already exists.
  // False, with a warning in the log, on any failure.
  bool Save(const PathBuffer& path) const;

  // 1 the largest minidump, 2 middle, any other value the smallest.
  std::uint32_t dumpLevel = 3;
  bool sendReports = true;
  bool askBeforeSending = false;
  // Customer identification (maintenance agreement number), kept as entered.
  WideString smaNumber;
};

// The report folder followed by "/CrashReport.settings"; "/CrashReport.settings"
// alone when the report folder is unknown.
PathBuffer& SettingsFilePath(PathBuffer& destination);

}  // namespace Marlowen
