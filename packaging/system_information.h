// SystemInformationT: the machine on which a report is packaged, gathered
// afresh in the tool (not in the failing process) for the SYSTEM and
// SYSTEM_MEMORY parts of the report document.
//
// Which Linux figure stands for each field is written down in
// docs/packaging.md.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "shell/wide_string.h"

namespace Marlowen {

// The version values that the operating-system description is decided on,
// with the meanings and widths of the other platform's version record.
struct OsVersionValues {
  // Whether the extended form of the record was obtained; without it the
  // edition comes from the registry instead.
  bool extended = false;
  std::uint32_t platformId = 0;
  std::uint32_t majorVersion = 0;
  std::uint32_t minorVersion = 0;
  std::uint32_t buildNumber = 0;
  WideString csdVersion;  // service pack text
  std::uint16_t suiteMask = 0;
  std::uint8_t productType = 0;
};

class SystemInformationT {
 public:
  // Zeroes every number, leaves the texts empty, then calls Collect().
  SystemInformationT();
  virtual ~SystemInformationT();

  // Fills every field: the processor facts, the operating-system text and
  // then CollectMemoryStatus(). Nothing fails visibly: what cannot be read
  // stays zero or empty.
  void Collect();
  // The eight memory figures. If the kernel's memory figures cannot be
  // read, all eight keep the values they had.
  void CollectMemoryStatus();

  // One line about this machine's system: the distribution's name from
  // /etc/os-release (else /usr/lib/os-release) and the kernel from uname.
  static WideString DescribeOperatingSystem();
  // The name of a processor architecture number; "Unknown" for values
  // without one.
  static WideString ProcessorArchitectureName(std::uint32_t value);

  WideString os;
  WideString processorOemId;
  WideString processorArchitecture;
  std::uint32_t processorLevel = 0;
  std::uint32_t processorRevision = 0;
  std::uint32_t processorCount = 0;
  std::uint32_t processorMask = 0;
  std::uint32_t pageSize = 0;
  std::uint32_t memoryLoad = 0;
  std::uint64_t totalPhysical = 0;
  std::uint64_t availablePhysical = 0;
  std::uint64_t totalCommitted = 0;
  std::uint64_t availableCommitted = 0;
  std::uint64_t totalVirtual = 0;
  std::uint64_t availableVirtual = 0;
  std::uint64_t availableExtended = 0;
};

// The description's decision tree, frozen at the systems it knew, as a
// function of the version values alone (and of two registry values it
// reads through ReadRegistryString). No values at all, that is a failed
// version query, gives "OS information not available.".
WideString DescribeOsVersion(const std::optional<OsVersionValues>& version);

// The Linux line: os-release's PRETTY_NAME (else NAME and VERSION, else
// "Linux"), then ", ", the kernel's name and release and, in brackets, its
// version text. An empty osRelease and empty kernel facts give
// "OS information not available.".
struct KernelFacts {
  std::string_view sysname;
  std::string_view release;
  std::string_view version;
};
WideString DescribeLinuxSystem(std::string_view osRelease, const KernelFacts& kernel);

// The architecture number that the other platform would report for a
// machine name of uname (x86_64 is 9, i686 is 0, ...); 0xFFFF when it has
// none.
std::uint32_t ArchitectureFromMachineName(std::string_view machine);

}  // namespace Marlowen
