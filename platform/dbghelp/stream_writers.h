// One small writer per stream. Each encodes part of a ProcessSnapshot at
// the writer's current position and fills the directory entry for it;
// false means the file could not be written (FileWriter::error()).
// Signal-safe like everything the helper runs.
#pragma once

#include "platform/dbghelp/arena.h"
#include "platform/dbghelp/file_writer.h"
#include "platform/dbghelp/minidump_format.h"
#include "platform/dbghelp/process_snapshot.h"

namespace mldbghelp {

// What one stream leaves for a later one: memory already in the file (the
// memory list points at the stacks again) and the faulting thread's context.
struct DumpState {
  explicit DumpState(Arena* arena) : memoryBlocks(arena) {}
  ArenaVector<MemoryDescriptor> memoryBlocks;
  LocationDescriptor exceptionContext = {};
};

bool WriteThreadListStream(const ProcessSnapshot& snapshot, FileWriter* file, DumpState* state,
                           Directory* entry);
bool WriteModuleListStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry);
// Stacks, instruction windows and data segments.
bool WriteMemoryListStream(const ProcessSnapshot& snapshot, FileWriter* file, DumpState* state,
                           Directory* entry);
// Every readable mapping; written last because its data may pass 4 GB.
bool WriteMemory64ListStream(const ProcessSnapshot& snapshot, const MemoryRange& writerStack,
                             FileWriter* file, Directory* entry);
bool WriteExceptionStream(const ProcessSnapshot& snapshot, FileWriter* file, const DumpState& state,
                          Directory* entry);
bool WriteSystemInfoStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry);
bool WriteMiscInfoStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry);
bool WriteHandleDataStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry);
bool WriteThreadInfoListStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry);
bool WriteCaptureInfoStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry);
// A /proc or /etc text as it was read, under the given Linux stream type.
bool WriteTextStream(uint32_t type, const Bytes& text, FileWriter* file, Directory* entry);
bool WriteDsoDebugStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry);

}  // namespace mldbghelp
