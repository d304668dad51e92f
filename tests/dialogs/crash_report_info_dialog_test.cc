// "-report" and its information dialog: nothing without reports, the count
// and the preselection, and the three choices for all reports.
#include "dialogs/crash_report_info_dialog.h"

#include <gtest/gtest.h>

#include <tuple>

#include "report_dialog_test_support.h"
#include "shell/dialog_modes.h"

namespace {

using namespace report_dialog_test;

class InfoDialogTest : public ReportDialogTest {
 protected:
  // Two reports, one of them also packaged: three pending files.
  void AddThreePending() {
    AddReport("Quill_20260102030405_1_1", 1);
    AddReport("Slate_20260102030405_2_2", 2);
    testing_support::WriteFileText(InFolder("Slate_20260102030405_2_2.zip"), "not yet sent");
  }
};

TEST_F(InfoDialogTest, NoReportsShowNothing) {
  WhenDialogShows act([](HWND dialog) { EndDialog(dialog, 1); });
  EXPECT_EQ(RunReportMode(), 0);
  dialog_test::RunEventsFor(50);
  EXPECT_FALSE(act.fired());
}

// The saved settings, and the choice that they preselect.
class InfoPreselectionTest : public InfoDialogTest, public testing::WithParamInterface<std::tuple<bool, bool, int>> {};

TEST_P(InfoPreselectionTest, CountsEveryPendingFileAndPreselectsBySettings) {
  const auto [sendReports, askFirst, preselected] = GetParam();
  SaveSettings(sendReports, askFirst, "");
  AddThreePending();
  const std::vector<std::string> before = FolderNames();
  WhenDialogShows act([&](HWND dialog) {
    EXPECT_EQ(Text(dialog, kIdReportCount),
              u"There are 3 error report(s) on this computer that have not been sent to Marlowen.");
    for (int id : {kIdSend, kIdDoNotSend, kIdDeleteChoice}) {
      EXPECT_EQ(Checked(dialog, id), id == preselected) << id;
      EXPECT_TRUE(Enabled(dialog, id)) << id;
    }
    EXPECT_FALSE(Visible(dialog, kIdStatus) || Visible(dialog, kIdProgress));
    if (preselected == kIdSend) SaveScreenshot(dialog, "info_dialog");
    Click(dialog, kIdDoNotSend);
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunReportMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(FolderNames(), before);
}

INSTANTIATE_TEST_SUITE_P(Settings, InfoPreselectionTest,
                         testing::Values(std::make_tuple(true, false, kIdSend),
                                         std::make_tuple(true, true, kIdDoNotSend),
                                         std::make_tuple(false, false, kIdDoNotSend)));

TEST_F(InfoDialogTest, SendUploadsAllReportsShowingEveryStepThenTheResult) {
  auto collector = StartCollector();
  const WideString quill = u"Quill_20260102030405_1_1";
  const WideString slate = u"Slate_20260102030405_2_2";
  AddReport(WideToUtf8(quill), 1);
  AddReport(WideToUtf8(slate), 2);
  bool uploadingLayout = false;
  long range = 0;
  onBox = [&](const BoxCall& call) {
    uploadingLayout = Visible(call.owner, kIdProgress) && Visible(call.owner, kIdStatus) &&
                      !Visible(call.owner, kIdSend) && !Visible(call.owner, kIdDoNotSend) &&
                      !Visible(call.owner, kIdDeleteChoice) && !Enabled(call.owner, IDOK);
    range = static_cast<long>(SendDlgItemMessageW(call.owner, kIdProgress, PBM_GETRANGE, 0, 0));
    SaveScreenshot(call.owner, "info_dialog_uploading");
  };
  std::unique_ptr<StepRecorder> recorder;
  WhenDialogShows act([&](HWND dialog) {
    recorder = std::make_unique<StepRecorder>(dialog);
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunReportMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(uploadingLayout);
  // Seven steps per report, the bar counting on across both, in either order.
  const std::vector<ShownStep> steps = recorder->ReportSteps();
  ASSERT_EQ(steps.size(), 14u);
  const bool quillFirst = steps[0].text.find(quill) != WideString::npos;
  std::vector<ShownStep> expected = UploadSteps(quillFirst ? quill : slate, 1);
  const std::vector<ShownStep> second = UploadSteps(quillFirst ? slate : quill, 8);
  expected.insert(expected.end(), second.begin(), second.end());
  EXPECT_EQ(steps, expected);
  EXPECT_EQ(range, 14);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, u"Error reports successfully sent to Marlowen.");
  EXPECT_EQ(boxes[0].caption, u"Marlowen Error Reporter");
  EXPECT_EQ(boxes[0].type, MB_ICONINFORMATION);
  EXPECT_EQ(collector->UploadCount(), 2u);
  EXPECT_TRUE(FolderNames().empty());
}

TEST_F(InfoDialogTest, DeleteAsksAndOnlyNoKeepsTheDialogOpen) {
  AddThreePending();
  // Only dumps, records and packages go, and none in a folder below.
  testing_support::MakeFolders(InFolder("sub"));
  for (const char* name : {"MarlowenErrorReporting.url", "C_3.xml", "sub/D_4.dmp"}) {
    testing_support::WriteFileText(InFolder(name), "kept");
  }
  boxAnswers = {IDNO, IDOK};
  WhenDialogShows act([&](HWND dialog) {
    Click(dialog, kIdDeleteChoice);
    Click(dialog, IDOK);
    EXPECT_TRUE(IsWindowVisible(dialog));
    EXPECT_TRUE(Checked(dialog, kIdDeleteChoice));
    EXPECT_EQ(FolderNames().size(), 8u);
    // Any answer but No deletes, an OK as well.
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunReportMode(), 0);
  ASSERT_TRUE(act.fired());
  ASSERT_EQ(boxes.size(), 2u);
  EXPECT_EQ(boxes[0].text, u"Are you sure you want to delete these error reports?");
  EXPECT_EQ(boxes[0].caption, u"Marlowen Error Reporter");
  EXPECT_EQ(boxes[0].type, MB_YESNO | MB_ICONQUESTION);
  EXPECT_EQ(FolderNames(), (std::vector<std::string>{"C_3.xml", "MarlowenErrorReporting.url", "sub"}));
  EXPECT_TRUE(testing_support::PathExists(InFolder("sub/D_4.dmp")));
}

}  // namespace
