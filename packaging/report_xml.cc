#include "packaging/report_xml.h"

#include "packaging/xml_dom.h"
#include "platform/system_time.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "store/path_helpers.h"

namespace Marlowen {
namespace {

namespace xc = xercesc;

constexpr char16_t kNoNamespace[] = u"";

// Results of single text steps are not looked at: a failed one leaves its
// element missing or empty, and the document goes on.
void Text(xc::DOMElement* parent, const char16_t* name, const WideString& value) {
  xc::DOMElement* element = nullptr;
  SetChildText(element, parent, name, XmlValue(value), false);
}

void Number(xc::DOMElement* parent, const char16_t* name, std::uint32_t value) {
  xc::DOMElement* element = nullptr;
  SetChildText(element, parent, name, XmlValue(value), true);
}

// The 64-bit figures reach the conversion whole; the cut to 32 bits happens
// there, as for every number of the document.
void Number(xc::DOMElement* parent, const char16_t* name, std::uint64_t value) {
  xc::DOMElement* element = nullptr;
  SetChildText(element, parent, name, XmlValue(value), true);
}

PathBuffer ReportFilePath(const PathBuffer& reportFolder, const WideString& reportName,
                          const char16_t* extension) {
  return PathBuffer(FormatString(u"%s/%s.%s", reportFolder.c_str(), reportName.c_str(), extension));
}

}  // namespace

WideString FormatCreationTime(const FILETIME& time) {
  platform::SystemTime calendar{};
  FileTimeToSystemTime(time, calendar);
  return FormatString(u"%d-%02d-%02d %02d:%02d:%02d", calendar.year, calendar.month, calendar.day,
                      calendar.hour, calendar.minute, calendar.second);
}

void AddCrashElements(xc::DOMElement* crashReport, const WideString& reportName,
                      const CrashedModuleT& record) {
  Text(crashReport, u"ID", reportName);
  Text(crashReport, u"EXCEPTION_TYPE", record.exceptionType);
  Text(crashReport, u"CRASH_ADDRESS", record.crashAddress);
  Text(crashReport, u"MODULE_NAME", record.moduleName);
  Text(crashReport, u"CREATION_TIME", FormatCreationTime(record.creationTime));

  xc::DOMElement* process = nullptr;
  if (!AddChildElement(process, crashReport, u"CRASHED_PROCESS", kNoNamespace)) return;
  Text(process, u"FILE_NAME", record.fileName.ToWide());
  Text(process, u"COMMAND_LINE", record.commandLine);
  Text(process, u"FILE_VERSION", record.fileVersion);
  Text(process, u"PRODUCT_VERSION", record.productVersion);
  Number(process, u"HANDLE_COUNT", record.handleCount);
  Number(process, u"THREAD_COUNT", record.threadCount);

  xc::DOMElement* memory = nullptr;
  if (!AddChildElement(memory, process, u"PROCESS_MEMORY", kNoNamespace)) return;
  Number(memory, u"PAGE_FAULT_COUNT", record.pageFaultCount);
  Number(memory, u"PEAK_WORKING_SET_SIZE", record.peakWorkingSetSize);
  Number(memory, u"WORKING_SET_SIZE", record.workingSetSize);
  Number(memory, u"QUOTA_PEAK_PAGED_POOL_USAGE", record.quotaPeakPagedPoolUsage);
  Number(memory, u"QUOTA_PAGED_POOL_USAGE", record.quotaPagedPoolUsage);
  Number(memory, u"QUOTA_PEAK_NON_PAGED_POOL_USAGE", record.quotaPeakNonPagedPoolUsage);
  Number(memory, u"QUOTA_NON_PAGED_POOL_USAGE", record.quotaNonPagedPoolUsage);
  Number(memory, u"PAGE_FILE_USAGE", record.pageFileUsage);
  Number(memory, u"PEAK_PAGE_FILE_USAGE", record.peakPageFileUsage);
}

void AddSystemElements(xc::DOMElement* crashReport, const SystemInformationT& system) {
  // The guard is CRASH_REPORT, not the new elements: texts for an element
  // that could not be made go nowhere, as SetChildText ignores a null parent.
  if (!crashReport) return;
  xc::DOMElement* systemElement = nullptr;
  AddChildElement(systemElement, crashReport, u"SYSTEM", kNoNamespace);
  Text(systemElement, u"OS", system.os);
  Text(systemElement, u"PROCESSOR_OEM_ID", system.processorOemId);
  Text(systemElement, u"PROCESSOR_ARCHITECTURE", system.processorArchitecture);
  Number(systemElement, u"PROCESSOR_LEVEL", system.processorLevel);
  Number(systemElement, u"PROCESSOR_REVISION", system.processorRevision);
  Number(systemElement, u"PROCESSOR_COUNT", system.processorCount);
  Number(systemElement, u"PROCESSOR_MASK", system.processorMask);
  Number(systemElement, u"PAGE_SIZE", system.pageSize);

  xc::DOMElement* memory = nullptr;
  AddChildElement(memory, crashReport, u"SYSTEM_MEMORY", kNoNamespace);
  Text(memory, u"LOAD", FormatString(u"%i%%", static_cast<int>(system.memoryLoad)));
  Number(memory, u"TOTAL_PHYSICAL", system.totalPhysical);
  Number(memory, u"AVAILABLE_PHYSICAL", system.availablePhysical);
  Number(memory, u"TOTAL_COMMITTED", system.totalCommitted);
  Number(memory, u"AVAILABLE_COMMITTED", system.availableCommitted);
  Number(memory, u"TOTAL_VIRTUAL", system.totalVirtual);
  Number(memory, u"AVAILABLE_VIRTUAL", system.availableVirtual);
  Number(memory, u"AVAILABLE_EXTENDED", system.availableExtended);
}

bool WriteReportXml(const PathBuffer& reportFolder, const CrashReportSettingsT& settings,
                    const WideString& reportName) {
  CrashedModuleT record(false);
  const PathBuffer recordPath = ReportFilePath(reportFolder, reportName, u"dat");
  if (!record.Load(recordPath)) return false;

  XmlDocumentPtr document;
  if (!CreateXmlDocument(document)) return false;
  xc::DOMElement* root = nullptr;
  if (!CreateRootElement(root, document.get(), u"MARLOWEN_CRASH_REPORT", kNoNamespace)) return false;
  SetRootAttribute(document.get(), u"Version", XmlValue(WideString(u"1.0")));
  Text(root, u"SMA", settings.smaNumber);

  xc::DOMElement* crashReport = nullptr;
  if (!AddChildElement(crashReport, root, u"CRASH_REPORT", kNoNamespace)) return false;
  AddCrashElements(crashReport, reportName, record);

  // The machine's figures are those of this moment, in the tool.
  const SystemInformationT system;
  AddSystemElements(crashReport, system);

  const PathBuffer documentPath = ReportFilePath(reportFolder, reportName, u"xml");
  const bool saved = SaveXmlDocument(document.get(), documentPath);
  if (saved && !Delete(recordPath)) {
    LogCrashReporting(kLogWarning,
                      FormatString(u"Cannot delete crash report infor file '%s'", recordPath.c_str()));
  }
  return saved;
}

}  // namespace Marlowen
