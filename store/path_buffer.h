// A path held by value in a fixed buffer of UTF-16 units.
//
// Every copy into a PathBuffer is checked: a source of more than
// kMaxPathLength units ends the process with abort(). A path is never cut
// short, because a shortened path names a different file.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "shell/wide_string.h"

namespace Marlowen {

// Units in the buffer, the copy limit with the terminator, and the longest
// path that fits.
inline constexpr std::size_t kPathBufferSize = 261;
inline constexpr std::size_t kPathCopyLimit = 260;
inline constexpr std::size_t kMaxPathLength = kPathCopyLimit - 1;

// The folder separator; the file system's root "/" plays the drive root.
inline constexpr char16_t kPathSeparator = u'/';

class PathBuffer {
 public:
  PathBuffer() { text_[0] = 0; }
  // Copies up to the first zero unit of the source; aborts when that is
  // longer than kMaxPathLength.
  PathBuffer(const char16_t* text);  // NOLINT: paths are passed as literals
  PathBuffer(const WideString& text);  // NOLINT
  explicit PathBuffer(WideStringView text);

  PathBuffer(const PathBuffer& other);
  PathBuffer& operator=(const PathBuffer& other);
  PathBuffer& operator=(WideStringView text);
  PathBuffer& operator=(const WideString& text) { return *this = WideStringView(text); }
  PathBuffer& operator=(const char16_t* text);

  // A UTF-8 path from the system; the same limit, counted in UTF-16 units.
  static PathBuffer FromUtf8(std::string_view utf8);

  void Clear() { text_[0] = 0; }
  bool IsEmpty() const { return text_[0] == 0; }
  std::size_t Length() const;

  const char16_t* c_str() const { return text_; }
  WideStringView View() const { return WideStringView(text_, Length()); }
  WideString ToWide() const { return WideString(View()); }
  // The form that system calls take.
  std::string ToUtf8() const { return WideToUtf8(View()); }

  // The text behind the last dot, without it, if that dot lies in the last
  // element; else empty. The case is kept.
  PathBuffer& Extension(PathBuffer& destination) const;
  // The last element; without keepExtension also without its last dot and
  // what follows, so ".dmp" gives an empty name.
  PathBuffer& BaseName(PathBuffer& destination, bool keepExtension) const;
  // Everything before the last separator; empty when there is none. A
  // trailing separator does not stay, so "/x" gives "".
  PathBuffer& ParentFolder(PathBuffer& destination) const;

  friend bool operator==(const PathBuffer& a, const PathBuffer& b) { return a.View() == b.View(); }

 private:
  void CopyFrom(WideStringView text);

  char16_t text_[kPathBufferSize];
};

}  // namespace Marlowen
