// Streams about the process as a whole: its descriptors, thread times,
// identity and how this dump was collected.
#include <fcntl.h>

#include <cstring>

#include "platform/dbghelp/minidump_api.h"
#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {
namespace {

// FILETIME: 100-nanosecond units since 1601.
constexpr uint64_t kUnixEpochAsFileTime = 116444736000000000ULL;

const char* DescriptorType(const char* target) {
  if (std::strncmp(target, "socket:", 7) == 0) return "Socket";
  if (std::strncmp(target, "pipe:", 5) == 0) return "Pipe";
  if (std::strncmp(target, "anon_inode:", 11) == 0) return "AnonInode";
  return "File";
}

uint64_t TicksTo100ns(const ProcessSnapshot& s, uint64_t ticks) {
  return ticks * (10000000 / s.clockTicksPerSecond);
}

}  // namespace

bool WriteHandleDataStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry) {
  const uint32_t count = static_cast<uint32_t>(snapshot.fds.size());
  HandleDescriptor* records = snapshot.arena->AllocateArray<HandleDescriptor>(count ? count : 1);
  if (!records) return false;
  for (uint32_t i = 0; i < count; ++i) {
    const FileDescriptorSnapshot& fd = snapshot.fds[i];
    HandleDescriptor& r = records[i];
    r.handle = static_cast<uint64_t>(fd.fd);
    r.typeNameRva = file->WriteString(DescriptorType(fd.target));
    r.objectNameRva = file->WriteString(fd.target);
    if (!r.typeNameRva || !r.objectNameRva) return false;
    r.attributes = fd.flags;
    r.grantedAccess = fd.flags & O_ACCMODE;
    r.handleCount = 1;
  }
  if (!file->Align(8)) return false;
  const uint32_t rva = file->rva();
  HandleDataStreamHeader header{sizeof(HandleDataStreamHeader), sizeof(HandleDescriptor), count, 0};
  if (!file->Write(&header, sizeof(header)) || !file->Write(records, count * sizeof(HandleDescriptor)))
    return false;
  *entry = {kHandleDataStream,
            {static_cast<uint32_t>(sizeof(header) + count * sizeof(HandleDescriptor)), rva}};
  return true;
}

bool WriteThreadInfoListStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry) {
  if (!file->Align(8)) return false;
  const uint32_t rva = file->rva();
  uint32_t count = 0;
  for (const ThreadTimes& times : snapshot.threadTimes) {
    for (const ThreadSnapshot& t : snapshot.threads)
      if (t.tid == times.tid && (t.writeFlags & ThreadWriteThreadInfo)) ++count;
  }
  ThreadInfoListHeader header{sizeof(ThreadInfoListHeader), sizeof(ThreadInfo), count};
  if (!file->Write(&header, sizeof(header))) return false;
  for (const ThreadTimes& times : snapshot.threadTimes) {
    const ThreadSnapshot* thread = nullptr;
    for (const ThreadSnapshot& t : snapshot.threads)
      if (t.tid == times.tid && (t.writeFlags & ThreadWriteThreadInfo)) thread = &t;
    if (!thread) continue;
    ThreadInfo info{};
    info.threadId = times.tid;
    if (!thread->hasContext) {
      // The published way to say that the thread's registers are missing.
      info.dumpFlags = kThreadInfoInvalidContext;
      info.dumpError = static_cast<uint32_t>(thread->contextError);
    }
    if (snapshot.bootTime)
      info.createTime = kUnixEpochAsFileTime + snapshot.bootTime * 10000000ULL +
                        TicksTo100ns(snapshot, times.startTicks);
    info.kernelTime = TicksTo100ns(snapshot, times.systemTicks);
    info.userTime = TicksTo100ns(snapshot, times.userTicks);
    info.affinity = times.affinity;
    if (!file->Write(&info, sizeof(info))) return false;
  }
  *entry = {kThreadInfoListStream, {static_cast<uint32_t>(sizeof(header) + count * sizeof(ThreadInfo)), rva}};
  return true;
}

bool WriteMiscInfoStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry) {
  MiscInfo info{};
  info.sizeOfInfo = sizeof(info);
  info.flags1 = kMiscInfoProcessId;
  info.processId = snapshot.pid;
  if (snapshot.bootTime) {
    info.flags1 |= kMiscInfoProcessTimes;
    info.processCreateTime =
        static_cast<uint32_t>(snapshot.bootTime + snapshot.processStartTicks / snapshot.clockTicksPerSecond);
    info.processUserTime = static_cast<uint32_t>(snapshot.processUserTicks / snapshot.clockTicksPerSecond);
    info.processKernelTime = static_cast<uint32_t>(snapshot.processSystemTicks / snapshot.clockTicksPerSecond);
  }
  if (!file->Align(8)) return false;
  const uint32_t rva = file->rva();
  if (!file->Write(&info, sizeof(info))) return false;
  *entry = {kMiscInfoStream, {static_cast<uint32_t>(sizeof(info)), rva}};
  return true;
}

bool WriteCaptureInfoStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry) {
  CaptureInfo info{};
  info.sizeOfHeader = sizeof(info);
  info.method = snapshot.captureMethod;
  info.traceError = snapshot.traceError;
  for (const ThreadSnapshot& t : snapshot.threads)
    if ((t.writeFlags & ThreadWriteThread) && !t.hasContext) ++info.threadsWithoutContext;
  if (!file->Align(8)) return false;
  const uint32_t rva = file->rva();
  if (!file->Write(&info, sizeof(info))) return false;
  for (const ThreadSnapshot& t : snapshot.threads)
    if ((t.writeFlags & ThreadWriteThread) && !t.hasContext && !file->Write(&t.tid, 4)) return false;
  *entry = {kCaptureInfoStream, {static_cast<uint32_t>(sizeof(info) + 4 * info.threadsWithoutContext), rva}};
  return true;
}

}  // namespace mldbghelp
