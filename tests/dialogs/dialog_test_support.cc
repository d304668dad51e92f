#include "dialog_test_support.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include "dialogs/dialog_environment.h"
#include "dialogs/qt_window_access.h"

namespace dialog_test {

namespace {

// The dialog that is modal now, or null.
HWND ActiveDialog() { return HandleFromWidget(QApplication::activeModalWidget()); }

}  // namespace

INT_PTR RecordingHandler::OnNotify(WORD wParamHigh, WORD wParamLow, NMHDR* header) {
  lastHeader = *header;
  if (header->code == NM_CLICK || header->code == NM_RETURN) lastLink = reinterpret_cast<NMLINK*>(header)->item;
  Log("OnNotify " + std::to_string(static_cast<int>(header->code)));
  if (onNotify) onNotify(header);
  return DialogHandlerBase::OnNotify(wParamHigh, wParamLow, header);
}

INT_PTR RecordingHandler::OnOtherMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == PSM_CHANGED) Log("PSM_CHANGED");
  if (message == PSM_UNCHANGED) Log("PSM_UNCHANGED");
  if (message == WM_TIMER) {
    Log("WM_TIMER " + std::to_string(wParam));
    if (onTimer) onTimer(window, wParam);
    return 1;
  }
  return DialogHandlerBase::OnOtherMessage(window, message, wParam, lParam);
}

WhenDialogShows::WhenDialogShows(std::function<void(HWND)> action, HWND notThis)
    : action_(std::move(action)), notThis_(notThis) {
  EnsureDialogApplication();
  QObject::connect(&poll_, &QTimer::timeout, [this] {
    HWND dialog = ActiveDialog();
    if (dialog == nullptr || dialog == notThis_ || !IsWindowVisible(dialog)) return;
    poll_.stop();
    seen_ = dialog;
    fired_ = true;
    watchdog_.start(10000);
    action_(dialog);
  });
  QObject::connect(&watchdog_, &QTimer::timeout, [this] { EndDialog(seen_, kWatchdogResult); });
  watchdog_.setSingleShot(true);
  poll_.start(10);
}

INT_PTR RunDialog(const DialogTemplate& dialogTemplate, DialogHandlerBase& handler,
                  std::function<void(HWND dialog)> action, HWND owner, DLGPROC procedure) {
  if (!EnsureDialogApplication()) return -2;
  WhenDialogShows act(std::move(action), owner);
  return DialogBoxIndirectParamW(nullptr, &dialogTemplate, owner, procedure, HandlerParam(&handler));
}

bool WaitFor(const std::function<bool()>& condition) {
  QDeadlineTimer deadline(5000);
  while (!condition()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  }
  return true;
}

void RunEventsFor(int milliseconds) {
  QDeadlineTimer deadline(milliseconds);
  while (!deadline.hasExpired()) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}


const DialogTemplate& SampleTemplate() {
  static const DialogTemplate sample{
      .id = 9001,
      .caption = u"Sample dialog",
      .exStyle = WS_EX_TOPMOST,
      .cx = 200,
      .cy = 120,
      .controls =
          {
              {ControlKind::kStaticText, kText, u"Static text", 7, 7, 120, 10},
              {ControlKind::kCheckBox, kCheck, u"Check", 7, 20, 60, 10, WS_VISIBLE | WS_TABSTOP},
              {ControlKind::kRadioButton, kRadioA1, u"A1", 7, 32, 40, 10, WS_VISIBLE | WS_GROUP | WS_TABSTOP},
              {ControlKind::kRadioButton, kRadioA2, u"A2", 50, 32, 40, 10},
              {ControlKind::kRadioButton, kRadioB1, u"B1", 7, 44, 40, 10, WS_VISIBLE | WS_GROUP | WS_TABSTOP},
              {ControlKind::kRadioButton, kRadioB2, u"B2", 50, 44, 40, 10},
              {ControlKind::kEdit, kEdit, u"", 7, 56, 100, 14, WS_VISIBLE | WS_GROUP | WS_TABSTOP | ES_AUTOHSCROLL},
              {ControlKind::kProgressBar, kProgress, u"", 7, 74, 186, 11, WS_VISIBLE | WS_BORDER},
              {ControlKind::kLink, kLink,
               u"See <A ID=\"idFirst\" HREF=\"http://a.example/x\">first</A> or "
               u"<A ID=\"idSecond\">second</A>",
               110, 7, 85, 10, WS_VISIBLE | WS_TABSTOP},
              {ControlKind::kStaticText, kHiddenText, u"Hidden", 110, 20, 80, 10, 0},
              {ControlKind::kGroupBox, -1, u"Group", 105, 44, 90, 26},
              {ControlKind::kPushButton, kApply, u"Apply", 7, 100, 50, 14, WS_VISIBLE | WS_TABSTOP},
              {ControlKind::kDefPushButton, IDOK, u"OK", 85, 100, 50, 14, WS_VISIBLE | WS_TABSTOP},
              {ControlKind::kPushButton, IDCANCEL, u"Cancel", 143, 100, 50, 14, WS_VISIBLE | WS_TABSTOP},
          },
  };
  return sample;
}

}  // namespace dialog_test
