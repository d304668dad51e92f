// The translator's file tools on real folders: update with its report, the
// carried originals, merge, import, the difference export and word count.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "locale_test_files.h"
#include "support/localization.h"
#include "support/localization_tools.h"
#include "support/string_id.h"

namespace {

using namespace Marlowen;
using locale_testing::LocalizationTest;
using locale_testing::Utf16LeBytes;
using testing_support::PathExists;
using testing_support::ReadFileBytes;
using testing_support::ReadFileText;

const std::u16string kRule80 =
    u"--------------------------------------------------------------------------------";

struct Message {
  WideString title;
  WideString text;
};

class LocalizationToolsTest : public LocalizationTest {
 protected:
  TranslatorMessageSink Sink() {
    return [this](WideStringView title, WideStringView text) {
      messages_.push_back({WideString(title), WideString(text)});
    };
  }
  // The strings of one language of a file, as "key=local" or "key" lines.
  std::vector<std::string> Rows(const std::string& path, const char16_t* language) {
    std::vector<std::string> rows;
    if (!OpenLanguageFile(Utf8ToWide(path), language)) return rows;
    ForEachString(
        [](int, std::uint32_t id, const char16_t* key, const char16_t* local, void* user) {
          std::string row = WideToUtf8(key) + "#" + std::to_string(id);
          if (local) row += "=" + WideToUtf8(local);
          static_cast<std::vector<std::string>*>(user)->push_back(row);
          return 1;
        },
        &rows);
    CloseLocalization();
    return rows;
  }

