// The localization library on real .locale files: ids, lookups that learn,
// language lists, the saved choice and the store rules.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "locale_test_files.h"
#include "support/language_names.h"
#include "support/localization.h"
#include "support/localization_table.h"
#include "support/settings_store.h"
#include "support/string_id.h"

namespace {

using namespace Marlowen;
using locale_testing::LocalizationTest;
using testing_support::ReadFileText;

// CRC-32 of the lower-cased UTF-16LE text, shifted by 8, plus the length;
// computed apart from this code.
constexpr std::uint32_t kIdOfHello = 0x1272DF05u;
constexpr std::uint32_t kIdOfOpenFile = 0xD7D2850Cu;  // "Open file..."

// The id of a row, through the lookup that reports it.
std::uint32_t IdOf(const char16_t* text) {
  std::uint32_t id = 0;
  LocalizeByIndex(FindStringIndex(text), nullptr, &id);
  return id;
}

// The languages offered for Demo in a folder, as "name|tag|file" rows.
std::vector<std::string> Listed(const std::string& folder) {
  std::vector<std::string> rows;
  std::unique_ptr<LanguageTable> table = ListLanguages(Utf8ToWide(folder), u"Demo");
  for (int i = 0; table && i < table->size(); ++i) {
    const std::string path = WideToUtf8((*table)[i].path);
    rows.push_back(WideToUtf8((*table)[i].name + u"|" + (*table)[i].tag) + "|" + path.substr(path.rfind('/') + 1));
  }
  return rows;
}

TEST(StringIdTest, ChecksumLengthAndCaseRule) {
  EXPECT_EQ(StringId(u"GRÖße"), 0xB22DBB05u);
  EXPECT_NE(StringId(u"GRÖSSE"), 0xB22DBB05u);  // ß has no one-unit capital
  EXPECT_EQ(StringId(u""), 0xFFFFFF00u);
  // Case counts from 999 characters on, and the length sits in the low byte.
  EXPECT_EQ(StringId(WideString(998, u'a')), StringId(WideString(998, u'A')));
  EXPECT_NE(StringId(WideString(999, u'a')), StringId(WideString(999, u'A')));
  EXPECT_EQ(StringId(WideString(999, u'a')) & 0xFF, 999u & 0xFF);
}

TEST(LocalizationTableTest, SortsByCodeUnitsAndGrowsPastItsFirstRoom) {
  LocalizationTable table;
  for (int i = 5000; i >= 0; --i) table.Add(u"key" + Utf8ToWide(std::to_string(i)), std::nullopt, 0);
  table.Add(u"\u00e9", std::nullopt, 0);
  table.Add(u"Z", std::nullopt, 0);
  table.Sort();
  // Code units, not a language's order: 'Z' (0x5A) first, 'é' last.
  EXPECT_EQ(table[0].key + table[5002].key, u"Z\u00e9");
  EXPECT_EQ(table.Find(u"KEY42"), -1);
  EXPECT_EQ(table[table.Find(u"key42")].key, u"key42");
}

TEST(LanguageNameTest, GivesTheEnglishDisplayName) {
  for (const auto& [tag, name] : std::vector<std::pair<const char16_t*, const char16_t*>>{
           {u"de-DE", u"German (Germany)"}, {u"pt_BR", u"Portuguese (Brazil)"}, {u"undefined", u"UNDEFINED"},
           {u"qq", u""}, {u"x-default", u""}, {u"!!", u""}}) {
    EXPECT_EQ(LanguageDisplayName(tag), WideString(name)) << WideToUtf8(tag);
  }
}

TEST_F(LocalizationTest, MasterLearnsStringsAndKeepsThemAcrossASave) {
  const std::string folder = Folder("lang");
  int newMasters = 0;
  const LanguageChooser neverAsked = [](const LanguageTable&) {
    ADD_FAILURE() << "no file, so nothing to choose";
    return -1;
  };
  EXPECT_EQ(InitLocalization(Utf8ToWide(folder), u"Demo", neverAsked, nullptr, [&] { ++newMasters; }, nullptr), 0);
  EXPECT_EQ(newMasters, 1);
  EXPECT_EQ(localizationActive, 1);
  const std::string masterPath = folder + "/Demo_undefined.locale";
  for (const char16_t* text : {u"Open file...", u"Hello", u"hello", u"Hello"}) EXPECT_EQ(LocalizeString(text), text);
  EXPECT_EQ(GetStringCount(), 3);
  ASSERT_EQ(SaveLanguageFile(), 1);
  CloseLocalization();

  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(masterPath), u"UNDEFINED"), 1);
  EXPECT_EQ(languageName, u"English");
  EXPECT_EQ(GetStringCount(), 3);
  EXPECT_EQ(LocalizeByIndex(FindStringIndex(u"Hello"), u"fallback", nullptr), std::u16string_view(u"fallback"));
  // The same text in two cases shares its id.
  EXPECT_EQ(IdOf(u"Hello"), kIdOfHello);
  EXPECT_EQ(IdOf(u"hello"), kIdOfHello);
  EXPECT_EQ(IdOf(u"Open file..."), kIdOfOpenFile);
}

