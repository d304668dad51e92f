// Finding .locale files in a folder.
#pragma once

#include <vector>

#include "shell/wide_string.h"

namespace Marlowen {

// Full paths of the regular files directly in `folder` whose names match the
// shell pattern (such as "*.locale"), ignoring case as the file names of
// translations made elsewhere may come in either case. Sorted by name, so
// that every walk sees the files in the same order; empty if the folder
// can't be read.
std::vector<WideString> ListLocaleFiles(WideStringView folder, WideStringView pattern);

}  // namespace Marlowen
