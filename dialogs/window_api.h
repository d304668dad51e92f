// The window operations that dialog handlers call, with the names, arguments
// and answers they have on the platform the handlers were written for. Each
// operation acts at once on the dialog's widgets; there is no message queue
// between a handler and its controls.
//
// All of them run on the thread that shows the dialogs (the process's main
// thread) and nowhere else. An unknown or null handle makes an operation fail
// without effect: it answers 0, FALSE or null.
#pragma once

#include <cstdint>

#include "dialogs/window_messages.h"
#include "dialogs/window_types.h"

using HMENU = struct HMENU__*;

// Synchronous delivery.
//  - To a dialog: its procedure runs. If the procedure answers nonzero, the
//    result is the dialog's DWLP_MSGRESULT (for WM_INITDIALOG the answer
//    itself); if it answers 0, the dialog's default handling runs: WM_CLOSE
//    becomes WM_COMMAND IDCANCEL, and the text messages act on the caption.
//  - To a control: WM_SETTEXT (lParam const char16_t*), WM_GETTEXT (wParam
//    buffer size in units, lParam char16_t*; answers the units copied, a
//    terminator always written), WM_GETTEXTLENGTH; BM_GETCHECK, BM_SETCHECK
//    and BM_CLICK on check boxes and radio buttons (BM_CLICK on any button);
//    PBM_SETRANGE (low/high word of lParam), PBM_SETRANGE32 (wParam low,
//    lParam high), PBM_SETPOS (answers the previous position; a position
//    outside the range is pulled into it), PBM_GETPOS, PBM_GETRANGE (wParam
//    nonzero: low, else high). Other messages answer 0.
//  - To null, to the desktop or to a window that ended: 0, no effect.
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT SendDlgItemMessageW(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam);

// Window longs. On a dialog: DWLP_MSGRESULT, DWLP_USER, GWLP_USERDATA, any
// other index; on a control GWLP_USERDATA and any other index. GWL_STYLE,
// GWL_EXSTYLE and GWLP_ID read the window's state (WS_VISIBLE, WS_DISABLED
// as they are now). Set answers the previous value.
LONG_PTR GetWindowLongPtrW(HWND window, int index);
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);

// The owner of a dialog (null for a top-level dialog) or a control's dialog.
HWND GetParent(HWND window);
// The first control of the dialog with that id, or null.
HWND GetDlgItem(HWND dialog, int id);
// A control's id.
int GetDlgCtrlID(HWND control);

BOOL IsWindow(HWND window);
// WS_VISIBLE on the window and on each window above it.
BOOL IsWindowVisible(HWND window);
BOOL IsWindowEnabled(HWND window);
// Answers nonzero if the window was disabled before.
BOOL EnableWindow(HWND window, BOOL enable);
// SW_HIDE hides, SW_SHOW and SW_SHOWNORMAL show. Answers nonzero if the
// window was visible before.
BOOL ShowWindow(HWND window, int command);

// Caption of a dialog, text of a control (a link control takes markup).
BOOL SetWindowTextW(HWND window, const char16_t* text);
BOOL SetDlgItemTextW(HWND dialog, int id, const char16_t* text);
// Copies at most maxCount - 1 units and a terminator; answers the units
// copied. maxCount 0 copies nothing.
int GetWindowTextW(HWND window, char16_t* buffer, int maxCount);
int GetWindowTextLengthW(HWND window);
UINT GetDlgItemTextW(HWND dialog, int id, char16_t* buffer, int maxCount);

// Screen rectangle of a window (a dialog with its frame), and the client
// rectangle, whose left and top are 0.
BOOL GetWindowRect(HWND window, RECT* rect);
BOOL GetClientRect(HWND window, RECT* rect);
// From the client coordinates of one window to those of another; null means
// the screen. The low word of the answer is the horizontal shift, the high
// word the vertical one.
int MapWindowPoints(HWND from, HWND to, POINT* points, UINT count);
int MapWindowPoints(HWND from, HWND to, RECT* rect, UINT count);
// The whole primary screen, at the screen's origin.
HWND GetDesktopWindow();
// Moves and sizes; a dialog in screen coordinates (its frame's corner), a
// control in its dialog's client coordinates. Z-order is not changed.
BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int cx, int cy, UINT flags);
// From dialog units of the dialog's font to pixels, as its template was laid
// out: x * base width / 4 and y * base height / 8, rounded to the nearest.
BOOL MapDialogRect(HWND dialog, RECT* rect);

// Paints the window now, without waiting for the message loop, and sends the
// result to the screen. A handler that blocks its dialog's thread (an upload
// inside WM_TIMER) uses this to show progress: no message of the dialog is
// handled by it, no input, no timer. PBM_SETPOS and SetWindowTextW on a
// visible control already repaint that control this way.
BOOL UpdateWindow(HWND window);

// Repeating timer: WM_TIMER with wParam id and lParam 0 reaches the window's
// procedure every elapse milliseconds until KillTimer or the window's end.
// Setting an id again restarts it with the new period. Timer functions are
// not supported: timerFunction must be null. Answers nonzero on success.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, void* timerFunction);
BOOL KillTimer(HWND window, UINT_PTR id);

// Only the class WC_LINK ("SysLink", any case) is made: a link control over
// the markup in windowName, as a child of the dialog parent, with id menu.
// Answers null for any other class or parent.
HWND CreateWindowExW(DWORD exStyle, const char16_t* className, const char16_t* windowName,
                     DWORD style, int x, int y, int width, int height, HWND parent, HMENU menu,
                     HINSTANCE instance, void* param);
