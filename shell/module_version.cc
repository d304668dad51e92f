#include "shell/module_version.h"

#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "shell/wide_string.h"

namespace {

constexpr std::uint16_t kDefaultCodePage = 1252;

// Calls found(descriptor, size) for the first version note in one block of
// note data; true if it did.
template <typename Found>
bool ScanNotes(Elf_Data* data, Found&& found) {
  std::size_t offset = 0;
  GElf_Nhdr header;
  std::size_t nameOffset = 0;
  std::size_t descriptorOffset = 0;
  while (data && offset < data->d_size) {
    std::size_t next = gelf_getnote(data, offset, &header, &nameOffset, &descriptorOffset);
    if (next == 0) break;
    offset = next;
    const char* base = static_cast<const char*>(data->d_buf);
    std::string_view owner(base + nameOffset, header.n_namesz);
    if (header.n_type == version_stamp::kVersionNoteType &&
        owner == std::string_view(version_stamp::kNoteOwner, sizeof version_stamp::kNoteOwner) &&
        header.n_descsz >= sizeof(VS_FIXEDFILEINFO)) {
      found(reinterpret_cast<const std::uint8_t*>(base + descriptorOffset), header.n_descsz);
      return true;
    }
  }
  return false;
}

// Looks through the note sections, and through the note segments when the
// section table is gone (a stripped-down file keeps only the latter).
template <typename Found>
bool FindVersionNote(Elf* elf, Found&& found) {
  std::size_t sectionCount = 0;
  if (elf_getshdrnum(elf, &sectionCount) == 0 && sectionCount > 0) {
    for (Elf_Scn* section = elf_nextscn(elf, nullptr); section;
         section = elf_nextscn(elf, section)) {
      GElf_Shdr header;
      if (!gelf_getshdr(section, &header) || header.sh_type != SHT_NOTE) continue;
      if (ScanNotes(elf_getdata(section, nullptr), found)) return true;
    }
    return false;
  }
  std::size_t segmentCount = 0;
  if (elf_getphdrnum(elf, &segmentCount) != 0) return false;
  for (std::size_t i = 0; i < segmentCount; ++i) {
    GElf_Phdr header;
    if (!gelf_getphdr(elf, static_cast<int>(i), &header) || header.p_type != PT_NOTE) continue;
    Elf_Data* data = elf_getdata_rawchunk(elf, static_cast<off_t>(header.p_offset),
                                          header.p_filesz, ELF_T_NHDR);
    if (ScanNotes(data, found)) return true;
  }
  return false;
}

}  // namespace

CModuleVersion::CModuleVersion() : VS_FIXEDFILEINFO{} {}

CModuleVersion::~CModuleVersion() = default;

bool CModuleVersion::ReadVersionInfo(const char16_t* path) {
  translationCodePage_ = kDefaultCodePage;
  static_cast<VS_FIXEDFILEINFO&>(*this) = VS_FIXEDFILEINFO{};
  if (!path) return false;

  const std::string file = WideToUtf8(WideView(path));
  int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  elf_version(EV_CURRENT);
  Elf* elf = elf_begin(fd, ELF_C_READ, nullptr);
  bool found = false;
  if (elf && elf_kind(elf) == ELF_K_ELF) {
    found = FindVersionNote(elf, [this](const std::uint8_t* descriptor, std::size_t size) {
      versionData_ = std::make_unique<std::uint8_t[]>(size);
      versionDataSize_ = size;
      std::memcpy(versionData_.get(), descriptor, size);
      std::memcpy(static_cast<VS_FIXEDFILEINFO*>(this), descriptor, sizeof(VS_FIXEDFILEINFO));
      // The translation word is optional; its absence is no failure.
      if (size >= sizeof(VS_FIXEDFILEINFO) + 4) {
        std::memcpy(&translationLanguage_, descriptor + sizeof(VS_FIXEDFILEINFO), 2);
        std::memcpy(&translationCodePage_, descriptor + sizeof(VS_FIXEDFILEINFO) + 2, 2);
      }
    });
  }
  if (elf) elf_end(elf);
  close(fd);
  return found && dwSignature == version_stamp::kFixedFileInfoSignature;
}
