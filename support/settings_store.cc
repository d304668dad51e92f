#include "support/settings_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <xercesc/dom/DOM.hpp>

#include "platform/xml_platform.h"
#include "support/settings_lookup.h"
#include "support/settings_text.h"
#include "support/settings_xml.h"

namespace Marlowen {

namespace xc = XERCES_CPP_NAMESPACE;

namespace {

constexpr char16_t kRootTag[] = u"Marlowen_Settings";
constexpr char16_t kGroupTag[] = u"Group";
constexpr char16_t kStructTag[] = u"Struct";
constexpr char16_t kArrayTag[] = u"Array";
constexpr char16_t kStringListTag[] = u"StringList";
constexpr char16_t kStringTag[] = u"String";
constexpr char16_t kNameAttribute[] = u"name";
constexpr char16_t kIndexAttribute[] = u"i";
constexpr char16_t kVersionAttribute[] = u"Version";
constexpr char16_t kLParamAttribute[] = u"lParam";

// A file that another process is rewriting gets 11 × 200 ms to become whole.
constexpr int kOpenTries = 11;
constexpr auto kOpenTryDelay = std::chrono::milliseconds(200);

const char16_t* TypeTag(SettingsValueType type) {
  switch (type) {
    case SettingsValueType::kInt: return u"Int";
    case SettingsValueType::kString: return u"String";
    case SettingsValueType::kDouble: return u"Double";
    case SettingsValueType::kBin16: return u"Bin16";
    case SettingsValueType::kBin64: return u"Bin64";
    case SettingsValueType::kStringPointer: return u"String";
  }
  return u"";
}

bool HasRightRoot(const xc::DOMDocument* document) {
  if (!document) return false;
  const xc::DOMElement* root = document->getDocumentElement();
  return root && xc::XMLString::equals(root->getTagName(), kRootTag);
}

void ReleaseDocument(xc::DOMDocument*& document) {
  if (document) document->release();
  document = nullptr;
}

// Drops whatever the store held and gives it a document with an empty root.
bool ResetToEmpty(SettingsStore& store) {
  store.lastAddress.reset();
  store.lastElement = nullptr;
  store.rootElement = nullptr;
  ReleaseDocument(store.document);
  store.document = NewSettingsDocument(kRootTag);
  if (!store.document) return false;
  store.rootElement = store.document->getDocumentElement();
  return true;
}

// The element's text, cut to kMaxSettingsText units; false if it has none
// that can be read. The text nodes are read in place: the DOM's own
// getTextContent would allocate from the document's pool on every call, and
// that pool only shrinks when the store is closed.
bool ElementText(const xc::DOMElement* element, WideString& text) {
  if (!element) return false;
  text.clear();
  for (const xc::DOMNode* child = element->getFirstChild(); child; child = child->getNextSibling()) {
    const auto type = child->getNodeType();
    if (type != xc::DOMNode::TEXT_NODE && type != xc::DOMNode::CDATA_SECTION_NODE) continue;
    const XMLCh* data = child->getNodeValue();
    if (data) text.append(data, WideLength(data));
    if (text.size() >= kMaxSettingsText) break;
  }
  if (text.size() > kMaxSettingsText) text.resize(kMaxSettingsText);
  return true;
}

void SetElementText(xc::DOMElement* element, const WideString& text) {
  if (element) element->setTextContent(text.c_str());
}

WideString CutToBuffer(WideStringView text, std::size_t bufferSize) {
  if (bufferSize == 0) return WideString();
  return WideString(text.substr(0, std::min(text.size(), bufferSize - 1)));
}

void RemoveChildren(xc::DOMElement* element) {
  while (xc::DOMNode* child = element->getFirstChild()) element->removeChild(child)->release();
}

xc::DOMElement* GroupElement(const SettingsStore& store, WideStringView group) {
  if (!store.rootElement) return nullptr;
  const WideString name(group);
  return FindChildElement(store.rootElement, nullptr, kGroupTag, kNameAttribute, name.c_str());
}

int HasDirectChild(const char16_t* tag, WideStringView name, WideStringView group, const SettingsStore& store) {
  xc::DOMElement* groupElement = GroupElement(store, group);
  if (!groupElement) return 0;
  const WideString wanted(name);
  return FindChildElement(groupElement, nullptr, tag, kNameAttribute, wanted.c_str()) ? 1 : 0;
}

// Reads the element's text into an array element of the given type.
void ReadArrayElement(const xc::DOMElement* element, void* slot, std::size_t elementSize,
                      SettingsValueType type) {
  WideString text;
  if (!ElementText(element, text)) return;
  switch (type) {
    case SettingsValueType::kInt: {
      const std::int32_t value = SettingsTextToInt(text);
      std::memcpy(slot, &value, std::min(elementSize, sizeof value));
      break;
    }
    case SettingsValueType::kDouble: {
      const double value = SettingsTextToDouble(text);
      std::memcpy(slot, &value, std::min(elementSize, sizeof value));
      break;
    }
    case SettingsValueType::kString: {
      const std::size_t units = elementSize / sizeof(char16_t);
      if (units == 0) break;
      auto* buffer = static_cast<char16_t*>(slot);
      const WideString cut = CutToBuffer(text, units);
      std::copy(cut.begin(), cut.end(), buffer);
      buffer[cut.size()] = u'\0';
      break;
    }
    case SettingsValueType::kStringPointer:
      *static_cast<WideString*>(slot) = text;
      break;
    case SettingsValueType::kBin16:
      Bin16TextToBytes(text, static_cast<std::uint8_t*>(slot), elementSize);
      break;
    case SettingsValueType::kBin64: {
      const std::vector<std::uint8_t> bytes = Bin64TextToBytes(text);
      std::memcpy(slot, bytes.data(), std::min(elementSize, bytes.size()));
      break;
    }
  }
}

WideString ArrayElementText(const void* slot, std::size_t elementSize, SettingsValueType type) {
  switch (type) {
    case SettingsValueType::kInt: {
      std::int32_t value = 0;
      std::memcpy(&value, slot, std::min(elementSize, sizeof value));
      return IntToSettingsText(value);
    }
    case SettingsValueType::kDouble: {
      double value = 0.0;
      std::memcpy(&value, slot, std::min(elementSize, sizeof value));
      return DoubleToSettingsText(value);
    }
    case SettingsValueType::kString: {
      const auto* buffer = static_cast<const char16_t*>(slot);
      const std::size_t units = elementSize / sizeof(char16_t);
      std::size_t length = 0;
      while (length < units && buffer[length] != u'\0') ++length;
      return WideString(buffer, length);
    }
    case SettingsValueType::kStringPointer:
      return *static_cast<const WideString*>(slot);
    case SettingsValueType::kBin16:
      return BytesToBin16Text(static_cast<const std::uint8_t*>(slot), elementSize);
    case SettingsValueType::kBin64:
      return BytesToBin64Text(static_cast<const std::uint8_t*>(slot), elementSize);
  }
  return WideString();
}

bool WriteFileReplacing(const std::string& path, const std::string& text, unsigned newFileMode) {
  namespace fs = std::filesystem;
  const fs::path target(path);
  std::error_code ec;
  if (target.has_parent_path()) fs::create_directories(target.parent_path(), ec);

  struct stat existing;
  const bool keepMode = stat(path.c_str(), &existing) == 0;
  // The kernel applies the umask to a new file's mode; reading the umask
  // ourselves would mean setting it, for every thread at once.
  static std::atomic<unsigned> serial{0};
  std::string temporary;
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temporary = path + ".tmp" + std::to_string(getpid()) + "." + std::to_string(serial++);
    fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
              keepMode ? 0600 : static_cast<mode_t>(newFileMode));
    if (fd < 0 && errno != EEXIST) return false;
  }
  if (fd < 0) return false;
  bool ok = !keepMode || fchmod(fd, existing.st_mode & 07777) == 0;
  std::size_t done = 0;
  while (ok && done < text.size()) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) ok = false; else done += static_cast<std::size_t>(n);
  }
  if (ok) ok = fsync(fd) == 0;
  if (close(fd) != 0) ok = false;
  if (ok) ok = rename(temporary.c_str(), path.c_str()) == 0;
  if (!ok) unlink(temporary.c_str());
  return ok;
}

}  // namespace

