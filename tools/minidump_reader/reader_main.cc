#include "tools/minidump_reader/reader_main.h"

#include <cstdlib>
#include <string>

#include "tools/minidump_reader/minidump_file.h"

namespace minidump_reader {

int ReaderMain(int argc, char** argv, std::ostream& out, std::ostream& err) {
  if (argc != 2 && !(argc == 4 && std::string(argv[2]) == "--stream")) {
    err << "usage: ml-minidump-reader DUMP [--stream NAME-OR-NUMBER]\n";
    return 2;
  }
  MinidumpFile dump;
  std::string error;
  if (!dump.Open(argv[1], &error)) {
    err << argv[1] << ": " << error << "\n";
    return 1;
  }
  if (argc == 2) {
    out << Describe(dump);
    return 0;
  }
  // One stream as it is, e.g. "--stream LinuxMaps" prints the maps text.
  std::string wanted = argv[3];
  for (const auto& entry : dump.directory()) {
    if (StreamName(entry.first) == wanted || std::to_string(entry.first) == wanted ||
        std::strtoul(wanted.c_str(), nullptr, 0) == entry.first) {
      out << dump.Stream(entry.first);
      return 0;
    }
  }
  err << "no stream " << wanted << "\n";
  return 1;
}

}  // namespace minidump_reader
