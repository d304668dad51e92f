// The settings dialog: what it shows of the saved settings, what OK saves,
// the customer number's form, the report buttons, and the dialog opened from
// another dialog's link.
#include "dialogs/crash_report_settings_dialog.h"

#include <gtest/gtest.h>

#include <QWidget>
#include <algorithm>
#include <cstdio>

#include <string>
#include <tuple>
#include <vector>

#include "dialog_test_support.h"
#include "dialogs/crash_report_error_dialog.h"
#include "dialogs/crash_report_resources.h"
#include "dialogs/qt_window_access.h"
#include "dialogs/window_api.h"
#include "report_dialog_test_support.h"
#include "report_test_support.h"
#include "shell/dialog_modes.h"
#include "shell/report_modes.h"
#include "test_root.h"

namespace {

using report_dialog_test::Checked;
using report_dialog_test::Click;
using report_dialog_test::Enabled;
using report_dialog_test::ReportDialogTest;
using report_dialog_test::SettingsFileBytes;
using report_dialog_test::Text;
using report_dialog_test::Type;
using report_dialog_test::Visible;
using report_dialog_test::WhenDialogShows;

constexpr char16_t kInvalidNumber[] = u"The specified SMA number has invalid format";

class SettingsDialogTest : public ReportDialogTest {};

struct ChoiceCase {
  bool sendReports;
  bool askFirst;
  int shownChoice;
};

// Saved settings are shown; the choice clicked and the number typed are
// saved byte for byte.
class SettingsChoiceTest : public SettingsDialogTest,
                           public testing::WithParamInterface<std::tuple<ChoiceCase, ChoiceCase>> {};

TEST_P(SettingsChoiceTest, ShowsTheSavedChoiceAndSavesTheNewOne) {
  const auto [saved, chosen] = GetParam();
  SaveSettings(saved.sendReports, saved.askFirst, "11111-22222");
  WhenDialogShows act([&](HWND dialog) {
    EXPECT_TRUE(Checked(dialog, saved.shownChoice));
    for (int id : {kIdSend, kIdAskFirst, kIdDoNotSend}) EXPECT_EQ(Checked(dialog, id), id == saved.shownChoice);
    EXPECT_EQ(Text(dialog, kIdSmaNumber), u"11111-22222");
    Click(dialog, chosen.shownChoice);
    Type(dialog, kIdSmaNumber, u"33333-44444");
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(boxes.empty());
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(chosen.sendReports, chosen.askFirst, "33333-44444"));
}

const ChoiceCase kSend{true, false, kIdSend};
const ChoiceCase kAsk{true, true, kIdAskFirst};
const ChoiceCase kOff{false, false, kIdDoNotSend};

INSTANTIATE_TEST_SUITE_P(Choices, SettingsChoiceTest,
                         testing::Values(std::make_tuple(kSend, kAsk), std::make_tuple(kAsk, kOff),
                                         std::make_tuple(kOff, kSend)));

TEST_F(SettingsDialogTest, CancelSavesNothing) {
  SaveSettings(true, false, "");
  WhenDialogShows act([&](HWND dialog) {
    Click(dialog, kIdDoNotSend);
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(true, false, ""));
}

class CustomerNumberTest : public SettingsDialogTest, public testing::WithParamInterface<const char16_t*> {};

TEST_P(CustomerNumberTest, WrongFormIsRefusedAndTheDialogStaysOpen) {
  SaveSettings(true, true, "");
  bool openAfterRefusal = false;
  WideString textAfterRefusal;
  WhenDialogShows act([&](HWND dialog) {
    Type(dialog, kIdSmaNumber, GetParam());
    Click(dialog, IDOK);
    openAfterRefusal = IsWindowVisible(dialog) != FALSE;
    textAfterRefusal = Text(dialog, kIdSmaNumber);
    // Blanks around a good number are trimmed away.
    Type(dialog, kIdSmaNumber, u" 12345-67890 ");
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(openAfterRefusal);
  EXPECT_EQ(textAfterRefusal, GetParam());
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, kInvalidNumber);
  EXPECT_EQ(boxes[0].caption, u"Marlowen Error Reporter");
  EXPECT_EQ(boxes[0].type, MB_ICONWARNING);
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(true, true, "12345-67890"));
}

INSTANTIATE_TEST_SUITE_P(Refused, CustomerNumberTest,
                         testing::Values(u"1234-56789", u"12345-6789a", u"a2345-67890", u"12345-6789",
                                         u"12345-678901", u"123456-7890"));

TEST_F(SettingsDialogTest, FailedSaveWarnsAndKeepsTheDialogOpen) {
  // No report folder, nor its parent, to save into.
  ASSERT_EQ(std::remove(folder_.c_str()), 0);
  ASSERT_EQ(std::remove(folder_.substr(0, folder_.rfind('/')).c_str()), 0);
  bool open = false;
  WhenDialogShows act([&](HWND dialog) {
    Click(dialog, IDOK);
    open = IsWindowVisible(dialog) != FALSE;
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(open);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, u"Cannot save error report settings.");
  EXPECT_EQ(boxes[0].type, MB_ICONWARNING);
}

TEST_F(SettingsDialogTest, NoReportsDisableTheReportButtons) {
  WhenDialogShows act([&](HWND dialog) {
    EXPECT_EQ(Text(dialog, kIdStatus), u"There are currently 0 error reports on this machine");
    for (int id : {kIdSendAll, kIdViewFiles, kIdDeleteReports}) EXPECT_FALSE(Enabled(dialog, id)) << id;
    // A click on a disabled button does nothing.
    Click(dialog, kIdSendAll);
    dialog_test::RunEventsFor(150);
    EXPECT_FALSE(Visible(dialog, kIdProgress));
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(boxes.empty());
}

TEST_F(SettingsDialogTest, SendUploadsAllAndTheDialogStaysWithTheCountRefreshed) {
  auto collector = StartCollector();
  SaveSettings(true, false, "11111-22222");
  AddReport("Quill_20260102030405_1_1");
  bool uploadingLayout = false;
  onBox = [&](const report_dialog_test::BoxCall& call) {
    uploadingLayout = Visible(call.owner, kIdProgress) && Visible(call.owner, kIdStatus) &&
                      !Visible(call.owner, kIdSendAll) && !Visible(call.owner, kIdViewFiles) &&
                      !Visible(call.owner, kIdDeleteReports) && Enabled(call.owner, IDOK);
    report_dialog_test::SaveScreenshot(call.owner, "settings_dialog_uploading");
  };
  WideString countAfter;
  bool buttonsAfter = true;
  WhenDialogShows act([&](HWND dialog) {
    EXPECT_EQ(Text(dialog, kIdStatus), u"There are currently 1 error reports on this machine");
    EXPECT_TRUE(Enabled(dialog, kIdSendAll));
    report_dialog_test::SaveScreenshot(dialog, "settings_dialog");
    // A number typed but not saved does not go with the reports.
    Type(dialog, kIdSmaNumber, u"99999-88888");
    Click(dialog, kIdSendAll);
    dialog_test::WaitFor([&] { return !boxes.empty() && Visible(dialog, kIdSendAll); });
    countAfter = Text(dialog, kIdStatus);
    buttonsAfter = Enabled(dialog, kIdSendAll) || Enabled(dialog, kIdViewFiles) || Enabled(dialog, kIdDeleteReports);
    EXPECT_FALSE(Visible(dialog, kIdProgress));
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(uploadingLayout);
  EXPECT_EQ(countAfter, u"There are currently 0 error reports on this machine");
  EXPECT_FALSE(buttonsAfter);
  EXPECT_EQ(collector->UploadCount(), 1u);
  const std::vector<std::uint8_t> document = packaging_test::ExtractZipEntry(
      collector->Value("receivedDir") + "/Quill_20260102030405_1_1.zip", "Quill_20260102030405_1_1.xml");
  const std::string text(document.begin(), document.end());
  EXPECT_NE(text.find("<SMA>11111-22222</SMA>"), std::string::npos) << text;
  // Cancel after an upload leaves the settings file alone.
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(true, false, "11111-22222"));
}

TEST_F(SettingsDialogTest, ViewFilesOpensTheFolderAndDeleteNeedsYes) {
  AddReport("Quill_20260102030405_1_1", 1);
  AddReport("Slate_20260102030405_2_2", 2);
  // The user removes a report while the folder is shown.
  onOpen = [&](const std::string&) { std::remove(InFolder("Slate_20260102030405_2_2.dmp").c_str()); };
  boxAnswers = {IDNO, IDYES};
  std::vector<WideString> counts;
  WhenDialogShows act([&](HWND dialog) {
    counts.push_back(Text(dialog, kIdStatus));
    Click(dialog, kIdViewFiles);
    counts.push_back(Text(dialog, kIdStatus));
    Click(dialog, kIdDeleteReports);
    counts.push_back(Text(dialog, kIdStatus));
    Click(dialog, kIdDeleteReports);
    counts.push_back(Text(dialog, kIdStatus));
    EXPECT_FALSE(Enabled(dialog, kIdViewFiles));
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  ASSERT_EQ(opened.size(), 1u);
  EXPECT_EQ(opened[0], "file://" + folder_.substr(0, folder_.rfind('/')) + "/Crash%20Reports");
  EXPECT_EQ(counts, (std::vector<WideString>{u"There are currently 2 error reports on this machine",
                                             u"There are currently 1 error reports on this machine",
                                             u"There are currently 1 error reports on this machine",
                                             u"There are currently 0 error reports on this machine"}));
  ASSERT_EQ(boxes.size(), 2u);
  EXPECT_EQ(boxes[1].text, u"Are you sure you want to delete these error reports?");
  EXPECT_EQ(boxes[1].type, MB_YESNO | MB_ICONQUESTION);
  EXPECT_EQ(FolderNames(), std::vector<std::string>{});
}

TEST_F(SettingsDialogTest, KbLinkCarriesTheArticleAddress) {
  WhenDialogShows act([&](HWND dialog) {
    // The link made over the placeholder: the control whose markup names it.
    QWidget* link = nullptr;
    for (QWidget* child : report_dialog_test::Widget(dialog)->findChildren<QWidget*>()) {
      char16_t markup[512] = {};
      GetWindowTextW(HandleFromWidget(child), markup, 512);
      if (WideString(markup).find(u"idKbLink") != WideString::npos) link = child;
    }
    ASSERT_NE(link, nullptr);
    EXPECT_TRUE(link->isVisible());
    link->setFocus();
    QTest::keyClick(link, Qt::Key_Return);
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_EQ(opened, std::vector<std::string>{report_dialog_test::ExpectedKbAddress()});
  EXPECT_EQ(testing_support::ReadFileText(InFolder("MarlowenErrorReporting.url")),
            "[InternetShortcut]\r\nURL=" + report_dialog_test::ExpectedKbAddress());
}

TEST_F(SettingsDialogTest, OpenedFromALinkSavesWhileTheCallerKeepsWhatItRead) {
  AddReport("Tarnhollows_20260102030405_1_1");
  const std::vector<std::string> before = FolderNames();
  HWND nestedOwner = nullptr;
  bool callerUnchanged = false;
  WhenDialogShows act([&](HWND errorDialog) {
    WhenDialogShows nested([&](HWND settingsDialog) {
      nestedOwner = GetParent(settingsDialog);
      EXPECT_TRUE(Checked(settingsDialog, kIdSend));
      Click(settingsDialog, kIdDoNotSend);
      Type(settingsDialog, kIdSmaNumber, u"55555-66666");
      Click(settingsDialog, IDOK);
    }, errorDialog);
    NMLINK link{};
    link.hdr.code = NM_CLICK;
    std::char_traits<char16_t>::copy(link.item.szID, u"idSettingsLink", 14);
    SendMessageW(errorDialog, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&link));
    EXPECT_TRUE(nested.fired());
    // The error dialog still offers to send, as its start said.
    callerUnchanged = Visible(errorDialog, kIdPleaseHelp) && Checked(errorDialog, kIdSend) &&
                      !Visible(errorDialog, kIdDisabledNote);
    Click(errorDialog, kIdDoNotSend);
    Click(errorDialog, IDOK);
  });
  EXPECT_EQ(RunSendMode(u"Tarnhollows_20260102030405_1_1"), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_NE(nestedOwner, nullptr);
  EXPECT_TRUE(callerUnchanged);
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(false, false, "55555-66666"));
  std::vector<std::string> after = before;
  after.push_back("CrashReport.settings");
  std::sort(after.begin(), after.end());
  EXPECT_EQ(FolderNames(), after);
}

}  // namespace
