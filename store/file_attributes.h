// Attribute and flag words of files, with the values that the system's file
// layer has always used. On Linux they mean:
//   kFileAttributeHidden    the name begins with '.'
//   kFileAttributeSystem    neither a regular file nor a folder (socket, fifo,
//                           device, symbolic link that leads nowhere)
//   kFileAttributeDirectory a folder, also when reached through a link
//   kFileAttributeNormal    no special mode: created 0600
//   kFileAttributeReadableByAll  this project's own bit: created 0644
//   kFileFlagSequentialScan / kFileFlagRandomAccess  posix_fadvise hints
#pragma once

#include <cstdint>

namespace Marlowen {

inline constexpr std::uint32_t kFileAttributeHidden = 0x2;
inline constexpr std::uint32_t kFileAttributeSystem = 0x4;
inline constexpr std::uint32_t kFileAttributeDirectory = 0x10;
inline constexpr std::uint32_t kFileAttributeNormal = 0x80;
// A bit that no file attribute of the other platform's API sets from user
// code, so it can carry "everyone may read this file".
inline constexpr std::uint32_t kFileAttributeReadableByAll = 0x00010000;

inline constexpr std::uint32_t kFileFlagSequentialScan = 0x08000000;
inline constexpr std::uint32_t kFileFlagRandomAccess = 0x10000000;

}  // namespace Marlowen
