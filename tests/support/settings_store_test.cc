// The XML settings store on real files: the element format as an independent
// parser sees it, value conversions, files that are wrong or still being
// written, array versions and the lookup shortcuts.
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
using testing_support::WriteFileText;

constexpr char16_t kGroup[] = u"Main";

class SettingsStoreTest : public ::testing::Test {
 protected:
  std::string File(const std::string& name) const { return root_.Path(name); }
  WideString WideFile(const std::string& name) const { return Utf8ToWide(File(name)); }
  std::unique_ptr<SettingsStore> OpenWith(const std::string& name, const std::string& body) const {
    settings_test::WriteSettingsXml(File(name), body);
    return OpenStore(WideFile(name));
  }

  testing_support::TestRoot root_;
};

// One value of every kind the store keeps.
struct AllValues {
  std::int32_t count = 0, width = 0, x = 0, ints[2] = {};
  double ratio = 0, doubles[1] = {};
  WideString title, pointers[2];
  std::uint8_t key[3] = {}, blob[4] = {}, pairs[2][2] = {}, triple[3] = {};
  char16_t buffers[2][16] = {};
  StringListT recent;

  void Exchange(SettingsStore& store, bool save) {
    IntValue(count, 1, u"count", kGroup, store, save);
    DoubleValue(ratio, 1, u"ratio", kGroup, store, save);
    StringValue(title, 100, u"x", u"title", kGroup, store, save);
    Bin16Value(key, sizeof key, u"key", kGroup, store, save);
    Bin64Value(blob, sizeof blob, u"blob", kGroup, store, save);
    IntValue(width, 1, u"window.width", kGroup, store, save);
    IntValue(x, 1, save ? u"window->pos->x" : u"window-pos>x", kGroup, store, save);
    IntArrayValues(ints, 2, 3, u"ints", kGroup, store, save);
    DoubleArrayValues(doubles, 1, 1, u"doubles", kGroup, store, save);
    StringArrayValues(&buffers[0][0], 2, 16, 1, u"buffers", kGroup, store, save);
    StringPointerArrayValues(pointers, 2, 1, u"pointers", kGroup, store, save);
    Bin16ArrayValues(&pairs[0][0], 2, 2, 1, u"pairs", kGroup, store, save);
    Bin64ArrayValues(triple, 1, 3, 1, u"triple", kGroup, store, save);
    StringListValue(recent, u"recent", kGroup, store, save);
  }
};

TEST_F(SettingsStoreTest, EveryValueTypeRoundTripsInTheElementFormat) {
  AllValues written{-42, 640, 5, {7, -8}, 3.25, {1.5}, u"Gr\u00fc\u00dfe & <more>", {u"alpha", u"beta"},
                    {0x00, 0xA1, 0xFF}, {0x00, 0x01, 0x02, 0xFF}, {{0x12, 0x34}, {0xAB, 0xCD}}, {'a', 'b', 'c'},
                    {u"one", u"two"}, {{u"first", 1}, {u"second", 20}}};
  auto store = CreateStore(WideFile("all.xml"));
  written.Exchange(*store, true);
  ASSERT_TRUE(SaveStore(*store));
  const std::string outline =
      "Marlowen_Settings\n  Group name=Main\n    Int name=count: -42\n    Double name=ratio: 3.250000\n"
      "    String name=title: Gr\u00fc\u00dfe & <more>\n    Bin16 name=key: 00A1FF\n    Bin64 name=blob: AAEC/w==\n"
      "    Struct name=window\n      Int name=width: 640\n      Struct name=pos\n        Int name=x: 5\n"
      "    Array Version=3 name=ints\n      Int i=0: 7\n      Int i=1: -8\n"
      "    Array Version=1 name=doubles\n      Double i=0: 1.500000\n"
      "    Array Version=1 name=buffers\n      String i=0: one\n      String i=1: two\n"
      "    Array Version=1 name=pointers\n      String i=0: alpha\n      String i=1: beta\n"
      "    Array Version=1 name=pairs\n      Bin16 i=0: 1234\n      Bin16 i=1: ABCD\n"
      "    Array Version=1 name=triple\n      Bin64 i=0: YWJj\n"
      "    StringList name=recent\n      String lParam=1: first\n      String lParam=20: second\n";
  EXPECT_EQ(XmlOutline(File("all.xml")), outline);

  // What is read back and written anew gives the same file.
  store = OpenStore(WideFile("all.xml"));
  AllValues read;
  read.Exchange(*store, false);
  CloseStore(store);
  auto copy = CreateStore(WideFile("copy.xml"));
  read.Exchange(*copy, true);
  ASSERT_TRUE(SaveStore(*copy));
  EXPECT_EQ(XmlOutline(File("copy.xml")), outline);
}

