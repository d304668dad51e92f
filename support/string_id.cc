#include "support/string_id.h"

#include <array>
#include <vector>

#include "support/language_names.h"

namespace Marlowen {

namespace {

constexpr std::uint32_t kCrcPolynomial = 0xEDB88320u;

constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t crc = i;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ kCrcPolynomial : crc >> 1;
    table[i] = crc;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

}  // namespace

std::uint32_t Crc32(const std::uint8_t* bytes, std::size_t length) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < length; ++i) crc = kCrcTable[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

std::uint32_t StringId(WideStringView text) {
  const std::size_t length = text.size();
  // Files written so far carry this value for the empty text, not the CRC's 0.
  std::uint32_t checksum = 0xFFFFFFFFu;
  if (length > 0) {
    const WideString folded =
        length < kStringIdCaseLimit ? LowerCaseCopy(text) : WideString(text);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(length * 2);
    for (char16_t c : folded) {
      bytes.push_back(static_cast<std::uint8_t>(c & 0xFF));
      bytes.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    checksum = Crc32(bytes.data(), bytes.size());
  }
  return static_cast<std::uint32_t>((checksum << 8) + static_cast<std::uint32_t>(length));
}

}  // namespace Marlowen
