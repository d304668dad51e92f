// The log client against a real datagram socket bound in a test root: the
// exact bytes of a record, the cuts at the field sizes, and the open, reopen
// and give-up rules when the listener is missing, restarts, or stops reading.
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
#include "test_root.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kTimeOffset = 12;
constexpr std::size_t kComputerNameOffset = 28;
constexpr std::size_t kSourceOffset = 92;
constexpr std::size_t kCategoryOffset = 220;
constexpr std::size_t kMessageOffset = 348;
constexpr std::size_t kDetailOffset = 860;
constexpr std::size_t kOriginFolderOffset = 924;
constexpr std::size_t kOriginFileOffset = 1436;

void PutU32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void PutText(Bytes& bytes, std::size_t offset, const std::u16string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    bytes[offset + 2 * i] = static_cast<std::uint8_t>(text[i] & 0xFF);
    bytes[offset + 2 * i + 1] = static_cast<std::uint8_t>(text[i] >> 8);
  }
}

std::uint16_t GetU16(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

// The record as it must arrive, apart from the time and computer name,
// which stay zero here and are checked on their own.
Bytes ExpectedRecord(std::uint32_t severity, std::uint32_t code, const std::u16string& source,
                     const std::u16string& category, const std::u16string& message,
                     const std::u16string& originFolder = u"",
                     const std::u16string& originFile = u"") {
  Bytes bytes(1948, 0);
  PutU32(bytes, 0, severity);
  PutU32(bytes, 4, code);
  PutU32(bytes, 8, 0);
  PutText(bytes, kSourceOffset, source);
  PutText(bytes, kCategoryOffset, category);
  PutText(bytes, kMessageOffset, message);
  PutText(bytes, kOriginFolderOffset, originFolder);
  PutText(bytes, kOriginFileOffset, originFile);
  return bytes;
}

Bytes Masked(Bytes bytes) {
  for (std::size_t i = kTimeOffset; i < kSourceOffset; ++i) bytes[i] = 0;
  return bytes;
}

std::time_t RecordTime(const Bytes& bytes, int* dayOfWeek) {
  std::tm tm{};
  tm.tm_year = GetU16(bytes, kTimeOffset) - 1900;
  tm.tm_mon = GetU16(bytes, kTimeOffset + 2) - 1;
  *dayOfWeek = GetU16(bytes, kTimeOffset + 4);
  tm.tm_mday = GetU16(bytes, kTimeOffset + 6);
  tm.tm_hour = GetU16(bytes, kTimeOffset + 8);
  tm.tm_min = GetU16(bytes, kTimeOffset + 10);
  tm.tm_sec = GetU16(bytes, kTimeOffset + 12);
  return timegm(&tm);
}

class LogClientTest : public ::testing::Test {
 protected:
  void SetUp() override { ForgetHandle(); }
  void TearDown() override { ForgetHandle(); }

  static void ForgetHandle() {
    if (LogMailslotHandle > 0) close(LogMailslotHandle);
    LogMailslotHandle = 0;
  }

  testing_support::TestRoot root_;
};

TEST_F(LogClientTest, RecordArrivesByteForByteWithUtcTimeAndHostName) {
  testing_support::LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());

  const std::u16string message = u"Upload failed: caf\u00E9 \u20AC \U0001D11E";
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(LogCrashReporting(kLogWarning, message), 1);
  const std::time_t after = std::time(nullptr);

  const std::optional<Bytes> got = listener.Receive();
  ASSERT_TRUE(got.has_value());
  ASSERT_EQ(got->size(), 1948u);
  EXPECT_EQ(Masked(*got),
            ExpectedRecord(3, 0, u"Marlowen", u"Crash Reporting", message));

  int dayOfWeek = -1;
  const std::time_t stamped = RecordTime(*got, &dayOfWeek);
  EXPECT_GE(stamped, before);
  EXPECT_LE(stamped, after);
  std::tm utc{};
  gmtime_r(&stamped, &utc);
  EXPECT_EQ(dayOfWeek, utc.tm_wday);
  EXPECT_LT(GetU16(*got, kTimeOffset + 14), 1000);

  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof(host) - 1), 0);
  std::u16string name = Utf8ToWide(host).substr(0, 32);
  Bytes nameField(64, 0);
  PutText(nameField, 0, name);
  EXPECT_EQ(Bytes(got->begin() + kComputerNameOffset, got->begin() + kSourceOffset), nameField);
}

