// The shared base of the reporter's dialogs on a small dialog of its own:
// the upload on its timer against the test collector, what the bar and the
// status line show at each step, the result box, the links and deleting.
#include "dialogs/crash_report_base_dialog.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QKeyEvent>

#include <string>
#include <vector>

#include "dialog_test_support.h"
#include "dialogs/crash_report_resources.h"
#include "dialogs/window_api.h"
#include "report_dialog_test_support.h"
#include "test_root.h"

namespace {

using dialog_test::RunDialog;
using dialog_test::WaitFor;
using report_dialog_test::ReportDialogTest;
using report_dialog_test::ShownStep;
using report_dialog_test::StepRecorder;

const char16_t kCaption[] = u"Marlowen Error Reporter";

// A dialog with the upload controls and nothing else; it logs its turns.
class ProbeDialog final : public CrashReportBaseDialog {
 public:
  WideString reportName;
  std::vector<std::string> events;

  void OnInit() override { events.push_back("OnInit"); }
  void OnUploadStarting() override {
    events.push_back("starting");
    ShowItems(2, kIdProgress, kIdStatus);
  }
  void OnUploadFinished() override { events.push_back("finished"); }
  WideString GetReportName() override { return reportName; }

  void Start() { StartUpload(); }
};

const DialogTemplate& ProbeTemplate() {
  static const DialogTemplate probe{
      .id = 9101,
      .caption = u"Probe",
      .cx = 200,
      .cy = 60,
      .controls =
          {
              {ControlKind::kStaticText, kIdStatus, u"idle", 7, 7, 186, 8, 0},
              {ControlKind::kProgressBar, kIdProgress, u"", 7, 20, 186, 11, WS_BORDER},
              {ControlKind::kDefPushButton, IDOK, u"OK", 7, 40, 50, 14, WS_VISIBLE | WS_TABSTOP},
          },
  };
  return probe;
}

std::vector<ShownStep> StepsOf(const WideString& id, int firstPosition) {
  static const char16_t* const texts[] = {u"Creating zip package.",   u"Contacting upload server.",
                                          u"Preparing upload XML.",   u"Opening HTTP connection.",
                                          u"Preparing headers.",      u"Sending data...",
                                          u"Upload successful."};
  std::vector<ShownStep> steps;
  for (int i = 0; i < 7; ++i) steps.push_back({u"Report id: " + id + u"." + texts[i], firstPosition + i});
  return steps;
}

class BaseDialogTest : public ReportDialogTest {
 protected:
  // Starts the upload from the dialog and waits for the dialog to end by
  // OK, which the test presses once the upload's turn is over.
  void RunUploadOn(ProbeDialog& dialog, std::unique_ptr<StepRecorder>& recorder) {
    RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
      recorder = std::make_unique<StepRecorder>(window);
      dialog.Start();
      WaitFor([&] { return !dialog.events.empty() && dialog.events.back() == "finished"; });
      range = static_cast<long>(SendDlgItemMessageW(window, kIdProgress, PBM_GETRANGE, 0, 0));
      SendMessageW(window, WM_COMMAND, IDOK, 0);
    });
  }
  long range = 0;
};

TEST_F(BaseDialogTest, UploadOfAllReportsShowsEveryStepThenTheResult) {
  auto collector = StartCollector();
  AddReport("Alpha_20260102030405_1_2", 1);
  AddReport("Beta_20260102030405_3_4", 2);
  ProbeDialog dialog;
  std::unique_ptr<StepRecorder> recorder;
  HWND window = nullptr;
  onBox = [&](const report_dialog_test::BoxCall& call) {
    window = call.owner;
    dialog.events.push_back("box");
  };
  RunUploadOn(dialog, recorder);

  // Seven steps per report, the bar counting on across both.
  std::vector<ShownStep> steps = recorder->ReportSteps();
  ASSERT_EQ(steps.size(), 14u);
  const WideString first = steps[0].text.substr(11, steps[0].text.find(u'.') - 11);
  const WideString second = first == u"Alpha_20260102030405_1_2" ? u"Beta_20260102030405_3_4"
                                                                 : u"Alpha_20260102030405_1_2";
  std::vector<ShownStep> expected = StepsOf(first, 1);
  std::vector<ShownStep> more = StepsOf(second, 8);
  expected.insert(expected.end(), more.begin(), more.end());
  EXPECT_EQ(steps, expected);
  EXPECT_EQ(range, 14);

  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, u"Error reports successfully sent to Marlowen.");
  EXPECT_EQ(boxes[0].caption, kCaption);
  EXPECT_EQ(boxes[0].type, MB_ICONINFORMATION);
  EXPECT_EQ(window, dialog.GetHandle());
  EXPECT_EQ(dialog.events, (std::vector<std::string>{"OnInit", "starting", "box", "finished"}));
  EXPECT_EQ(collector->UploadCount(), 2u);
  EXPECT_TRUE(FolderNames().empty());
}

