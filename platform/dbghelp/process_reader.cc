#include "platform/dbghelp/process_reader.h"

#include <cpuid.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/dbghelp/cpu_context.h"
#include "platform/dbghelp/thread_tracer.h"

namespace mldbghelp {
namespace {

constexpr uint64_t kRedZone = 128;                  // below the stack pointer, still live
constexpr uint64_t kMaxStackBytes = 1 << 20;        // per thread, from the stack pointer up
constexpr uint64_t kInstructionWindow = 256;        // either side of each instruction pointer
constexpr uint64_t kGuardSearch = 64 * 1024;        // an overflowed stack pointer lies below its stack
constexpr int kThreadListPasses = 4;                // threads born while we stop the others
constexpr size_t kMaxLinkMapEntries = 4096;

struct TidList {
  uint32_t tids[4096];
  size_t count;
};

void CollectTid(const char* name, void* context) {
  auto* list = static_cast<TidList*>(context);
  const char* p = name;
  uint64_t tid;
  if (ParseDecimal(&p, p + std::strlen(name), &tid) && list->count < 4096)
    list->tids[list->count++] = static_cast<uint32_t>(tid);
}

TextBuilder ProcPath(uint32_t pid, const char* rest) {
  TextBuilder path;
  path.Add("/proc/").AddDecimal(pid).Add(rest);
  return path;
}

ThreadSnapshot* FindThread(ProcessSnapshot* snapshot, uint32_t tid) {
  for (ThreadSnapshot& t : snapshot->threads)
    if (t.tid == tid) return &t;
  return nullptr;
}

int CallBack(const CaptureRequest& request, MINIDUMP_CALLBACK_INPUT* input,
             MINIDUMP_CALLBACK_OUTPUT* output) {
  if (!request.callback || !request.callback->CallbackRoutine) return 1;
  input->ProcessId = request.pid;
  input->ProcessHandle = ML_CURRENT_PROCESS;
  return request.callback->CallbackRoutine(request.callback->CallbackParam, input, output);
}

// Stops every thread but the faulting one; loops because a thread may start
// another while we stop it. False when tracing is refused.
bool StopOtherThreads(const CaptureRequest& request, ProcessSnapshot* snapshot, TidList* list) {
  TextBuilder taskPath = ProcPath(request.pid, "/task");
  for (int pass = 0; pass < kThreadListPasses; ++pass) {
    list->count = 0;
    ListFolder(taskPath.c_str(), CollectTid, list);
    bool added = false;
    for (size_t i = 0; i < list->count; ++i) {
      uint32_t tid = list->tids[i];
      if (tid == request.exceptionThreadId || FindThread(snapshot, tid)) continue;
      int error = SeizeThread(tid);
      if (error == ESRCH) continue;  // ended on its own
      if (error != 0) {
        snapshot->traceError = error;
        ReleaseProcess(snapshot);
        return false;
      }
      ThreadSnapshot* thread = snapshot->threads.Append();
      if (!thread) {
        ReleaseThread(tid, 0);
        continue;
      }
      thread->tid = tid;
      thread->attached = true;
      added = true;
    }
    if (!added) break;
  }
  for (ThreadSnapshot& thread : snapshot->threads) {
    if (!thread.attached || thread.hasContext || thread.contextError) continue;
    if (!StopSeizedThread(thread.tid, &thread.pendingSignal)) {
      thread.contextError = ESRCH;
      continue;
    }
    if (ReadThreadContext(thread.tid, &thread.context)) {
      thread.hasContext = true;
      thread.stackPointer = thread.context.rsp;
      thread.instructionPointer = thread.context.rip;
    } else {
      thread.contextError = errno;
    }
  }
  return true;
}

// Without a tracer, a thread blocked in a system call still tells its
// stack and instruction pointers through /proc/<pid>/task/<tid>/syscall,
// which the process itself may always read.
void ReadBlockedThreadPointers(uint32_t pid, ThreadSnapshot* thread, Arena* arena) {
  TextBuilder path = ProcPath(pid, "/task/");
  path.AddDecimal(thread->tid).Add("/syscall");
  Bytes text;
  if (!ReadWholeFile(arena, path.c_str(), &text) || StartsWith(text, "running")) return;
  // "nr arg1 .. arg6 sp pc", or "-1 sp pc": the last two words.
  const char* end = text.data + text.size;
  while (end > text.data && (end[-1] == '\n' || end[-1] == ' ')) --end;
  const char* pcStart = end;
  while (pcStart > text.data && pcStart[-1] != ' ') --pcStart;
  const char* spStart = pcStart > text.data ? pcStart - 1 : pcStart;
  while (spStart > text.data && spStart[-1] != ' ') --spStart;
  uint64_t sp, pc;
  const char* p = spStart;
  if (!ParseHex(&p, pcStart, &sp)) return;
  p = pcStart;
  if (!ParseHex(&p, end, &pc)) return;
  thread->stackPointer = sp;
  thread->instructionPointer = pc;
}

void ListThreadsFromInside(const CaptureRequest& request, ProcessSnapshot* snapshot, TidList* list) {
  TextBuilder taskPath = ProcPath(request.pid, "/task");
  list->count = 0;
  ListFolder(taskPath.c_str(), CollectTid, list);
  const auto writer = static_cast<uint32_t>(syscall(SYS_gettid));  // this helper thread
  for (size_t i = 0; i < list->count; ++i) {
    if (list->tids[i] == request.exceptionThreadId || list->tids[i] == writer) continue;
    ThreadSnapshot* thread = snapshot->threads.Append();
    if (!thread) break;
    thread->tid = list->tids[i];
    thread->contextError = snapshot->traceError ? snapshot->traceError : EPERM;
    ReadBlockedThreadPointers(request.pid, thread, snapshot->arena);
  }
}

bool ParseMapsLine(Bytes line, Arena* arena, Mapping* out) {
  const char* p = line.data;
  const char* end = line.data + line.size;
  uint64_t major, minor;
  if (!ParseHex(&p, end, &out->start) || p >= end || *p++ != '-') return false;
  if (!ParseHex(&p, end, &out->end)) return false;
  SkipSpaces(&p, end);
  if (end - p < 4) return false;
  out->readable = p[0] == 'r';
  out->writable = p[1] == 'w';
  out->executable = p[2] == 'x';
  p += 4;
  SkipSpaces(&p, end);
  if (!ParseHex(&p, end, &out->offset)) return false;
  SkipSpaces(&p, end);
  if (!ParseHex(&p, end, &major) || p >= end || *p++ != ':' || !ParseHex(&p, end, &minor))
    return false;
  out->device = static_cast<uint32_t>(major << 8 | minor);
  SkipSpaces(&p, end);
  if (!ParseDecimal(&p, end, &out->inode)) return false;
  SkipSpaces(&p, end);
  out->path = arena->CopyString(p, static_cast<size_t>(end - p));
  return out->path != nullptr;
}

void ReadMappings(ProcessSnapshot* snapshot) {
  TextBuilder path = ProcPath(snapshot->pid, "/maps");
  if (!ReadWholeFile(snapshot->arena, path.c_str(), &snapshot->procMaps)) return;
  LineReader lines(snapshot->procMaps);
  Bytes line;
  while (lines.Next(&line)) {
    Mapping mapping{};
    if (ParseMapsLine(line, snapshot->arena, &mapping)) (void)snapshot->mappings.PushBack(mapping);
  }
}

// The kernel's own core dump leaves out what is marked MADV_DONTDUMP (a
// sanitizer's terabytes of shadow, this library's arena); so does the
// full-memory dump. Mappings with nothing resident or swapped are all zeros.
void ReadMappingDetails(ProcessSnapshot* snapshot) {
  Bytes text;
  if (!ReadWholeFile(snapshot->arena, ProcPath(snapshot->pid, "/smaps").c_str(), &text)) return;
  LineReader lines(text);
  Bytes line;
  Mapping* current = nullptr;
  size_t next = 0;
  uint64_t resident = 0, swapped = 0;
  auto finish = [&] {
    if (current) current->untouched = resident == 0 && swapped == 0;
  };
  auto sizeField = [](Bytes field) {
    const char* p = field.data;
    const char* end = field.data + field.size;
    while (p < end && *p != ':') ++p;
    if (p < end) ++p;
    SkipSpaces(&p, end);
    uint64_t value = 0;
    ParseDecimal(&p, end, &value);
    return value;
  };
  while (lines.Next(&line)) {
    if (StartsWith(line, "Rss:")) {
      resident = sizeField(line);
    } else if (StartsWith(line, "Swap:")) {
      swapped = sizeField(line);
    } else if (StartsWith(line, "VmFlags:")) {
      for (size_t i = 8; current && i + 2 <= line.size; ++i)
        if (line.data[i - 1] == ' ' && line.data[i] == 'd' && line.data[i + 1] == 'd' &&
            (i + 2 == line.size || line.data[i + 2] == ' '))
          current->dontDump = true;
    } else {
      // A mapping's first line: "start-end perms ..."; the others have a name and a colon.
      const char* p = line.data;
      uint64_t start;
      if (!ParseHex(&p, line.data + line.size, &start) || p >= line.data + line.size || *p != '-') continue;
      finish();
      current = nullptr;
      resident = swapped = 0;
      // Both lists are sorted; mappings that came or went meanwhile are skipped.
      while (next < snapshot->mappings.size() && snapshot->mappings[next].start < start) ++next;
      if (next < snapshot->mappings.size() && snapshot->mappings[next].start == start)
        current = &snapshot->mappings[next];
    }
  }
  finish();
}

const Mapping* FindMapping(const ProcessSnapshot& snapshot, uint64_t address, size_t* index) {
  size_t low = 0, high = snapshot.mappings.size();
  while (low < high) {
    size_t mid = (low + high) / 2;
    const Mapping& m = snapshot.mappings[mid];
    if (address < m.start) high = mid;
    else if (address >= m.end) low = mid + 1;
    else {
      if (index) *index = mid;
      return &m;
    }
  }
  if (index) *index = low;  // the first mapping above the address
  return nullptr;
}

MemoryRange StackRange(const ProcessSnapshot& snapshot, uint64_t sp) {
  size_t index = 0;
  const Mapping* m = FindMapping(snapshot, sp, &index);
  uint64_t start = sp > kRedZone ? sp - kRedZone : 0;
  if (!m || !m->readable) {
    // An overflow leaves the pointer in the guard page below the stack.
    if (m) ++index;
    if (index >= snapshot.mappings.size()) return {};
    m = &snapshot.mappings[index];
    if (!m->readable || m->start - sp > kGuardSearch) return {};
    start = m->start;
  }
  if (start < m->start) start = m->start;
  uint64_t end = m->end;
  if (end - start > kMaxStackBytes) end = start + kMaxStackBytes;
  return {start, end - start};
}

void FindStacks(ProcessSnapshot* snapshot) {
  for (ThreadSnapshot& thread : snapshot->threads)
    if (thread.stackPointer) thread.stack = StackRange(*snapshot, thread.stackPointer);
}

void ReadBuildId(ModuleSnapshot* module, Arena* arena) {
  Elf64_Ehdr header;
  if (ReadMemory(module->base, &header, sizeof(header)) != sizeof(header)) return;
  if (header.e_phentsize != sizeof(Elf64_Phdr) || header.e_phnum == 0 || header.e_phnum > 256) return;
  Elf64_Phdr phdrs[256];
  size_t bytes = header.e_phnum * sizeof(Elf64_Phdr);
  if (ReadMemory(module->base + header.e_phoff, phdrs, bytes) != bytes) return;
  uint64_t firstLoad = UINT64_MAX;
  for (size_t i = 0; i < header.e_phnum; ++i)
    if (phdrs[i].p_type == PT_LOAD && phdrs[i].p_vaddr < firstLoad) firstLoad = phdrs[i].p_vaddr;
  if (firstLoad == UINT64_MAX) return;
  uint64_t bias = module->base - (firstLoad & ~uint64_t{0xfff});
  for (size_t i = 0; i < header.e_phnum; ++i) {
    if (phdrs[i].p_type != PT_NOTE) continue;
    size_t size = phdrs[i].p_memsz < 65536 ? phdrs[i].p_memsz : 65536;
    auto* notes = static_cast<uint8_t*>(arena->Allocate(size, 8));
    if (!notes) return;
    size = ReadMemory(bias + phdrs[i].p_vaddr, notes, size);
    for (size_t offset = 0; offset + sizeof(Elf64_Nhdr) <= size;) {
      Elf64_Nhdr note;
      std::memcpy(&note, notes + offset, sizeof(note));
      size_t nameAt = offset + sizeof(note);
      size_t descAt = nameAt + ((note.n_namesz + 3) & ~3u);
      size_t next = descAt + ((note.n_descsz + 3) & ~3u);
      if (next > size) break;
      if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == 4 &&
          std::memcmp(notes + nameAt, "GNU", 4) == 0 && note.n_descsz <= sizeof(module->buildId)) {
        std::memcpy(module->buildId, notes + descAt, note.n_descsz);
        module->buildIdSize = note.n_descsz;
        return;
      }
      offset = next;
    }
  }
}

bool IsModuleStart(const Mapping& m) {
  if (m.offset != 0 || !m.readable || m.path[0] == '\0') return false;
  if (m.path[0] == '[' && std::strcmp(m.path, "[vdso]") != 0) return false;
  char magic[4];
  return ReadMemory(m.start, magic, 4) == 4 && std::memcmp(magic, ELFMAG, 4) == 0;
}

void FindModules(const CaptureRequest& request, ProcessSnapshot* snapshot) {
  const size_t count = snapshot->mappings.size();
  for (size_t i = 0; i < count; ++i) {
    const Mapping& first = snapshot->mappings[i];
    if (!IsModuleStart(first)) continue;
    size_t last = i;
    while (last + 1 < count) {
      const Mapping& next = snapshot->mappings[last + 1];
      if (next.inode != first.inode || next.device != first.device ||
          std::strcmp(next.path, first.path) != 0 || next.offset == 0)
        break;
      ++last;
    }
    MINIDUMP_CALLBACK_INPUT input{};
    MINIDUMP_CALLBACK_OUTPUT output{};
    input.CallbackType = IncludeModuleCallback;
    input.IncludeModuleBase = first.start;
    if (!CallBack(request, &input, &output)) continue;
    ModuleSnapshot* module = snapshot->modules.Append();
    if (!module) return;
    module->base = first.start;
    module->size = snapshot->mappings[last].end - first.start;
    module->path = std::strcmp(first.path, "[vdso]") == 0 ? "linux-vdso.so.1" : first.path;
    module->firstMapping = static_cast<uint32_t>(i);
    module->lastMapping = static_cast<uint32_t>(last);
    ReadBuildId(module, snapshot->arena);
    input = {};
    input.CallbackType = ModuleCallback;
    input.Module.FullPath = module->path;
    input.Module.BaseOfImage = module->base;
    input.Module.SizeOfImage = static_cast<uint32_t>(module->size);
    input.Module.BuildId = module->buildId;
    input.Module.SizeOfBuildId = module->buildIdSize;
    output.ModuleWriteFlags = ModuleWriteModule | ModuleWriteDataSeg | ModuleWriteCvRecord;
    if (!CallBack(request, &input, &output) || !(output.ModuleWriteFlags & ModuleWriteModule)) {
      snapshot->modules.Truncate(snapshot->modules.size() - 1);
      i = last;
      continue;
    }
    module->writeFlags = output.ModuleWriteFlags;
    i = last;
  }
}

// Thread candidates go through the callback: it may drop a thread or ask
// for less of it.
void FilterThreads(const CaptureRequest& request, ProcessSnapshot* snapshot) {
  for (ThreadSnapshot& thread : snapshot->threads) {
    thread.writeFlags = ThreadWriteThread | ThreadWriteStack | ThreadWriteContext |
                        ThreadWriteInstructionWindow | ThreadWriteThreadInfo;
    MINIDUMP_CALLBACK_INPUT input{};
    MINIDUMP_CALLBACK_OUTPUT output{};
    input.CallbackType = IncludeThreadCallback;
    input.IncludeThreadId = thread.tid;
    if (!CallBack(request, &input, &output)) {
      thread.writeFlags = 0;
      continue;
    }
    input = {};
    input.CallbackType = ThreadCallback;
    input.Thread.ThreadId = thread.tid;
    input.Thread.HasContext = thread.hasContext;
    input.Thread.InstructionPointer = thread.instructionPointer;
    input.Thread.StackPointer = thread.stackPointer;
    input.Thread.StackBase = thread.stack.start;
    input.Thread.StackEnd = thread.stack.start + thread.stack.size;
    output.ThreadWriteFlags = thread.writeFlags;
    thread.writeFlags = CallBack(request, &input, &output) ? output.ThreadWriteFlags : 0;
  }
}

void AddRange(ProcessSnapshot* snapshot, uint64_t start, uint64_t end) {
  if (end > start) (void)snapshot->extraMemory.PushBack({start, end - start});
}

// Sorts (few entries: insertion sort) and merges overlapping ranges, so
// that no address appears twice in the memory list.
void MergeRanges(ArenaVector<MemoryRange>* ranges) {
  for (size_t i = 1; i < ranges->size(); ++i) {
    MemoryRange value = (*ranges)[i];
    size_t j = i;
    for (; j > 0 && (*ranges)[j - 1].start > value.start; --j) (*ranges)[j] = (*ranges)[j - 1];
    (*ranges)[j] = value;
  }
  size_t out = 0;
  for (size_t i = 0; i < ranges->size(); ++i) {
    MemoryRange r = (*ranges)[i];
    if (out && (*ranges)[out - 1].start + (*ranges)[out - 1].size >= r.start) {
      MemoryRange& last = (*ranges)[out - 1];
      uint64_t end = r.start + r.size > last.start + last.size ? r.start + r.size : last.start + last.size;
      last.size = end - last.start;
    } else {
      (*ranges)[out++] = r;
    }
  }
  ranges->Truncate(out);
}

void FindExtraMemory(ProcessSnapshot* snapshot) {
  for (const ThreadSnapshot& thread : snapshot->threads) {
    if (!(thread.writeFlags & ThreadWriteInstructionWindow) || !thread.instructionPointer) continue;
    const Mapping* m = FindMapping(*snapshot, thread.instructionPointer, nullptr);
    if (!m || !m->readable) continue;
    uint64_t ip = thread.instructionPointer;
    uint64_t start = ip - m->start > kInstructionWindow ? ip - kInstructionWindow : m->start;
    uint64_t end = m->end - ip > kInstructionWindow ? ip + kInstructionWindow : m->end;
    AddRange(snapshot, start, end);
  }
  if (snapshot->dumpType & MiniDumpWithDataSegs) {
    for (const ModuleSnapshot& module : snapshot->modules) {
      if (!(module.writeFlags & ModuleWriteDataSeg)) continue;
      for (uint32_t i = module.firstMapping; i <= module.lastMapping; ++i) {
        const Mapping& m = snapshot->mappings[i];
        if (m.readable && m.writable) AddRange(snapshot, m.start, m.end);
      }
      // The zero-filled part of the data (.bss) follows as anonymous memory.
      uint32_t next = module.lastMapping + 1;
      if (next < snapshot->mappings.size()) {
        const Mapping& m = snapshot->mappings[next];
        if (m.readable && m.writable && m.path[0] == '\0' && m.inode == 0 &&
            m.start == snapshot->mappings[module.lastMapping].end)
          AddRange(snapshot, m.start, m.end);
      }
    }
  }
}

void ReadLinkMap(ProcessSnapshot* snapshot) {
  uint64_t phdrAddress = 0, phdrCount = 0;
  for (size_t i = 0; i + 16 <= snapshot->auxv.size; i += 16) {
    uint64_t type, value;
    std::memcpy(&type, snapshot->auxv.data + i, 8);
    std::memcpy(&value, snapshot->auxv.data + i + 8, 8);
    if (type == AT_PHDR) phdrAddress = value;
    if (type == AT_PHNUM) phdrCount = value;
  }
  if (!phdrAddress || !phdrCount || phdrCount > 256) return;
  Elf64_Phdr phdrs[256];
  size_t bytes = phdrCount * sizeof(Elf64_Phdr);
  if (ReadMemory(phdrAddress, phdrs, bytes) != bytes) return;
  uint64_t bias = 0, dynamic = 0;
  for (size_t i = 0; i < phdrCount; ++i)
    if (phdrs[i].p_type == PT_PHDR) bias = phdrAddress - phdrs[i].p_vaddr;
  for (size_t i = 0; i < phdrCount; ++i)
    if (phdrs[i].p_type == PT_DYNAMIC) dynamic = bias + phdrs[i].p_vaddr;
  if (!dynamic) return;
  snapshot->dynamicAddress = dynamic;
  uint64_t rDebug = 0;
  for (size_t i = 0; i < 1024 && !rDebug; ++i) {
    Elf64_Dyn entry;
    if (ReadMemory(dynamic + i * sizeof(entry), &entry, sizeof(entry)) != sizeof(entry)) return;
    if (entry.d_tag == DT_NULL) break;
    if (entry.d_tag == DT_DEBUG) rDebug = entry.d_un.d_ptr;
  }
  if (!rDebug) return;
  struct {
    int32_t version;
    uint32_t pad;
    uint64_t map, brk, state, ldBase;
  } debug;
  if (ReadMemory(rDebug, &debug, sizeof(debug)) != sizeof(debug)) return;
  snapshot->rDebugVersion = static_cast<uint64_t>(debug.version);
  snapshot->rDebugBrk = debug.brk;
  snapshot->rDebugLdBase = debug.ldBase;
  uint64_t entryAddress = debug.map;
  for (size_t n = 0; entryAddress && n < kMaxLinkMapEntries; ++n) {
    struct {
      uint64_t addr, name, ld, next, prev;
    } link;
    if (ReadMemory(entryAddress, &link, sizeof(link)) != sizeof(link)) break;
    char name[4096];
    size_t length = 0;
    // Read the name a little at a time: it may end just before an unmapped page.
    while (link.name && length < sizeof(name) - 1) {
      size_t got = ReadMemory(link.name + length, name + length, 64 < sizeof(name) - 1 - length ? 64 : sizeof(name) - 1 - length);
      if (got == 0) break;
      const void* nul = std::memchr(name + length, '\0', got);
      if (nul) {
        length = static_cast<size_t>(static_cast<const char*>(nul) - name);
        break;
      }
      length += got;
    }
    LinkMapEntry* entry = snapshot->linkMap.Append();
    if (!entry) break;
    entry->addr = link.addr;
    entry->ld = link.ld;
    entry->name = snapshot->arena->CopyString(name, length);
    entryAddress = link.next;
  }
}

void CollectFd(const char* name, void* context) {
  auto* snapshot = static_cast<ProcessSnapshot*>(context);
  const char* p = name;
  uint64_t fd;
  if (!ParseDecimal(&p, p + std::strlen(name), &fd)) return;
  TextBuilder link = ProcPath(snapshot->pid, "/fd/");
  link.Add(name);
  char target[4096];
  ssize_t n = SysReadlink(link.c_str(), target, sizeof(target) - 1);
  if (n < 0) n = 0;
  target[n] = '\0';
  // The descriptor that lists the folder right now is ours, not the process's.
  TextBuilder folder = ProcPath(snapshot->pid, "/fd");
  if (std::strcmp(target, folder.c_str()) == 0) return;
  FileDescriptorSnapshot* entry = snapshot->fds.Append();
  if (!entry) return;
  entry->fd = static_cast<int>(fd);
  entry->target = snapshot->arena->CopyString(target, static_cast<size_t>(n));
  TextBuilder infoPath = ProcPath(snapshot->pid, "/fdinfo/");
  infoPath.Add(name);
  Bytes info;
  if (!ReadWholeFile(snapshot->arena, infoPath.c_str(), &info)) return;
  LineReader lines(info);
  Bytes line;
  while (lines.Next(&line)) {
    if (!StartsWith(line, "flags:")) continue;
    const char* q = line.data + 6;
    const char* end = line.data + line.size;
    SkipSpaces(&q, end);
    uint64_t flags = 0;
    for (; q < end && *q >= '0' && *q <= '7'; ++q) flags = flags * 8 + static_cast<uint64_t>(*q - '0');
    entry->flags = static_cast<uint32_t>(flags);
  }
}

// Fields 14, 15 and 22 of a stat line: user time, system time, start time.
bool ParseStat(Bytes text, uint64_t* user, uint64_t* system, uint64_t* start) {
  const char* end = text.data + text.size;
  const char* p = end;
  while (p > text.data && p[-1] != ')') --p;  // the name may hold anything
  if (p == text.data) return false;
  int field = 2;
  while (p < end && field < 22) {
    SkipSpaces(&p, end);
    ++field;
    uint64_t value = 0;
    const char* word = p;
    while (p < end && *p != ' ') ++p;
    const char* w = word;
    ParseDecimal(&w, p, &value);
    if (field == 14) *user = value;
    if (field == 15) *system = value;
    if (field == 22) *start = value;
  }
  return field == 22;
}

void ReadTimes(ProcessSnapshot* snapshot) {
  Bytes text;
  TextBuilder path = ProcPath(snapshot->pid, "/stat");
  if (ReadWholeFile(snapshot->arena, path.c_str(), &text))
    ParseStat(text, &snapshot->processUserTicks, &snapshot->processSystemTicks, &snapshot->processStartTicks);
  if (ReadWholeFile(snapshot->arena, "/proc/stat", &text)) {
    LineReader lines(text);
    Bytes line;
    while (lines.Next(&line)) {
      if (!StartsWith(line, "btime ")) continue;
      const char* p = line.data + 6;
      ParseDecimal(&p, line.data + line.size, &snapshot->bootTime);
    }
  }
  unsigned long ticks = getauxval(AT_CLKTCK);
  if (ticks) snapshot->clockTicksPerSecond = ticks;
}

void ReadThreadTimes(ProcessSnapshot* snapshot, uint32_t exceptionThreadId) {
  auto add = [&](uint32_t tid) {
    ThreadTimes* times = snapshot->threadTimes.Append();
    if (!times) return;
    times->tid = tid;
    TextBuilder path = ProcPath(snapshot->pid, "/task/");
    path.AddDecimal(tid).Add("/stat");
    Bytes text;
    if (ReadWholeFile(snapshot->arena, path.c_str(), &text))
      ParseStat(text, &times->userTicks, &times->systemTicks, &times->startTicks);
    uint64_t mask[16] = {};
    if (syscall(SYS_sched_getaffinity, tid, sizeof(mask), mask) > 0) times->affinity = mask[0];
  };
  add(exceptionThreadId);
  for (const ThreadSnapshot& thread : snapshot->threads)
    if (thread.tid != exceptionThreadId) add(thread.tid);
}

void ReadCpu(ProcessSnapshot* snapshot) {
  unsigned a, b, c, d;
  if (__get_cpuid(0, &a, &b, &c, &d)) {
    snapshot->cpuVendor[0] = b;
    snapshot->cpuVendor[1] = d;
    snapshot->cpuVendor[2] = c;
  }
  if (__get_cpuid(1, &a, &b, &c, &d)) {
    snapshot->cpuVersion = a;
    snapshot->cpuFeatures = d;
    uint32_t family = (a >> 8) & 0xf, model = (a >> 4) & 0xf, stepping = a & 0xf;
    if (family == 0xf) family += (a >> 20) & 0xff;
    if (family == 0x6 || family >= 0xf) model += ((a >> 16) & 0xf) << 4;
    snapshot->cpuFamily = static_cast<uint16_t>(family);
    snapshot->cpuModelStepping = static_cast<uint16_t>(model << 8 | stepping);
  }
  if (__get_cpuid(0x80000001, &a, &b, &c, &d)) snapshot->cpuAmdFeatures = d;
  snapshot->processorCount = CountProcessors(snapshot->arena);
}

void ReadTexts(ProcessSnapshot* snapshot) {
  Arena* arena = snapshot->arena;
  uint32_t pid = snapshot->pid;
  (void)ReadWholeFile(arena, ProcPath(pid, "/status").c_str(), &snapshot->procStatus);
  (void)ReadWholeFile(arena, ProcPath(pid, "/cmdline").c_str(), &snapshot->cmdLine);
  (void)ReadWholeFile(arena, ProcPath(pid, "/environ").c_str(), &snapshot->environ);
  (void)ReadWholeFile(arena, ProcPath(pid, "/auxv").c_str(), &snapshot->auxv);
  (void)ReadWholeFile(arena, "/proc/cpuinfo", &snapshot->cpuInfo);
  if (!ReadWholeFile(arena, "/etc/lsb-release", &snapshot->osRelease))
    (void)ReadWholeFile(arena, "/etc/os-release", &snapshot->osRelease);
  ::uname(&snapshot->uname);
}

}  // namespace

