// The dialog procedure and the handler classes, driven by real dialogs.
#include <gtest/gtest.h>

#include <QFontMetrics>
#include <QTest>
#include <algorithm>

#include "dialog_test_support.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/qt_window_access.h"
#include "dialogs/window_api.h"

namespace {

using namespace dialog_test;

// Messages and answers of DialogProcedure as the dialog manager saw them.
EventLog* g_procedureLog = nullptr;

INT_PTR LoggingProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  INT_PTR answer = DialogProcedure(window, message, wParam, lParam);
  if (g_procedureLog != nullptr && message != WM_TIMER) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%X", message);
    g_procedureLog->push_back("proc " + std::string(hex) + "=" + std::to_string(answer));
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
    };
    INT_PTR result = RunDialog(
        SampleTemplate(), handler,
        [&](HWND window) {
          seen = window;
          log.push_back("action");
          SendMessageW(window, WM_SIZE, 2, MAKELPARAM(300, 200));
          SendMessageW(window, WM_USER + 77, 0, 0);
          SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
        },
        nullptr, LoggingProcedure);
    EXPECT_EQ(result, 1);
    EXPECT_FALSE(IsWindow(seen));
  }
  // The destructor's call on the ended window had nothing to act on.
  EXPECT_EQ(GetWindowLongPtrW(seen, GWLP_USERDATA), 0);
  // The font message comes before the handler is known: 0, no call.
  // WM_INITDIALOG ends in OnOtherMessage and answers 0.
  EventLog expected = {"proc 0x30=0",   "dlg:OnInit",   "proc 0x110=0",      "action",   "dlg:OnSize 2 200 300",
                       "proc 0x5=0",    "proc 0x44D=0", "dlg:OnCommand 1 0", "dlg:OnOk", "proc 0x111=1",
                       "dlg:OnDestroy", "proc 0x2=1"};
  EXPECT_EQ(log, expected);
}

TEST_F(DialogProcedureTest, WithoutHandlerEverythingAnswersZero) {
  ASSERT_TRUE(EnsureDialogApplication());
  INT_PTR commandAnswer = -1;
  INT_PTR notifyAnswer = -1;
  WhenDialogShows act([&](HWND window) {
    commandAnswer = DialogProcedure(window, WM_COMMAND, MAKEWPARAM(IDOK, 0), 0);
    NMHDR header{nullptr, 0, NM_CLICK};
    notifyAnswer = DialogProcedure(window, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&header));
    EndDialog(window, 3);
  });
  // No handler in lParam: the procedure never learns one.
  EXPECT_EQ(DialogBoxIndirectParamW(nullptr, &SampleTemplate(), nullptr, DialogProcedure, 0), 3);
  EXPECT_EQ(commandAnswer, 0);
  EXPECT_EQ(notifyAnswer, 0);
}

TEST_F(DialogProcedureTest, NestedDialogFromALinkNotifiesItsOwnerInOrder) {
  RecordingHandler outer("outer", &log);
  RecordingHandler inner("inner", &log);
  // A change notice during OnInit goes out, and still the dialog starts
  // unmodified, because the unchanged notice follows OnInit.
  inner.onInit = [&](HWND) { inner.MarkModified(true); };
  inner.okAnswer = false;
  bool modifiedAfterInit = true;
  bool modifiedAfterOk = false;
  INT_PTR innerResult = 0;
  // The nested loop runs inside the link's own mouse handling.
  outer.onNotify = [&](NMHDR*) {
    innerResult = RunDialog(
        SampleTemplate(), inner,
        [&](HWND innerWindow) {
          EXPECT_EQ(GetParent(innerWindow), outer.GetHandle());
          modifiedAfterInit = inner.Modified();
          log.push_back("click OK");
          QTest::mouseClick(WidgetFromHandle(GetDlgItem(innerWindow, IDOK)), Qt::LeftButton);
          modifiedAfterOk = inner.Modified();
          log.push_back("escape");
          QTest::keyClick(WidgetFromHandle(innerWindow), Qt::Key_Escape);
        },
        outer.GetHandle());
  };
  INT_PTR result = RunDialog(SampleTemplate(), outer, [&](HWND dialog) {
    QWidget* label = WidgetFromHandle(GetDlgItem(dialog, kLink));
    QFontMetrics metrics(label->font());
    QTest::mouseClick(label, Qt::LeftButton, {}, QPoint(metrics.horizontalAdvance("See ") + 3, metrics.height() / 2));
    // Back in the outer dialog, which still takes input.
    QTest::mouseClick(WidgetFromHandle(GetDlgItem(dialog, IDOK)), Qt::LeftButton);
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(innerResult, 2);
  EXPECT_FALSE(modifiedAfterInit);
  EXPECT_TRUE(modifiedAfterOk);
  // Marked modified first, the command after.
  EventLog expected = {
      "outer:OnInit",      "outer:OnNotify -2",   "inner:OnInit",        "outer:PSM_CHANGED", "outer:PSM_UNCHANGED",
      "click OK",          "outer:PSM_CHANGED",   "inner:OnCommand 1 0", "inner:OnOk",        "escape",
      "outer:PSM_CHANGED", "inner:OnCommand 2 0", "inner:OnCancel",      "inner:OnDestroy",   "outer:OnCommand 1 0",
      "outer:OnOk",        "outer:OnDestroy"};
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
  bool modified;
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
    handler.MarkModified(false);
    log.clear();
    answer = DialogProcedure(window, WM_COMMAND, MAKEWPARAM(c.id, c.code), 0);
    messageResult = GetWindowLongPtrW(window, DWLP_MSGRESULT);
    // A dialog that ended is hidden at once; one that stays is still up.
    if (IsWindowVisible(window)) EndDialog(window, 42);
  });
  EXPECT_EQ(answer, c.procedureAnswer);
  EXPECT_EQ(messageResult, c.messageResult);
  EXPECT_EQ(result, c.dialogResult);
  const bool called = std::find(log.begin(), log.end(), std::string("dlg:") + c.handlerCalled) != log.end();
  EXPECT_EQ(called, c.handlerCalled[0] != '\0');
  EXPECT_EQ(handler.Modified(), c.modified);
}

INSTANTIATE_TEST_SUITE_P(Table, OkCancelRuleTest,
                         testing::Values(CommandCase{"OkYes", IDOK, 0, true, true, 1, 1, 1, "OnOk", true},
                                         CommandCase{"OkNo", IDOK, 0, false, true, 0, 0, 42, "OnOk", true},
                                         CommandCase{"CancelYes", IDCANCEL, 0, true, true, 1, 1, 2, "OnCancel", true},
                                         CommandCase{"CancelNo", IDCANCEL, 0, true, false, 0, 0, 42, "OnCancel", true},
                                         // Only code 0 reaches the rule; an accelerator's OK does not.
                                         CommandCase{"OkAccelerator", IDOK, 1, true, true, 0, -5, 42, "", true},
                                         CommandCase{"OkChange", IDOK, EN_CHANGE, true, true, 0, -5, 42, "", true},
                                         CommandCase{"EditFocus", kEdit, EN_SETFOCUS, true, true, 0, -5, 42, "", false},
                                         CommandCase{"OtherId", 3, 0, true, true, 0, -5, 42, "", true}),
                         [](const testing::TestParamInfo<CommandCase>& info) { return std::string(info.param.name); });

}  // namespace
