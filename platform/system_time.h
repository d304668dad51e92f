// The clock in the layout of the other platform's SYSTEMTIME, as the log record
// and other formats of the system carry it.
#pragma once

#include <cstdint>

namespace platform {

struct SystemTime {
  std::uint16_t year;
  std::uint16_t month;      // 1..12
  std::uint16_t dayOfWeek;  // 0 Sunday .. 6 Saturday
  std::uint16_t day;        // 1..31
  std::uint16_t hour;
  std::uint16_t minute;
  std::uint16_t second;
  std::uint16_t milliseconds;
};
static_assert(sizeof(SystemTime) == 16);

// Now, in UTC. Async-signal-safe: no lock and no time-zone file, unlike gmtime.
SystemTime GetSystemTimeUtc();

// The UTC calendar time of a moment given as seconds since 1970-01-01 00:00:00
// UTC (negative before it) and milliseconds within that second.
SystemTime SystemTimeFromUnix(std::int64_t seconds, std::uint32_t milliseconds);

}  // namespace platform
