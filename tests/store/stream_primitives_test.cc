// The stream primitives where the whole-record tests of the settings and the
// crash record don't reach them, and FILETIME conversions at known moments.
#include "store/stream_primitives.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "store/file.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using Bytes = std::vector<std::uint8_t>;

class StreamPrimitivesTest : public testing::Test {
 protected:
  // A file holding bytes, open for reading.
  File& Reading(const Bytes& bytes) {
    testing_support::WriteFileBytes(path_, bytes);
    file_ = std::make_unique<File>(PathBuffer::FromUtf8(path_));
    EXPECT_TRUE(file_->Open(FileAccess_Read, FileShare_Read, FileAccessHint_Sequential));
    return *file_;
  }

  testing_support::TestRoot root_;
  std::string path_ = root_.Path("stream.bin");
  std::unique_ptr<File> file_;
};

TEST_F(StreamPrimitivesTest, ShortTextsPathsAndImpossibleLengths) {
  // Two bytes of a word change those two only.
  std::uint32_t word = 0xAABBCCDD;
  ReadU32(Reading({0x11, 0x22}), word);
  EXPECT_EQ(word, 0xAABB2211u);
  WideString text;
  // A text cut short is taken over its whole length, the missing bytes zero;
  // a path stops at its first zero byte.
  ReadString(Reading({0x04, 0x00, 0x00, 0x00, 'a', 'b'}), text);
  EXPECT_EQ(text, WideString(u"ab\0\0", 4));
  PathBuffer path(u"/stale");
  ReadPath(Reading({0x04, 0x00, 0x00, 0x00, 'a', 0x00, 'b', 'c'}), path);
  EXPECT_EQ(path.View(), u"a");
  // A length no 32-bit process could allocate fails like that allocation.
  EXPECT_THROW(ReadString(Reading({0xFF, 0xFF, 0xFF, 0xFF, 'a'}), text), std::bad_alloc);

  Bytes tooLong = {0x04, 0x01, 0x00, 0x00};  // 260 bytes follow
  tooLong.resize(tooLong.size() + 260, 'p');
  File& file = Reading(tooLong);
  EXPECT_DEATH(ReadPath(file, path), "longer than 259");
}

TEST(FileTimeTest, ConvertsBetweenEpochsAndCalendarTime) {
  EXPECT_EQ(FileTimeToTicks(FileTimeFromUnixTime(0)), 116444736000000000ull);
  EXPECT_EQ(FileTimeToTicks(FileTimeFromUnixTime(-11644473601LL)), 0u);  // before 1601
  const FILETIME time = FileTimeFromTimespec({1709251198, 250000099});
  const struct timespec back = FileTimeToTimespec(time);
  EXPECT_EQ(back.tv_sec, 1709251198);
  EXPECT_EQ(back.tv_nsec, 250000000);

  platform::SystemTime calendar{};
  ASSERT_TRUE(FileTimeToSystemTime(time, calendar));
  const platform::SystemTime expected{2024, 2, 4, 29, 23, 59, 58, 250};  // a Thursday
  EXPECT_EQ(std::memcmp(&calendar, &expected, sizeof(calendar)), 0);
  FILETIME again;
  ASSERT_TRUE(SystemTimeToFileTime(calendar, again));
  EXPECT_EQ(FileTimeToTicks(again), FileTimeToTicks(time));
  ASSERT_TRUE(SystemTimeToFileTime({1601, 1, 1, 1, 0, 0, 0, 0}, again));
  EXPECT_EQ(FileTimeToTicks(again), 0u);
  EXPECT_FALSE(SystemTimeToFileTime({2023, 2, 0, 29, 0, 0, 0, 0}, again));
  EXPECT_FALSE(FileTimeToSystemTime(FileTimeFromTicks(0x8000000000000000ull), calendar));
  EXPECT_GT(FileTimeToUnixTime(CurrentFileTime()), 1700000000);
}

}  // namespace
}  // namespace Marlowen
