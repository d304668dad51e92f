// String helpers that every other layer leans on. None keeps state; all may
// run on any thread (the formatter and LastErrorText also in a crash path,
// where they allocate like the rest of the filter does).
#pragma once

#include <cstdint>
#include <string_view>

#include "shell/wide_string.h"

// Without leading and trailing space, tab, carriage return and line feed.
WideString TrimWhitespace(WideStringView text);

// 8-bit text in the given code page (both code pages are UTF-8 here) to wide
// text. An empty input gives an empty string; invalid bytes become U+FFFD as
// the platform converter does, with no message.
WideString MultiByteToWide(std::string_view bytes, unsigned codePage);

// Upper-cased copy, by Unicode simple case mapping of each UTF-16 unit.
WideString ToUpperCopy(WideStringView text);

// Decimal digits of value, zero-padded on the left to minimumWidth. A number
// already as long as the width or longer is not cut.
WideString NumberToString(std::uint32_t value, std::uint32_t minimumWidth);

// The system's English text for an errno value, line breaks turned into "-",
// followed by " (code)". A code without a text of its own gives "".
WideString LastErrorText(std::uint32_t code);
