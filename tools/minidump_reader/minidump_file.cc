#include "tools/minidump_reader/minidump_file.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace minidump_reader {
namespace {

// Field offsets of the published records, written out here on purpose
// instead of sharing the writer's structures.
constexpr uint32_t kSignature = 0x504d444d;
constexpr size_t kThreadSize = 48;
constexpr size_t kModuleSize = 108;
constexpr size_t kContextSize = 1232;
constexpr uint32_t kCvElf = 0x4270454c;

std::string Hex(uint64_t value) {
  std::ostringstream out;
  out << "0x" << std::hex << value;
  return out.str();
}

void AppendUtf8(std::string* out, uint32_t c) {
  if (c < 0x80) {
    out->push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out->push_back(static_cast<char>(0xc0 | c >> 6));
    out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
  } else if (c < 0x10000) {
    out->push_back(static_cast<char>(0xe0 | c >> 12));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3f)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
  } else {
    out->push_back(static_cast<char>(0xf0 | c >> 18));
    out->push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3f)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3f)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
  }
}

}  // namespace

template <typename T>
T MinidumpFile::At(uint64_t offset) const {
  T value{};
  if (Range(offset, sizeof(T))) std::memcpy(&value, bytes_.data() + offset, sizeof(T));
  return value;
}

bool MinidumpFile::Fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return false;
}

bool MinidumpFile::ReadString(uint32_t rva, std::string* out) const {
  uint32_t length = At<uint32_t>(rva);
  if (!Range(rva, 4) || !Range(rva + 4ULL, length) || length % 2) return false;
  out->clear();
  for (uint32_t i = 0; i < length; i += 2) {
    uint32_t unit = At<uint16_t>(rva + 4ULL + i);
    if (unit >= 0xd800 && unit < 0xdc00 && i + 2 < length) {
      uint32_t low = At<uint16_t>(rva + 6ULL + i);
      unit = 0x10000 + ((unit - 0xd800) << 10) + (low - 0xdc00);
      i += 2;
    }
    AppendUtf8(out, unit);
  }
  return true;
}

bool MinidumpFile::Open(const std::string& path, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return Fail(error, "cannot open " + path);
  bytes_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (bytes_.size() < 32) return Fail(error, "file too short for a header");
  if (At<uint32_t>(0) != kSignature) return Fail(error, "no minidump signature (incomplete file?)");
  if ((At<uint32_t>(4) & 0xffff) != 0xa793) return Fail(error, "unknown minidump version");
  uint32_t count = At<uint32_t>(8);
  uint32_t directoryRva = At<uint32_t>(12);
  flags_ = At<uint64_t>(24);
  if (!Range(directoryRva, uint64_t{count} * 12)) return Fail(error, "directory lies outside the file");
  for (uint32_t i = 0; i < count; ++i) {
    uint64_t at = directoryRva + uint64_t{i} * 12;
    uint32_t type = At<uint32_t>(at), size = At<uint32_t>(at + 4), rva = At<uint32_t>(at + 8);
    if (!Range(rva, size)) return Fail(error, "stream " + StreamName(type) + " lies outside the file");
    directory_.push_back({type, {size, rva}});
  }
  return ParseStreams(error);
}

bool MinidumpFile::HasStream(uint32_t type) const {
  for (const auto& d : directory_)
    if (d.first == type) return true;
  return false;
}

std::string MinidumpFile::Stream(uint32_t type) const {
  for (const auto& d : directory_)
    if (d.first == type) return bytes_.substr(d.second.second, d.second.first);
  return {};
}

