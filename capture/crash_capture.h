// Crash capture for a product: one call, and from then on every fault of the
// process leaves a report in the machine's report folder and starts the
// reporter tool on it. See docs/capture.md.
//
//   int main() {
//     Marlowen::InstallCrashCapture(u"Orbit Designer");
//     ...
//   }
//
// The application name is the report's product name: it must not contain
// '_' (the tool cuts the name there) and should not start with
// "Marlowen Crash", which the tool takes for its own reports and never sends.
#pragma once

#include <cstdint>

namespace Marlowen {

// Registers the process's top-level filter under applicationName (cut at
// 255 UTF-16 units) and installs the fault handlers: signal handlers for
// SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT and SIGSYS, a
// std::terminate handler, and an alternate signal stack for the calling
// thread. After a report, disposition 0 ends the process with exit status
// 254; any other value lets the fault end the process as it would without
// the capture. A later call replaces name and disposition. False if a signal
// handler could not be installed.
bool InstallCrashCapture(const char16_t* applicationName, std::int32_t disposition = 0);

// Gives the calling thread its own alternate signal stack, freed when the
// thread ends. Without it, a thread's faults are still captured, but a stack
// overflow on it ends the process uncaptured. Call it first thing in threads
// that may recurse deeply. False if no stack could be mapped.
bool PrepareThreadForCrashCapture();

}  // namespace Marlowen
