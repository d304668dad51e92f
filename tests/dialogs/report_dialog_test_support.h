// Helpers of the tests of the reporter's dialogs: a test machine with a
// report folder, recorders for message boxes, opened addresses and what the
// upload controls showed, and a way to act on a dialog that a mode opens.
#pragma once

#include <gtest/gtest.h>

#include <QObject>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "collector_process.h"
#include "dialog_test_support.h"
#include "dialogs/crash_report_resources.h"
#include "dialogs/window_api.h"
#include "shell/wide_string.h"
#include "test_root.h"

namespace report_dialog_test {

struct BoxCall {
  HWND owner = nullptr;
  WideString text;
  WideString caption;
  UINT type = 0;
};

// One repaint of the status line during an upload, with the bar's position.
struct ShownStep {
  WideString text;
  long position = 0;
  bool operator==(const ShownStep&) const = default;
};

// The seven steps of a report that goes through, the bar counting on from
// firstPosition.
std::vector<ShownStep> UploadSteps(const WideString& reportId, long firstPosition = 1);

// Records every repaint of a dialog's status line (control 1025) with the
// bar's position (control 1024). An upload blocks the dialog and repaints
// synchronously, so this is what the screen showed.
class StepRecorder : public QObject {
 public:
  explicit StepRecorder(HWND dialog);
  bool eventFilter(QObject* watched, QEvent* event) override;
  // The repaints that show a report id, without immediate repeats.
  std::vector<ShownStep> ReportSteps() const;
  // Runs at the first repaint that shows a report id.
  std::function<void()> onFirstStep;

 private:
  HWND status_;
  HWND bar_;
  std::vector<ShownStep> seen_;
};

using dialog_test::WhenDialogShows;

class ReportDialogTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // <report folder>/<name>.dmp and .dat as a crash leaves them.
  void AddReport(const std::string& name, std::uint32_t seed = 1);
  std::string InFolder(const std::string& name) const { return folder_ + "/" + name; }
  std::vector<std::string> FolderNames() const;
  // Starts the test collector and points the uploader at it.
  std::unique_ptr<upload_test::CollectorProcess> StartCollector();
  void SaveSettings(bool sendReports, bool askBeforeSending, const std::string& smaNumber);
  std::vector<std::uint8_t> SettingsBytes() const;

  // Answers of the message boxes, in order; IDOK once they run out.
  std::vector<int> boxAnswers;
  std::vector<BoxCall> boxes;
  std::function<void(const BoxCall&)> onBox;  // runs inside each box
  // Addresses handed to the desktop, which takes them all.
  std::vector<std::string> opened;
  std::function<void(const std::string&)> onOpen;

  testing_support::TestRoot root_;
  std::string folder_ = root_.ReportFolder();
};

// The settings file as the store lays it out, written by hand: version 1,
// dump level 3, the two flags, the number.
std::vector<std::uint8_t> SettingsFileBytes(bool sendReports, bool askBeforeSending, const std::string& smaNumber);

bool Visible(HWND dialog, int id);
bool Enabled(HWND dialog, int id);
bool Checked(HWND dialog, int id);
WideString Text(HWND dialog, int id);
void Click(HWND dialog, int id);                         // a real mouse click
void Type(HWND dialog, int id, const WideString& text);  // replaces the text by typing
// A link activation as the link control sends it.
void ActivateLink(HWND dialog, const char16_t* id, const char16_t* url = u"", UINT code = NM_CLICK);

// Saves a picture of the dialog as <build dir>/screenshots/<name>.png; the
// pictures kept in docs/screenshots are copies of these.
void SaveScreenshot(HWND dialog, const std::string& name);

std::string ExpectedKbAddress();

}  // namespace report_dialog_test
