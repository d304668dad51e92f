// The installation's registry entry of the reporter tool, the one way a
// failing process finds the tool and the dump library: its default value is
// the tool's full path, "Path" the folder holding the tool and the library.
#pragma once

namespace Marlowen {

inline constexpr char16_t kToolRegistryPath[] =
    u"\\\\HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\MLCrashReporter.exe";
inline constexpr char16_t kToolFolderValueName[] = u"Path";
// The key's default value.
inline constexpr char16_t kToolPathValueName[] = u"";

}  // namespace Marlowen