bool ReadProcess(const CaptureRequest& request, ProcessSnapshot* snapshot) {
  snapshot->pid = request.pid;
  snapshot->dumpType = request.dumpType;
  snapshot->hasException = request.hasException;
  snapshot->exceptionThreadId = request.exceptionThreadId;
  if (request.hasException) {
    snapshot->signalNumber = request.signalInfo.si_signo;
    snapshot->signalCode = request.signalInfo.si_code;
    snapshot->faultAddress = reinterpret_cast<uint64_t>(request.signalInfo.si_addr);
  }
  snapshot->captureMethod = request.useTracer ? kCaptureByTracer : kCaptureFromInside;

  // The faulting thread comes first, with the registers of the signal.
  ThreadSnapshot* crashed = snapshot->threads.Append();
  if (!crashed) return true;
  crashed->tid = request.exceptionThreadId;
  if (request.context) {
    ContextFromSignal(*request.context, &crashed->context);
    crashed->hasContext = true;
    crashed->stackPointer = crashed->context.rsp;
    crashed->instructionPointer = crashed->context.rip;
  }
  if (request.hasException && snapshot->faultAddress == 0 &&
      (request.signalInfo.si_signo == SIGABRT || request.signalInfo.si_code <= 0))
    snapshot->faultAddress = crashed->instructionPointer;  // sent, not a fault: no address

  auto* tids = static_cast<TidList*>(snapshot->arena->Allocate(sizeof(TidList)));
  if (!tids) return true;
  if (request.useTracer) {
    if (!StopOtherThreads(request, snapshot, tids)) return false;
  } else {
    ListThreadsFromInside(request, snapshot, tids);
  }

  ReadMappings(snapshot);
  ReadTexts(snapshot);
  FindStacks(snapshot);
  FilterThreads(request, snapshot);
  FindModules(request, snapshot);
  FindExtraMemory(snapshot);
  MergeRanges(&snapshot->extraMemory);
  ReadLinkMap(snapshot);
  ReadCpu(snapshot);
  ReadTimes(snapshot);
  if (request.dumpType & MiniDumpWithHandleData)
    ListFolder(ProcPath(request.pid, "/fd").c_str(), CollectFd, snapshot);
  if (request.dumpType & MiniDumpWithProcessThreadData) ReadThreadTimes(snapshot, request.exceptionThreadId);
  if (request.dumpType & MiniDumpWithFullMemory) ReadMappingDetails(snapshot);
  return true;
}

void ReleaseProcess(ProcessSnapshot* snapshot) {
  for (ThreadSnapshot& thread : snapshot->threads) {
    if (!thread.attached) continue;
    ReleaseThread(thread.tid, thread.pendingSignal);
    thread.attached = false;
  }
}

}  // namespace mldbghelp
