// The command line of ml-minidump-reader, apart from main so tests can
// call it:  ml-minidump-reader DUMP [--stream NAME-OR-NUMBER]
#pragma once

#include <ostream>

namespace minidump_reader {

// Prints the dump, or one stream's raw bytes; returns the exit status
// (0, 1 for an unreadable dump, 2 for a wrong command line).
int ReaderMain(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace minidump_reader
