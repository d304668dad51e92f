// A part of headers and a text, such as one field of form data.
#pragma once

#include <string>

#include "shell/wide_string.h"
#include "upload/mime/mime_part.h"

namespace Mime {

class MimeMessagePart : public MimePart {
 public:
  MimeMessagePart() = default;
  MimeMessagePart(const MimeMessagePart& other) = default;

  // MimePart:
  MimePart* Clone() const override;
  void SetHeader(const WideString& name, const WideString& value) override;
  void RemoveHeader(const WideString& name) override;
  // The headers, a blank line and the text; no line end behind the text, so
  // a part without headers begins with the blank line.
  std::string GetMimeText() override;
  void AppendMimeText(std::string& out) override;
  std::size_t MimeTextSizeHint() const override;

  // Replaces the text.
  virtual void SetText(const WideString& text);

 private:
  MimeHeaderSet headers_;
  WideString text_;
};

}  // namespace Mime
