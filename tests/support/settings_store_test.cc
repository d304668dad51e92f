// The XML settings store on real files in a test root: the element format as
// an independent parser sees it, value conversions, opening files that are
// missing, wrong or still being written, array versions and the lookup
// shortcuts.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "shell/format_string.h"
#include "support/settings_store.h"
#include "test_root.h"
#include "xml_outline.h"

namespace {

using namespace Marlowen;
using settings_test::XmlOutline;
using testing_support::ReadFileText;
using testing_support::TestRoot;
using testing_support::WriteFileText;

constexpr char16_t kGroup[] = u"Main";

class SettingsStoreTest : public ::testing::Test {
 protected:
  std::string File(const std::string& name) const { return root_.Path(name); }
  WideString WideFile(const std::string& name) const { return Utf8ToWide(File(name)); }

  // Writes a file by hand: the root element around `body`.
  void WriteSettings(const std::string& name, const std::string& body) const {
    WriteFileText(File(name), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Marlowen_Settings>" + body +
                                  "</Marlowen_Settings>\n");
  }

  TestRoot root_;
};

TEST_F(SettingsStoreTest, EveryValueTypeRoundTripsInTheElementFormat) {
  auto store = CreateStore(WideFile("all.xml"));
  ASSERT_TRUE(store);
  std::int32_t count = -42;
  double ratio = 3.25;
  WideString title = u"Gr\u00fc\u00dfe & <more>";
  std::uint8_t key[] = {0x00, 0xA1, 0xFF};
  std::uint8_t blob[] = {0x00, 0x01, 0x02, 0xFF};
  std::int32_t width = 640;
  std::int32_t x = 5;
  std::int32_t ints[] = {7, -8};
  double doubles[] = {1.5};
  char16_t buffers[2][16] = {u"one", u"two"};
  WideString pointers[] = {u"alpha", u"beta"};
  std::uint8_t pairs[2][2] = {{0x12, 0x34}, {0xAB, 0xCD}};
  std::uint8_t triple[3] = {'a', 'b', 'c'};
  StringListT recent = {{u"first", 1}, {u"second", 20}};

  EXPECT_EQ(IntValue(count, 0, u"count", kGroup, *store, true), 0);
  DoubleValue(ratio, 0, u"ratio", kGroup, *store, true);
  StringValue(title, 100, u"", u"title", kGroup, *store, true);
  Bin16Value(key, sizeof key, u"key", kGroup, *store, true);
  Bin64Value(blob, sizeof blob, u"blob", kGroup, *store, true);
  IntValue(width, 0, u"window.width", kGroup, *store, true);
  IntValue(x, 0, u"window->pos->x", kGroup, *store, true);
  EXPECT_EQ(IntArrayValues(ints, 2, 3, u"ints", kGroup, *store, true), 1);
  DoubleArrayValues(doubles, 1, 1, u"doubles", kGroup, *store, true);
  StringArrayValues(&buffers[0][0], 2, 16, 1, u"buffers", kGroup, *store, true);
  StringPointerArrayValues(pointers, 2, 1, u"pointers", kGroup, *store, true);
  Bin16ArrayValues(&pairs[0][0], 2, 2, 1, u"pairs", kGroup, *store, true);
  Bin64ArrayValues(triple, 1, 3, 1, u"triple", kGroup, *store, true);
  EXPECT_EQ(StringListValue(recent, u"recent", kGroup, *store, true), 1);
  ASSERT_TRUE(SaveStore(*store));
  CloseStore(store);
  EXPECT_EQ(store, nullptr);

  EXPECT_EQ(XmlOutline(File("all.xml")),
            "Marlowen_Settings\n"
            "  Group name=Main\n"
            "    Int name=count: -42\n"
            "    Double name=ratio: 3.250000\n"
            "    String name=title: Gr\u00fc\u00dfe & <more>\n"
            "    Bin16 name=key: 00A1FF\n"
            "    Bin64 name=blob: AAEC/w==\n"
            "    Struct name=window\n"
            "      Int name=width: 640\n"
            "      Struct name=pos\n"
            "        Int name=x: 5\n"
            "    Array Version=3 name=ints\n"
            "      Int i=0: 7\n"
            "      Int i=1: -8\n"
            "    Array Version=1 name=doubles\n"
            "      Double i=0: 1.500000\n"
            "    Array Version=1 name=buffers\n"
            "      String i=0: one\n"
            "      String i=1: two\n"
            "    Array Version=1 name=pointers\n"
            "      String i=0: alpha\n"
            "      String i=1: beta\n"
            "    Array Version=1 name=pairs\n"
            "      Bin16 i=0: 1234\n"
            "      Bin16 i=1: ABCD\n"
            "    Array Version=1 name=triple\n"
            "      Bin64 i=0: YWJj\n"
            "    StringList name=recent\n"
            "      String lParam=1: first\n"
            "      String lParam=20: second\n");

  store = OpenStore(WideFile("all.xml"));
  ASSERT_TRUE(store);
  std::int32_t readCount = 0, readWidth = 0, readX = 0;
  double readRatio = 0;
  WideString readTitle;
  std::uint8_t readKey[3] = {}, readBlob[4] = {};
  std::int32_t readInts[2] = {};
  double readDoubles[1] = {};
  char16_t readBuffers[2][16] = {};
  WideString readPointers[2];
  std::uint8_t readPairs[2][2] = {};
  std::uint8_t readTriple[3] = {};
  StringListT readRecent;
  EXPECT_EQ(IntValue(readCount, 1, u"count", kGroup, *store, false), 1);
  EXPECT_EQ(DoubleValue(readRatio, 1, u"ratio", kGroup, *store, false), 1);
  EXPECT_EQ(StringValue(readTitle, 100, u"x", u"title", kGroup, *store, false), 1);
  EXPECT_EQ(Bin16Value(readKey, sizeof readKey, u"key", kGroup, *store, false), 1);
  EXPECT_EQ(Bin64Value(readBlob, sizeof readBlob, u"blob", kGroup, *store, false), 1);
  EXPECT_EQ(IntValue(readWidth, 1, u"window.width", kGroup, *store, false), 1);
  EXPECT_EQ(IntValue(readX, 1, u"window.pos.x", kGroup, *store, false), 1);
  IntArrayValues(readInts, 2, 3, u"ints", kGroup, *store, false);
  DoubleArrayValues(readDoubles, 1, 1, u"doubles", kGroup, *store, false);
  StringArrayValues(&readBuffers[0][0], 2, 16, 1, u"buffers", kGroup, *store, false);
  StringPointerArrayValues(readPointers, 2, 1, u"pointers", kGroup, *store, false);
  Bin16ArrayValues(&readPairs[0][0], 2, 2, 1, u"pairs", kGroup, *store, false);
  Bin64ArrayValues(readTriple, 1, 3, 1, u"triple", kGroup, *store, false);
  StringListValue(readRecent, u"recent", kGroup, *store, false);

  EXPECT_EQ(readCount, count);
  EXPECT_EQ(readRatio, ratio);
  EXPECT_EQ(WideToUtf8(readTitle), WideToUtf8(title));
  EXPECT_EQ(std::vector<std::uint8_t>(readKey, readKey + 3), std::vector<std::uint8_t>(key, key + 3));
  EXPECT_EQ(std::vector<std::uint8_t>(readBlob, readBlob + 4), std::vector<std::uint8_t>(blob, blob + 4));
  EXPECT_EQ(readWidth, width);
  EXPECT_EQ(readX, x);
  EXPECT_EQ(readInts[0], 7);
  EXPECT_EQ(readInts[1], -8);
  EXPECT_EQ(readDoubles[0], 1.5);
  EXPECT_EQ(WideString(readBuffers[0]), u"one");
  EXPECT_EQ(WideString(readBuffers[1]), u"two");
  EXPECT_EQ(readPointers[0], u"alpha");
  EXPECT_EQ(readPointers[1], u"beta");
  EXPECT_EQ(readPairs[1][0], 0xAB);
  EXPECT_EQ(readPairs[1][1], 0xCD);
  EXPECT_EQ(std::string(readTriple, readTriple + 3), "abc");
  ASSERT_EQ(readRecent.size(), 2u);
  EXPECT_EQ(readRecent[1].text, u"second");
  EXPECT_EQ(readRecent[1].lParam, 20);
}

TEST_F(SettingsStoreTest, AbsentValuesGiveDefaultsAndLeaveBytesAlone) {
  auto store = OpenStore(WideFile("none.xml"));
  ASSERT_TRUE(store);
  std::int32_t number = 5;
  double real = 5;
  WideString text = u"old";
  std::uint8_t bytes[2] = {0xEE, 0xEE};
  std::int32_t ints[2] = {9, 9};
  EXPECT_EQ(IntValue(number, 17, u"n", kGroup, *store, false), 0);
  EXPECT_EQ(DoubleValue(real, 2.5, u"d", kGroup, *store, false), 0);
  EXPECT_EQ(StringValue(text, 4, u"default", u"s", kGroup, *store, false), 0);
  EXPECT_EQ(Bin16Value(bytes, 2, u"b", kGroup, *store, false), 0);
  EXPECT_EQ(Bin64Value(bytes, 2, u"b", kGroup, *store, false), 0);
  IntArrayValues(ints, 2, 1, u"a", kGroup, *store, false);
  EXPECT_EQ(number, 17);
  EXPECT_EQ(real, 2.5);
  EXPECT_EQ(text, u"def");  // cut to the buffer, as a default is
  EXPECT_EQ(bytes[0], 0xEE);
  EXPECT_EQ(ints[0], 9);
  EXPECT_EQ(HasArray(u"a", kGroup, *store), 0);
}

TEST_F(SettingsStoreTest, ReadTextIsCutToTheLimitAndTheBuffer) {
  auto store = CreateStore(WideFile("long.xml"));
  WideString longText(5000, u'x');
  StringValue(longText, 0, u"", u"long", kGroup, *store, true);
  WideString read;
  EXPECT_EQ(StringValue(read, 10000, u"", u"long", kGroup, *store, false), 1);
  EXPECT_EQ(read.size(), kMaxSettingsText);
  EXPECT_EQ(StringValue(read, 10, u"", u"long", kGroup, *store, false), 1);
  EXPECT_EQ(read, WideString(9, u'x'));
}

TEST_F(SettingsStoreTest, HandWrittenValuesConvertAsTheFormatSays) {
  WriteSettings("hand.xml",
                "<Group name=\"G\">"
                "<Int name=\"spaced\">  -12abc</Int><Int name=\"huge\">99999999999</Int>"
                "<Int name=\"word\">none</Int><Double name=\"d\"> 2.5e1x</Double>"
                "<Bin64 name=\"full\">QUJD</Bin64><Bin64 name=\"three\">QUI</Bin64><Bin64 name=\"two\">QQ</Bin64>"
                "<String name=\"empty\"></String>"
                "<StringList name=\"l\"><String lParam=\"3\">x</String><String>no number</String>"
                "<String lParam=\"4\"></String><Int lParam=\"5\">1</Int><String lParam=\"-2\">y</String></StringList>"
                "</Group>");
  auto store = OpenStore(WideFile("hand.xml"));
  std::int32_t number = 0;
  IntValue(number, 0, u"spaced", u"G", *store, false);
  EXPECT_EQ(number, -12);
  IntValue(number, 0, u"huge", u"G", *store, false);
  EXPECT_EQ(number, 2147483647);
  EXPECT_EQ(IntValue(number, 7, u"word", u"G", *store, false), 1);
  EXPECT_EQ(number, 0);
  double real = 0;
  DoubleValue(real, 0, u"d", u"G", *store, false);
  EXPECT_EQ(real, 25.0);

  std::uint8_t bytes[4];
  std::size_t got = 0;
  Bin64Value(bytes, sizeof bytes, u"full", u"G", *store, false, &got);
  EXPECT_EQ(std::string(bytes, bytes + got), "ABC");
  Bin64Value(bytes, sizeof bytes, u"three", u"G", *store, false, &got);
  EXPECT_EQ(std::vector<std::uint8_t>(bytes, bytes + got), (std::vector<std::uint8_t>{'A', 'B', 0}));
  Bin64Value(bytes, sizeof bytes, u"two", u"G", *store, false, &got);
  EXPECT_EQ(std::vector<std::uint8_t>(bytes, bytes + got), (std::vector<std::uint8_t>{'A', 0, 0}));

  WideString text = u"old";
  EXPECT_EQ(StringValue(text, 10, u"d", u"empty", u"G", *store, false), 1);
  EXPECT_EQ(text, u"");

  StringListT list;
  StringListValue(list, u"l", u"G", *store, false);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].text, u"x");
  EXPECT_EQ(list[0].lParam, 3);
  EXPECT_EQ(list[1].text, u"y");
  EXPECT_EQ(list[1].lParam, -2);
}

