// The dialog procedure and the handler classes, driven by real dialogs.
#include <gtest/gtest.h>

#include <QTest>
#include <QTimer>
#include <algorithm>

#include "dialog_test_support.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/message_box.h"
#include "dialogs/qt_window_access.h"
#include "dialogs/window_api.h"

namespace {

using dialog_test::EventLog;
using dialog_test::RecordingHandler;
using dialog_test::RunDialog;
using dialog_test::SampleTemplate;

// Messages and answers of DialogProcedure as the dialog manager saw them.
EventLog* g_procedureLog = nullptr;

std::string Hex(UINT value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", value);
  return text;
}

INT_PTR LoggingProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  INT_PTR answer = DialogProcedure(window, message, wParam, lParam);
  if (g_procedureLog != nullptr && message != WM_TIMER) {
    g_procedureLog->push_back("proc " + Hex(message) + "=" + std::to_string(answer));
  }
  return answer;
}

class DialogProcedureTest : public testing::Test {
 protected:
  void SetUp() override { g_procedureLog = &log; }
  void TearDown() override { g_procedureLog = nullptr; }
  EventLog log;
};

TEST_F(DialogProcedureTest, LifecycleInOrder) {
  HWND seen = nullptr;
  {
    RecordingHandler handler("dlg", &log);
    handler.onInit = [&](HWND window) {
      // Bound: the window's user data holds the handler while OnInit runs.
      EXPECT_EQ(GetWindowLongPtrW(window, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&handler));
      EXPECT_EQ(handler.GetHandle(), window);
      EXPECT_EQ(GetParent(window), nullptr);
    };
    INT_PTR result = RunDialog(SampleTemplate(), handler, [&](HWND window) {
      seen = window;
      EXPECT_TRUE(IsWindowVisible(window));
      log.push_back("action");
      SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
    }, nullptr, LoggingProcedure);
    EXPECT_EQ(result, 1);
    EXPECT_FALSE(IsWindow(seen));
  }
  // The destructor's call on the ended window had nothing to act on.
  EXPECT_EQ(GetWindowLongPtrW(seen, GWLP_USERDATA), 0);
  EventLog expected = {
      // The font message comes before the handler is known: 0, no call.
      "proc 0x30=0",
      "dlg:OnInit",
      // WM_INITDIALOG ends in OnOtherMessage and answers 0.
      "proc 0x110=0",
      "action",
      "dlg:OnCommand 1 0",
      "dlg:OnOk",
      "proc 0x111=1",
      "dlg:OnDestroy",
      "proc 0x2=1",
  };
  EXPECT_EQ(log, expected);
}

TEST_F(DialogProcedureTest, EndedDuringInitTheDialogNeverShows) {
  RecordingHandler handler("dlg", &log);
  bool shown = false;
  handler.onInit = [&](HWND window) {
    handler.MarkModified(true);
    EndDialog(window, 4);
  };
  INT_PTR result = RunDialog(SampleTemplate(), handler, [&](HWND) { shown = true; }, nullptr, LoggingProcedure);
  EXPECT_EQ(result, 4);
  EXPECT_FALSE(shown);
  // WM_INITDIALOG answers 0 whatever OnInit did.
  EXPECT_EQ(log, (EventLog{"proc 0x30=0", "dlg:OnInit", "proc 0x110=0", "dlg:OnDestroy", "proc 0x2=1"}));
}

TEST_F(DialogProcedureTest, NoticesReachTheOwnerInOrder) {
  RecordingHandler outer("outer", &log);
  RecordingHandler inner("inner", &log);
  // A change notice during OnInit goes out, and still the dialog starts
  // unmodified, because the unchanged notice follows OnInit.
  inner.onInit = [&](HWND) { inner.MarkModified(true); };
  bool modifiedAfterInit = true;
  bool modifiedAfterOk = false;
  inner.okAnswer = false;
  INT_PTR innerResult = 0;
  RunDialog(SampleTemplate(), outer, [&](HWND outerWindow) {
    innerResult = RunDialog(SampleTemplate(), inner, [&](HWND innerWindow) {
      EXPECT_EQ(GetParent(innerWindow), outerWindow);
      modifiedAfterInit = inner.Modified();
      log.push_back("click OK");
      SendDlgItemMessageW(innerWindow, IDOK, BM_CLICK, 0, 0);
      modifiedAfterOk = inner.Modified();
      log.push_back("cancel");
      SendMessageW(innerWindow, WM_COMMAND, MAKEWPARAM(IDCANCEL, 0), 0);
    }, outerWindow);
    EndDialog(outerWindow, 7);
  });
  EXPECT_FALSE(modifiedAfterInit);
  EXPECT_TRUE(modifiedAfterOk);
  EXPECT_EQ(innerResult, 2);
  EventLog expected = {
      "outer:OnInit",
      "inner:OnInit",
      "outer:PSM_CHANGED",
      "outer:PSM_UNCHANGED",
      "click OK",
      // Marked modified first, the command after.
      "outer:PSM_CHANGED",
      "inner:OnCommand 1 0",
      "inner:OnOk",
      "cancel",
      "outer:PSM_CHANGED",
      "inner:OnCommand 2 0",
      "inner:OnCancel",
      "inner:OnDestroy",
      "outer:OnDestroy",
  };
  EXPECT_EQ(log, expected);
}