TEST_F(BaseDialogTest, FailedUploadOfANamedReportWarnsAndKeepsItsPackage) {
  auto collector = StartCollector();
  ASSERT_TRUE(collector->SetBehaviour(R"({"upload": {"httpStatus": 500}})"));
  AddReport("Gamma_20260102030405_5_6");
  ProbeDialog dialog;
  dialog.reportName = u"Gamma_20260102030405_5_6";
  std::unique_ptr<StepRecorder> recorder;
  RunUploadOn(dialog, recorder);

  std::vector<ShownStep> steps = recorder->ReportSteps();
  std::vector<ShownStep> expected = StepsOf(u"Gamma_20260102030405_5_6", 1);
  expected.pop_back();
  expected.push_back({u"Report id: Gamma_20260102030405_5_6.An error occurred. Check Marlowen log for details.", 7});
  EXPECT_EQ(steps, expected);
  EXPECT_EQ(range, 7);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text,
            u"One or more error reports could not be sent to Marlowen.\nPlease see Marlowen log for details.");
  EXPECT_EQ(boxes[0].caption, kCaption);
  EXPECT_EQ(boxes[0].type, MB_ICONWARNING);
  EXPECT_EQ(FolderNames(), std::vector<std::string>{"Gamma_20260102030405_5_6.zip"});
}

TEST_F(BaseDialogTest, OnlyTimerOneStartsAnUploadAndNothingPendingDoesNothing) {
  AddReport("Delta_20260102030405_7_8");
  const std::vector<std::string> before = FolderNames();
  ProbeDialog dialog;
  RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    // Another timer's ticks reach the dialog and start nothing.
    SetTimer(window, 2, 5, nullptr);
    dialog_test::RunEventsFor(60);
    KillTimer(window, 2);
    EXPECT_TRUE(boxes.empty());
    EXPECT_EQ(dialog.events, std::vector<std::string>{"OnInit"});

    // The reports are gone by the time timer 1 fires: no box, no finish,
    // the layout stays as the start left it.
    for (const std::string& name : before) std::remove(InFolder(name).c_str());
    dialog.Start();
    dialog_test::RunEventsFor(250);
    EXPECT_TRUE(report_dialog_test::Visible(window, kIdProgress));
    EXPECT_EQ(report_dialog_test::Text(window, kIdStatus), u"idle");
    SendMessageW(window, WM_COMMAND, IDOK, 0);
  });
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(dialog.events, (std::vector<std::string>{"OnInit", "starting"}));
}

TEST_F(BaseDialogTest, InputDuringTheUploadWaitsForItsEnd) {
  // Nothing listens there: the upload fails at once, after its first steps.
  setenv("MARLOWEN_INFO_SERVER", "127.0.0.1:1", 1);
  AddReport("Omega_20260102030405_9_9");
  ProbeDialog dialog;
  std::unique_ptr<StepRecorder> recorder;
  bool upAtBox = false;
  onBox = [&](const report_dialog_test::BoxCall& call) {
    upAtBox = IsWindowVisible(call.owner) && dialog.events.back() == "starting";
    dialog.events.push_back("box");
  };
  INT_PTR result = RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    recorder = std::make_unique<StepRecorder>(window);
    recorder->onFirstStep = [window] {
      QCoreApplication::postEvent(report_dialog_test::Widget(window),
                                  new QKeyEvent(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier));
    };
    dialog.Start();
  });
  // The Escape pressed during the upload was handled after it: Cancel.
  EXPECT_EQ(result, IDCANCEL);
  EXPECT_TRUE(upAtBox);
  EXPECT_EQ(dialog.events, (std::vector<std::string>{"OnInit", "starting", "box", "finished"}));
  ASSERT_FALSE(recorder->ReportSteps().empty());
  EXPECT_EQ(recorder->ReportSteps().back().text,
            u"Report id: Omega_20260102030405_9_9.An error occurred. Check Marlowen log for details.");
}