struct Bin16Case {
  const char* text;
  std::vector<std::uint8_t> bytes;  // what the three-byte buffer holds afterwards
};

void PrintTo(const Bin16Case& c, std::ostream* out) { *out << '"' << c.text << '"'; }

class Bin16TextTest : public SettingsStoreTest, public ::testing::WithParamInterface<Bin16Case> {};

TEST_P(Bin16TextTest, DigitsAreReadTwoAtATime) {
  WriteSettings("bin16.xml", std::string("<Group name=\"G\"><Bin16 name=\"b\">") + GetParam().text +
                                 "</Bin16></Group>");
  auto store = OpenStore(WideFile("bin16.xml"));
  std::uint8_t bytes[3] = {0xEE, 0xEE, 0xEE};
  EXPECT_EQ(Bin16Value(bytes, sizeof bytes, u"b", u"G", *store, false), 1);
  EXPECT_EQ(std::vector<std::uint8_t>(bytes, bytes + 3), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Bin16TextTest,
    ::testing::Values(Bin16Case{"0A1BFF", {0x0A, 0x1B, 0xFF}},
                      // Lower case counts from '7': 'a' is 42, so "1a" is 16 + 42.
                      Bin16Case{"1a", {0x3A, 0xEE, 0xEE}},
                      Bin16Case{"ab", {0xCB, 0xEE, 0xEE}},
                      Bin16Case{"12 34", {0x12, 0xEE, 0xEE}},  // stops at the blank
                      Bin16Case{"123", {0x12, 0xEE, 0xEE}},    // a lone digit is no byte
                      Bin16Case{"11223344", {0x11, 0x22, 0x33}},  // no more than the buffer
                      Bin16Case{"", {0xEE, 0xEE, 0xEE}}));

class AddressSpellingTest : public SettingsStoreTest, public ::testing::WithParamInterface<const char16_t*> {};

TEST_P(AddressSpellingTest, FullStopHyphenAndArrowSeparateAlike) {
  auto store = CreateStore(WideFile("address.xml"));
  std::int32_t value = 31;
  IntValue(value, 0, u"outer.inner.leaf", kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  store = OpenStore(WideFile("address.xml"));
  std::int32_t read = 0;
  EXPECT_EQ(IntValue(read, -1, GetParam(), kGroup, *store, false), 1);
  EXPECT_EQ(read, 31);
  EXPECT_EQ(HasStruct(u"outer", kGroup, *store), 1);
  EXPECT_EQ(HasStruct(u"inner", kGroup, *store), 0);  // not a direct child of the group
}

INSTANTIATE_TEST_SUITE_P(Spellings, AddressSpellingTest,
                         ::testing::Values(u"outer.inner.leaf", u"outer->inner->leaf", u"outer-inner>leaf",
                                           u"..outer..inner.leaf.", u"outer.->inner-leaf"));

TEST_F(SettingsStoreTest, MissingFileOpensEmptyWithoutRetrying) {
  const auto start = std::chrono::steady_clock::now();
  auto store = OpenStore(WideFile("missing.xml"));
  const auto elapsed = std::chrono::steady_clock::now() - start;
  ASSERT_TRUE(store);
  EXPECT_EQ(HasGroup(kGroup, *store), 0);
  // Retrying would take 11 × 200 ms; one second leaves room for a slow machine.
  EXPECT_LT(elapsed, std::chrono::seconds(1));
  EXPECT_FALSE(testing_support::PathExists(File("missing.xml")));
}

TEST_F(SettingsStoreTest, WrongRootIsParsedTwelveTimesThenOpensEmptyAndSaveReplacesIt) {
  WriteFileText(File("wrong.xml"), "<Other_Settings><Group name=\"Main\"><Int name=\"n\">4</Int></Group></Other_Settings>");
  const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ASSERT_GE(watch, 0);
  // Closes are watched too: they part the opens, which the kernel would
  // otherwise fold into one event.
  ASSERT_GE(inotify_add_watch(watch, File("wrong.xml").c_str(), IN_OPEN | IN_CLOSE_NOWRITE), 0);

  auto store = OpenStore(WideFile("wrong.xml"));

  int opens = 0;
  alignas(inotify_event) char events[4096];
  ssize_t n;
  while ((n = read(watch, events, sizeof events)) > 0) {
    for (char* at = events; at < events + n;) {
      auto* event = reinterpret_cast<inotify_event*>(at);
      if (event->mask & IN_OPEN) ++opens;
      at += sizeof(inotify_event) + event->len;
    }
  }
  close(watch);
  EXPECT_EQ(opens, 12);  // the first parse and eleven tries
  ASSERT_TRUE(store);
  std::int32_t value = 0;
  EXPECT_EQ(IntValue(value, -1, u"n", kGroup, *store, false), 0);

  value = 8;
  IntValue(value, 0, u"n", kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("wrong.xml")), "Marlowen_Settings\n  Group name=Main\n    Int name=n: 8\n");
}

TEST_F(SettingsStoreTest, FileThatBecomesWholeWhileRetryingIsRead) {
  const std::string whole =
      "<Marlowen_Settings><Group name=\"Main\"><Int name=\"n\">77</Int></Group></Marlowen_Settings>";
  WriteFileText(File("busy.xml"), whole.substr(0, 40));  // cut off mid-way, as a writer leaves it
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    WriteFileText(File("busy.xml.new"), whole);
    std::rename(File("busy.xml.new").c_str(), File("busy.xml").c_str());
  });
  auto store = OpenStore(WideFile("busy.xml"));
  writer.join();
  ASSERT_TRUE(store);
  std::int32_t value = 0;
  EXPECT_EQ(IntValue(value, -1, u"n", kGroup, *store, false), 1);
  EXPECT_EQ(value, 77);
}

