// Window operations on the controls of a real dialog: texts, checks, the
// progress bar, visibility, timers, geometry and a screenshot.
#include <gtest/gtest.h>

#include <QBuffer>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QImage>
#include <QProgressBar>
#include <QScreen>
#include <QWidget>
#include <QThread>
#include <QWindow>
#include <stdexcept>

#include "dialog_test_support.h"
#include "dialogs/center_on_desktop.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/qt_window_access.h"
#include "dialogs/window_api.h"
#include "shell/wide_string.h"
#include "test_root.h"

namespace {

using namespace dialog_test;

WideString TextOfItem(HWND dialog, int id) {
  char16_t buffer[256];
  GetDlgItemTextW(dialog, id, buffer, 256);
  return buffer;
}

int MulDiv(int value, int numerator, int denominator) {
  return static_cast<int>((static_cast<long long>(value) * numerator + denominator / 2) / denominator);
}

TEST(WindowApiTest, ControlsTextsAndLookups) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    HWND text = GetDlgItem(dialog, kText);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(GetParent(text), dialog);
    EXPECT_EQ(GetDlgCtrlID(text), kText);
    EXPECT_EQ(GetDlgItem(dialog, 4711), nullptr);
    EXPECT_EQ(GetDlgItem(nullptr, kText), nullptr);

    EXPECT_EQ(TextOfItem(dialog, kText), u"Static text");
    EXPECT_EQ(SendDlgItemMessageW(dialog, kText, WM_GETTEXTLENGTH, 0, 0), 11);
    // The buffer bounds the copy and always gets its terminator.
    char16_t small[4] = {u'x', u'x', u'x', u'x'};
    EXPECT_EQ(GetDlgItemTextW(dialog, kText, small, 4), 3u);
    EXPECT_EQ(WideString(small), u"Sta");
    EXPECT_EQ(GetWindowTextW(text, small, 0), 0);

    // Text outside the basic plane and markup-like text stay as given.
    const char16_t* odd = u"<b>\U0001F600 & done</b>";
    EXPECT_TRUE(SetDlgItemTextW(dialog, kText, odd));
    EXPECT_EQ(TextOfItem(dialog, kText), odd);
    EXPECT_TRUE(SetWindowTextW(dialog, u"New caption"));
    char16_t caption[64];
    GetWindowTextW(dialog, caption, 64);
    EXPECT_EQ(WideString(caption), u"New caption");
    EXPECT_EQ(GetWindowTextLengthW(dialog), 11);

    // The link control gives back its markup.
    EXPECT_EQ(TextOfItem(dialog, kLink).substr(0, 8), u"See <A I");

    // User data of controls and dialogs, and the read-only state longs.
    EXPECT_EQ(SetWindowLongPtrW(text, GWLP_USERDATA, 1234), 0);
    EXPECT_EQ(SetWindowLongPtrW(text, GWLP_USERDATA, 99), 1234);
    EXPECT_EQ(SetWindowLongPtrW(dialog, DWLP_USER, 5), 0);
    EXPECT_EQ(GetWindowLongPtrW(dialog, DWLP_USER), 5);
    EXPECT_EQ(GetWindowLongPtrW(text, GWLP_ID), kText);
    EXPECT_EQ(GetWindowLongPtrW(dialog, GWL_EXSTYLE) & WS_EX_TOPMOST, WS_EX_TOPMOST);
    EXPECT_TRUE(WidgetFromHandle(dialog)->windowFlags() & Qt::WindowStaysOnTopHint);
    EndDialog(dialog, 0);
  });
}

TEST(WindowApiTest, NullAndEndedHandlesDoNothing) {
  EXPECT_EQ(SendMessageW(nullptr, WM_COMMAND, 1, 0), 0);
  EXPECT_FALSE(SetWindowTextW(nullptr, u"x"));
  EXPECT_FALSE(ShowWindow(nullptr, SW_SHOW));
  EXPECT_EQ(SetTimer(nullptr, 1, 10, nullptr), 0u);
  EXPECT_FALSE(EndDialog(nullptr, 1));
  EventLog log;
  RecordingHandler handler("dlg", &log);
  HWND control = nullptr;
  HWND dialog = nullptr;
  RunDialog(SampleTemplate(), handler, [&](HWND window) {
    dialog = window;
    control = GetDlgItem(window, kEdit);
    // EndDialog is for dialogs only.
    EXPECT_FALSE(EndDialog(control, 1));
    EndDialog(window, 0);
  });
  EXPECT_FALSE(IsWindow(control));
  EXPECT_EQ(SendMessageW(control, WM_GETTEXTLENGTH, 0, 0), 0);
  EXPECT_EQ(SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDOK, 0), 0), 0);
  EXPECT_EQ(GetDlgItem(dialog, kEdit), nullptr);
  EXPECT_EQ(log.back(), "dlg:OnDestroy");
}

