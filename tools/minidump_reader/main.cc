#include <iostream>

#include "tools/minidump_reader/reader_main.h"

int main(int argc, char** argv) { return minidump_reader::ReaderMain(argc, argv, std::cout, std::cerr); }
