// The abstract message dispatcher behind every dialog handler: it turns the
// messages of a window into virtual calls.
#pragma once

#include "dialogs/window_messages.h"
#include "dialogs/window_types.h"

class WindowHandlerBase {
 public:
  WindowHandlerBase() = default;
  WindowHandlerBase(const WindowHandlerBase&) = delete;
  WindowHandlerBase& operator=(const WindowHandlerBase&) = delete;
  virtual ~WindowHandlerBase();

  // The order of these declarations is the order of the class's table of
  // functions, which derived classes extend behind it.
  virtual void OnInit();
  // Answers true. Nothing in the system asks it.
  virtual bool IsReady();
  virtual void OnDestroy();
  virtual HWND GetHandle() = 0;
  virtual HWND GetParentHandle() = 0;
  // The dispatch:
  //   WM_DESTROY -> OnDestroy, answers 1
  //   WM_SIZE    -> OnSize(wParam, height, width)
  //   WM_NOTIFY  -> OnNotify(high word of wParam, low word, header)
  //   WM_COMMAND -> OnCommand(notification code, control id, control)
  //   any other  -> OnOtherMessage
  virtual INT_PTR HandleMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  virtual INT_PTR OnCommand(WORD notifyCode, WORD controlId, HWND control);
  virtual INT_PTR OnNotify(WORD wParamHigh, WORD wParamLow, NMHDR* header);
  virtual INT_PTR OnSize(WPARAM type, WORD height, WORD width);
  virtual INT_PTR OnOtherMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) = 0;
};
