#include "support/localization_tools.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "shell/format_string.h"
#include "shell/string_helpers.h"
#include "support/language_names.h"
#include "support/localization.h"
#include "support/localization_files.h"

namespace Marlowen {

namespace {

const WideString kRule(80, u'-');
const WideString kWordCountRule(83, u'-');
constexpr char kExportRule[] =
    "------------------------------------------------------------------------------------------";

constexpr char16_t kReportIntroduction[] =
    u"This report is automatically generated while updating the translation against a\r\n"
    u"new master language file. Some strings will be removed since they are obsolete,\r\n"
    u"while new strings are added. In many cases, only tiny spelling errors will cause\r\n"
    u"that one string is removed while almost the same string is added. This report will\r\n"
    u"help you to re-use those strings that you have translated once before, only paste\r\n"
    u"them into the translator and apply the right changes.";

void ShowMessage(const TranslatorMessageSink& owner, WideStringView text) {
  if (owner) {
    owner(kTranslatorErrorTitle, text);
  } else {
    std::cerr << WideToUtf8(kTranslatorErrorTitle) << ": " << WideToUtf8(text) << std::endl;
  }
}

bool SameIgnoringCase(WideStringView a, WideStringView b) {
  return ToUpperCopy(a) == ToUpperCopy(b);
}

bool WriteFileBytes(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return close(fd) == 0 && done == bytes.size();
}

WideString WithoutExtension(WideStringView path) {
  const std::size_t slash = path.rfind(u'/');
  const std::size_t dot = path.rfind(u'.');
  if (dot == WideStringView::npos || (slash != WideStringView::npos && dot < slash)) {
    return WideString(path);
  }
  return WideString(path.substr(0, dot));
}

WideString FolderOf(WideStringView path) {
  const std::size_t slash = path.rfind(u'/');
  if (slash == WideStringView::npos) return u".";
  if (slash == 0) return u"";
  return WideString(path.substr(0, slash));
}

// The lines of an update report, gathered as UTF-16LE bytes.
class ReportText final {
 public:
  void Line(WideStringView text) {
    if (text.size() <= kReportLineLimit) Append(text);
    Append(u"\r\n");
  }
  const std::string& bytes() const { return bytes_; }

