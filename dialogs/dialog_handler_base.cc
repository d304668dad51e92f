#include "dialogs/dialog_handler_base.h"

#include "dialogs/dialog_box.h"
#include "dialogs/window_api.h"

DialogHandlerBase::DialogHandlerBase() = default;

DialogHandlerBase::~DialogHandlerBase() {
  detached = true;
  SetWindowLongPtrW(handle, GWLP_USERDATA, 0);
}

void DialogHandlerBase::MarkModified(bool flag) {
  UINT notice = flag ? PSM_CHANGED : PSM_UNCHANGED;
  SendMessageW(GetParent(GetHandle()), notice, reinterpret_cast<WPARAM>(GetHandle()), 0);
  modified = flag;
}

HWND DialogHandlerBase::GetHandle() { return handle; }

HWND DialogHandlerBase::GetParentHandle() { return GetParent(handle); }

INT_PTR DialogHandlerBase::HandleMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return WindowHandlerBase::HandleMessage(window, message, wParam, lParam);
}

INT_PTR DialogHandlerBase::OnCommand(WORD notifyCode, WORD controlId, HWND) {
  if (notifyCode != 0) return 0;
  if (controlId != IDOK && controlId != IDCANCEL) return 0;
  bool mayEnd = controlId == IDOK ? OnOk() : OnCancel();
  if (!mayEnd) {
    SetWindowLongPtrW(handle, DWLP_MSGRESULT, 0);
    return 0;
  }
  SetWindowLongPtrW(handle, DWLP_MSGRESULT, 1);
  EndDialog(handle, controlId == IDOK ? 1 : 2);
  return 1;
}

INT_PTR DialogHandlerBase::OnNotify(WORD, WORD, NMHDR*) { return 0; }

INT_PTR DialogHandlerBase::OnSize(WPARAM, WORD, WORD) { return 0; }

INT_PTR DialogHandlerBase::OnOtherMessage(HWND, UINT, WPARAM, LPARAM) { return 0; }

bool DialogHandlerBase::OnOk() { return true; }

bool DialogHandlerBase::OnCancel() { return true; }
