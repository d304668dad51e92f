#include "upload/crash_report_uploader.h"

#include "packaging/report_xml.h"
#include "packaging/zip_package.h"
#include "platform/xml_platform.h"
#include "shell/application_name.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/string_helpers.h"
#include "store/path_helpers.h"
#include "store/report_folder.h"
#include "upload/server_discovery.h"
#include "upload/upload_progress.h"

namespace Marlowen {

namespace {

// The tool's own name: a report that begins with it is about a crash of the
// uploader itself and is never sent by it.

}  // namespace

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

bool CrashReportUploader::SendReport(const WideString& reportName) {
  if (reportName.starts_with(ApplicationName)) {
    LogCrashReporting(kLogError,
                      u"Cannot upload crash reports from the crash report uploader. Please send "
                      u"this report to Marlowen by email.");
    return false;
  }
  const UploadProgress progress{statusCallback_, callbackData_};
  progress.Report(reportName, UploadStatusCreatingZip);

  const PathBuffer zipPath =
      FormatString(u"%s/%s.zip", reportFolder_.c_str(), reportName.c_str());
  // A zip left by an earlier failed run is posted as it is.
  if (!Exists(zipPath) && !PackageReport(reportName, zipPath)) {
    LogCrashReporting(kLogError,
                      FormatString(u"Cannot create crash report zip file (%s).", reportName.c_str()));
    return false;
  }
  if (!UploadPackage(zipPath, progress)) {
    LogCrashReporting(kLogError, FormatString(u"Cannot upload crash report to Marlowen (%s).",
                                              reportName.c_str()));
    progress.Report(reportName, UploadStatusError);
    return false;
  }
  if (!Delete(zipPath)) {
    LogCrashReporting(kLogError,
                      FormatString(u"Cannot delete the crash report package '%s' Please delete it "
                                   u"manually or it will be re-uploaded to Marlowen.",
                                   zipPath.c_str()));
  }
  LogCrashReporting(kLogInformation, u"Crash report uploaded successfully.");
  return true;
}

bool CrashReportUploader::SendAllReports() {
  // The list is taken once: what appears or goes while sending is not seen.
  PathList reports;
  FindPendingReports(reports);
  bool anySent = false;
  for (const PathBuffer& report : reports) {
    PathBuffer name;
    report.BaseName(name, false);
    // One success makes the whole run a success; a failure does not stop it.
    if (SendReport(name.ToWide())) anySent = true;
  }
  return anySent;
}

}  // namespace Marlowen
