// A thin layer of document operations over the Xerces-C DOM, in the steps
// that the report document is built with: one document, built once, top to
// bottom.
//
// Ownership: a document belongs to its XmlDocumentPtr; elements belong to
// their document and are handed out as plain pointers that stay valid while
// it lives. Failures are false or null, never an exception (but exhausted
// memory). Names are taken as given; the namespace argument is kept for the
// callers' shape and is always empty in this system.
#pragma once

#include <cstdint>
#include <memory>
#include <variant>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include "shell/wide_string.h"
#include "store/path_buffer.h"

namespace Marlowen {

struct XmlDocumentRelease {
  void operator()(xercesc::DOMDocument* document) const;
};
using XmlDocumentPtr = std::unique_ptr<xercesc::DOMDocument, XmlDocumentRelease>;

// A value for an element's text: a string, or a 32- or 64-bit number.
using XmlValue = std::variant<WideString, std::uint32_t, std::uint64_t>;

// The declaration that leads every document of this system.
inline constexpr char16_t kXmlDeclarationTarget[] = u"xml";
inline constexpr char16_t kXmlDeclarationText[] = u"version=\"1.0\" encoding=\"utf-8\"";

// A new empty document whose first node is the declaration. False, with
// document empty, if the XML library is not available.
[[nodiscard]] bool CreateXmlDocument(XmlDocumentPtr& document);

// Appends the root element; null (and element null) if the document has a
// root already or the name is not a valid element name.
xercesc::DOMElement* CreateRootElement(xercesc::DOMElement*& element, xercesc::DOMDocument* document,
                                       WideStringView name, WideStringView namespaceUri);

// Sets an attribute of the root element; false without a root.
bool SetRootAttribute(xercesc::DOMDocument* document, WideStringView name, const XmlValue& value);

// Appends a new element to parent; null on failure.
xercesc::DOMElement* AddChildElement(xercesc::DOMElement*& element, xercesc::DOMNode* parent,
                                     WideStringView name, WideStringView namespaceUri);

// The first child element of parent with that name, else a new one appended
// to parent; null on failure.
xercesc::DOMElement* FindOrCreateChild(xercesc::DOMElement*& element, xercesc::DOMNode* parent,
                                       WideStringView name);

// Replaces the text of parent's child element name (made if missing). With
// numeric the text is NumberText of the value's low 32 bits, whatever the
// value's type; otherwise the string itself, or a number's decimal digits.
// Characters that XML 1.0 cannot carry become U+FFFD, so that the document
// always saves and parses. Returns the element, null on failure.
xercesc::DOMElement* SetChildText(xercesc::DOMElement*& element, xercesc::DOMNode* parent,
                                  WideStringView name, const XmlValue& value, bool numeric);

// The node itself if it is a document, else the document it belongs to.
xercesc::DOMDocument* OwnerDocumentOf(xercesc::DOMNode* node, xercesc::DOMDocument*& document);

// The low 32 bits of value as a signed decimal number: 3 GiB reads
// "-1073741824" and 4 GiB "0". The one number conversion of the report.
WideString NumberText(std::uint64_t value);

// The document as UTF-8 text, markup escaped, with no layout added. False
// if the document cannot be written out.
[[nodiscard]] bool SerializeXmlDocument(const xercesc::DOMDocument* document, std::string& text);

// Writes the document to path, mode 0600, never through a symbolic link.
// A file that someone holds open through a File (a share lock) makes an
// attempt fail; up to 30 attempts are made, 100 ms apart (after the last
// failure too), so a holder gets about three seconds. No message here.
[[nodiscard]] bool SaveXmlDocument(const xercesc::DOMDocument* document, const PathBuffer& path);

// Attempts and pause of SaveXmlDocument.
inline constexpr int kSaveAttempts = 30;
inline constexpr int kSaveRetryMilliseconds = 100;

}  // namespace Marlowen
