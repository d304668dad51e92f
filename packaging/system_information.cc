#include "packaging/system_information.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/file_io.h"
#include "shell/format_string.h"
#include "shell/registry.h"
#include "shell/string_helpers.h"

namespace Marlowen {
namespace {

constexpr char16_t kNotAvailable[] = u"OS information not available.";
constexpr char16_t kUnknownPlatform[] = u"OS information unknown.";

constexpr std::uint32_t kPlatformWin32s = 0;
constexpr std::uint32_t kPlatformWindows = 1;
constexpr std::uint32_t kPlatformNt = 2;

constexpr std::uint8_t kProductWorkstation = 1;
constexpr std::uint8_t kProductServer = 3;

constexpr std::uint16_t kSuiteEnterprise = 0x0002;
constexpr std::uint16_t kSuiteDatacenter = 0x0080;
constexpr std::uint16_t kSuitePersonal = 0x0200;
constexpr std::uint16_t kSuiteBlade = 0x0400;

constexpr char16_t kProductOptionsKey[] = u"\\\\HKLM\\SYSTEM\\CurrentControlSet\\Control\\ProductOptions";
constexpr char16_t kServicePack6aKey[] =
    u"\\\\HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Hotfix\\Q246009";

// Architecture numbers of the other platform's processor record.
constexpr std::uint32_t kArchIntel = 0;
constexpr std::uint32_t kArchMips = 1;
constexpr std::uint32_t kArchAlpha = 2;
constexpr std::uint32_t kArchPpc = 3;
constexpr std::uint32_t kArchArm = 5;
constexpr std::uint32_t kArchIa64 = 6;
constexpr std::uint32_t kArchAmd64 = 9;
constexpr std::uint32_t kArchArm64 = 12;
constexpr std::uint32_t kArchUnknown = 0xFFFF;

// The top of user space on x86-64 with four-level paging: what a process
// could map at most when no address-space limit is set.
constexpr std::uint64_t kUserAddressSpaceBytes = (std::uint64_t{1} << 47) - 4096;

constexpr std::uint64_t kKibibyte = 1024;

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

WideString Widen(std::string_view text) { return Utf8ToWide(text); }

// Edition text for systems that gave the extended version record.
WideString ExtendedEdition(const OsVersionValues& v) {
  if (v.productType == kProductWorkstation) {
    if (v.majorVersion == 4) return u" Workstation 4.0";
    if (v.suiteMask & kSuitePersonal) return u" Home Edition";
    return u" Professional";
  }
  if (v.productType == kProductServer) {
    if (v.majorVersion == 5 && v.minorVersion == 2) {
      if (v.suiteMask & kSuiteDatacenter) return u" Datacenter Edition";
      if (v.suiteMask & kSuiteEnterprise) return u" Enterprise Edition";
      // Equality on purpose: a mask with further bits is a standard edition.
      if (v.suiteMask == kSuiteBlade) return u" Web Edition";
      return u" Standard Edition";
    }
    if (v.majorVersion == 5 && v.minorVersion == 0) {
      if (v.suiteMask & kSuiteDatacenter) return u" Datacenter Server";
      if (v.suiteMask & kSuiteEnterprise) return u" Advanced Server";
      return u" Server";
    }
    // Also every later server system.
    if (v.suiteMask & kSuiteEnterprise) return u" Server 4.0, Enterprise Edition";
    return u" Server 4.0";
  }
  return WideString();
}

// Edition text from the registry, for systems without the extended record.
WideString RegistryEdition(const OsVersionValues& v) {
  const WideString productType = ReadRegistryString(kProductOptionsKey, u"ProductType");
  if (productType.empty()) return WideString();
  const WideString upper = ToUpperCopy(productType);
  const int major = static_cast<int>(v.majorVersion);
  const int minor = static_cast<int>(v.minorVersion);
  if (upper == u"WINNT") return FormatString(u" WorkStation %d.%d", major, minor);
  if (upper == u"LANMANNT") return FormatString(u" Server %d.%d", major, minor);
  if (upper == u"SERVERNT") return FormatString(u" Advanced Server %d.%d", major, minor);
  return WideString();
}

WideString DescribeNt(const OsVersionValues& v) {
  WideString text = kNotAvailable;
  if (v.majorVersion == 5) {
    if (v.minorVersion == 2) text = u"Microsoft Windows Server 2003 Family";
    else if (v.minorVersion == 1) text = u"Microsoft Windows XP";
    else if (v.minorVersion == 0) text = u"Microsoft Windows 2000";
  } else if (v.majorVersion <= 4) {
    text = u"Microsoft Windows NT";
  }
  // Major 6 and later: the tree knows no name, so the text of the failed
  // start stays as the base.

  text += v.extended ? ExtendedEdition(v) : RegistryEdition(v);

  const int build = static_cast<int>(v.buildNumber & 0xFFFF);
  if (v.majorVersion == 4 && ToUpperCopy(v.csdVersion) == u"SERVICE PACK 6" &&
      !ReadRegistryString(kServicePack6aKey, u"").empty()) {
    text += FormatString(u", Service Pack 6a ( Build %d )", build);
  } else {
    text += FormatString(u", %s ( Build %d )", v.csdVersion.c_str(), build);
  }
  return text;
}

WideString DescribeWindows9x(const OsVersionValues& v) {
  if (v.majorVersion != 4) return kNotAvailable;
  const char16_t csd1 = v.csdVersion.size() > 1 ? v.csdVersion[1] : u'\0';
  switch (v.minorVersion) {
    case 0: {
      WideString text = u"Microsoft Windows 95";
      if (csd1 == u'C' || csd1 == u'B') text += u" OSR2";
      return text;
    }
    case 10: {
      WideString text = u"Microsoft Windows 98";
      if (csd1 == u'A') text += u" SE";
      return text;
    }
    case 90:
      return u"Microsoft Windows ME";
    default:
      return kNotAvailable;
  }
}

// The value of one os-release assignment: quotes removed, and inside
// double quotes the shell's backslash escapes undone.
std::string UnquoteOsReleaseValue(std::string_view value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
      value.back() == value.front()) {
    const char quote = value.front();
    value = value.substr(1, value.size() - 2);
    if (quote == '\'') return std::string(value);
    std::string result;
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (value[i] == '\\' && i + 1 < value.size()) ++i;
      result += value[i];
    }
    return result;
  }
  return std::string(value);
}