struct CommandCase {
  const char* name;
  WORD id;
  WORD code;
  bool okAnswer;
  bool cancelAnswer;
  INT_PTR procedureAnswer;    // of DialogProcedure itself
  LONG_PTR messageResult;     // DWLP_MSGRESULT afterwards; -5 stands for untouched
  INT_PTR dialogResult;       // 42: the dialog stayed open and the test ended it
  const char* handlerCalled;  // "OnOk", "OnCancel" or ""
};

void PrintTo(const CommandCase& c, std::ostream* out) { *out << c.name; }

class OkCancelRuleTest : public DialogProcedureTest, public testing::WithParamInterface<CommandCase> {};

TEST_P(OkCancelRuleTest, EndsOrStays) {
  const CommandCase& c = GetParam();
  RecordingHandler handler("dlg", &log);
  handler.okAnswer = c.okAnswer;
  handler.cancelAnswer = c.cancelAnswer;
  INT_PTR answer = -1;
  LONG_PTR messageResult = 0;
  INT_PTR result = RunDialog(SampleTemplate(), handler, [&](HWND window) {
    SetWindowLongPtrW(window, DWLP_MSGRESULT, -5);
    log.clear();
    answer = DialogProcedure(window, WM_COMMAND, MAKEWPARAM(c.id, c.code), 0);
    messageResult = GetWindowLongPtrW(window, DWLP_MSGRESULT);
    // A dialog that ended is hidden at once; one that stays is still up.
    if (IsWindowVisible(window)) EndDialog(window, 42);
  });
  EXPECT_EQ(answer, c.procedureAnswer);
  EXPECT_EQ(messageResult, c.messageResult);
  EXPECT_EQ(result, c.dialogResult);
  bool called = false;
  for (const std::string& line : log) called = called || line == std::string("dlg:") + c.handlerCalled;
  EXPECT_EQ(called, c.handlerCalled[0] != '\0');
}

INSTANTIATE_TEST_SUITE_P(
    Table, OkCancelRuleTest,
    testing::Values(CommandCase{"OkYes", IDOK, 0, true, true, 1, 1, 1, "OnOk"},
                    CommandCase{"OkNo", IDOK, 0, false, true, 0, 0, 42, "OnOk"},
                    CommandCase{"CancelYes", IDCANCEL, 0, true, true, 1, 1, 2, "OnCancel"},
                    CommandCase{"CancelNo", IDCANCEL, 0, true, false, 0, 0, 42, "OnCancel"},
                    // Only code 0 reaches the rule; an accelerator's OK does not.
                    CommandCase{"OkAccelerator", IDOK, 1, true, true, 0, -5, 42, ""},
                    CommandCase{"OkChange", IDOK, EN_CHANGE, true, true, 0, -5, 42, ""},
                    CommandCase{"OtherId", 3, 0, true, true, 0, -5, 42, ""}),
    [](const testing::TestParamInfo<CommandCase>& info) { return std::string(info.param.name); });

struct NoticeCase {
  WORD code;
  bool notice;
};

void PrintTo(const NoticeCase& c, std::ostream* out) { *out << "code " << c.code; }

class ModifiedNoticeTest : public DialogProcedureTest, public testing::WithParamInterface<NoticeCase> {};