TEST_F(SettingsStoreTest, HandWrittenValuesConvertAsTheFormatSays) {
  auto store = OpenWith("hand.xml",
                        "<Group name=\"G\">"
                        "<Int name=\"spaced\">  -12abc</Int><Int name=\"huge\">99999999999</Int>"
                        "<Int name=\"word\">none</Int><Double name=\"d\"> 2.5e1x</Double>"
                        "<Bin64 name=\"three\">QUI</Bin64><String name=\"empty\"></String>"
                        "<StringList name=\"l\"><String lParam=\"3\">x</String><String>no number</String>"
                        "<String lParam=\"4\"></String><Int lParam=\"5\">1</Int><String lParam=\"-2\">y</String></StringList></Group>");
  // Leading blanks and trailing junk are skipped, big numbers saturate, and a
  // word reads as 0 but still counts as found.
  for (const auto& [name, expected] : {std::pair<const char16_t*, std::int32_t>{u"spaced", -12}, {u"huge", 2147483647},
                                       {u"word", 0}}) {
    std::int32_t number = 7;
    EXPECT_EQ(IntValue(number, 7, name, u"G", *store, false), 1) << WideToUtf8(name);
    EXPECT_EQ(number, expected) << WideToUtf8(name);
  }
  double real = 0;
  DoubleValue(real, 0, u"d", u"G", *store, false);
  EXPECT_EQ(real, 25.0);
  std::uint8_t bytes[4];
  std::size_t got = 0;
  Bin64Value(bytes, sizeof bytes, u"three", u"G", *store, false, &got);
  EXPECT_EQ(std::vector<std::uint8_t>(bytes, bytes + got), (std::vector<std::uint8_t>{'A', 'B', 0}));
  WideString text = u"old";
  EXPECT_EQ(StringValue(text, 10, u"d", u"empty", u"G", *store, false), 1);
  EXPECT_EQ(text, u"");
  // Absent values give their defaults; texts are cut to the limit and the
  // buffer, defaults alike.
  std::int32_t number = 5;
  EXPECT_EQ(IntValue(number, 17, u"absent", u"G", *store, false), 0);
  EXPECT_EQ(number, 17);
  EXPECT_EQ(StringValue(text, 4, u"default", u"absent", u"G", *store, false), 0);
  EXPECT_EQ(text, u"def");
  WideString longText(5000, u'x');
  StringValue(longText, 0, u"", u"long", u"G", *store, true);
  EXPECT_EQ(StringValue(text, 10000, u"", u"long", u"G", *store, false), 1);
  EXPECT_EQ(text.size(), kMaxSettingsText);
  EXPECT_EQ(StringValue(text, 10, u"", u"long", u"G", *store, false), 1);
  EXPECT_EQ(text, WideString(9, u'x'));
  StringListT list;
  StringListValue(list, u"l", u"G", *store, false);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].text + u"|" + list[1].text, u"x|y");
  EXPECT_EQ(std::make_pair(list[0].lParam, list[1].lParam), std::make_pair(3, -2));
}

