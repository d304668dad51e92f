// The id that a localized string carries in its file: a checksum of the text
// and its length, so that tools can tell rows apart without comparing texts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "shell/wide_string.h"

namespace Marlowen {

// Below this many characters the id ignores case.
inline constexpr std::size_t kStringIdCaseLimit = 999;

// CRC-32 (reflected polynomial 0xEDB88320, all-ones start, final complement)
// of the text as little-endian UTF-16 bytes, shifted left by 8, plus the
// length in characters, modulo 2^32. Texts shorter than kStringIdCaseLimit
// are lower-cased first; the empty text counts a checksum of 0xFFFFFFFF.
std::uint32_t StringId(WideStringView text);

// The plain CRC-32 of a byte run, as StringId uses it.
std::uint32_t Crc32(const std::uint8_t* bytes, std::size_t length);

}  // namespace Marlowen
