#include "dialogs/shell_execute.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QUrl>

#include "dialogs/control_widgets.h"
#include "dialogs/dialog_environment.h"

namespace {

DesktopOpenHook& Hook() {
  static DesktopOpenHook hook;
  return hook;
}

HINSTANCE Answer(std::intptr_t code) { return reinterpret_cast<HINSTANCE>(code); }

// "http://x", "mailto:x": a scheme of at least two letters, so that a name
// like "c:x" is not taken for one.
bool HasScheme(const QString& text) {
  int colon = text.indexOf(QLatin1Char(':'));
  if (colon < 2) return false;
  for (int i = 0; i < colon; ++i) {
    QChar c = text[i];
    bool ok = (c >= QLatin1Char('a') && c <= QLatin1Char('z')) || (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) ||
              (i > 0 && (c.isDigit() || c == QLatin1Char('+') || c == QLatin1Char('-') || c == QLatin1Char('.')));
    if (!ok) return false;
  }
  return true;
}

}  // namespace

DesktopOpenHook SetDesktopOpenHook(DesktopOpenHook hook) {
  DesktopOpenHook previous = std::move(Hook());
  Hook() = std::move(hook);
  return previous;
}

HINSTANCE ShellExecuteW(HWND, const char16_t* verb, const char16_t* file, const char16_t*,
                        const char16_t* directory, int) {
  QString verbText = dialogs_internal::ToQString(WideView(verb));
  if (!verbText.isEmpty() && verbText.compare(QLatin1String("open"), Qt::CaseInsensitive) != 0 &&
      verbText.compare(QLatin1String("explore"), Qt::CaseInsensitive) != 0) {
    return Answer(SE_ERR_NOASSOC);
  }
  QString target = dialogs_internal::ToQString(WideView(file));
  if (target.isEmpty()) return Answer(SE_ERR_FNF);

  QUrl url;
  if (!target.startsWith(QLatin1Char('/')) && HasScheme(target)) {
    url = QUrl(target, QUrl::TolerantMode);
  } else {
    QString base = dialogs_internal::ToQString(WideView(directory));
    QString path = QDir::isAbsolutePath(target) || base.isEmpty() ? target : QDir(base).filePath(target);
    QFileInfo info(path);
    if (!info.exists()) return Answer(SE_ERR_FNF);
    url = QUrl::fromLocalFile(info.absoluteFilePath());
  }
  if (!url.isValid()) return Answer(SE_ERR_FNF);

  bool opened = false;
  if (Hook()) {
    opened = Hook()(url.toEncoded().toStdString());
  } else if (EnsureDialogApplication()) {
    opened = QDesktopServices::openUrl(url);
  }
  return Answer(opened ? 42 : SE_ERR_NOASSOC);
}