TEST_F(SettingsStoreTest, Bin16DigitsAreReadTwoAtATime) {
  using Bytes = std::vector<std::uint8_t>;
  // Lower case counts from '7': 'a' is 42, so "1a" is 16 + 42; a blank ends
  // the digits, a lone digit is no byte, and no more than the buffer is filled.
  for (const auto& [text, expected] : {std::pair<std::string, Bytes>{"0A1BFF", {0x0A, 0x1B, 0xFF}},
                                       {"1a", {0x3A, 0xEE, 0xEE}}, {"12 34", {0x12, 0xEE, 0xEE}},
                                       {"123", {0x12, 0xEE, 0xEE}}, {"11223344", {0x11, 0x22, 0x33}}}) {
    auto store = OpenWith("bin16.xml", "<Group name=\"G\"><Bin16 name=\"b\">" + text + "</Bin16></Group>");
    std::uint8_t bytes[3] = {0xEE, 0xEE, 0xEE};
    EXPECT_EQ(Bin16Value(bytes, sizeof bytes, u"b", u"G", *store, false), 1) << text;
    EXPECT_EQ(Bytes(bytes, bytes + 3), expected) << text;
  }
}

TEST_F(SettingsStoreTest, WrongRootIsParsedTwelveTimesThenOpensEmptyAndSaveReplacesIt) {
  auto missing = OpenStore(WideFile("missing.xml"));
  EXPECT_EQ(HasGroup(kGroup, *missing), 0);
  EXPECT_FALSE(testing_support::PathExists(File("missing.xml")));

  WriteFileText(File("wrong.xml"), "<Other_Settings><Group name=\"Main\"><Int name=\"n\">4</Int></Group></Other_Settings>");
  const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ASSERT_GE(watch, 0);
  // Closes are watched too: they part the opens, which the kernel would
  // otherwise fold into one event.
  ASSERT_GE(inotify_add_watch(watch, File("wrong.xml").c_str(), IN_OPEN | IN_CLOSE_NOWRITE), 0);
  auto store = OpenStore(WideFile("wrong.xml"));
  int opens = 0;
  alignas(inotify_event) char events[4096];
  for (ssize_t n; (n = read(watch, events, sizeof events)) > 0;) {
    for (char* at = events; at < events + n; at += sizeof(inotify_event) + reinterpret_cast<inotify_event*>(at)->len) {
      if (reinterpret_cast<inotify_event*>(at)->mask & IN_OPEN) ++opens;
    }
  }
  close(watch);
  EXPECT_EQ(opens, 12);  // the first parse and eleven tries
  std::int32_t value = 0;
  EXPECT_EQ(IntValue(value, -1, u"n", kGroup, *store, false), 0);
  value = 8;
  IntValue(value, 0, u"n", kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("wrong.xml")), "Marlowen_Settings\n  Group name=Main\n    Int name=n: 8\n");
}

TEST_F(SettingsStoreTest, FileThatBecomesWholeWhileRetryingIsRead) {
  const std::string whole = "<Marlowen_Settings><Group name=\"Main\"><Int name=\"n\">77</Int></Group></Marlowen_Settings>";
  WriteFileText(File("busy.xml"), whole.substr(0, 40));  // cut off mid-way, as a writer leaves it
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    WriteFileText(File("busy.xml.new"), whole);
    std::rename(File("busy.xml.new").c_str(), File("busy.xml").c_str());
  });
  auto store = OpenStore(WideFile("busy.xml"));
  writer.join();
  std::int32_t value = 0;
  EXPECT_EQ(IntValue(value, -1, u"n", kGroup, *store, false), 1);
  EXPECT_EQ(value, 77);
}

TEST_F(SettingsStoreTest, ArraysOfAnotherVersionAreEmptiedAndAbsentGroupsSaveEmpty) {
  auto store = OpenWith("array.xml", "<Group name=\"Main\"><Array name=\"a\" Version=\"4\">"
                                     "<Int i=\"0\">10</Int><Int i=\"2\">12</Int><Double i=\"1\">5</Double></Array></Group>");
  std::int32_t values[4] = {-1, -1, -1, -1};
  IntArrayValues(values, 4, 4, u"a", kGroup, *store, false);
  EXPECT_EQ(std::vector<std::int32_t>(values, values + 4), (std::vector<std::int32_t>{10, -1, 12, -1}));
  std::int32_t other[3] = {9, 9, 9};
  EXPECT_EQ(IntArrayValues(other, 3, 2, u"a", kGroup, *store, false), 1);
  EXPECT_EQ(other[0], 9);

  // Queries add nothing; a read in an absent group leaves it behind, empty.
  EXPECT_EQ(HasStruct(u"s", u"Nowhere", *store), 0);
  EXPECT_EQ(HasGroup(u"Nowhere", *store), 0);
  EXPECT_EQ(IntValue(values[0], 3, u"missing", u"Nowhere", *store, false), 0);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("array.xml")),
            "Marlowen_Settings\n  Group name=Main\n    Array Version=2 name=a\n  Group name=Nowhere\n");
}

