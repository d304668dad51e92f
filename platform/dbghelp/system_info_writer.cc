#include <cstring>

#include "platform/dbghelp/system_files.h"
#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {
namespace {

// "6.1.0-18-amd64" gives 6, 1, 0; anything missing stays 0.
void ParseRelease(const char* release, uint32_t numbers[3]) {
  const char* p = release;
  const char* end = release + std::strlen(release);
  for (int i = 0; i < 3; ++i) {
    uint64_t value = 0;
    if (!ParseDecimal(&p, end, &value)) return;
    numbers[i] = static_cast<uint32_t>(value);
    if (p >= end || *p != '.') return;
    ++p;
  }
}

}  // namespace

bool WriteSystemInfoStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry) {
  // The version text is the whole uname, as readers show it.
  TextBuilder text;
  text.Add(snapshot.uname.sysname).Add(" ").Add(snapshot.uname.release).Add(" ")
      .Add(snapshot.uname.version).Add(" ").Add(snapshot.uname.machine);
  uint32_t textRva = file->WriteString(text.c_str());
  if (!textRva) return false;

  SystemInfo info{};
  info.processorArchitecture = kProcessorArchitectureAmd64;
  info.processorLevel = snapshot.cpuFamily;
  info.processorRevision = snapshot.cpuModelStepping;
  info.numberOfProcessors = static_cast<uint8_t>(snapshot.processorCount > 255 ? 255 : snapshot.processorCount);
  uint32_t version[3] = {};
  ParseRelease(snapshot.uname.release, version);
  info.majorVersion = version[0];
  info.minorVersion = version[1];
  info.buildNumber = version[2];
  info.platformId = kPlatformIdLinux;
  info.csdVersionRva = textRva;
  std::memcpy(info.vendorId, snapshot.cpuVendor, sizeof(info.vendorId));
  info.versionInformation = snapshot.cpuVersion;
  info.featureInformation = snapshot.cpuFeatures;
  info.amdExtendedCpuFeatures = snapshot.cpuAmdFeatures;
  if (!file->Align(8)) return false;
  const uint32_t rva = file->rva();
  if (!file->Write(&info, sizeof(info))) return false;
  *entry = {kSystemInfoStream, {static_cast<uint32_t>(sizeof(info)), rva}};
  return true;
}

}  // namespace mldbghelp
