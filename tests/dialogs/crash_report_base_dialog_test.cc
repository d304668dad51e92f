// The shared base of the reporter's dialogs on a small dialog of its own: the
// timer that starts an upload, the status texts, the links and deleting. The
// uploads themselves run through the concrete dialogs.
#include "dialogs/crash_report_base_dialog.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "report_dialog_test_support.h"

namespace {

using dialog_test::RunDialog;
using namespace report_dialog_test;

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

class BaseDialogTest : public ReportDialogTest {
 protected:
  ProbeDialog dialog;
};

TEST_F(BaseDialogTest, OnlyTimerOneStartsAnUploadAndNothingPendingDoesNothing) {
  AddReport("Delta_20260102030405_7_8");
  const std::vector<std::string> before = FolderNames();
  RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    SetTimer(window, 2, 5, nullptr);
    dialog_test::RunEventsFor(60);
    KillTimer(window, 2);
    EXPECT_EQ(FolderNames(), before);
    EXPECT_EQ(dialog.events, std::vector<std::string>{"OnInit"});
    // The reports are gone by the time timer 1 fires: no box, no finish,
    // the layout stays as the start left it.
    for (const std::string& name : before) std::remove(InFolder(name).c_str());
    dialog.Start();
    dialog_test::RunEventsFor(250);
    EXPECT_TRUE(Visible(window, kIdProgress));
    EXPECT_EQ(Text(window, kIdStatus), u"idle");
    EndDialog(window, IDOK);
  });
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(dialog.events, (std::vector<std::string>{"OnInit", "starting"}));
}

TEST_F(BaseDialogTest, UnknownStatusesMoveTheBarAndSaySo) {
  RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    UploadProgressContext context{GetDlgItem(window, kIdProgress), GetDlgItem(window, kIdStatus), 3};
    SendMessageW(context.progressControl, PBM_SETRANGE32, 0, 21);
    for (std::uint32_t status : {8u, 0xFFFFFFFFu}) {
      UploadProgressCallback(u"R_1", status, &context);
      EXPECT_EQ(Text(window, kIdStatus), u"Report id: R_1.Unknown status received.");
    }
    EXPECT_EQ(context.position, 5);
    EXPECT_EQ(SendMessageW(context.progressControl, PBM_GETPOS, 0, 0), 5);
    EndDialog(window, 1);
  });
}

TEST_F(BaseDialogTest, KbLinkWritesTheShortcutOnceThenOpensTheLinksAddress) {
  const std::string shortcut = InFolder("MarlowenErrorReporting.url");
  // A folder where the shortcut file would go: nothing is opened.
  testing_support::MakeFolders(shortcut);
  RunDialog(ProbeTemplate(), dialog, [&](HWND window) {
    ActivateLink(window, u"idKbLink", u"http://kb.example/blocked");
    EXPECT_TRUE(opened.empty());
    std::filesystem::remove(shortcut);
    ActivateLink(window, u"idKbLink", u"http://kb.example/first");
    EXPECT_EQ(testing_support::ReadFileText(shortcut), "[InternetShortcut]\r\nURL=" + ExpectedKbAddress());
    // An existing file is left as it is; Enter on the link acts as a click.
    testing_support::WriteFileText(shortcut, "kept");
    ActivateLink(window, u"idKbLink", u"http://kb.example/second", NM_RETURN);
    // Neither another notification nor an unknown id opens anything.
    ActivateLink(window, u"idKbLink", u"http://kb.example/third", static_cast<UINT>(-12));
    ActivateLink(window, u"idOther");
    EndDialog(window, 1);
  });
  EXPECT_EQ(testing_support::ReadFileText(shortcut), "kept");
  EXPECT_EQ(opened, (std::vector<std::string>{"http://kb.example/first", "http://kb.example/second"}));
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, u"Unknown id");
  EXPECT_EQ(boxes[0].caption, u"Sys Link Control");
  EXPECT_EQ(boxes[0].type, MB_OK);
}

}  // namespace