TEST_F(SettingsStoreTest, SavesReplaceWholeFilesKeepTheirModeAndLeaveNothingBehindOnFailure) {
  settings_test::WriteSettingsXml(File("old.xml"), "<Group name=\"Main\"><Int name=\"n\">1</Int></Group>");
  ASSERT_EQ(chmod(File("old.xml").c_str(), 0640), 0);
  auto store = CreateStore(WideFile("old.xml"));  // ignores what is there
  std::int32_t value = 2;
  IntValue(value, 0, u"m", kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("old.xml")), "Marlowen_Settings\n  Group name=Main\n    Int name=m: 2\n");
  struct stat info;
  ASSERT_EQ(stat(File("old.xml").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  EXPECT_EQ(testing_support::ListFolder(root_.path()), (std::vector<std::string>{"old.xml", "tmp"}));

  // Saved under another name, the store stays there.
  ASSERT_TRUE(SaveStoreAs(*store, WideFile("sub/dir/new.xml")));
  IntValue(value, 0, u"n", kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(XmlOutline(File("sub/dir/new.xml")), "Marlowen_Settings\n  Group name=Main\n    Int name=m: 2\n    Int name=n: 2\n");
  EXPECT_EQ(XmlOutline(File("old.xml")), "Marlowen_Settings\n  Group name=Main\n    Int name=m: 2\n");

  // A folder in the target's place can't be replaced by a file.
  testing_support::MakeFolders(File("taken/s.xml"));
  WriteFileText(File("taken/s.xml/keep"), "precious");
  EXPECT_FALSE(SaveStoreAs(*store, WideFile("taken/s.xml")));
  EXPECT_EQ(testing_support::ReadFileText(File("taken/s.xml/keep")), "precious");
  EXPECT_EQ(testing_support::ListFolder(File("taken")), std::vector<std::string>{"s.xml"});
}

TEST_F(SettingsStoreTest, LookupsTakeSiblingStepsInFileOrderAndStartFromAnEnclosingStruct) {
  constexpr int kCount = 200;
  auto store = CreateStore(WideFile("order.xml"));
  for (std::int32_t i = 0; i < kCount; ++i) IntValue(i, 0, FormatString(u"v%d", i), kGroup, *store, true);
  ASSERT_TRUE(SaveStore(*store));
  for (bool forward : {true, false}) {
    auto reading = OpenStore(WideFile("order.xml"));
    for (int n = 0; n < kCount; ++n) {
      const int i = forward ? n : kCount - 1 - n;
      std::int32_t value = -1;
      ASSERT_EQ(IntValue(value, -1, FormatString(u"v%d", i), kGroup, *reading, false), 1);
      ASSERT_EQ(value, i);
    }
    // Against the order of the file each value needs a walk of its own.
    EXPECT_EQ(reading->fullWalks, forward ? 1 : kCount);
    EXPECT_EQ(reading->siblingHits, forward ? kCount - 1 : 0);
    EXPECT_EQ(reading->prefixHits, 0);
  }

  store = CreateStore(WideFile("nested.xml"));
  std::int32_t value = 1;
  for (const char16_t* name : {u"window.pos.x", u"window.pos.y", u"window.width", u"window.height"}) {
    IntValue(value, 0, name, kGroup, *store, true);
  }
  EXPECT_EQ(store->fullWalks, 1);
  EXPECT_EQ(store->siblingHits, 2);
  EXPECT_EQ(store->prefixHits, 1);
  EXPECT_EQ(HasStruct(u"window", kGroup, *store), 1);
  EXPECT_EQ(HasStruct(u"pos", kGroup, *store), 0);  // not a direct child of the group
}

}  // namespace
