// What the user does reaches the handlers as messages: keys, clicks, typing,
// links, the close box; and the boxes and desktop the handlers call upon.
#include <gtest/gtest.h>

#include <QApplication>
#include <QFontMetrics>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <filesystem>

#include "dialog_test_support.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/message_box.h"
#include "dialogs/qt_window_access.h"
#include "dialogs/shell_execute.h"
#include "test_root.h"

namespace {

using namespace dialog_test;

QWidget* Item(HWND dialog, int id) { return WidgetFromHandle(GetDlgItem(dialog, id)); }

TEST(DialogInputTest, EscapeAndCloseBoxAreCancel) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  handler.cancelAnswer = false;
  INT_PTR result = RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    QWidget* widget = WidgetFromHandle(dialog);
    QTest::keyClick(Item(dialog, kEdit), Qt::Key_Escape);
    // The close box asks the same question; refused, the window stays.
    EXPECT_FALSE(widget->close());
    EXPECT_TRUE(widget->isVisible());
    handler.cancelAnswer = true;
    widget->close();
  });
  EXPECT_EQ(result, IDCANCEL);
  EventLog commands;
  for (const std::string& line : log) {
    if (line.rfind("dlg:OnC", 0) == 0) commands.push_back(line);
  }
  EventLog expected = {"dlg:OnCommand 2 0", "dlg:OnCancel", "dlg:OnCommand 2 0", "dlg:OnCancel",
                       "dlg:OnCommand 2 0", "dlg:OnCancel"};
  EXPECT_EQ(commands, expected);
}

TEST(DialogInputTest, EnterPressesTheFocusedOrTheDefaultButton) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  handler.okAnswer = false;
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    QWidget* apply = Item(dialog, kApply);
    apply->setFocus();
    log.clear();
    QTest::keyClick(apply, Qt::Key_Return);
    QWidget* edit = Item(dialog, kEdit);
    edit->setFocus();
    QTest::keyClick(edit, Qt::Key_Enter, Qt::KeypadModifier);
    // A disabled default button can't be pressed.
    EnableWindow(GetDlgItem(dialog, IDOK), FALSE);
    QTest::keyClick(edit, Qt::Key_Return);
    EXPECT_EQ(log, (EventLog{"dlg:OnCommand 111 0", "dlg:OnCommand 1 0", "dlg:OnOk"}));
    EndDialog(dialog, 0);
  });
}

TEST(DialogInputTest, MouseAndTypingSendNotifications) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  WideString typed;
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    log.clear();
    QWidget* check = Item(dialog, kCheck);
    QTest::mouseClick(check, Qt::LeftButton, {}, QPoint(6, check->height() / 2));
    EXPECT_EQ(SendDlgItemMessageW(dialog, kCheck, BM_GETCHECK, 0, 0), BST_CHECKED);
    QWidget* radio = Item(dialog, kRadioA2);
    QTest::mouseClick(radio, Qt::LeftButton, {}, QPoint(6, radio->height() / 2));
    EXPECT_EQ(SendDlgItemMessageW(dialog, kRadioA2, BM_GETCHECK, 0, 0), BST_CHECKED);
    // Arrows move within the radio group, wrapping, and click.
    QTest::keyClick(radio, Qt::Key_Down);
    EXPECT_EQ(SendDlgItemMessageW(dialog, kRadioA1, BM_GETCHECK, 0, 0), BST_CHECKED);
    EXPECT_EQ(SendDlgItemMessageW(dialog, kRadioA2, BM_GETCHECK, 0, 0), BST_UNCHECKED);
    EXPECT_EQ(SendDlgItemMessageW(dialog, kRadioB1, BM_GETCHECK, 0, 0), BST_UNCHECKED);
    QTest::keyClicks(Item(dialog, kEdit), "42");
    // A text set by code changes the edit as well.
    SetDlgItemTextW(dialog, kEdit, u"12345-67890");
    char16_t buffer[32];
    GetDlgItemTextW(dialog, kEdit, buffer, 32);
    typed = buffer;
    QWidget* cancel = Item(dialog, IDCANCEL);
    QTest::mouseClick(cancel, Qt::LeftButton);
  });
  EXPECT_EQ(typed, u"12345-67890");
  EventLog commands;
  for (const std::string& line : log) {
    if (line.rfind("dlg:OnCommand", 0) == 0) commands.push_back(line);
  }
  const std::string change = "dlg:OnCommand 106 " + std::to_string(EN_CHANGE);
  EventLog expected = {"dlg:OnCommand 101 0", "dlg:OnCommand 103 0", "dlg:OnCommand 102 0", change, change, change,
                       "dlg:OnCommand 2 0"};
  EXPECT_EQ(commands, expected);
}