TEST(WindowApiTest, CheckBoxesAndRadioGroups) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    auto checked = [&](int id) { return SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0); };
    // BM_SETCHECK sets one button and clears no other, and notifies nobody.
    log.clear();
    SendDlgItemMessageW(dialog, kRadioA1, BM_SETCHECK, BST_CHECKED, 0);
    SendDlgItemMessageW(dialog, kRadioA2, BM_SETCHECK, BST_CHECKED, 0);
    SendDlgItemMessageW(dialog, kRadioB1, BM_SETCHECK, BST_CHECKED, 0);
    EXPECT_EQ(checked(kRadioA1), BST_CHECKED);
    EXPECT_EQ(checked(kRadioA2), BST_CHECKED);
    EXPECT_TRUE(log.empty());

    // A click checks its button and clears the rest of its group only.
    SendDlgItemMessageW(dialog, kRadioA1, BM_CLICK, 0, 0);
    EXPECT_EQ(checked(kRadioA1), BST_CHECKED);
    EXPECT_EQ(checked(kRadioA2), BST_UNCHECKED);
    EXPECT_EQ(checked(kRadioB1), BST_CHECKED);
    // Clicking the checked one again leaves it checked.
    SendDlgItemMessageW(dialog, kRadioA1, BM_CLICK, 0, 0);
    EXPECT_EQ(checked(kRadioA1), BST_CHECKED);
    SendDlgItemMessageW(dialog, kRadioB2, BM_CLICK, 0, 0);
    EXPECT_EQ(checked(kRadioB1), BST_UNCHECKED);
    EXPECT_EQ(checked(kRadioA1), BST_CHECKED);

    SendDlgItemMessageW(dialog, kCheck, BM_CLICK, 0, 0);
    EXPECT_EQ(checked(kCheck), BST_CHECKED);
    SendDlgItemMessageW(dialog, kCheck, BM_CLICK, 0, 0);
    EXPECT_EQ(checked(kCheck), BST_UNCHECKED);
    // A disabled button can't be clicked.
    EnableWindow(GetDlgItem(dialog, kCheck), FALSE);
    SendDlgItemMessageW(dialog, kCheck, BM_CLICK, 0, 0);
    EXPECT_EQ(checked(kCheck), BST_UNCHECKED);
    // Check messages mean nothing to other controls.
    EXPECT_EQ(SendDlgItemMessageW(dialog, kText, BM_GETCHECK, 0, 0), 0);

    EventLog clicks = {"dlg:OnCommand 102 0", "dlg:OnCommand 102 0", "dlg:OnCommand 105 0",
                       "dlg:OnCommand 101 0", "dlg:OnCommand 101 0"};
    EXPECT_EQ(log, clicks);
    EndDialog(dialog, 0);
  });
}

TEST(WindowApiTest, ProgressBarRangeAndPosition) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    HWND bar = GetDlgItem(dialog, kProgress);
    auto* widget = static_cast<QProgressBar*>(WidgetFromHandle(bar));
    EXPECT_EQ(SendMessageW(bar, PBM_GETRANGE, TRUE, 0), 0);
    EXPECT_EQ(SendMessageW(bar, PBM_GETRANGE, FALSE, 0), 100);
    EXPECT_EQ(SendMessageW(bar, PBM_SETRANGE32, 0, 21), MAKELPARAM(0, 100));
    EXPECT_EQ(SendMessageW(bar, PBM_SETPOS, 0, 0), 0);
    EXPECT_EQ(SendMessageW(bar, PBM_SETPOS, 7, 0), 0);
    EXPECT_EQ(widget->maximum(), 21);
    EXPECT_EQ(widget->value(), 7);
    // Beyond the end the bar stops at it, as the control does.
    EXPECT_EQ(SendMessageW(bar, PBM_SETPOS, 30, 0), 7);
    EXPECT_EQ(SendMessageW(bar, PBM_GETPOS, 0, 0), 21);
    EXPECT_EQ(widget->value(), 21);
    // A narrower range pulls the position in.
    SendMessageW(bar, PBM_SETRANGE, 0, MAKELPARAM(0, 7));
    EXPECT_EQ(SendMessageW(bar, PBM_GETPOS, 0, 0), 7);
    // An empty range shows an empty bar, not a busy one.
    SendMessageW(bar, PBM_SETRANGE32, 0, 0);
    EXPECT_EQ(SendMessageW(bar, PBM_GETPOS, 0, 0), 0);
    EXPECT_LT(widget->minimum(), widget->maximum());
    EXPECT_EQ(widget->value(), widget->minimum());
    EndDialog(dialog, 0);
  });
}

