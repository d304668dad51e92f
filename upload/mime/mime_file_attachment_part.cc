#include "upload/mime/mime_file_attachment_part.h"

#include <sys/stat.h>

#include <crypto++/base64.h>

#include <vector>

#include "shell/failures.h"
#include "store/file.h"
#include "store/path_buffer.h"

namespace Mime {

namespace {

constexpr int kBase64LineLength = 72;

const char* EncodingWord(std::int32_t encoding) {
  switch (encoding) {
    case MimeEncodingBinary: return "binary";
    case MimeEncodingBase64: return "base64";
    default: return "";
  }
}

// The part of the head that ends in "Content-Length: ", so that the length
// can be written behind it once the body is known.
void AppendLeadingLines(std::string& out, const std::string& contentType, std::int32_t encoding,
                        const std::string& fileName) {
  out += "Content-Type: ";
  out += contentType;
  out += "\r\nContent-Transfer-Encoding: ";
  out += EncodingWord(encoding);
  out += "\r\nContent-Disposition: attachment; filename=\"";
  out += fileName;
  out += "\"\r\nContent-Length: ";
}

}  // namespace

MimeFileAttachmentPart::MimeFileAttachmentPart(const WideString& filePath,
                                               const WideString& contentType, std::int32_t encoding)
    : filePath_(filePath), contentType_(contentType), encoding_(encoding) {}

MimePart* MimeFileAttachmentPart::Clone() const { return new MimeFileAttachmentPart(*this); }

void MimeFileAttachmentPart::SetHeader(const WideString& name, const WideString& value) {
  headers_[name] = value;
}

void MimeFileAttachmentPart::RemoveHeader(const WideString& name) { headers_.erase(name); }

WideString MimeFileAttachmentPart::FileName() const {
  const std::size_t slash = filePath_.rfind(Marlowen::kPathSeparator);
  return slash == WideString::npos ? filePath_ : filePath_.substr(slash + 1);
}

std::string MimeFileAttachmentPart::GetMimeText() {
  std::string text;
  AppendMimeText(text);
  return text;
}

void MimeFileAttachmentPart::AppendMimeText(std::string& out) {
  Marlowen::File file{Marlowen::PathBuffer(filePath_)};
  if (!file.Open(Marlowen::FileAccess_Read, Marlowen::FileShare_None,
                 Marlowen::FileAccessHint_Sequential)) {
    throw FE_FileNotFound(filePath_);
  }
  std::uint32_t size = file.GetSize();
  if (size == Marlowen::kInvalidPosition) size = 0;

  AppendLeadingLines(out, WideToUtf8(contentType_), encoding_, WideToUtf8(FileName()));

  if (encoding_ == MimeEncodingBinary) {
    // The body is the file itself, so its length is known before the read and
    // the bytes go straight into the text: no buffer of their own. A short
    // read leaves zeros; the length stands as announced.
    out += std::to_string(size);
    out += "\r\n";
    AppendHeaderLines(out, headers_);
    out += "\r\n";
    const std::size_t start = out.size();
    out.resize(start + size);
    if (size != 0) (void)file.Read(out.data() + start, size);
    return;
  }

  if (encoding_ != MimeEncodingBase64) {
    out += "0\r\n";
    AppendHeaderLines(out, headers_);
    out += "\r\n";
    return;
  }

  std::vector<unsigned char> bytes(size);
  if (size != 0) (void)file.Read(bytes.data(), size);
  file.Close();
  CryptoPP::Base64Encoder encoder(nullptr, true, kBase64LineLength);
  encoder.Put(bytes.data(), bytes.size());
  encoder.MessageEnd();
  std::vector<unsigned char>().swap(bytes);
  const std::size_t encodedSize = static_cast<std::size_t>(encoder.MaxRetrievable());
  out += std::to_string(encodedSize);
  out += "\r\n";
  AppendHeaderLines(out, headers_);
  out += "\r\n";
  const std::size_t start = out.size();
  out.resize(start + encodedSize);
  encoder.Get(reinterpret_cast<unsigned char*>(out.data() + start), encodedSize);
}

std::size_t MimeFileAttachmentPart::MimeTextSizeHint() const {
  struct stat info;
  std::size_t body = 0;
  if (stat(WideToUtf8(filePath_).c_str(), &info) == 0) {
    body = static_cast<std::uint32_t>(info.st_size);
    if (encoding_ == MimeEncodingBase64) body = (body + 2) / 3 * 4 + body / 54 + 1;
    else if (encoding_ != MimeEncodingBinary) body = 0;
  }
  return 256 + 3 * (contentType_.size() + filePath_.size()) + HeaderLinesSize(headers_) + body;
}

}  // namespace Mime
