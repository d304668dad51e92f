#include "shell/registry_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <optional>

#include "platform/file_io.h"
#include "shell/string_helpers.h"

namespace {

constexpr std::u16string_view kHeaderVersion5 = u"Windows Registry Editor Version 5.00";
constexpr std::u16string_view kHeaderVersion4 = u"REGEDIT4";

constexpr std::array<std::u16string_view, 5> kRootNames = {
    u"HKEY_LOCAL_MACHINE", u"HKEY_CURRENT_USER", u"HKEY_CLASSES_ROOT", u"HKEY_CURRENT_CONFIG",
    u"HKEY_USERS"};

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }

std::optional<unsigned> HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return std::nullopt;
}

// Parses 1..maxDigits hex digits at text[pos]; advances pos.
std::optional<std::uint32_t> ParseHexNumber(WideStringView text, std::size_t& pos,
                                            std::size_t maxDigits) {
  std::uint32_t value = 0;
  std::size_t digits = 0;
  while (pos < text.size() && digits < maxDigits) {
    auto d = HexDigit(text[pos]);
    if (!d) break;
    value = value * 16 + *d;
    ++pos;
    ++digits;
  }
  if (digits == 0) return std::nullopt;
  return value;
}

bool StartsWithNoCase(WideStringView text, WideStringView prefix) {
  if (text.size() < prefix.size()) return false;
  return ToUpperCopy(text.substr(0, prefix.size())) == ToUpperCopy(prefix);
}

// A quoted text at text[pos] == '"'; \\ and \" are escapes, any other
// backslash stands for itself. Advances pos behind the closing quote.
std::optional<WideString> ParseQuoted(WideStringView text, std::size_t& pos) {
  if (pos >= text.size() || text[pos] != u'"') return std::nullopt;
  WideString out;
  for (std::size_t i = pos + 1; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c == u'\\' && i + 1 < text.size() && (text[i + 1] == u'\\' || text[i + 1] == u'"')) {
      out += text[++i];
    } else if (c == u'"') {
      pos = i + 1;
      return out;
    } else {
      out += c;
    }
  }
  return std::nullopt;
}

WideString Quote(WideStringView text) {
  WideString out = u"\"";
  for (char16_t c : text) {
    if (c == u'\\' || c == u'"') out += u'\\';
    out += c;
  }
  out += u'"';
  return out;
}

void AppendUtf16Le(std::vector<std::uint8_t>& out, WideStringView text) {
  for (char16_t c : text) {
    out.push_back(static_cast<std::uint8_t>(c & 0xFF));
    out.push_back(static_cast<std::uint8_t>(c >> 8));
  }
}

bool HasLineBreak(WideStringView text) {
  return text.find_first_of(u"\r\n") != WideStringView::npos;
}

bool IsKnownRoot(WideStringView upperKey) {
  WideStringView root = upperKey.substr(0, upperKey.find(u'\\'));
  for (auto name : kRootNames) {
    if (root == name) return true;
  }
  return false;
}

}  // namespace

void RegistryFile::Clear() {
  lines_.clear();
  keys_.clear();
  utf16_ = utf8Bom_ = crlf_ = regedit4_ = false;
}

bool RegistryFile::Load(const std::string& path) {
  Clear();
  std::string bytes;
  if (!platform::ReadWholeFile(path, bytes)) return errno == ENOENT || errno == ENOTDIR;
  return Parse(bytes);
}

bool RegistryFile::Parse(std::string_view bytes) {
  Clear();
  WideString text;
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    if (bytes.size() % 2 != 0) return false;
    utf16_ = true;
    text.reserve(bytes.size() / 2);
    for (std::size_t i = 2; i < bytes.size(); i += 2) {
      text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                    static_cast<unsigned char>(bytes[i + 1]) << 8);
    }
  } else {
    if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") {
      utf8Bom_ = true;
      bytes.remove_prefix(3);
    }
    text = Utf8ToWide(bytes);
  }

  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find(u'\n', start);
    if (end == WideString::npos) end = text.size();
    WideString line = text.substr(start, end - start);
    if (!line.empty() && line.back() == u'\r') {
      line.pop_back();
      crlf_ = true;
    }
    lines_.push_back(std::move(line));
    start = end + 1;
  }
  if (!ParseLines()) {
    Clear();
    return false;
  }
  return true;
}

