#include "dialogs/window_handler_base.h"

WindowHandlerBase::~WindowHandlerBase() = default;

void WindowHandlerBase::OnInit() {}

bool WindowHandlerBase::IsReady() { return true; }

void WindowHandlerBase::OnDestroy() {}

INT_PTR WindowHandlerBase::HandleMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_DESTROY:
      OnDestroy();
      return 1;
    case WM_SIZE:
      return OnSize(wParam, HIWORD(static_cast<std::uintptr_t>(lParam)), LOWORD(static_cast<std::uintptr_t>(lParam)));
    case WM_NOTIFY:
      return OnNotify(HIWORD(wParam), LOWORD(wParam), reinterpret_cast<NMHDR*>(lParam));
    case WM_COMMAND:
      return OnCommand(HIWORD(wParam), LOWORD(wParam), reinterpret_cast<HWND>(lParam));
    default:
      return OnOtherMessage(window, message, wParam, lParam);
  }
}

INT_PTR WindowHandlerBase::OnCommand(WORD, WORD, HWND) { return 0; }

INT_PTR WindowHandlerBase::OnNotify(WORD, WORD, NMHDR*) { return 0; }

INT_PTR WindowHandlerBase::OnSize(WPARAM, WORD, WORD) { return 0; }
