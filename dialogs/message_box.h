// Message boxes: a modal box with a text, a caption, buttons and an icon.
#pragma once

#include <functional>

#include "dialogs/window_messages.h"
#include "dialogs/window_types.h"
#include "shell/wide_string.h"

// Shows the box modal to the application, above owner (may be null), and
// answers the button pressed: IDOK, IDCANCEL, IDYES, IDNO, IDABORT, IDRETRY
// or IDIGNORE. type combines one of MB_OK, MB_OKCANCEL, MB_ABORTRETRYIGNORE,
// MB_YESNOCANCEL, MB_YESNO, MB_RETRYCANCEL with one of MB_ICONERROR (STOP,
// HAND), MB_ICONQUESTION, MB_ICONWARNING (EXCLAMATION), MB_ICONINFORMATION
// (ASTERISK). The first button has the focus. Escape and the close box give
// Cancel where there is one, OK in a box with OK alone, and No in a box with
// Yes and No. A null caption reads "Error". Answers 0 if no box can be shown.
int MessageBoxW(HWND owner, const char16_t* text, const char16_t* caption, UINT type);

// Stands in for every box while set: MessageBoxW calls it instead of showing
// anything and answers what it answers. Tests use it to answer and to record
// the boxes. An empty function restores the real boxes. Answers the hook
// that was set before.
using MessageBoxHook = std::function<int(HWND owner, const WideString& text, const WideString& caption, UINT type)>;
MessageBoxHook SetMessageBoxHook(MessageBoxHook hook);
