#include "platform/system_time.h"

#include <time.h>

namespace platform {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

// Floor division, so that moments before 1970 fall into the right day.
constexpr std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  std::int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

}  // namespace

SystemTime SystemTimeFromUnix(std::int64_t seconds, std::uint32_t milliseconds) {
  const std::int64_t days = FloorDiv(seconds, kSecondsPerDay);
  const std::int64_t secondOfDay = seconds - days * kSecondsPerDay;

  // Calendar from a day count, counting in 400-year eras that begin on
  // 1 March, so that the leap day falls at the end of each counted year.
  const std::int64_t shifted = days + 719468;  // days from 0000-03-01
  const std::int64_t era = FloorDiv(shifted, 146097);
  const std::int64_t dayOfEra = shifted - era * 146097;                      // 0..146096
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;  // 0..399
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;  // 0 = March
  const std::int64_t day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
  const std::int64_t month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);

  SystemTime time{};
  time.year = static_cast<std::uint16_t>(year);
  time.month = static_cast<std::uint16_t>(month);
  // 1970-01-01 was a Thursday (4).
  time.dayOfWeek = static_cast<std::uint16_t>(days - FloorDiv(days + 4, 7) * 7 + 4);
  time.day = static_cast<std::uint16_t>(day);
  time.hour = static_cast<std::uint16_t>(secondOfDay / 3600);
  time.minute = static_cast<std::uint16_t>(secondOfDay / 60 % 60);
  time.second = static_cast<std::uint16_t>(secondOfDay % 60);
  time.milliseconds = static_cast<std::uint16_t>(milliseconds % 1000);
  return time;
}

SystemTime GetSystemTimeUtc() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return SystemTimeFromUnix(now.tv_sec, static_cast<std::uint32_t>(now.tv_nsec / 1000000));
}

}  // namespace platform
