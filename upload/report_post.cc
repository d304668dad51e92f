#include "upload/report_post.h"

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include <memory>

#include "platform/xml_platform.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/string_helpers.h"
#include "upload/http_post_request.h"
#include "upload/mime/mime_file_attachment_part.h"
#include "upload/mime/mime_message_part.h"
#include "upload/mime/mime_multi_part_document.h"
#include "upload/server_discovery.h"

namespace Marlowen {

namespace {

constexpr char16_t kHttpScheme[] = u"http://";
constexpr char16_t kHttpsScheme[] = u"https://";
constexpr char kContentTypeLead[] = "Content-Type: ";
constexpr long kHttpOk = 200;

void LogError(const char16_t* message) { LogCrashReporting(kLogError, message); }

// The body of the post: the whole MIME document around the zip. The
// document and its parts are gone when this returns; only the text is left.
std::string BuildBody(const PathBuffer& zipPath, const WideString& host) {
  Mime::MimeMultiPartDocument document(Mime::MimeMultiPartKindFormData,
                                       Mime::MimeMultiPartFlagContentLength);
  document.SetHeader(u"Host", host);
  document.SetHeader(u"User-Agent", u"Marlowen/1.0");

  auto* field = new Mime::MimeMessagePart;
  field->SetHeader(u"Content-Disposition", u"form/data; name=\"uniqueId\"");
  field->SetText(u"default");
  document.AddPart(field);

  document.AddPart(new Mime::MimeFileAttachmentPart(
      zipPath.ToWide(), u"application/x-marlowen-crash-report", Mime::MimeEncodingBinary));
  return document.GetMimeText();
}

// Logs what a refusing server said about the post. Returns nothing: the
// post has failed already, whatever is found here.
void LogRefusal(const HttpPostRequest& request, long status) {
  LogCrashReporting(kLogError,
                    FormatString(u"%i status code received from the upload server.",
                                 static_cast<int>(status)));
  WideString contentType;
  if (!request.GetResponseHeader(u"Content-Type", contentType)) {
    LogError(u"Cannot get the content type of response from the upload server.");
    return;
  }
  if (!contentType.empty()) {
    LogCrashReporting(kLogInformation,
                      FormatString(u"Content type of response from the upload server is %s.",
                                   contentType.c_str()));
  }
  // A parameter such as a charset makes it another type.
  if (ToUpperCopy(contentType) != u"TEXT/XML") return;

  const std::string& body = request.ResponseBody();
  if (body.empty()) {
    LogError(u"The data set from the upload server is empty.");
    return;
  }
  XmlDocumentPtr document;
  if (!InitializeXmlPlatform() || !(document = ParseServerReply(body))) {
    LogError(u"Cannot read data from the upload server.");
    return;
  }
  const xercesc::DOMElement* root = document->getDocumentElement();
  if (!root) {
    LogError(u"Error reading error description from the upload server.");
    return;
  }
  LogCrashReporting(kLogInformation,
                    FormatString(u"Report submission status from upload server: '%s'.",
                                 ReplyElementText(root, u"status").c_str()));
  LogCrashReporting(kLogInformation,
                    FormatString(u"Report submission error from upload server: '%s'.",
                                 ReplyElementText(root, u"errorDescription").c_str()));
}

}  // namespace

WideString ExtractHostName(const WideString& url) {
  std::size_t start = 0;
  if (url.starts_with(kHttpScheme)) {
    start = WideLength(kHttpScheme);
  } else if (url.starts_with(kHttpsScheme)) {
    start = WideLength(kHttpsScheme);
  }
  const std::size_t end = url.find(u'/', start);
  return url.substr(start, end == WideString::npos ? WideString::npos : end - start);
}

WideString ExtractContentType(const std::string& documentText) {
  const std::size_t lead = documentText.find(kContentTypeLead);
  if (lead == std::string::npos) return {};
  const std::size_t start = lead + sizeof(kContentTypeLead) - 1;
  const std::size_t end = documentText.find("\r\n", start);
  if (end == std::string::npos) return {};
  return Utf8ToWide(std::string_view(documentText).substr(start, end - start));
}

WideString ReplyElementText(const xercesc::DOMElement* element, const WideString& name) {
  if (!element) return {};
  for (const xercesc::DOMNode* child = element->getFirstChild(); child;
       child = child->getNextSibling()) {
    if (child->getNodeType() != xercesc::DOMNode::ELEMENT_NODE ||
        WideView(child->getNodeName()) != name) {
      continue;
    }
    const xercesc::DOMNode* first = child->getFirstChild();
    if (!first) return {};
    const auto type = first->getNodeType();
    if (type != xercesc::DOMNode::TEXT_NODE && type != xercesc::DOMNode::CDATA_SECTION_NODE) {
      return {};
    }
    return WideString(WideView(first->getNodeValue()));
  }
  return {};
}

bool PostPackage(const PathBuffer& zipPath, const WideString& uploadUrl,
                 const UploadProgress& progress) {
  PathBuffer reportId;
  zipPath.BaseName(reportId, false);
  const WideString id = reportId.ToWide();
  progress.Report(id, UploadStatusPreparingXml);

  HttpPostRequest request;
  if (!request.Create()) {
    LogError(u"Cannot create server object.");
    return false;
  }
  progress.Report(id, UploadStatusOpeningConnection);

  request.IgnoreServerCertificateErrors();
  if (!request.Open(uploadUrl)) {
    LogError(u"Cannot create POST request.");
    return false;
  }
  progress.Report(id, UploadStatusPreparingHeaders);

  const WideString host = ExtractHostName(uploadUrl);
  if (host.empty()) {
    LogError(u"Cannot extract upload server name.");
    return false;
  }

  // The one whole copy of the package that lives through the send: the
  // document writes the file straight into this text and libcurl sends it
  // from here.
  const std::string body = BuildBody(zipPath, host);

  if (!request.SetRequestHeader(u"Content-Type", ExtractContentType(body))) {
    LogError(u"Cannot set 'Content-Type' request header'.");
    return false;
  }
  if (!request.SetRequestHeader(u"Content-Length", Utf8ToWide(std::to_string(body.size())))) {
    LogError(u"Cannot set 'Content-Length' request header.");
    return false;
  }
  progress.Report(id, UploadStatusSendingData);

  if (!request.Send(body.data(), body.size())) {
    LogError(u"Send request failed.");
    return false;
  }
  const long status = request.Status();
  if (status == kHttpOk) {
    progress.Report(id, UploadStatusSuccess);
    return true;
  }
  LogRefusal(request, status);
  return false;
}

}  // namespace Marlowen
