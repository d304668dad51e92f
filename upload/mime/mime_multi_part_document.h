// A multipart MIME document: a head, the kind's preamble, the parts between
// boundaries and the closing delimiter. A document is itself a part, so
// documents nest.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "shell/wide_string.h"
#include "upload/mime/mime_part.h"
#include "upload/mime/mime_part_container.h"

namespace Mime {

enum MimeMultiPartKind : std::int32_t {
  MimeMultiPartKindMixed = 0,
  MimeMultiPartKindAlternative = 1,
  MimeMultiPartKindFormData = 2,
  MimeMultiPartKindRelated = 3,
};

// Puts a Content-Length line in front of the document's text.
inline constexpr std::int32_t MimeMultiPartFlagContentLength = 1;

class MimeMultiPartDocument : public MimePartContainer, public MimePart {
 public:
  // Any other kind writes an empty Content-Type value and no preamble.
  MimeMultiPartDocument(std::int32_t kind, std::int32_t flags);
  // Clones every part and copies headers and kind. The flags are not copied:
  // a copy has none.
  MimeMultiPartDocument(const MimeMultiPartDocument& other);
  MimeMultiPartDocument& operator=(const MimeMultiPartDocument&) = delete;
  // Deletes every part still in the list.
  ~MimeMultiPartDocument() override;

  // MimePart:
  MimePart* Clone() const override;
  void SetHeader(const WideString& name, const WideString& value) override;
  void RemoveHeader(const WideString& name) override;
  // Makes a new boundary on every call and, when there are parts, stores the
  // Content-Type built from it in the document's own header set, where it
  // stays. The Content-Length of the flag counts from the first delimiter to
  // the end; the head and the line itself are not counted. Throws what a
  // part throws (FE_FileNotFound from a file part).
  std::string GetMimeText() override;
  void AppendMimeText(std::string& out) override;
  std::size_t MimeTextSizeHint() const override;

  // MimePartContainer:
  std::size_t GetPartCount() const override;
  MimePart* GetPart(std::size_t index) override;
  const MimePart* GetPart(std::size_t index) const override;
  std::size_t AddPart(MimePart* part) override;
  void RemovePart(std::size_t index) override;

  // The head lines as they stand now, for a look after rendering.
  const MimeHeaderSet& Headers() const { return headers_; }

 private:
  MimeHeaderSet headers_;
  std::vector<MimePart*> parts_;  // owned
  std::int32_t kind_;
  std::int32_t flags_;
};

}  // namespace Mime
