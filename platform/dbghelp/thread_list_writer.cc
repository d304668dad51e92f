#include <cstring>

#include "platform/dbghelp/minidump_api.h"
#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {

bool WriteThreadListStream(const ProcessSnapshot& snapshot, FileWriter* file, DumpState* state,
                           Directory* entry) {
  uint32_t count = 0;
  for (const ThreadSnapshot& t : snapshot.threads)
    if (t.writeFlags & ThreadWriteThread) ++count;
  if (!file->Align(8)) return false;
  // List, then one context per thread, then the stacks: all positions are
  // known before the first byte.
  const uint32_t listRva = file->rva();
  const uint32_t listSize = 4 + count * sizeof(Thread);
  uint32_t contextRva = listRva + listSize;
  uint64_t stackRva = contextRva + uint64_t{count} * sizeof(ContextAmd64);

  if (!file->Write(&count, 4)) return false;
  for (const ThreadSnapshot& t : snapshot.threads) {
    if (!(t.writeFlags & ThreadWriteThread)) continue;
    Thread record{};
    record.threadId = t.tid;
    record.threadContext = {static_cast<uint32_t>(sizeof(ContextAmd64)), contextRva};
    if (t.tid == snapshot.exceptionThreadId) state->exceptionContext = record.threadContext;
    contextRva += sizeof(ContextAmd64);
    if ((t.writeFlags & ThreadWriteStack) && t.stack.size) {
      record.stack.startOfMemoryRange = t.stack.start;
      record.stack.memory = {static_cast<uint32_t>(t.stack.size), static_cast<uint32_t>(stackRva)};
      (void)state->memoryBlocks.PushBack(record.stack);
      stackRva += t.stack.size;
    }
    if (!file->Write(&record, sizeof(record))) return false;
  }
  static const ContextAmd64 kNoRegisters = {};  // flags 0: registers unknown
  for (const ThreadSnapshot& t : snapshot.threads) {
    if (!(t.writeFlags & ThreadWriteThread)) continue;
    bool withContext = t.hasContext && (t.writeFlags & ThreadWriteContext);
    if (!file->Write(withContext ? &t.context : &kNoRegisters, sizeof(ContextAmd64))) return false;
  }
  for (const ThreadSnapshot& t : snapshot.threads) {
    if (!(t.writeFlags & ThreadWriteThread) || !(t.writeFlags & ThreadWriteStack) || !t.stack.size) continue;
    if (!file->WriteMemory(t.stack.start, t.stack.size)) return false;
  }
  *entry = {kThreadListStream, {listSize, listRva}};
  return true;
}

}  // namespace mldbghelp