TEST_P(ModifiedNoticeTest, OnlyClickAcceleratorAndChangeMarkModified) {
  RecordingHandler outer("outer", &log);
  RecordingHandler inner("inner", &log);
  bool modified = false;
  RunDialog(SampleTemplate(), outer, [&](HWND outerWindow) {
    RunDialog(SampleTemplate(), inner, [&](HWND innerWindow) {
      log.clear();
      SendMessageW(innerWindow, WM_COMMAND, MAKEWPARAM(dialog_test::kEdit, GetParam().code),
                   reinterpret_cast<LPARAM>(GetDlgItem(innerWindow, dialog_test::kEdit)));
      modified = inner.Modified();
      EndDialog(innerWindow, 0);
    }, outerWindow);
    EndDialog(outerWindow, 0);
  });
  EXPECT_EQ(modified, GetParam().notice);
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.front() == "outer:PSM_CHANGED", GetParam().notice);
  EXPECT_EQ(log[GetParam().notice ? 1 : 0],
            "inner:OnCommand " + std::to_string(dialog_test::kEdit) + " " + std::to_string(GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(Codes, ModifiedNoticeTest,
                         testing::Values(NoticeCase{BN_CLICKED, true}, NoticeCase{1, true},
                                         NoticeCase{EN_CHANGE, true}, NoticeCase{EN_SETFOCUS, false},
                                         NoticeCase{EN_KILLFOCUS, false}, NoticeCase{5, false}));

TEST_F(DialogProcedureTest, WithoutHandlerEverythingAnswersZero) {
  ASSERT_TRUE(EnsureDialogApplication());
  INT_PTR commandAnswer = -1;
  INT_PTR notifyAnswer = -1;
  QTimer::singleShot(0, [&] {
    HWND window = dialog_test::ActiveDialog();
    commandAnswer = DialogProcedure(window, WM_COMMAND, MAKEWPARAM(IDOK, 0), 0);
    NMHDR header{nullptr, 0, NM_CLICK};
    notifyAnswer = DialogProcedure(window, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&header));
    EndDialog(window, 3);
  });
  // No handler in lParam: the procedure never learns one.
  INT_PTR result = DialogBoxIndirectParamW(nullptr, &SampleTemplate(), nullptr, DialogProcedure, 0);
  EXPECT_EQ(result, 3);
  EXPECT_EQ(commandAnswer, 0);
  EXPECT_EQ(notifyAnswer, 0);
}

TEST_F(DialogProcedureTest, DispatchOfSizeAndUnknownMessages) {
  struct SizeHandler : RecordingHandler {
    using RecordingHandler::RecordingHandler;
    INT_PTR OnSize(WPARAM type, WORD height, WORD width) override {
      Log("OnSize " + std::to_string(type) + " " + std::to_string(height) + " " + std::to_string(width));
      return 17;
    }
  } handler("dlg", &log);
  INT_PTR sizeAnswer = 0;
  INT_PTR otherAnswer = -1;
  RunDialog(SampleTemplate(), handler, [&](HWND window) {
    sizeAnswer = DialogProcedure(window, WM_SIZE, 2, MAKELPARAM(300, 200));
    otherAnswer = DialogProcedure(window, WM_USER + 77, 0, 0);
    EXPECT_TRUE(handler.IsReady());
    EndDialog(window, 0);
  });
  EXPECT_EQ(sizeAnswer, 17);
  EXPECT_EQ(otherAnswer, 0);
  EXPECT_NE(std::find(log.begin(), log.end(), "dlg:OnSize 2 200 300"), log.end());
}

// The shape of an upload from a dialog: OK starts a one-shot timer and
// refuses to end; the timer's handler blocks while it works, then clicks OK
// itself, which now ends the dialog.
class TimerStartedWork : public RecordingHandler {
 public:
  using RecordingHandler::RecordingHandler;
  bool finished = false;
  int boxes = 0;

  bool OnOk() override {
    Log("OnOk");
    if (finished) return true;
    SetTimer(handle, 1, 100, nullptr);
    return false;
  }
  INT_PTR OnOtherMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override {
    if (message != WM_TIMER || wParam != 1) return RecordingHandler::OnOtherMessage(window, message, wParam, lParam);
    KillTimer(handle, 1);
    Log("work");
    SendDlgItemMessageW(handle, dialog_test::kProgress, PBM_SETRANGE32, 0, 7);
    for (int step = 1; step <= 7; ++step) SendDlgItemMessageW(handle, dialog_test::kProgress, PBM_SETPOS, step, 0);
    boxes += MessageBoxW(handle, u"Error reports successfully sent to Marlowen.", u"Marlowen Error Reporter",
                         MB_ICONINFORMATION) == IDOK;
    finished = true;
    SendMessageW(handle, WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(GetDlgItem(handle, IDOK)));
    return 1;
  }
};

class TimerStartedWorkTest : public DialogProcedureTest {
 protected:
  void SetUp() override {
    DialogProcedureTest::SetUp();
    SetMessageBoxHook([](HWND, const WideString&, const WideString&, UINT) { return IDOK; });
  }
  void TearDown() override {
    SetMessageBoxHook(nullptr);
    DialogProcedureTest::TearDown();
  }
};

TEST_F(TimerStartedWorkTest, OkWaitsForTheTimerThenEndsTheDialogItself) {
  TimerStartedWork handler("dlg", &log);
  INT_PTR result = RunDialog(SampleTemplate(), handler, [](HWND dialog) {
    QTest::mouseClick(WidgetFromHandle(GetDlgItem(dialog, IDOK)), Qt::LeftButton);
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(handler.boxes, 1);
  EventLog expected = {"dlg:OnInit", "dlg:OnCommand 1 0", "dlg:OnOk", "dlg:work", "dlg:OnCommand 1 0",
                       "dlg:OnOk", "dlg:OnDestroy"};
  EXPECT_EQ(log, expected);
}

TEST_F(TimerStartedWorkTest, CloseBoxWhileWaitingEndsWithCancelAndNothingRuns) {
  TimerStartedWork handler("dlg", &log);
  INT_PTR result = RunDialog(SampleTemplate(), handler, [](HWND dialog) {
    QTest::mouseClick(WidgetFromHandle(GetDlgItem(dialog, IDOK)), Qt::LeftButton);
    WidgetFromHandle(dialog)->close();
  });
  // Let a timer that outlived its window show itself.
  dialog_test::RunEventsFor(150);
  EXPECT_EQ(result, 2);
  EXPECT_EQ(handler.boxes, 0);
  EXPECT_EQ(std::count(log.begin(), log.end(), "dlg:work"), 0);
}

}  // namespace
