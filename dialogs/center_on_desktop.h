// Moving a dialog to the middle of the desktop.
#pragma once

#include "dialogs/window_types.h"

// new left = desktop left + (desktop right - own right) / 2, new top the same
// with top and bottom, each division truncating toward zero; the window
// keeps its size and place in the z-order. The formula takes the dialog's
// right and bottom edges where its width and height would center it: a
// dialog at the screen's origin is centred, one that stands elsewhere (as an
// owned dialog does, at its owner's corner) lands off centre. Kept so.
void CenterOnDesktop(HWND dialog);
