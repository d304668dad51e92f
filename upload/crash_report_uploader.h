// Marlowen::CrashReportUploader: the one class through which the tool moves
// a crash report from the report folder to the upload server.
//
// An uploader is built on the caller's stack for one operation and dropped
// afterwards; the state of an upload is the set of files in the report
// folder. Everything runs on the caller's thread, the status callback too.
// Failures are boolean results with a log line at each level.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"
#include "store/crash_report_settings.h"
#include "store/folder_search.h"
#include "store/path_buffer.h"

namespace Marlowen {

// The steps that the status callback is told of, in the order a report that
// goes through sees them. The numbers are fixed: the dialogs map them to
// their words and count seven steps per report.
enum UploadStatus : std::uint32_t {
  UploadStatusError = 0,
  UploadStatusCreatingZip = 1,
  UploadStatusContactingServer = 2,
  UploadStatusPreparingXml = 3,
  UploadStatusOpeningConnection = 4,
  UploadStatusPreparingHeaders = 5,
  UploadStatusSendingData = 6,
  UploadStatusSuccess = 7,
};

// reportId is valid for the duration of the call only. Called on the
// uploader's thread; a null callback means nobody is told.
using UploadStatusCallback = void (*)(const WideString& reportId, std::uint32_t status,
                                      void* callbackData);

class CrashReportUploader {
 public:
  // Both may be null. Copies the report folder, reads the settings from
  // their file in that folder (a missing or unreadable file leaves the
  // defaults, no failure) and makes sure the XML parser is ready.
  CrashReportUploader(UploadStatusCallback statusCallback, void* callbackData);
  virtual ~CrashReportUploader();
  CrashReportUploader(const CrashReportUploader&) = delete;
  CrashReportUploader& operator=(const CrashReportUploader&) = delete;

  // --- Upload chain: packages a report if needed and posts it. Defined
  // together with server discovery and the post. ---
  // True only when the server took the report.
  [[nodiscard]] bool SendReport(const WideString& reportName);
  // True when at least one pending report went out.
  [[nodiscard]] bool SendAllReports();

  // --- Finding and packaging reports. ---
  // Clears the list, then the "*.dmp" files of the report folder followed by
  // its "*.zip" files, each in listing order: one entry per pending file.
  void FindPendingReports(PathList& reports) const;
  // Clears the list, then every plain file of the report folder whose name
  // begins with reportName (prefix match, case ignored), so the files of a
  // report whose name continues this one are taken too.
  void FindReportFiles(PathList& files, const WideString& reportName) const;

  const PathBuffer& ReportFolderPath() const { return reportFolder_; }
  const CrashReportSettingsT& Settings() const { return settings_; }

 private:
  // Lets the tests drive the private steps before the upload chain exists
  // to call them.
  friend class CrashReportUploaderPeer;

  // Turns the report's .dat into its .xml, zips every file of the report
  // into zipPath and deletes all but zip files. False, with the report's
  // files left in place, if the XML or the zip could not be made.
  bool PackageReport(const WideString& reportName, const PathBuffer& zipPath);
  // <reportFolder>/<reportName>.xml from the .dat, the settings and this
  // machine; the .dat is deleted once the document is saved.
  bool WriteReportXml(const WideString& reportName);

  PathBuffer reportFolder_;
  CrashReportSettingsT settings_;
  UploadStatusCallback statusCallback_ = nullptr;
  void* callbackData_ = nullptr;
};

}  // namespace Marlowen