  std::vector<Message> messages_;
};

TEST_F(LocalizationToolsTest, UpdateWritesNewFilesAndAReportOfRemovedAndAddedStrings) {
  const std::string folder = Folder("lang");
  const std::string masterPath =
      WriteLocale(Folder("master"), "Demo_undefined.locale", "Demo",
                  {{"UNDEFINED", {{"Cancel", std::nullopt, 11}, {"Open", std::nullopt, 12}, {"Save as", std::nullopt, 13}}}});
  WriteLocale(folder, "Demo_de.locale", "Demo",
              {{"de", {{"Quit"}, {"Open", "Öffnen", 21}, {"Close", "Schließen", 22}}}});
  WriteLocale(folder, "Other_de.locale", "Other", {{"de", {{"Open", "Auf"}}}});

  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  ASSERT_EQ(UpdateLanguageFiles(Sink(), Utf8ToWide(folder), u"*.locale"), 1);
  EXPECT_TRUE(messages_.empty());
  // The master's document is open again, its table empty until a language loads.
  ASSERT_TRUE(localizationState);
  EXPECT_EQ(WideToUtf8(GetLanguageFilePath()), masterPath);
  EXPECT_EQ(GetStringCount(), 0);
  EXPECT_EQ(IsApplication(u"Demo"), 1);
  CloseLocalization();

  EXPECT_EQ(testing_support::ListFolder(folder + "/new"),
            (std::vector<std::string>{"Demo_de.locale", "Demo_de.txt"}));
  const std::u16string expected =
      kRule80 + u"\r\n"
      u"LANGUAGE FILE UPDATE REPORT\r\n\r\n"
      u"This report is automatically generated while updating the translation against a\r\n"
      u"new master language file. Some strings will be removed since they are obsolete,\r\n"
      u"while new strings are added. In many cases, only tiny spelling errors will cause\r\n"
      u"that one string is removed while almost the same string is added. This report will\r\n"
      u"help you to re-use those strings that you have translated once before, only paste\r\n"
      u"them into the translator and apply the right changes.\r\n" +
      kRule80 + u"\r\n\r\n" + kRule80 + u"\r\n"
      u"Following unused strings are removed\r\n" +
      kRule80 + u"\r\n"
      u"\r\n"
      u"Quit\r\n\r\n\r\n"
      u"Close\r\nSchließen\r\n\r\n" +
      kRule80 + u"\r\n"
      u"2 removed of totally 3 strings\r\n1 strings left\r\n" +
      kRule80 + u"\r\n"
      u"\r\n" +
      kRule80 + u"\r\n"
      u"Following new strings are added\r\n" +
      kRule80 + u"\r\n"
      u"Cancel\r\n"
      u"Save as\r\n" +
      kRule80 + u"\r\n"
      u"2 strings added\r\nTotally 3 strings in file\r\n" +
      kRule80 + u"\r\n";
  EXPECT_EQ(ReadFileBytes(folder + "/new/Demo_de.txt"), Utf16LeBytes(expected));

  // New strings carry id 0; kept ones keep theirs and their translation.
  EXPECT_EQ(Rows(folder + "/new/Demo_de.locale", u"de"),
            (std::vector<std::string>{"Cancel#0", "Open#21=Öffnen", "Save as#0"}));
  // The inputs stay as they were.
  EXPECT_EQ(Rows(folder + "/Demo_de.locale", u"de").size(), 3u);
}

TEST_F(LocalizationToolsTest, UpdateAndReportTellTheirFailures) {
  const std::string folder = Folder("lang");
  const std::string masterPath =
      WriteLocale(folder, "Demo_undefined.locale", "Demo", {{"UNDEFINED", {{"Open"}}}});
  testing_support::WriteFileText(folder + "/new", "a file where the folder should be");
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  EXPECT_EQ(UpdateLanguageFiles(Sink(), Utf8ToWide(folder), u"*.locale"), 0);
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_EQ(messages_[0].title, u"Translator error");
  EXPECT_EQ(messages_[0].text, u"Can't create a subfolder!");

  LocalizationTable master, translation;
  EXPECT_EQ(WriteUpdateReport(Sink(), master, translation,
                              Utf8ToWide(root_.Path("missing/folder/report.txt"))),
            0);
  ASSERT_EQ(messages_.size(), 2u);
  EXPECT_EQ(messages_[1].text, u"Can't create log file!");

  // No open document: nothing to update against.
  CloseLocalization();
  EXPECT_EQ(UpdateLanguageFiles(Sink(), Utf8ToWide(folder), u"*.locale"), 0);

  // A master without corrections has nothing to carry over.
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  EXPECT_EQ(ReplaceOriginals(Sink(), Utf8ToWide(folder), u"*.locale"), 0);
  ASSERT_EQ(messages_.size(), 3u);
  EXPECT_EQ(messages_[2].text, u"Empty master file, nothing to change!");
}

TEST_F(LocalizationToolsTest, CorrectedOriginalsReachTheTranslations) {
  const std::string folder = Folder("lang");
  const std::string masterPath = WriteLocale(
      Folder("master"), "Demo_undefined.locale", "Demo",
      {{"UNDEFINED", {{"Teh file", "The file"}, {"open", "Open"}, {"Unchanged"}}}});
  WriteLocale(folder, "Demo_de.locale", "Demo",
              {{"de", {{"teh FILE", "Die Datei", 5}, {"Open", "Öffnen", 6}, {"Unchanged", "Gleich", 8}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  ASSERT_EQ(ReplaceOriginals(Sink(), Utf8ToWide(folder), u"*.locale"), 1);
  EXPECT_TRUE(messages_.empty());
  CloseLocalization();
  EXPECT_FALSE(PathExists(folder + "/new/Demo_de.txt"));
  // Matched ignoring case; a correction of case alone isn't taken over.
  EXPECT_EQ(Rows(folder + "/new/Demo_de.locale", u"de"),
            (std::vector<std::string>{"Open#6=Öffnen",
                                      "The file#" + std::to_string(StringId(u"The file")) + "=Die Datei",
                                      "Unchanged#8=Gleich"}));
}

TEST_F(LocalizationToolsTest, MergeTakesTheOtherTranslationsOnlyWhereRowsLineUp) {
  const std::string folder = Folder("lang");
  const std::string own = WriteLocale(folder, "own.locale", "Demo",
                                      {{"de", {{"Open", "Öffnen"}, {"Save"}, {"Close", "Zu"}}}});
  const std::string other = WriteLocale(folder, "other.locale", "Demo",
                                        {{"DE", {{"Open", "Oeffnen"}, {"Save", "Speichern"}, {"Close"}}}});
  // The other file's block is "DE": the merge finds no "de" there, so
  // nothing is changed, but the merge counts as done.
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(own)), 1);
  EXPECT_EQ(MergeLanguageFile(Utf8ToWide(other)), 1);
  CloseLocalization();

  const std::string sameTag = WriteLocale(folder, "same.locale", "Demo",
                                          {{"de", {{"Open", "Oeffnen"}, {"Save", "Speichern"}, {"Close"}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(own)), 1);
  ASSERT_EQ(MergeLanguageFile(Utf8ToWide(sameTag)), 1);
  EXPECT_EQ(WideToUtf8(GetLanguageFilePath()), folder + "/same_merged.locale");
  CloseLocalization();
  EXPECT_EQ(Rows(folder + "/same_merged.locale", u"de"),
            (std::vector<std::string>{"Close#7=Zu", "Open#7=Oeffnen", "Save#7=Speichern"}));

  // Rows that don't line up make the merge fail and write nothing.
  const std::string shifted = WriteLocale(folder, "shifted.locale", "Demo",
                                          {{"de", {{"Open", "A"}, {"Safe", "B"}, {"Close", "C"}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(own)), 1);
  EXPECT_EQ(MergeLanguageFile(Utf8ToWide(shifted)), 0);
  EXPECT_FALSE(PathExists(folder + "/shifted_merged.locale"));
  // Another language: refused.
  const std::string french = WriteLocale(folder, "fr.locale", "Demo", {{"fr", {{"Open", "Ouvrir"}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(own)), 1);
  EXPECT_EQ(MergeLanguageFile(Utf8ToWide(french)), 0);
  EXPECT_FALSE(PathExists(folder + "/fr_merged.locale"));
}

TEST_F(LocalizationToolsTest, ImportAddsOnlyMissingTranslatedStringsAndOnlyOnce) {
  const std::string folder = Folder("lang");
  const std::string own = WriteLocale(folder, "own.locale", "Demo", {{"de", {{"Open", "Öffnen", 3}}}});
  const std::string other = WriteLocale(
      folder, "other.locale", "Demo",
      {{"de", {{"Open", "Oeffnen", 4}, {"Save", "Speichern", 5}, {"Exit", std::nullopt, 6}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(own)), 1);
  ASSERT_EQ(ImportLanguageFile(Utf8ToWide(other)), 1);
  const std::string imported = folder + "/other_imported.locale";
  ASSERT_EQ(WideToUtf8(GetLanguageFilePath()), imported);
  const std::vector<std::uint8_t> firstBytes = ReadFileBytes(imported);

  // The state is on the result now; importing the same file again finds
  // nothing to add and writes nothing.
  EXPECT_EQ(ImportLanguageFile(Utf8ToWide(other)), 0);
  CloseLocalization();
  EXPECT_FALSE(PathExists(folder + "/other_imported_imported.locale"));
  EXPECT_EQ(ReadFileBytes(imported), firstBytes);
  EXPECT_EQ(Rows(imported, u"de"), (std::vector<std::string>{"Open#3=Öffnen", "Save#5=Speichern"}));
  EXPECT_EQ(testing_support::ListFolder(folder),
            (std::vector<std::string>{"other.locale", "other_imported.locale", "own.locale"}));
}

TEST_F(LocalizationToolsTest, ExportPairsRowsByPositionAndWritesOnlyDifferences) {
  const std::string folderA = Folder("a");
  const std::string folderB = Folder("b");
  const std::string fileA = WriteLocale(
      folderA, "Demo_de.locale", "Demo",
      {{"UNDEFINED", {{"ignored"}}}, {"de", {{"Alpha", "Eins"}, {"Beta", "Zwei"}, {"Gamma"}, {"Delta", "Vier"}}}});
  const std::string fileB = WriteLocale(
      folderB, "demo_de.locale", "DEMO",
      {{"De", {{"Alpha", "Eins"}, {"Beta", "Zwo"}, {"Gamma", "Drei"}, {"Epsilon", "Vier"}}}});
  ASSERT_EQ(OpenDocument(Utf8ToWide(fileA)), 1);
  ASSERT_EQ(LoadLanguage(u"de"), 1);
  ASSERT_EQ(ExportDifferences(Utf8ToWide(fileB)), 1);

  const std::string rule(90, '-');
  // Sorted: Alpha, Beta, Delta / Epsilon, Gamma. The third pair differs in
  // its keys only, which the export doesn't look at.
  const std::string expected = "#0001 " + rule + "\r\n\r\n" +
                               "Beta\r\n\r\nZwei\r\n\r\nZwo\r\n\r\n" +
                               "#0003 " + rule + "\r\n\r\n" +
                               "Gamma\r\n\r\n\r\n\r\nDrei\r\n\r\n";
  EXPECT_EQ(ReadFileText(folderB + "/De.txt"), expected);

  // Different sizes: no file.
  const std::string shorter = WriteLocale(folderB, "short.locale", "Demo", {{"de", {{"Alpha", "x"}}}});
  ASSERT_EQ(OpenDocument(Utf8ToWide(fileA)), 1);
  ASSERT_EQ(LoadLanguage(u"de"), 1);
  std::remove((folderB + "/de.txt").c_str());
  EXPECT_EQ(ExportDifferences(Utf8ToWide(shorter)), 0);
  EXPECT_FALSE(PathExists(folderB + "/de.txt"));
  // Another application: no file.
  const std::string foreign = WriteLocale(Folder("c"), "x.locale", "Other", {{"de", {{"Alpha", "x"}}}});
  ASSERT_EQ(OpenDocument(Utf8ToWide(fileA)), 1);
  ASSERT_EQ(LoadLanguage(u"de"), 1);
  EXPECT_EQ(ExportDifferences(Utf8ToWide(foreign)), 0);
  EXPECT_FALSE(PathExists(root_.Path("c/de.txt")));
}

TEST_F(LocalizationToolsTest, WordCountListsUntranslatedStrings) {
  const std::string folder = Folder("lang");
  const std::string file = WriteLocale(
      folder, "Demo_de.locale", "Demo",
      {{"de", {{"Open the file"}, {"Save", "Speichern"}, {"Two\nlines\there"}, {" spaced  out "}}}});
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(file), u"de"), 1);
  ASSERT_EQ(WriteWordCount(Utf8ToWide(folder + "/count.txt")), 1);
  EXPECT_EQ(ReadFileText(folder + "/count.txt"),
            " spaced  out \r\n"
            "Open the file\r\n"
            "Two\nlines\there\r\n" +
                std::string(83, '-') + "\r\n" +
                "Total number of words: 7\r\n");
}

}  // namespace
