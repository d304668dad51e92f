// The translator's file tools over .locale files: update of translations
// against a new master with a report, carrying corrected originals into the
// translations, merge and import of two files, a text export of differing
// translations and a word count.
//
// Each works on the process-wide localization state and leaves it as told
// below. Where a windowed program would show a message box, the tools call
// the caller's message sink instead.
#pragma once

#include <functional>

#include "shell/wide_string.h"
#include "support/localization_table.h"

namespace Marlowen {

// A message for the user: its title and text. An empty sink writes
// "<title>: <text>" and a line end to the standard error stream.
using TranslatorMessageSink = std::function<void(WideStringView title, WideStringView text)>;

inline constexpr char16_t kTranslatorErrorTitle[] = u"Translator error";

// The longest report line, in UTF-16 units, line end excluded. A longer line
// is left out of the report and only its line end is written.
inline constexpr std::size_t kReportLineLimit = 4095;
// Translations in a difference export are cut to this many bytes less one.
inline constexpr std::size_t kExportTextBytes = 2048;

// What the update walk runs for each language of each file: the master's
// table, the translation's table (which it may change, and which is then
// saved) and the path for a report. 0 stops the walk for that file.
using LanguageFileStep = std::function<int(const TranslatorMessageSink& owner, LocalizationTable& master,
                                           LocalizationTable& translation, WideStringView reportPath)>;

// Updates each file in `folder` that matches `pattern` (not entering
// subfolders) and belongs to the open master's application, language by
// language, into "<folder>/new/<application>_<language>.locale" with a
// report "<application>_<language>.txt" beside it. Afterwards the master's
// document is open again with an empty table. 0 if nothing could be walked.
int UpdateLanguageFiles(const TranslatorMessageSink& owner, WideStringView folder,
                        WideStringView pattern);

// Drops the translation rows that the master lacks and adds the master's new
// strings untranslated, with id 0, and writes a UTF-16LE report without
// byte-order mark listing both. 0 if the report can't be created.
int WriteUpdateReport(const TranslatorMessageSink& owner, LocalizationTable& master,
                      LocalizationTable& translation, WideStringView path);

// In the open master, each translated row gives a corrected wording of its
// original; the walk of UpdateLanguageFiles gives every matching string of
// the language files that wording, keeping its translation. No report.
int ReplaceOriginals(const TranslatorMessageSink& owner, WideStringView folder,
                     WideStringView pattern);

// Takes the other file's translations into the open file's strings where
// both hold the same strings in the same order, and saves the result as
// "<other file without extension>_merged.locale". 1 if done.
int MergeLanguageFile(WideStringView path);

// Adds the other file's translated strings that the open file lacks, leaving
// existing rows alone, and saves "<other file without extension>_imported.locale".
// 0, and no file, if there is nothing to add.
int ImportLanguageFile(WideStringView path);

// Compares the translations of the open file's first language with the
// other file's, row by row, and writes "<folder of path>/<language>.txt"
// with a block for each pair that differs. 1 if the file was written.
int ExportDifferences(WideStringView path);

// Lists the untranslated originals of the open table, one per line, and the
// total of their words. 1 if the file was written.
int WriteWordCount(WideStringView path);

}  // namespace Marlowen
