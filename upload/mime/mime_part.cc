#include "upload/mime/mime_part.h"

namespace Mime {

void AppendHeaderLines(std::string& out, const MimeHeaderSet& headers) {
  for (const auto& [name, value] : headers) {
    out += WideToUtf8(name);
    out += ": ";
    out += WideToUtf8(value);
    out += "\r\n";
  }
}

std::size_t HeaderLinesSize(const MimeHeaderSet& headers) {
  std::size_t size = 0;
  // UTF-8 takes at most three bytes per UTF-16 unit; this is only a hint.
  for (const auto& [name, value] : headers) size += 3 * (name.size() + value.size()) + 4;
  return size;
}

}  // namespace Mime