TEST(WindowApiTest, ShowAndEnableReportTheFormerState) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    HWND hidden = GetDlgItem(dialog, kHiddenText);
    HWND edit = GetDlgItem(dialog, kEdit);
    EXPECT_FALSE(IsWindowVisible(hidden));
    EXPECT_TRUE(WidgetFromHandle(hidden)->isHidden());
    EXPECT_FALSE(ShowWindow(hidden, SW_SHOW));
    EXPECT_TRUE(IsWindowVisible(hidden));
    EXPECT_TRUE(WidgetFromHandle(hidden)->isVisible());
    EXPECT_TRUE(ShowWindow(hidden, SW_HIDE));
    EXPECT_FALSE(WidgetFromHandle(hidden)->isVisible());
    EXPECT_EQ(GetWindowLongPtrW(hidden, GWL_STYLE) & WS_VISIBLE, 0);

    EXPECT_FALSE(EnableWindow(edit, FALSE));
    EXPECT_FALSE(IsWindowEnabled(edit));
    EXPECT_FALSE(WidgetFromHandle(edit)->isEnabled());
    EXPECT_TRUE(EnableWindow(edit, FALSE));
    EXPECT_TRUE(EnableWindow(edit, TRUE));
    EXPECT_TRUE(WidgetFromHandle(edit)->isEnabled());
    EndDialog(dialog, 0);
  });
}

TEST(WindowApiTest, TimersDeliverTheirIdsUntilKilled) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  int firstTicks = 0;
  int secondTicks = 0;
  handler.onTimer = [&](HWND dialog, UINT_PTR id) {
    if (id == 1) {
      ++firstTicks;
      // One-shot use: killed from inside its own tick.
      EXPECT_TRUE(KillTimer(dialog, 1));
    }
    if (id == 7 && ++secondTicks == 3) {
      EXPECT_TRUE(KillTimer(dialog, 7));
      EndDialog(dialog, 5);
    }
  };
  INT_PTR result = RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    EXPECT_NE(SetTimer(dialog, 1, 10, nullptr), 0u);
    EXPECT_NE(SetTimer(dialog, 7, 30, nullptr), 0u);
    EXPECT_NE(SetTimer(dialog, 9, 20, nullptr), 0u);
    EXPECT_TRUE(KillTimer(dialog, 9));
    EXPECT_FALSE(KillTimer(dialog, 9));
    EXPECT_FALSE(KillTimer(dialog, 12));
  });
  EXPECT_EQ(result, 5);
  EXPECT_EQ(firstTicks, 1);
  EXPECT_EQ(secondTicks, 3);
  EXPECT_EQ(std::count(log.begin(), log.end(), "dlg:WM_TIMER 9"), 0);
}

TEST(WindowApiTest, TimersEndWithTheirDialog) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    SetTimer(dialog, 3, 1, nullptr);
    EndDialog(dialog, 0);
  });
  size_t lines = log.size();
  // Let the event loop run well past the timer's period.
  RunEventsFor(50);
  EXPECT_EQ(log.size(), lines);
}

