// The widget behind a handle, for code that must reach the toolkit itself:
// tests that click, type and take screenshots. Handler code does not use it.
#pragma once

#include "dialogs/window_types.h"

class QWidget;

// The widget of a dialog or control, or null for the desktop and for
// handles that ended. It is deleted with its dialog.
QWidget* WidgetFromHandle(HWND window);

// The handle of the dialog or control whose widget this is, or null.
HWND HandleFromWidget(const QWidget* widget);
