// Helpers shared by the packaging and uploader tests: a captured report as
// the capture leaves it, and independent readers (python3, unzip) run as
// programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "shell/wide_string.h"
#include "store/crashed_module.h"

namespace packaging_test {

// A record with a value of its own in every field, 2026-01-02 03:04:05 UTC,
// and markup in the command line.
Marlowen::CrashedModuleT SampleRecord(const WideString& reportName);

// Writes <folder>/<name>.dmp with dumpBytes and <folder>/<name>.dat through
// the record's own Save; makes the folder. False if the record was not saved.
bool WriteCapturedReport(const std::string& folder, const std::string& name,
                         const std::vector<std::uint8_t>& dumpBytes);

// Bytes that look like a dump: headers, code, zero pages, text, pointers.
std::vector<std::uint8_t> DumpLikeBytes(std::size_t size, std::uint32_t seed);

struct CommandResult {
  int exitCode = -1;
  std::string output;  // stdout
};
// Runs argv, each word quoted for the shell, and collects its standard output.
CommandResult RunCommand(const std::vector<std::string>& argv);

// The entries of a zip as an independent reader sees them: "name size"
// lines, sorted, after python3's zipfile has tested every CRC. Empty
// exitCode != 0 if the archive is damaged.
CommandResult ListZip(const std::string& zipPath);

// The contents of one entry as python3's zipfile extracts it.
std::vector<std::uint8_t> ExtractZipEntry(const std::string& zipPath, const std::string& entry);

// The document as python3's XML parser reads it: one line per element in
// document order, "path=text", the root's attributes as "@name=value".
CommandResult FlattenXml(const std::string& xmlPath);

}  // namespace packaging_test
