// ml-server-settings: the administrator's way to read and change Server.xml,
// which nothing else in the system writes.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

// Runs one command; `args` excludes the program name. The password of
// set-account comes from the first line of `in`, so it never shows in the
// process list. Returns the process exit status: 0 done, 1 the file could
// not be read or written, 2 bad usage.
int ServerSettingsMain(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                       std::ostream& err);
