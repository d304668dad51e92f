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
using Rows = std::vector<std::string>;
using testing_support::PathExists;
using testing_support::ReadFileBytes;
using testing_support::ReadFileText;

class LocalizationToolsTest : public LocalizationTest {
 protected:
  TranslatorMessageSink Sink() {
    return [this](WideStringView, WideStringView text) { messages_.emplace_back(text); };
  }
  // The strings of one language of a file, as "key#id=local" or "key#id".
  Rows RowsOf(const std::string& path, const char16_t* language) {
    Rows rows;
    if (!OpenLanguageFile(Utf8ToWide(path), language)) return rows;
    ForEachString(
        [](int, std::uint32_t id, const char16_t* key, const char16_t* local, void* user) {
          static_cast<Rows*>(user)->push_back(WideToUtf8(key) + "#" + std::to_string(id) +
                                              (local ? "=" + WideToUtf8(local) : ""));
          return 1;
        },
        &rows);
    CloseLocalization();
    return rows;
  }

  std::vector<WideString> messages_;
  std::string folder_ = Folder("lang");
};

TEST_F(LocalizationToolsTest, UpdateWritesNewFilesAndAReportOfRemovedAndAddedStrings) {
  const std::string masterPath = WriteLocale(
      Folder("master"), "Demo_undefined.locale", "Demo",
      {{"UNDEFINED", {{"Cancel", std::nullopt, 11}, {"Open", std::nullopt, 12}, {"Save as", std::nullopt, 13}}}});
  WriteLocale(folder_, "Demo_de.locale", "Demo", {{"de", {{"Quit"}, {"Open", "Öffnen", 21}, {"Close", "Schließen", 22}}}});
  WriteLocale(folder_, "Other_de.locale", "Other", {{"de", {{"Open", "Auf"}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  ASSERT_EQ(UpdateLanguageFiles(Sink(), Utf8ToWide(folder_), u"*.locale"), 1);
  EXPECT_TRUE(messages_.empty());
  EXPECT_EQ(WideToUtf8(GetLanguageFilePath()), masterPath);  // the master is open again
  CloseLocalization();

  EXPECT_EQ(testing_support::ListFolder(folder_ + "/new"), (Rows{"Demo_de.locale", "Demo_de.txt"}));
  const std::u16string rule = std::u16string(80, u'-') + u"\r\n";
  const std::u16string expected =
      rule +
      u"LANGUAGE FILE UPDATE REPORT\r\n\r\n"
      u"This report is automatically generated while updating the translation against a\r\n"
      u"new master language file. Some strings will be removed since they are obsolete,\r\n"
      u"while new strings are added. In many cases, only tiny spelling errors will cause\r\n"
      u"that one string is removed while almost the same string is added. This report will\r\n"
      u"help you to re-use those strings that you have translated once before, only paste\r\n"
      u"them into the translator and apply the right changes.\r\n" +
      rule + u"\r\n" + rule + u"Following unused strings are removed\r\n" + rule +
      u"\r\n"
      u"Quit\r\n\r\n\r\n"
      u"Close\r\nSchließen\r\n\r\n" +
      rule + u"2 removed of totally 3 strings\r\n1 strings left\r\n" + rule + u"\r\n" + rule +
      u"Following new strings are added\r\n" + rule + u"Cancel\r\nSave as\r\n" + rule +
      u"2 strings added\r\nTotally 3 strings in file\r\n" + rule;
  EXPECT_EQ(ReadFileBytes(folder_ + "/new/Demo_de.txt"), locale_testing::Utf16LeBytes(expected));
  // New strings carry id 0; kept ones keep theirs and their translation.
  EXPECT_EQ(RowsOf(folder_ + "/new/Demo_de.locale", u"de"), (Rows{"Cancel#0", "Open#21=Öffnen", "Save as#0"}));
}

TEST_F(LocalizationToolsTest, UpdateAndReportTellTheirFailures) {
  const std::string masterPath = WriteLocale(folder_, "Demo_undefined.locale", "Demo", {{"UNDEFINED", {{"Open"}}}});
  testing_support::WriteFileText(folder_ + "/new", "a file where the folder should be");
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  EXPECT_EQ(UpdateLanguageFiles(Sink(), Utf8ToWide(folder_), u"*.locale"), 0);
  LocalizationTable master, translation;
  EXPECT_EQ(WriteUpdateReport(Sink(), master, translation, Utf8ToWide(root_.Path("missing/folder/report.txt"))), 0);
  CloseLocalization();  // no open document: nothing to update against
  EXPECT_EQ(UpdateLanguageFiles(Sink(), Utf8ToWide(folder_), u"*.locale"), 0);
  // A master without corrections has nothing to carry over.
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  EXPECT_EQ(ReplaceOriginals(Sink(), Utf8ToWide(folder_), u"*.locale"), 0);
  EXPECT_EQ(messages_, (std::vector<WideString>{u"Can't create a subfolder!", u"Can't create log file!",
                                                u"Empty master file, nothing to change!"}));
}

TEST_F(LocalizationToolsTest, CorrectedOriginalsReachTheTranslations) {
  const std::string masterPath = WriteLocale(Folder("master"), "Demo_undefined.locale", "Demo",
                                             {{"UNDEFINED", {{"Teh file", "The file"}, {"open", "Open"}, {"Unchanged"}}}});
  WriteLocale(folder_, "Demo_de.locale", "Demo",
              {{"de", {{"teh FILE", "Die Datei", 5}, {"Open", "Öffnen", 6}, {"Unchanged", "Gleich", 8}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(masterPath)), 1);
  ASSERT_EQ(ReplaceOriginals(Sink(), Utf8ToWide(folder_), u"*.locale"), 1);
  CloseLocalization();
  EXPECT_FALSE(PathExists(folder_ + "/new/Demo_de.txt"));
  // Matched ignoring case; a correction of case alone isn't taken over.
  EXPECT_EQ(RowsOf(folder_ + "/new/Demo_de.locale", u"de"),
            (Rows{"Open#6=Öffnen", "The file#" + std::to_string(StringId(u"The file")) + "=Die Datei", "Unchanged#8=Gleich"}));
}

TEST_F(LocalizationToolsTest, MergeTakesTheOtherTranslationsOnlyWhereRowsLineUp) {
  const std::string own = WriteLocale(folder_, "own.locale", "Demo", {{"de", {{"Open", "Öffnen"}, {"Save"}, {"Close", "Zu"}}}});
  const auto merge = [&](const char* name, const char* language, std::vector<locale_testing::TestString> rows) {
    const std::string other = WriteLocale(folder_, name, "Demo", {{language, std::move(rows)}});
    EXPECT_EQ(OpenMasterFile(Utf8ToWide(own)), 1);
    const int merged = MergeLanguageFile(Utf8ToWide(other));
    CloseLocalization();
    return merged;
  };
  // Rows that don't line up, or another language, make the merge fail and
  // write nothing; a block "DE" is not found, which changes nothing but counts
  // as done.
  EXPECT_EQ(merge("shifted.locale", "de", {{"Open", "A"}, {"Safe", "B"}, {"Close", "C"}}), 0);
  EXPECT_EQ(merge("fr.locale", "fr", {{"Open", "Ouvrir"}}), 0);
  EXPECT_EQ(merge("other.locale", "DE", {{"Open", "Oeffnen"}, {"Save", "Speichern"}, {"Close"}}), 1);
  EXPECT_EQ(testing_support::ListFolder(folder_),
            (Rows{"fr.locale", "other.locale", "other_merged.locale", "own.locale", "shifted.locale"}));
  EXPECT_EQ(merge("same.locale", "de", {{"Open", "Oeffnen"}, {"Save", "Speichern"}, {"Close"}}), 1);
  EXPECT_EQ(RowsOf(folder_ + "/same_merged.locale", u"de"), (Rows{"Close#7=Zu", "Open#7=Oeffnen", "Save#7=Speichern"}));
}

TEST_F(LocalizationToolsTest, ImportAddsOnlyMissingTranslatedStringsAndOnlyOnce) {
  const std::string own = WriteLocale(folder_, "own.locale", "Demo", {{"de", {{"Open", "Öffnen", 3}}}});
  const std::string other = WriteLocale(folder_, "other.locale", "Demo",
                                        {{"de", {{"Open", "Oeffnen", 4}, {"Save", "Speichern", 5}, {"Exit", std::nullopt, 6}}}});
  ASSERT_EQ(OpenMasterFile(Utf8ToWide(own)), 1);
  ASSERT_EQ(ImportLanguageFile(Utf8ToWide(other)), 1);
  const std::string imported = folder_ + "/other_imported.locale";
  const std::vector<std::uint8_t> firstBytes = ReadFileBytes(imported);
  // The result is open now; the same import again finds nothing to add.
  EXPECT_EQ(ImportLanguageFile(Utf8ToWide(other)), 0);
  CloseLocalization();
  EXPECT_EQ(ReadFileBytes(imported), firstBytes);
  EXPECT_EQ(RowsOf(imported, u"de"), (Rows{"Open#3=Öffnen", "Save#5=Speichern"}));
  EXPECT_EQ(testing_support::ListFolder(folder_), (Rows{"other.locale", "other_imported.locale", "own.locale"}));
}

TEST_F(LocalizationToolsTest, ExportPairsRowsByPositionAndWritesOnlyDifferences) {
  const std::string fileA =
      WriteLocale(Folder("a"), "Demo_de.locale", "Demo",
                  {{"UNDEFINED", {{"ignored"}}}, {"de", {{"Alpha", "Eins"}, {"Beta", "Zwei"}, {"Gamma"}, {"Delta", "Vier"}}}});
  const std::string folderB = Folder("b");
  const auto exportTo = [&](const std::string& other) {
    EXPECT_EQ(OpenDocument(Utf8ToWide(fileA)), 1);
    EXPECT_EQ(LoadLanguage(u"de"), 1);
    return ExportDifferences(Utf8ToWide(other));
  };
  ASSERT_EQ(exportTo(WriteLocale(folderB, "demo_de.locale", "DEMO",
                                 {{"De", {{"Alpha", "Eins"}, {"Beta", "Zwo"}, {"Gamma", "Drei"}, {"Epsilon", "Vier"}}}})),
            1);
  // Sorted: Alpha, Beta, Delta / Epsilon, Gamma. The third pair differs in
  // its keys only, which the export doesn't look at.
  const std::string rule(90, '-');
  EXPECT_EQ(ReadFileText(folderB + "/De.txt"), "#0001 " + rule + "\r\n\r\nBeta\r\n\r\nZwei\r\n\r\nZwo\r\n\r\n#0003 " + rule +
                                                   "\r\n\r\nGamma\r\n\r\n\r\n\r\nDrei\r\n\r\n");
  // Different sizes, or another application: no file.
  EXPECT_EQ(exportTo(WriteLocale(folderB, "short.locale", "Demo", {{"de", {{"Alpha", "x"}}}})), 0);
  EXPECT_EQ(exportTo(WriteLocale(Folder("c"), "x.locale", "Other", {{"de", {{"Alpha", "x"}}}})), 0);
  EXPECT_EQ(testing_support::ListFolder(root_.Path("c")), Rows{"x.locale"});
  EXPECT_EQ(testing_support::ListFolder(folderB), (Rows{"De.txt", "demo_de.locale", "short.locale"}));
}

TEST_F(LocalizationToolsTest, WordCountListsUntranslatedStrings) {
  const std::string file = WriteLocale(folder_, "Demo_de.locale", "Demo",
                                       {{"de", {{"Open the file"}, {"Save", "Speichern"}, {"Two\nlines\there"}, {" spaced  out "}}}});
  ASSERT_EQ(OpenLanguageFile(Utf8ToWide(file), u"de"), 1);
  ASSERT_EQ(WriteWordCount(Utf8ToWide(folder_ + "/count.txt")), 1);
  EXPECT_EQ(ReadFileText(folder_ + "/count.txt"),
            " spaced  out \r\nOpen the file\r\nTwo\nlines\there\r\n" + std::string(83, '-') + "\r\nTotal number of words: 7\r\n");
}

}  // namespace
