// The report document: the number conversion and the time format, the
// exact text of a document built from a known record and known figures,
// the document layer's find-or-create, and WriteReportXml on real files
// (read back by python3's parser), with its failure rows: no record, a
// version 1 record, and a document file held by someone else.
#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "packaging/report_xml.h"
#include "packaging/xml_dom.h"
#include "report_test_support.h"
#include "store/crash_report_settings.h"
#include "store/file.h"
#include "test_root.h"

namespace Marlowen {
namespace {

using packaging_test::FlattenXml;
using packaging_test::LogLines;
using packaging_test::SampleRecord;
using packaging_test::WriteCapturedReport;
using testing_support::PathExists;
using testing_support::ReadFileText;
using testing_support::TestRoot;

constexpr char kName[] = "App_20260102030405_100_101";

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = text.find('\n', start);
    lines.push_back(text.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return lines;
}

TEST(NumberTextTest, KeepsTheLow32BitsAsASignedNumber) {
  const std::vector<std::pair<std::uint64_t, const char*>> table = {
      {0, "0"},
      {57, "57"},
      {0x7FFFFFFFull, "2147483647"},
      {0x80000000ull, "-2147483648"},
      {3ull << 30, "-1073741824"},  // 3 GiB
      {0xFFFFFFFFull, "-1"},
      {4ull << 30, "0"},  // 4 GiB
      {8ull << 30, "0"},  // 8 GiB
      {(4ull << 30) + 5, "5"},
  };
  for (const auto& [value, text] : table) EXPECT_EQ(WideToUtf8(NumberText(value)), text) << value;
}

TEST(CreationTimeTest, PadsAllButTheYearAndStaysInUtc) {
  const auto format = [](std::uint16_t year, std::uint16_t month, std::uint16_t day, std::uint16_t hour,
                         std::uint16_t minute, std::uint16_t second) {
    platform::SystemTime time{};
    time.year = year;
    time.month = month;
    time.day = day;
    time.hour = hour;
    time.minute = minute;
    time.second = second;
    time.milliseconds = 999;
    FILETIME fileTime;
    EXPECT_TRUE(SystemTimeToFileTime(time, fileTime));
    return WideToUtf8(FormatCreationTime(fileTime));
  };
  EXPECT_EQ(format(2026, 1, 2, 3, 4, 5), "2026-01-02 03:04:05");
  EXPECT_EQ(format(1601, 1, 1, 0, 0, 0), "1601-01-01 00:00:00");
  EXPECT_EQ(format(2099, 12, 31, 23, 59, 59), "2099-12-31 23:59:59");
}

// Figures chosen to show the conversion: 3 GiB, 8 GiB, 4 GiB, a full mask.
SystemInformationT KnownSystem() {
  SystemInformationT system;
  system.os = u"Debian GNU/Linux 12 (bookworm), Linux 6.1.0";
  system.processorOemId = u"AMD64";
  system.processorArchitecture = u"AMD64";
  system.processorLevel = 6;
  system.processorRevision = 0x5507;
  system.processorCount = 2;
  system.processorMask = 0xFFFFFFFF;
  system.pageSize = 4096;
  system.memoryLoad = 57;
  system.totalPhysical = 3ull << 30;
  system.availablePhysical = 1ull << 30;
  system.totalCommitted = 8ull << 30;
  system.availableCommitted = 4ull << 30;
  system.totalVirtual = (1ull << 47) - 4096;
  system.availableVirtual = 123456789;
  system.availableExtended = 0;
  return system;
}

// The document of SampleRecord with SMA "SMA-77" and KnownSystem, as it
// must be written, byte for byte.
constexpr char kExpectedDocument[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
    "<MARLOWEN_CRASH_REPORT Version=\"1.0\">"
    "<SMA>SMA-77</SMA>"
    "<CRASH_REPORT>"
    "<ID>App_20260102030405_100_101</ID>"
    "<EXCEPTION_TYPE>Access Violation</EXCEPTION_TYPE>"
    "<CRASH_ADDRESS>0x401000</CRASH_ADDRESS>"
    "<MODULE_NAME>/opt/app/libcore.so</MODULE_NAME>"
    "<CREATION_TIME>2026-01-02 03:04:05</CREATION_TIME>"
    "<CRASHED_PROCESS>"
    "<FILE_NAME>/opt/app/bin/app</FILE_NAME>"
    "<COMMAND_LINE>/opt/app/bin/app --title \"&lt;a &amp; b&gt;\"</COMMAND_LINE>"
    "<FILE_VERSION>2.3.4.5</FILE_VERSION>"
    "<PRODUCT_VERSION>2.3.0.0</PRODUCT_VERSION>"
    "<HANDLE_COUNT>41</HANDLE_COUNT>"
    "<THREAD_COUNT>4</THREAD_COUNT>"
    "<PROCESS_MEMORY>"
    "<PAGE_FAULT_COUNT>1234</PAGE_FAULT_COUNT>"
    "<PEAK_WORKING_SET_SIZE>-1073741824</PEAK_WORKING_SET_SIZE>"
    "<WORKING_SET_SIZE>20000000</WORKING_SET_SIZE>"
    "<QUOTA_PEAK_PAGED_POOL_USAGE>0</QUOTA_PEAK_PAGED_POOL_USAGE>"
    "<QUOTA_PAGED_POOL_USAGE>0</QUOTA_PAGED_POOL_USAGE>"
    "<QUOTA_PEAK_NON_PAGED_POOL_USAGE>8192</QUOTA_PEAK_NON_PAGED_POOL_USAGE>"
    "<QUOTA_NON_PAGED_POOL_USAGE>4096</QUOTA_NON_PAGED_POOL_USAGE>"
    "<PAGE_FILE_USAGE>-1</PAGE_FILE_USAGE>"
    "<PEAK_PAGE_FILE_USAGE>30000000</PEAK_PAGE_FILE_USAGE>"
    "</PROCESS_MEMORY>"
    "</CRASHED_PROCESS>"
    "<SYSTEM>"
    "<OS>Debian GNU/Linux 12 (bookworm), Linux 6.1.0</OS>"
    "<PROCESSOR_OEM_ID>AMD64</PROCESSOR_OEM_ID>"
    "<PROCESSOR_ARCHITECTURE>AMD64</PROCESSOR_ARCHITECTURE>"
    "<PROCESSOR_LEVEL>6</PROCESSOR_LEVEL>"
    "<PROCESSOR_REVISION>21767</PROCESSOR_REVISION>"
    "<PROCESSOR_COUNT>2</PROCESSOR_COUNT>"
    "<PROCESSOR_MASK>-1</PROCESSOR_MASK>"
    "<PAGE_SIZE>4096</PAGE_SIZE>"
    "</SYSTEM>"
    "<SYSTEM_MEMORY>"
    "<LOAD>57%</LOAD>"
    "<TOTAL_PHYSICAL>-1073741824</TOTAL_PHYSICAL>"
    "<AVAILABLE_PHYSICAL>1073741824</AVAILABLE_PHYSICAL>"
    "<TOTAL_COMMITTED>0</TOTAL_COMMITTED>"
    "<AVAILABLE_COMMITTED>0</AVAILABLE_COMMITTED>"
    "<TOTAL_VIRTUAL>-4096</TOTAL_VIRTUAL>"
    "<AVAILABLE_VIRTUAL>123456789</AVAILABLE_VIRTUAL>"
    "<AVAILABLE_EXTENDED>0</AVAILABLE_EXTENDED>"
    "</SYSTEM_MEMORY>"
    "</CRASH_REPORT>"
    "</MARLOWEN_CRASH_REPORT>";

TEST(ReportDocumentTest, BuildsTheExactText) {
  XmlDocumentPtr document;
  ASSERT_TRUE(CreateXmlDocument(document));
  xercesc::DOMElement* root = nullptr;
  ASSERT_NE(CreateRootElement(root, document.get(), u"MARLOWEN_CRASH_REPORT", u""), nullptr);
  EXPECT_TRUE(SetRootAttribute(document.get(), u"Version", XmlValue(WideString(u"1.0"))));
  xercesc::DOMElement* element = nullptr;
  SetChildText(element, root, u"SMA", XmlValue(WideString(u"SMA-77")), false);
  xercesc::DOMElement* crashReport = nullptr;
  ASSERT_NE(AddChildElement(crashReport, root, u"CRASH_REPORT", u""), nullptr);
  AddCrashElements(crashReport, Utf8ToWide(kName), SampleRecord(Utf8ToWide(kName)));
  AddSystemElements(crashReport, KnownSystem());

  std::string text;
  ASSERT_TRUE(SerializeXmlDocument(document.get(), text));
  EXPECT_EQ(text, kExpectedDocument);
}

TEST(XmlDomTest, FindsBeforeCreatingAndKeepsTheDocumentWritable) {
  XmlDocumentPtr document;
  ASSERT_TRUE(CreateXmlDocument(document));
  xercesc::DOMElement* root = nullptr;
  ASSERT_NE(CreateRootElement(root, document.get(), u"R", u""), nullptr);
  xercesc::DOMElement* again = nullptr;
  EXPECT_EQ(CreateRootElement(again, document.get(), u"S", u""), nullptr) << "a document has one root";
  xercesc::DOMElement* bad = nullptr;
  EXPECT_EQ(AddChildElement(bad, root, u"no spaces", u""), nullptr);
  EXPECT_EQ(SetChildText(bad, nullptr, u"A", XmlValue(WideString(u"x")), false), nullptr);

  xercesc::DOMElement* first = nullptr;
  xercesc::DOMElement* second = nullptr;
  SetChildText(first, root, u"A", XmlValue(WideString(u"old")), false);
  SetChildText(second, root, u"A", XmlValue(std::uint64_t{5ull << 32 | 7}), true);
  EXPECT_EQ(first, second) << "the existing child is reused";
  xercesc::DOMElement* text = nullptr;
  // Numeric decides the conversion, not the value's type.
  SetChildText(text, root, u"B", XmlValue(WideString(u"4294967295")), true);
  SetChildText(text, root, u"C", XmlValue(std::uint32_t{0xFFFFFFFF}), false);
  // Characters that XML 1.0 cannot carry must not make the document unsavable.
  SetChildText(text, root, u"D", XmlValue(WideString(u"a\u0001b\uFFFEc\xD800")), false);

  xercesc::DOMDocument* owner = nullptr;
  EXPECT_EQ(OwnerDocumentOf(document.get(), owner), document.get());
  EXPECT_EQ(OwnerDocumentOf(second, owner), document.get());

  std::string serialized;
  ASSERT_TRUE(SerializeXmlDocument(document.get(), serialized));
  EXPECT_EQ(serialized,
            "<?xml version=\"1.0\" encoding=\"utf-8\"?><R><A>7</A><B>-1</B><C>4294967295</C>"
            "<D>a\xEF\xBF\xBD" "b\xEF\xBF\xBD" "c\xEF\xBF\xBD</D></R>");
}

class WriteReportXmlTest : public ::testing::Test {
 protected:
  std::string FilePath(const char* extension) const {
    return root_.ReportFolder() + "/" + kName + "." + extension;
  }
  bool Write(const CrashReportSettingsT& settings) {
    return WriteReportXml(PathBuffer::FromUtf8(root_.ReportFolder()), settings, Utf8ToWide(kName));
  }

  TestRoot root_;
};

TEST_F(WriteReportXmlTest, WritesEveryElementInOrderAndDeletesTheRecord) {
  ASSERT_TRUE(WriteCapturedReport(root_.ReportFolder(), kName, {1, 2, 3}));
  CrashReportSettingsT settings;
  settings.smaNumber = u"SMA-77";
  ASSERT_TRUE(Write(settings));

  EXPECT_FALSE(PathExists(FilePath("dat")));
  struct stat info {};
  ASSERT_EQ(stat(FilePath("xml").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
  EXPECT_EQ(ReadFileText(FilePath("xml")).rfind("<?xml version=\"1.0\" encoding=\"utf-8\"?>", 0), 0u);

  // Both read by python3's parser: the same elements in the same order, and
  // the same values but the machine's.
  testing_support::WriteFileText(root_.Path("expected.xml"), kExpectedDocument);
  const packaging_test::CommandResult actual = FlattenXml(FilePath("xml"));
  ASSERT_EQ(actual.exitCode, 0);
  const std::vector<std::string> lines = Lines(actual.output);
  const std::vector<std::string> expected = Lines(FlattenXml(root_.Path("expected.xml")).output);
  ASSERT_EQ(lines.size(), expected.size());

  // Figures that do not move between two looks, against a look of our own.
  const SystemInformationT now;
  const std::map<std::string, std::string> stable = {
      {"OS", WideToUtf8(now.os)},
      {"PROCESSOR_OEM_ID", WideToUtf8(now.processorOemId)},
      {"PROCESSOR_ARCHITECTURE", WideToUtf8(now.processorArchitecture)},
      {"PROCESSOR_LEVEL", WideToUtf8(NumberText(now.processorLevel))},
      {"PROCESSOR_REVISION", WideToUtf8(NumberText(now.processorRevision))},
      {"PROCESSOR_COUNT", WideToUtf8(NumberText(now.processorCount))},
      {"PROCESSOR_MASK", WideToUtf8(NumberText(now.processorMask))},
      {"PAGE_SIZE", WideToUtf8(NumberText(now.pageSize))},
      {"TOTAL_PHYSICAL", WideToUtf8(NumberText(now.totalPhysical))},
      {"TOTAL_COMMITTED", WideToUtf8(NumberText(now.totalCommitted))},
      {"TOTAL_VIRTUAL", WideToUtf8(NumberText(now.totalVirtual))},
      {"AVAILABLE_EXTENDED", "0"}};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::size_t equals = expected[i].find('=');
    if (expected[i].find("/SYSTEM") == std::string::npos || equals == std::string::npos) {
      EXPECT_EQ(lines[i], expected[i]);
      continue;
    }
    const std::string path = expected[i].substr(0, equals + 1);
    ASSERT_EQ(lines[i].substr(0, path.size()), path);
    const std::string value = lines[i].substr(path.size());
    const auto known = stable.find(path.substr(path.rfind('/') + 1, path.size() - path.rfind('/') - 2));
    if (known != stable.end()) {
      EXPECT_EQ(value, known->second) << path;
    } else {
      EXPECT_FALSE(value.empty()) << path;
      EXPECT_EQ(value.find_first_not_of("-0123456789%"), std::string::npos) << path << value;
    }
  }
}

TEST_F(WriteReportXmlTest, WithoutACustomerNumberTheElementIsEmptyButThere) {
  ASSERT_TRUE(WriteCapturedReport(root_.ReportFolder(), kName, {1}));
  ASSERT_TRUE(Write(CrashReportSettingsT()));
  const std::vector<std::string> lines = Lines(FlattenXml(FilePath("xml")).output);
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[2], "/MARLOWEN_CRASH_REPORT/SMA=");
}

TEST_F(WriteReportXmlTest, AVersion1RecordHasAnEmptyCrashAddress) {
  testing_support::MakeFolders(root_.ReportFolder());
  // Version word, six texts (no crash address), the file name, the time and
  // eleven counters.
  std::vector<std::uint8_t> record = {1, 0, 0, 0};
  const auto text = [&record](const std::string& value) {
    const auto size = static_cast<std::uint32_t>(value.size());
    for (int shift = 0; shift < 32; shift += 8) record.push_back(static_cast<std::uint8_t>(size >> shift));
    record.insert(record.end(), value.begin(), value.end());
  };
  for (const char* value : {kName, "AV", "mod", "cmd", "1.0.0.0", "1.0.0.0", "/bin/x"}) text(value);
  record.insert(record.end(), 8 + 11 * 4, 0);
  testing_support::WriteFileBytes(FilePath("dat"), record);

  ASSERT_TRUE(Write(CrashReportSettingsT()));
  const std::vector<std::string> lines = Lines(FlattenXml(FilePath("xml")).output);
  ASSERT_GE(lines.size(), 9u);
  EXPECT_EQ(lines[5], "/MARLOWEN_CRASH_REPORT/CRASH_REPORT/EXCEPTION_TYPE=AV");
  EXPECT_EQ(lines[6], "/MARLOWEN_CRASH_REPORT/CRASH_REPORT/CRASH_ADDRESS=");
  EXPECT_EQ(lines[8], "/MARLOWEN_CRASH_REPORT/CRASH_REPORT/CREATION_TIME=1601-01-01 00:00:00");
}

TEST_F(WriteReportXmlTest, WithoutARecordNothingIsWritten) {
  testing_support::MakeFolders(root_.ReportFolder());
  LogLines log;
  ASSERT_TRUE(log.bound());
  EXPECT_FALSE(Write(CrashReportSettingsT()));
  EXPECT_FALSE(PathExists(FilePath("xml")));
  const auto lines = log.Drain();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].severity, 3u);
  EXPECT_EQ(WideToUtf8(lines[0].message), "The file '" + FilePath("dat") + "' does not exist.");
}

// Someone holds the document file open (a File keeps a share lock) for
// holdFor; the writer retries for about three seconds.
bool WriteWhileHeld(const std::string& xmlPath, std::chrono::milliseconds holdFor,
                    const std::function<bool()>& write) {
  File holder(PathBuffer::FromUtf8(xmlPath));
  if (!holder.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, false, 0x80)) {
    ADD_FAILURE() << "cannot hold " << xmlPath;
    return false;
  }
  std::thread release([&holder, holdFor] {
    std::this_thread::sleep_for(holdFor);
    holder.Close();
  });
  const bool written = write();
  release.join();
  return written;
}

TEST_F(WriteReportXmlTest, AFileHeldForTwoSecondsIsStillWritten) {
  ASSERT_TRUE(WriteCapturedReport(root_.ReportFolder(), kName, {1}));
  EXPECT_TRUE(WriteWhileHeld(FilePath("xml"), std::chrono::seconds(2),
                             [this] { return Write(CrashReportSettingsT()); }));
  EXPECT_FALSE(PathExists(FilePath("dat")));
  EXPECT_EQ(FlattenXml(FilePath("xml")).exitCode, 0);
}

TEST_F(WriteReportXmlTest, AFileHeldForFourSecondsIsGivenUpAndTheRecordStays) {
  ASSERT_TRUE(WriteCapturedReport(root_.ReportFolder(), kName, {1}));
  EXPECT_FALSE(WriteWhileHeld(FilePath("xml"), std::chrono::seconds(4),
                              [this] { return Write(CrashReportSettingsT()); }));
  EXPECT_TRUE(PathExists(FilePath("dat")));
  EXPECT_TRUE(ReadFileText(FilePath("xml")).empty()) << "the holder's file is left as it was";
}

}  // namespace
}  // namespace Marlowen
