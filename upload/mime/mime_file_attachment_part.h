// A part that carries one file, as it is or in base64.
#pragma once

#include <cstdint>
#include <string>

#include "shell/wide_string.h"
#include "upload/mime/mime_part.h"

namespace Mime {

enum MimeEncoding : std::int32_t {
  MimeEncodingBinary = 0,  // the file's bytes as they are
  MimeEncodingBase64 = 1,  // 72-character lines, each ended by a bare line feed
};

class MimeFileAttachmentPart : public MimePart {
 public:
  // Any other encoding value writes an empty encoding word and an empty body.
  MimeFileAttachmentPart(const WideString& filePath, const WideString& contentType,
                         std::int32_t encoding);
  MimeFileAttachmentPart(const MimeFileAttachmentPart& other) = default;

  // MimePart:
  MimePart* Clone() const override;
  void SetHeader(const WideString& name, const WideString& value) override;
  void RemoveHeader(const WideString& name) override;
  // Reads the whole file on every call. Throws FE_FileNotFound with the path
  // when the file can't be opened (it is opened without sharing); that is
  // the only failure. The Content-Type, Content-Transfer-Encoding,
  // Content-Disposition and Content-Length lines come first and are not
  // taken from the header set, so a header of the same name in the set is
  // written a second time.
  std::string GetMimeText() override;
  void AppendMimeText(std::string& out) override;
  std::size_t MimeTextSizeHint() const override;

  // The text behind the last '/' of the path; the whole path without one.
  WideString FileName() const;

 private:
  WideString filePath_;
  WideString contentType_;
  std::int32_t encoding_;
  MimeHeaderSet headers_;
};

}  // namespace Mime
