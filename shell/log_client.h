// The fire-and-forget log client.
//
// Every log line of the system leaves the process as one LogRecord datagram of
// 1948 bytes, written to the local endpoint "MLLog.1" (a Unix datagram socket,
// see platform/log_endpoint.h). Nobody may be listening: then the line is gone
// and the caller is not told. Nothing blocks on the listener, nothing is queued
// and nothing is reported about a failure of logging.
//
// LogMessage and SendLogRecord use only the stack (about 10 KB of it) and no
// heap, and the open is heap-free as well, so the crash path of a failing
// process may log. No lock is taken: threads that race through a reopen can
// lose a line or a socket, which is accepted.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/system_time.h"
#include "shell/wide_string.h"

// Severities of the system.
inline constexpr std::uint32_t kLogInformation = 2;
inline constexpr std::uint32_t kLogWarning = 3;
inline constexpr std::uint32_t kLogError = 4;

// The datagram, little-endian, texts UTF-16 with a terminating zero inside
// their fixed fields and zero after it. The computer name may fill its 32
// units completely; a reader bounds every field by its size.
struct LogRecord {
  std::uint32_t severity;
  std::uint32_t code;
  std::uint32_t reserved;
  platform::SystemTime time;  // UTC at the moment of filling
  char16_t computerName[32];
  char16_t source[64];
  char16_t category[64];
  char16_t message[256];
  char16_t detail[32];
  char16_t originFolder[256];
  char16_t originFile[256];
};
inline constexpr std::uint32_t kLogRecordSize = 1948;
static_assert(sizeof(LogRecord) == kLogRecordSize, "the datagram is 1948 bytes");

// The endpoint's name under the machine's run folder.
inline constexpr char16_t kLogEndpointName[] = u"MLLog.1";

// A connected socket descriptor. 0 means "not open" and -1 "the last open
// failed"; both make the next log call try to open.
using LogHandle = int;
inline constexpr LogHandle kInvalidLogHandle = -1;

// The process-wide log handle: opened by the first log call, kept open, never
// closed at exit. A plain variable without a lock.
extern LogHandle LogMailslotHandle;

// The front used everywhere: source "Marlowen", category "Crash Reporting",
// code 0, no origin path. Returns what LogMessage returns; callers ignore it.
int LogCrashReporting(std::uint32_t severity, const WideString& message);

// Cuts each text at 1023 characters and sends it. 1 if the record went out,
// 0 if not. Null texts count as empty.
int LogMessage(std::uint32_t severity, std::uint32_t code, const char16_t* source,
               const char16_t* category, const char16_t* message, const char16_t* originPath);

// Fills one record and writes it: at most two opens and two writes, no waiting.
// 1 if the record went out, 0 if not.
int SendLogRecord(std::uint32_t severity, std::uint32_t code, std::uint32_t reserved,
                  const char16_t* source, const char16_t* category, const char16_t* message,
                  const char16_t* detail, const char16_t* originPath);

// Connects to the endpoint of that name; kInvalidLogHandle when no listener is
// bound or the name can't be used. Never blocks.
LogHandle OpenLogMailslot(const char16_t* name);

// Sends size bytes of record as one datagram without waiting. The number of
// bytes written, 0 on any failure (no listener any more, full queue, bad handle).
std::uint32_t WriteLogRecord(LogHandle handle, const void* record, std::uint32_t size);

// Copies source whole if it is shorter than capacity, else its first
// capacity - 1 characters followed by a zero. Returns destination.
char16_t* CopyTruncated(char16_t* destination, const char16_t* source, std::uint32_t capacity);

// The folder part and the last component of a path, '/' being the separator.
// A '/' at the very end is no separator, and the one at position 0 is never a
// cut for the folder part: "/a/b" gives "/a" and "b", "/a/" gives "" and "a".
// The two-character drive form "X:" is kept as it stands. destination must
// hold the whole path. Both return destination.
char16_t* PathDirectoryPart(char16_t* destination, const char16_t* path);
char16_t* PathLastComponent(char16_t* destination, const char16_t* path);
