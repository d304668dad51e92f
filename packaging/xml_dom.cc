#include "packaging/xml_dom.h"

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <errno.h>
#include <time.h>

#include <cstdlib>
#include <string>

#include "platform/xml_platform.h"
#include "shell/format_string.h"
#include "store/file.h"
#include "store/file_attributes.h"
#include "store/path_helpers.h"

namespace Marlowen {
namespace {

namespace xc = xercesc;

constexpr char16_t kReplacementCharacter = u'\uFFFD';

// Xerces wants zero-terminated names.
WideString Terminated(WideStringView text) { return WideString(text); }

xc::DOMElement* NewElement(xc::DOMDocument* document, WideStringView name,
                           WideStringView namespaceUri) {
  const WideString nameText = Terminated(name);
  if (namespaceUri.empty()) return document->createElement(nameText.c_str());
  const WideString namespaceText = Terminated(namespaceUri);
  return document->createElementNS(namespaceText.c_str(), nameText.c_str());
}

// XML 1.0 carries tab, line feed, carriage return, U+0020..U+D7FF,
// U+E000..U+FFFD and paired surrogates; anything else cannot be written.
WideString XmlSafeText(WideStringView text) {
  WideString result(text);
  for (std::size_t i = 0; i < result.size(); ++i) {
    const char16_t unit = result[i];
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < result.size() && result[i + 1] >= 0xDC00 &&
        result[i + 1] <= 0xDFFF) {
      ++i;
      continue;
    }
    const bool allowed = unit == 0x9 || unit == 0xA || unit == 0xD || (unit >= 0x20 && unit <= 0xD7FF) ||
                         (unit >= 0xE000 && unit <= 0xFFFD);
    if (!allowed) result[i] = kReplacementCharacter;
  }
  return result;
}

WideString PlainText(const XmlValue& value) {
  if (const auto* text = std::get_if<WideString>(&value)) return *text;
  if (const auto* number = std::get_if<std::uint32_t>(&value)) return FormatString(u"%u", *number);
  return FormatString(u"%I64u", std::get<std::uint64_t>(value));
}

// The value as a number: a text is read as a decimal number, as a variant
// conversion would; a text that is none reads 0.
std::uint64_t NumericValue(const XmlValue& value) {
  if (const auto* number = std::get_if<std::uint32_t>(&value)) return *number;
  if (const auto* number = std::get_if<std::uint64_t>(&value)) return *number;
  const std::string digits = WideToUtf8(std::get<WideString>(value));
  return static_cast<std::uint64_t>(std::strtoll(digits.c_str(), nullptr, 10));
}

void SleepMilliseconds(int milliseconds) {
  struct timespec pause {
    milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1'000'000
  };
  while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
  }
}

// One attempt at putting the bytes on disk. A file that cannot be created
// (held by someone, no right) is left alone; one that was created but not
// fully written is removed, so a cut-off document never stands.
bool WriteDocumentFile(const PathBuffer& path, const std::string& bytes) {
  File file(path);
  if (!file.Create(FileAccess_Write, FileShare_None, FileAccessHint_Sequential, true,
                   kFileAttributeNormal)) {
    return false;
  }
  const auto size = static_cast<std::uint32_t>(bytes.size());
  if (file.Write(bytes.data(), size) != size) {
    file.Close();
    Delete(path);
    return false;
  }
  file.Close();
  return true;
}

}  // namespace

void XmlDocumentRelease::operator()(xercesc::DOMDocument* document) const {
  if (document) document->release();
}

bool CreateXmlDocument(XmlDocumentPtr& document) {
  document.reset();
  if (!InitializeXmlPlatform()) return false;
  static const XMLCh kFeatures[] = u"LS";
  xc::DOMImplementation* implementation = xc::DOMImplementationRegistry::getDOMImplementation(kFeatures);
  if (!implementation) return false;
  XmlDocumentPtr created(implementation->createDocument());
  try {
    created->appendChild(created->createProcessingInstruction(kXmlDeclarationTarget, kXmlDeclarationText));
  } catch (const xc::DOMException&) {
    return false;
  }
  document = std::move(created);
  return true;
}

xc::DOMElement* CreateRootElement(xc::DOMElement*& element, xc::DOMDocument* document,
                                  WideStringView name, WideStringView namespaceUri) {
  element = nullptr;
  if (!document || document->getDocumentElement()) return nullptr;
  try {
    xc::DOMElement* root = NewElement(document, name, namespaceUri);
    document->appendChild(root);
    element = root;
  } catch (const xc::DOMException&) {
    element = nullptr;
  }
  return element;
}

