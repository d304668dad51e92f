#include "shell/wide_string.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf16(WideString& out, char32_t cp) {
  if (cp < 0x10000) {
    out.push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

}  // namespace

WideString Utf8ToWide(std::string_view utf8) {
  WideString out;
  out.reserve(utf8.size());
  const auto* s = reinterpret_cast<const unsigned char*>(utf8.data());
  const std::size_t n = utf8.size();
  std::size_t i = 0;
  while (i < n) {
    const unsigned char b = s[i];
    if (b < 0x80) {
      out.push_back(b);
      ++i;
      continue;
    }
    // Decode one sequence; on any ill-formed byte emit one replacement for
    // the maximal subpart read so far, as Unicode recommends.
    int need;
    char32_t cp;
    unsigned char lo = 0x80, hi = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) { need = 1; cp = b & 0x1F; }
    else if (b >= 0xE0 && b <= 0xEF) {
      need = 2; cp = b & 0x0F;
      if (b == 0xE0) lo = 0xA0;
      if (b == 0xED) hi = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
      need = 3; cp = b & 0x07;
      if (b == 0xF0) lo = 0x90;
      if (b == 0xF4) hi = 0x8F;
    } else {
      AppendUtf16(out, kReplacement);
      ++i;
      continue;
    }
    std::size_t j = i + 1;
    bool ok = true;
    for (int k = 0; k < need; ++k, ++j) {
      if (j >= n) { ok = false; break; }
      const unsigned char c = s[j];
      const unsigned char l = (k == 0) ? lo : 0x80;
      const unsigned char h = (k == 0) ? hi : 0xBF;
      if (c < l || c > h) { ok = false; break; }
      cp = (cp << 6) | (c & 0x3F);
    }
    AppendUtf16(out, ok ? cp : kReplacement);
    i = j;
  }
  return out;
}

std::string WideToUtf8(WideStringView wide) {
  std::string out;
  out.reserve(wide.size());
  for (std::size_t i = 0; i < wide.size(); ++i) {
    char32_t c = wide[i];
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 < wide.size() && wide[i + 1] >= 0xDC00 && wide[i + 1] <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (wide[i + 1] - 0xDC00);
        ++i;
      } else {
        c = kReplacement;
      }
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      c = kReplacement;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::size_t WideLength(const char16_t* text) {
  if (!text) return 0;
  std::size_t n = 0;
  while (text[n]) ++n;
  return n;
}
