#include "support/locale_document.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <xercesc/dom/DOM.hpp>

#include "platform/file_io.h"
#include "support/settings_xml.h"

namespace Marlowen {

namespace xc = XERCES_CPP_NAMESPACE;

namespace {

bool IsContainer(const xc::DOMNode* node) {
  if (node->getNodeType() != xc::DOMNode::ELEMENT_NODE) return false;
  const XMLCh* tag = node->getNodeName();
  return xc::XMLString::equals(tag, kLocaleRootTag) || xc::XMLString::equals(tag, kLocalizeTag) ||
         xc::XMLString::equals(tag, kStringTag);
}

void AppendText(const xc::DOMNode* node, WideString& out, std::size_t limit) {
  for (const xc::DOMNode* child = node->getFirstChild(); child && out.size() < limit;
       child = child->getNextSibling()) {
    const auto type = child->getNodeType();
    if (type == xc::DOMNode::TEXT_NODE || type == xc::DOMNode::CDATA_SECTION_NODE) {
      const XMLCh* value = child->getNodeValue();
      const std::size_t length = value ? xc::XMLString::stringLen(value) : 0;
      out.append(value, std::min(length, limit - out.size()));
    } else if (type == xc::DOMNode::ELEMENT_NODE || type == xc::DOMNode::ENTITY_REFERENCE_NODE) {
      AppendText(child, out, limit);
    }
  }
}

}  // namespace

xc::DOMDocument* ParseLocaleFile(const std::string& utf8Path) {
  xc::DOMDocument* document = nullptr;
  return ParseXmlFile(utf8Path, IsContainer, document) == SettingsParse::kParsed ? document : nullptr;
}

xc::DOMDocument* NewLocaleDocument() {
  return NewSettingsDocument(kLocaleRootTag);
}

bool WriteLocaleFile(xc::DOMDocument* document, const std::string& utf8Path) {
  std::string text;
  if (!SerializeSettingsDocument(document, text)) return false;
  const std::string temporary = utf8Path + ".saving";
  const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) return false;
  const bool written = platform::WriteAll(fd, text) && fsync(fd) == 0;
  if (close(fd) != 0 || !written || std::rename(temporary.c_str(), utf8Path.c_str()) != 0) {
    unlink(temporary.c_str());
    return false;
  }
  return true;
}

xc::DOMElement* FirstChildElement(const xc::DOMNode* parent, const char16_t* tag) {
  if (!parent) return nullptr;
  for (xc::DOMNode* child = parent->getFirstChild(); child; child = child->getNextSibling()) {
    if (child->getNodeType() != xc::DOMNode::ELEMENT_NODE) continue;
    if (!tag || xc::XMLString::equals(child->getNodeName(), tag)) {
      return static_cast<xc::DOMElement*>(child);
    }
  }
  return nullptr;
}

xc::DOMElement* NextSiblingElement(const xc::DOMElement* element, const char16_t* tag) {
  for (xc::DOMNode* next = element->getNextSibling(); next; next = next->getNextSibling()) {
    if (next->getNodeType() != xc::DOMNode::ELEMENT_NODE) continue;
    if (!tag || xc::XMLString::equals(next->getNodeName(), tag)) {
      return static_cast<xc::DOMElement*>(next);
    }
  }
  return nullptr;
}

WideString ElementText(const xc::DOMElement* element, std::size_t limit) {
  WideString text;
  if (element) AppendText(element, text, limit);
  return text;
}

WideString AttributeText(const xc::DOMElement* element, const char16_t* name, std::size_t limit) {
  if (!element) return {};
  const XMLCh* value = element->getAttribute(name);
  if (!value) return {};
  WideString text(value);
  if (text.size() > limit) text.resize(limit);
  return text;
}

bool HasAttribute(const xc::DOMElement* element, const char16_t* name) {
  return element && element->hasAttribute(name);
}

xc::DOMElement* AppendTextElement(xc::DOMElement* parent, const char16_t* tag, WideStringView text) {
  xc::DOMDocument* document = parent->getOwnerDocument();
  xc::DOMElement* element = document->createElement(tag);
  if (!text.empty()) element->appendChild(document->createTextNode(WideString(text).c_str()));
  parent->appendChild(element);
  return element;
}

}  // namespace Marlowen
