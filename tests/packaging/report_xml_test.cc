// The report document: its exact text from known values, the document layer,
// and WriteReportXml on real files read back by python3's parser.
#include <sys/stat.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
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
using packaging_test::WriteCapturedReport;
using testing_support::PathExists;
using testing_support::ReadFileText;

constexpr char kName[] = "App_20260102030405_100_101";

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Figures chosen to show the conversion: 3 GiB, 8 GiB, 4 GiB, a full mask.
SystemInformationT KnownSystem() {
  SystemInformationT s;
  s.os = u"Debian GNU/Linux 12 (bookworm), Linux 6.1.0";
  s.processorOemId = s.processorArchitecture = u"AMD64";
  s.processorLevel = 6, s.processorRevision = 0x5507, s.processorCount = 2, s.processorMask = 0xFFFFFFFF;
  s.pageSize = 4096, s.memoryLoad = 57;
  s.totalPhysical = 3ull << 30, s.availablePhysical = 1ull << 30;
  s.totalCommitted = 8ull << 30, s.availableCommitted = 4ull << 30;
  s.totalVirtual = (1ull << 47) - 4096, s.availableVirtual = 123456789, s.availableExtended = 0;
  return s;
}

// The document of SampleRecord with SMA "SMA-77" and KnownSystem, as it
// must be written, byte for byte.
constexpr char kExpectedDocument[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
    "<MARLOWEN_CRASH_REPORT Version=\"1.0\"><SMA>SMA-77</SMA><CRASH_REPORT>"
    "<ID>App_20260102030405_100_101</ID><EXCEPTION_TYPE>Access Violation</EXCEPTION_TYPE>"
    "<CRASH_ADDRESS>0x401000</CRASH_ADDRESS><MODULE_NAME>/opt/app/libcore.so</MODULE_NAME>"
    "<CREATION_TIME>2026-01-02 03:04:05</CREATION_TIME>"
    "<CRASHED_PROCESS><FILE_NAME>/opt/app/bin/app</FILE_NAME>"
    "<COMMAND_LINE>/opt/app/bin/app --title \"&lt;a &amp; b&gt;\"</COMMAND_LINE>"
    "<FILE_VERSION>2.3.4.5</FILE_VERSION><PRODUCT_VERSION>2.3.0.0</PRODUCT_VERSION>"
    "<HANDLE_COUNT>41</HANDLE_COUNT><THREAD_COUNT>4</THREAD_COUNT>"
    "<PROCESS_MEMORY><PAGE_FAULT_COUNT>1234</PAGE_FAULT_COUNT>"
    "<PEAK_WORKING_SET_SIZE>-1073741824</PEAK_WORKING_SET_SIZE><WORKING_SET_SIZE>20000000</WORKING_SET_SIZE>"
    "<QUOTA_PEAK_PAGED_POOL_USAGE>0</QUOTA_PEAK_PAGED_POOL_USAGE><QUOTA_PAGED_POOL_USAGE>0</QUOTA_PAGED_POOL_USAGE>"
    "<QUOTA_PEAK_NON_PAGED_POOL_USAGE>8192</QUOTA_PEAK_NON_PAGED_POOL_USAGE>"
    "<QUOTA_NON_PAGED_POOL_USAGE>4096</QUOTA_NON_PAGED_POOL_USAGE>"
    "<PAGE_FILE_USAGE>-1</PAGE_FILE_USAGE><PEAK_PAGE_FILE_USAGE>30000000</PEAK_PAGE_FILE_USAGE>"
    "</PROCESS_MEMORY></CRASHED_PROCESS>"
    "<SYSTEM><OS>Debian GNU/Linux 12 (bookworm), Linux 6.1.0</OS>"
    "<PROCESSOR_OEM_ID>AMD64</PROCESSOR_OEM_ID><PROCESSOR_ARCHITECTURE>AMD64</PROCESSOR_ARCHITECTURE>"
    "<PROCESSOR_LEVEL>6</PROCESSOR_LEVEL><PROCESSOR_REVISION>21767</PROCESSOR_REVISION>"
    "<PROCESSOR_COUNT>2</PROCESSOR_COUNT><PROCESSOR_MASK>-1</PROCESSOR_MASK><PAGE_SIZE>4096</PAGE_SIZE>"
    "</SYSTEM><SYSTEM_MEMORY><LOAD>57%</LOAD>"
    "<TOTAL_PHYSICAL>-1073741824</TOTAL_PHYSICAL><AVAILABLE_PHYSICAL>1073741824</AVAILABLE_PHYSICAL>"
    "<TOTAL_COMMITTED>0</TOTAL_COMMITTED><AVAILABLE_COMMITTED>0</AVAILABLE_COMMITTED>"
    "<TOTAL_VIRTUAL>-4096</TOTAL_VIRTUAL><AVAILABLE_VIRTUAL>123456789</AVAILABLE_VIRTUAL>"
    "<AVAILABLE_EXTENDED>0</AVAILABLE_EXTENDED></SYSTEM_MEMORY>"
    "</CRASH_REPORT></MARLOWEN_CRASH_REPORT>";

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
  AddCrashElements(crashReport, Utf8ToWide(kName), packaging_test::SampleRecord(Utf8ToWide(kName)));
  AddSystemElements(crashReport, KnownSystem());

  std::string text;
  ASSERT_TRUE(SerializeXmlDocument(document.get(), text));
  EXPECT_EQ(text, kExpectedDocument);
}

