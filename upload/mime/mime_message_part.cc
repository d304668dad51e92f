#include "upload/mime/mime_message_part.h"

namespace Mime {

MimePart* MimeMessagePart::Clone() const { return new MimeMessagePart(*this); }

void MimeMessagePart::SetHeader(const WideString& name, const WideString& value) {
  headers_[name] = value;
}

void MimeMessagePart::RemoveHeader(const WideString& name) { headers_.erase(name); }

std::string MimeMessagePart::GetMimeText() {
  std::string text;
  AppendMimeText(text);
  return text;
}

void MimeMessagePart::AppendMimeText(std::string& out) {
  AppendHeaderLines(out, headers_);
  out += "\r\n";
  out += WideToUtf8(text_);
}

std::size_t MimeMessagePart::MimeTextSizeHint() const {
  return HeaderLinesSize(headers_) + 2 + 3 * text_.size();
}

void MimeMessagePart::SetText(const WideString& text) { text_ = text; }

}  // namespace Mime