bool RegistryFile::ParseLines() {
  keys_.clear();
  regedit4_ = false;
  bool seenContent = false;
  std::optional<WideString> currentKey;

  for (std::size_t i = 0; i < lines_.size(); ++i) {
    WideString line = TrimWhitespace(lines_[i]);
    if (line.empty() || line[0] == u';') continue;
    if (!seenContent) {
      seenContent = true;
      if (line == kHeaderVersion5) continue;
      if (line == kHeaderVersion4) {
        regedit4_ = true;
        continue;
      }
    }

    if (line[0] == u'[') {
      if (line.back() != u']' || line.size() < 3) return false;
      WideStringView inner = WideStringView(line).substr(1, line.size() - 2);
      bool remove = inner[0] == u'-';
      if (remove) inner.remove_prefix(1);
      WideString key = ToUpperCopy(inner);
      if (!IsKnownRoot(key)) return false;
      if (remove) {
        WideString below = key + u'\\';
        for (auto it = keys_.begin(); it != keys_.end();) {
          if (it->first == key || it->first.starts_with(below)) {
            it = keys_.erase(it);
          } else {
            ++it;
          }
        }
        currentKey.reset();
      } else {
        keys_[key].sectionEnd = i;
        currentKey = key;
      }
      continue;
    }

    if (line[0] != u'"' && line[0] != u'@') return false;
    if (!currentKey) return false;
    std::size_t firstLine = i;
    std::size_t pos = 0;
    WideString name;
    if (line[0] == u'@') {
      pos = 1;
    } else {
      auto quoted = ParseQuoted(line, pos);
      if (!quoted) return false;
      name = std::move(*quoted);
    }
    while (pos < line.size() && IsBlank(line[pos])) ++pos;
    if (pos >= line.size() || line[pos] != u'=') return false;
    ++pos;
    while (pos < line.size() && IsBlank(line[pos])) ++pos;
    WideStringView rest = WideStringView(line).substr(pos);

    KeyEntry& key = keys_[*currentKey];
    WideString upperName = ToUpperCopy(name);
    if (rest == u"-") {
      key.values.erase(upperName);
      key.sectionEnd = i;
      continue;
    }

    RegistryValue value;
    if (!rest.empty() && rest[0] == u'"') {
      std::size_t textPos = 0;
      auto quoted = ParseQuoted(rest, textPos);
      if (!quoted || !TrimWhitespace(rest.substr(textPos)).empty()) return false;
      value.type = kRegString;
      AppendUtf16Le(value.data, *quoted);
      AppendUtf16Le(value.data, WideStringView(u"\0", 1));
    } else if (StartsWithNoCase(rest, u"dword:")) {
      std::size_t numberPos = 6;
      auto number = ParseHexNumber(rest, numberPos, 8);
      if (!number || numberPos != rest.size()) return false;
      value.type = kRegDword;
      for (int shift = 0; shift < 32; shift += 8) {
        value.data.push_back(static_cast<std::uint8_t>(*number >> shift));
      }
    } else if (StartsWithNoCase(rest, u"hex")) {
      std::size_t p = 3;
      value.type = kRegBinary;
      if (p < rest.size() && rest[p] == u'(') {
        ++p;
        auto type = ParseHexNumber(rest, p, 8);
        if (!type || p >= rest.size() || rest[p] != u')') return false;
        value.type = *type;
        ++p;
      }
      if (p >= rest.size() || rest[p] != u':') return false;
      WideString list(rest.substr(p + 1));
      // A list ending in a backslash goes on in the next line.
      for (;;) {
        WideString trimmed = TrimWhitespace(list);
        if (trimmed.empty() || trimmed.back() != u'\\') {
          list = std::move(trimmed);
          break;
        }
        trimmed.pop_back();
        if (++i >= lines_.size()) return false;
        list = trimmed + TrimWhitespace(lines_[i]);
      }
      std::vector<std::uint8_t> bytes;
      std::size_t q = 0;
      while (q < list.size()) {
        while (q < list.size() && IsBlank(list[q])) ++q;
        auto byte = ParseHexNumber(list, q, 2);
        if (!byte) return false;
        bytes.push_back(static_cast<std::uint8_t>(*byte));
        while (q < list.size() && IsBlank(list[q])) ++q;
        if (q < list.size()) {
          if (list[q] != u',') return false;
          ++q;
          if (q == list.size()) return false;  // a trailing comma
        }
      }
      // The old format keeps text values in 8-bit bytes; hold them as the
      // newer one does, in UTF-16LE.
      if (regedit4_ && (value.type == kRegExpandString || value.type == kRegMultiString ||
                        value.type == kRegString)) {
        WideString wide = MultiByteToWide(
            std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
            kCodePageAnsi);
        bytes.clear();
        AppendUtf16Le(bytes, wide);
      }
      value.data = std::move(bytes);
    } else {
      return false;
    }
    key.values[upperName] = ValueEntry{std::move(value), firstLine, i};
    key.sectionEnd = i;
  }
  return true;
}

