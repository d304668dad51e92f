// Listing a folder by a wildcard query, the way the system's searches expect:
// "." and ".." come first, then the folder's entries in the order the file
// system gives, unsorted.
//
// Wildcards are '*' (any run of characters) and '?' (one UTF-16 unit);
// every other character stands for itself, '[' included. Names compare
// without regard to case, and "*.*" means every name, also those without a
// dot. Symbolic links are reported by what they lead to; a link that leads
// nowhere is a system entry.
#pragma once

#include <dirent.h>

#include <cstdint>

#include "shell/wide_string.h"
#include "store/path_buffer.h"

namespace Marlowen {

struct FindEntry {
  WideString name;
  std::uint32_t attributes = 0;  // kFileAttribute* bits
  std::uint64_t size = 0;        // 0 for everything but regular files
  bool isSymbolicLink = false;
};

// True if name matches the wildcard pattern, without regard to case.
bool MatchesWildcard(WideStringView pattern, WideStringView name);

// The entry of one path as a listing of its folder would report it; false if
// there is no such entry.
bool LookUpEntry(const PathBuffer& path, FindEntry& entry);

class DirectoryLister final {
 public:
  DirectoryLister() = default;
  ~DirectoryLister();
  DirectoryLister(const DirectoryLister&) = delete;
  DirectoryLister& operator=(const DirectoryLister&) = delete;

  // query is a folder, '/', and a pattern. False if the folder cannot be
  // listed or nothing in it matches.
  bool First(WideStringView query, FindEntry& entry);
  // The next matching entry; false at the end.
  bool Next(FindEntry& entry);
  void Close();

 private:
  bool Describe(const char* name, FindEntry& entry);

  DIR* folder_ = nullptr;
  WideString pattern_;
  int dotsGiven_ = 0;
};

}  // namespace Marlowen
