#include "support/password_cipher.h"

#include <array>
#include <cstring>

#include <cryptopp/modes.h>
#include <cryptopp/twofish.h>

namespace Marlowen {

const char kAccountKeyPartA[kPasswordKeyPartLength + 1] = "vK3q9TzB";
const char kAccountKeyPartB[kPasswordKeyPartLength + 1] = "Lw7pHs2N";

namespace {

constexpr std::size_t kBlock = CryptoPP::Twofish::BLOCKSIZE;
constexpr std::size_t kKeyLength = 32;

// The middle part, stored apart from the outer ones.
constexpr char kInnerKeyPart[] = "r8Ye4mXc1JdQ6uFa";
static_assert(sizeof kInnerKeyPart - 1 + 2 * kPasswordKeyPartLength == kKeyLength);

bool BuildKey(const char* partA, const char* partB, std::array<CryptoPP::byte, kKeyLength>& key) {
  if (!partA || !partB || std::strlen(partA) != kPasswordKeyPartLength ||
      std::strlen(partB) != kPasswordKeyPartLength) {
    return false;
  }
  std::size_t at = 0;
  for (const char* part : {partA, static_cast<const char*>(kInnerKeyPart), partB}) {
    const std::size_t length = std::strlen(part);
    std::memcpy(key.data() + at, part, length);
    at += length;
  }
  return at == kKeyLength;
}

}  // namespace

bool EncipherPassword(std::string_view plain, const char* keyPartA, const char* keyPartB,
                      std::vector<std::uint8_t>& cipher) {
  cipher.clear();
  std::array<CryptoPP::byte, kKeyLength> key{};
  if (!BuildKey(keyPartA, keyPartB, key)) return false;
  if (plain.empty()) return true;
  std::vector<std::uint8_t> padded(plain.begin(), plain.end());
  padded.resize((padded.size() + kBlock - 1) / kBlock * kBlock, 0);
  const std::array<CryptoPP::byte, kBlock> iv{};
  CryptoPP::CBC_Mode<CryptoPP::Twofish>::Encryption encryption;
  encryption.SetKeyWithIV(key.data(), key.size(), iv.data(), iv.size());
  cipher.resize(padded.size());
  encryption.ProcessData(cipher.data(), padded.data(), padded.size());
  return true;
}

bool DecipherPassword(const std::uint8_t* cipher, std::size_t length, const char* keyPartA,
                      const char* keyPartB, std::string& plain) {
  plain.clear();
  std::array<CryptoPP::byte, kKeyLength> key{};
  if (!BuildKey(keyPartA, keyPartB, key)) return false;
  if (!cipher || length == 0 || length % kBlock != 0) return false;
  const std::array<CryptoPP::byte, kBlock> iv{};
  CryptoPP::CBC_Mode<CryptoPP::Twofish>::Decryption decryption;
  decryption.SetKeyWithIV(key.data(), key.size(), iv.data(), iv.size());
  std::vector<std::uint8_t> clear(length);
  decryption.ProcessData(clear.data(), cipher, length);
  std::size_t end = 0;
  while (end < clear.size() && clear[end] != 0) ++end;
  plain.assign(reinterpret_cast<const char*>(clear.data()), end);
  return true;
}

}  // namespace Marlowen
