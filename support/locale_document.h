// The XML seam of the localization files: parsing a .locale file into a
// document, writing one out, and reading texts and attributes with the
// library's limits.
#pragma once

#include <cstddef>
#include <string>

#include <xercesc/util/XercesDefs.hpp>

#include "shell/wide_string.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace Marlowen {

inline constexpr char16_t kLocaleRootTag[] = u"Marlowen_Localization";
inline constexpr char16_t kLocalizeTag[] = u"Localize";
inline constexpr char16_t kStringTag[] = u"String";
inline constexpr char16_t kOriginalTag[] = u"Original";
inline constexpr char16_t kLocalTag[] = u"Local";
inline constexpr char16_t kLocalNewTag[] = u"LocalNew";
inline constexpr char16_t kApplicationAttribute[] = u"application";
inline constexpr char16_t kLanguageAttribute[] = u"language";
inline constexpr char16_t kIdAttribute[] = u"id";

// Texts of a file are read up to this many characters.
inline constexpr std::size_t kMaxLocaleText = 16383;
// Application names and language tags are used up to this many characters.
inline constexpr std::size_t kMaxLocaleName = 31;

// The parsed file, which the caller owns (release()); null if the file can't
// be read or isn't well-formed XML. Layout white space between the file's
// container elements is dropped, so that rewriting a file doesn't pile up
// blank lines; the texts of strings keep every character.
XERCES_CPP_NAMESPACE::DOMDocument* ParseLocaleFile(const std::string& utf8Path);

// A new document with an empty Marlowen_Localization root; null on failure.
XERCES_CPP_NAMESPACE::DOMDocument* NewLocaleDocument();

// Writes the document as indented UTF-8 XML. The file is replaced in one
// rename, so a crash while saving never leaves half a translation behind.
[[nodiscard]] bool WriteLocaleFile(XERCES_CPP_NAMESPACE::DOMDocument* document,
                                   const std::string& utf8Path);

// The first child element of `parent` with this tag (any tag if null), and
// the next sibling element after `element` with this tag.
XERCES_CPP_NAMESPACE::DOMElement* FirstChildElement(const XERCES_CPP_NAMESPACE::DOMNode* parent,
                                                    const char16_t* tag);
XERCES_CPP_NAMESPACE::DOMElement* NextSiblingElement(const XERCES_CPP_NAMESPACE::DOMElement* element,
                                                     const char16_t* tag);

// The text content of an element, cut to `limit` characters.
WideString ElementText(const XERCES_CPP_NAMESPACE::DOMElement* element,
                       std::size_t limit = kMaxLocaleText);
// An attribute's value cut to `limit` characters; empty if absent.
WideString AttributeText(const XERCES_CPP_NAMESPACE::DOMElement* element, const char16_t* name,
                         std::size_t limit);
bool HasAttribute(const XERCES_CPP_NAMESPACE::DOMElement* element, const char16_t* name);

// Appends a child element with the given text (none if empty).
XERCES_CPP_NAMESPACE::DOMElement* AppendTextElement(XERCES_CPP_NAMESPACE::DOMElement* parent,
                                                    const char16_t* tag, WideStringView text);

}  // namespace Marlowen
