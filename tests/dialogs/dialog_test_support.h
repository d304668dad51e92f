// Helpers of the dialog tests: a handler that records what reaches it, and a
// way to act on a modal dialog while it is up.
#pragma once

#include <QTimer>
#include <functional>
#include <string>
#include <vector>

#include "dialogs/dialog_box.h"
#include "dialogs/dialog_handler_base.h"
#include "dialogs/dialog_procedure.h"
#include "dialogs/dialog_template.h"
#include "dialogs/window_api.h"

namespace dialog_test {

// Result that the watchdog ends a dialog with when a test forgot to.
inline constexpr INT_PTR kWatchdogResult = 99;

// One line per event, in order, in a log shared by several handlers.
using EventLog = std::vector<std::string>;

// Logs every virtual call as "<name>:<event>", PSM notices reaching it as
// "<name>:PSM_CHANGED" / "<name>:PSM_UNCHANGED", timers as "<name>:WM_TIMER <id>".
class RecordingHandler : public DialogHandlerBase {
 public:
  RecordingHandler(std::string name, EventLog* log) : name_(std::move(name)), log_(log) {}

  bool okAnswer = true;
  bool cancelAnswer = true;
  std::function<void(HWND)> onInit;             // runs inside OnInit
  std::function<void(HWND, UINT_PTR)> onTimer;  // runs for every WM_TIMER
  // Runs for every link notice, after it is logged.
  std::function<void(NMHDR*)> onNotify;
  NMHDR lastHeader{};
  LITEM lastLink{};

  bool Modified() const { return modified; }

  void OnInit() override {
    Log("OnInit");
    if (onInit) onInit(handle);
  }
  void OnDestroy() override { Log("OnDestroy"); }
  INT_PTR OnCommand(WORD notifyCode, WORD controlId, HWND control) override {
    Log("OnCommand " + std::to_string(controlId) + " " + std::to_string(notifyCode));
    return DialogHandlerBase::OnCommand(notifyCode, controlId, control);
  }
  INT_PTR OnNotify(WORD wParamHigh, WORD wParamLow, NMHDR* header) override;
  INT_PTR OnSize(WPARAM type, WORD height, WORD width) override {
    Log("OnSize " + std::to_string(type) + " " + std::to_string(height) + " " + std::to_string(width));
    return DialogHandlerBase::OnSize(type, height, width);
  }
  INT_PTR OnOtherMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;
  bool OnOk() override {
    Log("OnOk");
    return okAnswer;
  }
  bool OnCancel() override {
    Log("OnCancel");
    return cancelAnswer;
  }

  void Log(const std::string& event) { log_->push_back(name_ + ":" + event); }

 private:
  std::string name_;
  EventLog* log_;
};

// Acts on the first modal dialog other than notThis that comes up after
// construction, while the caller is blocked in the call that shows it. A
// dialog still up 10 seconds after it came is ended with kWatchdogResult.
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

// Shows the template modal with handler and owner, acts on it as
// WhenDialogShows does, and answers the dialog's result.
INT_PTR RunDialog(const DialogTemplate& dialogTemplate, DialogHandlerBase& handler,
                  std::function<void(HWND dialog)> action, HWND owner = nullptr, DLGPROC procedure = DialogProcedure);

// Runs the event loop until condition holds (true) or 5 seconds passed.
bool WaitFor(const std::function<bool()>& condition);
void RunEventsFor(int milliseconds);


// One control of each kind on a 200 by 120 dialog-unit client area.
const DialogTemplate& SampleTemplate();

enum SampleId {
  kText = 100,
  kCheck,
  kRadioA1,
  kRadioA2,
  kRadioB1,
  kRadioB2,
  kEdit,
  kProgress,
  kLink,
  kHiddenText,
  kApply = 111
};

}  // namespace dialog_test