// Base units measured the way the dialog manager of the templates' platform
// does: average width of the 52 Latin letters, rounded, and the line height.
void BaseUnits(const QFont& font, int* x, int* y) {
  QFontMetrics metrics(font);
  *x = (metrics.horizontalAdvance(QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz")) / 26 + 1) / 2;
  *y = metrics.height();
}

QRect Expected(const DialogControl& c, int bx, int by) {
  return QRect(MulDiv(c.x, bx, 4), MulDiv(c.y, by, 8), MulDiv(c.cx, bx, 4), MulDiv(c.cy, by, 8));
}

const DialogControl& ControlOf(int id) {
  for (const DialogControl& c : SampleTemplate().controls) {
    if (c.id == id) return c;
  }
  throw std::logic_error("no such control");
}

TEST(DialogGeometryTest, ScreenshotShowsControlsWhereTheTemplatePutsThem) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    QWidget* widget = WidgetFromHandle(dialog);
    int bx = 0;
    int by = 0;
    BaseUnits(widget->font(), &bx, &by);
    ASSERT_GT(bx, 2);
    ASSERT_GT(by, 6);
    EXPECT_EQ(widget->size(), QSize(MulDiv(200, bx, 4), MulDiv(120, by, 8)));
    for (int id : {static_cast<int>(kCheck), static_cast<int>(kEdit), static_cast<int>(kProgress), static_cast<int>(kLink), IDOK, IDCANCEL}) {
      SCOPED_TRACE(id);
      EXPECT_EQ(WidgetFromHandle(GetDlgItem(dialog, id))->geometry(), Expected(ControlOf(id), bx, by));
    }
    RECT mapped{7, 74, 7 + 186, 74 + 11};
    ASSERT_TRUE(MapDialogRect(dialog, &mapped));
    EXPECT_EQ(mapped.left, MulDiv(7, bx, 4));
    EXPECT_EQ(mapped.bottom, MulDiv(85, by, 8));

    // The way a link is laid over its placeholder: screen rectangle mapped
    // into the dialog's client area, size from the client rectangle.
    HWND placeholder = GetDlgItem(dialog, kPlaceholder);
    RECT rect;
    ASSERT_TRUE(GetWindowRect(placeholder, &rect));
    MapWindowPoints(nullptr, dialog, &rect, 2);
    RECT client;
    GetClientRect(placeholder, &client);
    QRect place = Expected(ControlOf(kPlaceholder), bx, by);
    EXPECT_EQ(QRect(rect.left, rect.top, client.right, client.bottom), place);

    // A full bar paints its inside in the highlight colour; the pixels just
    // below the bar's rectangle are the dialog's background.
    SendDlgItemMessageW(dialog, kProgress, PBM_SETRANGE32, 0, 4);
    SendDlgItemMessageW(dialog, kProgress, PBM_SETPOS, 4, 0);
    QImage shot = widget->grab().toImage();
    std::string path = testing_support::BuildDir().empty() ? std::string("/tmp") : testing_support::BuildDir();
    path += "/dialogs_sample_screenshot.png";
    EXPECT_TRUE(shot.save(QString::fromStdString(path)));
    QRect bar = Expected(ControlOf(kProgress), bx, by);
    QColor background = widget->palette().color(QPalette::Window);
    QColor inside = shot.pixelColor(bar.center());
    EXPECT_NE(inside, background);
    EXPECT_EQ(shot.pixelColor(bar.center().x(), bar.bottom() + 3), background);
    // The OK button's face differs from the background at its middle, and
    // the place of the hidden text is plain background.
    QRect hidden = Expected(ControlOf(kHiddenText), bx, by);
    for (int x = hidden.left(); x < hidden.right(); x += 3) {
      ASSERT_EQ(shot.pixelColor(x, hidden.center().y()), background) << x;
    }
    EndDialog(dialog, 0);
  });
}

TEST(DialogGeometryTest, CenterOnDesktopKeepsItsFormula) {
  EventLog log;
  RecordingHandler outer("outer", &log);
  RecordingHandler inner("inner", &log);
  RECT desktop{};
  RECT outerRect{};
  POINT outerClient{};
  RECT innerBefore{};
  RECT innerAfter{};
  RunDialog(SampleTemplate(), outer, [&](HWND outerWindow) {
    GetWindowRect(GetDesktopWindow(), &desktop);
    CenterOnDesktop(outerWindow);
    GetWindowRect(outerWindow, &outerRect);
    MapWindowPoints(outerWindow, nullptr, &outerClient, 1);
    RunDialog(SampleTemplate(), inner, [&](HWND innerWindow) {
      GetWindowRect(innerWindow, &innerBefore);
      CenterOnDesktop(innerWindow);
      GetWindowRect(innerWindow, &innerAfter);
      EndDialog(innerWindow, 0);
    }, outerWindow);
    EndDialog(outerWindow, 0);
  });
  ASSERT_GT(desktop.right, 0);
  int width = outerRect.right - outerRect.left;
  int height = outerRect.bottom - outerRect.top;
  // At the origin, right and bottom are the size: truly centred.
  EXPECT_EQ(outerRect.left, (desktop.right - width) / 2);
  EXPECT_EQ(outerRect.top, (desktop.bottom - height) / 2);
  // The owned dialog starts at its owner's client corner and so lands off
  // centre, by half its starting offset.
  EXPECT_EQ(innerBefore.left, outerClient.x);
  EXPECT_EQ(innerBefore.top, outerClient.y);
  EXPECT_GT(innerBefore.right, width);
  EXPECT_EQ(innerAfter.left, (desktop.right - innerBefore.right) / 2);
  EXPECT_EQ(innerAfter.top, (desktop.bottom - innerBefore.bottom) / 2);
  EXPECT_EQ(innerAfter.right - innerAfter.left, width);
}

