// The one dialog procedure of the system: it finds the dialog's handler
// through the window's GWLP_USERDATA and hands the messages to it.
#pragma once

#include "dialogs/window_types.h"

// Steps, in this order:
//  1. The handler is read from GWLP_USERDATA (null before WM_INITDIALOG).
//  2. WM_INITDIALOG: the handler is lParam; it is stored in GWLP_USERDATA,
//     the window in its handle; OnInit runs; then PSM_UNCHANGED goes to the
//     parent and the handler's modified flag is set false.
//  3. WM_COMMAND without handler answers 0. With one, notification codes 0,
//     1 and 0x300 (BN_CLICKED, accelerator, EN_CHANGE) first mark the dialog
//     modified (PSM_CHANGED to the parent), for every control, OK and Cancel
//     included.
//  4. Without handler: 0. Otherwise the handler's HandleMessage answers;
//     WM_INITDIALOG thus ends in OnOtherMessage and answers 0.
INT_PTR DialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
