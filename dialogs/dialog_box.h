// Modal dialogs made from templates.
#pragma once

#include "dialogs/dialog_template.h"
#include "dialogs/window_types.h"

// Shows the registered template templateId as a modal dialog and returns
// when it has ended, with the result given to EndDialog; -1 if the template
// is unknown or no dialog can be shown (see DialogsAvailable).
//
// Order of events, all through procedure:
//  1. The window and its controls are made, hidden. A dialog with an owner
//     stands at the template position within the owner's client area, one
//     without at that position on the screen.
//  2. WM_SETFONT (wParam 0) when the template has DS_SETFONT.
//  3. WM_INITDIALOG, wParam the first control with WS_TABSTOP, lParam the
//     param given here. A nonzero answer gives that control the focus; 0
//     leaves the focus to the toolkit.
//  4. Unless EndDialog was already called, the dialog is shown, modal to the
//     whole application, and its events are handled until EndDialog.
//  5. It is hidden, WM_DESTROY is delivered, the window and its controls
//     end (their timers with them), and their handles become invalid.
//
// The owner (may be null; a control stands for its dialog) is disabled by
// the modality while the dialog is up.
// A dialog can be opened from within a handler of another one; it nests.
INT_PTR DialogBoxParamW(HINSTANCE instance, int templateId, HWND owner, DLGPROC procedure, LPARAM param);

// The same with the template given directly.
INT_PTR DialogBoxIndirectParamW(HINSTANCE instance, const DialogTemplate* dialogTemplate, HWND owner,
                                DLGPROC procedure, LPARAM param);

// Marks the dialog ended with result and hides it. The modal loop leaves when
// the handler that is running now returns. Answers FALSE for a window that is
// not a dialog.
BOOL EndDialog(HWND dialog, INT_PTR result);
