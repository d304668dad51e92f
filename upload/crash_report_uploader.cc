#include "upload/crash_report_uploader.h"

#include "packaging/report_xml.h"
#include "packaging/xml_platform.h"
#include "packaging/zip_package.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/string_helpers.h"
#include "store/path_helpers.h"
#include "store/report_folder.h"

namespace Marlowen {

CrashReportUploader::CrashReportUploader(UploadStatusCallback statusCallback, void* callbackData)
    : statusCallback_(statusCallback), callbackData_(callbackData) {
  ReportFolder(reportFolder_);
  // No settings file is no failure: the defaults stand.
  settings_.Load(PathBuffer());
  // The parser must be ready before the server's answer is read; a failure
  // shows there.
  (void)InitializeXmlPlatform();
}

CrashReportUploader::~CrashReportUploader() = default;

void CrashReportUploader::FindPendingReports(PathList& reports) const {
  FindFiles(reports, reportFolder_, u"*.dmp", false);
  PathList packages;
  FindFiles(packages, reportFolder_, u"*.zip", false);
  reports.insert(reports.end(), packages.begin(), packages.end());
}

void CrashReportUploader::FindReportFiles(PathList& files, const WideString& reportName) const {
  FindFiles(files, reportFolder_, FormatString(u"%s*", reportName.c_str()), false);
}

bool CrashReportUploader::WriteReportXml(const WideString& reportName) {
  return Marlowen::WriteReportXml(reportFolder_, settings_, reportName);
}

bool CrashReportUploader::PackageReport(const WideString& reportName, const PathBuffer& zipPath) {
  if (!WriteReportXml(reportName)) {
    LogCrashReporting(kLogError, FormatString(u"Cannot create crash report XML file (%s).", reportName.c_str()));
    return false;
  }
  // Taken after the document exists, so it is among the files.
  PathList files;
  FindReportFiles(files, reportName);
  if (!ZipReportFiles(zipPath, files)) {
    LogCrashReporting(kLogError, FormatString(u"Cannot create crash report ZIP file (%s).", reportName.c_str()));
    return false;
  }
  for (const PathBuffer& file : files) {
    PathBuffer extension;
    file.Extension(extension);
    if (ToUpperCopy(extension.View()) == u"ZIP") continue;
    if (!Delete(file)) {
      LogCrashReporting(kLogWarning, FormatString(u"Cannot delete crash report file '%s'", file.c_str()));
    }
  }
  return true;
}

}  // namespace Marlowen