class StatusTextTest : public ReportDialogTest, public testing::WithParamInterface<std::pair<std::uint32_t, const char16_t*>> {};

TEST_P(StatusTextTest, StatusLineTellsTheStep) {
  ProbeDialog dialog;
  RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    UploadProgressContext context{GetDlgItem(window, kIdProgress), GetDlgItem(window, kIdStatus), 3};
    SendMessageW(context.progressControl, PBM_SETRANGE32, 0, 21);
    UploadProgressCallback(u"R_1", GetParam().first, &context);
    EXPECT_EQ(context.position, 4);
    EXPECT_EQ(SendMessageW(context.progressControl, PBM_GETPOS, 0, 0), 4);
    EXPECT_EQ(report_dialog_test::Text(window, kIdStatus), WideString(u"Report id: R_1.") + GetParam().second);
    EndDialog(window, 1);
  });
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, StatusTextTest,
    testing::Values(std::make_pair(8u, u"Unknown status received."),
                    std::make_pair(0xFFFFFFFFu, u"Unknown status received.")));

// Sends the dialog a link activation as the link control does. (What
// SendMessageW answers for a dialog is its message result, not the handler's.)
void Activate(HWND window, const char16_t* id, const char16_t* url, UINT code = NM_CLICK) {
  NMLINK link{};
  link.hdr.hwndFrom = nullptr;
  link.hdr.code = code;
  std::char_traits<char16_t>::copy(link.item.szID, id, std::char_traits<char16_t>::length(id));
  std::char_traits<char16_t>::copy(link.item.szUrl, url, std::char_traits<char16_t>::length(url));
  SendMessageW(window, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&link));
}

TEST_F(BaseDialogTest, KbLinkWritesTheShortcutOnceThenOpensTheLinksAddress) {
  const std::string shortcut = InFolder("MarlowenErrorReporting.url");
  ProbeDialog dialog;
  RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    Activate(window, u"idKbLink", u"http://kb.example/first");
    EXPECT_EQ(testing_support::ReadFileText(shortcut),
              "[InternetShortcut]\r\nURL=" + report_dialog_test::ExpectedKbAddress());
    // An existing file is left as it is; Enter on the link acts as a click.
    testing_support::WriteFileText(shortcut, "kept");
    Activate(window, u"idKbLink", u"http://kb.example/second", NM_RETURN);
    // Neither another notification nor an unknown id opens anything.
    Activate(window, u"idKbLink", u"http://kb.example/third", static_cast<UINT>(-12));
    Activate(window, u"idOther", u"");
    EndDialog(window, 1);
  });
  EXPECT_EQ(testing_support::ReadFileText(shortcut), "kept");
  EXPECT_EQ(opened, (std::vector<std::string>{"http://kb.example/first", "http://kb.example/second"}));
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, u"Unknown id");
  EXPECT_EQ(boxes[0].caption, u"Sys Link Control");
  EXPECT_EQ(boxes[0].type, MB_OK);
}

TEST_F(BaseDialogTest, KbLinkOpensNothingWhenTheShortcutCannotBeWritten) {
  // A folder where the shortcut file would go.
  testing_support::MakeFolders(InFolder("MarlowenErrorReporting.url") + "/x");
  ProbeDialog dialog;
  RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    Activate(window, u"idKbLink", u"http://kb.example/first");
    EndDialog(window, 1);
  });
  EXPECT_TRUE(opened.empty());
  EXPECT_TRUE(boxes.empty());
}

TEST_F(BaseDialogTest, DeleteAllReportsTakesDumpsRecordsAndPackagesOnly) {
  for (const char* name : {"A_1.dmp", "A_1.dat", "B_2.zip", "C_3.xml", "MarlowenErrorReporting.url",
                           "CrashReport.settings", "notes.txt"}) {
    testing_support::WriteFileText(InFolder(name), "x");
  }
  testing_support::MakeFolders(InFolder("sub"));
  testing_support::WriteFileText(InFolder("sub/D_4.dmp"), "x");
  CrashReportBaseDialog::DeleteAllReports();
  EXPECT_EQ(FolderNames(), (std::vector<std::string>{"C_3.xml", "CrashReport.settings", "MarlowenErrorReporting.url",
                                                     "notes.txt", "sub"}));
  EXPECT_TRUE(testing_support::PathExists(InFolder("sub/D_4.dmp")));
}

}  // namespace
