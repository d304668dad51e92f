// Helpers of the tests of the crash reporter's dialogs: a test machine with
// a report folder, recorders for message boxes, opened addresses and what
// the upload controls showed on screen, and a way to act on a dialog that a
// mode function opens.
#pragma once

#include <QObject>
#include <QTest>
#include <QTimer>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "collector_process.h"
#include "dialogs/window_types.h"
#include "shell/wide_string.h"
#include "test_root.h"

namespace report_dialog_test {

using CollectorProcessPtr = std::unique_ptr<upload_test::CollectorProcess>;

struct BoxCall {
  HWND owner = nullptr;
  WideString text;
  WideString caption;
  UINT type = 0;
};

// One repaint of the status line during an upload: its text and where the
// bar stood at that moment.
struct ShownStep {
  WideString text;
  long position = 0;
  bool operator==(const ShownStep&) const = default;
};

// Records every repaint of a dialog's status line (control 1025) with the
// bar's position (control 1024). Repaints happen synchronously while the
// upload blocks the dialog, so this is what the screen showed.
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

// Acts on the first modal dialog that comes up after construction (other
// than notThis), while the caller is blocked in the call that shows it.
// Should that dialog still be up 10 seconds after it came, it is ended with
// result 99.
class WhenDialogShows {
 public:
  explicit WhenDialogShows(std::function<void(HWND)> action, HWND notThis = nullptr);
  bool fired() const { return fired_; }

 private:
  std::function<void(HWND)> action_;
  HWND notThis_;
  HWND seen_ = nullptr;
  bool fired_ = false;
  QTimer poll_;
  QTimer watchdog_;
};

class ReportDialogTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // <report folder>/<name>.dmp and .dat as a crash leaves them.
  void AddReport(const std::string& name, std::uint32_t seed = 1);
  std::string InFolder(const std::string& name) const { return folder_ + "/" + name; }
  std::vector<std::string> FolderNames() const;
  // Starts the test collector and points the uploader at it.
  CollectorProcessPtr StartCollector();
  // Saves the settings file as bytes written out here: version 1, dump
  // level 3, the two flags, the number.
  void SaveSettings(bool sendReports, bool askBeforeSending, const std::string& smaNumber);
  std::vector<std::uint8_t> SettingsBytes() const;

  // Answers of the message boxes, in order; IDOK once they run out.
  std::vector<int> boxAnswers;
  std::vector<BoxCall> boxes;
  // Runs inside each message box, before it answers.
  std::function<void(const BoxCall&)> onBox;
  // Addresses handed to the desktop, and its answer.
  std::vector<std::string> opened;
  bool openAnswer = true;
  std::function<void(const std::string&)> onOpen;

  testing_support::TestRoot root_;
  std::string folder_ = root_.ReportFolder();
};

// The settings file as the store lays it out, written by hand.
std::vector<std::uint8_t> SettingsFileBytes(bool sendReports, bool askBeforeSending, const std::string& smaNumber);

// Control helpers over the layer's operations.
QWidget* Widget(HWND window);
bool Visible(HWND dialog, int id);
bool Enabled(HWND dialog, int id);
bool Checked(HWND dialog, int id);
WideString Text(HWND dialog, int id);
void Click(HWND dialog, int id);  // a real mouse click on the control
void Type(HWND dialog, int id, const WideString& text);  // replaces the text by typing

// Saves a picture of the dialog as <build dir>/screenshots/<name>.png; the
// pictures kept in docs/screenshots are copies of these.
void SaveScreenshot(HWND dialog, const std::string& name);

// Bytes of the test's own build of the knowledge-base address.
std::string ExpectedKbAddress();

}  // namespace report_dialog_test
