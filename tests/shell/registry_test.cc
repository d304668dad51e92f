// Registry reads and writes against real registry files in a test root: the
// path-form rules, value types, encodings, and files that are missing or
// damaged.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "platform/machine_paths.h"
#include "shell/registry.h"
#include "test_root.h"

namespace {

using testing_support::ReadFileText;

const char kMachineFile[] =
    "Windows Registry Editor Version 5.00\r\n"
    "\r\n"
    "; written by the install\r\n"
    "[HKEY_LOCAL_MACHINE]\r\n"
    "\"AtRoot\"=\"root value\"\r\n"
    "\r\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\App]\r\n"
    "@=\"/opt/vendor/app\"\r\n"
    "\"Path\"=\"/opt/vendor\"\r\n"
    "\"Quoted\"=\"say \\\"hi\\\" to C:\\\\dir\"\r\n"
    "\"Count\"=dword:0000002a\r\n"
    // "%HOME%/x" as UTF-16LE with its terminating zero, over two lines.
    "\"Expand\"=hex(2):25,00,48,00,4f,00,4d,00,45,00,25,00,2f,00,\\\r\n"
    "  78,00,00,00\r\n"
    // "ab" stored without a terminating zero.
    "\"Unterminated\"=hex(1):61,00,62,00\r\n"
    "\"Empty\"=\"\"\r\n"
    "\"NoBytes\"=hex(1):\r\n"
    "\r\n"
    "[HKEY_CURRENT_USER\\SOFTWARE\\Vendor\\App]\r\n"
    "\"Path\"=\"user path\"\r\n";

constexpr char16_t kApp[] = u"\\\\HKLM\\SOFTWARE\\Vendor\\App";

void WriteRegistry(const std::string& bytes) {
  const std::string path = platform::RegistryFilePath();
  testing_support::MakeFolders(path.substr(0, path.rfind('/')));
  testing_support::WriteFileText(path, bytes);
}

struct ReadCase {
  const char* label;
  const char16_t* pathForm;
  const char16_t* valueName;
  const char16_t* expected;
};

void PrintTo(const ReadCase& c, std::ostream* out) { *out << c.label; }

class RegistryFileTest : public testing::Test {
 protected:
  testing_support::TestRoot root_;
};

class RegistryReadTest : public RegistryFileTest, public testing::WithParamInterface<ReadCase> {};

TEST_P(RegistryReadTest, ReadsMachineFile) {
  WriteRegistry(kMachineFile);
  const ReadCase& c = GetParam();
  EXPECT_EQ(ReadRegistryString(c.pathForm, c.valueName), WideString(c.expected)) << c.label;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RegistryReadTest,
    testing::Values(
        ReadCase{"default value", kApp, u"", u"/opt/vendor/app"},
        ReadCase{"names without case", u"\\\\HKLM\\software\\VENDOR\\app", u"pATH", u"/opt/vendor"},
        ReadCase{"escapes", kApp, u"Quoted", u"say \"hi\" to C:\\dir"},
        ReadCase{"current user", u"\\\\HKCU\\SOFTWARE\\Vendor\\App", u"Path", u"user path"},
        ReadCase{"lower-case prefix falls to the machine", u"\\\\hkcu\\SOFTWARE\\Vendor\\App", u"Path", u"/opt/vendor"},
        ReadCase{"bar as seventh character", u"\\\\HKLM|SOFTWARE\\Vendor\\App", u"Path", u"/opt/vendor"},
        ReadCase{"six characters open the root", u"\\\\HKLM", u"AtRoot", u"root value"},
        ReadCase{"empty form is the machine root", u"", u"AtRoot", u"root value"},
        ReadCase{"dword reads empty", kApp, u"Count", u""},
        ReadCase{"expandable text unexpanded", kApp, u"Expand", u"%HOME%/x"},
        ReadCase{"text without terminator", kApp, u"Unterminated", u"ab"},
        ReadCase{"zero bytes", kApp, u"NoBytes", u""}, ReadCase{"missing value", kApp, u"Nothing", u""},
        ReadCase{"missing key", u"\\\\HKLM\\SOFTWARE\\Other", u"Path", u""}),
    [](const testing::TestParamInfo<ReadCase>& info) { return std::to_string(info.index); });

TEST_F(RegistryFileTest, MissingOrDamagedFileReadsAsEmpty) {
  EXPECT_EQ(ReadRegistryString(kApp, u""), u"");
  const std::string header = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\App]\n";
  for (const std::string& bytes : {
           std::string("\x00\xff\x13garbage\x01", 11),
           header + "@=\"/opt/vendor/app\"\nthis line means nothing\n",
           "[HKEY_NOWHERE\\X]\n" + header + "@=\"/opt/vendor/app\"\n",
           "@=\"value before any key\"\n" + header + "@=\"x\"\n",
           header + "@=\"unterminated\n",
           header + "@=hex:01,zz\n\"Path\"=\"p\"\n",
           header + "\"Path\"=\"p\"\n\"B\"=hex:01,\\\n",
       }) {
    WriteRegistry(bytes);
    EXPECT_EQ(ReadRegistryString(kApp, u""), u"") << bytes;
    EXPECT_EQ(ReadRegistryString(kApp, u"Path"), u"") << bytes;
  }
}

