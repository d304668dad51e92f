// The version block of a module (executable or shared library), read from
// the ELF note that shell/version_stamp.h puts into it.
//
// The object is the fixed file information record itself plus the whole
// note descriptor it came from. Nothing here logs or throws (other than
// allocation failures); a crashing process may use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "shell/version_stamp.h"

class CModuleVersion : public VS_FIXEDFILEINFO {
 public:
  // All 13 fields zero, no version data.
  CModuleVersion();
  virtual ~CModuleVersion();
  CModuleVersion(const CModuleVersion&) = delete;
  CModuleVersion& operator=(const CModuleVersion&) = delete;

  // Reads the first version note of the ELF file at path (UTF-16, zero
  // terminated). True only if a note was found and its record carries the
  // signature 0xFEEF04BD; after a false for a wrong signature the record
  // holds what the file gave. A file that is missing, no ELF file, or has no
  // note gives false with the record zero. A later read replaces the data of
  // an earlier one.
  [[nodiscard]] bool ReadVersionInfo(const char16_t* path);

  // First translation entry; the code page is 1252 after any read until a
  // note supplies its own.
  std::uint16_t translationLanguage() const { return translationLanguage_; }
  std::uint16_t translationCodePage() const { return translationCodePage_; }

  // The whole note descriptor of the last read; null before one succeeded
  // in finding a note.
  const std::uint8_t* versionData() const { return versionData_.get(); }
  std::size_t versionDataSize() const { return versionDataSize_; }

 private:
  std::unique_ptr<std::uint8_t[]> versionData_;
  std::size_t versionDataSize_ = 0;
  std::uint16_t translationLanguage_ = 0;
  std::uint16_t translationCodePage_ = 0;
};
