#include "support/localization.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include <xercesc/dom/DOM.hpp>

#include "shell/format_string.h"
#include "shell/string_helpers.h"
#include "support/language_names.h"
#include "support/locale_document.h"
#include "support/localization_files.h"
#include "support/settings_store.h"
#include "support/string_id.h"

namespace Marlowen {

namespace xc = XERCES_CPP_NAMESPACE;

LocalizationState* localizationState = nullptr;
int localizationActive = 0;
LocalizationErrorCallback localizationErrorCallback;
WideString languageName;

namespace {

// What LocalizeString hands out for a trimmed text; a std::u16string, so it
// holds the longest text that a file can give.
WideString lookupBuffer;

// The longest value that the saved-choice store gives back, with terminator.
constexpr std::size_t kSavedChoiceChars = kMaxLocalePath + 1;

bool IsLineSpace(char16_t c) {
  return c == u'\r' || c == u'\n' || c == u' ' || c == u'\t';
}

xc::DOMElement* RootElement() {
  if (!localizationState || !localizationState->document) return nullptr;
  return localizationState->document->getDocumentElement();
}

LocalizationState& EnsureState() {
  if (!localizationState) localizationState = new LocalizationState();
  return *localizationState;
}

void SetLanguageName(WideStringView language) {
  const WideString name = LanguageDisplayName(language);
  languageName = (!name.empty() && name != kUndefinedLanguage) ? name : WideString(u"English");
}

// The file's ids are unsigned 32-bit numbers in decimal; reading them as a
// signed int would clamp every id above 2^31 on the next save.
std::uint32_t ParseId(WideStringView text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || text[i] == u'\t')) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  std::uint32_t value = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
    value = value * 10 + static_cast<std::uint32_t>(text[i] - u'0');
  }
  return negative ? 0u - value : value;
}

WideString FileNameOf(WideStringView path) {
  const std::size_t slash = path.rfind(u'/');
  return WideString(slash == WideStringView::npos ? path : path.substr(slash + 1));
}

bool FileExists(WideStringView path) {
  struct stat info;
  return stat(WideToUtf8(path).c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

void SaveChoice(SettingsStore* store, const WideString& language, const WideString& file) {
  if (!store) return;
  WideString fileName = FileNameOf(file), tag = language;
  StringValue(fileName, kSavedChoiceChars, u"", kSavedFileNameValue, kSavedChoiceGroup, *store, true);
  StringValue(tag, kSavedChoiceChars, u"", kSavedLanguageValue, kSavedChoiceGroup, *store, true);
  // A choice that can't be kept is asked again at the next start.
  (void)SaveStore(*store);
}

// Fills the table from the String children of a Localize block.
void LoadBlock(xc::DOMElement* block) {
  LocalizationTable& table = localizationState->strings;
  table.Clear();
  for (xc::DOMElement* string = FirstChildElement(block, kStringTag); string;
       string = NextSiblingElement(string, kStringTag)) {
    const xc::DOMElement* original = FirstChildElement(string, kOriginalTag);
    WideString key = ElementText(original);
    if (key.empty()) continue;
    const std::uint32_t id = ParseId(AttributeText(original, kIdAttribute, kMaxLocaleText));
    std::optional<WideString> local;
    if (const xc::DOMElement* localElement = FirstChildElement(string, kLocalTag)) {
      WideString text = ElementText(localElement);
      if (!text.empty()) local = std::move(text);
    }
    table.Add(std::move(key), std::move(local), id);
  }
  table.Sort();
}

// Every CR, LF, CR LF and LF CR as CR LF.
WideString NormalizeLineEnds(const WideString& text) {
  WideString out;
  out.reserve(text.size() + 8);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c == u'\r' || c == u'\n') {
      const char16_t pair = c == u'\r' ? u'\n' : u'\r';
      if (i + 1 < text.size() && text[i + 1] == pair) ++i;
      out += u"\r\n";
    } else {
      out += c;
    }
  }
  return out;
}

bool HasLineEnd(const WideString& text) {
  return text.find_first_of(u"\r\n") != WideString::npos;
}

bool SameKey(const WideString& a, const WideString& b) {
  if (HasLineEnd(a) && HasLineEnd(b)) return NormalizeLineEnds(a) == NormalizeLineEnds(b);
  return a == b;
}

