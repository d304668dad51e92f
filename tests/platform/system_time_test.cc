// The hand-made UTC calendar against the C library's over a wide spread of
// moments, leap days and years before 1970 among them.
#include <time.h>

#include <array>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "platform/system_time.h"

namespace {

using Fields = std::array<int, 8>;

Fields FieldsOf(const platform::SystemTime& s) {
  return {s.year, s.month, s.day, s.dayOfWeek, s.hour, s.minute, s.second, s.milliseconds};
}

Fields FieldsOf(const std::tm& tm, int milliseconds) {
  return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_wday, tm.tm_hour, tm.tm_min, tm.tm_sec, milliseconds};
}

TEST(SystemTime, AgreesWithGmtimeAroundEdgesAndAcrossCenturies) {
  // 2000-02-28/29 and 03-01, 2100-02-28 (no leap day) and 03-01, 1900-01-01,
  // 9999-12-31 23:59:59; then a walk with an odd step that touches every
  // weekday, month end and time of day between 1901 and 2200.
  std::vector<std::int64_t> moments = {0,          -1,         1,          86399,       86400,       -86400, -86401,
                                       951782399,  951782400,  951868800,  4107456000,  4107542400,
                                       -2208988800, 253402300799};
  for (std::int64_t s = -2145916800; s < 7258118400; s += 7777777) moments.push_back(s);
  for (std::int64_t seconds : moments) {
    const time_t t = static_cast<time_t>(seconds);
    std::tm tm{};
    ASSERT_NE(gmtime_r(&t, &tm), nullptr);
    EXPECT_EQ(FieldsOf(platform::SystemTimeFromUnix(seconds, 789)), FieldsOf(tm, 789)) << seconds;
  }
}

TEST(SystemTime, NowIsUtc) {
  const time_t before = time(nullptr);
  const platform::SystemTime now = platform::GetSystemTimeUtc();
  const time_t after = time(nullptr);
  EXPECT_LT(now.milliseconds, 1000);
  for (time_t t = before; t <= after; ++t) {
    std::tm tm{};
    gmtime_r(&t, &tm);
    if (FieldsOf(tm, now.milliseconds) == FieldsOf(now)) return;
  }
  ADD_FAILURE() << "now lies outside " << before << ".." << after;
}

}  // namespace
