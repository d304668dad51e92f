// Stamps an executable or shared library with its version block.
//
// The block is an ELF note in the section ".note.marlowen.version": owner
// "Marlowen", type kVersionNoteType, and as descriptor the fixed file
// information record (signature 0xFEEF04BD) followed by one translation word
// (language, code page). CModuleVersion::ReadVersionInfo reads it back from
// the file on disk.
//
// Use the macro once per executable or shared library, at namespace scope in
// one of its own source files (not in a static library: an archive member
// that nothing references never reaches the link):
//
//   ML_VERSION_STAMP(2, 3, 4, 5,   // file version
//                    2, 3, 0, 0);  // product version
//
// The header needs nothing but the C++ standard library, so products can
// take it as it is.
#pragma once

#include <cstdint>

// The other platform's fixed file information record: 13 words, 52 bytes.
struct VS_FIXEDFILEINFO {
  std::uint32_t dwSignature;
  std::uint32_t dwStrucVersion;
  std::uint32_t dwFileVersionMS;
  std::uint32_t dwFileVersionLS;
  std::uint32_t dwProductVersionMS;
  std::uint32_t dwProductVersionLS;
  std::uint32_t dwFileFlagsMask;
  std::uint32_t dwFileFlags;
  std::uint32_t dwFileOS;
  std::uint32_t dwFileType;
  std::uint32_t dwFileSubtype;
  std::uint32_t dwFileDateMS;
  std::uint32_t dwFileDateLS;
};
static_assert(sizeof(VS_FIXEDFILEINFO) == 52);

namespace version_stamp {

inline constexpr std::uint32_t kFixedFileInfoSignature = 0xFEEF04BDu;
inline constexpr std::uint32_t kVersionNoteType = 0x4D4C5631u;  // "MLV1"
inline constexpr char kNoteOwner[] = "Marlowen";
inline constexpr std::uint16_t kLanguageUsEnglish = 0x0409;
inline constexpr std::uint16_t kCodePageUnicode = 1200;

// An ELF note as the linker lays it out: header, owner padded to 4 bytes,
// descriptor.
struct VersionNote {
  std::uint32_t ownerSize;
  std::uint32_t descriptorSize;
  std::uint32_t type;
  char owner[12];
  VS_FIXEDFILEINFO fixed;
  std::uint16_t language;
  std::uint16_t codePage;
};
static_assert(sizeof(VersionNote) == 12 + 12 + 52 + 4);

constexpr std::uint32_t Pack(unsigned high, unsigned low) {
  return (static_cast<std::uint32_t>(high & 0xFFFFu) << 16) | (low & 0xFFFFu);
}

constexpr VersionNote MakeVersionNote(unsigned f1, unsigned f2, unsigned f3, unsigned f4,
                                      unsigned p1, unsigned p2, unsigned p3, unsigned p4) {
  return VersionNote{
      sizeof(kNoteOwner),
      sizeof(VS_FIXEDFILEINFO) + 4,
      kVersionNoteType,
      {'M', 'a', 'r', 'l', 'o', 'w', 'e', 'n', 0, 0, 0, 0},
      VS_FIXEDFILEINFO{
          kFixedFileInfoSignature,
          0x00010000u,  // structure version 1.0
          Pack(f1, f2), Pack(f3, f4), Pack(p1, p2), Pack(p3, p4),
          0x3Fu,  // flags mask
          0,      // flags
          0,      // operating system: unknown
          1,      // file type: application
          0, 0, 0},
      kLanguageUsEnglish,
      kCodePageUnicode};
}

}  // namespace version_stamp

// "retain" keeps the note through --gc-sections; "used" through the
// compiler, as nothing refers to it.
#define ML_VERSION_STAMP(f1, f2, f3, f4, p1, p2, p3, p4)                                  \
  [[gnu::used, gnu::retain, gnu::section(".note.marlowen.version"), gnu::aligned(4)]]     \
  static const ::version_stamp::VersionNote ml_version_stamp_note =                       \
      ::version_stamp::MakeVersionNote((f1), (f2), (f3), (f4), (p1), (p2), (p3), (p4))
