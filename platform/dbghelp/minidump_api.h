/*
 * The dump library's public interface: what a crash capture needs to load
 * libmldbghelp.so with dlopen, find "MiniDumpWriteDump" with dlsym and call it
 * from its signal handler. C-compatible; the library itself is never linked.
 *
 * Ownership: every pointer handed in stays the caller's. The library keeps
 * none of them after the call returns, and never closes the file descriptor.
 *
 * Failure: the function returns 0 and leaves errno set (the "last error").
 * A file that was cut off or only partly written carries no minidump
 * signature, so no reader takes it for a whole dump.
 */
#ifndef ML_PLATFORM_DBGHELP_MINIDUMP_API_H
#define ML_PLATFORM_DBGHELP_MINIDUMP_API_H

#include <signal.h>
#include <stdint.h>
#include <ucontext.h>

#ifdef __cplusplus
extern "C" {
#endif

/* File name of the library and the name of its one export. */
#define ML_DBGHELP_LIBRARY_NAME "libmldbghelp.so"
#define ML_DBGHELP_EXPORT_NAME "MiniDumpWriteDump"

/* The process to dump. Only the calling process can be dumped; this value
 * stands for it, as the other platform's pseudo handle does. */
typedef intptr_t MLProcessHandle;
#define ML_CURRENT_PROCESS ((MLProcessHandle)-1)

/* Dump type flags. Values are the published ones. */
typedef uint32_t MINIDUMP_TYPE;
#define MiniDumpNormal 0x00000000u
#define MiniDumpWithDataSegs 0x00000001u          /* writable data of every module */
#define MiniDumpWithFullMemory 0x00000002u        /* all readable memory, 64-bit list */
#define MiniDumpWithHandleData 0x00000004u        /* open file descriptors */
#define MiniDumpWithProcessThreadData 0x00000100u /* thread info list */

/* The three detail levels that the capture asks for. */
#define ML_MINIDUMP_TYPE_FULL 0x107u   /* level 1 */
#define ML_MINIDUMP_TYPE_DATA 0x105u   /* level 2 */
#define ML_MINIDUMP_TYPE_NORMAL 0x104u /* level 3 and any other */

/* What the signal handler received. Both pointers may be null only together
 * with a null MINIDUMP_EXCEPTION_INFORMATION: a dump without an exception. */
typedef struct ML_EXCEPTION_POINTERS {
  const siginfo_t* SignalInfo;
  const ucontext_t* SignalContext;
} ML_EXCEPTION_POINTERS;

typedef struct MINIDUMP_EXCEPTION_INFORMATION {
  uint32_t ThreadId; /* kernel thread id (gettid) of the faulting thread */
  ML_EXCEPTION_POINTERS* ExceptionPointers;
  int32_t ClientPointers; /* accepted and ignored: there is one address space */
} MINIDUMP_EXCEPTION_INFORMATION;

/* Callback kinds. The library calls IncludeThreadCallback and
 * IncludeModuleCallback for each candidate, then ThreadCallback and
 * ModuleCallback for each one kept. */
#define ModuleCallback 0
#define ThreadCallback 1
#define IncludeThreadCallback 3
#define IncludeModuleCallback 4

/* Flags the callback may clear in its output for ThreadCallback. */
#define ThreadWriteThread 0x0001u
#define ThreadWriteStack 0x0002u
#define ThreadWriteContext 0x0004u
#define ThreadWriteInstructionWindow 0x0010u
#define ThreadWriteThreadInfo 0x0040u
/* ... and for ModuleCallback. */
#define ModuleWriteModule 0x0001u
#define ModuleWriteDataSeg 0x0002u
#define ModuleWriteCvRecord 0x0008u

typedef struct MINIDUMP_THREAD_CALLBACK {
  uint32_t ThreadId;
  uint32_t HasContext; /* 0 when the thread's registers could not be read */
  uint64_t InstructionPointer;
  uint64_t StackPointer;
  uint64_t StackBase; /* lowest address of the stack memory to be written */
  uint64_t StackEnd;  /* one past the highest */
} MINIDUMP_THREAD_CALLBACK;

typedef struct MINIDUMP_MODULE_CALLBACK {
  const char* FullPath; /* UTF-8 */
  uint64_t BaseOfImage;
  uint32_t SizeOfImage;
  uint32_t SizeOfBuildId; /* 0 when the module carries no GNU build id */
  const void* BuildId;    /* what its CodeView record will hold */
} MINIDUMP_MODULE_CALLBACK;

typedef struct MINIDUMP_CALLBACK_INPUT {
  uint32_t ProcessId;
  MLProcessHandle ProcessHandle;
  uint32_t CallbackType;
  union {
    MINIDUMP_THREAD_CALLBACK Thread;      /* ThreadCallback */
    MINIDUMP_MODULE_CALLBACK Module;      /* ModuleCallback */
    uint32_t IncludeThreadId;             /* IncludeThreadCallback */
    uint64_t IncludeModuleBase;           /* IncludeModuleCallback */
  };
} MINIDUMP_CALLBACK_INPUT;

typedef struct MINIDUMP_CALLBACK_OUTPUT {
  union {
    uint32_t ModuleWriteFlags;
    uint32_t ThreadWriteFlags;
  };
} MINIDUMP_CALLBACK_OUTPUT;

/* Returns non-zero to keep the candidate; for ThreadCallback and
 * ModuleCallback it may also clear flags in the output. It runs in the
 * dump's helper, which shares the process's memory but is not one of its
 * threads: it must not take locks, allocate or use thread-local state. */
typedef int (*MINIDUMP_CALLBACK_ROUTINE)(void* CallbackParam,
                                         const MINIDUMP_CALLBACK_INPUT* CallbackInput,
                                         MINIDUMP_CALLBACK_OUTPUT* CallbackOutput);

typedef struct MINIDUMP_CALLBACK_INFORMATION {
  MINIDUMP_CALLBACK_ROUTINE CallbackRoutine;
  void* CallbackParam;
} MINIDUMP_CALLBACK_INFORMATION;

/* Writes a minidump of the calling process into fileDescriptor, beginning
 * at its current offset; on success the offset is left at the dump's end.
 * processHandle must be ML_CURRENT_PROCESS and processId getpid().
 * userStreamParam must be null. Safe to call from a signal handler running
 * on an alternate stack: it neither allocates from the heap nor takes locks
 * in the calling process. Returns non-zero on success; on failure 0 with
 * errno set (EINVAL for bad arguments, otherwise the failing call's). */
typedef int (*MiniDumpWriteDumpFunction)(MLProcessHandle processHandle, uint32_t processId,
                                         int fileDescriptor, MINIDUMP_TYPE dumpType,
                                         const MINIDUMP_EXCEPTION_INFORMATION* exceptionParam,
                                         const void* userStreamParam,
                                         const MINIDUMP_CALLBACK_INFORMATION* callbackParam);

int MiniDumpWriteDump(MLProcessHandle processHandle, uint32_t processId, int fileDescriptor,
                      MINIDUMP_TYPE dumpType,
                      const MINIDUMP_EXCEPTION_INFORMATION* exceptionParam,
                      const void* userStreamParam,
                      const MINIDUMP_CALLBACK_INFORMATION* callbackParam);

#ifdef __cplusplus
}
#endif

#endif /* ML_PLATFORM_DBGHELP_MINIDUMP_API_H */
