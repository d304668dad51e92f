// The XML library seam of the settings store: start-up, parsing a file into
// a document, and writing a document out.
#pragma once

#include <string>

#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace Marlowen {

enum class SettingsParse {
  kNoFile,     // the file can't be opened: absent or unreadable
  kNotWhole,   // it can be read but is not well-formed XML
  kParsed,
};

// Parses the file at `utf8Path`. On kParsed, `document` receives a document
// that the caller owns (release()); otherwise it is null. Whitespace-only
// text inside the elements that isContainer accepts is dropped, so that a
// rewritten file keeps its layout instead of gaining blank lines. Serves the
// settings store and the localization files alike.
SettingsParse ParseXmlFile(const std::string& utf8Path, bool (*isContainer)(const XERCES_CPP_NAMESPACE::DOMNode*),
                           XERCES_CPP_NAMESPACE::DOMDocument*& document);

// ParseXmlFile with the settings store's containers.
SettingsParse ParseSettingsFile(const std::string& utf8Path, XERCES_CPP_NAMESPACE::DOMDocument*& document);

// Removes blank text (layout) from the elements that isContainer accepts,
// through the whole tree below node.
void DropLayoutWhitespace(XERCES_CPP_NAMESPACE::DOMNode* node,
                          bool (*isContainer)(const XERCES_CPP_NAMESPACE::DOMNode*));

// A new document with only the empty root element `rootTag`; null on failure.
XERCES_CPP_NAMESPACE::DOMDocument* NewSettingsDocument(const char16_t* rootTag);

// The document as indented UTF-8 text with an XML declaration; false if the
// serializer refuses it.
bool SerializeSettingsDocument(XERCES_CPP_NAMESPACE::DOMDocument* document, std::string& text);

}  // namespace Marlowen