bool MinidumpFile::ParseStreams(std::string* error) {
  for (const auto& [type, location] : directory_) {
    const uint32_t size = location.first;
    const uint64_t at = location.second;
    switch (type) {
      case 3: {  // thread list
        uint32_t n = At<uint32_t>(at);
        if (4 + uint64_t{n} * kThreadSize > size) return Fail(error, "thread list too short");
        for (uint32_t i = 0; i < n; ++i) {
          uint64_t t = at + 4 + i * kThreadSize;
          ThreadRecord r;
          r.id = At<uint32_t>(t);
          r.stackStart = At<uint64_t>(t + 24);
          r.stackSize = At<uint32_t>(t + 32);
          uint32_t stackRva = At<uint32_t>(t + 36);
          uint32_t contextSize = At<uint32_t>(t + 40), contextRva = At<uint32_t>(t + 44);
          if (!Range(stackRva, r.stackSize) || contextSize < kContextSize || !Range(contextRva, contextSize))
            return Fail(error, "thread " + std::to_string(r.id) + " points outside the file");
          r.contextFlags = At<uint32_t>(contextRva + 0x30);
          r.rsp = At<uint64_t>(contextRva + 0x98);
          r.rbp = At<uint64_t>(contextRva + 0xa0);
          r.rip = At<uint64_t>(contextRva + 0xf8);
          threads_.push_back(r);
        }
        break;
      }
      case 4: {  // module list
        uint32_t n = At<uint32_t>(at);
        if (4 + uint64_t{n} * kModuleSize > size) return Fail(error, "module list too short");
        for (uint32_t i = 0; i < n; ++i) {
          uint64_t m = at + 4 + i * kModuleSize;
          ModuleRecord r;
          r.base = At<uint64_t>(m);
          r.size = At<uint32_t>(m + 8);
          if (!ReadString(At<uint32_t>(m + 20), &r.path)) return Fail(error, "module name outside the file");
          uint32_t cvSize = At<uint32_t>(m + 76), cvRva = At<uint32_t>(m + 80);
          if (cvSize >= 4 && Range(cvRva, cvSize) && At<uint32_t>(cvRva) == kCvElf) {
            static const char* kDigits = "0123456789abcdef";
            for (uint32_t k = 4; k < cvSize; ++k) {
              auto byte = static_cast<uint8_t>(bytes_[cvRva + k]);
              r.buildId += kDigits[byte >> 4];
              r.buildId += kDigits[byte & 15];
            }
          }
          modules_.push_back(r);
        }
        break;
      }
      case 5: {  // memory list
        uint32_t n = At<uint32_t>(at);
        if (4 + uint64_t{n} * 16 > size) return Fail(error, "memory list too short");
        for (uint32_t i = 0; i < n; ++i) {
          uint64_t d = at + 4 + i * 16;
          MemoryRegion r{At<uint64_t>(d), At<uint32_t>(d + 8), At<uint32_t>(d + 12)};
          if (!Range(r.fileOffset, r.size)) return Fail(error, "memory range outside the file");
          memory_.push_back(r);
        }
        break;
      }
      case 9: {  // memory64 list
        uint64_t n = At<uint64_t>(at);
        uint64_t offset = At<uint64_t>(at + 8);
        if (16 + n * 16 > size) return Fail(error, "memory64 list too short");
        for (uint64_t i = 0; i < n; ++i) {
          MemoryRegion r{At<uint64_t>(at + 16 + i * 16), At<uint64_t>(at + 24 + i * 16), offset};
          if (!Range(r.fileOffset, r.size)) return Fail(error, "memory64 range outside the file");
          offset += r.size;
          memory64_.push_back(r);
        }
        break;
      }
      case 6: {  // exception
        if (size < 168) return Fail(error, "exception stream too short");
        exception_ = ExceptionRecord{At<uint32_t>(at), At<uint32_t>(at + 8), At<uint32_t>(at + 12),
                                     At<uint64_t>(at + 24)};
        break;
      }
      case 7: {  // system info
        if (size < 56) return Fail(error, "system info too short");
        SystemRecord r;
        r.architecture = At<uint16_t>(at);
        r.family = At<uint16_t>(at + 2);
        r.modelStepping = At<uint16_t>(at + 4);
        r.processors = At<uint8_t>(at + 6);
        r.platformId = At<uint32_t>(at + 20);
        ReadString(At<uint32_t>(at + 24), &r.osText);
        system_ = r;
        break;
      }
      case 12: {  // handle data
        uint32_t header = At<uint32_t>(at), entry = At<uint32_t>(at + 4), n = At<uint32_t>(at + 8);
        if (header + uint64_t{n} * entry > size || entry < 16) return Fail(error, "handle data too short");
        for (uint32_t i = 0; i < n; ++i) {
          uint64_t d = at + header + uint64_t{i} * entry;
          HandleRecord r;
          r.handle = At<uint64_t>(d);
          ReadString(At<uint32_t>(d + 8), &r.type);
          ReadString(At<uint32_t>(d + 12), &r.target);
          handles_.push_back(r);
        }
        break;
      }
      case 17: {  // thread info list
        uint32_t header = At<uint32_t>(at), entry = At<uint32_t>(at + 4), n = At<uint32_t>(at + 8);
        if (header + uint64_t{n} * entry > size || entry < 12) return Fail(error, "thread info list too short");
        for (uint32_t i = 0; i < n; ++i) {
          uint64_t d = at + header + uint64_t{i} * entry;
          threadInfo_.push_back({At<uint32_t>(d), At<uint32_t>(d + 4), At<uint32_t>(d + 8)});
        }
        break;
      }
      case 0x4d4c0001: {  // how the dump was collected
        uint32_t header = At<uint32_t>(at);
        CaptureRecord r;
        r.method = At<uint32_t>(at + 4);
        r.traceError = At<int32_t>(at + 8);
        uint32_t n = At<uint32_t>(at + 12);
        if (header + uint64_t{n} * 4 > size) return Fail(error, "capture info too short");
        for (uint32_t i = 0; i < n; ++i) r.threadsWithoutContext.push_back(At<uint32_t>(at + header + i * 4));
        capture_ = r;
        break;
      }
      case 0x4767000a: {  // DSO debug
        uint32_t mapRva = At<uint32_t>(at + 4), n = At<uint32_t>(at + 8);
        if (n && !Range(mapRva, uint64_t{n} * 20)) return Fail(error, "link map outside the file");
        for (uint32_t i = 0; i < n; ++i) {
          std::string name;
          ReadString(At<uint32_t>(mapRva + i * 20ULL + 8), &name);
          dsoNames_.push_back(name);
        }
        break;
      }
      default:
        break;
    }
  }
  return true;
}

