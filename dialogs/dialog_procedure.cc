#include "dialogs/dialog_procedure.h"

#include "dialogs/dialog_handler_base.h"
#include "dialogs/window_api.h"

INT_PTR DialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* handler = reinterpret_cast<DialogHandlerBase*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (message == WM_INITDIALOG && lParam != 0) {
    handler = reinterpret_cast<DialogHandlerBase*>(lParam);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(handler));
    handler->handle = window;
    handler->OnInit();
    SendMessageW(GetParent(handler->GetHandle()), PSM_UNCHANGED, reinterpret_cast<WPARAM>(handler->GetHandle()), 0);
    handler->modified = false;
  } else if (message == WM_COMMAND) {
    if (handler == nullptr) return 0;
    WORD code = HIWORD(wParam);
    if (code == BN_CLICKED || code == 1 || code == EN_CHANGE) handler->MarkModified(true);
  }
  if (handler == nullptr) return 0;
  return handler->HandleMessage(window, message, wParam, lParam);
}
