#include "tools/locale_tool/locale_tool.h"

#include <sys/stat.h>

#include <ostream>

#include "shell/string_helpers.h"
#include "shell/wide_string.h"
#include "support/localization.h"
#include "support/localization_tools.h"

namespace {

using namespace Marlowen;

constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr char kDefaultPattern[] = "*.locale";

constexpr char kUsage[] =
    "Usage: ml-locale-tool COMMAND ARGUMENTS\n"
    "\n"
    "Commands:\n"
    "  update MASTER FOLDER [PATTERN]\n"
    "      update every language file of FOLDER (default pattern *.locale) against the\n"
    "      master file; writes FOLDER/new/<application>_<language>.locale and a report\n"
    "      <application>_<language>.txt (UTF-16LE) for each language\n"
    "  replace-originals MASTER FOLDER [PATTERN]\n"
    "      the master's translations are corrected originals: carry them into every\n"
    "      language file of FOLDER, keeping the translations; writes FOLDER/new/...\n"
    "  merge FILE OTHER\n"
    "      take OTHER's translations for the strings that both hold in the same order;\n"
    "      writes OTHER without extension + _merged.locale\n"
    "  import FILE OTHER\n"
    "      add OTHER's translated strings that FILE lacks; writes OTHER without\n"
    "      extension + _imported.locale, or nothing if there is nothing to add\n"
    "  export-differences FILE OTHER\n"
    "      write <folder of OTHER>/<language>.txt with every string whose translations\n"
    "      differ, rows paired by position (first language of each file)\n"
    "  word-count FILE OUTPUT [LANGUAGE]\n"
    "      list the untranslated strings of FILE (first language by default) in OUTPUT\n"
    "      with the total of their words\n"
    "  help\n"
    "      print this text\n";

int Usage(std::ostream& err, const std::string& problem) {
  err << "ml-locale-tool: " << problem << "\n\n" << kUsage;
  return kExitUsage;
}

int Fail(std::ostream& err, const std::string& problem) {
  err << "ml-locale-tool: " << problem << "\n";
  return kExitFailed;
}

bool IsFolder(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Opens a .locale file with the language to work on loaded: the given one,
// else the first block (skipping the master language if `skipUndefined`).
bool OpenFile(const std::string& path, const std::string& language, bool skipUndefined,
              std::ostream& err) {
  if (!OpenDocument(Utf8ToWide(path))) {
    err << "ml-locale-tool: " << path << ": can't be read as XML\n";
    return false;
  }
  LocalizationFileInfo info;
  if (!ReadFileInfo(info, skipUndefined)) {
    err << "ml-locale-tool: " << path << ": not a localization file\n";
    return false;
  }
  if (!language.empty()) return LoadLanguage(Utf8ToWide(language)) == 1;
  if (info.languages.empty()) {
    err << "ml-locale-tool: " << path << ": holds no language block\n";
    return false;
  }
  return LoadLanguage(info.languages.front()) == 1;
}

std::string OpenPath() {
  const char16_t* path = GetLanguageFilePath();
  return path ? WideToUtf8(path) : std::string();
}

// The first language of a file, for explaining a refused merge.
std::string FirstLanguage(const std::string& path, bool skipUndefined) {
  std::string language;
  if (OpenDocument(Utf8ToWide(path))) {
    LocalizationFileInfo info;
    if (ReadFileInfo(info, skipUndefined) && !info.languages.empty()) {
      language = WideToUtf8(info.languages.front());
    }
  }
  CloseLocalization();
  return language;
}

int RunWalk(const std::vector<std::string>& args, bool replace, std::ostream& out,
            std::ostream& err) {
  if (args.size() < 3 || args.size() > 4) return Usage(err, "'" + args[0] + "' takes MASTER FOLDER [PATTERN]");
  const std::string& folder = args[2];
  if (!IsFolder(folder)) return Fail(err, folder + ": not a folder");
  if (!OpenFile(args[1], "", false, err)) return kExitFailed;
  bool failed = false;
  const TranslatorMessageSink sink = [&](WideStringView title, WideStringView text) {
    err << "ml-locale-tool: " << WideToUtf8(title) << ": " << WideToUtf8(text) << "\n";
    failed = true;
  };
  const WideString pattern = Utf8ToWide(args.size() == 4 ? args[3] : kDefaultPattern);
  const int done = replace ? ReplaceOriginals(sink, Utf8ToWide(folder), pattern)
                           : UpdateLanguageFiles(sink, Utf8ToWide(folder), pattern);
  if (!done || failed) return kExitFailed;
  out << "written into " << folder << "/new\n";
  return kExitDone;
}

int RunMergeOrImport(const std::vector<std::string>& args, bool merge, std::ostream& out,
                     std::ostream& err) {
  if (args.size() != 3) return Usage(err, "'" + args[0] + "' takes FILE OTHER");
  const std::string ownLanguage = FirstLanguage(args[1], false);
  const std::string otherLanguage = FirstLanguage(args[2], false);
  if (otherLanguage.empty()) return Fail(err, args[2] + ": not a localization file with a language");
  if (!OpenFile(args[1], "", false, err)) return kExitFailed;
  const int done = merge ? MergeLanguageFile(Utf8ToWide(args[2])) : ImportLanguageFile(Utf8ToWide(args[2]));
  if (!done) {
    if (ToUpperCopy(Utf8ToWide(ownLanguage)) != ToUpperCopy(Utf8ToWide(otherLanguage))) {
      return Fail(err, "the files' first languages differ (" + ownLanguage + ", " + otherLanguage + ")");
    }
    return Fail(err, merge ? "the two files don't hold the same strings in the same order, "
                             "or the result can't be written"
                           : "nothing to import: every translated string of " + args[2] +
                                 " is in " + args[1]);
  }
  out << "written " << OpenPath() << "\n";
  return kExitDone;
}

int RunExport(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.size() != 3) return Usage(err, "'export-differences' takes FILE OTHER");
  if (FirstLanguage(args[2], true).empty()) {
    return Fail(err, args[2] + ": not a localization file with a translated language");
  }
  if (!OpenFile(args[1], "", true, err)) return kExitFailed;
  if (!ExportDifferences(Utf8ToWide(args[2]))) {
    return Fail(err, "no export: the files belong to different applications, their first "
                     "languages differ, or they hold different numbers of strings");
  }
  out << "written differences beside " << args[2] << "\n";
  return kExitDone;
}

int RunWordCount(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.size() < 3 || args.size() > 4) return Usage(err, "'word-count' takes FILE OUTPUT [LANGUAGE]");
  if (!OpenFile(args[1], args.size() == 4 ? args[3] : "", false, err)) return kExitFailed;
  if (!WriteWordCount(Utf8ToWide(args[2]))) return Fail(err, args[2] + ": can't be written");
  out << "written " << args[2] << "\n";
  return kExitDone;
}

}  // namespace

int LocaleToolMain(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.empty()) return Usage(err, "no command given");
  localizationErrorCallback = [&err](WideStringView title, WideStringView text) {
    err << "ml-locale-tool: " << WideToUtf8(title) << ": " << WideToUtf8(text) << "\n";
  };
  const std::string& command = args[0];
  int status;
  if (command == "help" || command == "--help" || command == "-h") {
    out << kUsage;
    status = kExitDone;
  } else if (command == "update" || command == "replace-originals") {
    status = RunWalk(args, command == "replace-originals", out, err);
  } else if (command == "merge" || command == "import") {
    status = RunMergeOrImport(args, command == "merge", out, err);
  } else if (command == "export-differences") {
    status = RunExport(args, out, err);
  } else if (command == "word-count") {
    status = RunWordCount(args, out, err);
  } else {
    status = Usage(err, "unknown command '" + command + "'");
  }
  CloseLocalization();
  localizationErrorCallback = nullptr;
  return status;
}