std::string MinidumpFile::ReadMemory(uint64_t address, uint64_t size) const {
  for (const auto* list : {&memory_, &memory64_}) {
    for (const MemoryRegion& r : *list) {
      if (address >= r.start && address - r.start <= r.size && size <= r.size - (address - r.start))
        return bytes_.substr(r.fileOffset + (address - r.start), size);
    }
  }
  return {};
}

bool MinidumpFile::MemoryContains(uint64_t value) const {
  for (const auto* list : {&memory_, &memory64_}) {
    for (const MemoryRegion& r : *list) {
      for (uint64_t i = 0; i + 8 <= r.size; i += 8)
        if (std::memcmp(bytes_.data() + r.fileOffset + i, &value, 8) == 0) return true;
    }
  }
  return false;
}

std::string StreamName(uint32_t type) {
  static const std::map<uint32_t, std::string> kNames = {
      {3, "ThreadList"},          {4, "ModuleList"},          {5, "MemoryList"},
      {6, "Exception"},           {7, "SystemInfo"},          {9, "Memory64List"},
      {12, "HandleData"},         {15, "MiscInfo"},           {17, "ThreadInfoList"},
      {0x47670003, "LinuxCpuInfo"}, {0x47670004, "LinuxProcStatus"}, {0x47670005, "LinuxLsbRelease"},
      {0x47670006, "LinuxCmdLine"}, {0x47670007, "LinuxEnviron"}, {0x47670008, "LinuxAuxv"},
      {0x47670009, "LinuxMaps"},  {0x4767000a, "LinuxDsoDebug"}, {0x4d4c0001, "CaptureInfo"},
  };
  auto it = kNames.find(type);
  return it != kNames.end() ? it->second : "Unknown(" + Hex(type) + ")";
}

std::string Describe(const MinidumpFile& dump) {
  std::ostringstream out;
  out << "Minidump, flags " << Hex(dump.flags()) << ", " << dump.directory().size() << " streams\n";
  for (const auto& [type, location] : dump.directory())
    out << "  stream " << StreamName(type) << " (" << Hex(type) << "): " << location.first << " bytes at "
        << Hex(location.second) << "\n";
  if (const auto& s = dump.system()) {
    out << "System: architecture " << s->architecture << ", platform " << Hex(s->platformId) << ", "
        << s->processors << " processors, CPU family " << s->family << " model " << (s->modelStepping >> 8)
        << " stepping " << (s->modelStepping & 0xff) << "\n  " << s->osText << "\n";
  }
  if (const auto& e = dump.exception())
    out << "Exception: thread " << e->threadId << ", signal " << e->signal << ", code " << e->code
        << ", address " << Hex(e->address) << "\n";
  if (const auto& c = dump.capture()) {
    out << "Capture: " << (c->method == 1 ? "tracer" : c->method == 2 ? "from inside" : "unknown");
    if (c->traceError) out << ", tracing refused (errno " << c->traceError << ")";
    out << ", " << c->threadsWithoutContext.size() << " threads without registers\n";
  }
  out << "Threads: " << dump.threads().size() << "\n";
  for (const ThreadRecord& t : dump.threads()) {
    out << "  " << t.id;
    if (t.contextFlags)
      out << " rip " << Hex(t.rip) << " rsp " << Hex(t.rsp);
    else
      out << " (no registers)";
    out << " stack " << Hex(t.stackStart) << " +" << t.stackSize << "\n";
  }
  out << "Modules: " << dump.modules().size() << "\n";
  for (const ModuleRecord& m : dump.modules())
    out << "  " << Hex(m.base) << " +" << Hex(m.size) << " " << m.path << " build id "
        << (m.buildId.empty() ? "(none)" : m.buildId) << "\n";
  uint64_t total = 0;
  for (const MemoryRegion& r : dump.memoryList()) total += r.size;
  out << "Memory list: " << dump.memoryList().size() << " ranges, " << total << " bytes\n";
  if (!dump.memory64List().empty()) {
    total = 0;
    for (const MemoryRegion& r : dump.memory64List()) total += r.size;
    out << "Memory64 list: " << dump.memory64List().size() << " ranges, " << total << " bytes\n";
  }
  if (!dump.handles().empty()) {
    out << "Handles: " << dump.handles().size() << "\n";
    for (const HandleRecord& h : dump.handles()) out << "  " << h.handle << " " << h.type << " " << h.target << "\n";
  }
  if (!dump.threadInfo().empty()) {
    out << "Thread info: " << dump.threadInfo().size() << "\n";
    for (const ThreadInfoRecord& t : dump.threadInfo())
      out << "  " << t.id << " flags " << Hex(t.dumpFlags) << " error " << t.dumpError << "\n";
  }
  if (!dump.dsoNames().empty()) out << "Loaded objects (r_debug): " << dump.dsoNames().size() << "\n";
  return out.str();
}

}  // namespace minidump_reader
