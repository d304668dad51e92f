// The report document, <report name>.xml: the facts of the crash record
// (.dat), the customer number of the settings and the machine, as the
// maker reads them first.
//
// Root MARLOWEN_CRASH_REPORT with the attribute Version "1.0"; elements in
// a fixed order; every number goes through NumberText (low 32 bits,
// signed), 64-bit memory sizes included, so 3 GiB reads -1073741824 and
// 8 GiB reads 0. CREATION_TIME is the record's UTC time, unmarked.
#pragma once

#include <xercesc/dom/DOMElement.hpp>

#include "packaging/system_information.h"
#include "shell/wide_string.h"
#include "store/crash_report_settings.h"
#include "store/crashed_module.h"
#include "store/file_time.h"
#include "store/path_buffer.h"

namespace Marlowen {

// Reads <reportFolder>/<reportName>.dat, writes <reportFolder>/<reportName>.xml
// and, once that is saved, deletes the .dat (a failed delete is a warning
// and changes nothing). True if the document is on disk. A missing or
// unreadable record is reported by the record's own messages and leaves no
// document; a document that cannot be saved leaves the .dat for a later try.
[[nodiscard]] bool WriteReportXml(const PathBuffer& reportFolder, const CrashReportSettingsT& settings,
                                  const WideString& reportName);

// The steps of the document below CRASH_REPORT, as WriteReportXml takes
// them: ID to CREATION_TIME, then CRASHED_PROCESS with PROCESS_MEMORY.
void AddCrashElements(xercesc::DOMElement* crashReport, const WideString& reportName,
                      const CrashedModuleT& record);
// SYSTEM and SYSTEM_MEMORY.
void AddSystemElements(xercesc::DOMElement* crashReport, const SystemInformationT& system);

// "%d-%02d-%02d %02d:%02d:%02d" of the time in UTC; a time beyond the
// calendar reads as all zeros.
WideString FormatCreationTime(const FILETIME& time);

}  // namespace Marlowen