const RegistryValue* RegistryFile::FindValue(WideStringView keyPath,
                                             WideStringView valueName) const {
  auto key = keys_.find(ToUpperCopy(keyPath));
  if (key == keys_.end()) return nullptr;
  auto value = key->second.values.find(ToUpperCopy(valueName));
  if (value == key->second.values.end()) return nullptr;
  return &value->second.value;
}

bool RegistryFile::SetString(WideStringView keyPath, WideStringView valueName,
                             WideStringView text) {
  if (HasLineBreak(keyPath) || HasLineBreak(valueName) || keyPath.empty()) return false;
  WideString upperKey = ToUpperCopy(keyPath);
  if (!IsKnownRoot(upperKey)) return false;

  WideString line = valueName.empty() ? WideString(u"@") : Quote(valueName);
  line += u'=';
  if (HasLineBreak(text)) {
    // A plain string cannot span lines; the typed byte form can.
    std::vector<std::uint8_t> bytes;
    AppendUtf16Le(bytes, text);
    AppendUtf16Le(bytes, WideStringView(u"\0", 1));
    line += u"hex(1):";
    static constexpr char16_t kDigits[] = u"0123456789abcdef";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      if (i) line += u',';
      line += kDigits[bytes[i] >> 4];
      line += kDigits[bytes[i] & 15];
    }
  } else {
    line += Quote(text);
  }

  std::vector<WideString> before = lines_;
  auto key = keys_.find(upperKey);
  if (key != keys_.end()) {
    auto value = key->second.values.find(ToUpperCopy(valueName));
    if (value != key->second.values.end()) {
      auto first = lines_.begin() + static_cast<std::ptrdiff_t>(value->second.firstLine);
      auto last = lines_.begin() + static_cast<std::ptrdiff_t>(value->second.lastLine) + 1;
      lines_.insert(lines_.erase(first, last), line);
    } else {
      lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(key->second.sectionEnd) + 1,
                    line);
    }
  } else {
    if (lines_.empty()) {
      lines_.emplace_back(kHeaderVersion5);
    }
    if (!TrimWhitespace(lines_.back()).empty()) lines_.emplace_back();
    lines_.push_back(u"[" + WideString(keyPath) + u"]");
    lines_.push_back(line);
  }
  if (!ParseLines()) {
    lines_ = std::move(before);
    ParseLines();
    return false;
  }
  return true;
}

std::string RegistryFile::Serialize() const {
  WideString text;
  for (const WideString& line : lines_) {
    text += line;
    text += crlf_ ? u"\r\n" : u"\n";
  }
  std::string out;
  if (utf16_) {
    out = "\xFF\xFE";
    for (char16_t c : text) {
      out += static_cast<char>(c & 0xFF);
      out += static_cast<char>(c >> 8);
    }
  } else {
    if (utf8Bom_) out = "\xEF\xBB\xBF";
    out += WideToUtf8(text);
  }
  return out;
}

bool RegistryFile::Save(const std::string& path) const {
  std::size_t slash = path.rfind('/');
  if (slash != std::string::npos && slash > 0) {
    std::string folder = path.substr(0, slash);
    for (std::size_t p = 1; p <= folder.size(); ++p) {
      if (p == folder.size() || folder[p] == '/') {
        std::string part = folder.substr(0, p);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
      }
    }
  }
  std::string temporary = path + ".tmp." + std::to_string(getpid());
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) return false;
  std::string bytes = Serialize();
  std::size_t done = 0;
  bool ok = fchmod(fd, 0644) == 0;
  while (ok && done < bytes.size()) {
    ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = false;
      break;
    }
    done += static_cast<std::size_t>(n);
  }
  ok = fsync(fd) == 0 && ok;
  ok = close(fd) == 0 && ok;
  if (ok && rename(temporary.c_str(), path.c_str()) == 0) return true;
  unlink(temporary.c_str());
  return false;
}