TEST_F(LogClientTest, LogMessageFillsCodeSourceCategoryAndOrigin) {
  testing_support::LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());

  EXPECT_EQ(LogMessage(kLogError, 0x01020304, u"Tool", u"Upload", u"", u"/opt/app/bin/ml-tool"), 1);
  const std::optional<Bytes> got = listener.Receive();
  ASSERT_TRUE(got.has_value());
  EXPECT_EQ(Masked(*got),
            ExpectedRecord(4, 0x01020304, u"Tool", u"Upload", u"", u"/opt/app/bin", u"ml-tool"));

  // The detail field is filled through SendLogRecord only, cut at 31.
  EXPECT_EQ(SendLogRecord(kLogInformation, 0, 9, u"s", u"c", u"m",
                          u"0123456789012345678901234567890123456789", nullptr),
            1);
  const std::optional<Bytes> second = listener.Receive();
  ASSERT_TRUE(second.has_value());
  Bytes expected = ExpectedRecord(2, 0, u"s", u"c", u"m");
  PutU32(expected, 8, 9);
  PutText(expected, kDetailOffset, u"0123456789012345678901234567890");
  EXPECT_EQ(Masked(*second), expected);
}

TEST_F(LogClientTest, LongTextsAreCutAtTheirFieldSizes) {
  testing_support::LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());

  std::u16string message;
  for (int i = 0; i < 300; ++i) message.push_back(static_cast<char16_t>(u'a' + i % 26));
  const std::u16string source(64, u'S');
  const std::u16string category(2000, u'C');
  const std::u16string origin = u"/" + std::u16string(400, u'd') + u"/file";

  EXPECT_EQ(LogMessage(kLogWarning, 0, source.c_str(), category.c_str(), message.c_str(),
                       origin.c_str()),
            1);
  const std::optional<Bytes> got = listener.Receive();
  ASSERT_TRUE(got.has_value());
  // The origin is cut at 255 before it is split, so no separator is left
  // in it: the folder part is empty and the rest counts as the file.
  EXPECT_EQ(Masked(*got), ExpectedRecord(3, 0, source.substr(0, 63), category.substr(0, 63),
                                         message.substr(0, 255), u"",
                                         std::u16string(254, u'd')));
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

TEST_F(LogClientTest, RestartedListenerGetsTheSecondLineThroughAReconnect) {
  auto first = std::make_unique<testing_support::LogCapture>(root_);
  ASSERT_TRUE(first->bound());
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"one"), 1);
  ASSERT_TRUE(first->Receive().has_value());
  const LogHandle connected = LogMailslotHandle;
  EXPECT_GT(connected, 0);

  first.reset();
  testing_support::LogCapture second(root_);
  ASSERT_TRUE(second.bound());
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"two"), 1);
  const std::optional<Bytes> got = second.Receive();
  ASSERT_TRUE(got.has_value());
  EXPECT_EQ(Masked(*got), ExpectedRecord(2, 0, u"Marlowen", u"Crash Reporting", u"two"));
  EXPECT_GT(LogMailslotHandle, 0);
}

TEST_F(LogClientTest, LinesWithoutListenerAreLostAndALaterListenerGetsTheNext) {
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"before any listener"), 0);
  auto first = std::make_unique<testing_support::LogCapture>(root_);
  ASSERT_TRUE(first->bound());
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"one"), 1);
  first.reset();

  EXPECT_EQ(LogCrashReporting(kLogInformation, u"two"), 0);
  EXPECT_EQ(LogMailslotHandle, 0);

  testing_support::LogCapture later(root_);
  ASSERT_TRUE(later.bound());
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"three"), 1);
  const std::optional<Bytes> got = later.Receive();
  ASSERT_TRUE(got.has_value());
  EXPECT_EQ(Masked(*got), ExpectedRecord(2, 0, u"Marlowen", u"Crash Reporting", u"three"));
}

