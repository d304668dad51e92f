#include "dialogs/qt_window_access.h"

#include <QWidget>

#include "dialogs/window_object.h"

QWidget* WidgetFromHandle(HWND window) {
  dialogs_internal::WindowObject* w = dialogs_internal::FindWindowObject(window);
  return w != nullptr ? w->widget : nullptr;
}

HWND HandleFromWidget(const QWidget* widget) { return dialogs_internal::FindHandleOfWidget(widget); }