TEST_F(SettingsStoreTest, ArrayOfAnotherVersionIsEmptiedAndTakesTheNewVersion) {
  auto store = CreateStore(WideFile("array.xml"));
  std::int32_t written[3] = {1, 2, 3};
  IntArrayValues(written, 3, 1, u"a", kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  store = OpenStore(WideFile("array.xml"));

  std::int32_t same[3] = {};
  IntArrayValues(same, 3, 1, u"a", kGroup, *store, false);
  EXPECT_EQ(same[2], 3);

  std::int32_t other[3] = {9, 9, 9};
  EXPECT_EQ(IntArrayValues(other, 3, 2, u"a", kGroup, *store, false), 1);
  EXPECT_EQ(other[0], 9);
  EXPECT_EQ(other[2], 9);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("array.xml")),
            "Marlowen_Settings\n  Group name=Main\n    Array Version=2 name=a\n");
}

TEST_F(SettingsStoreTest, ArrayReadFillsOnlyTheElementsPresent) {
  WriteSettings("sparse.xml",
                "<Group name=\"G\"><Array name=\"a\" Version=\"4\">"
                "<Int i=\"0\">10</Int><Int i=\"2\">12</Int><Double i=\"1\">5</Double></Array></Group>");
  auto store = OpenStore(WideFile("sparse.xml"));
  std::int32_t values[4] = {-1, -1, -1, -1};
  IntArrayValues(values, 4, 4, u"a", u"G", *store, false);
  EXPECT_EQ(values[0], 10);
  EXPECT_EQ(values[1], -1);
  EXPECT_EQ(values[2], 12);
  EXPECT_EQ(values[3], -1);
}