TEST_F(LocalizationTest, LookupsTrimTranslateAndLearn) {
  const std::string path = WriteLocale(Folder("lang"), "Demo_de.locale", "Demo",
                                       {{"de", {{"Save", "Speichern"}, {"Cancel", std::nullopt}, {"Quit", "Ende"}}}});
  const char16_t* closed = u"Save";
  EXPECT_EQ(LocalizeString(closed), closed);  // closed: the input back, nothing learned

  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(path), u"de"), 1);
  EXPECT_EQ(languageName, u"German");
  EXPECT_EQ(GetStringCount(), 3);
  // Blanks only: an empty text is looked up, learned, and the input returned.
  const char16_t* blanks = u"   ";
  EXPECT_EQ(LocalizeString(blanks), blanks);
  EXPECT_GE(FindStringIndex(u""), 0);
  // A found row gives its translation without the request's white space.
  EXPECT_EQ(WideView(LocalizeString(u"Save\n")), u"Speichern");
  EXPECT_EQ(WideView(LocalizeString(u"\t Save")), u"Speichern");
  EXPECT_EQ(WideView(LocalizeString(u"\r\nCancel \r\n")), u"Cancel");
  // An unknown text comes back as it came, and the file learns it trimmed.
  const char16_t* unknown = u"Brand new\n";
  EXPECT_EQ(LocalizeString(unknown), unknown);
  EXPECT_EQ(GetStringCount(), 5);

  char16_t buffer[5];
  EXPECT_EQ(WideView(LocalizeStringCopy(buffer, 5, u"Save")), u"Spei");
  std::vector<WideString> list = {u"Save", u"Cancel", u"Quit"};
  EXPECT_EQ(LocalizeStringList(list), 0);
  EXPECT_EQ(list, (std::vector<WideString>{u"Speichern", u"Cancel", u"Ende"}));
  EXPECT_EQ(LocalizeInPlace(list[1]), 0);
  EXPECT_EQ(LocalizeInPlace(list[2] = u"Quit"), 1);
  EXPECT_EQ(list[2], u"Ende");

  ASSERT_EQ(SaveLanguageFile(), 1);
  CloseLocalization();
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(path), u"de"), 1);
  // The empty text isn't kept by a reload; the learned one is, with its id.
  EXPECT_EQ(GetStringCount(), 4);
  EXPECT_EQ(IdOf(u"Brand new"), StringId(u"Brand new"));
}

