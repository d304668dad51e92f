// The error dialog as "-send" shows it for a crash of a product that gets
// one: its layouts by the saved settings, the upload of the one report from
// OK, and leaving the report.
#include "dialogs/crash_report_error_dialog.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QImage>
#include <QKeyEvent>
#include <QWidget>
#include <algorithm>

#include "dialogs/qt_window_access.h"
#include "report_dialog_test_support.h"
#include "shell/report_modes.h"

namespace {

using namespace report_dialog_test;

constexpr char16_t kReport[] = u"Tarnhollows Atlas_20260102030405_41_42";

using ErrorDialogTest = ReportDialogTest;

TEST_F(ErrorDialogTest, SendChoiceUploadsTheReportWithProgressAndEnds) {
  auto collector = StartCollector();
  AddReport(WideToUtf8(kReport));
  bool uploadingLayout = false;
  HWND shown = nullptr;
  onBox = [&](const BoxCall& call) {
    // The box comes while the dialog still shows the upload.
    uploadingLayout = Visible(call.owner, kIdProgress) && Visible(call.owner, kIdStatus) &&
                      !Visible(call.owner, kIdSend) && !Visible(call.owner, kIdDoNotSend) &&
                      !Enabled(call.owner, IDOK) && Visible(call.owner, kIdPleaseHelp);
    SaveScreenshot(call.owner, "error_dialog_uploading");
  };
  WhenDialogShows act([&](HWND dialog) {
    shown = dialog;
    EXPECT_EQ(GetWindowLongPtrW(dialog, GWL_EXSTYLE) & WS_EX_TOPMOST, static_cast<LONG_PTR>(WS_EX_TOPMOST));
    // The product's name in its own case, though it was compared upper-cased.
    EXPECT_EQ(Text(dialog, kIdErrorHeading),
              u"Tarnhollows Atlas has terminated unexpectedly. We are VERY SORRY for the inconvenience this may "
              u"cause.");
    EXPECT_TRUE(Visible(dialog, kIdPleaseHelp));
    EXPECT_FALSE(Visible(dialog, kIdDisabledNote));
    EXPECT_TRUE(Checked(dialog, kIdSend));
    EXPECT_FALSE(Checked(dialog, kIdDoNotSend));
    EXPECT_FALSE(Visible(dialog, kIdProgress));
    // The registered icon is painted in its control, left of the cross's middle.
    QWidget* widget = WidgetFromHandle(dialog);
    const QPoint inIcon = WidgetFromHandle(GetDlgItem(dialog, kIdErrorIcon))->geometry().center() - QPoint(8, 0);
    EXPECT_NE(widget->grab().toImage().pixelColor(inIcon), widget->palette().color(QPalette::Window));
    SaveScreenshot(dialog, "error_dialog");
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(kReport), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_FALSE(IsWindow(shown));
  EXPECT_TRUE(uploadingLayout);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].type, MB_ICONINFORMATION);
  EXPECT_EQ(collector->UploadCount(), 1u);
  EXPECT_TRUE(FolderNames().empty());
}

TEST_F(ErrorDialogTest, FailedUploadWarnsKeepsItsPackageAndInputWaits) {
  auto collector = StartCollector();
  ASSERT_TRUE(collector->SetBehaviour(R"({"upload": {"httpStatus": 500}})"));
  AddReport(WideToUtf8(kReport));
  AddReport("Other_20260102030405_5_7");
  std::unique_ptr<StepRecorder> recorder;
  bool upAtBox = false;
  onBox = [&](const BoxCall& call) { upAtBox = IsWindowVisible(call.owner); };
  WhenDialogShows act([&](HWND dialog) {
    recorder = std::make_unique<StepRecorder>(dialog);
    // Handled during the upload, Escape would end the dialog before the box.
    recorder->onFirstStep = [dialog] {
      QCoreApplication::postEvent(WidgetFromHandle(dialog),
                                  new QKeyEvent(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier));
    };
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(kReport), 0);
  ASSERT_TRUE(act.fired());
  std::vector<ShownStep> expected = UploadSteps(kReport);
  expected.back().text = WideString(u"Report id: ") + kReport + u".An error occurred. Check Marlowen log for details.";
  EXPECT_EQ(recorder->ReportSteps(), expected);
  EXPECT_TRUE(upAtBox);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text,
            u"One or more error reports could not be sent to Marlowen.\nPlease see Marlowen log for details.");
  EXPECT_EQ(boxes[0].type, MB_ICONWARNING);
  EXPECT_EQ(FolderNames(), (std::vector<std::string>{"Other_20260102030405_5_7.dat", "Other_20260102030405_5_7.dmp",
                                                     WideToUtf8(kReport) + ".zip"}));
}

TEST_F(ErrorDialogTest, ReportsSwitchedOffShowTheDisabledLayoutAndSendNothing) {
  // No server is set up: an attempt to send would end in a warning box.
  SaveSettings(false, false, "");
  AddReport("TARNHOLLOWS");
  const std::vector<std::string> before = FolderNames();
  WhenDialogShows act([&](HWND dialog) {
    EXPECT_EQ(Text(dialog, kIdErrorHeading),
              u"TARNHOLLOWS has terminated unexpectedly. We are VERY SORRY for the inconvenience this may cause.");
    EXPECT_FALSE(Visible(dialog, kIdPleaseHelp));
    EXPECT_TRUE(Visible(dialog, kIdDisabledNote));
    EXPECT_FALSE(Visible(dialog, kIdSend) || Visible(dialog, kIdDoNotSend) || Checked(dialog, kIdSend));
    EXPECT_TRUE(Enabled(dialog, IDOK));
    SaveScreenshot(dialog, "error_dialog_disabled");
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(u"TARNHOLLOWS"), 0);
  ASSERT_TRUE(act.fired());
  dialog_test::RunEventsFor(150);
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(FolderNames(), before);
}

// The settings dialog opened from the link saves the new choice; the error
// dialog goes on with what it read, and "Do not report" leaves the report.
TEST_F(ErrorDialogTest, SettingsFromTheLinkSaveWhileTheDialogKeepsWhatItRead) {
  AddReport("Tarnhollows_20260102030405_1_1");
  std::vector<std::string> after = FolderNames();
  HWND nestedOwner = nullptr;
  HWND errorHandle = nullptr;
  WhenDialogShows act([&](HWND errorDialog) {
    errorHandle = errorDialog;
    WhenDialogShows nested(
        [&](HWND settingsDialog) {
          nestedOwner = GetParent(settingsDialog);
          EXPECT_TRUE(Checked(settingsDialog, kIdSend));
          Click(settingsDialog, kIdDoNotSend);
          Type(settingsDialog, kIdSmaNumber, u"55555-66666");
          Click(settingsDialog, IDOK);
        },
        errorDialog);
    ActivateLink(errorDialog, u"idSettingsLink");
    EXPECT_TRUE(nested.fired());
    // The error dialog still offers to send, as its start said.
    EXPECT_TRUE(Visible(errorDialog, kIdPleaseHelp) && Checked(errorDialog, kIdSend) &&
                !Visible(errorDialog, kIdDisabledNote));
    Click(errorDialog, kIdDoNotSend);
    Click(errorDialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(u"Tarnhollows_20260102030405_1_1"), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_EQ(nestedOwner, errorHandle);
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(false, false, "55555-66666"));
  after.push_back("CrashReport.settings");
  std::sort(after.begin(), after.end());
  EXPECT_EQ(FolderNames(), after);
}

}  // namespace