TEST_F(RegistryFileTest, ReadsUtf16AndOldFormatAndLaterDefinitionsWin) {
  const std::string text = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor]\r\n"
                           "\"Name\"=\"gr\xC3\xBC\xC3\x9F\"\r\n";
  std::string bytes;
  for (char16_t c : u"\uFEFF" + Utf8ToWide(text)) bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  for (const std::string& file : {bytes, "\xEF\xBB\xBF" + text}) {
    WriteRegistry(file);
    EXPECT_EQ(ReadRegistryString(u"\\\\HKLM\\SOFTWARE\\Vendor", u"Name"), u"gr\u00FC\u00DF");
  }
  // The old format keeps expandable text in 8-bit bytes.
  WriteRegistry("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor]\n\"Expand\"=hex(2):25,54,4d,50,25,00\n");
  EXPECT_EQ(ReadRegistryString(u"\\\\HKLM\\SOFTWARE\\Vendor", u"Expand"), u"%TMP%");

  WriteRegistry("Windows Registry Editor Version 5.00\n"
                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\n\"V\"=\"first\"\n\"W\"=\"kept\"\n"
                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\n\"V\"=\"second\"\n\"W\"=-\n"
                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\B\\C]\n\"V\"=\"c\"\n"
                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\B.exe]\n\"V\"=\"sibling\"\n"
                "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\B]\n");
  EXPECT_EQ(ReadRegistryString(u"\\\\HKLM\\SOFTWARE\\A", u"V"), u"second");
  EXPECT_EQ(ReadRegistryString(u"\\\\HKLM\\SOFTWARE\\A", u"W"), u"");
  // A deleted key takes its subkeys, not the keys whose names merely begin with its own.
  EXPECT_EQ(ReadRegistryString(u"\\\\HKLM\\SOFTWARE\\B\\C", u"V"), u"");
  EXPECT_EQ(ReadRegistryString(u"\\\\HKLM\\SOFTWARE\\B.exe", u"V"), u"sibling");
}

TEST_F(RegistryFileTest, WriterCreatesAFileOrChangesOnlyItsOwnLines) {
  const WideString form = u"\\\\HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\MLCrashReporter.exe";
  ASSERT_TRUE(WriteRegistryString(form, u"", u"/opt/marlowen/bin/MLCrashReporter"));
  ASSERT_TRUE(WriteRegistryString(form, u"Path", u"/opt/marlowen/lib \"x\"\\"));
  EXPECT_EQ(ReadRegistryString(form, u"Path"), u"/opt/marlowen/lib \"x\"\\");
  EXPECT_EQ(ReadFileText(platform::RegistryFilePath()),
            "Windows Registry Editor Version 5.00\n\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\MLCrashReporter.exe]\n"
            "@=\"/opt/marlowen/bin/MLCrashReporter\"\n"
            "\"Path\"=\"/opt/marlowen/lib \\\"x\\\"\\\\\"\n");
  // A line break cannot stand in a quoted text; the typed byte form carries it.
  ASSERT_TRUE(WriteRegistryString(u"\\\\HKLM\\SOFTWARE\\Multi", u"Text", u"a\nb"));
  EXPECT_EQ(ReadRegistryString(u"\\\\HKLM\\SOFTWARE\\Multi", u"Text"), u"a\nb");

  WriteRegistry(kMachineFile);
  ASSERT_TRUE(WriteRegistryString(kApp, u"PATH", u"/new"));
  ASSERT_TRUE(WriteRegistryString(kApp, u"Expand", u"plain"));
  ASSERT_TRUE(WriteRegistryString(u"\\\\HKCU\\SOFTWARE\\Vendor\\App", u"Added", u"more"));
  std::string expected = kMachineFile;
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"\"Path\"=\"/opt/vendor\"", "\"PATH\"=\"/new\""},
                                 {"hex(2):25,00,48,00,4f,00,4d,00,45,00,25,00,2f,00,\\\r\n  78,00,00,00", "\"plain\""},
                                 {"user path\"\r\n", "user path\"\r\n\"Added\"=\"more\"\r\n"}}) {
    ASSERT_NE(expected.find(from), std::string::npos) << from;
    expected.replace(expected.find(from), from.size(), to);
  }
  EXPECT_EQ(ReadFileText(platform::RegistryFilePath()), expected);

  // A file it cannot read stays as it was.
  const std::string damaged = "[HKEY_LOCAL_MACHINE\\X]\nnonsense\n";
  WriteRegistry(damaged);
  EXPECT_FALSE(WriteRegistryString(u"\\\\HKLM\\X", u"V", u"v"));
  EXPECT_EQ(ReadFileText(platform::RegistryFilePath()), damaged);
}

}  // namespace