std::string OsReleaseValue(std::string_view osRelease, std::string_view key) {
  std::size_t start = 0;
  while (start < osRelease.size()) {
    std::size_t end = osRelease.find('\n', start);
    if (end == std::string_view::npos) end = osRelease.size();
    std::string_view line = osRelease.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r'))
      line.remove_suffix(1);
    if (line.size() > key.size() && StartsWith(line, key) && line[key.size()] == '=') {
      return UnquoteOsReleaseValue(line.substr(key.size() + 1));
    }
  }
  return std::string();
}

// The number behind "key" and a colon in /proc's "key: value" layouts; the
// first match counts.
bool ProcField(std::string_view text, std::string_view key, std::uint64_t& value) {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    if (!StartsWith(line, key)) continue;
    std::string_view rest = line.substr(key.size());
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    if (rest.empty() || rest.front() != ':') continue;
    rest.remove_prefix(1);
    const std::string digits(rest);
    char* stop = nullptr;
    const unsigned long long parsed = std::strtoull(digits.c_str(), &stop, 10);
    if (stop == digits.c_str()) return false;
    value = parsed;
    return true;
  }
  return false;
}

std::uint32_t AffinityMaskLow32() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) != 0) return 0;
  std::uint32_t mask = 0;
  for (int cpu = 0; cpu < 32; ++cpu) {
    if (CPU_ISSET(cpu, &set)) mask |= std::uint32_t{1} << cpu;
  }
  return mask;
}

}  // namespace

WideString DescribeOsVersion(const std::optional<OsVersionValues>& version) {
  if (!version) return kNotAvailable;
  switch (version->platformId) {
    case kPlatformWin32s:
      return u"Microsoft Win32s";
    case kPlatformWindows:
      return DescribeWindows9x(*version);
    case kPlatformNt:
      return DescribeNt(*version);
    default:
      return kUnknownPlatform;
  }
}

WideString DescribeLinuxSystem(std::string_view osRelease, const KernelFacts& kernel) {
  std::string name = OsReleaseValue(osRelease, "PRETTY_NAME");
  if (name.empty()) {
    name = OsReleaseValue(osRelease, "NAME");
    const std::string version = OsReleaseValue(osRelease, "VERSION");
    if (!name.empty() && !version.empty()) name += " " + version;
  }

  std::string kernelText(kernel.sysname);
  if (!kernel.release.empty()) {
    if (!kernelText.empty()) kernelText += ' ';
    kernelText += kernel.release;
  }
  if (!kernel.version.empty() && !kernelText.empty()) {
    kernelText += " ( ";
    kernelText += kernel.version;
    kernelText += " )";
  }

  if (name.empty() && kernelText.empty()) return kNotAvailable;
  if (name.empty()) return Widen(kernelText);
  if (kernelText.empty()) return Widen(name);
  return Widen(name + ", " + kernelText);
}