TEST(DialogInputTest, LinksNotifyWithTheirIdAndAddress) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  NMHDR clickHeader{};
  LITEM clickLink{};
  LITEM secondClick{};
  HWND linkHandle = nullptr;
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    linkHandle = GetDlgItem(dialog, kLink);
    auto* label = static_cast<QLabel*>(WidgetFromHandle(linkHandle));
    QFontMetrics metrics(label->font());
    int y = metrics.height() / 2;
    QTest::mouseClick(label, Qt::LeftButton, {}, QPoint(metrics.horizontalAdvance("See ") + 3, y));
    clickHeader = handler.lastHeader;
    clickLink = handler.lastLink;
    QTest::mouseClick(label, Qt::LeftButton, {}, QPoint(metrics.horizontalAdvance("See first or ") + 3, y));
    secondClick = handler.lastLink;
    // From the keyboard: Tab goes to the second link, Enter activates it.
    label->setFocus(Qt::TabFocusReason);
    QTest::keyClick(label, Qt::Key_Tab);
    QTest::keyClick(label, Qt::Key_Return);
    EndDialog(dialog, 0);
  });
  EXPECT_EQ(clickHeader.code, NM_CLICK);
  EXPECT_EQ(clickHeader.hwndFrom, linkHandle);
  EXPECT_EQ(clickHeader.idFrom, static_cast<UINT_PTR>(kLink));
  EXPECT_EQ(WideString(clickLink.szID), u"idFirst");
  EXPECT_EQ(WideString(clickLink.szUrl), u"http://a.example/x");
  EXPECT_EQ(clickLink.iLink, 0);
  EXPECT_EQ(WideString(secondClick.szID), u"idSecond");
  EXPECT_EQ(WideString(secondClick.szUrl), u"");
  EXPECT_EQ(handler.lastHeader.code, NM_RETURN);
  EXPECT_EQ(WideString(handler.lastLink.szID), u"idSecond");
  EXPECT_EQ(handler.lastLink.iLink, 1);
}

TEST(DialogInputTest, LinkMadeOverAPlaceholderAtRunTime) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  WideString id;
  HWND link = nullptr;
  handler.onInit = [&](HWND dialog) {
    HWND placeholder = GetDlgItem(dialog, kPlaceholder);
    RECT rect;
    GetWindowRect(placeholder, &rect);
    MapWindowPoints(nullptr, dialog, &rect, 2);
    RECT client;
    GetClientRect(placeholder, &client);
    link = CreateWindowExW(0, u"SysLink", u"<A ID=\"idSettingsLink\">Settings</A>", 0x50010000, rect.left,
                           rect.top, client.right, client.bottom, dialog, nullptr, nullptr, nullptr);
    EXPECT_EQ(CreateWindowExW(0, u"Button", u"x", 0x50010000, 0, 0, 5, 5, dialog, nullptr, nullptr, nullptr),
              nullptr);
  };
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(GetParent(link), dialog);
    EXPECT_TRUE(IsWindowVisible(link));
    // The placeholder lies over the link, yet lets the click through.
    QWidget* placeholder = Item(dialog, kPlaceholder);
    QWidget* dialogWidget = WidgetFromHandle(dialog);
    QPoint where = placeholder->geometry().topLeft() + QPoint(4, placeholder->height() / 2);
    EXPECT_EQ(dialogWidget->childAt(where), WidgetFromHandle(link));
    QTest::mouseClick(WidgetFromHandle(link), Qt::LeftButton, {}, QPoint(4, placeholder->height() / 2));
    id = handler.lastLink.szID;
    EndDialog(dialog, 0);
  });
  EXPECT_EQ(id, u"idSettingsLink");
  EXPECT_EQ(handler.lastHeader.idFrom, 0u);
}

