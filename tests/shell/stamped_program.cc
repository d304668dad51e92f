// A program that carries a version block with known numbers, for the tests
// that read one back from disk.
#include "shell/version_stamp.h"

ML_VERSION_STAMP(2, 3, 4, 5,   // file version
                 6, 7, 8, 9);  // product version

int main() { return 0; }
