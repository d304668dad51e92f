// Finding the element of a value in a settings store.
//
// A long list of calls in the order of the file must not walk from the root
// each time. The store keeps the address and element of the last value
// found: a value in the same Struct is searched among the siblings behind
// that element (one step when calls follow the file), and a value in an
// enclosing Struct starts from that Struct. The store's counters record
// which way each lookup took.
#pragma once

#include "shell/wide_string.h"
#include "support/settings_store.h"

namespace Marlowen {

// The element for `name` of tag `typeTag` in `group`, or null. With `create`,
// missing Struct and value elements are made. The Group is made whatever
// `create` says, so even a read adds an absent group to the document.
XERCES_CPP_NAMESPACE::DOMElement* FindValueElement(SettingsStore& store, WideStringView group,
                                                   WideStringView name, WideStringView typeTag,
                                                   bool create);

// The first child element of `parent` with tag `tag` whose attribute
// `attribute` is `value`, starting after `after` when that is given.
XERCES_CPP_NAMESPACE::DOMElement* FindChildElement(XERCES_CPP_NAMESPACE::DOMElement* parent,
                                                   XERCES_CPP_NAMESPACE::DOMElement* after,
                                                   const char16_t* tag, const char16_t* attribute,
                                                   const char16_t* value);

// A new element `tag` with `attribute`="value", appended to `parent`.
XERCES_CPP_NAMESPACE::DOMElement* AppendChildElement(XERCES_CPP_NAMESPACE::DOMElement* parent,
                                                     const char16_t* tag, const char16_t* attribute,
                                                     const char16_t* value);

}  // namespace Marlowen
