#include "store/path_helpers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "platform/machine_paths.h"
#include "store/directory_lister.h"
#include "store/file.h"
#include "store/file_attributes.h"

namespace Marlowen {
namespace {

// Stands ready for tracing folder creation while debugging; emits nothing.
void TraceHook(const char16_t* /*format*/, const PathBuffer& /*path*/) {}

std::mutex& TempFolderLock() {
  static std::mutex lock;
  return lock;
}

PathBuffer& TempFolderOverride() {
  static PathBuffer folder;
  return folder;
}

bool OnlySeparators(WideStringView text) {
  return !text.empty() && text.find_first_not_of(kPathSeparator) == WideStringView::npos;
}

bool MakeFolder(const PathBuffer& path) {
  const std::string utf8 = path.ToUtf8();
  return !utf8.empty() && mkdir(utf8.c_str(), 0777) == 0;
}

}  // namespace

PathBuffer& JoinPath(PathBuffer& destination, const PathBuffer& first, const PathBuffer& second) {
  WideStringView head = first.View();
  WideStringView tail = second.View();
  // The root is all separators; it stays, as a drive would.
  const bool headIsRoot = OnlySeparators(head);
  while (!head.empty() && head.back() == kPathSeparator) head.remove_suffix(1);
  while (!tail.empty() && tail.front() == kPathSeparator) tail.remove_prefix(1);
  WideString joined;
  if (headIsRoot) {
    joined = WideString(1, kPathSeparator) + WideString(tail);
  } else if (!head.empty() && !tail.empty()) {
    joined = WideString(head) + kPathSeparator + WideString(tail);
  } else {
    joined = WideString(head.empty() ? tail : head);
  }
  destination = joined;
  return destination;
}

bool Exists(const PathBuffer& path) {
  FindEntry entry;
  if (LookUpEntry(path, entry) && !(entry.attributes & kFileAttributeDirectory)) return true;
  File file(path);
  return file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None);
}

bool IsDirectory(const PathBuffer& path) {
  // The first entry of a folder's listing is its own ".".
  const WideString query = path.ToWide() + kPathSeparator + u"*.*";
  DirectoryLister lister;
  FindEntry entry;
  if (!lister.First(query, entry)) return false;
  return (entry.attributes & kFileAttributeDirectory) != 0;
}

bool Delete(const PathBuffer& path) {
  const std::string utf8 = path.ToUtf8();
  if (utf8.empty()) {
    errno = ENOENT;
    return false;
  }
  // A file held open through a File carries a lock; taking it exclusively
  // shows that nobody does. A file that cannot be opened to look (a link,
  // no read right) is removed without the look.
  File probe(path);
  if (probe.Open(FileAccess_Read, FileShare_None, FileAccessHint_None)) {
    const bool removed = unlink(utf8.c_str()) == 0;
    probe.Close();
    return removed;
  }
  if (errno == EWOULDBLOCK) {
    errno = EBUSY;
    return false;
  }
  if (errno == EISDIR) return false;
  return unlink(utf8.c_str()) == 0;
}

std::uint32_t FileLength(const PathBuffer& path) {
  FindEntry entry;
  if (LookUpEntry(path, entry)) return static_cast<std::uint32_t>(entry.size & 0xFFFFFFFFu);
  File file(path);
  if (!file.Open(FileAccess_Read, FileShare_Read, FileAccessHint_None)) return 0;
  return file.GetSize();
}

bool CreateFolder(const PathBuffer& path, bool createParents) {
  TraceHook(u"Creating directory %s.", path);
  // No name is no folder, though the walk below would find the root for it.
  if (path.IsEmpty()) return false;
  if (MakeFolder(path)) return true;
  if (!createParents) return false;

  // Collect the missing chain from the path upwards; the creation then runs
  // from the topmost entry down. Every failure above leads here, and a path
  // that already exists passes because IsDirectory accepts it.
  std::vector<PathBuffer> chain;
  chain.push_back(path);
  PathBuffer current = path;
  for (;;) {
    PathBuffer parent;
    current.ParentFolder(parent);
    current = parent;
    if (current.IsEmpty() || OnlySeparators(current.View())) break;
    chain.push_back(current);
  }
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    if (IsDirectory(*it)) continue;
    if (MakeFolder(*it)) continue;
    // Another process or thread (two threads faulting together) may have
    // made this level since the look above: a folder that is there serves.
    if (errno == EEXIST && IsDirectory(*it)) continue;
    return false;
  }
  return true;
}

PathBuffer& TempFolder(PathBuffer& destination) {
  std::lock_guard<std::mutex> hold(TempFolderLock());
  if (!TempFolderOverride().IsEmpty()) {
    destination = TempFolderOverride();
    return destination;
  }
  const WideString folder = Utf8ToWide(platform::TemporaryFolder()) + kPathSeparator;
  // A folder too long for a path leaves the answer empty instead of cut.
  if (folder.size() > kMaxPathLength) {
    destination.Clear();
  } else {
    destination = folder;
  }
  return destination;
}

void SetTempFolderOverride(const PathBuffer& folder) {
  std::lock_guard<std::mutex> hold(TempFolderLock());
  TempFolderOverride() = folder;
}

PathBuffer& TempFileName(PathBuffer& destination, WideStringView prefix, bool keepFile) {
  PathBuffer folder;
  TempFolder(folder);
  destination.Clear();
  if (folder.IsEmpty()) return destination;

  WideString name = folder.ToWide();
  if (name.back() != kPathSeparator) name += kPathSeparator;
  name += prefix.substr(0, 3);
  static constexpr char16_t kUnique[] = u"XXXXXX";
  static constexpr char16_t kSuffix[] = u".tmp";
  name += kUnique;
  name += kSuffix;
  if (name.size() > kMaxPathLength) return destination;

  std::string pattern = WideToUtf8(name);
  const int fd = mkstemps(pattern.data(), static_cast<int>(WideLength(kSuffix)));
  if (fd < 0) return destination;
  close(fd);
  if (!keepFile) unlink(pattern.c_str());
  destination = PathBuffer::FromUtf8(pattern);
  return destination;
}

bool WriteText(const PathBuffer& path, const unsigned& codePage, WideStringView text, bool overwrite) {
  if (codePage != kCodePageAnsi && codePage != kCodePageUtf8) {
    errno = EINVAL;
    return false;
  }
  File file(path);
  if (!file.Create(FileAccess_Write, FileShare_None, FileAccessHint_None, overwrite,
                   kFileFlagSequentialScan | kFileAttributeNormal)) {
    return false;
  }
  const std::string bytes = WideToUtf8(text);
  return file.Write(bytes.data(), static_cast<std::uint32_t>(bytes.size())) == bytes.size();
}

bool WriteUtf8Text(const PathBuffer& path, WideStringView text, bool overwrite) {
  return WriteText(path, kCodePageUtf8, text, overwrite);
}

}  // namespace Marlowen
