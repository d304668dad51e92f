#include "dialogs/center_on_desktop.h"

#include "dialogs/window_api.h"

void CenterOnDesktop(HWND dialog) {
  RECT desktop;
  RECT own;
  GetWindowRect(GetDesktopWindow(), &desktop);
  GetWindowRect(dialog, &own);
  int left = desktop.left + (desktop.right - own.right) / 2;
  int top = desktop.top + (desktop.bottom - own.bottom) / 2;
  SetWindowPos(dialog, nullptr, left, top, own.right, own.bottom, SWP_NOSIZE | SWP_NOZORDER);
}
