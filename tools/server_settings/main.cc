#include <iostream>
#include <string>
#include <vector>

#include "tools/server_settings/server_settings_tool.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return ServerSettingsMain(args, std::cin, std::cout, std::cerr);
}
