// Whole-file reads and complete writes on plain descriptors, for the small
// text files the system reads (/proc, os-release, the registry file, XML).
#pragma once

#include <string>
#include <string_view>

namespace platform {

// Reads the file to its end; /proc files, whose size stat does not tell, are
// read whole too. False if it cannot be opened or a read fails.
[[nodiscard]] bool ReadWholeFile(const std::string& path, std::string& contents);

// Writes all of text, going on after short writes and interruptions.
[[nodiscard]] bool WriteAll(int fd, std::string_view text);

}  // namespace platform
