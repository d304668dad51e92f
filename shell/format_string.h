// printf-style formatting into a new wide string, with the directive meanings
// that the system's format strings were written for: %s takes a wide
// (char16_t) text, %S an 8-bit (char) text, %c a character passed as int.
//
// The formatter measures an upper bound first and writes into a buffer of
// exactly that size, so results have no fixed length limit. Numbers are
// formatted as the C library does; a null text prints "(null)".
//
// Supported: flags "#*-+0 ", width and precision (also as "*"), size prefixes
// I64, h, l (F, L and N are skipped), and the types c C s S d i o u x X p e E
// f g G n. Arguments follow the C varargs promotions: 32-bit for integers
// without I64, double for floating point.
#pragma once

#include <cstdarg>

#include "shell/wide_string.h"

WideString FormatString(const char16_t* format, ...);
WideString FormatStringV(const char16_t* format, std::va_list arguments);