SettingsStore::~SettingsStore() {
  lastElement = nullptr;
  rootElement = nullptr;
  if (document) document->release();
  document = nullptr;
}

std::unique_ptr<SettingsStore> OpenStore(const WideString& path) {
  if (!InitializeXmlPlatform()) return nullptr;
  auto store = std::make_unique<SettingsStore>();
  store->path = path;
  const std::string file = WideToUtf8(path);

  xc::DOMDocument* document = nullptr;
  const SettingsParse first = ParseSettingsFile(file, document);
  if (first != SettingsParse::kNoFile) {
    // A root that is absent or wrong may be a file in the middle of being
    // rewritten by another process: give it time to become whole.
    for (int attempt = 0; attempt < kOpenTries && !HasRightRoot(document); ++attempt) {
      ReleaseDocument(document);
      ParseSettingsFile(file, document);
      std::this_thread::sleep_for(kOpenTryDelay);
    }
  }
  if (HasRightRoot(document)) {
    store->document = document;
    store->rootElement = document->getDocumentElement();
    return store;
  }
  ReleaseDocument(document);
  if (!ResetToEmpty(*store)) return nullptr;
  return store;
}

std::unique_ptr<SettingsStore> CreateStore(const WideString& path) {
  auto store = std::make_unique<SettingsStore>();
  store->path = path;
  if (!ResetToEmpty(*store)) return nullptr;
  return store;
}

