// Conversions between the values of a settings store and their text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "shell/wide_string.h"

namespace Marlowen {

WideString IntToSettingsText(std::int32_t value);      // "%d"
WideString DoubleToSettingsText(double value);         // "%.6f"

// Leading blanks, a sign and digits, up to the first other character, as the
// C library's atoi reads them; no digits read as 0, and a number beyond the
// 32-bit range is held at its limit.
std::int32_t SettingsTextToInt(WideStringView text);
// Leading blanks and the longest prefix that reads as a decimal number; 0.0
// if there is none.
double SettingsTextToDouble(WideStringView text);

// Two upper-case hexadecimal digits per byte.
WideString BytesToBin16Text(const std::uint8_t* bytes, std::size_t length);
// At most `length` bytes from the text, two characters each, stopping at the
// first character below '0'. A character below 'A' counts from '0' and any
// other from '7', the value of 'A' less ten; lower-case digits are thus read
// wrongly, and that is kept for files written by other tools. Returns how
// many bytes were written.
std::size_t Bin16TextToBytes(WideStringView text, std::uint8_t* bytes, std::size_t length);

// Base64 with the standard alphabet and '=' padding, in one line.
WideString BytesToBin64Text(const std::uint8_t* bytes, std::size_t length);
// Decodes the text after filling it up with 'A' to a multiple of four.
std::vector<std::uint8_t> Bin64TextToBytes(WideStringView text);

}  // namespace Marlowen
