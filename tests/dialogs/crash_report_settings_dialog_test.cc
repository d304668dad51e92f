// The settings dialog: what it shows of the saved settings, what OK saves,
// the customer number's form, the report buttons and the article link.
#include "dialogs/crash_report_settings_dialog.h"

#include <gtest/gtest.h>

#include <QTest>
#include <QWidget>
#include <tuple>

#include "dialogs/qt_window_access.h"
#include "report_dialog_test_support.h"
#include "report_test_support.h"
#include "shell/dialog_modes.h"

namespace {

using namespace report_dialog_test;

WideString CountText(int count) {
  return u"There are currently " + Utf8ToWide(std::to_string(count)) + u" error reports on this machine";
}

using SettingsDialogTest = ReportDialogTest;

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

class CustomerNumberTest : public SettingsDialogTest, public testing::WithParamInterface<const char16_t*> {};

TEST_P(CustomerNumberTest, WrongFormIsRefusedAndTheDialogStaysOpen) {
  SaveSettings(true, true, "");
  WhenDialogShows act([&](HWND dialog) {
    Type(dialog, kIdSmaNumber, GetParam());
    Click(dialog, IDOK);
    EXPECT_TRUE(IsWindowVisible(dialog));
    EXPECT_EQ(Text(dialog, kIdSmaNumber), GetParam());
    // Blanks around a good number are trimmed away.
    Type(dialog, kIdSmaNumber, u" 12345-67890 ");
    Click(dialog, IDOK);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, u"The specified SMA number has invalid format");
  EXPECT_EQ(boxes[0].caption, u"Marlowen Error Reporter");
  EXPECT_EQ(boxes[0].type, MB_ICONWARNING);
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(true, true, "12345-67890"));
}

INSTANTIATE_TEST_SUITE_P(Refused, CustomerNumberTest,
                         testing::Values(u"1234-56789", u"12345-6789a", u"12345-6789", u"12345-678901"));

TEST_F(SettingsDialogTest, WithoutAFolderAFailedSaveKeepsTheDialogOpen) {
  // No report folder, nor its parent: nowhere to save.
  ASSERT_EQ(std::remove(folder_.c_str()), 0);
  ASSERT_EQ(std::remove(folder_.substr(0, folder_.rfind('/')).c_str()), 0);
  WhenDialogShows act([&](HWND dialog) {
    EXPECT_EQ(Text(dialog, kIdStatus), CountText(0));
    Click(dialog, kIdDoNotSend);
    Click(dialog, IDOK);
    EXPECT_TRUE(IsWindowVisible(dialog));
    // Cancel tries no save: a second warning would tell.
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].text, u"Cannot save error report settings.");
  EXPECT_EQ(boxes[0].type, MB_ICONWARNING);
}

TEST_F(SettingsDialogTest, SendUploadsAllAndTheDialogStaysWithTheCountRefreshed) {
  auto collector = StartCollector();
  SaveSettings(true, false, "11111-22222");
  AddReport("Quill_20260102030405_1_1");
  bool uploadingLayout = false;
  onBox = [&](const BoxCall& call) {
    uploadingLayout = Visible(call.owner, kIdProgress) && Visible(call.owner, kIdStatus) &&
                      !Visible(call.owner, kIdSendAll) && !Visible(call.owner, kIdViewFiles) &&
                      !Visible(call.owner, kIdDeleteReports) && Enabled(call.owner, IDOK);
    SaveScreenshot(call.owner, "settings_dialog_uploading");
  };
  WhenDialogShows act([&](HWND dialog) {
    EXPECT_EQ(Text(dialog, kIdStatus), CountText(1));
    SaveScreenshot(dialog, "settings_dialog");
    // A number typed but not saved does not go with the reports.
    Type(dialog, kIdSmaNumber, u"99999-88888");
    Click(dialog, kIdSendAll);
    dialog_test::WaitFor([&] { return !boxes.empty() && Visible(dialog, kIdSendAll); });
    EXPECT_EQ(Text(dialog, kIdStatus), CountText(0));
    EXPECT_FALSE(Enabled(dialog, kIdSendAll) || Enabled(dialog, kIdViewFiles) || Enabled(dialog, kIdDeleteReports));
    EXPECT_FALSE(Visible(dialog, kIdProgress));
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_TRUE(uploadingLayout);
  EXPECT_EQ(collector->UploadCount(), 1u);
  const std::vector<std::uint8_t> document = packaging_test::ExtractZipEntry(
      collector->Value("receivedDir") + "/Quill_20260102030405_1_1.zip", "Quill_20260102030405_1_1.xml");
  EXPECT_NE(std::string(document.begin(), document.end()).find("<SMA>11111-22222</SMA>"), std::string::npos);
  EXPECT_EQ(SettingsBytes(), SettingsFileBytes(true, false, "11111-22222"));
}

TEST_F(SettingsDialogTest, ArticleLinkViewFilesAndDeleteNeedsYes) {
  AddReport("Quill_20260102030405_1_1", 1);
  AddReport("Slate_20260102030405_2_2", 2);
  // The user removes a report while the folder is shown.
  onOpen = [&](const std::string& url) {
    if (url.starts_with("file:")) std::remove(InFolder("Slate_20260102030405_2_2.dmp").c_str());
  };
  boxAnswers = {IDNO, IDYES};
  std::vector<WideString> counts;
  WhenDialogShows act([&](HWND dialog) {
    // The article link lies over its placeholder, which lets the click through.
    QWidget* placeholder = WidgetFromHandle(GetDlgItem(dialog, kIdKbLinkPlaceholder));
    QWidget* link = WidgetFromHandle(dialog)->childAt(placeholder->geometry().topLeft() + QPoint(4, 4));
    ASSERT_NE(link, nullptr);
    QTest::mouseClick(link, Qt::LeftButton, {}, QPoint(4, 4));
    counts.push_back(Text(dialog, kIdStatus));
    for (int id : {kIdViewFiles, kIdDeleteReports, kIdDeleteReports}) {
      Click(dialog, id);
      counts.push_back(Text(dialog, kIdStatus));
    }
    EXPECT_FALSE(Enabled(dialog, kIdViewFiles));
    Click(dialog, IDCANCEL);
  });
  EXPECT_EQ(RunSettingsMode(), 0);
  ASSERT_TRUE(act.fired());
  EXPECT_EQ(opened, (std::vector<std::string>{ExpectedKbAddress(),
                                              "file://" + root_.path() + "/var/lib/Marlowen/Crash%20Reports"}));
  EXPECT_EQ(counts, (std::vector<WideString>{CountText(2), CountText(1), CountText(1), CountText(0)}));
  ASSERT_EQ(boxes.size(), 2u);
  EXPECT_EQ(boxes[1].text, u"Are you sure you want to delete these error reports?");
  EXPECT_EQ(boxes[1].type, MB_YESNO | MB_ICONQUESTION);
  EXPECT_EQ(FolderNames(), std::vector<std::string>{"MarlowenErrorReporting.url"});
}

}  // namespace