bool SetRootAttribute(xc::DOMDocument* document, WideStringView name, const XmlValue& value) {
  if (!document) return false;
  xc::DOMElement* root = document->getDocumentElement();
  if (!root) return false;
  try {
    const WideString nameText = Terminated(name);
    const WideString valueText = XmlSafeText(PlainText(value));
    root->setAttribute(nameText.c_str(), valueText.c_str());
  } catch (const xc::DOMException&) {
    return false;
  }
  return true;
}

xc::DOMElement* AddChildElement(xc::DOMElement*& element, xc::DOMNode* parent, WideStringView name,
                                WideStringView namespaceUri) {
  element = nullptr;
  xc::DOMDocument* document = nullptr;
  if (!parent || !OwnerDocumentOf(parent, document)) return nullptr;
  try {
    xc::DOMElement* child = NewElement(document, name, namespaceUri);
    parent->appendChild(child);
    element = child;
  } catch (const xc::DOMException&) {
    element = nullptr;
  }
  return element;
}

xc::DOMElement* FindOrCreateChild(xc::DOMElement*& element, xc::DOMNode* parent, WideStringView name) {
  element = nullptr;
  if (!parent) return nullptr;
  const WideString nameText = Terminated(name);
  for (xc::DOMNode* child = parent->getFirstChild(); child; child = child->getNextSibling()) {
    if (child->getNodeType() == xc::DOMNode::ELEMENT_NODE &&
        WideStringView(child->getNodeName()) == name) {
      element = static_cast<xc::DOMElement*>(child);
      return element;
    }
  }
  xc::DOMDocument* document = nullptr;
  if (!OwnerDocumentOf(parent, document)) return nullptr;
  try {
    xc::DOMElement* child = document->createElement(nameText.c_str());
    parent->appendChild(child);
    element = child;
  } catch (const xc::DOMException&) {
    element = nullptr;
  }
  return element;
}

xc::DOMElement* SetChildText(xc::DOMElement*& element, xc::DOMNode* parent, WideStringView name,
                             const XmlValue& value, bool numeric) {
  element = nullptr;
  xc::DOMDocument* document = nullptr;
  if (!parent || !OwnerDocumentOf(parent, document)) return nullptr;
  if (!FindOrCreateChild(element, parent, name)) return nullptr;
  const WideString text = numeric ? NumberText(NumericValue(value)) : XmlSafeText(PlainText(value));
  try {
    element->setTextContent(text.c_str());
  } catch (const xc::DOMException&) {
    // The element stays, empty or with its old text.
  }
  return element;
}

xc::DOMDocument* OwnerDocumentOf(xc::DOMNode* node, xc::DOMDocument*& document) {
  document = nullptr;
  if (!node) return nullptr;
  if (node->getNodeType() == xc::DOMNode::DOCUMENT_NODE) {
    document = static_cast<xc::DOMDocument*>(node);
  } else {
    document = node->getOwnerDocument();
  }
  return document;
}

WideString NumberText(std::uint64_t value) {
  const auto low = static_cast<std::int32_t>(static_cast<std::uint32_t>(value & 0xFFFFFFFFu));
  return FormatString(u"%d", low);
}

bool SerializeXmlDocument(const xc::DOMDocument* document, std::string& text) {
  text.clear();
  if (!document || !InitializeXmlPlatform()) return false;
  static const XMLCh kFeatures[] = u"LS";
  auto* implementation =
      static_cast<xc::DOMImplementationLS*>(xc::DOMImplementationRegistry::getDOMImplementation(kFeatures));
  if (!implementation) return false;
  xc::DOMLSSerializer* serializer = implementation->createLSSerializer();
  xc::DOMLSOutput* output = implementation->createLSOutput();
  // The declaration is the document's own first node; the serializer must
  // not add a second one.
  serializer->getDomConfig()->setParameter(xc::XMLUni::fgDOMXMLDeclaration, false);
  xc::MemBufFormatTarget target;
  output->setByteStream(&target);
  output->setEncoding(u"UTF-8");
  bool written = false;
  try {
    written = serializer->write(document, output);
  } catch (const xc::DOMLSException&) {
    written = false;
  } catch (const xc::DOMException&) {
    written = false;
  }
  if (written) text.assign(reinterpret_cast<const char*>(target.getRawBuffer()), target.getLen());
  output->release();
  serializer->release();
  return written;
}

bool SaveXmlDocument(const xc::DOMDocument* document, const PathBuffer& path) {
  std::string bytes;
  // A document that cannot be written out will not become writable by
  // waiting; only the file's availability is worth the retries.
  if (path.IsEmpty() || !SerializeXmlDocument(document, bytes)) return false;
  for (int attempt = 0; attempt < kSaveAttempts; ++attempt) {
    if (WriteDocumentFile(path, bytes)) return true;
    SleepMilliseconds(kSaveRetryMilliseconds);
  }
  return false;
}

}  // namespace Marlowen
