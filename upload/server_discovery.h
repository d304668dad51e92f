// Upload server discovery: before every upload the tool asks the fixed
// information server, over HTTPS checked against the CA bundle the program
// carries, whether reports are taken and where to post them.
#pragma once

#include <string>

#include <xercesc/dom/DOMElement.hpp>

#include "packaging/xml_dom.h"
#include "shell/wide_string.h"
#include "store/path_buffer.h"
#include "upload/upload_progress.h"

namespace Marlowen {

// The whole way for one package: status 2, the information request, then
// the post. True when the server took the package. Each failure is logged
// at severity 4 before false is returned.
[[nodiscard]] bool UploadPackage(const PathBuffer& zipPath, const UploadProgress& progress);

// GET https://<information server>/CrashReportServer/ServerInfo and read the
// reply. True when its root is CrashReportServerInformation; state and url
// may still be empty then. Nothing is cached: every call asks again.
[[nodiscard]] bool RequestUploadServerInfo(WideString& state, WideString& url);

// "host" or "host:port" of the information server: MARLOWEN_INFO_SERVER when
// set and not empty, else the host the program was built with.
std::string InformationServerAddress();

// The PEM text of the root CAs that the request trusts: the file that
// MARLOWEN_CA_BUNDLE names when it is set and not empty (empty if that file
// can't be read), else the bundle built into the program.
WideString CaBundleText();

// Parses reply bytes from memory, without validation; null when the parser
// gave up altogether. A reply that is no XML gives a document without root.
// The XML platform must be initialised.
XmlDocumentPtr ParseServerReply(const std::string& reply);

// The first element of that name anywhere below root, or null.
const xercesc::DOMElement* FirstElementByTagName(const xercesc::DOMElement* root,
                                                 const WideString& name);

// The element's direct text children joined in order; child elements, CDATA
// and comments add nothing. Empty for null.
WideString ElementText(const xercesc::DOMElement* element);

}  // namespace Marlowen