std::uint32_t ArchitectureFromMachineName(std::string_view machine) {
  if (machine == "x86_64" || machine == "amd64") return kArchAmd64;
  if (machine == "i386" || machine == "i486" || machine == "i586" || machine == "i686" ||
      machine == "x86")
    return kArchIntel;
  if (machine == "ia64") return kArchIa64;
  if (machine == "aarch64" || machine == "arm64") return kArchArm64;
  if (StartsWith(machine, "arm")) return kArchArm;
  if (StartsWith(machine, "mips")) return kArchMips;
  if (machine == "alpha") return kArchAlpha;
  if (StartsWith(machine, "ppc") || StartsWith(machine, "powerpc")) return kArchPpc;
  return kArchUnknown;
}

SystemInformationT::SystemInformationT() { Collect(); }

SystemInformationT::~SystemInformationT() = default;

void SystemInformationT::Collect() {
  struct utsname names {};
  std::uint32_t architecture = kArchUnknown;
  if (uname(&names) == 0) architecture = ArchitectureFromMachineName(names.machine);

  os = DescribeOperatingSystem();
  // The OEM word is the architecture in its low half and a reserved zero
  // in its high half; both are named.
  processorOemId = ProcessorArchitectureName(architecture);
  processorArchitecture = ProcessorArchitectureName(architecture & 0xFFFF);

  std::string cpuInfo;
  if (platform::ReadWholeFile("/proc/cpuinfo", cpuInfo)) {
    std::uint64_t family = 0, model = 0, stepping = 0;
    if (ProcField(cpuInfo, "cpu family", family)) processorLevel = static_cast<std::uint16_t>(family);
    const bool hasModel = ProcField(cpuInfo, "model", model);
    const bool hasStepping = ProcField(cpuInfo, "stepping", stepping);
    if (hasModel || hasStepping) {
      processorRevision = static_cast<std::uint16_t>(((model & 0xFF) << 8) | (stepping & 0xFF));
    }
  }

  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  if (online > 0) processorCount = static_cast<std::uint32_t>(online);
  processorMask = AffinityMaskLow32();
  const long page = sysconf(_SC_PAGESIZE);
  if (page > 0) pageSize = static_cast<std::uint32_t>(page);

  CollectMemoryStatus();
}

void SystemInformationT::CollectMemoryStatus() {
  std::string memInfo;
  if (!platform::ReadWholeFile("/proc/meminfo", memInfo)) return;
  std::uint64_t memTotal = 0, memAvailable = 0, swapTotal = 0, swapFree = 0;
  if (!ProcField(memInfo, "MemTotal", memTotal) || memTotal == 0) return;
  if (!ProcField(memInfo, "MemAvailable", memAvailable)) {
    // Kernels before 3.14 lack the estimate; free plus caches comes closest.
    std::uint64_t memFree = 0, buffers = 0, cached = 0;
    ProcField(memInfo, "MemFree", memFree);
    ProcField(memInfo, "Buffers", buffers);
    ProcField(memInfo, "Cached", cached);
    memAvailable = memFree + buffers + cached;
  }
  if (memAvailable > memTotal) memAvailable = memTotal;
  ProcField(memInfo, "SwapTotal", swapTotal);
  ProcField(memInfo, "SwapFree", swapFree);

  std::uint64_t addressSpace = kUserAddressSpaceBytes;
  struct rlimit limit {};
  if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      limit.rlim_cur < addressSpace) {
    addressSpace = limit.rlim_cur;
  }
  std::uint64_t mapped = 0;
  std::string status;
  if (platform::ReadWholeFile("/proc/self/status", status)) ProcField(status, "VmSize", mapped);
  mapped *= kKibibyte;

  memoryLoad = static_cast<std::uint32_t>((memTotal - memAvailable) * 100 / memTotal);
  totalPhysical = memTotal * kKibibyte;
  availablePhysical = memAvailable * kKibibyte;
  totalCommitted = (memTotal + swapTotal) * kKibibyte;
  availableCommitted = (memAvailable + swapFree) * kKibibyte;
  totalVirtual = addressSpace;
  availableVirtual = mapped < addressSpace ? addressSpace - mapped : 0;
  // The other platform has never reported anything here but zero.
  availableExtended = 0;
}

WideString SystemInformationT::DescribeOperatingSystem() {
  std::string osRelease;
  if (!platform::ReadWholeFile("/etc/os-release", osRelease)) {
    (void)platform::ReadWholeFile("/usr/lib/os-release", osRelease);
  }
  struct utsname names {};
  if (uname(&names) != 0) return DescribeLinuxSystem(osRelease, KernelFacts{});
  return DescribeLinuxSystem(osRelease, KernelFacts{names.sysname, names.release, names.version});
}

WideString SystemInformationT::ProcessorArchitectureName(std::uint32_t value) {
  switch (value) {
    case 0: return u"Intel";
    case 1: return u"Mips";
    case 2: return u"Alpha";
    case 3: return u"PPC";
    case 6: return u"IA64";
    case 9: return u"AMD64";
    case 10: return u"IA32 on WIN64";
    default: return u"Unknown";
  }
}

}  // namespace Marlowen
