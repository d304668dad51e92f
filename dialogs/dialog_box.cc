#include "dialogs/dialog_box.h"

#include <QApplication>
#include <QEventLoop>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QWidget>

#include "dialogs/control_widgets.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/window_api.h"
#include "dialogs/window_object.h"

using dialogs_internal::FindWindowObject;
using dialogs_internal::WindowKind;
using dialogs_internal::WindowObject;

namespace {

int MulDivRounded(int value, int numerator, int denominator) {
  long long product = static_cast<long long>(value) * numerator;
  long long half = denominator / 2;
  return static_cast<int>(product >= 0 ? (product + half) / denominator : (product - half) / denominator);
}

QFont TemplateFont(const DialogTemplate& dialogTemplate) {
  QFont font = QApplication::font();
  if (dialogTemplate.style & DS_SETFONT) {
    font = QFont(dialogs_internal::ToQString(WideView(dialogTemplate.fontName)));
    font.setStyleHint(QFont::SansSerif);
    if (dialogTemplate.pointSize > 0) font.setPointSize(dialogTemplate.pointSize);
    font.setWeight(static_cast<QFont::Weight>(dialogTemplate.weight > 0 ? dialogTemplate.weight : 400));
  }
  return font;
}

// Base units as the dialog manager measures them: the average width of the
// 52 Latin letters, rounded, and the height of a line.
void MeasureBaseUnits(const QFont& font, int* baseX, int* baseY) {
  QFontMetrics metrics(font);
  int width = metrics.horizontalAdvance(QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"));
  *baseX = (width / 26 + 1) / 2;
  *baseY = metrics.height();
}

Qt::WindowFlags FlagsFor(const DialogTemplate& dialogTemplate) {
  Qt::WindowFlags flags = Qt::Dialog | Qt::CustomizeWindowHint;
  if (dialogTemplate.style & WS_CAPTION) flags |= Qt::WindowTitleHint;
  if (dialogTemplate.style & WS_SYSMENU) flags |= Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint;
  if (dialogTemplate.exStyle & WS_EX_TOPMOST) flags |= Qt::WindowStaysOnTopHint;
  return flags;
}

HWND AddControl(WindowObject* dialog, ControlKind kind, int id, DWORD style, const QRect& rect,
                WideStringView text, int iconResource) {
  auto object = std::make_unique<WindowObject>();
  object->kind = WindowKind::kControl;
  object->controlKind = kind;
  object->id = id;
  object->style = style | WS_CHILD;
  object->parent = dialog->handle;
  WindowObject* control = object.get();
  HWND handle = dialogs_internal::AddWindow(std::move(object));
  dialog->children.push_back(handle);
  dialogs_internal::CreateControlWidget(control, dialog->widget, rect, text, iconResource);
  return handle;
}

HWND FirstTabStop(const WindowObject* dialog) {
  for (HWND child : dialog->children) {
    WindowObject* c = FindWindowObject(child);
    if (c != nullptr && (c->style & WS_TABSTOP) && (c->style & WS_VISIBLE) && !(c->style & WS_DISABLED)) {
      return child;
    }
  }
  return nullptr;
}

HWND CreateDialogWindow(const DialogTemplate& dialogTemplate, HWND owner, DLGPROC procedure) {
  WindowObject* ownerObject = FindWindowObject(owner);
  // A control as owner stands for its dialog; the desktop for no owner.
  if (ownerObject != nullptr && ownerObject->kind == WindowKind::kControl) {
    ownerObject = FindWindowObject(ownerObject->parent);
  }
  if (ownerObject != nullptr && ownerObject->kind != WindowKind::kDialog) ownerObject = nullptr;

  auto object = std::make_unique<WindowObject>();
  object->kind = WindowKind::kDialog;
  object->id = dialogTemplate.id;
  object->style = dialogTemplate.style & ~WS_VISIBLE;
  object->exStyle = dialogTemplate.exStyle;
  object->parent = ownerObject ? ownerObject->handle : nullptr;
  object->procedure = procedure;
  WindowObject* dialog = object.get();
  HWND handle = dialogs_internal::AddWindow(std::move(object));

  auto* widget = new dialogs_internal::DialogWidget(handle, ownerObject ? ownerObject->widget : nullptr);
  dialog->widget = widget;
  widget->setWindowFlags(FlagsFor(dialogTemplate));
  widget->setWindowModality(Qt::ApplicationModal);
  widget->setWindowTitle(dialogs_internal::ToQString(WideView(dialogTemplate.caption)));
  QFont font = TemplateFont(dialogTemplate);
  widget->setFont(font);
  MeasureBaseUnits(font, &dialog->baseUnitX, &dialog->baseUnitY);
  const int bx = dialog->baseUnitX;
  const int by = dialog->baseUnitY;
  widget->setFixedSize(MulDivRounded(dialogTemplate.cx, bx, 4), MulDivRounded(dialogTemplate.cy, by, 8));

  QPoint origin(0, 0);
  if (ownerObject != nullptr && ownerObject->widget != nullptr) {
    origin = ownerObject->widget->mapToGlobal(QPoint(0, 0));
  } else if (QScreen* screen = QGuiApplication::primaryScreen()) {
    origin = screen->geometry().topLeft();
  }
  widget->move(origin + QPoint(MulDivRounded(dialogTemplate.x, bx, 4), MulDivRounded(dialogTemplate.y, by, 8)));

  bool first = true;
  for (const DialogControl& control : dialogTemplate.controls) {
    QRect rect(MulDivRounded(control.x, bx, 4), MulDivRounded(control.y, by, 8), MulDivRounded(control.cx, bx, 4),
               MulDivRounded(control.cy, by, 8));
    DWORD style = control.style | (first ? WS_GROUP : 0);
    AddControl(dialog, control.kind, control.id, style, rect, WideView(control.text), control.iconResource);
    first = false;
  }
  return handle;
}

void DestroyDialogWindow(HWND handle) {
  WindowObject* dialog = FindWindowObject(handle);
  if (dialog == nullptr) return;
  dialog->widget->hide();
  dialog->style &= ~WS_VISIBLE;
  SendMessageW(handle, WM_DESTROY, 0, 0);
  dialog = FindWindowObject(handle);
  if (dialog == nullptr) return;
  QWidget* widget = dialog->widget;
  dialogs_internal::RemoveWindow(handle);
  delete widget;
}

}  // namespace

INT_PTR DialogBoxIndirectParamW(HINSTANCE, const DialogTemplate* dialogTemplate, HWND owner, DLGPROC procedure,
                                LPARAM param) {
  if (dialogTemplate == nullptr || !EnsureDialogApplication()) return -1;
  HWND handle = CreateDialogWindow(*dialogTemplate, owner, procedure);
  WindowObject* dialog = FindWindowObject(handle);

  if (dialogTemplate->style & DS_SETFONT) SendMessageW(handle, WM_SETFONT, 0, 0);
  HWND focus = FirstTabStop(dialog);
  INT_PTR focusAnswer = SendMessageW(handle, WM_INITDIALOG, reinterpret_cast<WPARAM>(focus), param);

  dialog = FindWindowObject(handle);
  if (dialog != nullptr && !dialog->ended) {
    dialog->style |= WS_VISIBLE;
    dialog->widget->show();
    dialog->widget->raise();
    dialog->widget->activateWindow();
    WindowObject* focusObject = FindWindowObject(focus);
    if (focusAnswer != 0 && focusObject != nullptr && focusObject->widget != nullptr) {
      focusObject->widget->setFocus(Qt::OtherFocusReason);
    }
    QEventLoop loop;
    dialog->loop = &loop;
    loop.exec(QEventLoop::DialogExec);
    dialog = FindWindowObject(handle);
    if (dialog != nullptr) dialog->loop = nullptr;
  }
  INT_PTR result = dialog != nullptr ? dialog->endResult : -1;
  DestroyDialogWindow(handle);
  return result;
}

INT_PTR DialogBoxParamW(HINSTANCE instance, int templateId, HWND owner, DLGPROC procedure, LPARAM param) {
  return DialogBoxIndirectParamW(instance, FindDialogTemplate(templateId), owner, procedure, param);
}

BOOL EndDialog(HWND dialog, INT_PTR result) {
  WindowObject* w = FindWindowObject(dialog);
  if (w == nullptr || w->kind != WindowKind::kDialog) return FALSE;
  w->ended = true;
  w->endResult = result;
  w->style &= ~WS_VISIBLE;
  if (w->widget != nullptr) w->widget->hide();
  if (w->loop != nullptr) w->loop->exit(0);
  return TRUE;
}

HWND CreateWindowExW(DWORD exStyle, const char16_t* className, const char16_t* windowName, DWORD style, int x,
                     int y, int width, int height, HWND parent, HMENU menu, HINSTANCE, void*) {
  WindowObject* dialog = FindWindowObject(parent);
  if (dialog == nullptr || dialog->kind != WindowKind::kDialog || className == nullptr) return nullptr;
  QString name = dialogs_internal::ToQString(WideView(className));
  if (name.compare(dialogs_internal::ToQString(WideView(WC_LINK)), Qt::CaseInsensitive) != 0) return nullptr;
  int id = static_cast<int>(reinterpret_cast<std::intptr_t>(menu));
  HWND handle = AddControl(dialog, ControlKind::kLink, id, style, QRect(x, y, width, height),
                           WideView(windowName), 0);
  if (WindowObject* control = FindWindowObject(handle)) control->exStyle = exStyle;
  return handle;
}
