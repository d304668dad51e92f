// A modal dialog's handler: the window it is bound to, the OK and Cancel
// rule, and the change notice to the parent.
//
// Use: derive, build the handler as a local object, and show it with
//   DialogBoxParamW(instance, templateId, owner, DialogProcedure,
//                   HandlerParam(&handler));
// The call returns when the dialog has ended; the handler outlives its window.
#pragma once

#include <cstdint>

#include "dialogs/window_handler_base.h"

class DialogHandlerBase;
INT_PTR DialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// The lParam that hands a handler to DialogBoxParamW. It must be the
// DialogHandlerBase part of the object, which this conversion ensures.
inline LPARAM HandlerParam(DialogHandlerBase* handler) { return reinterpret_cast<LPARAM>(handler); }

class DialogHandlerBase : public WindowHandlerBase {
 public:
  DialogHandlerBase();
  // Marks the handler detached and clears the window's GWLP_USERDATA; the
  // window has normally ended by then, and the call does nothing.
  ~DialogHandlerBase() override;

  // Sends PSM_CHANGED (flag true) or PSM_UNCHANGED (false) to the parent
  // window with this dialog's handle in wParam, then records the flag. A
  // dialog without owner sends it to null, which drops it.
  void MarkModified(bool flag);

  // WindowHandlerBase:
  HWND GetHandle() override;
  HWND GetParentHandle() override;
  INT_PTR HandleMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;
  // Notification code 0 only: id IDOK asks OnOk, id IDCANCEL asks OnCancel.
  // A yes stores 1 in DWLP_MSGRESULT, ends the dialog with result 1 (OK) or
  // 2 (Cancel) and answers 1; a no stores 0 and answers 0. Everything else
  // answers 0. A derived class handles its own ids and passes the rest here.
  INT_PTR OnCommand(WORD notifyCode, WORD controlId, HWND control) override;
  INT_PTR OnNotify(WORD wParamHigh, WORD wParamLow, NMHDR* header) override;
  INT_PTR OnSize(WPARAM type, WORD height, WORD width) override;
  // Answers 0, which leaves the message to the dialog manager.
  INT_PTR OnOtherMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;

  // Whether the dialog may end. Both answer true here.
  virtual bool OnOk();
  virtual bool OnCancel();

 protected:
  // Written by DialogProcedure at WM_INITDIALOG; never cleared.
  HWND handle = nullptr;
  // False from WM_INITDIALOG on, true after MarkModified(true). Not set
  // before WM_INITDIALOG.
  bool modified;
  bool detached = false;

 private:
  friend INT_PTR DialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
};