TEST(DialogInputTest, ALinkOpensANestedDialogOwnedByItsDialog) {
  EventLog log;
  struct Opener : RecordingHandler {
    using RecordingHandler::RecordingHandler;
    EventLog* innerLog = nullptr;
    INT_PTR innerResult = 0;
    INT_PTR OnNotify(WORD high, WORD low, NMHDR* header) override {
      RecordingHandler::OnNotify(high, low, header);
      RecordingHandler inner("inner", innerLog);
      // The nested loop runs inside the link's own mouse handling.
      innerResult = RunDialog(SampleTemplate(), inner, [](HWND window) {
        QTest::keyClick(WidgetFromHandle(window), Qt::Key_Escape);
      }, handle);
      return 1;
    }
  } outer("outer", &log);
  outer.innerLog = &log;
  INT_PTR result = RunDialog(SampleTemplate(), outer, [&](HWND dialog) {
    auto* label = WidgetFromHandle(GetDlgItem(dialog, kLink));
    QFontMetrics metrics(label->font());
    QTest::mouseClick(label, Qt::LeftButton, {}, QPoint(metrics.horizontalAdvance("See ") + 3, metrics.height() / 2));
    // Back in the outer dialog, which still takes input.
    QTest::mouseClick(Item(dialog, IDOK), Qt::LeftButton);
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(outer.innerResult, 2);
  EventLog expected = {"outer:OnInit", "outer:OnNotify -2", "inner:OnInit", "outer:PSM_UNCHANGED",
                       "outer:PSM_CHANGED", "inner:OnCommand 2 0", "inner:OnCancel", "inner:OnDestroy",
                       "outer:OnCommand 1 0", "outer:OnOk", "outer:OnDestroy"};
  EXPECT_EQ(log, expected);
}

struct BoxCase {
  const char* name;
  UINT type;
  QMessageBox::Icon icon;
  int buttons;
  QMessageBox::StandardButton press;  // NoButton: Escape
  int answer;
};

void PrintTo(const BoxCase& c, std::ostream* out) { *out << c.name; }

class MessageBoxTest : public testing::TestWithParam<BoxCase> {};

TEST_P(MessageBoxTest, ShowsButtonsAndIconAndAnswers) {
  const BoxCase& c = GetParam();
  ASSERT_TRUE(EnsureDialogApplication());
  QString caption;
  QString text;
  int buttonCount = -1;
  QMessageBox::Icon icon = QMessageBox::NoIcon;
  QTimer::singleShot(0, [&] {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr) return;
    caption = box->windowTitle();
    text = box->text();
    buttonCount = static_cast<int>(box->buttons().size());
    icon = box->icon();
    if (c.press == QMessageBox::NoButton) {
      QTest::keyClick(box, Qt::Key_Escape);
    } else {
      box->button(c.press)->click();
    }
  });
  int answer = MessageBoxW(nullptr, u"Are you sure?\nReally.", u"Marlowen Error Reporter", c.type);
  EXPECT_EQ(answer, c.answer);
  EXPECT_EQ(caption, "Marlowen Error Reporter");
  EXPECT_EQ(text, "Are you sure?\nReally.");
  EXPECT_EQ(buttonCount, c.buttons);
  EXPECT_EQ(icon, c.icon);
}

INSTANTIATE_TEST_SUITE_P(
    Table, MessageBoxTest,
    testing::Values(
        BoxCase{"YesNoQuestionNo", MB_YESNO | MB_ICONQUESTION, QMessageBox::Question, 2, QMessageBox::No, IDNO},
        BoxCase{"YesNoQuestionYes", 0x24, QMessageBox::Question, 2, QMessageBox::Yes, IDYES},
        BoxCase{"InformationOk", MB_ICONINFORMATION, QMessageBox::Information, 1, QMessageBox::Ok, IDOK},
        BoxCase{"WarningEscape", MB_ICONWARNING, QMessageBox::Warning, 1, QMessageBox::NoButton, IDOK},
        BoxCase{"ErrorOkCancelEscape", MB_OKCANCEL | MB_ICONERROR, QMessageBox::Critical, 2, QMessageBox::NoButton,
                IDCANCEL},
        BoxCase{"RetryCancel", MB_RETRYCANCEL | MB_ICONSTOP, QMessageBox::Critical, 2, QMessageBox::Retry, IDRETRY},
        BoxCase{"PlainOk", MB_OK, QMessageBox::NoIcon, 1, QMessageBox::Ok, IDOK}),
    [](const testing::TestParamInfo<BoxCase>& info) { return std::string(info.param.name); });

TEST(MessageBoxHookTest, StandsInForTheBoxWhileSet) {
  std::vector<std::string> seen;
  SetMessageBoxHook([&](HWND owner, const WideString& text, const WideString& caption, UINT type) {
    seen.push_back(WideToUtf8(caption) + "|" + WideToUtf8(text) + "|" + std::to_string(type) + "|" +
                   (owner == nullptr ? "null" : "owner"));
    return IDNO;
  });
  EXPECT_EQ(MessageBoxW(nullptr, u"Unknown id", u"Sys Link Control", MB_OK), IDNO);
  EXPECT_EQ(MessageBoxW(nullptr, nullptr, nullptr, MB_ICONWARNING), IDNO);
  MessageBoxHook previous = SetMessageBoxHook(nullptr);
  EXPECT_TRUE(static_cast<bool>(previous));
  EXPECT_EQ(seen, (std::vector<std::string>{"Sys Link Control|Unknown id|0|null", "Error||48|null"}));
}

TEST(ShellExecuteTest, OpensFoldersAndAddressesThroughTheDesktop) {
  testing_support::TestRoot root;
  std::string folder = root.ReportFolder();
  testing_support::MakeFolders(folder);
  std::vector<std::string> opened;
  bool answer = true;
  SetDesktopOpenHook([&](const std::string& url) {
    opened.push_back(url);
    return answer;
  });
  WideString wideFolder = Utf8ToWide(folder);
  auto code = [](HINSTANCE h) { return reinterpret_cast<std::intptr_t>(h); };
  EXPECT_GT(code(ShellExecuteW(nullptr, nullptr, wideFolder.c_str(), nullptr, nullptr, SW_SHOW)), 32);
  EXPECT_GT(code(ShellExecuteW(nullptr, u"open", u"http://support.example/kb/article.aspx?id=10232", u"", u"C:\\",
                               SW_SHOWNORMAL)),
            32);
  EXPECT_GT(code(ShellExecuteW(nullptr, u"open", u"Crash Reports", nullptr,
                               Utf8ToWide(root.Path("var/lib/Marlowen")).c_str(), SW_SHOW)),
            32);
  EXPECT_EQ(code(ShellExecuteW(nullptr, u"open", Utf8ToWide(root.Path("missing")).c_str(), nullptr, nullptr, 1)),
            SE_ERR_FNF);
  EXPECT_EQ(code(ShellExecuteW(nullptr, u"print", wideFolder.c_str(), nullptr, nullptr, 1)), SE_ERR_NOASSOC);
  answer = false;
  EXPECT_EQ(code(ShellExecuteW(nullptr, u"open", u"mailto:someone@example.org", nullptr, nullptr, 1)),
            SE_ERR_NOASSOC);
  SetDesktopOpenHook(nullptr);
  std::string folderUrl = "file://" + root.path() + "/var/lib/Marlowen/Crash%20Reports";
  EXPECT_EQ(opened, (std::vector<std::string>{folderUrl, "http://support.example/kb/article.aspx?id=10232",
                                              folderUrl, "mailto:someone@example.org"}));
}

}  // namespace
