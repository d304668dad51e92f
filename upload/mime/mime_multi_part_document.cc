#include "upload/mime/mime_multi_part_document.h"

#include <stdexcept>

namespace Mime {

namespace {

const char* ContentTypeLead(std::int32_t kind) {
  switch (kind) {
    case MimeMultiPartKindMixed: return "multipart/mixed; boundary=\"";
    case MimeMultiPartKindAlternative: return "multipart/alternative; boundary=\"";
    case MimeMultiPartKindFormData: return "multipart/form-data; boundary=\"";
    case MimeMultiPartKindRelated: return "multipart/related; boundary=\"";
    default: return nullptr;
  }
}

const char* Preamble(std::int32_t kind) {
  switch (kind) {
    case MimeMultiPartKindMixed:
    case MimeMultiPartKindRelated:
      return "This is a multi-part message in MIME format.\r\n\r\n";
    case MimeMultiPartKindAlternative:
      return "This is a MIME formatted message with alternative content parts.\r\n\r\n";
    default: return "";
  }
}

constexpr char kContentLengthLead[] = "Content-Length: ";

}  // namespace

MimeMultiPartDocument::MimeMultiPartDocument(std::int32_t kind, std::int32_t flags)
    : kind_(kind), flags_(flags) {}

MimeMultiPartDocument::MimeMultiPartDocument(const MimeMultiPartDocument& other)
    : MimePartContainer(other), MimePart(other), headers_(other.headers_), kind_(other.kind_),
      flags_(0) {
  parts_.reserve(other.parts_.size());
  for (const MimePart* part : other.parts_) {
    std::unique_ptr<MimePart> copy(part->Clone());
    parts_.push_back(copy.get());
    copy.release();
  }
}

MimeMultiPartDocument::~MimeMultiPartDocument() {
  for (MimePart* part : parts_) delete part;
}

MimePart* MimeMultiPartDocument::Clone() const { return new MimeMultiPartDocument(*this); }

void MimeMultiPartDocument::SetHeader(const WideString& name, const WideString& value) {
  headers_[name] = value;
}

void MimeMultiPartDocument::RemoveHeader(const WideString& name) { headers_.erase(name); }

std::string MimeMultiPartDocument::GetMimeText() {
  std::string text;
  text.reserve(MimeTextSizeHint());
  AppendMimeText(text);
  return text;
}

void MimeMultiPartDocument::AppendMimeText(std::string& out) {
  const std::string boundary = MakeBoundary();
  if (!parts_.empty()) {
    const char* lead = ContentTypeLead(kind_);
    headers_[u"Content-Type"] =
        lead ? Utf8ToWide(std::string(lead) + boundary + "\"") : WideString();
  }

  const std::size_t documentStart = out.size();
  AppendHeaderLines(out, headers_);
  out += "\r\n";
  out += Preamble(kind_);
  const std::size_t headLength = out.size() - documentStart;

  for (MimePart* part : parts_) {
    out += "--";
    out += boundary;
    out += "\r\n";
    part->AppendMimeText(out);
    out += "\r\n";
  }
  if (!parts_.empty()) {
    out += "--";
    out += boundary;
    out += "--";
  }

  if (flags_ & MimeMultiPartFlagContentLength) {
    const std::size_t counted = out.size() - documentStart - headLength;
    const std::string line = kContentLengthLead + std::to_string(counted) + "\r\n";
    // The document's text was reserved with room to spare, so this moves the
    // bytes within the one buffer instead of making a second copy.
    out.insert(documentStart, line);
  }
}

std::size_t MimeMultiPartDocument::MimeTextSizeHint() const {
  std::size_t size = 256 + HeaderLinesSize(headers_);
  for (const MimePart* part : parts_) size += 60 + part->MimeTextSizeHint();
  return size;
}

std::size_t MimeMultiPartDocument::GetPartCount() const { return parts_.size(); }

MimePart* MimeMultiPartDocument::GetPart(std::size_t index) { return parts_.at(index); }

const MimePart* MimeMultiPartDocument::GetPart(std::size_t index) const {
  return parts_.at(index);
}

std::size_t MimeMultiPartDocument::AddPart(MimePart* part) {
  parts_.push_back(part);
  return parts_.size() - 1;
}

void MimeMultiPartDocument::RemovePart(std::size_t index) {
  if (index >= parts_.size()) throw std::out_of_range("MimeMultiPartDocument::RemovePart");
  parts_.erase(parts_.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace Mime
