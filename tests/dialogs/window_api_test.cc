// Window operations on the controls of a real dialog: texts, the progress
// bar, timers, geometry and a screenshot.
#include "dialogs/window_api.h"

#include <gtest/gtest.h>

#include <QFontMetrics>
#include <QImage>
#include <QProgressBar>
#include <QWidget>
#include <algorithm>

#include "dialog_test_support.h"
#include "dialogs/center_on_desktop.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/qt_window_access.h"
#include "shell/wide_string.h"
#include "test_root.h"

namespace {

using namespace dialog_test;

WideString TextOfItem(HWND dialog, int id) {
  char16_t buffer[256];
  GetDlgItemTextW(dialog, id, buffer, 256);
  return buffer;
}

// Runs action on the sample dialog, then ends it.
void OnSample(const std::function<void(HWND)>& action) {
  EventLog log;
  RecordingHandler handler("dlg", &log);
  RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    action(dialog);
    EndDialog(dialog, 0);
  });
}

TEST(WindowApiTest, TextsAndLookupsWhileUpThenNothing) {
  HWND dialog = nullptr;
  HWND text = nullptr;
  OnSample([&](HWND window) {
    dialog = window;
    text = GetDlgItem(dialog, kText);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(GetParent(text), dialog);
    EXPECT_EQ(GetDlgItem(dialog, 4711), nullptr);
    EXPECT_EQ(TextOfItem(dialog, kText), u"Static text");
    // The buffer bounds the copy and always gets its terminator.
    char16_t small[4] = {u'x', u'x', u'x', u'x'};
    EXPECT_EQ(GetDlgItemTextW(dialog, kText, small, 4), 3u);
    EXPECT_EQ(WideString(small), u"Sta");
    const char16_t* odd = u"<b>\U0001F600 & done</b>";
    EXPECT_TRUE(SetDlgItemTextW(dialog, kText, odd));
    EXPECT_EQ(TextOfItem(dialog, kText), odd);
    EXPECT_EQ(SendDlgItemMessageW(dialog, kText, WM_GETTEXTLENGTH, 0, 0), 16);
    EXPECT_TRUE(SetWindowTextW(dialog, u"New caption"));
    EXPECT_EQ(GetWindowTextLengthW(dialog), 11);
    EXPECT_EQ(TextOfItem(dialog, kLink).substr(0, 8), u"See <A I");
  });
  // Handles of an ended dialog act on nothing.
  EXPECT_FALSE(IsWindow(text));
  EXPECT_EQ(SendMessageW(text, WM_GETTEXTLENGTH, 0, 0), 0);
  EXPECT_EQ(SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDOK, 0), 0), 0);
  EXPECT_EQ(GetDlgItem(dialog, kText), nullptr);
  EXPECT_EQ(SetTimer(dialog, 1, 10, nullptr), 0u);
}

TEST(WindowApiTest, ProgressBarRangeAndPosition) {
  OnSample([](HWND dialog) {
    HWND bar = GetDlgItem(dialog, kProgress);
    auto* widget = static_cast<QProgressBar*>(WidgetFromHandle(bar));
    SendMessageW(bar, PBM_SETRANGE32, 0, 21);
    SendMessageW(bar, PBM_SETPOS, 7, 0);
    // Beyond the end the bar stops at it; the answer is the old position.
    EXPECT_EQ(SendMessageW(bar, PBM_SETPOS, 30, 0), 7);
    EXPECT_EQ(SendMessageW(bar, PBM_GETPOS, 0, 0), 21);
    EXPECT_EQ(SendMessageW(bar, PBM_GETRANGE, FALSE, 0), 21);
    // An empty range shows an empty bar, not a busy one.
    SendMessageW(bar, PBM_SETRANGE32, 0, 0);
    EXPECT_EQ(SendMessageW(bar, PBM_GETPOS, 0, 0), 0);
    EXPECT_LT(widget->minimum(), widget->maximum());
    EXPECT_EQ(widget->value(), widget->minimum());
  });
}

