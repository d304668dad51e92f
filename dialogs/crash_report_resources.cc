#include "dialogs/crash_report_resources.h"

#include <QBuffer>
#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <QRadialGradient>

#include "dialogs/dialog_environment.h"

namespace {

constexpr DWORD kDialogStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU | DS_MODALFRAME | DS_SETFONT;
constexpr DWORD kShown = WS_VISIBLE;
constexpr DWORD kHidden = 0;
constexpr DWORD kTab = WS_VISIBLE | WS_TABSTOP;
// A radio group starts at its first button; the next WS_GROUP ends it.
constexpr DWORD kFirstRadio = WS_VISIBLE | WS_GROUP | WS_TABSTOP;
constexpr DWORD kEndsGroup = WS_GROUP;
constexpr DWORD kBorderedHiddenBar = WS_BORDER;

constexpr int kIconSize = 32;

const DialogTemplate kSettingsTemplate{
    .id = kSettingsDialogTemplate,
    .caption = u"Marlowen Error Reporter - Settings",
    .style = kDialogStyle,
    .exStyle = WS_EX_TOPMOST,
    .cx = 348,
    .cy = 286,
    .controls =
        {
            {ControlKind::kFrame, kIdKbLinkPlaceholder, u"", 7, 41, 334, 11, kShown},
            {ControlKind::kStaticText, -1,
             u"Marlowen Error Reporter sends information about unexpected errors to Marlowen.", 7, 7, 334, 11, kShown},
            {ControlKind::kGroupBox, -1, u"Settings", 7, 61, 334, 57, kShown},
            {ControlKind::kRadioButton, kIdSend, u"Send error reports", 16, 74, 72, 10, kFirstRadio},
            {ControlKind::kRadioButton, kIdAskFirst, u"Ask before sending error reports", 16, 88, 116, 10, kShown},
            {ControlKind::kRadioButton, kIdDoNotSend, u"Do not send error reports", 16, 102, 94, 10, kShown},
            {ControlKind::kGroupBox, -1, u"Customer identification", 7, 127, 334, 63, kShown | kEndsGroup},
            {ControlKind::kStaticText, -1,
             u"If you want error reports from this machine to be identifiable by Marlowen, then you can enter a "
             u"valid Software Maintenance Agreement number below.",
             16, 141, 318, 24, kShown},
            {ControlKind::kStaticText, -1, u"SMA Number", 16, 167, 51, 8, kShown},
            {ControlKind::kEdit, kIdSmaNumber, u"", 78, 167, 98, 14, kTab | WS_BORDER | ES_AUTOHSCROLL},
            {ControlKind::kGroupBox, -1, u"Currently generated crash reports", 7, 199, 334, 55, kShown},
            {ControlKind::kStaticText, kIdStatus, u"There are currently 0 error report(s) on this machine", 16, 213,
             317, 8, kShown},
            {ControlKind::kPushButton, kIdSendAll, u"Send to Marlowen", 16, 230, 81, 14, kTab},
            {ControlKind::kPushButton, kIdViewFiles, u"View Files", 110, 230, 81, 14, kTab},
            {ControlKind::kPushButton, kIdDeleteReports, u"Delete Reports", 204, 230, 81, 14, kTab},
            {ControlKind::kProgressBar, kIdProgress, u"", 15, 232, 268, 11, kBorderedHiddenBar},
            {ControlKind::kDefPushButton, IDOK, u"OK", 231, 265, 50, 14, kTab},
            {ControlKind::kPushButton, IDCANCEL, u"Cancel", 291, 265, 50, 14, kTab},
            {ControlKind::kStaticText, -1,
             u"You can help us improve our programs by reporting these errors to Marlowen for analysis. These "
             u"reports do not contain any personal information. You can read more about the content of these "
             u"reports on",
             7, 22, 334, 18, kShown},
        },
};

const DialogTemplate kInfoTemplate{
    .id = kInfoDialogTemplate,
    .caption = u"Marlowen Error Reporter",
    .style = kDialogStyle,
    .exStyle = WS_EX_TOPMOST,
    .cx = 348,
    .cy = 132,
    .controls =
        {
            {ControlKind::kIcon, kIdInfoIcon, u"", 7, 7, 20, 20, kShown, kInformationIcon},
            {ControlKind::kStaticText, kIdReportCount,
             u"There are one or more error reports on this computer that have not been sent to Marlowen.", 48, 7,
             293, 18, kShown},
            {ControlKind::kStaticText, kIdInfoHeading,
             u"You can help us improve our programs and avoid problems in the future by sending these reports to "
             u"Marlowen for analysis. No personal information will be sent.",
             48, 27, 293, 20, kShown},
            {ControlKind::kRadioButton, kIdSend, u"Send error reports to Marlowen for analysis", 48, 50, 150, 10,
             kFirstRadio},
            {ControlKind::kRadioButton, kIdDoNotSend, u"Do not report these errors", 48, 65, 114, 10, kShown},
            {ControlKind::kRadioButton, kIdDeleteChoice, u"Delete these reports", 48, 80, 94, 10, kShown},
            {ControlKind::kStaticText, kIdStatus, u"Error report upload status", 48, 72, 293, 8, kHidden | kEndsGroup},
            {ControlKind::kProgressBar, kIdProgress, u"", 48, 91, 268, 11, kBorderedHiddenBar},
            {ControlKind::kDefPushButton, IDOK, u"OK", 48, 111, 50, 14, kTab},
            {ControlKind::kFrame, kIdLinkPlaceholder, u"", 266, 114, 75, 11, kShown},
        },
};

const DialogTemplate kErrorTemplate{
    .id = kErrorDialogTemplate,
    .caption = u"Unexpected Program Error",
    .style = kDialogStyle,
    .exStyle = WS_EX_TOPMOST,
    .cx = 348,
    .cy = 132,
    .controls =
        {
            {ControlKind::kIcon, kIdErrorIcon, u"", 7, 7, 20, 20, kShown, kErrorIcon},
            {ControlKind::kStaticText, kIdErrorHeading,
             u"<AppName> has terminated unexpectidly. We are VERY SORRY for the inconvenience this may cause.", 48,
             7, 293, 23, kShown},
            {ControlKind::kStaticText, kIdPleaseHelp,
             u"Please help us improve the program and avoid this problem in the future. You can do this by sending "
             u"a report",
             48, 32, 293, 21, kShown},
            {ControlKind::kRadioButton, kIdSend, u"Send a report of this error to Marlowen for analysis", 48, 63,
             173, 10, kFirstRadio},
            {ControlKind::kRadioButton, kIdDoNotSend, u"Do not report this error", 48, 77, 86, 10, kShown},
            {ControlKind::kStaticText, kIdStatus, u"Error report upload status", 48, 70, 293, 8, kHidden | kEndsGroup},
            {ControlKind::kProgressBar, kIdProgress, u"", 48, 89, 268, 11, kBorderedHiddenBar},
            {ControlKind::kDefPushButton, IDOK, u"OK", 48, 111, 50, 14, kTab},
            {ControlKind::kStaticText, kIdDisabledNote,
             u"Error reporting has been disabled on this machine. You can help us improve the program and avoid "
             u"this problem in the future by enabling error reporting.",
             48, 32, 293, 24, kShown},
            {ControlKind::kFrame, kIdLinkPlaceholder, u"", 266, 114, 75, 11, kShown},
        },
};

std::vector<std::uint8_t> ToPng(const QImage& image) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

// A shaded disc that both icons stand on.
void PaintDisc(QPainter& painter, const QColor& light, const QColor& dark) {
  QRadialGradient shade(QPointF(12, 10), 20);
  shade.setColorAt(0, light);
  shade.setColorAt(1, dark);
  painter.setPen(QPen(dark.darker(130), 1.2));
  painter.setBrush(shade);
  painter.drawEllipse(QRectF(1.5, 1.5, 29, 29));
}

}  // namespace

