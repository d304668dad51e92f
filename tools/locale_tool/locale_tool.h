// ml-locale-tool: the translator's command line over the .locale file tools
// (update against a master, carrying corrected originals, merge, import,
// export of differences, word count).
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

// Runs one command; `args` excludes the program name. Returns the exit
// status: 0 done, 1 the work could not be done (its reason on `err`), 2 bad
// usage.
int LocaleToolMain(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
