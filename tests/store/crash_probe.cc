// A stamped program that crashes on purpose: with three extra threads blocked
// it writes to address 0x401000, and its fault handler writes the crash record
// beside the dump path given as argv[1], then ends with 254 as a crashed
// process does. Any other ending means the handler did not work.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "shell/version_stamp.h"
#include "store/crashed_module.h"

ML_VERSION_STAMP(2, 3, 4, 5, 6, 7, 8, 9);

namespace {

const char* dumpPath = nullptr;

void OnFault(int, siginfo_t* info, void*) {
  const Marlowen::PathBuffer dump = Marlowen::PathBuffer::FromUtf8(dumpPath);
  Marlowen::CrashedModuleT record(false);
  record.Collect(dump, u"Access Violation", reinterpret_cast<std::uintptr_t>(info->si_addr), u"Probe",
                 Marlowen::FILETIME{0x0BADF00D, 0x01DC5A});
  Marlowen::PathBuffer path;
  _exit(record.Save(Marlowen::CrashedModuleT::RecordPath(dump, path)) ? 254 : 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  dumpPath = argv[1];
  int gate[2];
  if (pipe(gate) != 0) return 3;
  std::atomic<int> running{0};
  for (int i = 0; i < 3; ++i) {
    std::thread([&running, fd = gate[0]] {
      ++running;
      char byte;
      [[maybe_unused]] ssize_t n = read(fd, &byte, 1);  // never returns
    }).detach();
  }
  while (running < 3) usleep(1000);
  struct sigaction action = {};
  action.sa_sigaction = OnFault;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  *reinterpret_cast<volatile int*>(std::uintptr_t{0x401000}) = 1;
  return 4;
}