struct Lookup {
  const char16_t* result;
  bool translated;
};

Lookup LocalizeWithOutcome(const char16_t* text) {
  if (!localizationActive || !text || !*text || !localizationState) return {text, false};
  const char16_t* start = text;
  while (*start && IsLineSpace(*start)) ++start;
  const std::size_t length = WideLength(text);
  const char16_t* trimmed = start;
  if (IsLineSpace(text[length - 1])) {
    lookupBuffer.assign(start);
    while (!lookupBuffer.empty() && lookupBuffer.back() <= u' ') lookupBuffer.pop_back();
    trimmed = lookupBuffer.c_str();
  }
  LocalizationTable& table = localizationState->strings;
  const int index = table.Find(trimmed);
  if (index >= 0) {
    const LocalizedStringT& row = table[index];
    if (row.local) return {row.local->c_str(), true};
    return {trimmed, false};
  }
  // The master learns the string; the copy keeps the buffer out of the table.
  const WideString key(trimmed);
  AddString(key, nullptr, 0);
  return {text, false};
}

}  // namespace

LocalizationState::~LocalizationState() {
  if (document) document->release();
}

// Starting and ending ---------------------------------------------------------

int InitLocalization(WideStringView folder, WideStringView application,
                     const LanguageChooser& chooser, LocalizationErrorCallback errorCallback,
                     const std::function<void()>& onNewMaster, SettingsStore* store) {
  localizationErrorCallback = std::move(errorCallback);

  if (store) {
    WideString fileName, language;
    StringValue(fileName, kSavedChoiceChars, u"", kSavedFileNameValue, kSavedChoiceGroup, *store,
                false);
    StringValue(language, kSavedChoiceChars, u"", kSavedLanguageValue, kSavedChoiceGroup, *store,
                false);
    if (!fileName.empty() && !language.empty()) {
      const WideString path = WideString(folder) + u'/' + fileName;
      if (OpenLanguageFile(path, language)) return 1;
    }
  }

  WideString language, file;
  if (ChooseLanguage(language, file, folder, application, chooser, false)) {
    SaveChoice(store, language, file);
    return OpenLanguageFile(file, language);
  }

  NewLanguageFile(application);
  localizationActive = 1;
  if (onNewMaster) onNewMaster();
  SaveLanguageFileAs(WideString(folder) + u'/' + WideString(application) + u"_undefined.locale");
  return 0;
}

int OpenLanguageFile(WideStringView path, WideStringView language) {
  if (!FileExists(path) && language == kUndefinedLanguage) {
    // A program in its master language, with nothing to translate.
    SetLanguageName(language);
    return 1;
  }
  OpenDocument(path);
  localizationActive = LoadLanguage(language);
  if (localizationActive) {
    SetLanguageName(language);
    return 1;
  }
  if (localizationState) CloseLocalization();
  return 0;
}

int OpenDocument(WideStringView path) {
  delete localizationState;
  localizationState = new LocalizationState();
  return ReopenDocument(path);
}

int ReopenDocument(WideStringView path) {
  LocalizationState& state = EnsureState();
  state.strings.Clear();
  state.languageElement = nullptr;
  if (state.document) state.document->release();
  state.document = nullptr;
  state.path.clear();
  if (path.size() > kMaxLocalePath) return 0;
  state.path = path;
  state.document = ParseLocaleFile(WideToUtf8(path));
  return state.document ? 1 : 0;
}

int OpenMasterFile(WideStringView path) {
  ReopenDocument(path);
  xc::DOMElement* block = FirstChildElement(RootElement(), kLocalizeTag);
  if (!block) return 0;
  localizationState->languageElement = block;
  LoadBlock(block);
  localizationActive = 1;
  return 1;
}

