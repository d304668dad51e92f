#include "upload/server_discovery.h"

#include <curl/curl.h>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMNodeList.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

#include <cstdlib>

#include "platform/file_io.h"
#include "platform/xml_platform.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/string_helpers.h"
#include "store/path_helpers.h"
#include "upload/ca_bundle.h"
#include "upload/report_post.h"

namespace Marlowen {

namespace {

constexpr char kInformationPath[] = "/CrashReportServer/ServerInfo";
constexpr char16_t kInformationRoot[] = u"CrashReportServerInformation";
constexpr char16_t kRunning[] = u"RUNNING";

// Where libcurl's trace would go; nothing reads it.
void TraceHook(const WideString&) {}

int DebugFunction(CURL*, curl_infotype, char* data, std::size_t size, void*) {
  const std::string text(data, size);
  TraceHook(FormatString(u"CURL: %S", text.c_str()));
  return 0;
}

std::size_t WriteFunction(char* data, std::size_t size, std::size_t count, void* buffer) {
  static_cast<std::string*>(buffer)->append(data, size * count);
  return size * count;
}

}  // namespace

std::string InformationServerAddress() {
  const char* overridden = std::getenv("MARLOWEN_INFO_SERVER");
  if (overridden && *overridden) return overridden;
  return ML_INFO_SERVER_HOST;
}

WideString CaBundleText() {
  const char* overridden = std::getenv("MARLOWEN_CA_BUNDLE");
  if (overridden && *overridden) {
    std::string text;
    (void)platform::ReadWholeFile(overridden, text);
    return Utf8ToWide(text);
  }
  return Utf8ToWide(EmbeddedCaBundle());
}

XmlDocumentPtr ParseServerReply(const std::string& reply) {
  try {
    xercesc::XercesDOMParser parser;
    xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(reply.data()),
                                      reply.size(), "MemBufDoc", false);
    parser.parse(source);
    // The document outlives the parser only when taken over from it.
    return XmlDocumentPtr(parser.adoptDocument());
  } catch (const xercesc::XMLException&) {
  } catch (const xercesc::DOMException&) {
  } catch (const xercesc::OutOfMemoryException&) {
  }
  return nullptr;
}

const xercesc::DOMElement* FirstElementByTagName(const xercesc::DOMElement* root,
                                                 const WideString& name) {
  if (!root) return nullptr;
  const xercesc::DOMNodeList* found = root->getElementsByTagName(name.c_str());
  if (!found || found->getLength() == 0) return nullptr;
  return static_cast<const xercesc::DOMElement*>(found->item(0));
}

WideString ElementText(const xercesc::DOMElement* element) {
  WideString text;
  if (!element) return text;
  for (const xercesc::DOMNode* child = element->getFirstChild(); child;
       child = child->getNextSibling()) {
    if (child->getNodeType() == xercesc::DOMNode::TEXT_NODE) text += WideView(child->getNodeValue());
  }
  return text;
}

bool RequestUploadServerInfo(WideString& state, WideString& url) {
  CURL* curl = curl_easy_init();
  const std::string address = "https://" + InformationServerAddress() + kInformationPath;
  curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
  curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);
  curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, &DebugFunction);
  std::string reply;
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &WriteFunction);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);

  // The bundle lives in a file of its own for the length of the request
  // only; libcurl reads trust anchors from a file. A failed write is not
  // looked at: the certificate check then fails, and that is reported.
  PathBuffer caFile;
  TempFileName(caFile, u"MLC", true);
  (void)WriteText(caFile, kCodePageUtf8, CaBundleText(), true);
  const std::string caPath = caFile.ToUtf8();
  curl_easy_setopt(curl, CURLOPT_CAINFO, caPath.c_str());

  const CURLcode result = curl_easy_perform(curl);
  (void)Delete(caFile);
  curl_easy_cleanup(curl);

  if (result != CURLE_OK) {
    LogCrashReporting(kLogError, u"Failed to request crash report upload URL");
    return false;
  }

  XmlDocumentPtr document;
  if (InitializeXmlPlatform()) document = ParseServerReply(reply);
  const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
  if (!root || WideView(root->getNodeName()) != kInformationRoot) {
    LogCrashReporting(kLogError, u"Invalid XML retrieved from upload URL");
    return false;
  }
  state = ElementText(FirstElementByTagName(root, u"status"));
  url = ElementText(FirstElementByTagName(root, u"uploadUrl"));
  return true;
}

bool UploadPackage(const PathBuffer& zipPath, const UploadProgress& progress) {
  PathBuffer reportId;
  zipPath.BaseName(reportId, false);
  progress.Report(reportId.ToWide(), UploadStatusContactingServer);

  WideString state;
  WideString url;
  if (!RequestUploadServerInfo(state, url)) {
    LogCrashReporting(kLogError, u"Cannot retrieve the crash report upload information.");
    return false;
  }
  // The word must stand alone: blanks or line breaks around it make the
  // server count as not running.
  if (ToUpperCopy(state) != kRunning) {
    LogCrashReporting(kLogError, u"Marlowen upload server is not running.");
    return false;
  }
  if (url.empty()) {
    LogCrashReporting(kLogError, u"Invalid crash report upload information received.");
    return false;
  }
  if (!PostPackage(zipPath, url, progress)) {
    LogCrashReporting(kLogError, u"Error during crash report upload wit XML server.");
    return false;
  }
  return true;
}

}  // namespace Marlowen