bool SaveStore(SettingsStore& store, unsigned newFileMode) {
  std::string text;
  if (!SerializeSettingsDocument(store.document, text)) return false;
  return WriteFileReplacing(WideToUtf8(store.path), text, newFileMode);
}

bool SaveStoreAs(SettingsStore& store, const WideString& path) {
  store.path = path;
  return SaveStore(store);
}

void CloseStore(std::unique_ptr<SettingsStore>& store) { store.reset(); }

int HasGroup(WideStringView group, const SettingsStore& store) { return GroupElement(store, group) ? 1 : 0; }

int HasStruct(WideStringView name, WideStringView group, const SettingsStore& store) {
  return HasDirectChild(kStructTag, name, group, store);
}

int HasArray(WideStringView name, WideStringView group, const SettingsStore& store) {
  return HasDirectChild(kArrayTag, name, group, store);
}

int IntValue(std::int32_t& value, std::int32_t defaultValue, WideStringView name, WideStringView group,
             SettingsStore& store, bool write) {
  if (write) {
    SetElementText(FindValueElement(store, group, name, u"Int", true), IntToSettingsText(value));
    return 0;
  }
  WideString text;
  if (ElementText(FindValueElement(store, group, name, u"Int", false), text)) {
    value = SettingsTextToInt(text);
    return 1;
  }
  value = defaultValue;
  return 0;
}

int DoubleValue(double& value, double defaultValue, WideStringView name, WideStringView group,
                SettingsStore& store, bool write) {
  if (write) {
    SetElementText(FindValueElement(store, group, name, u"Double", true), DoubleToSettingsText(value));
    return 0;
  }
  WideString text;
  if (ElementText(FindValueElement(store, group, name, u"Double", false), text)) {
    value = SettingsTextToDouble(text);
    return 1;
  }
  value = defaultValue;
  return 0;
}

int StringValue(WideString& value, std::size_t bufferSize, WideStringView defaultValue, WideStringView name,
                WideStringView group, SettingsStore& store, bool write) {
  if (write) {
    SetElementText(FindValueElement(store, group, name, kStringTag, true), value);
    return 0;
  }
  WideString text;
  if (ElementText(FindValueElement(store, group, name, kStringTag, false), text)) {
    value = CutToBuffer(text, bufferSize);
    return 1;
  }
  value = CutToBuffer(defaultValue, bufferSize);
  return 0;
}

int Bin16Value(std::uint8_t* bytes, std::size_t length, WideStringView name, WideStringView group,
               SettingsStore& store, bool write, std::size_t* bytesRead) {
  if (bytesRead) *bytesRead = 0;
  if (write) {
    SetElementText(FindValueElement(store, group, name, u"Bin16", true), BytesToBin16Text(bytes, length));
    return 0;
  }
  WideString text;
  if (!ElementText(FindValueElement(store, group, name, u"Bin16", false), text)) return 0;
  const std::size_t count = Bin16TextToBytes(text, bytes, length);
  if (bytesRead) *bytesRead = count;
  return 1;
}

int Bin64Value(std::uint8_t* bytes, std::size_t length, WideStringView name, WideStringView group,
               SettingsStore& store, bool write, std::size_t* bytesRead) {
  if (bytesRead) *bytesRead = 0;
  if (write) {
    SetElementText(FindValueElement(store, group, name, u"Bin64", true), BytesToBin64Text(bytes, length));
    return 0;
  }
  WideString text;
  if (!ElementText(FindValueElement(store, group, name, u"Bin64", false), text)) return 0;
  const std::vector<std::uint8_t> decoded = Bin64TextToBytes(text);
  const std::size_t count = std::min(length, decoded.size());
  std::copy_n(decoded.begin(), count, bytes);
  if (bytesRead) *bytesRead = count;
  return 1;
}

