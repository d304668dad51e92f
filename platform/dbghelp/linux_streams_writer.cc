#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {

bool WriteTextStream(uint32_t type, const Bytes& text, FileWriter* file, Directory* entry) {
  if (!file->Align(4)) return false;
  const uint32_t rva = file->rva();
  if (!file->Write(text.data, text.size)) return false;
  *entry = {type, {static_cast<uint32_t>(text.size), rva}};
  return true;
}

// The dynamic linker's list of loaded objects, as its r_debug told it.
bool WriteDsoDebugStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry) {
  const uint32_t count = static_cast<uint32_t>(snapshot.linkMap.size());
  LinkMap* maps = snapshot.arena->AllocateArray<LinkMap>(count ? count : 1);
  if (!maps) return false;
  for (uint32_t i = 0; i < count; ++i) {
    const LinkMapEntry& e = snapshot.linkMap[i];
    maps[i].addr = e.addr;
    maps[i].ld = e.ld;
    maps[i].nameRva = file->WriteString(e.name ? e.name : "");
    if (!maps[i].nameRva) return false;
  }
  if (!file->Align(8)) return false;
  const uint32_t mapRva = file->rva();
  if (!file->Write(maps, count * sizeof(LinkMap))) return false;
  DsoDebug debug{};
  debug.version = static_cast<uint32_t>(snapshot.rDebugVersion);
  debug.mapRva = count ? mapRva : 0;
  debug.dsoCount = count;
  debug.brk = snapshot.rDebugBrk;
  debug.ldBase = snapshot.rDebugLdBase;
  debug.dynamic = snapshot.dynamicAddress;
  const uint32_t rva = file->rva();
  if (!file->Write(&debug, sizeof(debug))) return false;
  *entry = {kLinuxDsoDebugStream, {static_cast<uint32_t>(sizeof(debug)), rva}};
  return true;
}

}  // namespace mldbghelp
