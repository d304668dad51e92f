#include "platform/dbghelp/minidump_file_writer.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "platform/dbghelp/minidump_api.h"
#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {
namespace {

constexpr uint32_t kMaxStreams = 24;

}  // namespace

int WriteMinidump(const ProcessSnapshot& snapshot, const MemoryRange& writerStack, int fd, off_t base) {
  FileWriter file(fd, base, snapshot.arena);
  DumpState state(snapshot.arena);
  Directory directory[kMaxStreams] = {};
  uint32_t count = 0;

  // Room for the header and the directory; both are filled in at the end.
  const uint32_t directoryRva = sizeof(Header);
  file.WriteZeros(sizeof(Header) + sizeof(directory));

  auto add = [&](bool ok, const Directory& entry) {
    if (ok && count < kMaxStreams) directory[count++] = entry;
    return ok;
  };
  Directory entry{};
  const uint32_t type = snapshot.dumpType;
  bool ok = add(WriteSystemInfoStream(snapshot, &file, &entry), entry) &&
            add(WriteMiscInfoStream(snapshot, &file, &entry), entry) &&
            add(WriteThreadListStream(snapshot, &file, &state, &entry), entry) &&
            add(WriteModuleListStream(snapshot, &file, &entry), entry) &&
            (!snapshot.hasException || add(WriteExceptionStream(snapshot, &file, state, &entry), entry)) &&
            add(WriteMemoryListStream(snapshot, &file, &state, &entry), entry);
  const struct {
    uint32_t type;
    const Bytes* text;
  } texts[] = {
      {kLinuxProcStatusStream, &snapshot.procStatus}, {kLinuxMapsStream, &snapshot.procMaps},
      {kLinuxCmdLineStream, &snapshot.cmdLine},       {kLinuxEnvironStream, &snapshot.environ},
      {kLinuxAuxvStream, &snapshot.auxv},             {kLinuxCpuInfoStream, &snapshot.cpuInfo},
      {kLinuxLsbReleaseStream, &snapshot.osRelease},
  };
  for (const auto& text : texts)
    ok = ok && (!text.text->size || add(WriteTextStream(text.type, *text.text, &file, &entry), entry));
  ok = ok && add(WriteDsoDebugStream(snapshot, &file, &entry), entry);
  if (type & MiniDumpWithHandleData) ok = ok && add(WriteHandleDataStream(snapshot, &file, &entry), entry);
  if (type & MiniDumpWithProcessThreadData)
    ok = ok && add(WriteThreadInfoListStream(snapshot, &file, &entry), entry);
  ok = ok && add(WriteCaptureInfoStream(snapshot, &file, &entry), entry);
  if (type & MiniDumpWithFullMemory)
    ok = ok && add(WriteMemory64ListStream(snapshot, writerStack, &file, &entry), entry);
  ok = ok && file.Flush();
  if (!ok) return file.error() ? file.error() : EIO;

  const uint64_t end = file.position();
  if (!file.WriteAt(directoryRva, directory, count * sizeof(Directory))) return file.error();
  // Now that the entire file has been written, the header with the
  // signature goes in front: only a complete dump carries it.
  Header header{};
  header.signature = kMinidumpSignature;
  header.version = kMinidumpVersion;
  header.streamCount = count;
  header.streamDirectoryRva = directoryRva;
  header.timeDateStamp = static_cast<uint32_t>(time(nullptr));
  header.flags = type;
  if (!file.WriteAt(0, &header, sizeof(header))) return file.error();
  if (lseek(fd, base + static_cast<off_t>(end), SEEK_SET) < 0) return errno;
  return 0;
}

}  // namespace mldbghelp
