#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {

// The Linux convention of the common readers: the code is the signal
// number, the flags its si_code, the address the faulting one.
bool WriteExceptionStream(const ProcessSnapshot& snapshot, FileWriter* file, const DumpState& state,
                          Directory* entry) {
  ExceptionStream record{};
  record.threadId = snapshot.exceptionThreadId;
  record.exceptionRecord.exceptionCode = static_cast<uint32_t>(snapshot.signalNumber);
  record.exceptionRecord.exceptionFlags = static_cast<uint32_t>(snapshot.signalCode);
  record.exceptionRecord.exceptionAddress = snapshot.faultAddress;
  record.threadContext = state.exceptionContext;
  if (!file->Align(8)) return false;
  const uint32_t rva = file->rva();
  if (!file->Write(&record, sizeof(record))) return false;
  *entry = {kExceptionStream, {static_cast<uint32_t>(sizeof(record)), rva}};
  return true;
}

}  // namespace mldbghelp
