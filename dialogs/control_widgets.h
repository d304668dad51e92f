// Inside the dialog layer: the widgets that stand for a dialog and its
// controls, and the notices they send to the dialog's procedure.
#pragma once

#include <QDialog>

#include "dialogs/dialog_template.h"
#include "dialogs/window_object.h"
#include "shell/wide_string.h"

class QCloseEvent;
class QKeyEvent;

namespace dialogs_internal {

inline QString ToQString(WideStringView text) {
  return QString::fromUtf16(text.data(), static_cast<qsizetype>(text.size()));
}
inline WideString FromQString(const QString& text) { return text.toStdU16String(); }

// The dialog's window. Escape and the close box become command IDCANCEL and
// WM_CLOSE; Enter becomes the command of the focused push button, else of
// the default push button, else IDOK.
class DialogWidget final : public QDialog {
 public:
  DialogWidget(HWND handle, QWidget* owner);

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  HWND handle_;
};

// Makes the widget of a control whose object (kind, id, style, parent) is
// filled in and registered; rect is in the dialog's client pixels.
QWidget* CreateControlWidget(WindowObject* control, QWidget* dialogWidget, const QRect& rect,
                             WideStringView text, int iconResource);

void SetControlText(WindowObject* control, WideStringView text);
WideString GetControlText(const WindowObject* control);

// Check state of a check box or radio button, without any notice.
void SetControlCheck(WindowObject* control, bool checked);
bool GetControlCheck(const WindowObject* control);

// Range and position of a progress bar as they are kept in the object.
void ApplyProgress(WindowObject* control);

// Paints now and pushes the pixels to the screen, without the event loop.
void PaintNow(QWidget* widget);

}  // namespace dialogs_internal