const DialogTemplate& SettingsDialogTemplate() { return kSettingsTemplate; }
const DialogTemplate& InfoDialogTemplate() { return kInfoTemplate; }
const DialogTemplate& ErrorDialogTemplate() { return kErrorTemplate; }

std::vector<std::uint8_t> DrawInformationIconPng() {
  QImage image(kIconSize, kIconSize, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  PaintDisc(painter, QColor(120, 170, 240), QColor(20, 80, 180));
  // The letter i as two shapes, so that no font is needed.
  painter.setPen(Qt::NoPen);
  painter.setBrush(Qt::white);
  painter.drawEllipse(QRectF(13.5, 6.5, 5, 5));
  painter.drawRoundedRect(QRectF(13.5, 13, 5, 13), 1.5, 1.5);
  painter.end();
  return ToPng(image);
}

std::vector<std::uint8_t> DrawErrorIconPng() {
  QImage image(kIconSize, kIconSize, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  PaintDisc(painter, QColor(250, 120, 110), QColor(190, 20, 20));
  QPen cross(Qt::white, 4.0, Qt::SolidLine, Qt::RoundCap);
  painter.setPen(cross);
  painter.drawLine(QPointF(10.5, 10.5), QPointF(21.5, 21.5));
  painter.drawLine(QPointF(21.5, 10.5), QPointF(10.5, 21.5));
  painter.end();
  return ToPng(image);
}

void RegisterCrashReportResources() {
  static bool templatesDone = false;
  static bool iconsDone = false;
  if (!templatesDone) {
    RegisterDialogTemplate(&kSettingsTemplate);
    RegisterDialogTemplate(&kInfoTemplate);
    RegisterDialogTemplate(&kErrorTemplate);
    templatesDone = true;
  }
  // Drawing needs the toolkit's application object, and that needs a display.
  if (!iconsDone && EnsureDialogApplication()) {
    const std::vector<std::uint8_t> information = DrawInformationIconPng();
    const std::vector<std::uint8_t> error = DrawErrorIconPng();
    iconsDone = RegisterIconResource(kInformationIcon, information.data(), information.size()) &&
                RegisterIconResource(kErrorIcon, error.data(), error.size());
  }
}