TEST_F(SettingsStoreTest, ReadInAnAbsentGroupLeavesAnEmptyGroupWhenSaved) {
  WriteSettings("group.xml", "<Group name=\"Main\"><Int name=\"n\">1</Int></Group>");
  auto store = OpenStore(WideFile("group.xml"));
  EXPECT_EQ(HasStruct(u"s", u"Nowhere", *store), 0);
  EXPECT_EQ(HasGroup(u"Nowhere", *store), 0);  // the queries add nothing
  std::int32_t value = 0;
  EXPECT_EQ(IntValue(value, 3, u"missing", u"Nowhere", *store, false), 0);
  EXPECT_EQ(HasGroup(u"Nowhere", *store), 1);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("group.xml")),
            "Marlowen_Settings\n  Group name=Main\n    Int name=n: 1\n  Group name=Nowhere\n");
}

TEST_F(SettingsStoreTest, CreateStoreIgnoresTheFileAndSaveAsMovesIt) {
  WriteSettings("old.xml", "<Group name=\"Main\"><Int name=\"n\">1</Int></Group>");
  auto store = CreateStore(WideFile("old.xml"));
  EXPECT_EQ(HasGroup(kGroup, *store), 0);
  std::int32_t value = 2;
  IntValue(value, 0, u"m", kGroup, *store, true);
  ASSERT_TRUE(SaveStoreAs(*store, WideFile("sub/dir/new.xml")));
  EXPECT_EQ(store->path, WideFile("sub/dir/new.xml"));
  EXPECT_EQ(XmlOutline(File("sub/dir/new.xml")), "Marlowen_Settings\n  Group name=Main\n    Int name=m: 2\n");
  EXPECT_NE(ReadFileText(File("old.xml")).find("\"n\""), std::string::npos);  // untouched
}