TEST(XmlDomTest, FindsBeforeCreatingAndKeepsTheDocumentWritable) {
  XmlDocumentPtr document;
  ASSERT_TRUE(CreateXmlDocument(document));
  xercesc::DOMElement* root = nullptr;
  xercesc::DOMElement* element = nullptr;
  ASSERT_NE(CreateRootElement(root, document.get(), u"R", u""), nullptr);
  EXPECT_EQ(CreateRootElement(element, document.get(), u"S", u""), nullptr) << "a document has one root";
  EXPECT_EQ(AddChildElement(element, root, u"no spaces", u""), nullptr);
  EXPECT_EQ(SetChildText(element, nullptr, u"A", XmlValue(WideString(u"x")), false), nullptr);

  xercesc::DOMElement* first = nullptr;
  SetChildText(first, root, u"A", XmlValue(WideString(u"old")), false);
  SetChildText(element, root, u"A", XmlValue(std::uint64_t{5ull << 32 | 7}), true);
  EXPECT_EQ(first, element) << "the existing child is reused";
  // Numeric decides the conversion, not the value's type.
  SetChildText(element, root, u"B", XmlValue(WideString(u"4294967295")), true);
  SetChildText(element, root, u"C", XmlValue(std::uint32_t{0xFFFFFFFF}), false);
  // Characters that XML 1.0 cannot carry must not make the document unsavable.
  SetChildText(element, root, u"D", XmlValue(WideString(u"a\u0001b\uFFFEc\xD800")), false);

  std::string serialized;
  ASSERT_TRUE(SerializeXmlDocument(document.get(), serialized));
  EXPECT_EQ(serialized,
            "<?xml version=\"1.0\" encoding=\"utf-8\"?><R><A>7</A><B>-1</B><C>4294967295</C>"
            "<D>a\xEF\xBF\xBD" "b\xEF\xBF\xBD" "c\xEF\xBF\xBD</D></R>");
}

class WriteReportXmlTest : public ::testing::Test {
 protected:
  std::string FilePath(const std::string& name, const char* extension) const {
    return folder_ + "/" + name + "." + extension;
  }
  bool Write(const std::string& name, const CrashReportSettingsT& settings = CrashReportSettingsT()) {
    return WriteReportXml(PathBuffer::FromUtf8(folder_), settings, Utf8ToWide(name));
  }

  testing_support::TestRoot root_;
  const std::string folder_ = root_.ReportFolder();
};

