// The hand-made UTC calendar against the C library's over a wide spread of
// moments, leap days and years before 1970 among them.
#include <time.h>

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "platform/system_time.h"

namespace {

void ExpectSameAsGmtime(std::int64_t seconds) {
  const time_t t = static_cast<time_t>(seconds);
  std::tm tm{};
  ASSERT_NE(gmtime_r(&t, &tm), nullptr);
  const platform::SystemTime s = platform::SystemTimeFromUnix(seconds, 789);
  EXPECT_EQ(s.year, tm.tm_year + 1900) << seconds;
  EXPECT_EQ(s.month, tm.tm_mon + 1) << seconds;
  EXPECT_EQ(s.day, tm.tm_mday) << seconds;
  EXPECT_EQ(s.dayOfWeek, tm.tm_wday) << seconds;
  EXPECT_EQ(s.hour, tm.tm_hour) << seconds;
  EXPECT_EQ(s.minute, tm.tm_min) << seconds;
  EXPECT_EQ(s.second, tm.tm_sec) << seconds;
  EXPECT_EQ(s.milliseconds, 789) << seconds;
}

TEST(SystemTime, AgreesWithGmtimeAroundEdgesAndAcrossCenturies) {
  const std::vector<std::int64_t> edges = {
      0, -1, 1, 86399, 86400, -86400, -86401,
      951782399, 951782400, 951868800,  // 2000-02-28/29, 2000-03-01
      4107456000,                       // 2100-02-28 (no leap day)
      4107542400,                       // 2100-03-01
      -2208988800,                      // 1900-01-01
      253402300799,                     // 9999-12-31 23:59:59
  };
  for (std::int64_t s : edges) ExpectSameAsGmtime(s);

  // A deterministic walk with an odd step touches every weekday, month end
  // and time of day between 1901 and 2200.
  for (std::int64_t s = -2145916800; s < 7258118400; s += 7777777) ExpectSameAsGmtime(s);
}

TEST(SystemTime, NowIsUtc) {
  const time_t before = time(nullptr);
  const platform::SystemTime now = platform::GetSystemTimeUtc();
  const time_t after = time(nullptr);
  std::tm tm{};
  tm.tm_year = now.year - 1900;
  tm.tm_mon = now.month - 1;
  tm.tm_mday = now.day;
  tm.tm_hour = now.hour;
  tm.tm_min = now.minute;
  tm.tm_sec = now.second;
  const time_t stamped = timegm(&tm);
  EXPECT_GE(stamped, before);
  EXPECT_LE(stamped, after);
  EXPECT_LT(now.milliseconds, 1000);
}

}  // namespace
