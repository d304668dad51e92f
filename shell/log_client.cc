#include "shell/log_client.h"

#include <unistd.h>

#include <cstring>
#include <iterator>

#include "platform/log_endpoint.h"

// Everything from LogMessage down may run in a crashing process: fixed
// buffers on the stack only, no heap, no lock.

LogHandle LogMailslotHandle = 0;

namespace {

constexpr std::uint32_t kLogMessageBuffer = 1024;
constexpr std::uint32_t kOriginBuffer = 256;
constexpr char16_t kEmpty[] = u"";

const char16_t* OrEmpty(const char16_t* text) { return text ? text : kEmpty; }

// wcsncpy over UTF-16: at most count units, the rest of those count zeroed.
void CopyUnits(char16_t* destination, const char16_t* source, std::size_t count) {
  std::size_t i = 0;
  for (; i < count && source[i] != 0; ++i) destination[i] = source[i];
  for (; i < count; ++i) destination[i] = 0;
}

// UTF-16 to UTF-8 into a fixed buffer; false if it doesn't fit. An unpaired
// surrogate becomes U+FFFD.
bool EncodeUtf8(const char16_t* text, char* out, std::size_t capacity) {
  std::size_t length = 0;
  for (std::size_t i = 0; text[i] != 0; ++i) {
    char32_t cp = text[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    char bytes[4];
    std::size_t count;
    if (cp < 0x80) {
      bytes[0] = static_cast<char>(cp);
      count = 1;
    } else if (cp < 0x800) {
      bytes[0] = static_cast<char>(0xC0 | (cp >> 6));
      bytes[1] = static_cast<char>(0x80 | (cp & 0x3F));
      count = 2;
    } else if (cp < 0x10000) {
      bytes[0] = static_cast<char>(0xE0 | (cp >> 12));
      bytes[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      bytes[2] = static_cast<char>(0x80 | (cp & 0x3F));
      count = 3;
    } else {
      bytes[0] = static_cast<char>(0xF0 | (cp >> 18));
      bytes[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      bytes[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      bytes[3] = static_cast<char>(0x80 | (cp & 0x3F));
      count = 4;
    }
    if (length + count + 1 > capacity) return false;
    std::memcpy(out + length, bytes, count);
    length += count;
  }
  out[length] = '\0';
  return true;
}

// The host name as UTF-16, at most capacity units, the rest of the field left
// as it is. Host names are ASCII in practice; other bytes are decoded as
// UTF-8 and anything malformed becomes U+FFFD.
void StoreComputerName(char16_t* field, std::size_t capacity) {
  // The name is asked for with room for 256 characters, more than the field
  // holds, but only what fits is copied: the record is never written past the
  // field. A name of 32 units or more fills it without a terminating zero.
  char name[256 + 1];
  if (gethostname(name, sizeof(name) - 1) != 0) return;
  name[sizeof(name) - 1] = '\0';

  std::size_t out = 0;
  const auto* bytes = reinterpret_cast<const unsigned char*>(name);
  for (std::size_t i = 0; bytes[i] != 0 && out < capacity;) {
    char32_t cp;
    std::size_t extra;
    const unsigned char lead = bytes[i];
    if (lead < 0x80) { cp = lead; extra = 0; }
    else if ((lead & 0xE0) == 0xC0) { cp = lead & 0x1F; extra = 1; }
    else if ((lead & 0xF0) == 0xE0) { cp = lead & 0x0F; extra = 2; }
    else if ((lead & 0xF8) == 0xF0) { cp = lead & 0x07; extra = 3; }
    else { cp = 0xFFFD; extra = 0; }
    ++i;
    for (std::size_t k = 0; k < extra; ++k, ++i) {
      if ((bytes[i] & 0xC0) != 0x80) { cp = 0xFFFD; break; }
      cp = (cp << 6) | (bytes[i] & 0x3F);
    }
    if (cp >= 0x10000 && cp <= 0x10FFFF) {
      if (out + 2 > capacity) break;
      cp -= 0x10000;
      field[out++] = static_cast<char16_t>(0xD800 + (cp >> 10));
      field[out++] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      field[out++] = static_cast<char16_t>(cp > 0x10FFFF ? 0xFFFD : cp);
    }
  }
}

}  // namespace

int LogCrashReporting(std::uint32_t severity, const WideString& message) {
  return LogMessage(severity, 0, u"Marlowen", u"Crash Reporting", message.c_str(), u"");
}

int LogMessage(std::uint32_t severity, std::uint32_t code, const char16_t* source,
               const char16_t* category, const char16_t* message, const char16_t* originPath) {
  char16_t sourceBuffer[kLogMessageBuffer];
  char16_t categoryBuffer[kLogMessageBuffer];
  char16_t messageBuffer[kLogMessageBuffer];
  char16_t originBuffer[kLogMessageBuffer];
  CopyTruncated(sourceBuffer, OrEmpty(source), kLogMessageBuffer);
  CopyTruncated(categoryBuffer, OrEmpty(category), kLogMessageBuffer);
  CopyTruncated(messageBuffer, OrEmpty(message), kLogMessageBuffer);
  CopyTruncated(originBuffer, OrEmpty(originPath), kLogMessageBuffer);
  return SendLogRecord(severity, code, 0, sourceBuffer, categoryBuffer, messageBuffer, kEmpty,
                       originBuffer);
}

int SendLogRecord(std::uint32_t severity, std::uint32_t code, std::uint32_t reserved,
                  const char16_t* source, const char16_t* category, const char16_t* message,
                  const char16_t* detail, const char16_t* originPath) {
  if (LogMailslotHandle == 0 || LogMailslotHandle == kInvalidLogHandle) {
    LogMailslotHandle = OpenLogMailslot(kLogEndpointName);
    if (LogMailslotHandle == kInvalidLogHandle) return 0;
  }

  LogRecord record;
  std::memset(&record, 0, sizeof(record));
  record.severity = severity;
  record.code = code;
  record.reserved = reserved;

  StoreComputerName(record.computerName, std::size(record.computerName));
  record.time = platform::GetSystemTimeUtc();

  // Each field keeps its last unit for the zero of the memset above.
  CopyUnits(record.source, OrEmpty(source), std::size(record.source) - 1);
  CopyUnits(record.category, OrEmpty(category), std::size(record.category) - 1);
  CopyUnits(record.message, OrEmpty(message), std::size(record.message) - 1);
  CopyUnits(record.detail, OrEmpty(detail), std::size(record.detail) - 1);

  char16_t origin[kOriginBuffer];
  CopyUnits(origin, OrEmpty(originPath), kOriginBuffer - 1);
  origin[kOriginBuffer - 1] = 0;
  PathDirectoryPart(record.originFolder, origin);
  PathLastComponent(record.originFile, origin);

  if (WriteLogRecord(LogMailslotHandle, &record, kLogRecordSize) != 0) return 1;

  // The listener may have restarted since the socket was connected: one fresh
  // connect and one more write, whatever the connect gave.
  close(LogMailslotHandle);
  LogMailslotHandle = OpenLogMailslot(kLogEndpointName);
  if (WriteLogRecord(LogMailslotHandle, &record, kLogRecordSize) != 0) return 1;

  // The socket of the reopen is dropped without a close; the next call starts
  // over with a fresh connect.
  LogMailslotHandle = 0;
  return 0;
}

LogHandle OpenLogMailslot(const char16_t* name) {
  char utf8Name[256];
  if (!name || !EncodeUtf8(name, utf8Name, sizeof(utf8Name))) return kInvalidLogHandle;
  const int fd = platform::ConnectLogEndpoint(utf8Name);
  return fd < 0 ? kInvalidLogHandle : fd;
}

std::uint32_t WriteLogRecord(LogHandle handle, const void* record, std::uint32_t size) {
  if (handle <= 0) return 0;
  const long written = platform::SendLogDatagram(handle, record, size);
  return written < 0 ? 0 : static_cast<std::uint32_t>(written);
}

char16_t* CopyTruncated(char16_t* destination, const char16_t* source, std::uint32_t capacity) {
  if (capacity == 0) return destination;
  const std::size_t length = WideLength(source);
  if (length < capacity) {
    std::memcpy(destination, source, (length + 1) * sizeof(char16_t));
  } else {
    std::memcpy(destination, source, (capacity - 1) * sizeof(char16_t));
    destination[capacity - 1] = 0;
  }
  return destination;
}

namespace {

// Position of the last separator from length - 2 down to 1, or 0 if none:
// a separator at the very end is not looked at, and neither is position 0.
std::size_t LastSeparator(const char16_t* path, std::size_t length) {
  for (std::size_t i = length >= 2 ? length - 2 : 0; i >= 1; --i) {
    if (path[i] == u'/') return i;
  }
  return 0;
}

}  // namespace

char16_t* PathDirectoryPart(char16_t* destination, const char16_t* path) {
  const std::size_t length = WideLength(path);
  if (length == 2 && path[1] == u':') {
    CopyUnits(destination, path, 3);
    return destination;
  }
  const std::size_t cut = LastSeparator(path, length);
  std::memmove(destination, path, cut * sizeof(char16_t));
  destination[cut] = 0;
  return destination;
}

char16_t* PathLastComponent(char16_t* destination, const char16_t* path) {
  const std::size_t length = WideLength(path);
  if (length < 2) {
    std::memmove(destination, path, (length + 1) * sizeof(char16_t));
    return destination;
  }
  std::size_t start = LastSeparator(path, length);
  if (start != 0 || path[0] == u'/') ++start;
  std::size_t count = length - start;
  std::memmove(destination, path + start, (count + 1) * sizeof(char16_t));
  if (count > 0 && destination[count - 1] == u'/') destination[count - 1] = 0;
  return destination;
}
