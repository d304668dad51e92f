// Inside the dialog layer: what a handle stands for. Not for handler code,
// which sees only HWND and the operations of window_api.h.
//
// Every window of the layer is a WindowObject in one process-wide table,
// keyed by a handle number that is never reused. Widgets and timers call back
// with the handle, not with a pointer, so a callback that arrives after its
// window ended finds nothing and does nothing.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "dialogs/dialog_template.h"
#include "dialogs/link_markup.h"
#include "dialogs/window_types.h"
#include "shell/wide_string.h"

class QEventLoop;
class QTimer;
class QWidget;

namespace dialogs_internal {

enum class WindowKind { kDesktop, kDialog, kControl };

struct WindowObject {
  WindowObject();
  ~WindowObject();
  WindowObject(const WindowObject&) = delete;
  WindowObject& operator=(const WindowObject&) = delete;

  HWND handle = nullptr;
  WindowKind kind = WindowKind::kControl;
  ControlKind controlKind = ControlKind::kStaticText;
  int id = 0;
  DWORD style = 0;
  DWORD exStyle = 0;
  HWND parent = nullptr;  // a control's dialog; a dialog's owner, or null
  QWidget* widget = nullptr;  // owned through the dialog's widget tree
  std::vector<HWND> children;  // in creation order, which is the tab order
  std::map<int, LONG_PTR> longs;
  std::map<UINT_PTR, std::unique_ptr<QTimer>> timers;

  // Dialogs.
  DLGPROC procedure = nullptr;
  bool ended = false;
  INT_PTR endResult = 0;
  QEventLoop* loop = nullptr;
  int baseUnitX = 0;
  int baseUnitY = 0;

  // Progress bars, kept here because the widget's own range refuses what a
  // progress control accepts (an empty range, a position outside it).
  int rangeLow = 0;
  int rangeHigh = 100;
  int position = 0;

  // Link controls.
  WideString markup;
  std::vector<LinkMarkupPiece> links;  // only the pieces that are links
  int focusedLink = 0;
};

// Adds the object to the table and gives it its handle.
HWND AddWindow(std::unique_ptr<WindowObject> window);
// The object of a live handle, or null.
WindowObject* FindWindowObject(HWND handle);
// Removes a dialog or control and, first, its controls; stops their timers.
// Does not touch the widgets: the caller deletes the dialog's widget tree.
void RemoveWindow(HWND handle);
// The handle whose widget this is, or null.
HWND FindHandleOfWidget(const QWidget* widget);
// The handle of the one desktop window.
HWND DesktopHandle();

}  // namespace dialogs_internal
