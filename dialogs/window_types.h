// Handle and integer types of the dialog layer, kept in the shape the dialog
// handlers were written for, so their code reads as window-message code.
//
// The widths follow a 64-bit process: WPARAM, LPARAM and the results are
// pointer-sized, because WM_INITDIALOG carries the handler object in lParam
// and WM_NOTIFY a pointer to its header.
#pragma once

#include <cstdint>

// A window of this layer: a dialog, one of its controls, or the desktop. The
// value is an opaque number that is never reused within a process, so a
// handle kept past its window's end finds nothing instead of another window.
using HWND = struct HWND__*;
// Module instance handed to DialogBoxParamW. Templates are found by id alone;
// the value is passed through and not looked at.
using HINSTANCE = struct HINSTANCE__*;

using UINT = std::uint32_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using BOOL = std::int32_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;

// Some C headers define these as macros already; either spelling is 1 and 0.
#ifndef TRUE
inline constexpr BOOL TRUE = 1;
#endif
#ifndef FALSE
inline constexpr BOOL FALSE = 0;
#endif

// The one procedure type of every dialog: window, message, wParam, lParam.
using DLGPROC = INT_PTR (*)(HWND, UINT, WPARAM, LPARAM);

constexpr WORD LOWORD(std::uintptr_t value) { return static_cast<WORD>(value & 0xFFFF); }
constexpr WORD HIWORD(std::uintptr_t value) { return static_cast<WORD>((value >> 16) & 0xFFFF); }
constexpr WPARAM MAKEWPARAM(WORD low, WORD high) {
  return static_cast<WPARAM>(static_cast<DWORD>(low) | (static_cast<DWORD>(high) << 16));
}
constexpr LPARAM MAKELPARAM(WORD low, WORD high) {
  return static_cast<LPARAM>(static_cast<DWORD>(low) | (static_cast<DWORD>(high) << 16));
}

struct POINT {
  std::int32_t x = 0;
  std::int32_t y = 0;
};

// Edges, right and bottom exclusive.
struct RECT {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t right = 0;
  std::int32_t bottom = 0;
};

// Header that every WM_NOTIFY points to.
struct NMHDR {
  HWND hwndFrom = nullptr;
  UINT_PTR idFrom = 0;
  UINT code = 0;
};

inline constexpr int MAX_LINKID_TEXT = 48;
inline constexpr int L_MAX_URL_LENGTH = 2048 + 32 + 4;

// One link of a link control, as its markup gave it: the ID and HREF
// attributes, zero-terminated and cut to the buffer.
struct LITEM {
  UINT mask = 0;
  int iLink = 0;
  UINT state = 0;
  UINT stateMask = 0;
  char16_t szID[MAX_LINKID_TEXT] = {};
  char16_t szUrl[L_MAX_URL_LENGTH] = {};
};

// What a link control's WM_NOTIFY points to; the header comes first, so the
// lParam may be read as an NMHDR* and then as an NMLINK*.
struct NMLINK {
  NMHDR hdr;
  LITEM item;
};
