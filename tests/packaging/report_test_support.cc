#include "report_test_support.h"

#include <algorithm>
#include <cstring>

#include "platform/system_time.h"
#include "run_command.h"
#include "store/file_time.h"
#include "test_root.h"

namespace packaging_test {

Marlowen::CrashedModuleT SampleRecord(const WideString& reportName) {
  Marlowen::CrashedModuleT record(false);
  record.reportName = reportName;
  record.exceptionType = u"Access Violation";
  record.crashAddress = u"0x401000";
  record.moduleName = u"/opt/app/libcore.so";
  record.commandLine = u"/opt/app/bin/app --title \"<a & b>\"";
  record.fileVersion = u"2.3.4.5", record.productVersion = u"2.3.0.0";
  record.fileName = u"/opt/app/bin/app";
  platform::SystemTime time{};
  time.year = 2026, time.month = 1, time.day = 2, time.hour = 3, time.minute = 4, time.second = 5;
  Marlowen::SystemTimeToFileTime(time, record.creationTime);
  record.handleCount = 41, record.threadCount = 4, record.pageFaultCount = 1234;
  record.peakWorkingSetSize = 0xC0000000u;  // 3 GiB: reads negative
  record.workingSetSize = 20'000'000;
  record.quotaPeakPagedPoolUsage = record.quotaPagedPoolUsage = 0;
  record.quotaPeakNonPagedPoolUsage = 8192, record.quotaNonPagedPoolUsage = 4096;
  record.pageFileUsage = 0xFFFFFFFFu;  // saturated: reads -1
  record.peakPageFileUsage = 30'000'000;
  return record;
}

bool WriteCapturedReport(const std::string& folder, const std::string& name,
                         const std::vector<std::uint8_t>& dumpBytes) {
  testing_support::MakeFolders(folder);
  testing_support::WriteFileBytes(folder + "/" + name + ".dmp", dumpBytes);
  return SampleRecord(Utf8ToWide(name)).Save(Marlowen::PathBuffer::FromUtf8(folder + "/" + name + ".dat"));
}

std::vector<std::uint8_t> DumpLikeBytes(std::size_t size, std::uint32_t seed) {
  std::vector<std::uint8_t> bytes(size, 0);
  std::uint32_t state = seed | 1;
  auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 17;
    return state ^= state << 5;
  };
  static const char kText[] = "libcore.so /usr/lib/x86_64-linux-gnu/libc.so.6 Access Violation ";
  // Pages of zeros, of text, of pointers into a few mappings, and of noise.
  for (std::size_t begin = 0; begin < size; begin += 4096) {
    const std::size_t end = std::min(size, begin + 4096);
    const std::uint32_t kind = next() % 4;
    for (std::size_t i = begin; kind == 1 && i < end; ++i) bytes[i] = kText[(i + begin / 4096) % (sizeof(kText) - 1)];
    for (std::size_t i = begin; kind == 2 && i + 8 <= end; i += 8) {
      const std::uint64_t pointer = 0x00007F0000000000ull + (next() % 64) * 0x1000 + (next() % 512) * 8;
      std::memcpy(&bytes[i], &pointer, 8);
    }
    for (std::size_t i = begin; kind == 3 && i < end; ++i) bytes[i] = static_cast<std::uint8_t>(next());
  }
  return bytes;
}

CommandResult RunCommand(const std::vector<std::string>& argv) {
  std::string line;
  for (const std::string& arg : argv) {
    line += " '";
    for (char c : arg) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
    line += "'";
  }
  const testing_support::CommandResult result = testing_support::RunCommand(line);
  return {result.status, result.output};
}

CommandResult ListZip(const std::string& zipPath) {
  static const char kScript[] =
      "import sys, zipfile\n"
      "z = zipfile.ZipFile(sys.argv[1])\n"
      "bad = z.testzip()\n"
      "if bad: sys.exit('bad entry ' + bad)\n"
      "for i in sorted(z.infolist(), key=lambda i: i.filename):\n"
      "    print(i.filename, i.file_size, 'deflated' if i.compress_type == zipfile.ZIP_DEFLATED else 'other')\n";
  return RunCommand({"python3", "-c", kScript, zipPath});
}

std::vector<std::uint8_t> ExtractZipEntry(const std::string& zipPath, const std::string& entry) {
  static const char kScript[] =
      "import sys, zipfile\n"
      "sys.stdout.buffer.write(zipfile.ZipFile(sys.argv[1]).read(sys.argv[2]))\n";
  const CommandResult result = RunCommand({"python3", "-c", kScript, zipPath, entry});
  return std::vector<std::uint8_t>(result.output.begin(), result.output.end());
}

CommandResult FlattenXml(const std::string& xmlPath) {
  static const char kScript[] =
      "import sys, xml.dom.minidom\n"
      "doc = xml.dom.minidom.parse(sys.argv[1])\n"
      "root = doc.documentElement\n"
      "def walk(node, path):\n"
      "    kids = [c for c in node.childNodes if c.nodeType == c.ELEMENT_NODE]\n"
      "    text = ''.join(c.data for c in node.childNodes if c.nodeType == c.TEXT_NODE)\n"
      "    here = path + '/' + node.tagName\n"
      "    print(here + ('' if kids else '=' + text))\n"
      "    for c in kids: walk(c, here)\n"
      "for name, value in sorted(root.attributes.items()): print('@' + name + '=' + value)\n"
      "walk(root, '')\n";
  return RunCommand({"python3", "-c", kScript, xmlPath});
}

}  // namespace packaging_test
