// Opening a document, a folder or an address with the desktop's default
// handler (a file manager for a folder, the browser for a web address).
#pragma once

#include <functional>
#include <string>

#include "dialogs/window_types.h"

// Codes of failure; any answer above 32 is success.
inline constexpr std::intptr_t SE_ERR_FNF = 2;
inline constexpr std::intptr_t SE_ERR_NOASSOC = 31;

// verb null, "open" or "explore" opens file: a name with a scheme of two or
// more letters ("http://...", "mailto:...") as an address, anything else as
// a path (relative to directory, else to the working folder) that must
// exist. Programs are not started and parameters are not used. Other verbs
// answer SE_ERR_NOASSOC, a missing path SE_ERR_FNF, a desktop that can't
// open it SE_ERR_NOASSOC. owner and showCommand are not used.
HINSTANCE ShellExecuteW(HWND owner, const char16_t* verb, const char16_t* file, const char16_t* parameters,
                        const char16_t* directory, int showCommand);

// Stands in for the desktop while set: gets the address that would be
// opened ("file:///..." for paths, percent-encoded UTF-8) and answers
// whether it was opened. An empty function restores the desktop. Answers the
// hook set before.
using DesktopOpenHook = std::function<bool(const std::string& url)>;
DesktopOpenHook SetDesktopOpenHook(DesktopOpenHook hook);
