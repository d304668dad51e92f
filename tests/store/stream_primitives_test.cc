// The stream primitives against bytes written out by hand, on real files,
// and the FILETIME conversions against known moments.
#include "store/stream_primitives.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/file.h"
#include "store/file_attributes.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using Bytes = std::vector<std::uint8_t>;

class StreamPrimitivesTest : public testing::Test {
 protected:
  PathBuffer Path() const { return PathBuffer::FromUtf8(root_.Path("stream.bin")); }

  // Runs write on a new file and answers the file's bytes.
  template <typename Fn>
  Bytes Written(Fn write) {
    File file(Path());
    EXPECT_TRUE(file.Create(FileAccess_Write, FileShare_None, FileAccessHint_Sequential, true, kFileAttributeNormal));
    write(file);
    file.Close();
    return testing_support::ReadFileBytes(root_.Path("stream.bin"));
  }

  // A file holding bytes, open for reading.
  File& Reading(const Bytes& bytes) {
    testing_support::WriteFileBytes(root_.Path("stream.bin"), bytes);
    file_ = std::make_unique<File>(Path());
    EXPECT_TRUE(file_->Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential));
    return *file_;
  }

  testing_support::TestRoot root_;
  std::unique_ptr<File> file_;
};

TEST_F(StreamPrimitivesTest, WritesLittleEndianWordsBytesAndCountedUtf8) {
  FILETIME time;
  time.dwLowDateTime = 0x11223344;
  time.dwHighDateTime = 0x01D2A3B4;
  const Bytes bytes = Written([&](ByteStream& s) {
    WriteU32(WriteU32(s, 0x04030201), 0xFFFFFFFF);
    WriteBool(WriteBool(s, true), false);
    WriteString(s, u"");
    WriteString(s, u"A\u00E9\u20AC");
    WritePath(s, PathBuffer(u"/x"));
    WriteFileTime(s, time);
  });
  const Bytes expected = {
      0x01, 0x02, 0x03, 0x04, 0xFF, 0xFF, 0xFF, 0xFF,  // words
      0x01, 0x00,                                      // booleans
      0x00, 0x00, 0x00, 0x00,                          // empty text: its length only
      0x06, 0x00, 0x00, 0x00, 'A', 0xC3, 0xA9, 0xE2, 0x82, 0xAC,
      0x02, 0x00, 0x00, 0x00, '/', 'x',
      0x44, 0x33, 0x22, 0x11, 0xB4, 0xA3, 0xD2, 0x01,  // low half first
  };
  EXPECT_EQ(bytes, expected);
}

TEST_F(StreamPrimitivesTest, ReadsBackWhatWasWritten) {
  File& file = Reading({0x01, 0x02, 0x03, 0x04, 0x01, 0x00, 0x03, 0x00, 0x00, 0x00, 'a', 0xC3, 0xA9,
                        0x03, 0x00, 0x00, 0x00, '/', 'y', 'z', 0x88, 0x77, 0x66, 0x55, 0x04, 0x03, 0x02, 0x01});
  std::uint32_t word = 0;
  bool yes = false, no = true;
  WideString text;
  PathBuffer path;
  FILETIME time;
  ReadFileTime(ReadPath(ReadString(ReadBool(ReadBool(ReadU32(file, word), yes), no), text), path), time);
  EXPECT_EQ(word, 0x04030201u);
  EXPECT_TRUE(yes);
  EXPECT_FALSE(no);
  EXPECT_EQ(text, u"a\u00E9");
  EXPECT_EQ(path.View(), u"/yz");
  EXPECT_EQ(time.dwLowDateTime, 0x55667788u);
  EXPECT_EQ(time.dwHighDateTime, 0x01020304u);
}

