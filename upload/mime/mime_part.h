// The common base of every part of a multipart MIME document.
//
// Parts keep their text as wide strings and render to one 8-bit string that
// may hold any byte, so a binary file can stand in the middle of the text.
// Wide text is written as UTF-8, the 8-bit code page of this platform.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "shell/wide_string.h"

namespace Mime {

// Header name to value, written in ascending order of the name compared unit
// by unit, so upper case sorts ahead of lower case and the order of the
// SetHeader calls does not matter. Each name occurs once.
using MimeHeaderSet = std::map<WideString, WideString>;

class MimePart {
 public:
  virtual ~MimePart() = default;

  // A new object of the same class; the caller owns it.
  virtual MimePart* Clone() const = 0;
  // Sets or replaces one header.
  virtual void SetHeader(const WideString& name, const WideString& value) = 0;
  // Removes a header by its exact name; an unknown name does nothing.
  virtual void RemoveHeader(const WideString& name) = 0;
  // The part's text as it stands in the document, without the line end
  // that closes it.
  virtual std::string GetMimeText() = 0;

  // Appends the text of GetMimeText to out. A document renders its parts
  // through this, so a large part is written once, straight into the
  // document's text, instead of being copied from a string of its own.
  virtual void AppendMimeText(std::string& out) { out += GetMimeText(); }
  // About how many bytes the text will have; a document reserves that much
  // up front. 0 when unknown.
  virtual std::size_t MimeTextSizeHint() const { return 0; }

 protected:
  MimePart() = default;
  MimePart(const MimePart&) = default;
  MimePart& operator=(const MimePart&) = default;
};

// Writes each header as name, ": ", value and CRLF, in the set's order.
void AppendHeaderLines(std::string& out, const MimeHeaderSet& headers);

// Bytes in a header block written by AppendHeaderLines.
std::size_t HeaderLinesSize(const MimeHeaderSet& headers);

}  // namespace Mime
