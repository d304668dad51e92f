// The published minidump records, byte for byte, with the stream numbers
// that Linux readers use. Everything is little-endian and packed; the sizes
// are checked below because a reader trusts them blindly.
#pragma once

#include <cstdint>

namespace mldbghelp {

inline constexpr uint32_t kMinidumpSignature = 0x504d444d;  // "MDMP"
inline constexpr uint32_t kMinidumpVersion = 0xa793;

enum StreamType : uint32_t {
  kThreadListStream = 3,
  kModuleListStream = 4,
  kMemoryListStream = 5,
  kExceptionStream = 6,
  kSystemInfoStream = 7,
  kMemory64ListStream = 9,
  kHandleDataStream = 12,
  kMiscInfoStream = 15,
  kThreadInfoListStream = 17,
  // The Linux streams that the common readers know.
  kLinuxCpuInfoStream = 0x47670003,
  kLinuxProcStatusStream = 0x47670004,
  kLinuxLsbReleaseStream = 0x47670005,
  kLinuxCmdLineStream = 0x47670006,
  kLinuxEnvironStream = 0x47670007,
  kLinuxAuxvStream = 0x47670008,
  kLinuxMapsStream = 0x47670009,
  kLinuxDsoDebugStream = 0x4767000a,
  // This library's own: how the dump was collected ("ML" + 1).
  kCaptureInfoStream = 0x4d4c0001,
};

inline constexpr uint16_t kProcessorArchitectureAmd64 = 9;
inline constexpr uint32_t kPlatformIdLinux = 0x8201;
inline constexpr uint32_t kCvSignatureElf = 0x4270454c;  // "LEpB"

inline constexpr uint32_t kContextAmd64 = 0x00100000;
inline constexpr uint32_t kContextControl = kContextAmd64 | 0x1;
inline constexpr uint32_t kContextInteger = kContextAmd64 | 0x2;
inline constexpr uint32_t kContextSegments = kContextAmd64 | 0x4;
inline constexpr uint32_t kContextFloatingPoint = kContextAmd64 | 0x8;
inline constexpr uint32_t kContextFull =
    kContextControl | kContextInteger | kContextSegments | kContextFloatingPoint;

inline constexpr uint32_t kThreadInfoInvalidContext = 0x10;
inline constexpr uint32_t kMiscInfoProcessId = 0x1;
inline constexpr uint32_t kMiscInfoProcessTimes = 0x2;

enum CaptureMethod : uint32_t {
  kCaptureByTracer = 1,   // helper process stopped every thread with ptrace
  kCaptureFromInside = 2, // tracing refused: only the faulting thread has registers
};

#pragma pack(push, 1)

struct LocationDescriptor {
  uint32_t dataSize;
  uint32_t rva;
};

struct Header {
  uint32_t signature;
  uint32_t version;
  uint32_t streamCount;
  uint32_t streamDirectoryRva;
  uint32_t checksum;
  uint32_t timeDateStamp;
  uint64_t flags;
};

struct Directory {
  uint32_t streamType;
  LocationDescriptor location;
};

struct MemoryDescriptor {
  uint64_t startOfMemoryRange;
  LocationDescriptor memory;
};

struct MemoryDescriptor64 {
  uint64_t startOfMemoryRange;
  uint64_t dataSize;
};

struct Thread {
  uint32_t threadId;
  uint32_t suspendCount;
  uint32_t priorityClass;
  uint32_t priority;
  uint64_t teb;
  MemoryDescriptor stack;
  LocationDescriptor threadContext;
};

struct Uint128 {
  uint64_t low;
  uint64_t high;
};

// The fxsave image, as both the kernel and the format lay it out.
struct XmmSaveArea {
  uint16_t controlWord;
  uint16_t statusWord;
  uint8_t tagWord;
  uint8_t reserved1;
  uint16_t errorOpcode;
  uint32_t errorOffset;
  uint16_t errorSelector;
  uint16_t reserved2;
  uint32_t dataOffset;
  uint16_t dataSelector;
  uint16_t reserved3;
  uint32_t mxCsr;
  uint32_t mxCsrMask;
  Uint128 floatRegisters[8];
  Uint128 xmmRegisters[16];
  uint8_t reserved4[96];
};

struct ContextAmd64 {
  uint64_t pHome[6];
  uint32_t contextFlags;
  uint32_t mxCsr;
  uint16_t cs, ds, es, fs, gs, ss;
  uint32_t eflags;
  uint64_t dr0, dr1, dr2, dr3, dr6, dr7;
  uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
  uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
  uint64_t rip;
  XmmSaveArea fltSave;
  Uint128 vectorRegister[26];
  uint64_t vectorControl;
  uint64_t debugControl;
  uint64_t lastBranchToRip;
  uint64_t lastBranchFromRip;
  uint64_t lastExceptionToRip;
  uint64_t lastExceptionFromRip;
};

struct FixedFileInfo {
  uint32_t words[13];
};

struct Module {
  uint64_t baseOfImage;
  uint32_t sizeOfImage;
  uint32_t checksum;
  uint32_t timeDateStamp;
  uint32_t moduleNameRva;
  FixedFileInfo versionInfo;
  LocationDescriptor cvRecord;
  LocationDescriptor miscRecord;
  uint64_t reserved0;
  uint64_t reserved1;
};

struct SystemInfo {
  uint16_t processorArchitecture;
  uint16_t processorLevel;
  uint16_t processorRevision;
  uint8_t numberOfProcessors;
  uint8_t productType;
  uint32_t majorVersion;
  uint32_t minorVersion;
  uint32_t buildNumber;
  uint32_t platformId;
  uint32_t csdVersionRva;
  uint16_t suiteMask;
  uint16_t reserved2;
  uint32_t vendorId[3];
  uint32_t versionInformation;
  uint32_t featureInformation;
  uint32_t amdExtendedCpuFeatures;
};

struct ExceptionRecord {
  uint32_t exceptionCode;
  uint32_t exceptionFlags;
  uint64_t exceptionRecord;
  uint64_t exceptionAddress;
  uint32_t numberParameters;
  uint32_t unusedAlignment;
  uint64_t exceptionInformation[15];
};

struct ExceptionStream {
  uint32_t threadId;
  uint32_t alignment;
  ExceptionRecord exceptionRecord;
  LocationDescriptor threadContext;
};

struct MiscInfo {
  uint32_t sizeOfInfo;
  uint32_t flags1;
  uint32_t processId;
  uint32_t processCreateTime;
  uint32_t processUserTime;
  uint32_t processKernelTime;
};

struct HandleDataStreamHeader {
  uint32_t sizeOfHeader;
  uint32_t sizeOfDescriptor;
  uint32_t numberOfDescriptors;
  uint32_t reserved;
};

struct HandleDescriptor {
  uint64_t handle;
  uint32_t typeNameRva;
  uint32_t objectNameRva;
  uint32_t attributes;
  uint32_t grantedAccess;
  uint32_t handleCount;
  uint32_t pointerCount;
};

struct ThreadInfoListHeader {
  uint32_t sizeOfHeader;
  uint32_t sizeOfEntry;
  uint32_t numberOfEntries;
};

struct ThreadInfo {
  uint32_t threadId;
  uint32_t dumpFlags;
  uint32_t dumpError;
  uint32_t exitStatus;
  uint64_t createTime;
  uint64_t exitTime;
  uint64_t kernelTime;
  uint64_t userTime;
  uint64_t startAddress;
  uint64_t affinity;
};

struct DsoDebug {
  uint32_t version;
  uint32_t mapRva;  // array of LinkMap
  uint32_t dsoCount;
  uint64_t brk;
  uint64_t ldBase;
  uint64_t dynamic;
};

struct LinkMap {
  uint64_t addr;
  uint32_t nameRva;
  uint64_t ld;
};

struct CaptureInfo {
  uint32_t sizeOfHeader;
  uint32_t method;              // CaptureMethod
  int32_t traceError;           // errno of the refused ptrace, 0 if none
  uint32_t threadsWithoutContext;  // count of the thread ids that follow
};

#pragma pack(pop)

static_assert(sizeof(Header) == 32);
static_assert(sizeof(Directory) == 12);
static_assert(sizeof(MemoryDescriptor) == 16);
static_assert(sizeof(Thread) == 48);
static_assert(sizeof(XmmSaveArea) == 512);
static_assert(sizeof(ContextAmd64) == 1232);
static_assert(sizeof(Module) == 108);
static_assert(sizeof(SystemInfo) == 56);
static_assert(sizeof(ExceptionStream) == 168);
static_assert(sizeof(MiscInfo) == 24);
static_assert(sizeof(HandleDescriptor) == 32);
static_assert(sizeof(ThreadInfo) == 64);
static_assert(sizeof(DsoDebug) == 36);
static_assert(sizeof(LinkMap) == 20);

}  // namespace mldbghelp
