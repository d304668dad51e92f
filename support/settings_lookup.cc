#include "support/settings_lookup.h"

#include <xercesc/dom/DOM.hpp>

namespace Marlowen {

namespace xc = XERCES_CPP_NAMESPACE;

namespace {

constexpr char16_t kGroupTag[] = u"Group";
constexpr char16_t kStructTag[] = u"Struct";
constexpr char16_t kNameAttribute[] = u"name";

bool Matches(const xc::DOMElement* element, const char16_t* tag, const char16_t* attribute,
             const char16_t* value) {
  return xc::XMLString::equals(element->getTagName(), tag) &&
         xc::XMLString::equals(element->getAttribute(attribute), value);
}

xc::DOMElement* NextElement(xc::DOMNode* node) {
  for (node = node->getNextSibling(); node; node = node->getNextSibling()) {
    if (node->getNodeType() == xc::DOMNode::ELEMENT_NODE) return static_cast<xc::DOMElement*>(node);
  }
  return nullptr;
}

xc::DOMElement* FirstElement(xc::DOMNode* parent) {
  xc::DOMNode* node = parent->getFirstChild();
  if (!node) return nullptr;
  if (node->getNodeType() == xc::DOMNode::ELEMENT_NODE) return static_cast<xc::DOMElement*>(node);
  return NextElement(node);
}

// The element of the last part below `start`, which holds the Struct of the
// part before it (or is the group for a one-part address).
xc::DOMElement* FindOrMakeLast(xc::DOMElement* start, const SettingsAddress& address, bool create) {
  const WideString& last = address.parts.back();
  xc::DOMElement* found = FindChildElement(start, nullptr, address.typeTag.c_str(), kNameAttribute, last.c_str());
  if (!found && create) found = AppendChildElement(start, address.typeTag.c_str(), kNameAttribute, last.c_str());
  return found;
}

xc::DOMElement* WalkFromRoot(SettingsStore& store, const SettingsAddress& address, bool create) {
  xc::DOMElement* group =
      FindChildElement(store.rootElement, nullptr, kGroupTag, kNameAttribute, address.group.c_str());
  if (!group) group = AppendChildElement(store.rootElement, kGroupTag, kNameAttribute, address.group.c_str());
  xc::DOMElement* current = group;
  for (std::size_t i = 0; i + 1 < address.parts.size(); ++i) {
    xc::DOMElement* next =
        FindChildElement(current, nullptr, kStructTag, kNameAttribute, address.parts[i].c_str());
    if (!next) {
      if (!create) return nullptr;
      next = AppendChildElement(current, kStructTag, kNameAttribute, address.parts[i].c_str());
    }
    current = next;
  }
  return FindOrMakeLast(current, address, create);
}

}  // namespace

xc::DOMElement* FindChildElement(xc::DOMElement* parent, xc::DOMElement* after, const char16_t* tag,
                                 const char16_t* attribute, const char16_t* value) {
  for (xc::DOMElement* e = after ? NextElement(after) : FirstElement(parent); e; e = NextElement(e)) {
    if (Matches(e, tag, attribute, value)) return e;
  }
  return nullptr;
}

xc::DOMElement* AppendChildElement(xc::DOMElement* parent, const char16_t* tag, const char16_t* attribute,
                                   const char16_t* value) {
  xc::DOMElement* element = parent->getOwnerDocument()->createElement(tag);
  element->setAttribute(attribute, value);
  parent->appendChild(element);
  return element;
}

xc::DOMElement* FindValueElement(SettingsStore& store, WideStringView group, WideStringView name,
                                 WideStringView typeTag, bool create) {
  auto address = std::make_unique<SettingsAddress>(CutSettingsAddress(group, name, typeTag));
  // A name of separators only names nothing; leave the document alone.
  if (address->parts.empty() || !store.rootElement) return nullptr;

  const SettingsAddress* last = store.lastAddress.get();
  const bool sameGroup = last && store.lastElement && last->group == address->group;
  xc::DOMElement* found = nullptr;
  bool settled = false;

  if (sameGroup && SameEnclosingParts(*last, *address)) {
    // Same Struct as the last value: in file order the next sibling is it.
    const WideString& part = address->parts.back();
    found = FindChildElement(nullptr, store.lastElement, address->typeTag.c_str(), kNameAttribute, part.c_str());
    if (!found && create) {
      auto* parent = static_cast<xc::DOMElement*>(store.lastElement->getParentNode());
      found = AppendChildElement(parent, address->typeTag.c_str(), kNameAttribute, part.c_str());
    }
    if (found) {
      ++store.siblingHits;
      settled = true;
    }
  }

  if (!settled && sameGroup && last->parts.size() > address->parts.size() && address->parts.size() >= 2 &&
      LeadingPartsMatch(*last, *address)) {
    // Back out of deeper Structs to the one that holds the new value.
    xc::DOMNode* holder = store.lastElement;
    for (std::size_t up = last->parts.size() - address->parts.size() + 1; up > 0 && holder; --up) {
      holder = holder->getParentNode();
    }
    if (holder && holder->getNodeType() == xc::DOMNode::ELEMENT_NODE) {
      found = FindOrMakeLast(static_cast<xc::DOMElement*>(holder), *address, create);
      ++store.prefixHits;
      settled = true;
    }
  }

  if (!settled) {
    found = WalkFromRoot(store, *address, create);
    ++store.fullWalks;
  }

  store.lastAddress = std::move(address);
  store.lastElement = found;
  return found;
}

}  // namespace Marlowen