TEST_F(LocalizationTest, LanguageListsAndTheSavedChoice) {
  const std::string folder = Folder("lang");
  WriteLocale(folder, "Demo_de.locale", "Demo", {{"de", {{"Save", "Speichern"}}}});
  WriteLocale(folder, "Demo_fr.locale", "Demo", {{"fr", {{"Save", "Enregistrer"}}}, {"qq", {}}});
  WriteLocale(folder, "Other_it.locale", "Other", {{"it", {{"Save", "Salva"}}}});
  WriteLocale(folder, "demo_es.locale", "demo", {{"es", {{"Save", "Guardar"}}}});  // another case: another program
  testing_support::WriteFileText(folder + "/broken.locale", "<Marlowen_Localization");

  EXPECT_EQ(Listed(folder), (std::vector<std::string>{"French|fr|Demo_fr.locale", "German|de|Demo_de.locale",
                                                      "UNDEFINED|UNDEFINED|thisFileDoesNotExist"}));
  EXPECT_FALSE(ListLanguages(Utf8ToWide(folder), u"Nobody"));

  const std::string settingsPath = root_.Path("settings.xml");
  std::unique_ptr<SettingsStore> store = CreateStore(Utf8ToWide(settingsPath));
  int asked = 0;
  const LanguageChooser pickGerman = [&](const LanguageTable& languages) { return ++asked, languages.Find(u"german"); };
  std::vector<WideString> errors;
  const LocalizationErrorCallback collect = [&](WideStringView, WideStringView text) { errors.emplace_back(text); };
  EXPECT_EQ(InitLocalization(Utf8ToWide(folder), u"Demo", pickGerman, collect, nullptr, store.get()), 1);
  WideString tag;
  GetCurrentLanguageTag(tag);
  EXPECT_EQ(tag, u"de");
  CloseLocalization();

  // The next start opens the saved choice without asking.
  std::unique_ptr<SettingsStore> reopened = OpenStore(Utf8ToWide(settingsPath));
  EXPECT_EQ(InitLocalization(Utf8ToWide(folder), u"Demo", pickGerman, collect, nullptr, reopened.get()), 1);
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(WideView(LocalizeString(u"Save")), u"Speichern");

  // Choosing the master language with no master file: nothing to translate.
  const LanguageChooser pickMaster = [](const LanguageTable& languages) { return languages.Find(u"UNDEFINED"); };
  EXPECT_EQ(ChangeLanguage(Utf8ToWide(folder), u"Demo", pickMaster, reopened.get()), 1);
  EXPECT_EQ(languageName, u"English");
  EXPECT_FALSE(localizationState);
  GetCurrentLanguageTag(tag);
  EXPECT_EQ(tag, u"x-default");
  const LanguageChooser refuse = [](const LanguageTable&) { return -2; };
  EXPECT_EQ(ChangeLanguage(Utf8ToWide(folder), u"Demo", refuse, reopened.get()), 0);

  // A language that the file lacks is told through the callback.
  EXPECT_EQ(OpenLanguageFile(Utf8ToWide(folder + "/Demo_de.locale"), u"it"), 0);
  EXPECT_EQ(errors, std::vector<WideString>{u"No translation for \"it\""});
  EXPECT_FALSE(localizationState);
}

TEST_F(LocalizationTest, EnglishStandsInForTheMasterLanguage) {
  WriteLocale(Folder("one"), "Demo_en.locale", "Demo", {{"en", {{"Save", "Save"}}}, {"de", {}}});
  EXPECT_EQ(Listed(Folder("one")), (std::vector<std::string>{"German|de|Demo_en.locale", "UNDEFINED|en|Demo_en.locale"}));
  const std::string both = Folder("two");
  WriteLocale(both, "Demo_en.locale", "Demo", {{"en", {}}});
  WriteLocale(both, "Demo_undefined.locale", "Demo", {{"UNDEFINED", {}}});
  EXPECT_EQ(Listed(both), std::vector<std::string>{"UNDEFINED|UNDEFINED|Demo_undefined.locale"});
  WideString chosenTag, chosenFile;
  const LanguageChooser neverAsked = [](const LanguageTable&) { return -1; };
  EXPECT_EQ(ChooseLanguage(chosenTag, chosenFile, Utf8ToWide(both), u"Demo", neverAsked, false), 1);
  EXPECT_EQ(chosenTag, u"UNDEFINED");
  EXPECT_EQ(ChooseLanguage(chosenTag, chosenFile, Utf8ToWide(both), u"Demo", neverAsked, true), 0);
}

TEST_F(LocalizationTest, LineEndFormsStayApartUntilDuplicatesAreRemoved) {
  const std::string path =
      WriteLocale(Folder("lang"), "Demo_de.locale", "Demo",
                  {{"de", {{"Line one\r\nLine two", std::nullopt}, {"Line one\nLine two", "Zeile eins\nZeile zwei"},
                           {"Same", "Gleich"}, {"Same", std::nullopt}}}});
  // A save keeps the carriage return, so the two forms survive a reload.
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(path), u"de"), 1);
  ASSERT_EQ(SaveLanguageFile(), 1);
  CloseLocalization();
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(path), u"de"), 1);
  EXPECT_EQ(GetStringCount(), 4);
  std::vector<WideString> removed;
  EXPECT_EQ(RemoveDuplicateStrings(&removed), 2);
  EXPECT_EQ(removed.size(), 2u);
  // Of each pair, the translated row stays.
  EXPECT_EQ(WideView(LocalizeString(u"Line one\nLine two")), u"Zeile eins\nZeile zwei");
  EXPECT_EQ(WideView(LocalizeString(u"Same")), u"Gleich");
  EXPECT_EQ(RemoveDuplicateStrings(nullptr), 0);
  EXPECT_EQ(RemoveString(u"Same"), 1);
  EXPECT_EQ(RemoveString(u"Same"), 0);
}