TEST(DialogGeometryTest, ProgressReachesTheScreenWhileTheHandlerBlocks) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  QColor before;
  QColor during;
  int ticks = 0;
  handler.onTimer = [&](HWND dialog, UINT_PTR) {
    KillTimer(dialog, 1);
    ++ticks;
    QWidget* widget = WidgetFromHandle(dialog);
    QWidget* bar = WidgetFromHandle(GetDlgItem(dialog, kProgress));
    QPoint probe = bar->geometry().center();
    auto screenPixel = [&] {
      QImage image = widget->screen()->grabWindow(widget->windowHandle()->winId()).toImage();
      return image.pixelColor(probe);
    };
    SendDlgItemMessageW(dialog, kProgress, PBM_SETRANGE32, 0, 7);
    SendDlgItemMessageW(dialog, kProgress, PBM_SETPOS, 0, 0);
    before = screenPixel();
    // A timer that comes due while this handler runs must wait for it.
    SetTimer(dialog, 2, 1, nullptr);
    SendDlgItemMessageW(dialog, kProgress, PBM_SETPOS, 7, 0);
    SetDlgItemTextW(dialog, kText, u"Sending data...");
    QThread::msleep(20);
    during = screenPixel();
    EXPECT_EQ(std::count(log.begin(), log.end(), "dlg:WM_TIMER 2"), 0);
    KillTimer(dialog, 2);
    EndDialog(dialog, 0);
  };
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) { SetTimer(dialog, 1, 1, nullptr); });
  EXPECT_EQ(ticks, 1);
  EXPECT_NE(before, during);
}

TEST(DialogGeometryTest, IconControlShowsItsRegisteredImage) {
  ASSERT_TRUE(EnsureDialogApplication());
  QImage image(32, 32, QImage::Format_ARGB32);
  image.fill(QColor(200, 0, 0));
  QByteArray png;
  QBuffer buffer(&png);
  buffer.open(QIODevice::WriteOnly);
  ASSERT_TRUE(image.save(&buffer, "PNG"));
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(png.constData());
  EXPECT_TRUE(RegisterIconResource(107, bytes, static_cast<std::size_t>(png.size())));
  const std::uint8_t notAnImage[] = {'n', 'o', 't', ' ', 'p', 'n', 'g'};
  EXPECT_FALSE(RegisterIconResource(108, notAnImage, sizeof notAnImage));

  static const DialogTemplate withIcons{
      .id = 9002,
      .caption = u"Icons",
      .cx = 100,
      .cy = 40,
      .controls = {{ControlKind::kIcon, 1014, u"", 7, 7, 20, 20, WS_VISIBLE, 107},
                   {ControlKind::kIcon, 1017, u"", 50, 7, 20, 20, WS_VISIBLE, 108}},
  };
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(withIcons, handler, [&](HWND dialog) {
    QWidget* widget = WidgetFromHandle(dialog);
    QImage shot = widget->grab().toImage();
    QPoint registered = WidgetFromHandle(GetDlgItem(dialog, 1014))->geometry().topLeft() + QPoint(16, 16);
    QPoint missing = WidgetFromHandle(GetDlgItem(dialog, 1017))->geometry().topLeft() + QPoint(5, 5);
    EXPECT_EQ(shot.pixelColor(registered), QColor(200, 0, 0));
    EXPECT_EQ(shot.pixelColor(missing), widget->palette().color(QPalette::Window));
    EndDialog(dialog, 0);
  });
}

}  // namespace
