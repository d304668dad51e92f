#include "store/directory_lister.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "shell/string_helpers.h"
#include "store/file_attributes.h"

namespace Marlowen {
namespace {

bool IsDots(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

// Attributes of one entry from the lstat of the entry itself and, for a link,
// the stat of what it leads to.
void FillEntry(const char* name, const struct stat& own, const struct stat* target, FindEntry& entry) {
  entry.name = Utf8ToWide(name);
  entry.isSymbolicLink = S_ISLNK(own.st_mode);
  const struct stat* effective = entry.isSymbolicLink ? target : &own;
  std::uint32_t attributes = 0;
  entry.size = 0;
  if (effective && S_ISDIR(effective->st_mode)) {
    attributes |= kFileAttributeDirectory;
  } else if (effective && S_ISREG(effective->st_mode)) {
    entry.size = static_cast<std::uint64_t>(effective->st_size);
  } else {
    attributes |= kFileAttributeSystem;
  }
  if (name[0] == '.' && !IsDots(name)) attributes |= kFileAttributeHidden;
  if (attributes == 0) attributes = kFileAttributeNormal;
  entry.attributes = attributes;
}

// where is the path to look at, relative to folder; name is what the entry
// is called.
bool DescribeAt(int folder, const char* where, const char* name, FindEntry& entry) {
  struct stat own;
  if (fstatat(folder, where, &own, AT_SYMLINK_NOFOLLOW) != 0) return false;
  struct stat target;
  const bool linked = S_ISLNK(own.st_mode) && fstatat(folder, where, &target, 0) == 0;
  FillEntry(name, own, linked ? &target : nullptr, entry);
  return true;
}

}  // namespace

bool MatchesWildcard(WideStringView pattern, WideStringView name) {
  if (pattern == u"*.*") pattern = u"*";
  const WideString p = ToUpperCopy(pattern);
  const WideString n = ToUpperCopy(name);
  // Greedy match that backs up to the last '*' on a mismatch.
  std::size_t pi = 0, ni = 0;
  std::size_t starAt = WideString::npos, resumeAt = 0;
  while (ni < n.size()) {
    if (pi < p.size() && (p[pi] == u'?' || p[pi] == n[ni])) {
      ++pi;
      ++ni;
    } else if (pi < p.size() && p[pi] == u'*') {
      starAt = pi++;
      resumeAt = ni;
    } else if (starAt != WideString::npos) {
      pi = starAt + 1;
      ni = ++resumeAt;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == u'*') ++pi;
  return pi == p.size();
}

bool LookUpEntry(const PathBuffer& path, FindEntry& entry) {
  const std::string utf8 = path.ToUtf8();
  if (utf8.empty()) return false;
  std::string name = utf8;
  while (name.size() > 1 && name.back() == '/') name.pop_back();
  const std::size_t slash = name.rfind('/');
  if (slash != std::string::npos && slash + 1 < name.size()) name = name.substr(slash + 1);
  return DescribeAt(AT_FDCWD, utf8.c_str(), name.c_str(), entry);
}

DirectoryLister::~DirectoryLister() { Close(); }

void DirectoryLister::Close() {
  if (folder_) closedir(folder_);
  folder_ = nullptr;
}

bool DirectoryLister::First(WideStringView query, FindEntry& entry) {
  Close();
  const WideStringView text = query;
  const std::size_t slash = text.rfind(kPathSeparator);
  WideString folder;
  if (slash == WideStringView::npos) {
    folder = u".";
    pattern_ = WideString(text);
  } else {
    folder = WideString(text.substr(0, slash == 0 ? 1 : slash));
    pattern_ = WideString(text.substr(slash + 1));
  }
  if (pattern_.empty()) {
    errno = ENOENT;
    return false;
  }
  folder_ = opendir(WideToUtf8(folder).c_str());
  if (!folder_) return false;
  dotsGiven_ = 0;
  if (Next(entry)) return true;
  Close();
  errno = ENOENT;
  return false;
}

bool DirectoryLister::Next(FindEntry& entry) {
  if (!folder_) return false;
  // The folder's own entries first, as a listing on the other platform
  // begins; some callers rely on "." coming first.
  while (dotsGiven_ < 2) {
    const char* dots = dotsGiven_++ == 0 ? "." : "..";
    if (MatchesWildcard(pattern_, Utf8ToWide(dots)) && Describe(dots, entry)) return true;
  }
  while (const dirent* item = readdir(folder_)) {
    if (IsDots(item->d_name)) continue;
    if (!MatchesWildcard(pattern_, Utf8ToWide(item->d_name))) continue;
    // An entry removed since readdir saw it is passed over.
    if (Describe(item->d_name, entry)) return true;
  }
  return false;
}

bool DirectoryLister::Describe(const char* name, FindEntry& entry) {
  return DescribeAt(dirfd(folder_), name, name, entry);
}

}  // namespace Marlowen
