// The error dialog as "-send" shows it for a crash of a product that gets
// one: its layouts by the saved settings, the upload of the one report from
// OK, and leaving the report.
#include "dialogs/crash_report_error_dialog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dialog_test_support.h"
#include "dialogs/crash_report_resources.h"
#include "dialogs/window_api.h"
#include "report_dialog_test_support.h"
#include "shell/report_modes.h"
#include "test_root.h"

namespace {

using report_dialog_test::Checked;
using report_dialog_test::Click;
using report_dialog_test::Enabled;
using report_dialog_test::ReportDialogTest;
using report_dialog_test::ShownStep;
using report_dialog_test::StepRecorder;
using report_dialog_test::Text;
using report_dialog_test::Visible;
using report_dialog_test::WhenDialogShows;

constexpr char kReport[] = "Tarnhollows Atlas_20260102030405_41_42";
constexpr char16_t kReportWide[] = u"Tarnhollows Atlas_20260102030405_41_42";

class ErrorDialogTest : public ReportDialogTest {};

TEST_F(ErrorDialogTest, SendChoiceUploadsTheReportWithProgressAndEnds) {
  auto collector = StartCollector();
  AddReport(kReport);
  std::unique_ptr<StepRecorder> recorder;
  bool uploadingLayout = false;
  HWND shown = nullptr;
  onBox = [&](const report_dialog_test::BoxCall& call) {
    // The box comes while the dialog still shows the upload.
    uploadingLayout = Visible(call.owner, kIdProgress) && Visible(call.owner, kIdStatus) &&
                      !Visible(call.owner, kIdSend) && !Visible(call.owner, kIdDoNotSend) &&
                      !Enabled(call.owner, IDOK) && Visible(call.owner, kIdPleaseHelp);
    report_dialog_test::SaveScreenshot(call.owner, "error_dialog_uploading");
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
    report_dialog_test::SaveScreenshot(dialog, "error_dialog");
    recorder = std::make_unique<StepRecorder>(dialog);
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(kReportWide), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_FALSE(IsWindow(shown));

  static const char16_t* const texts[] = {u"Creating zip package.", u"Contacting upload server.",
                                          u"Preparing upload XML.", u"Opening HTTP connection.",
                                          u"Preparing headers.",    u"Sending data...",
                                          u"Upload successful."};
  std::vector<ShownStep> expected;
  for (int i = 0; i < 7; ++i) expected.push_back({WideString(u"Report id: ") + kReportWide + u"." + texts[i], i + 1});
  EXPECT_EQ(recorder->ReportSteps(), expected);
  EXPECT_TRUE(uploadingLayout);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].type, MB_ICONINFORMATION);
  EXPECT_EQ(collector->UploadCount(), 1u);
  EXPECT_TRUE(FolderNames().empty());
}

TEST_F(ErrorDialogTest, DoNotReportEndsAndLeavesTheReport) {
  AddReport(kReport);
  const std::vector<std::string> before = FolderNames();
  WhenDialogShows act([&](HWND dialog) {
    Click(dialog, kIdDoNotSend);
    EXPECT_FALSE(Checked(dialog, kIdSend));
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(kReportWide), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(FolderNames(), before);
  EXPECT_FALSE(testing_support::PathExists(InFolder("CrashReport.settings")));
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
    EXPECT_FALSE(Visible(dialog, kIdSend));
    EXPECT_FALSE(Visible(dialog, kIdDoNotSend));
    EXPECT_FALSE(Checked(dialog, kIdSend));
    EXPECT_TRUE(Enabled(dialog, IDOK));
    report_dialog_test::SaveScreenshot(dialog, "error_dialog_disabled");
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(u"TARNHOLLOWS"), 0);
  ASSERT_TRUE(act.fired());
  dialog_test::RunEventsFor(150);
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(FolderNames(), before);
}

TEST_F(ErrorDialogTest, ClosingBeforeTheTimerEndsWithCancelAndSendsNothing) {
  AddReport(kReport);
  const std::vector<std::string> before = FolderNames();
  CrashReportErrorDialog dialog;
  dialog.reportName = kReportWide;
  dialog.productName = u"Tarnhollows Atlas";
  bool upload = false;
  INT_PTR result = dialog_test::RunDialog(ErrorDialogTemplate(), dialog, [&](HWND window) {
    Click(window, IDOK);
    upload = Visible(window, kIdProgress) && !Enabled(window, IDOK);
    QTest::keyClick(report_dialog_test::Widget(window), Qt::Key_Escape);
  });
  EXPECT_TRUE(upload);
  EXPECT_EQ(result, IDCANCEL);
  dialog_test::RunEventsFor(150);
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(FolderNames(), before);
}

}  // namespace
