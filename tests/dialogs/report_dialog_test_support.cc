#include "report_dialog_test_support.h"

#include <QApplication>
#include <QEvent>
#include <QImage>
#include <QTest>
#include <QWidget>
#include <filesystem>
#include <utility>

#include "dialog_test_support.h"
#include "dialogs/crash_report_resources.h"
#include "dialogs/dialog_box.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/message_box.h"
#include "dialogs/qt_window_access.h"
#include "dialogs/shell_execute.h"
#include "dialogs/window_api.h"
#include "report_test_support.h"

namespace report_dialog_test {

namespace {

void PutU32(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

}  // namespace

std::vector<ShownStep> UploadSteps(const WideString& reportId, long firstPosition) {
  static const char16_t* const texts[] = {
      u"Creating zip package.", u"Contacting upload server.", u"Preparing upload XML.", u"Opening HTTP connection.",
      u"Preparing headers.",    u"Sending data...",           u"Upload successful."};
  std::vector<ShownStep> steps;
  for (const char16_t* text : texts) steps.push_back({u"Report id: " + reportId + u"." + text, firstPosition++});
  return steps;
}

StepRecorder::StepRecorder(HWND dialog)
    : status_(GetDlgItem(dialog, kIdStatus)), bar_(GetDlgItem(dialog, kIdProgress)) {
  WidgetFromHandle(status_)->installEventFilter(this);
}

bool StepRecorder::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Paint) {
    char16_t text[512] = {};
    GetWindowTextW(status_, text, 512);
    seen_.push_back({WideString(text), static_cast<long>(SendMessageW(bar_, PBM_GETPOS, 0, 0))});
    if (onFirstStep && seen_.back().text.starts_with(u"Report id: ")) std::exchange(onFirstStep, nullptr)();
  }
  return QObject::eventFilter(watched, event);
}

std::vector<ShownStep> StepRecorder::ReportSteps() const {
  std::vector<ShownStep> steps;
  for (const ShownStep& step : seen_) {
    if (!step.text.starts_with(u"Report id: ")) continue;
    if (!steps.empty() && steps.back() == step) continue;
    steps.push_back(step);
  }
  return steps;
}

void ReportDialogTest::SetUp() {
  ASSERT_TRUE(EnsureDialogApplication());
  RegisterCrashReportResources();
  testing_support::MakeFolders(folder_);
  SetMessageBoxHook([this](HWND owner, const WideString& text, const WideString& caption, UINT type) {
    BoxCall call{owner, text, caption, type};
    boxes.push_back(call);
    if (onBox) onBox(call);
    if (boxAnswers.empty()) return IDOK;
    int answer = boxAnswers.front();
    boxAnswers.erase(boxAnswers.begin());
    return answer;
  });
  SetDesktopOpenHook([this](const std::string& url) {
    opened.push_back(url);
    if (onOpen) onOpen(url);
    return true;
  });
}

void ReportDialogTest::TearDown() {
  SetMessageBoxHook(nullptr);
  SetDesktopOpenHook(nullptr);
  unsetenv("MARLOWEN_INFO_SERVER");
  unsetenv("MARLOWEN_CA_BUNDLE");
}

void ReportDialogTest::AddReport(const std::string& name, std::uint32_t seed) {
  ASSERT_TRUE(packaging_test::WriteCapturedReport(folder_, name, packaging_test::DumpLikeBytes(2048, seed)));
}

std::vector<std::string> ReportDialogTest::FolderNames() const { return testing_support::ListFolder(folder_); }

std::unique_ptr<upload_test::CollectorProcess> ReportDialogTest::StartCollector() {
  auto collector = std::make_unique<upload_test::CollectorProcess>(root_.Path("collector"));
  EXPECT_TRUE(collector->started());
  collector->UseAsServers();
  return collector;
}

std::vector<std::uint8_t> SettingsFileBytes(bool sendReports, bool askBeforeSending, const std::string& smaNumber) {
  std::vector<std::uint8_t> bytes;
  PutU32(bytes, 1);
  PutU32(bytes, 3);
  bytes.push_back(sendReports ? 1 : 0);
  bytes.push_back(askBeforeSending ? 1 : 0);
  PutU32(bytes, static_cast<std::uint32_t>(smaNumber.size()));
  bytes.insert(bytes.end(), smaNumber.begin(), smaNumber.end());
  return bytes;
}

void ReportDialogTest::SaveSettings(bool sendReports, bool askBeforeSending, const std::string& smaNumber) {
  testing_support::WriteFileBytes(InFolder("CrashReport.settings"),
                                  SettingsFileBytes(sendReports, askBeforeSending, smaNumber));
}

std::vector<std::uint8_t> ReportDialogTest::SettingsBytes() const {
  return testing_support::ReadFileBytes(InFolder("CrashReport.settings"));
}

bool Visible(HWND dialog, int id) { return IsWindowVisible(GetDlgItem(dialog, id)) != FALSE; }
bool Enabled(HWND dialog, int id) { return IsWindowEnabled(GetDlgItem(dialog, id)) != FALSE; }
bool Checked(HWND dialog, int id) { return SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0) == BST_CHECKED; }

WideString Text(HWND dialog, int id) {
  char16_t text[1024] = {};
  GetDlgItemTextW(dialog, id, text, 1024);
  return WideString(text);
}

void Click(HWND dialog, int id) {
  QWidget* widget = WidgetFromHandle(GetDlgItem(dialog, id));
  ASSERT_NE(widget, nullptr) << "control " << id;
  QTest::mouseClick(widget, Qt::LeftButton);
}

void Type(HWND dialog, int id, const WideString& text) {
  QWidget* widget = WidgetFromHandle(GetDlgItem(dialog, id));
  ASSERT_NE(widget, nullptr) << "control " << id;
  widget->setFocus();
  QTest::keyClick(widget, Qt::Key_A, Qt::ControlModifier);
  QTest::keyClick(widget, Qt::Key_Delete);
  QTest::keyClicks(widget, QString::fromStdU16String(text));
}

void ActivateLink(HWND dialog, const char16_t* id, const char16_t* url, UINT code) {
  NMLINK link{};
  link.hdr.code = code;
  std::char_traits<char16_t>::copy(link.item.szID, id, std::char_traits<char16_t>::length(id));
  std::char_traits<char16_t>::copy(link.item.szUrl, url, std::char_traits<char16_t>::length(url));
  SendMessageW(dialog, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&link));
}

void SaveScreenshot(HWND dialog, const std::string& name) {
  QWidget* widget = WidgetFromHandle(dialog);
  ASSERT_NE(widget, nullptr);
  const std::string folder = testing_support::BuildDir() + "/screenshots";
  std::filesystem::create_directories(folder);
  EXPECT_TRUE(widget->grab().toImage().save(QString::fromStdString(folder + "/" + name + ".png")));
}

std::string ExpectedKbAddress() { return std::string("http://") + ML_KB_HOST + "/kb/article.aspx?id=10232"; }

}  // namespace report_dialog_test
