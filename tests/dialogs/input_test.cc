// What the user does reaches the handlers as messages: keys, clicks, typing,
// links, the close box; and the message boxes the handlers show.
#include <gtest/gtest.h>

#include <QApplication>
#include <QFontMetrics>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include "dialog_test_support.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/message_box.h"
#include "dialogs/qt_window_access.h"

namespace {

using namespace dialog_test;

QWidget* Item(HWND dialog, int id) { return WidgetFromHandle(GetDlgItem(dialog, id)); }

TEST(DialogInputTest, EnterPressesTheFocusedOrDefaultButtonEscapeAndCloseBoxCancel) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  handler.okAnswer = false;
  handler.cancelAnswer = false;
  INT_PTR result = RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    QWidget* widget = WidgetFromHandle(dialog);
    Item(dialog, kApply)->setFocus();
    QTest::keyClick(Item(dialog, kApply), Qt::Key_Return);
    QWidget* edit = Item(dialog, kEdit);
    edit->setFocus();
    QTest::keyClick(edit, Qt::Key_Enter, Qt::KeypadModifier);
    // A disabled default button can't be pressed.
    EnableWindow(GetDlgItem(dialog, IDOK), FALSE);
    QTest::keyClick(edit, Qt::Key_Return);
    QTest::keyClick(edit, Qt::Key_Escape);
    // The close box asks the same question; refused, the window stays.
    EXPECT_FALSE(widget->close());
    EXPECT_TRUE(widget->isVisible());
    handler.cancelAnswer = true;
    widget->close();
  });
  EXPECT_EQ(result, IDCANCEL);
  // The edit's focus notices depend on the window being active; they don't matter here.
  std::erase_if(log, [](const std::string& line) {
    return line.starts_with("dlg:OnCommand 106 ") || !(line.starts_with("dlg:OnC") || line == "dlg:OnOk");
  });
  EXPECT_EQ(log, (EventLog{"dlg:OnCommand 111 0", "dlg:OnCommand 1 0", "dlg:OnOk", "dlg:OnCommand 2 0", "dlg:OnCancel",
                           "dlg:OnCommand 2 0", "dlg:OnCancel", "dlg:OnCommand 2 0", "dlg:OnCancel"}));
}

TEST(DialogInputTest, MouseAndTypingSendNotifications) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    auto checked = [&](int id) { return SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0) == BST_CHECKED; };
    for (int id : {kCheck, kRadioA2}) {
      QTest::mouseClick(Item(dialog, id), Qt::LeftButton, {}, QPoint(6, Item(dialog, id)->height() / 2));
      EXPECT_TRUE(checked(id)) << id;
    }
    // Arrows move within the radio group, wrapping, and click.
    QTest::keyClick(Item(dialog, kRadioA2), Qt::Key_Down);
    EXPECT_TRUE(checked(kRadioA1) && !checked(kRadioA2) && !checked(kRadioB1));
    QTest::keyClicks(Item(dialog, kEdit), "42");
    // A text set by code changes the edit as well.
    SetDlgItemTextW(dialog, kEdit, u"12345-67890");
    QTest::mouseClick(Item(dialog, IDCANCEL), Qt::LeftButton);
  });
  const std::string change = "dlg:OnCommand 106 " + std::to_string(EN_CHANGE);
  std::erase_if(log, [](const std::string& line) { return !line.starts_with("dlg:OnCommand"); });
  EXPECT_EQ(log, (EventLog{"dlg:OnCommand 101 0", "dlg:OnCommand 103 0", "dlg:OnCommand 102 0", change, change, change,
                           "dlg:OnCommand 2 0"}));
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
    QWidget* label = WidgetFromHandle(linkHandle);
    QFontMetrics metrics(label->font());
    const int y = metrics.height() / 2;
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

TEST(MessageBoxTest, ShowsButtonsAndIconAndAnswers) {
  struct Case {
    UINT type;
    QMessageBox::Icon icon;
    int buttons;
    QMessageBox::StandardButton press;  // NoButton: Escape
    int answer;
  };
  const Case cases[] = {
      {MB_YESNO | MB_ICONQUESTION, QMessageBox::Question, 2, QMessageBox::No, IDNO},
      {MB_YESNO, QMessageBox::NoIcon, 2, QMessageBox::Yes, IDYES},
      {MB_ICONINFORMATION, QMessageBox::Information, 1, QMessageBox::Ok, IDOK},
      {MB_ICONWARNING, QMessageBox::Warning, 1, QMessageBox::NoButton, IDOK},
      {MB_OKCANCEL | MB_ICONERROR, QMessageBox::Critical, 2, QMessageBox::NoButton, IDCANCEL},
      {MB_RETRYCANCEL | MB_ICONSTOP, QMessageBox::Critical, 2, QMessageBox::Retry, IDRETRY},
  };
  ASSERT_TRUE(EnsureDialogApplication());
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "type " << c.type);
    QString caption;
    QString text;
    int buttonCount = -1;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QTimer answer;
    answer.setSingleShot(true);
    QObject::connect(&answer, &QTimer::timeout, [&] {
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
    answer.start(0);
    EXPECT_EQ(MessageBoxW(nullptr, u"Are you sure?\nReally.", u"Marlowen Error Reporter", c.type), c.answer);
    EXPECT_EQ(caption, "Marlowen Error Reporter");
    EXPECT_EQ(text, "Are you sure?\nReally.");
    EXPECT_EQ(buttonCount, c.buttons);
    EXPECT_EQ(icon, c.icon);
  }
}

}  // namespace
