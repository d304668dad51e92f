// The log client against a real datagram socket bound in a test root: the
// exact bytes of a record, the cuts at the field sizes, and the reconnect and
// give-up rules when the listener is missing, restarts, or stops reading.
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "shell/log_client.h"
#include "shell/wide_string.h"
#include "log_capture.h"
#include "log_test_fixture.h"
#include "test_root.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using testing_support::LogCapture;

constexpr std::size_t kTimeOffset = 12;
constexpr std::size_t kComputerNameOffset = 28;
constexpr std::size_t kSourceOffset = 92;

void PutU32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void PutText(Bytes& bytes, std::size_t offset, const std::u16string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    bytes[offset + 2 * i] = static_cast<std::uint8_t>(text[i] & 0xFF);
    bytes[offset + 2 * i + 1] = static_cast<std::uint8_t>(text[i] >> 8);
  }
}

// The record as it must arrive; time and computer name stay zero here and are
// checked on their own.
Bytes ExpectedRecord(std::uint32_t severity, std::uint32_t code, const std::u16string& source,
                     const std::u16string& category, const std::u16string& message,
                     const std::u16string& originFolder = u"", const std::u16string& originFile = u"") {
  Bytes bytes(1948, 0);
  PutU32(bytes, 0, severity);
  PutU32(bytes, 4, code);
  PutText(bytes, kSourceOffset, source);
  PutText(bytes, 220, category);
  PutText(bytes, 348, message);
  PutText(bytes, 924, originFolder);
  PutText(bytes, 1436, originFile);
  return bytes;
}

// The next record with its time and computer name zeroed.
Bytes NextMasked(LogCapture& listener) {
  std::optional<Bytes> bytes = listener.Receive();
  if (!bytes) return {};
  std::fill(bytes->begin() + kTimeOffset, bytes->begin() + kSourceOffset, 0);
  return *bytes;
}

Bytes Plain(std::uint32_t severity, const std::u16string& message) {
  return ExpectedRecord(severity, 0, u"Marlowen", u"Crash Reporting", message);
}

using LogClientTest = LogTest;

TEST_F(LogClientTest, RecordArrivesByteForByteWithUtcTimeAndHostName) {
  LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());
  const std::u16string message = u"Upload failed: caf\u00E9 \u20AC \U0001D11E";
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(LogCrashReporting(kLogWarning, message), 1);
  const std::time_t after = std::time(nullptr);

  const std::optional<Bytes> got = listener.Receive();
  ASSERT_TRUE(got.has_value());
  Bytes masked = *got;
  std::fill(masked.begin() + kTimeOffset, masked.begin() + kSourceOffset, 0);
  EXPECT_EQ(masked, Plain(3, message));

  auto field = [&](int i) { return (*got)[kTimeOffset + 2 * i] | ((*got)[kTimeOffset + 2 * i + 1] << 8); };
  std::tm tm{};
  tm.tm_year = field(0) - 1900, tm.tm_mon = field(1) - 1, tm.tm_mday = field(3);
  tm.tm_hour = field(4), tm.tm_min = field(5), tm.tm_sec = field(6);
  const std::time_t stamped = timegm(&tm);
  EXPECT_GE(stamped, before);
  EXPECT_LE(stamped, after);
  EXPECT_EQ(field(2), tm.tm_wday);  // timegm filled in the day of the week
  EXPECT_LT(field(7), 1000);

  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof(host) - 1), 0);
  Bytes nameField(64, 0);
  PutText(nameField, 0, Utf8ToWide(host).substr(0, 32));
  EXPECT_EQ(Bytes(got->begin() + kComputerNameOffset, got->begin() + kSourceOffset), nameField);

  // Code, source, category and the origin split in two; the detail field is
  // filled through SendLogRecord only, cut at 31.
  EXPECT_EQ(LogMessage(kLogError, 0x01020304, u"Tool", u"Upload", u"", u"/opt/app/bin/ml-tool"), 1);
  EXPECT_EQ(NextMasked(listener), ExpectedRecord(4, 0x01020304, u"Tool", u"Upload", u"", u"/opt/app/bin", u"ml-tool"));
  EXPECT_EQ(SendLogRecord(kLogInformation, 0, 9, u"s", u"c", u"m", u"0123456789012345678901234567890123456789", nullptr),
            1);
  Bytes expected = ExpectedRecord(2, 0, u"s", u"c", u"m");
  PutU32(expected, 8, 9);
  PutText(expected, 860, u"0123456789012345678901234567890");
  EXPECT_EQ(NextMasked(listener), expected);
}

