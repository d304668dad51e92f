#include "store/path_buffer.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace Marlowen {
namespace {

// The checked copy's end of the process: a short note for whoever reads the
// terminal, then abort() so that a crash handler sees the fault.
[[noreturn]] void PathTooLong() {
  static const char kNote[] = "fatal: path longer than 259 characters\n";
  ssize_t ignored = write(STDERR_FILENO, kNote, sizeof(kNote) - 1);
  (void)ignored;
  std::abort();
}

WideStringView UpToZero(WideStringView text) {
  const std::size_t zero = text.find(char16_t(0));
  return zero == WideStringView::npos ? text : text.substr(0, zero);
}

constexpr std::size_t kNone = WideStringView::npos;

}  // namespace

PathBuffer::PathBuffer(const char16_t* text) { CopyFrom(WideView(text)); }

PathBuffer::PathBuffer(const WideString& text) { CopyFrom(text); }

PathBuffer::PathBuffer(WideStringView text) { CopyFrom(text); }

PathBuffer::PathBuffer(const PathBuffer& other) { std::memcpy(text_, other.text_, sizeof(text_)); }

PathBuffer& PathBuffer::operator=(const PathBuffer& other) {
  if (this != &other) std::memcpy(text_, other.text_, sizeof(text_));
  return *this;
}

PathBuffer& PathBuffer::operator=(WideStringView text) {
  CopyFrom(text);
  return *this;
}

PathBuffer& PathBuffer::operator=(const char16_t* text) {
  // Copying a value onto itself does nothing.
  if (text != text_) CopyFrom(WideView(text));
  return *this;
}

PathBuffer PathBuffer::FromUtf8(std::string_view utf8) { return PathBuffer(WideStringView(Utf8ToWide(utf8))); }

std::size_t PathBuffer::Length() const { return WideLength(text_); }

void PathBuffer::CopyFrom(WideStringView text) {
  text = UpToZero(text);
  if (text.size() > kMaxPathLength) PathTooLong();
  // The source may overlap this buffer (a part of its own text).
  std::memmove(text_, text.data(), text.size() * sizeof(char16_t));
  text_[text.size()] = 0;
}

PathBuffer& PathBuffer::Extension(PathBuffer& destination) const {
  const WideStringView path = View();
  const std::size_t slash = path.rfind(kPathSeparator);
  const std::size_t dot = path.rfind(u'.');
  if (dot != kNone && (slash == kNone || dot > slash)) {
    destination = WideString(path.substr(dot + 1));
  } else {
    destination.Clear();
  }
  return destination;
}

PathBuffer& PathBuffer::BaseName(PathBuffer& destination, bool keepExtension) const {
  const WideStringView path = View();
  const std::size_t slash = path.rfind(kPathSeparator);
  const std::size_t start = slash == kNone ? 0 : slash + 1;
  const std::size_t dot = path.rfind(u'.');
  std::size_t end = path.size();
  if (!keepExtension && dot != kNone && dot >= start) end = dot;
  destination = WideString(path.substr(start, end - start));
  return destination;
}

PathBuffer& PathBuffer::ParentFolder(PathBuffer& destination) const {
  const WideStringView path = View();
  const std::size_t slash = path.rfind(kPathSeparator);
  if (slash == kNone) {
    destination.Clear();
  } else {
    destination = WideString(path.substr(0, slash));
  }
  return destination;
}

}  // namespace Marlowen