int LoadLanguage(WideStringView language) {
  LocalizationState& state = EnsureState();
  state.strings.Clear();
  state.languageElement = nullptr;
  for (xc::DOMElement* block = FirstChildElement(RootElement(), kLocalizeTag); block;
       block = NextSiblingElement(block, kLocalizeTag)) {
    if (AttributeText(block, kLanguageAttribute, kMaxLocaleName) == language) {
      state.languageElement = block;
      break;
    }
  }
  if (!state.languageElement) {
    if (localizationErrorCallback) {
      const WideString tag(language);
      localizationErrorCallback(u"Localize Error", FormatString(u"No translation for \"%s\"", tag.c_str()));
    }
    return 0;
  }
  LoadBlock(state.languageElement);
  return 1;
}

void CloseLocalization() {
  delete localizationState;
  localizationState = nullptr;
  localizationActive = 0;
}

std::unique_ptr<LanguageTable> ListLanguages(WideStringView folder, WideStringView application) {
  std::unique_ptr<LanguageTable> table;
  for (const WideString& path : ListLocaleFiles(folder, u"*.locale")) {
    OpenDocument(path);
    LocalizationFileInfo info;
    if (ReadFileInfo(info, false) && info.application == application) {
      for (const WideString& tag : info.languages) {
        if (!table) table = std::make_unique<LanguageTable>();
        WideString name = LanguageDisplayName(tag);
        if (name.empty() || table->FindTag(tag) >= 0) continue;
        bool known = false;
        for (int i = 0; i < table->size() && !known; ++i) known = EqualIgnoringCase((*table)[i].name, name);
        if (!known) table->Add({std::move(name), tag, path});
      }
    }
    CloseLocalization();
  }
  if (!table) return nullptr;

  table->Sort();
  const int english = table->Find(u"English");
  const int undefined = table->Find(kUndefinedLanguage);
  if (undefined >= 0 && english >= 0) {
    table->Remove(english);
  } else if (undefined < 0 && english >= 0) {
    (*table)[english].name = kUndefinedLanguage;
    table->Sort();
  } else if (undefined < 0) {
    table->Add({kUndefinedLanguage, kUndefinedLanguage, kNoMasterFile});
    table->Sort();
  }
  return table;
}

int ChooseLanguage(WideString& language, WideString& file, WideStringView folder,
                   WideStringView application, const LanguageChooser& chooser, bool force) {
  std::unique_ptr<LanguageTable> table = ListLanguages(folder, application);
  if (!table || table->size() == 0) return 0;
  int index = 0;
  if (table->size() > 1 || force) {
    if (!chooser) return 0;
    index = chooser(*table);
    if (index < 0 || index >= table->size()) return 0;
  }
  language = (*table)[index].tag;
  file = (*table)[index].path;
  return 1;
}

int ChangeLanguage(WideStringView folder, WideStringView application,
                   const LanguageChooser& chooser, SettingsStore* store) {
  WideString language, file;
  if (!ChooseLanguage(language, file, folder, application, chooser, true)) return 0;
  SaveChoice(store, language, file);
  return OpenLanguageFile(file, language);
}

int ReadFileInfo(LocalizationFileInfo& info, bool skipUndefined) {
  info = LocalizationFileInfo();
  const xc::DOMElement* root = RootElement();
  if (!root || !xc::XMLString::equals(root->getTagName(), kLocaleRootTag) ||
      !HasAttribute(root, kApplicationAttribute)) {
    return 0;
  }
  info.path = localizationState->path;
  info.application = AttributeText(root, kApplicationAttribute, kMaxLocaleName);
  for (const xc::DOMElement* block = FirstChildElement(root, kLocalizeTag); block;
       block = NextSiblingElement(block, kLocalizeTag)) {
    WideString tag = AttributeText(block, kLanguageAttribute, kMaxLocaleName);
    if (skipUndefined && ToUpperCopy(tag) == kUndefinedLanguage) continue;
    info.languages.push_back(std::move(tag));
  }
  info.languageCount = static_cast<std::int32_t>(info.languages.size());
  return 1;
}

int IsApplication(WideStringView name) {
  const xc::DOMElement* root = RootElement();
  return root && HasAttribute(root, kApplicationAttribute) &&
                 AttributeText(root, kApplicationAttribute, kMaxLocaleName) == name
             ? 1
             : 0;
}

int GetCurrentLanguageTag(WideString& tag) {
  if (!RootElement()) {
    tag = u"x-default";
  } else {
    tag = AttributeText(localizationState->languageElement, kLanguageAttribute, kMaxLocaleName);
  }
  return 1;
}

