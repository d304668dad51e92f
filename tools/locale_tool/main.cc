#include <iostream>
#include <string>
#include <vector>

#include "tools/locale_tool/locale_tool.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return LocaleToolMain(args, std::cout, std::cerr);
}
