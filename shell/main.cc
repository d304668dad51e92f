// MLCrashReporter: hands over to ReporterMain.
#include <string>

#include "shell/reporter_main.h"

// The first byte of the executable's image, which the linker provides: what
// the other platform hands its entry as the module handle.
extern "C" char __executable_start;

int main(int argc, char** argv) {
  return ReporterMain(reinterpret_cast<HINSTANCE>(&__executable_start),
                      CommandLineFromArguments(argc, argv));
}
