// The facts of one crash as persisted: the ".dat" record that the failing
// process writes beside its minidump and the tool reads back later.
//
// File layout, version 2 (version 1 lacks crashAddress): the version word,
// the seven texts, fileName, creationTime, then the eleven counters, all as
// the stream primitives write them. Only version 2 is written; 1 and 2 are
// read.
//
// How each counter is taken from /proc on Linux is written down in
// docs/process_facts.md.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"
#include "store/file_time.h"
#include "store/path_buffer.h"
#include "store/streamable.h"

namespace Marlowen {

inline constexpr std::uint32_t kCrashedModuleVersion = 2;

class CrashedModuleT : public Streamable {
 public:
  // The defaults; with collect also Collect().
  explicit CrashedModuleT(bool collect = false);
  ~CrashedModuleT() override;

  // CollectVersions, CollectProcessFacts, CollectMemoryCounters, in this
  // order. No failure of its own: what cannot be learnt stays "N/A", 0 or
  // empty. Allocates; runs in a crashing process like the rest of the
  // capture does.
  void Collect();

  // The crash's own facts first, then Collect(). reportName is the dump's
  // name without folder and extension; crashAddress is "0x%x" of the
  // exception address (all 64 bits, lower case, no padding).
  void Collect(const PathBuffer& dumpPath, const WideString& exceptionName,
               std::uint64_t exceptionAddress, const WideString& applicationName,
               const FILETIME& crashTime);

  // Both versions "N/A", replaced by "%i.%i.%i.%i" of the executable's
  // version block when it has one with a valid signature.
  void CollectVersions();
  // Module and thread counts of this process, the executable's path (empty
  // if it does not fit a PathBuffer) and the command line (the arguments
  // joined by single blanks).
  void CollectProcessFacts();
  // The nine memory counters, saturated at 0xFFFFFFFF; on failure to read
  // /proc they keep their values.
  void CollectMemoryCounters();

  // ELF objects mapped into the process (the executable, libraries, the
  // vDSO); 0 on failure.
  static std::uint32_t CountModules(std::uint32_t processId);
  // Threads of the process; 0 on failure.
  static std::uint32_t CountThreads(std::uint32_t processId);

  // Where the record of a dump lies: the dump's folder, the dump's name with
  // ".dat" in place of its extension.
  static PathBuffer& RecordPath(const PathBuffer& dumpPath, PathBuffer& destination);

  // Streamable:
  bool Write(ByteStream& stream) const override;  // always true
  // False, with only the version word read, for a version other than 1 and
  // 2. Nothing else is checked: a short file leaves the later fields as
  // they were.
  bool Read(ByteStream& stream) override;

  // The body of a version 1 record, behind its version word; always true.
  bool ReadVersion1(ByteStream& stream);

  // True if read; failures are logged at severity 3.
  bool Load(const PathBuffer& path);
  // Deletes an existing file first, then creates it anew (mode 0600: the
  // record holds the command line). True if on disk; failures are logged at
  // severity 3, except an empty path.
  bool Save(const PathBuffer& path) const;

  WideString reportName;
  WideString exceptionType;
  WideString crashAddress;
  WideString moduleName;
  WideString commandLine;
  WideString fileVersion;
  WideString productVersion;
  PathBuffer fileName;
  FILETIME creationTime;
  // Counts loaded modules, not handles, whatever the report calls it.
  std::uint32_t handleCount = 0;
  std::uint32_t threadCount = 0;
  std::uint32_t pageFaultCount = 0;
  std::uint32_t peakWorkingSetSize = 0;
  std::uint32_t workingSetSize = 0;
  std::uint32_t quotaPeakPagedPoolUsage = 0;
  std::uint32_t quotaPagedPoolUsage = 0;
  std::uint32_t quotaPeakNonPagedPoolUsage = 0;
  std::uint32_t quotaNonPagedPoolUsage = 0;
  std::uint32_t pageFileUsage = 0;
  std::uint32_t peakPageFileUsage = 0;
};

}  // namespace Marlowen