TEST_F(LogClientTest, ListenerThatStopsReadingMakesCallsFailInsteadOfWait) {
  testing_support::LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());
  // A blocking write would hang here once the listener's queue is full.
  int sent = 0;
  while (sent < 10000 && LogCrashReporting(kLogInformation, u"flood") == 1) ++sent;
  EXPECT_LT(sent, 10000);
  EXPECT_GT(sent, 0);
  EXPECT_EQ(LogMailslotHandle, 0);
  ASSERT_TRUE(listener.HasPending());
  // Once it reads again, lines go out again.
  while (listener.HasPending()) listener.Receive();
  EXPECT_EQ(LogCrashReporting(kLogInformation, u"again"), 1);
}

struct CopyCase {
  const char16_t* source;
  std::uint32_t capacity;
  const char16_t* expected;
};

class CopyTruncatedTest : public ::testing::TestWithParam<CopyCase> {};

TEST_P(CopyTruncatedTest, CopiesWholeOrCapacityMinusOneAndNeverWritesPastIt) {
  const CopyCase& c = GetParam();
  char16_t buffer[16];
  std::fill(std::begin(buffer), std::end(buffer), u'#');
  EXPECT_EQ(CopyTruncated(buffer, c.source, c.capacity), buffer);
  EXPECT_EQ(std::u16string(buffer), c.expected);
  for (std::size_t i = c.capacity; i < std::size(buffer); ++i) EXPECT_EQ(buffer[i], u'#') << i;
}

INSTANTIATE_TEST_SUITE_P(Cases, CopyTruncatedTest,
                         ::testing::Values(CopyCase{u"abc", 4, u"abc"},
                                           CopyCase{u"abcd", 4, u"abc"},
                                           CopyCase{u"abcdefgh", 4, u"abc"},
                                           CopyCase{u"", 1, u""},
                                           CopyCase{u"ab", 1, u""}));

struct PathCase {
  const char16_t* path;
  const char16_t* folder;
  const char16_t* file;
};

class PathPartsTest : public ::testing::TestWithParam<PathCase> {};

TEST_P(PathPartsTest, SplitsAtTheLastInnerSlash) {
  const PathCase& c = GetParam();
  char16_t folder[64];
  char16_t file[64];
  std::fill(std::begin(folder), std::end(folder), u'#');
  std::fill(std::begin(file), std::end(file), u'#');
  EXPECT_EQ(std::u16string(PathDirectoryPart(folder, c.path)), c.folder);
  EXPECT_EQ(std::u16string(PathLastComponent(file, c.path)), c.file);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PathPartsTest,
    ::testing::Values(PathCase{u"/a/b.exe", u"/a", u"b.exe"},
                      PathCase{u"/a/b/c", u"/a/b", u"c"},
                      // The slash at the end is no separator, and the one at
                      // position 0 never cuts the folder.
                      PathCase{u"/a/", u"", u"a"},
                      PathCase{u"a/b/", u"a", u"b"},
                      PathCase{u"/a", u"", u"a"},
                      PathCase{u"/", u"", u"/"},
                      PathCase{u"//", u"", u""},
                      PathCase{u"a//b", u"a/", u"b"},
                      // Only one slash is taken off the end of the file part.
                      PathCase{u"a/b//", u"a/b", u""},
                      PathCase{u"b.exe", u"", u"b.exe"},
                      PathCase{u"x", u"", u"x"},
                      PathCase{u"", u"", u""},
                      // The drive form stays whole in both.
                      PathCase{u"C:", u"C:", u"C:"}));

}  // namespace