 private:
  void Append(WideStringView text) {
    for (char16_t c : text) {
      bytes_.push_back(static_cast<char>(c & 0xFF));
      bytes_.push_back(static_cast<char>(c >> 8));
    }
  }
  std::string bytes_;
};

// A text in the 8-bit code page (UTF-8 here), cut to the export's buffer
// without splitting a character.
std::string ExportBytes(const std::optional<WideString>& text) {
  if (!text) return {};
  std::string bytes = WideToUtf8(*text);
  if (bytes.size() >= kExportTextBytes) {
    std::size_t cut = kExportTextBytes - 1;
    while (cut > 0 && (static_cast<unsigned char>(bytes[cut]) & 0xC0) == 0x80) --cut;
    bytes.resize(cut);
  }
  return bytes;
}

int CountWords(WideStringView text) {
  int words = 0;
  bool inWord = false;
  for (char16_t c : text) {
    const bool separator = c == u' ' || c == u'\t';
    if (!separator && !inWord) ++words;
    inWord = !separator;
  }
  return words;
}

// The open document's application, if the state holds a localization file.
bool OpenApplication(WideString& application) {
  LocalizationFileInfo info;
  if (!ReadFileInfo(info, false)) return false;
  application = info.application;
  return true;
}

void UpdateOneFile(const TranslatorMessageSink& owner, const WideString& file,
                   const WideString& application, const WideString& newFolder,
                   LocalizationTable& master, const LanguageFileStep& step) {
  OpenDocument(file);
  LocalizationFileInfo info;
  if (ReadFileInfo(info, false) && info.application == application) {
    for (const WideString& language : info.languages) {
      LoadLanguage(language);
      const WideString base = newFolder + u'/' + application + u'_' + language;
      if (!step(owner, master, localizationState->strings, base + u".txt")) break;
      SaveLanguageFileAs(base + u".locale");
    }
  }
  CloseLocalization();
}

int WalkLanguageFiles(const TranslatorMessageSink& owner, WideStringView folder,
                      WideStringView pattern, const LanguageFileStep& step) {
  WideString application;
  if (!OpenApplication(application)) return 0;
  LocalizationTable master = TakeStrings();
  const WideString masterPath = localizationState->path;
  CloseLocalization();
  master.Sort();

  const WideString newFolder = WideString(folder) + u"/new";
  const std::string newFolderUtf8 = WideToUtf8(newFolder);
  struct stat info;
  const bool isFolder = stat(newFolderUtf8.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
  if (!isFolder && mkdir(newFolderUtf8.c_str(), 0755) != 0) {
    ShowMessage(owner, u"Can't create a subfolder!");
    return 0;
  }
  for (const WideString& file : ListLocaleFiles(folder, pattern)) {
    UpdateOneFile(owner, file, application, newFolder, master, step);
  }
  OpenDocument(masterPath);
  return 1;
}

// Gives each translated string whose original the master corrects the new
// wording. Originals match ignoring case, so a correction of case alone is
// not carried over.
int ReplaceOriginalsStep(const TranslatorMessageSink&, LocalizationTable& master,
                         LocalizationTable& translation, WideStringView) {
  std::unordered_map<WideString, std::vector<int>> byFoldedKey;
  for (int i = 0; i < translation.size(); ++i) byFoldedKey[LowerCaseCopy(translation[i].key)].push_back(i);
  std::vector<std::pair<int, WideString>> changes;
  for (int m = 0; m < master.size(); ++m) {
    auto found = byFoldedKey.find(LowerCaseCopy(master[m].key));
    if (found == byFoldedKey.end() || !master[m].local) continue;
    const WideString& wording = *master[m].local;
    for (int index : found->second) {
      if (!EqualIgnoringCase(translation[index].key, master[m].key)) continue;
      if (EqualIgnoringCase(wording, translation[index].key)) continue;
      changes.emplace_back(index, wording);
    }
  }
  // Indexes stay valid while keys change; the table re-sorts on its next use.
  for (auto& [index, wording] : changes) translation.Rekey(index, std::move(wording));
  return 1;
}

// Steps 1 to 4 shared by merge and import: the open file's first language
// and table, then the other file open with the same language loaded.
bool OpenBothFiles(WideStringView path, LocalizationTable& own) {
  LocalizationFileInfo ownInfo;
  if (!ReadFileInfo(ownInfo, false) || ownInfo.languages.empty()) return false;
  const WideString language = ownInfo.languages.front();
  own = TakeStrings();
  CloseLocalization();

  OpenDocument(path);
  LocalizationFileInfo otherInfo;
  if (!ReadFileInfo(otherInfo, false) || otherInfo.languages.empty()) return false;
  if (!SameIgnoringCase(language, otherInfo.languages.front())) return false;
  LoadLanguage(language);
  return true;
}

}  // namespace

int WriteUpdateReport(const TranslatorMessageSink& owner, LocalizationTable& master,
                      LocalizationTable& translation, WideStringView path) {
  const std::string pathUtf8 = WideToUtf8(path);
  const int fd = open(pathUtf8.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    ShowMessage(owner, u"Can't create log file!");
    return 0;
  }
  close(fd);

  ReportText report;
  report.Line(kRule);
  report.Line(u"LANGUAGE FILE UPDATE REPORT\r\n");
  report.Line(kReportIntroduction);
  report.Line(kRule + u"\r\n");
  report.Line(kRule);
  report.Line(u"Following unused strings are removed");
  report.Line(kRule);
  report.Line(u"");

  master.Sort();
  translation.Sort();
  int removed = 0;
  for (int i = translation.size() - 1; i >= 0; --i) {
    const LocalizedStringT& row = translation[i];
    if (master.Find(row.key) >= 0) continue;
    report.Line(row.local ? FormatString(u"%s\r\n%s\r\n", row.key.c_str(), row.local->c_str())
                          : FormatString(u"%s\r\n\r\n", row.key.c_str()));
    translation.Remove(i);
    ++removed;
  }
  const int left = translation.size();
  report.Line(kRule);
  report.Line(FormatString(u"%d removed of totally %d strings\r\n%d strings left", removed,
                           removed + left, left));
  report.Line(kRule);
  report.Line(u"");

  report.Line(kRule);
  report.Line(u"Following new strings are added");
  report.Line(kRule);
  // Looked up against the table as it was before this loop, so that adding
  // rows doesn't re-sort it for every new string.
  std::set<WideString> added;
  for (int i = 0; i < master.size(); ++i) {
    const WideString& key = master[i].key;
    if (translation.Find(key) >= 0 || added.count(key)) continue;
    added.insert(key);
    report.Line(key);
  }
  for (const WideString& key : added) translation.Add(key, std::nullopt, 0);
  report.Line(kRule);
  report.Line(FormatString(u"%d strings added\r\nTotally %d strings in file",
                           static_cast<int>(added.size()), translation.size()));
  report.Line(kRule);

  if (!WriteFileBytes(pathUtf8, report.bytes())) {
    ShowMessage(owner, u"Can't create log file!");
    return 0;
  }
  return 1;
}

int UpdateLanguageFiles(const TranslatorMessageSink& owner, WideStringView folder,
                        WideStringView pattern) {
  return WalkLanguageFiles(owner, folder, pattern, WriteUpdateReport);
}

int ReplaceOriginals(const TranslatorMessageSink& owner, WideStringView folder,
                     WideStringView pattern) {
  WideString application;
  if (!OpenApplication(application)) return 0;
  LocalizationTable& table = localizationState->strings;
  for (int i = table.size() - 1; i >= 0; --i) {
    if (!table[i].local) table.Remove(i);
  }
  if (table.size() == 0) {
    ShowMessage(owner, u"Empty master file, nothing to change!");
    return 0;
  }
  WalkLanguageFiles(owner, folder, pattern, ReplaceOriginalsStep);
  return 1;
}

int MergeLanguageFile(WideStringView path) {
  LocalizationTable own;
  if (!OpenBothFiles(path, own)) return 0;
  LocalizationTable& other = localizationState->strings;
  own.Sort();
  other.Sort();
  if (own.size() == other.size() && own.size() >= 1) {
    for (int i = 0; i < own.size(); ++i) {
      if (own[i].key != other[i].key) return 0;
    }
    for (int i = 0; i < own.size(); ++i) {
      if (other[i].local && own[i].local != other[i].local) own[i].local = other[i].local;
    }
  }
  PutStrings(std::move(own));
  localizationState->path = WithoutExtension(localizationState->path) + u"_merged.locale";
  return SaveLanguageFile();
}

int ImportLanguageFile(WideStringView path) {
  LocalizationTable own;
  if (!OpenBothFiles(path, own)) return 0;
  LocalizationTable& other = localizationState->strings;
  own.Sort();
  std::vector<int> imports;
  for (int i = 0; i < other.size(); ++i) {
    if (other[i].local && own.Find(other[i].key) < 0) imports.push_back(i);
  }
  if (imports.empty()) return 0;
  for (int i : imports) own.Add(other[i].key, other[i].local, other[i].id);
  PutStrings(std::move(own));
  localizationState->path = WithoutExtension(localizationState->path) + u"_imported.locale";
  return SaveLanguageFile();
}

int ExportDifferences(WideStringView path) {
  LocalizationFileInfo first;
  if (!ReadFileInfo(first, true)) return 0;
  LocalizationTable tableA = TakeStrings();
  tableA.Sort();
  CloseLocalization();
  OpenDocument(path);
  LocalizationFileInfo second;
  if (!ReadFileInfo(second, true)) return 0;
  if (!SameIgnoringCase(first.application, second.application)) return 0;

  // Only the first language of each file takes part.
  if (first.languages.empty() || second.languages.empty() ||
      !SameIgnoringCase(first.languages.front(), second.languages.front())) {
    return 0;
  }
  const WideString& language = second.languages.front();
  LoadLanguage(language);
  LocalizationTable& tableB = localizationState->strings;
  tableB.Sort();
  if (tableA.size() != tableB.size()) return 0;

  std::string text;
  for (int i = 0; i < tableA.size(); ++i) {
    const std::string a = ExportBytes(tableA[i].local);
    const std::string b = ExportBytes(tableB[i].local);
    if (a == b) continue;
    char number[16];
    std::snprintf(number, sizeof number, "#%04d ", i);
    text += number;
    text += kExportRule;
    text += "\r\n\r\n";
    text += ExportBytes(tableA[i].key) + "\r\n\r\n" + a + "\r\n\r\n" + b + "\r\n\r\n";
  }
  const WideString output = FolderOf(path) + u'/' + language + u".txt";
  return WriteFileBytes(WideToUtf8(output), text) ? 1 : 0;
}

int WriteWordCount(WideStringView path) {
  if (!localizationState) return 0;
  LocalizationTable& table = localizationState->strings;
  table.Sort();
  std::string text;
  int words = 0;
  for (int i = 0; i < table.size(); ++i) {
    if (table[i].local) continue;
    words += CountWords(table[i].key);
    text += WideToUtf8(table[i].key) + "\r\n";
  }
  text += WideToUtf8(kWordCountRule) + "\r\n";
  text += "Total number of words: " + std::to_string(words) + "\r\n";
  return WriteFileBytes(WideToUtf8(path), text) ? 1 : 0;
}

}  // namespace Marlowen
