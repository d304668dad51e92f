#include "support/localization_files.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>

namespace Marlowen {

std::vector<WideString> ListLocaleFiles(WideStringView folder, WideStringView pattern) {
  const std::string folderUtf8 = WideToUtf8(folder);
  const std::string patternUtf8 = WideToUtf8(pattern);
  std::vector<std::string> names;
  if (DIR* directory = opendir(folderUtf8.c_str())) {
    while (const dirent* entry = readdir(directory)) {
      if (fnmatch(patternUtf8.c_str(), entry->d_name, FNM_CASEFOLD | FNM_PERIOD) != 0) continue;
      struct stat info;
      const std::string path = folderUtf8 + "/" + entry->d_name;
      if (stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) names.push_back(entry->d_name);
    }
    closedir(directory);
  }
  std::sort(names.begin(), names.end());
  std::vector<WideString> paths;
  paths.reserve(names.size());
  for (const std::string& name : names) paths.push_back(Utf8ToWide(folderUtf8 + "/" + name));
  return paths;
}

}  // namespace Marlowen
