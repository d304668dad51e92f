// The cipher of stored account passwords: Twofish with a 256-bit key that is
// put together at run time from three stored parts, so that no one constant
// in the program is the key. Callers pass the two outer parts; the middle one
// lives in the cipher routine.
//
// Mode: CBC with an all-zero initial vector. Padding: zero bytes up to a
// whole 16-byte block (none when the text already fills its last block); the
// plain text ends at its first zero byte on the way back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Marlowen {

// Each outer part is eight ASCII characters.
inline constexpr std::size_t kPasswordKeyPartLength = 8;

// The two outer parts that the account functions of Server.xml use.
extern const char kAccountKeyPartA[kPasswordKeyPartLength + 1];
extern const char kAccountKeyPartB[kPasswordKeyPartLength + 1];

// Enciphers `plain` (an empty text gives no bytes). False if a key part is
// not eight characters long.
[[nodiscard]] bool EncipherPassword(std::string_view plain, const char* keyPartA, const char* keyPartB,
                                    std::vector<std::uint8_t>& cipher);

// Deciphers `length` bytes. False, with `plain` empty, if the length is zero
// or not a whole number of blocks, or a key part is wrong in length.
[[nodiscard]] bool DecipherPassword(const std::uint8_t* cipher, std::size_t length, const char* keyPartA,
                                    const char* keyPartB, std::string& plain);

}  // namespace Marlowen
