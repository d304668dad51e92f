// Helpers of the dialog tests: a handler that records what reaches it, and a
// way to act on a modal dialog while it is up.
#pragma once

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

// Records every virtual call as "<name>:<event>", and PSM notices that
// reach it through OnOtherMessage as "<name>:PSM_CHANGED" and
// "<name>:PSM_UNCHANGED". Answers of OnOk and OnCancel can be set.
class RecordingHandler : public DialogHandlerBase {
 public:
  RecordingHandler(std::string name, EventLog* log) : name_(std::move(name)), log_(log) {}

  bool okAnswer = true;
  bool cancelAnswer = true;
  // Runs inside OnInit, after it is logged.
  std::function<void(HWND)> onInit;
  // Runs for every WM_TIMER, after it is logged as "<name>:WM_TIMER <id>".
  std::function<void(HWND, UINT_PTR)> onTimer;
  // The header and link of the last WM_NOTIFY.
  NMHDR lastHeader{};
  LITEM lastLink{};

  bool Modified() const { return modified; }
  HWND Handle() const { return handle; }

  void OnInit() override;
  void OnDestroy() override;
  INT_PTR OnCommand(WORD notifyCode, WORD controlId, HWND control) override;
  INT_PTR OnNotify(WORD wParamHigh, WORD wParamLow, NMHDR* header) override;
  INT_PTR OnOtherMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;
  bool OnOk() override;
  bool OnCancel() override;

  void Log(const std::string& event) { log_->push_back(name_ + ":" + event); }

 private:
  std::string name_;
  EventLog* log_;
};

// Shows the template modal with handler, runs action once the dialog's loop
// runs, and answers DialogBoxIndirectParamW's result. Should the dialog still
// be up 10 seconds later, it is ended with kWatchdogResult.
INT_PTR RunDialog(const DialogTemplate& dialogTemplate, DialogHandlerBase& handler,
                  std::function<void(HWND dialog)> action, HWND owner = nullptr,
                  DLGPROC procedure = DialogProcedure);

// Lets the event loop run until condition holds or 5 seconds passed;
// answers the condition.
bool WaitFor(const std::function<bool()>& condition);

// Lets the event loop run for that long.
void RunEventsFor(int milliseconds);

// The dialog that is modal now, or null.
HWND ActiveDialog();

// A small template with one control of each kind, laid out on a 200 by 120
// dialog-unit client area.
const DialogTemplate& SampleTemplate();

// Ids of the sample template.
enum SampleId {
  kText = 100,
  kCheck = 101,
  kRadioA1 = 102,
  kRadioA2 = 103,
  kRadioB1 = 104,
  kRadioB2 = 105,
  kEdit = 106,
  kProgress = 107,
  kLink = 108,
  kHiddenText = 109,
  kPlaceholder = 110,
  kApply = 111,
};

}  // namespace dialog_test