TEST_F(LogClientTest, LongTextsAreCutAtTheirFieldSizes) {
  LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());
  std::u16string message;
  for (int i = 0; i < 300; ++i) message.push_back(static_cast<char16_t>(u'a' + i % 26));
  const std::u16string source(64, u'S');
  const std::u16string category(2000, u'C');
  const std::u16string origin = u"/" + std::u16string(400, u'd') + u"/file";
  EXPECT_EQ(LogMessage(kLogWarning, 0, source.c_str(), category.c_str(), message.c_str(), origin.c_str()), 1);
  // The origin is cut at 255 before it is split, so no separator is left in
  // it: the folder part is empty and the rest counts as the file.
  EXPECT_EQ(NextMasked(listener), ExpectedRecord(3, 0, source.substr(0, 63), category.substr(0, 63),
                                                 message.substr(0, 255), u"", std::u16string(254, u'd')));
}

TEST_F(LogClientTest, WithoutListenerACallReturnsZeroAndLeavesNoTrace) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(LogCrashReporting(kLogError, u"nobody hears this"), 0);
  EXPECT_EQ(LogCrashReporting(kLogError, u"nor this"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(LogMailslotHandle, kInvalidLogHandle);
  EXPECT_FALSE(testing_support::PathExists(root_.Path("run")));
}

TEST_F(LogClientTest, RestartedListenerGetsTheNextLineAndLinesWithoutOneAreLost) {
  auto listener = std::make_unique<LogCapture>(root_);
  ASSERT_TRUE(listener->bound());
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"one"), 1);
  EXPECT_EQ(NextMasked(*listener), Plain(2, u"one"));
  EXPECT_GT(LogMailslotHandle, 0);

  listener.reset();
  listener = std::make_unique<LogCapture>(root_);
  ASSERT_TRUE(listener->bound());
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"two"), 1);
  EXPECT_EQ(NextMasked(*listener), Plain(2, u"two"));

  listener.reset();
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"lost"), 0);
  EXPECT_EQ(LogMailslotHandle, 0);
  listener = std::make_unique<LogCapture>(root_);
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"three"), 1);
  EXPECT_EQ(NextMasked(*listener), Plain(2, u"three"));
}

TEST_F(LogClientTest, ListenerThatStopsReadingMakesCallsFailInsteadOfWait) {
  LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());
  int sent = 0;
  while (sent < 10000 && LogCrashReporting(kLogInformation, u"flood") == 1) ++sent;
  EXPECT_LT(sent, 10000);
  EXPECT_GT(sent, 0);
  EXPECT_EQ(LogMailslotHandle, 0);
  // Once it reads again, lines go out again.
  EXPECT_EQ(listener.Drain().size(), static_cast<std::size_t>(sent));
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"again"), 1);
}

struct PathCase {
  const char16_t* path;
  const char16_t* folder;
  const char16_t* file;
};

class PathPartsTest : public ::testing::TestWithParam<PathCase> {};

TEST_P(PathPartsTest, SplitsAtTheLastInnerSlash) {
  char16_t folder[64];
  char16_t file[64];
  std::fill(std::begin(folder), std::end(folder), u'#');
  std::fill(std::begin(file), std::end(file), u'#');
  EXPECT_EQ(std::u16string(PathDirectoryPart(folder, GetParam().path)), GetParam().folder);
  EXPECT_EQ(std::u16string(PathLastComponent(file, GetParam().path)), GetParam().file);
}

// The slash at the end is no separator, the one at position 0 never cuts
// the folder, only one slash comes off the end of the file part, and the
// drive form stays whole in both.
INSTANTIATE_TEST_SUITE_P(Cases, PathPartsTest,
                         ::testing::Values(PathCase{u"/a/b/c", u"/a/b", u"c"}, PathCase{u"/a/", u"", u"a"},
                                           PathCase{u"a/b/", u"a", u"b"}, PathCase{u"/", u"", u"/"},
                                           PathCase{u"//", u"", u""}, PathCase{u"a//b", u"a/", u"b"},
                                           PathCase{u"a/b//", u"a/b", u""}, PathCase{u"b.exe", u"", u"b.exe"},
                                           PathCase{u"", u"", u""}, PathCase{u"C:", u"C:", u"C:"}));

}  // namespace
