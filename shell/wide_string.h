// The program's one text type, and the conversions at its edges.
//
// Inside the program all text is UTF-16 in std::u16string, because lengths and
// field sizes of the system's formats count UTF-16 units. Text becomes UTF-8
// only where it leaves: file-system calls, argv, environment, libraries.
#pragma once

#include <string>
#include <string_view>

using WideString = std::u16string;
using WideStringView = std::u16string_view;

// Code pages of the conversion functions. On this platform the "ANSI" code
// page and the system's 8-bit text are UTF-8 as well.
inline constexpr unsigned kCodePageAnsi = 0;
inline constexpr unsigned kCodePageUtf8 = 65001;

// UTF-8 to UTF-16. Ill-formed sequences become U+FFFD each, never an error.
WideString Utf8ToWide(std::string_view utf8);

// UTF-16 to UTF-8. An unpaired surrogate becomes U+FFFD.
std::string WideToUtf8(WideStringView wide);

// Length of a zero-terminated UTF-16 text; 0 for null.
std::size_t WideLength(const char16_t* text);

// A literal-friendly view: u"..." already is one; this helps with char16_t
// arrays in fixed-size records.
inline WideStringView WideView(const char16_t* text) {
  return text ? WideStringView(text, WideLength(text)) : WideStringView();
}