int GetLanguageName(WideString& name) {
  name = languageName.empty() ? WideString(u"English") : languageName;
  return 1;
}

const char16_t* GetLanguageFilePath() {
  return localizationState ? localizationState->path.c_str() : nullptr;
}

// Lookup ---------------------------------------------------------------------

const char16_t* LocalizeString(const char16_t* text) {
  return LocalizeWithOutcome(text).result;
}

char16_t* LocalizeStringCopy(char16_t* destination, std::size_t size, const char16_t* text) {
  if (!destination || size == 0) return destination;
  const char16_t* source = localizationActive ? LocalizeString(text) : text;
  if (source == destination) return destination;
  const std::size_t length = std::min(WideLength(source), size - 1);
  std::memmove(destination, source, length * sizeof(char16_t));
  destination[length] = u'\0';
  return destination;
}

int LocalizeInPlace(WideString& text) {
  const Lookup lookup = LocalizeWithOutcome(text.c_str());
  if (!lookup.translated) return 0;
  text = WideString(lookup.result);
  return 1;
}

int LocalizeStringList(std::vector<WideString>& list) {
  for (WideString& entry : list) LocalizeInPlace(entry);
  return 0;
}

const char16_t* LocalizeByIndex(int index, const char16_t* defaultText, std::uint32_t* id) {
  if (!localizationState || index < 0 || index >= localizationState->strings.size()) {
    return defaultText;
  }
  const LocalizedStringT& row = localizationState->strings[index];
  if (id) *id = row.id;
  return row.local ? row.local->c_str() : defaultText;
}

int GetStringCount() {
  return localizationState ? localizationState->strings.size() : 0;
}

int FindStringIndex(WideStringView key) {
  return localizationState ? localizationState->strings.Find(key) : -1;
}

int ForEachString(const StringVisitor& visitor, void* user) {
  if (!localizationState || !visitor) return 0;
  int answered = 0;
  LocalizationTable& table = localizationState->strings;
  for (int i = 0; i < table.size(); ++i) {
    const LocalizedStringT& row = table[i];
    if (visitor(i, row.id, row.key.c_str(), row.local ? row.local->c_str() : nullptr, user)) {
      ++answered;
    }
  }
  return answered;
}

// Editing --------------------------------------------------------------------

int SetTranslation(int index, std::optional<WideString> text) {
  if (!localizationState || index < 0 || index >= localizationState->strings.size()) return 0;
  localizationState->strings[index].local = std::move(text);
  return 1;
}

int AddString(WideStringView key, const char16_t* local, std::uint32_t id) {
  LocalizationState& state = EnsureState();
  if (id == 0) id = StringId(key);
  const bool translated = local && *local;
  if (state.languageElement) {
    xc::DOMDocument* document = state.document;
    xc::DOMElement* string = document->createElement(kStringTag);
    xc::DOMElement* original = AppendTextElement(string, kOriginalTag, key);
    original->setAttribute(kIdAttribute, FormatString(u"%u", id).c_str());
    if (translated) AppendTextElement(string, kLocalTag, local);
    state.languageElement->appendChild(string);
  }
  state.strings.Add(WideString(key), translated ? std::optional<WideString>(local) : std::nullopt, id);
  return 1;
}

int RemoveString(WideStringView key) {
  if (!localizationState) return 0;
  const int index = localizationState->strings.Find(key);
  if (index < 0) return 0;
  localizationState->strings.Remove(index);
  return 1;
}

int RemoveDuplicateStrings(std::vector<WideString>* removedKeys) {
  if (!localizationState) return 0;
  LocalizationTable& table = localizationState->strings;
  table.Sort();
  int removed = 0;
  for (int lower = table.size() - 2; lower >= 0; --lower) {
    const int upper = lower + 1;
    if (!SameKey(table[lower].key, table[upper].key)) continue;
    if (removedKeys) removedKeys->push_back(table[upper].key);
    table.Remove(table[lower].local ? upper : lower);
    ++removed;
  }
  return removed;
}

