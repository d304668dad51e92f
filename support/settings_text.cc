#include "support/settings_text.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>

#include <cryptopp/base64.h>
#include <cryptopp/filters.h>

#include "shell/format_string.h"

namespace Marlowen {

namespace {

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\v' || c == u'\f'; }

std::size_t SkipBlanks(WideStringView text) {
  std::size_t i = 0;
  while (i < text.size() && IsBlank(text[i])) ++i;
  return i;
}

int HexDigitValue(char16_t c) { return c < u'A' ? c - u'0' : c - (u'A' - 10); }

}  // namespace

WideString IntToSettingsText(std::int32_t value) { return FormatString(u"%d", value); }

WideString DoubleToSettingsText(double value) { return FormatString(u"%.6f", value); }

std::int32_t SettingsTextToInt(WideStringView text) {
  std::size_t i = SkipBlanks(text);
  bool negative = false;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
    negative = text[i] == u'-';
    ++i;
  }
  std::int64_t magnitude = 0;
  constexpr std::int64_t kLimit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
    magnitude = magnitude * 10 + (text[i] - u'0');
    if (magnitude > kLimit) magnitude = kLimit;
  }
  std::int64_t value = negative ? -magnitude : magnitude;
  if (value > std::numeric_limits<std::int32_t>::max()) value = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(value);
}

double SettingsTextToDouble(WideStringView text) {
  const std::size_t start = SkipBlanks(text);
  // from_chars works on 8-bit text; a number is plain ASCII, so anything
  // else ends it.
  std::string ascii;
  for (std::size_t i = start; i < text.size() && text[i] < 0x80; ++i) ascii.push_back(static_cast<char>(text[i]));
  const char* first = ascii.c_str();
  if (!ascii.empty() && ascii[0] == '+') ++first;
  double value = 0.0;
  const auto result = std::from_chars(first, ascii.c_str() + ascii.size(), value);
  if (result.ec != std::errc()) return 0.0;
  return value;
}

WideString BytesToBin16Text(const std::uint8_t* bytes, std::size_t length) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  WideString text;
  text.reserve(length * 2);
  for (std::size_t i = 0; i < length; ++i) {
    text.push_back(kDigits[bytes[i] >> 4]);
    text.push_back(kDigits[bytes[i] & 0x0F]);
  }
  return text;
}

std::size_t Bin16TextToBytes(WideStringView text, std::uint8_t* bytes, std::size_t length) {
  std::size_t count = 0;
  for (std::size_t i = 0; count < length; i += 2) {
    // The end of the text reads as a terminator, which is below '0' too.
    const char16_t high = i < text.size() ? text[i] : u'\0';
    const char16_t low = i + 1 < text.size() ? text[i + 1] : u'\0';
    if (high < u'0' || low < u'0') break;
    bytes[count++] = static_cast<std::uint8_t>(HexDigitValue(high) * 16 + HexDigitValue(low));
  }
  return count;
}

WideString BytesToBin64Text(const std::uint8_t* bytes, std::size_t length) {
  std::string encoded;
  CryptoPP::StringSource source(bytes, length, true,
                                new CryptoPP::Base64Encoder(new CryptoPP::StringSink(encoded), false));
  return Utf8ToWide(encoded);
}

std::vector<std::uint8_t> Bin64TextToBytes(WideStringView text) {
  std::string ascii = WideToUtf8(text);
  while (ascii.size() % 4 != 0) ascii.push_back('A');
  std::vector<std::uint8_t> bytes;
  CryptoPP::StringSource source(ascii, true,
                                new CryptoPP::Base64Decoder(new CryptoPP::VectorSink(bytes)));
  return bytes;
}

}  // namespace Marlowen