TEST_F(WriteReportXmlTest, WritesEveryElementInOrderAndDeletesTheRecord) {
  ASSERT_TRUE(WriteCapturedReport(folder_, kName, {1, 2, 3}));
  CrashReportSettingsT settings;
  settings.smaNumber = u"SMA-77";
  ASSERT_TRUE(Write(kName, settings));

  EXPECT_FALSE(PathExists(FilePath(kName, "dat")));
  struct stat info {};
  ASSERT_EQ(stat(FilePath(kName, "xml").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);

  // Both read by python3's parser: the same elements in the same order, and
  // the same values but the machine's.
  testing_support::WriteFileText(root_.Path("expected.xml"), kExpectedDocument);
  const packaging_test::CommandResult actual = FlattenXml(FilePath(kName, "xml"));
  ASSERT_EQ(actual.exitCode, 0);
  const std::vector<std::string> lines = Lines(actual.output);
  const std::vector<std::string> expected = Lines(FlattenXml(root_.Path("expected.xml")).output);
  ASSERT_EQ(lines.size(), expected.size());

  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::size_t equals = expected[i].find('=');
    if (expected[i].find("/SYSTEM") == std::string::npos || equals == std::string::npos) {
      EXPECT_EQ(lines[i], expected[i]);
    } else {  // the machine's own figure under the same element
      EXPECT_EQ(lines[i].substr(0, equals + 1), expected[i].substr(0, equals + 1));
      EXPECT_GT(lines[i].size(), equals + 1) << lines[i];
    }
  }
  const SystemInformationT now;
  EXPECT_NE(actual.output.find("/SYSTEM/OS=" + WideToUtf8(now.os) + "\n"), std::string::npos);
  EXPECT_NE(actual.output.find("/TOTAL_PHYSICAL=" + WideToUtf8(NumberText(now.totalPhysical)) + "\n"),
            std::string::npos);
}

TEST_F(WriteReportXmlTest, AVersion1RecordAndNoCustomerNumber) {
  testing_support::MakeFolders(folder_);
  // Version word, six texts (no crash address), the file name, the time and
  // eleven counters.
  std::vector<std::uint8_t> record = {1, 0, 0, 0};
  for (const std::string value : {kName, "AV", "mod", "cmd", "1.0.0.0", "1.0.0.0", "/bin/x"}) {
    for (int shift = 0; shift < 32; shift += 8) record.push_back(static_cast<std::uint8_t>(value.size() >> shift));
    record.insert(record.end(), value.begin(), value.end());
  }
  record.insert(record.end(), 8 + 11 * 4, 0);
  testing_support::WriteFileBytes(FilePath(kName, "dat"), record);

  ASSERT_TRUE(Write(kName));
  const std::vector<std::string> lines = Lines(FlattenXml(FilePath(kName, "xml")).output);
  ASSERT_GE(lines.size(), 9u);
  EXPECT_EQ(lines[2], "/MARLOWEN_CRASH_REPORT/SMA=") << "present and empty";
  EXPECT_EQ(lines[5], "/MARLOWEN_CRASH_REPORT/CRASH_REPORT/EXCEPTION_TYPE=AV");
  EXPECT_EQ(lines[6], "/MARLOWEN_CRASH_REPORT/CRASH_REPORT/CRASH_ADDRESS=");
  EXPECT_EQ(lines[8], "/MARLOWEN_CRASH_REPORT/CRASH_REPORT/CREATION_TIME=1601-01-01 00:00:00");
}

// Someone holds the document file open (a File keeps a share lock); the
// writer retries for about three seconds, and the record stays if it gives up.
TEST_F(WriteReportXmlTest, AHeldDocumentIsWaitedForAboutThreeSeconds) {
  for (const auto& [name, seconds, saved] : {std::tuple{"Held2", 2, true}, std::tuple{"Held4", 4, false}}) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(WriteCapturedReport(folder_, name, {1}));
    File holder(PathBuffer::FromUtf8(FilePath(name, "xml")));
    ASSERT_TRUE(holder.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, false, 0x80));
    std::thread release([&holder, seconds = seconds] {
      std::this_thread::sleep_for(std::chrono::seconds(seconds));
      holder.Close();
    });
    EXPECT_EQ(Write(name), saved);
    release.join();
    EXPECT_EQ(PathExists(FilePath(name, "dat")), !saved);
    EXPECT_EQ(ReadFileText(FilePath(name, "xml")).empty(), !saved) << "the holder's file is left as it was";
  }
}

}  // namespace
}  // namespace Marlowen
