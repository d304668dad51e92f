#include "dialogs/message_box.h"

#include <QMessageBox>

#include "dialogs/control_widgets.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/window_object.h"

namespace {

MessageBoxHook& Hook() {
  static MessageBoxHook hook;
  return hook;
}

QMessageBox::StandardButtons ButtonsFor(UINT type) {
  switch (type & MB_TYPEMASK) {
    case MB_OKCANCEL:
      return QMessageBox::Ok | QMessageBox::Cancel;
    case MB_ABORTRETRYIGNORE:
      return QMessageBox::Abort | QMessageBox::Retry | QMessageBox::Ignore;
    case MB_YESNOCANCEL:
      return QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
    case MB_YESNO:
      return QMessageBox::Yes | QMessageBox::No;
    case MB_RETRYCANCEL:
      return QMessageBox::Retry | QMessageBox::Cancel;
    default:
      return QMessageBox::Ok;
  }
}

QMessageBox::StandardButton FirstButtonFor(UINT type) {
  switch (type & MB_TYPEMASK) {
    case MB_OKCANCEL:
      return QMessageBox::Ok;
    case MB_ABORTRETRYIGNORE:
      return QMessageBox::Abort;
    case MB_YESNOCANCEL:
    case MB_YESNO:
      return QMessageBox::Yes;
    case MB_RETRYCANCEL:
      return QMessageBox::Retry;
    default:
      return QMessageBox::Ok;
  }
}

QMessageBox::Icon IconFor(UINT type) {
  switch (type & MB_ICONMASK) {
    case MB_ICONHAND:
      return QMessageBox::Critical;
    case MB_ICONQUESTION:
      return QMessageBox::Question;
    case MB_ICONEXCLAMATION:
      return QMessageBox::Warning;
    case MB_ICONASTERISK:
      return QMessageBox::Information;
    default:
      return QMessageBox::NoIcon;
  }
}

int AnswerFor(int button) {
  switch (button) {
    case QMessageBox::Ok:
      return IDOK;
    case QMessageBox::Cancel:
      return IDCANCEL;
    case QMessageBox::Yes:
      return IDYES;
    case QMessageBox::No:
      return IDNO;
    case QMessageBox::Abort:
      return IDABORT;
    case QMessageBox::Retry:
      return IDRETRY;
    case QMessageBox::Ignore:
      return IDIGNORE;
    default:
      return IDCANCEL;
  }
}

}  // namespace

MessageBoxHook SetMessageBoxHook(MessageBoxHook hook) {
  MessageBoxHook previous = std::move(Hook());
  Hook() = std::move(hook);
  return previous;
}

int MessageBoxW(HWND owner, const char16_t* text, const char16_t* caption, UINT type) {
  WideString textValue(WideView(text));
  WideString captionValue = caption ? WideString(WideView(caption)) : WideString(u"Error");
  if (Hook()) return Hook()(owner, textValue, captionValue, type);
  if (!EnsureDialogApplication()) return 0;

  dialogs_internal::WindowObject* ownerObject = dialogs_internal::FindWindowObject(owner);
  QWidget* parent = ownerObject != nullptr ? ownerObject->widget : nullptr;
  QMessageBox box(IconFor(type), dialogs_internal::ToQString(captionValue), dialogs_internal::ToQString(textValue),
                  ButtonsFor(type), parent);
  box.setTextFormat(Qt::PlainText);
  box.setWindowModality(Qt::ApplicationModal);
  box.setDefaultButton(FirstButtonFor(type));
  if (ownerObject != nullptr && (ownerObject->exStyle & WS_EX_TOPMOST)) {
    // Above a dialog that stays on top, or the box would hide behind it.
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
  }
  if ((type & MB_TYPEMASK) == MB_OK) box.setEscapeButton(QMessageBox::Ok);
  return AnswerFor(box.exec());
}
