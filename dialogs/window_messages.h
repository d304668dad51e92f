// Numbers of the messages, notification codes, styles and answers that the
// dialog handlers use, with the values they have on the platform the handlers
// were first written for, so that stored and compared numbers stay the same.
#pragma once

#include "dialogs/window_types.h"

// Window messages.
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_SIZE = 0x0005;
inline constexpr UINT WM_SETTEXT = 0x000C;
inline constexpr UINT WM_GETTEXT = 0x000D;
inline constexpr UINT WM_GETTEXTLENGTH = 0x000E;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_SETFONT = 0x0030;
inline constexpr UINT WM_NOTIFY = 0x004E;
inline constexpr UINT WM_INITDIALOG = 0x0110;
inline constexpr UINT WM_COMMAND = 0x0111;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_USER = 0x0400;

// Button messages and check states.
inline constexpr UINT BM_GETCHECK = 0x00F0;
inline constexpr UINT BM_SETCHECK = 0x00F1;
inline constexpr UINT BM_CLICK = 0x00F5;
inline constexpr WPARAM BST_UNCHECKED = 0;
inline constexpr WPARAM BST_CHECKED = 1;

// Progress bar messages.
inline constexpr UINT PBM_SETRANGE = WM_USER + 1;
inline constexpr UINT PBM_SETPOS = WM_USER + 2;
inline constexpr UINT PBM_SETRANGE32 = WM_USER + 6;
inline constexpr UINT PBM_GETRANGE = WM_USER + 7;
inline constexpr UINT PBM_GETPOS = WM_USER + 8;

// Change notices of property-sheet pages; lParam unused, wParam the page.
inline constexpr UINT PSM_CHANGED = WM_USER + 104;
inline constexpr UINT PSM_UNCHANGED = WM_USER + 109;

// Notification codes in the high word of a WM_COMMAND's wParam.
inline constexpr WORD BN_CLICKED = 0;
inline constexpr WORD EN_SETFOCUS = 0x0100;
inline constexpr WORD EN_KILLFOCUS = 0x0200;
inline constexpr WORD EN_CHANGE = 0x0300;

// Codes of a WM_NOTIFY header.
inline constexpr UINT NM_CLICK = static_cast<UINT>(-2);
inline constexpr UINT NM_RETURN = static_cast<UINT>(-4);

// Command ids of the standard buttons, and the answers of MessageBoxW.
inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDABORT = 3;
inline constexpr int IDRETRY = 4;
inline constexpr int IDIGNORE = 5;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

// MessageBoxW: buttons in the low four bits, the icon in the next four.
inline constexpr UINT MB_OK = 0x0000;
inline constexpr UINT MB_OKCANCEL = 0x0001;
inline constexpr UINT MB_ABORTRETRYIGNORE = 0x0002;
inline constexpr UINT MB_YESNOCANCEL = 0x0003;
inline constexpr UINT MB_YESNO = 0x0004;
inline constexpr UINT MB_RETRYCANCEL = 0x0005;
inline constexpr UINT MB_ICONHAND = 0x0010;
inline constexpr UINT MB_ICONQUESTION = 0x0020;
inline constexpr UINT MB_ICONEXCLAMATION = 0x0030;
inline constexpr UINT MB_ICONASTERISK = 0x0040;
inline constexpr UINT MB_ICONERROR = MB_ICONHAND;
inline constexpr UINT MB_ICONSTOP = MB_ICONHAND;
inline constexpr UINT MB_ICONWARNING = MB_ICONEXCLAMATION;
inline constexpr UINT MB_ICONINFORMATION = MB_ICONASTERISK;
inline constexpr UINT MB_TYPEMASK = 0x000F;
inline constexpr UINT MB_ICONMASK = 0x00F0;

// ShowWindow commands.
inline constexpr int SW_HIDE = 0;
inline constexpr int SW_SHOWNORMAL = 1;
inline constexpr int SW_SHOW = 5;

// Window styles. A template control is shown only with WS_VISIBLE.
inline constexpr DWORD WS_POPUP = 0x80000000u;
inline constexpr DWORD WS_CHILD = 0x40000000u;
inline constexpr DWORD WS_VISIBLE = 0x10000000u;
inline constexpr DWORD WS_DISABLED = 0x08000000u;
inline constexpr DWORD WS_CAPTION = 0x00C00000u;
inline constexpr DWORD WS_BORDER = 0x00800000u;
inline constexpr DWORD WS_SYSMENU = 0x00080000u;
inline constexpr DWORD WS_GROUP = 0x00020000u;
inline constexpr DWORD WS_TABSTOP = 0x00010000u;
inline constexpr DWORD DS_MODALFRAME = 0x00000080u;
inline constexpr DWORD DS_SETFONT = 0x00000040u;
inline constexpr DWORD ES_AUTOHSCROLL = 0x00000080u;
inline constexpr DWORD ES_PASSWORD = 0x00000020u;
inline constexpr DWORD WS_EX_TOPMOST = 0x00000008u;

// Indexes of the window longs. DWLP_* exist on dialogs only.
inline constexpr int GWLP_USERDATA = -21;
inline constexpr int GWL_USERDATA = GWLP_USERDATA;
inline constexpr int GWL_EXSTYLE = -20;
inline constexpr int GWL_STYLE = -16;
inline constexpr int GWLP_ID = -12;
inline constexpr int DWLP_MSGRESULT = 0;
inline constexpr int DWL_MSGRESULT = DWLP_MSGRESULT;
inline constexpr int DWLP_USER = 16;

// SetWindowPos flags.
inline constexpr UINT SWP_NOSIZE = 0x0001;
inline constexpr UINT SWP_NOMOVE = 0x0002;
inline constexpr UINT SWP_NOZORDER = 0x0004;

// Window class of the link control made by CreateWindowExW.
inline constexpr const char16_t* WC_LINK = u"SysLink";
