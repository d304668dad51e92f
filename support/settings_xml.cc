#include "support/settings_xml.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "platform/file_io.h"
#include "platform/xml_platform.h"

namespace Marlowen {

namespace xc = XERCES_CPP_NAMESPACE;

namespace {

bool IsContainer(const xc::DOMNode* node) {
  if (node->getNodeType() != xc::DOMNode::ELEMENT_NODE) return false;
  const XMLCh* tag = node->getNodeName();
  return xc::XMLString::equals(tag, u"Marlowen_Settings") || xc::XMLString::equals(tag, u"Group") ||
         xc::XMLString::equals(tag, u"Struct") || xc::XMLString::equals(tag, u"Array") ||
         xc::XMLString::equals(tag, u"StringList");
}

bool IsBlankText(const xc::DOMNode* node) {
  if (node->getNodeType() != xc::DOMNode::TEXT_NODE) return false;
  for (const XMLCh* c = node->getNodeValue(); c && *c; ++c) {
    if (*c != u' ' && *c != u'\t' && *c != u'\r' && *c != u'\n') return false;
  }
  return true;
}

}  // namespace

void DropLayoutWhitespace(xc::DOMNode* node, bool (*isContainer)(const xc::DOMNode*)) {
  const bool container = isContainer(node);
  xc::DOMNode* child = node->getFirstChild();
  while (child) {
    xc::DOMNode* next = child->getNextSibling();
    if (container && IsBlankText(child)) {
      node->removeChild(child)->release();
    } else if (child->getNodeType() == xc::DOMNode::ELEMENT_NODE) {
      DropLayoutWhitespace(child, isContainer);
    }
    child = next;
  }
}


SettingsParse ParseXmlFile(const std::string& utf8Path, bool (*isContainer)(const xc::DOMNode*),
                           xc::DOMDocument*& document) {
  document = nullptr;
  std::string bytes;
  if (!platform::ReadWholeFile(utf8Path, bytes)) return SettingsParse::kNoFile;
  if (bytes.empty() || !InitializeXmlPlatform()) return SettingsParse::kNotWhole;

  xc::XercesDOMParser parser;
  parser.setValidationScheme(xc::XercesDOMParser::Val_Never);
  parser.setDoNamespaces(false);
  parser.setLoadExternalDTD(false);
  parser.setCreateEntityReferenceNodes(false);
  // A settings or translation file has no business pulling in other files.
  parser.setDisableDefaultEntityResolution(true);
  CountingErrorHandler errors;
  parser.setErrorHandler(&errors);
  xc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(bytes.data()), bytes.size(), "file", false);
  try {
    parser.parse(source);
  } catch (...) {
    return SettingsParse::kNotWhole;
  }
  if (errors.errors() > 0 || parser.getErrorCount() > 0) return SettingsParse::kNotWhole;
  document = parser.adoptDocument();
  if (!document) return SettingsParse::kNotWhole;
  DropLayoutWhitespace(document, isContainer);
  return SettingsParse::kParsed;
}

SettingsParse ParseSettingsFile(const std::string& utf8Path, xc::DOMDocument*& document) {
  return ParseXmlFile(utf8Path, IsContainer, document);
}

xc::DOMDocument* NewSettingsDocument(const char16_t* rootTag) {
  if (!InitializeXmlPlatform()) return nullptr;
  try {
    xc::DOMImplementation* impl = xc::DOMImplementationRegistry::getDOMImplementation(u"Core");
    if (!impl) return nullptr;
    return impl->createDocument(nullptr, rootTag, nullptr);
  } catch (...) {
    return nullptr;
  }
}

bool SerializeSettingsDocument(xc::DOMDocument* document, std::string& text) {
  if (!document || !InitializeXmlPlatform()) return false;
  try {
    xc::DOMImplementation* impl = xc::DOMImplementationRegistry::getDOMImplementation(u"LS");
    if (!impl) return false;
    xc::DOMLSSerializer* serializer = impl->createLSSerializer();
    xc::DOMLSOutput* output = impl->createLSOutput();
    serializer->getDomConfig()->setParameter(xc::XMLUni::fgDOMWRTFormatPrettyPrint, true);
    xc::MemBufFormatTarget target;
    output->setByteStream(&target);
    output->setEncoding(u"UTF-8");
    const bool written = serializer->write(document, output);
    output->release();
    serializer->release();
    if (!written) return false;
    text.assign(reinterpret_cast<const char*>(target.getRawBuffer()), target.getLen());
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace Marlowen
