// The markup of a link control: plain text with links written as
// <A ID="name" HREF="address">shown text</A>. Tag and attribute names are
// matched without case; values may be in double or single quotes or bare.
// Text that is not well-formed markup (an <A> without its </A>, a lone "<")
// is shown as it stands.
#pragma once

#include <vector>

#include "shell/wide_string.h"

struct LinkMarkupPiece {
  WideString text;      // what is shown
  bool isLink = false;  // the rest is empty for plain text
  WideString id;
  WideString url;
};

std::vector<LinkMarkupPiece> ParseLinkMarkup(WideStringView markup);