TEST_F(SettingsStoreTest, SaveKeepsTheModeOfTheFileItReplaces) {
  WriteSettings("mode.xml", "<Group name=\"Main\"/>");
  ASSERT_EQ(chmod(File("mode.xml").c_str(), 0640), 0);
  auto store = OpenStore(WideFile("mode.xml"));
  std::int32_t value = 1;
  IntValue(value, 0, u"n", kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  struct stat info;
  ASSERT_EQ(stat(File("mode.xml").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  EXPECT_EQ(testing_support::ListFolder(root_.path()), (std::vector<std::string>{"mode.xml", "tmp"}));
}

TEST_F(SettingsStoreTest, SaveThatCannotWriteFailsAndLeavesNothingBehind) {
  WriteFileText(File("plain"), "a file, not a folder");
  auto store = CreateStore(WideFile("plain/s.xml"));
  EXPECT_FALSE(SaveStore(*store));

  // A folder in the target's place can't be replaced by a file.
  testing_support::MakeFolders(File("taken/s.xml"));
  WriteFileText(File("taken/s.xml/keep"), "precious");
  EXPECT_FALSE(SaveStoreAs(*store, WideFile("taken/s.xml")));
  EXPECT_EQ(ReadFileText(File("taken/s.xml/keep")), "precious");
  EXPECT_EQ(testing_support::ListFolder(File("taken")), std::vector<std::string>{"s.xml"});
}

// Writes `count` Int values v0, v1, ... in the group and saves them.
void WriteNumbers(const WideString& path, int count) {
  auto store = CreateStore(path);
  for (std::int32_t i = 0; i < count; ++i) {
    IntValue(i, 0, FormatString(u"v%d", i), kGroup, *store, true);
  }
  ASSERT_TRUE(SaveStore(*store));
}

TEST_F(SettingsStoreTest, ReadingInFileOrderTakesSiblingStepsNotWalks) {
  constexpr int kCount = 1000;
  WriteNumbers(WideFile("order.xml"), kCount);

  auto store = OpenStore(WideFile("order.xml"));
  for (int i = 0; i < kCount; ++i) {
    std::int32_t value = -1;
    ASSERT_EQ(IntValue(value, -1, FormatString(u"v%d", i), kGroup, *store, false), 1);
    ASSERT_EQ(value, i);
  }
  EXPECT_EQ(store->fullWalks, 1);
  EXPECT_EQ(store->siblingHits, kCount - 1);
  EXPECT_EQ(store->prefixHits, 0);

  // Against the order of the file each value needs a walk of its own.
  auto reversed = OpenStore(WideFile("order.xml"));
  for (int i = kCount - 1; i >= 0; --i) {
    std::int32_t value = -1;
    ASSERT_EQ(IntValue(value, -1, FormatString(u"v%d", i), kGroup, *reversed, false), 1);
    ASSERT_EQ(value, i);
  }
  EXPECT_EQ(reversed->fullWalks, kCount);
  EXPECT_EQ(reversed->siblingHits, 0);
}

TEST_F(SettingsStoreTest, ValueOfAnEnclosingStructStartsFromThatStruct) {
  auto store = CreateStore(WideFile("nested.xml"));
  std::int32_t value = 1;
  IntValue(value, 0, u"window.pos.x", kGroup, *store, true);
  IntValue(value, 0, u"window.pos.y", kGroup, *store, true);
  IntValue(value, 0, u"window.width", kGroup, *store, true);
  IntValue(value, 0, u"window.height", kGroup, *store, true);
  EXPECT_EQ(store->fullWalks, 1);
  EXPECT_EQ(store->siblingHits, 2);
  EXPECT_EQ(store->prefixHits, 1);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("nested.xml")),
            "Marlowen_Settings\n  Group name=Main\n    Struct name=window\n      Struct name=pos\n"
            "        Int name=x: 1\n        Int name=y: 1\n      Int name=width: 1\n      Int name=height: 1\n");
}

}  // namespace