TEST_F(StreamPrimitivesTest, OddBytesAndShortStreamsReadAsTheRulesSay) {
  // Only a byte of exactly 1 is true.
  bool flag = true;
  ReadBool(Reading({0x02}), flag);
  EXPECT_FALSE(flag);
  // Nothing left: the flag and the word keep their values, the text clears.
  flag = true;
  std::uint32_t word = 0xAABBCCDD;
  WideString text = u"stale";
  ReadString(ReadU32(ReadBool(Reading({}), flag), word), text);
  EXPECT_TRUE(flag);
  EXPECT_EQ(word, 0xAABBCCDDu);
  EXPECT_TRUE(text.empty());
  // Two bytes of a word: those two change, the rest stay.
  ReadU32(Reading({0x11, 0x22}), word);
  EXPECT_EQ(word, 0xAABB2211u);
  // A text cut short is taken over its whole length, the missing bytes zero.
  ReadString(Reading({0x04, 0x00, 0x00, 0x00, 'a', 'b'}), text);
  EXPECT_EQ(text, WideString(u"ab\0\0", 4));
  // A path stops at the first zero byte.
  PathBuffer path(u"/stale");
  ReadPath(Reading({0x04, 0x00, 0x00, 0x00, 'a', 0x00, 'b', 'c'}), path);
  EXPECT_EQ(path.View(), u"a");
  ReadPath(Reading({0x00, 0x00, 0x00, 0x00}), path);
  EXPECT_TRUE(path.IsEmpty());
}

TEST_F(StreamPrimitivesTest, AnOverLongPathOnTheStreamEndsTheProcess) {
  Bytes bytes = {0x04, 0x01, 0x00, 0x00};  // 260 bytes follow
  bytes.resize(bytes.size() + 260, 'p');
  File& file = Reading(bytes);
  PathBuffer path;
  EXPECT_DEATH(ReadPath(file, path), "");
}

TEST(FileTimeTest, ConvertsBetweenTheEpochs) {
  // 1970-01-01 is 11644473600 seconds after 1601-01-01.
  const FILETIME unixEpoch = FileTimeFromUnixTime(0);
  EXPECT_EQ(FileTimeToTicks(unixEpoch), 116444736000000000ull);
  EXPECT_EQ(FileTimeToUnixTime(unixEpoch), 0);

  const struct timespec moment = {1700000000, 123456789};
  const FILETIME time = FileTimeFromTimespec(moment);
  EXPECT_EQ(FileTimeToTicks(time), 116444736000000000ull + 1700000000ull * 10000000ull + 1234567ull);
  const struct timespec back = FileTimeToTimespec(time);
  EXPECT_EQ(back.tv_sec, 1700000000);
  EXPECT_EQ(back.tv_nsec, 123456700);
  // Before 1601 there is nothing to tell.
  EXPECT_EQ(FileTimeToTicks(FileTimeFromUnixTime(-11644473601LL)), 0u);

  const FILETIME now = CurrentFileTime();
  EXPECT_GT(FileTimeToUnixTime(now), 1700000000);
}

TEST(FileTimeTest, ConvertsToAndFromCalendarTime) {
  platform::SystemTime calendar{};
  // 2024-02-29 23:59:58.250 UTC, a Thursday.
  FILETIME time = FileTimeFromTicks((1709251198ull + 11644473600ull) * 10000000ull + 2500000ull);
  ASSERT_TRUE(FileTimeToSystemTime(time, calendar));
  EXPECT_EQ(calendar.year, 2024);
  EXPECT_EQ(calendar.month, 2);
  EXPECT_EQ(calendar.day, 29);
  EXPECT_EQ(calendar.dayOfWeek, 4);
  EXPECT_EQ(calendar.hour, 23);
  EXPECT_EQ(calendar.minute, 59);
  EXPECT_EQ(calendar.second, 58);
  EXPECT_EQ(calendar.milliseconds, 250);

  FILETIME back;
  ASSERT_TRUE(SystemTimeToFileTime(calendar, back));
  EXPECT_EQ(FileTimeToTicks(back), FileTimeToTicks(time));

  // The first moment of the format, and fields out of range.
  platform::SystemTime first{1601, 1, 1, 1, 0, 0, 0, 0};
  ASSERT_TRUE(SystemTimeToFileTime(first, back));
  EXPECT_EQ(FileTimeToTicks(back), 0u);
  FILETIME untouched = FileTimeFromTicks(42);
  platform::SystemTime bad = calendar;
  bad.day = 30;
  EXPECT_FALSE(SystemTimeToFileTime(bad, untouched));
  bad = calendar;
  bad.year = 1600;
  EXPECT_FALSE(SystemTimeToFileTime(bad, untouched));
  EXPECT_EQ(FileTimeToTicks(untouched), 42u);
  EXPECT_FALSE(FileTimeToSystemTime(FileTimeFromTicks(0x8000000000000000ull), calendar));
}

}  // namespace
}  // namespace Marlowen
