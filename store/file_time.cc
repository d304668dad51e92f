#include "store/file_time.h"

#include <time.h>

namespace Marlowen {
namespace {

constexpr std::uint64_t kTicksPerMillisecond = 10'000;
constexpr std::uint64_t kSecondsPerDay = 86'400;
constexpr std::uint64_t kLargestTicks = 0x7FFFFFFFFFFFFFFFull;

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days from 1601-01-01, which opens a 400-year cycle of the calendar, so the
// leap rules count from zero.
std::int64_t DaysSince1601(int year, int month, int day) {
  const std::int64_t y = year - 1601;
  std::int64_t days = y * 365 + y / 4 - y / 100 + y / 400;
  for (int m = 1; m < month; ++m) days += DaysInMonth(year, m);
  return days + day - 1;
}

}  // namespace

std::uint64_t FileTimeToTicks(const FILETIME& time) {
  return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

FILETIME FileTimeFromTicks(std::uint64_t ticks) {
  FILETIME time;
  time.dwLowDateTime = static_cast<std::uint32_t>(ticks);
  time.dwHighDateTime = static_cast<std::uint32_t>(ticks >> 32);
  return time;
}

FILETIME FileTimeFromUnixTime(std::time_t seconds) {
  struct timespec time = {seconds, 0};
  return FileTimeFromTimespec(time);
}

FILETIME FileTimeFromTimespec(const struct timespec& time) {
  const std::int64_t seconds = static_cast<std::int64_t>(time.tv_sec) + kFileTimeUnixEpochSeconds;
  if (seconds < 0) return FILETIME{};
  return FileTimeFromTicks(static_cast<std::uint64_t>(seconds) * kFileTimeTicksPerSecond +
                           static_cast<std::uint64_t>(time.tv_nsec) / 100);
}

std::time_t FileTimeToUnixTime(const FILETIME& time) {
  const auto seconds = static_cast<std::int64_t>(FileTimeToTicks(time) / kFileTimeTicksPerSecond);
  return static_cast<std::time_t>(seconds - kFileTimeUnixEpochSeconds);
}

struct timespec FileTimeToTimespec(const FILETIME& time) {
  const std::uint64_t ticks = FileTimeToTicks(time);
  struct timespec result;
  result.tv_sec = FileTimeToUnixTime(time);
  result.tv_nsec = static_cast<long>((ticks % kFileTimeTicksPerSecond) * 100);
  return result;
}

FILETIME CurrentFileTime() {
  struct timespec now = {0, 0};
  clock_gettime(CLOCK_REALTIME, &now);
  return FileTimeFromTimespec(now);
}

bool SystemTimeToFileTime(const platform::SystemTime& systemTime, FILETIME& fileTime) {
  const int year = systemTime.year;
  const int month = systemTime.month;
  if (year < 1601 || year > 30827 || month < 1 || month > 12) return false;
  if (systemTime.day < 1 || systemTime.day > DaysInMonth(year, month)) return false;
  if (systemTime.hour > 23 || systemTime.minute > 59 || systemTime.second > 59 || systemTime.milliseconds > 999) {
    return false;
  }
  const auto days = static_cast<std::uint64_t>(DaysSince1601(year, month, systemTime.day));
  const std::uint64_t seconds =
      days * kSecondsPerDay + systemTime.hour * 3600u + systemTime.minute * 60u + systemTime.second;
  fileTime = FileTimeFromTicks(seconds * kFileTimeTicksPerSecond + systemTime.milliseconds * kTicksPerMillisecond);
  return true;
}

bool FileTimeToSystemTime(const FILETIME& fileTime, platform::SystemTime& systemTime) {
  const std::uint64_t ticks = FileTimeToTicks(fileTime);
  if (ticks > kLargestTicks) return false;
  const auto seconds = static_cast<std::int64_t>(ticks / kFileTimeTicksPerSecond) - kFileTimeUnixEpochSeconds;
  const auto milliseconds = static_cast<std::uint32_t>(ticks / kTicksPerMillisecond % 1000);
  systemTime = platform::SystemTimeFromUnix(seconds, milliseconds);
  return true;
}

}  // namespace Marlowen