TEST_F(LocalizationTest, StoreKeepsLocalNewOnlyForTheTranslatorAndNewMastersDropTranslations) {
  const std::string folder = Folder("lang");
  const std::string path = WriteLocale(folder, "Demo_de.locale", "Demo",
                                       {{"UNDEFINED", {{"Keep", std::nullopt}}},
                                        {"de", {{"Open", "Öffnen", 7, "Open"}, {"Close", std::nullopt, 9, "Close"}}}});
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(path), u"de"), 1);
  const std::string forTranslator = folder + "/translator.locale";
  ASSERT_EQ(SaveForTranslator(Utf8ToWide(forTranslator)), 1);
  std::string xml = ReadFileText(forTranslator);
  EXPECT_NE(xml.find("<LocalNew>Close</LocalNew>"), std::string::npos) << xml;
  EXPECT_EQ(xml.find("<LocalNew>Open</LocalNew>"), std::string::npos) << xml;
  // The other block is left as it was, and the stored one moves to the end.
  EXPECT_LT(xml.find("UNDEFINED"), xml.find("language=\"de\"")) << xml;
  ASSERT_EQ(SaveLanguageFile(), 1);
  EXPECT_EQ(ReadFileText(forTranslator).find("LocalNew"), std::string::npos);

  // A new master from a translation keeps the originals and drops the rest.
  ASSERT_EQ(NewMaster(u"fr"), 1);
  EXPECT_EQ(LocalizeByIndex(FindStringIndex(u"Open"), u"none", nullptr), std::u16string_view(u"none"));
  ASSERT_EQ(SaveLanguageFileAs(Utf8ToWide(folder + "/Demo_fr.locale")), 1);
  CloseLocalization();
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(folder + "/Demo_fr.locale"), u"fr"), 1);
  LocalizationFileInfo info;
  ASSERT_EQ(ReadFileInfo(info, true), 1);
  EXPECT_EQ(info.languages, (std::vector<WideString>{u"de", u"fr"}));
  EXPECT_EQ(IsApplication(u"demo"), 0);
  const std::string frenchXml = ReadFileText(folder + "/Demo_fr.locale");
  EXPECT_EQ(frenchXml.find("<Local>", frenchXml.find("language=\"fr\"")), std::string::npos) << frenchXml;
}

TEST_F(LocalizationTest, EditingReachesTheSavedFile) {
  const std::string folder = Folder("lang");
  ASSERT_EQ(NewLanguageFile(u"Demo"), 1);
  ASSERT_EQ(AddString(u"Open", u"Öffnen", 0), 1);
  ASSERT_EQ(AddString(u"Save", nullptr, 99), 1);
  ASSERT_EQ(SetTranslation(FindStringIndex(u"Save"), WideString(u"Speichern")), 1);
  EXPECT_EQ(SetTranslation(GetStringCount(), WideString(u"out of range")), 0);
  ASSERT_EQ(SetLanguage(u"de"), 1);
  const std::string path = folder + "/Demo_de.locale";
  ASSERT_EQ(SaveLanguageFileAs(Utf8ToWide(path)), 1);
  CloseLocalization();
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(path), u"de"), 1);
  EXPECT_EQ(WideView(LocalizeString(u"Open")), u"Öffnen");
  EXPECT_EQ(WideView(LocalizeString(u"Save")), u"Speichern");
  EXPECT_EQ(IdOf(u"Open"), StringId(u"Open"));
  EXPECT_EQ(IdOf(u"Save"), 99u);

  // A new master under another name and tag renames the block.
  ASSERT_EQ(NewMasterAs(Utf8ToWide(folder + "/Demo_it.locale"), u"it"), 1);
  ASSERT_EQ(SaveLanguageFile(), 1);
  LocalizationFileInfo info;
  ASSERT_EQ(ReadFileInfo(info, false), 1);
  EXPECT_EQ(info.languages, std::vector<WideString>{u"it"});
}

}  // namespace
