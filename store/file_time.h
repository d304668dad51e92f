// FILETIME, the 64-bit time of the report store: 100-nanosecond ticks since
// 1601-01-01 00:00 UTC, kept as two 32-bit halves, low half first. Records
// on disk carry it in that layout.
//
// Every function here is plain arithmetic without locks or allocation, so
// the crash path may use them inside a signal handler.
#pragma once

#include <cstdint>
#include <ctime>

#include "platform/system_time.h"

namespace Marlowen {

struct FILETIME {
  std::uint32_t dwLowDateTime = 0;
  std::uint32_t dwHighDateTime = 0;
};

inline constexpr std::uint64_t kFileTimeTicksPerSecond = 10'000'000;
// Seconds from 1601-01-01 to 1970-01-01.
inline constexpr std::int64_t kFileTimeUnixEpochSeconds = 11'644'473'600;

std::uint64_t FileTimeToTicks(const FILETIME& time);
FILETIME FileTimeFromTicks(std::uint64_t ticks);

// Times before 1601 become 0; the sub-tick part of a timespec is dropped.
FILETIME FileTimeFromUnixTime(std::time_t seconds);
FILETIME FileTimeFromTimespec(const struct timespec& time);
// Whole seconds, rounded down.
std::time_t FileTimeToUnixTime(const FILETIME& time);
struct timespec FileTimeToTimespec(const FILETIME& time);

// The current UTC time.
FILETIME CurrentFileTime();

// Calendar time in UTC, years 1601 to 30827 as the format allows. False, with
// the destination untouched, for a field out of range (the day of the week
// is not looked at) or a time beyond the signed 64-bit range.
bool SystemTimeToFileTime(const platform::SystemTime& systemTime, FILETIME& fileTime);
bool FileTimeToSystemTime(const FILETIME& fileTime, platform::SystemTime& systemTime);

}  // namespace Marlowen
