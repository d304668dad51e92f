#include <cstring>

#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {
namespace {

bool Overlaps(const MemoryRange& a, uint64_t start, uint64_t size) {
  return a.size && start < a.start + a.size && a.start < start + size;
}

// Memory that holds no process state, or whose reading has side effects.
bool LeftOutOfFullMemory(const Mapping& m) {
  if (!m.readable || m.dontDump || m.untouched) return true;
  if (std::strncmp(m.path, "[vvar", 5) == 0 || std::strcmp(m.path, "[vsyscall]") == 0) return true;
  return std::strncmp(m.path, "/dev/", 5) == 0 && std::strncmp(m.path, "/dev/shm/", 9) != 0 &&
         std::strncmp(m.path, "/dev/zero", 9) != 0;
}

}  // namespace

bool WriteMemoryListStream(const ProcessSnapshot& snapshot, FileWriter* file, DumpState* state,
                           Directory* entry) {
  // Instruction windows and data segments that a stack already covers are
  // not repeated.
  const size_t stackBlocks = state->memoryBlocks.size();
  size_t extra = 0;
  for (const MemoryRange& r : snapshot.extraMemory) {
    bool covered = false;
    for (size_t i = 0; i < stackBlocks; ++i) {
      const MemoryDescriptor& d = state->memoryBlocks[i];
      if (Overlaps({d.startOfMemoryRange, d.memory.dataSize}, r.start, r.size)) covered = true;
    }
    if (!covered) ++extra;
  }
  if (!file->Align(8)) return false;
  const uint32_t listRva = file->rva();
  const uint32_t count = static_cast<uint32_t>(stackBlocks + extra);
  const uint32_t listSize = 4 + count * sizeof(MemoryDescriptor);
  uint64_t dataRva = listRva + listSize;
  if (!file->Write(&count, 4)) return false;
  for (size_t i = 0; i < stackBlocks; ++i)
    if (!file->Write(&state->memoryBlocks[i], sizeof(MemoryDescriptor))) return false;
  auto covered = [&](const MemoryRange& r) {
    for (size_t i = 0; i < stackBlocks; ++i) {
      const MemoryDescriptor& d = state->memoryBlocks[i];
      if (Overlaps({d.startOfMemoryRange, d.memory.dataSize}, r.start, r.size)) return true;
    }
    return false;
  };
  for (const MemoryRange& r : snapshot.extraMemory) {
    if (covered(r)) continue;
    MemoryDescriptor d{r.start, {static_cast<uint32_t>(r.size), static_cast<uint32_t>(dataRva)}};
    dataRva += r.size;
    if (!file->Write(&d, sizeof(d))) return false;
  }
  for (const MemoryRange& r : snapshot.extraMemory)
    if (!covered(r) && !file->WriteMemory(r.start, r.size)) return false;
  *entry = {kMemoryListStream, {listSize, listRva}};
  return true;
}

bool WriteMemory64ListStream(const ProcessSnapshot& snapshot, const MemoryRange& writerStack,
                             FileWriter* file, Directory* entry) {
  auto wanted = [&](const Mapping& m) {
    return !LeftOutOfFullMemory(m) && !Overlaps(writerStack, m.start, m.end - m.start) &&
           !snapshot.arena->Overlaps(m.start, m.end - m.start);
  };
  uint64_t count = 0;
  for (const Mapping& m : snapshot.mappings)
    if (wanted(m)) ++count;
  if (!file->Align(8)) return false;
  const uint32_t listRva = file->rva();
  const uint64_t listSize = 16 + count * sizeof(MemoryDescriptor64);
  const uint64_t baseRva = listRva + listSize;
  if (!file->Write(&count, 8) || !file->Write(&baseRva, 8)) return false;
  for (const Mapping& m : snapshot.mappings) {
    if (!wanted(m)) continue;
    MemoryDescriptor64 d{m.start, m.end - m.start};
    if (!file->Write(&d, sizeof(d))) return false;
  }
  for (const Mapping& m : snapshot.mappings)
    if (wanted(m) && !file->WriteMemory(m.start, m.end - m.start)) return false;
  *entry = {kMemory64ListStream, {static_cast<uint32_t>(listSize), listRva}};
  return true;
}

}  // namespace mldbghelp
