// The report post: one zip package, wrapped in a form-data MIME document,
// sent whole as the body of one HTTP POST to the upload address.
//
// Only the HTTP status decides: 200 is success, whatever the reply says;
// anything else, or no reply, is failure. A refusal's words go to the log.
// Server certificates are not checked here, unlike the information request.
#pragma once

#include <string>

#include <xercesc/dom/DOMElement.hpp>

#include "shell/wide_string.h"
#include "store/path_buffer.h"
#include "upload/upload_progress.h"

namespace Marlowen {

// Posts the zip at zipPath to uploadUrl, telling progress of statuses 3 to 7
// under the zip's name without extension. True exactly on HTTP status 200.
// Every failure is logged at severity 4 before false is returned. A zip that
// can't be opened throws FE_FileNotFound, which nothing here catches.
[[nodiscard]] bool PostPackage(const PathBuffer& zipPath, const WideString& uploadUrl,
                               const UploadProgress& progress);

// The host of a URL, port included: behind "http://" or "https://" (case
// matters), else from the start, up to the first '/' or the end.
WideString ExtractHostName(const WideString& url);

// The value of the first "Content-Type: " line of an 8-bit document text, up
// to its CRLF, decoded as UTF-8. Empty without a match or a line end.
WideString ExtractContentType(const std::string& documentText);

// The text of element's first child element of that name, when that child's
// own first child is text (or CDATA); empty otherwise, and for a null element.
WideString ReplyElementText(const xercesc::DOMElement* element, const WideString& name);

}  // namespace Marlowen