TEST(WindowApiTest, TimersDeliverTheirIdsUntilKilledOrTheDialogEnds) {
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
      SetTimer(dialog, 3, 1, nullptr);
      EndDialog(dialog, 5);
    }
  };
  INT_PTR result = RunDialog(SampleTemplate(), handler, [&](HWND dialog) {
    EXPECT_NE(SetTimer(dialog, 1, 10, nullptr), 0u);
    EXPECT_NE(SetTimer(dialog, 7, 30, nullptr), 0u);
    EXPECT_NE(SetTimer(dialog, 9, 20, nullptr), 0u);
    EXPECT_TRUE(KillTimer(dialog, 9));
    EXPECT_FALSE(KillTimer(dialog, 9));
  });
  // Timers still set when the dialog ended never fire.
  const size_t lines = log.size();
  RunEventsFor(50);
  EXPECT_EQ(log.size(), lines);
  EXPECT_EQ(result, 5);
  EXPECT_EQ(firstTicks, 1);
  EXPECT_EQ(secondTicks, 3);
  EXPECT_EQ(std::count(log.begin(), log.end(), "dlg:WM_TIMER 9"), 0);
}

int MulDiv(int value, int numerator, int denominator) {
  return static_cast<int>((static_cast<long long>(value) * numerator + denominator / 2) / denominator);
}

TEST(DialogGeometryTest, ScreenshotShowsControlsWhereTheTemplatePutsThem) {
  OnSample([](HWND dialog) {
    QWidget* widget = WidgetFromHandle(dialog);
    // Base units as the templates' dialog manager measures them: average
    // width of the 52 Latin letters, rounded, and the line height.
    QFontMetrics metrics(widget->font());
    const int bx =
        (metrics.horizontalAdvance(QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz")) / 26 + 1) /
        2;
    const int by = metrics.height();
    ASSERT_GT(bx, 2);
    auto expected = [&](int id) {
      const auto& controls = SampleTemplate().controls;
      auto c = std::find_if(controls.begin(), controls.end(), [id](const DialogControl& c) { return c.id == id; });
      return QRect(MulDiv(c->x, bx, 4), MulDiv(c->y, by, 8), MulDiv(c->cx, bx, 4), MulDiv(c->cy, by, 8));
    };
    EXPECT_EQ(widget->size(), QSize(MulDiv(200, bx, 4), MulDiv(120, by, 8)));
    for (int id : {int{kCheck}, int{kEdit}, int{kProgress}, int{kLink}, IDOK, IDCANCEL}) {
      EXPECT_EQ(WidgetFromHandle(GetDlgItem(dialog, id))->geometry(), expected(id)) << id;
    }
    // A full bar paints its inside in the highlight colour; the pixels just
    // below it, and the place of the hidden text, are background.
    SendDlgItemMessageW(dialog, kProgress, PBM_SETRANGE32, 0, 4);
    SendDlgItemMessageW(dialog, kProgress, PBM_SETPOS, 4, 0);
    QImage shot = widget->grab().toImage();
    EXPECT_TRUE(shot.save(QString::fromStdString(testing_support::BuildDir() + "/dialogs_sample_screenshot.png")));
    const QRect bar = expected(kProgress);
    const QColor background = widget->palette().color(QPalette::Window);
    EXPECT_NE(shot.pixelColor(bar.center()), background);
    EXPECT_EQ(shot.pixelColor(bar.center().x(), bar.bottom() + 3), background);
    const QRect hidden = expected(kHiddenText);
    for (int x = hidden.left(); x < hidden.right(); x += 3) {
      ASSERT_EQ(shot.pixelColor(x, hidden.center().y()), background) << x;
    }
  });
}

// The owned dialog starts at its owner's client corner; the formula takes
// right and bottom for the size, so it lands off centre by half that offset.
TEST(DialogGeometryTest, CenterOnDesktopKeepsItsFormula) {
  EventLog log;
  RecordingHandler outer("outer", &log);
  RecordingHandler inner("inner", &log);
  RECT desktop{}, before{}, after{};
  POINT outerClient{};
  RunDialog(SampleTemplate(), outer, [&](HWND outerWindow) {
    GetWindowRect(GetDesktopWindow(), &desktop);
    MapWindowPoints(outerWindow, nullptr, &outerClient, 1);
    RunDialog(
        SampleTemplate(), inner,
        [&](HWND innerWindow) {
          GetWindowRect(innerWindow, &before);
          CenterOnDesktop(innerWindow);
          GetWindowRect(innerWindow, &after);
          EndDialog(innerWindow, 0);
        },
        outerWindow);
    EndDialog(outerWindow, 0);
  });
  ASSERT_GT(desktop.right, 0);
  EXPECT_EQ(before.left, outerClient.x);
  EXPECT_EQ(before.top, outerClient.y);
  EXPECT_EQ(after.left, (desktop.right - before.right) / 2);
  EXPECT_EQ(after.top, (desktop.bottom - before.bottom) / 2);
  EXPECT_EQ(after.right - after.left, before.right - before.left);
}

}  // namespace