int ArrayValues(void* values, int count, std::size_t elementSize, int version, WideStringView name,
                WideStringView group, SettingsValueType type, SettingsStore& store, bool write) {
  xc::DOMElement* array = FindValueElement(store, group, name, kArrayTag, write);
  if (!array) return 1;

  const WideString versionText = IntToSettingsText(version);
  const XMLCh* stored = array->getAttribute(kVersionAttribute);
  if (stored && *stored && SettingsTextToInt(stored) != version) RemoveChildren(array);
  array->setAttribute(kVersionAttribute, versionText.c_str());

  const char16_t* tag = TypeTag(type);
  auto* slot = static_cast<std::uint8_t*>(values);
  xc::DOMElement* previous = nullptr;
  for (int index = 0; index < count; ++index, slot += elementSize) {
    const WideString indexText = IntToSettingsText(index);
    xc::DOMElement* element = FindChildElement(array, previous, tag, kIndexAttribute, indexText.c_str());
    if (!element && write) element = AppendChildElement(array, tag, kIndexAttribute, indexText.c_str());
    if (!element) continue;
    if (write) {
      SetElementText(element, ArrayElementText(slot, elementSize, type));
    } else {
      ReadArrayElement(element, slot, elementSize, type);
    }
    previous = element;
  }
  return 1;
}

int IntArrayValues(std::int32_t* values, int count, int version, WideStringView name, WideStringView group,
                   SettingsStore& store, bool write) {
  return ArrayValues(values, count, sizeof(std::int32_t), version, name, group, SettingsValueType::kInt, store,
                     write);
}

int DoubleArrayValues(double* values, int count, int version, WideStringView name, WideStringView group,
                      SettingsStore& store, bool write) {
  return ArrayValues(values, count, sizeof(double), version, name, group, SettingsValueType::kDouble, store,
                     write);
}

int StringArrayValues(char16_t* buffers, int count, std::size_t bufferChars, int version, WideStringView name,
                      WideStringView group, SettingsStore& store, bool write) {
  return ArrayValues(buffers, count, bufferChars * sizeof(char16_t), version, name, group,
                     SettingsValueType::kString, store, write);
}

int StringPointerArrayValues(WideString* values, int count, int version, WideStringView name,
                             WideStringView group, SettingsStore& store, bool write) {
  return ArrayValues(values, count, sizeof(WideString), version, name, group, SettingsValueType::kStringPointer,
                     store, write);
}

int Bin16ArrayValues(std::uint8_t* values, int count, std::size_t bytesPerValue, int version,
                     WideStringView name, WideStringView group, SettingsStore& store, bool write) {
  return ArrayValues(values, count, bytesPerValue, version, name, group, SettingsValueType::kBin16, store, write);
}

int Bin64ArrayValues(std::uint8_t* values, int count, std::size_t bytesPerValue, int version,
                     WideStringView name, WideStringView group, SettingsStore& store, bool write) {
  return ArrayValues(values, count, bytesPerValue, version, name, group, SettingsValueType::kBin64, store, write);
}

int StringListValue(StringListT& list, WideStringView name, WideStringView group, SettingsStore& store,
                    bool write) {
  xc::DOMElement* element = FindValueElement(store, group, name, kStringListTag, write);
  if (!element) return 1;
  if (write) {
    RemoveChildren(element);
    for (const StringListEntryT& entry : list) {
      const WideString number = IntToSettingsText(entry.lParam);
      xc::DOMElement* item = AppendChildElement(element, kStringTag, kLParamAttribute, number.c_str());
      SetElementText(item, entry.text);
    }
    return 1;
  }
  for (xc::DOMNode* node = element->getFirstChild(); node; node = node->getNextSibling()) {
    if (node->getNodeType() != xc::DOMNode::ELEMENT_NODE) continue;
    auto* item = static_cast<xc::DOMElement*>(node);
    if (!xc::XMLString::equals(item->getTagName(), kStringTag) || !item->hasAttribute(kLParamAttribute)) continue;
    WideString text;
    if (!ElementText(item, text) || text.empty()) continue;
    list.push_back(StringListEntryT{std::move(text), SettingsTextToInt(item->getAttribute(kLParamAttribute))});
  }
  return 1;
}

}  // namespace Marlowen