int SetLanguage(WideStringView language) {
  if (!localizationState) return 0;
  if (!localizationState->languageElement) {
    localizationState->languageElement = FirstChildElement(RootElement(), kLocalizeTag);
  }
  if (!localizationState->languageElement) return 0;
  localizationState->languageElement->setAttribute(kLanguageAttribute, WideString(language).c_str());
  return 1;
}

int StoreStrings(bool exportOnly, bool markNew) {
  xc::DOMElement* root = RootElement();
  if (!root) return 0;
  LocalizationState& state = *localizationState;
  if (!state.languageElement) state.languageElement = FirstChildElement(root, kLocalizeTag);
  if (!state.languageElement) return 0;

  xc::DOMDocument* document = state.document;
  const WideString language = AttributeText(state.languageElement, kLanguageAttribute, kMaxLocaleText);
  if (state.languageElement->getParentNode() == root) root->removeChild(state.languageElement);
  state.languageElement->release();
  xc::DOMElement* block = document->createElement(kLocalizeTag);
  block->setAttribute(kLanguageAttribute, language.c_str());
  root->appendChild(block);
  state.languageElement = block;

  state.strings.Sort();
  for (int i = 0; i < state.strings.size(); ++i) {
    const LocalizedStringT& row = state.strings[i];
    xc::DOMElement* string = document->createElement(kStringTag);
    block->appendChild(string);
    xc::DOMElement* original = AppendTextElement(string, kOriginalTag, row.key);
    original->setAttribute(kIdAttribute, FormatString(u"%u", row.id).c_str());
    if (!exportOnly && row.local) {
      AppendTextElement(string, kLocalTag, *row.local);
    } else if (markNew) {
      AppendTextElement(string, kLocalNewTag, row.key);
    }
  }
  return 1;
}

int SaveLanguageFile() {
  if (!localizationState || !localizationState->document) return 0;
  StoreStrings(false, false);
  return WriteLocaleFile(localizationState->document, WideToUtf8(localizationState->path)) ? 1 : 0;
}

int SaveLanguageFileAs(WideStringView path) {
  if (!localizationState || path.size() > kMaxLocalePath) return 0;
  localizationState->path = path;
  return SaveLanguageFile();
}

int SaveForTranslator(WideStringView path) {
  if (!localizationState || !localizationState->document || path.size() > kMaxLocalePath) return 0;
  localizationState->path = path;
  StoreStrings(false, true);
  return WriteLocaleFile(localizationState->document, WideToUtf8(path)) ? 1 : 0;
}

int NewLanguageFile(WideStringView application) {
  delete localizationState;
  localizationState = new LocalizationState();
  LocalizationState& state = *localizationState;
  state.document = NewLocaleDocument();
  if (!state.document) return 0;
  xc::DOMElement* root = state.document->getDocumentElement();
  root->setAttribute(kApplicationAttribute, WideString(application).c_str());
  xc::DOMElement* block = state.document->createElement(kLocalizeTag);
  block->setAttribute(kLanguageAttribute, kUndefinedLanguage);
  root->appendChild(block);
  state.languageElement = block;
  localizationActive = 1;
  return 1;
}

int NewMaster(WideStringView language) {
  xc::DOMElement* root = RootElement();
  if (!root) return 0;
  xc::DOMElement* block = localizationState->document->createElement(kLocalizeTag);
  block->setAttribute(kLanguageAttribute, WideString(language).c_str());
  root->appendChild(block);
  localizationState->languageElement = block;
  StoreStrings(true, false);
  LocalizationTable& table = localizationState->strings;
  for (int i = 0; i < table.size(); ++i) table[i].local.reset();
  return 1;
}

int NewMasterAs(WideStringView path, WideStringView language) {
  if (!RootElement() || path.size() > kMaxLocalePath) return 0;
  localizationState->path = path;
  SetLanguage(language);
  StoreStrings(true, false);
  LocalizationTable& table = localizationState->strings;
  for (int i = 0; i < table.size(); ++i) table[i].local.reset();
  return 1;
}

LocalizationTable TakeStrings() {
  if (!localizationState) return LocalizationTable();
  LocalizationTable taken = std::move(localizationState->strings);
  localizationState->strings = LocalizationTable();
  return taken;
}

void PutStrings(LocalizationTable table) {
  EnsureState().strings = std::move(table);
}

}  // namespace Marlowen
