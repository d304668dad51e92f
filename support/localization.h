// Run-time translation of a program's strings out of .locale files, and the
// editing that the translator's tools build on.
//
// A .locale file is XML: a Marlowen_Localization root with an `application`
// attribute, Localize blocks by `language`, and in each String elements with
// an Original (attribute `id`), an optional Local translation and, for the
// translator's eye, an optional LocalNew copy of the original. The tag
// "UNDEFINED" stands for the master language. A master file learns every
// string that the program asks for and that it doesn't hold yet.
//
// All state is process-wide and for one thread: one open document at a time,
// and LocalizeString hands out a buffer that the next call overwrites.
// Results are 1 and 0, as the rest of the support library gives them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

#include "shell/wide_string.h"
#include "support/localization_table.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
XERCES_CPP_NAMESPACE_END

namespace Marlowen {

struct SettingsStore;

// The longest path that the state keeps, in UTF-16 units.
inline constexpr std::size_t kMaxLocalePath = 259;

// The one open document. It exists only while a document is open.
struct LocalizationState {
  LocalizationState() = default;
  ~LocalizationState();
  LocalizationState(const LocalizationState&) = delete;
  LocalizationState& operator=(const LocalizationState&) = delete;

  LocalizationTable strings;                                       // the current language
  XERCES_CPP_NAMESPACE::DOMDocument* document = nullptr;           // owned; null if unparsed
  XERCES_CPP_NAMESPACE::DOMElement* languageElement = nullptr;     // the current Localize
  WideString path;
};

// A title and a text for the user, such as "Localize Error".
using LocalizationErrorCallback = std::function<void(WideStringView title, WideStringView text)>;

// The process-wide values beside the state.
extern LocalizationState* localizationState;        // null while nothing is open
extern int localizationActive;                      // lookups translate; 0 at the start
extern LocalizationErrorCallback localizationErrorCallback;
extern WideString languageName;                     // display name in use; empty at the start

// Answers the index of the chosen row of the table, or -1 or -2 for no
// choice. Whatever else the chooser needs, it captures.
using LanguageChooser = std::function<int(const LanguageTable& languages)>;

// A file described without its strings.
struct LocalizationFileInfo {
  WideString path;
  WideString application;             // up to 31 characters
  std::int32_t languageCount = 0;
  std::vector<WideString> languages;  // tags, up to 31 characters each
};

// The saved choice lives in this group of a settings store.
inline constexpr char16_t kSavedChoiceGroup[] = u"LocalizationData";
inline constexpr char16_t kSavedFileNameValue[] = u"FileName";
inline constexpr char16_t kSavedLanguageValue[] = u"Language";
// The path that ListLanguages gives the master language: it never exists.
inline constexpr char16_t kNoMasterFile[] = u"thisFileDoesNotExist";

// Starting and ending --------------------------------------------------------

// Opens the saved choice of `store` (may be null) if it still opens, else
// lets the chooser pick from the folder's files and saves the pick. With
// nothing to pick, starts a new master "<application>_undefined.locale" in
// the folder and runs `onNewMaster`. 1 if a language is in use, 0 if a new
// master was started.
int InitLocalization(WideStringView folder, WideStringView application,
                     const LanguageChooser& chooser, LocalizationErrorCallback errorCallback,
                     const std::function<void()>& onNewMaster, SettingsStore* store);
int OpenLanguageFile(WideStringView path, WideStringView language);
// A fresh state for the file; 1 if it parsed. The state exists afterwards
// either way, with a null document on failure.
int OpenDocument(WideStringView path);
// The same on the existing state (made if there is none).
int ReopenDocument(WideStringView path);
// Opens the file and loads its first Localize block whatever its language;
// 1 (and localizationActive set) if there was one.
int OpenMasterFile(WideStringView path);
int LoadLanguage(WideStringView language);
void CloseLocalization();

// The languages that the folder's .locale files offer for the application,
// with the master language always among them; null if no file matches.
std::unique_ptr<LanguageTable> ListLanguages(WideStringView folder, WideStringView application);
int ChooseLanguage(WideString& language, WideString& file, WideStringView folder,
                   WideStringView application, const LanguageChooser& chooser, bool force);
int ChangeLanguage(WideStringView folder, WideStringView application,
                   const LanguageChooser& chooser, SettingsStore* store);

int ReadFileInfo(LocalizationFileInfo& info, bool skipUndefined);
int IsApplication(WideStringView name);
int GetCurrentLanguageTag(WideString& tag);
int GetLanguageName(WideString& name);
// The open file's path, or null.
const char16_t* GetLanguageFilePath();

// Lookup ---------------------------------------------------------------------

// The translation of `text`, the text itself, or its trimmed form; see the
// docs. The result may point into a buffer that the next call overwrites.
const char16_t* LocalizeString(const char16_t* text);
// Copies the result, cut to size - 1 units with a terminator.
char16_t* LocalizeStringCopy(char16_t* destination, std::size_t size, const char16_t* text);
// 1 if a translation replaced the text.
int LocalizeInPlace(WideString& text);
// Replaces each entry that has a translation; 0.
int LocalizeStringList(std::vector<WideString>& list);
const char16_t* LocalizeByIndex(int index, const char16_t* defaultText, std::uint32_t* id);
int GetStringCount();
int FindStringIndex(WideStringView key);
// Calls back for each row; the number of calls that answered non-zero.
using StringVisitor = std::function<int(int index, std::uint32_t id, const char16_t* key,
                                        const char16_t* local, void* user)>;
int ForEachString(const StringVisitor& visitor, void* user);

// Editing --------------------------------------------------------------------

int SetTranslation(int index, std::optional<WideString> text);
// Appends a String to the current block and a row; an id of 0 is computed.
int AddString(WideStringView key, const char16_t* local, std::uint32_t id);
int RemoveString(WideStringView key);
int RemoveDuplicateStrings(std::vector<WideString>* removedKeys);
int SetLanguage(WideStringView language);
// Rebuilds the current Localize block from the table, as the last child of
// the root. `exportOnly` leaves translations out; `markNew` writes LocalNew
// for every string written without a translation.
int StoreStrings(bool exportOnly, bool markNew);
int SaveLanguageFile();
int SaveLanguageFileAs(WideStringView path);
int SaveForTranslator(WideStringView path);
int NewLanguageFile(WideStringView application);
int NewMaster(WideStringView language);
int NewMasterAs(WideStringView path, WideStringView language);

// Helpers for the file tools -------------------------------------------------

// Takes the table out of the open state, leaving it empty.
LocalizationTable TakeStrings();
// Replaces the open state's table.
void PutStrings(LocalizationTable table);

}  // namespace Marlowen
