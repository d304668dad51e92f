#include "shell/format_string.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// One parsed directive. The same parser serves the measuring walk and the
// writing pass, so both consume the argument list identically.
struct Directive {
  bool alternate = false;  // '#'
  bool left = false;       // '-'
  bool plus = false;       // '+'
  bool zero = false;       // '0'
  bool blank = false;      // ' '
  bool hasWidth = false;
  int width = 0;
  bool hasPrecision = false;
  int precision = 0;
  bool wide64 = false;     // I64 or ll
  bool shortMark = false;  // h
  bool longMark = false;   // l
  char16_t type = 0;
};

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

int ReadNumber(const char16_t*& p) {
  long value = 0;
  while (IsDigit(*p)) {
    if (value < 100000000) value = value * 10 + (*p - u'0');
    ++p;
  }
  return static_cast<int>(value);
}

// Parses from just behind the '%'. A '*' takes its 32-bit argument here.
Directive Parse(const char16_t*& p, std::va_list& args) {
  Directive d;
  for (;; ++p) {
    const char16_t c = *p;
    if (c == u'#') d.alternate = true;
    else if (c == u'-') d.left = true;
    else if (c == u'+') d.plus = true;
    else if (c == u'0') d.zero = true;
    else if (c == u' ') d.blank = true;
    else if (c == u'*') { d.hasWidth = true; d.width = va_arg(args, int); }
    else break;
  }
  if (!d.hasWidth && IsDigit(*p)) {
    d.hasWidth = true;
    d.width = ReadNumber(p);
  }
  if (*p == u'.') {
    ++p;
    d.hasPrecision = true;
    if (*p == u'*') {
      d.precision = va_arg(args, int);
      ++p;
    } else {
      d.precision = ReadNumber(p);
    }
  }
  for (;;) {
    if (p[0] == u'I' && p[1] == u'6' && p[2] == u'4') { d.wide64 = true; p += 3; }
    else if (p[0] == u'I' && p[1] == u'3' && p[2] == u'2') { p += 3; }
    else if (*p == u'F' || *p == u'L' || *p == u'N') { ++p; }
    else if (*p == u'h') { d.shortMark = true; ++p; }
    else if (*p == u'l') {
      if (d.longMark) d.wide64 = true;  // "ll"
      d.longMark = true;
      ++p;
    } else break;
  }
  d.type = *p;
  if (*p) ++p;
  return d;
}

bool IsWideTextDirective(const Directive& d) {
  // %s and %ls/%lS are wide; %S, %hs and %hS are 8-bit.
  if (d.type == u's') return !d.shortMark;
  if (d.type == u'S') return d.longMark;
  return false;
}

bool IsIntegerType(char16_t t) {
  return t == u'd' || t == u'i' || t == u'o' || t == u'u' || t == u'x' || t == u'X';
}

bool IsFloatType(char16_t t) {
  return t == u'e' || t == u'E' || t == u'g' || t == u'G' || t == u'f' || t == u'a' || t == u'A';
}

std::size_t NarrowLength(const char* text) {
  std::size_t n = 0;
  while (text[n]) ++n;
  return n;
}

// Upper bound of the output, consuming arguments in step with the directives.
std::size_t Measure(const char16_t* format, std::va_list& args) {
  std::size_t bound = 0;
  const char16_t* p = format;
  while (*p) {
    if (*p != u'%') { ++bound; ++p; continue; }
    ++p;
    if (*p == u'%') { ++bound; ++p; continue; }
    Directive d = Parse(p, args);
    if (d.alternate) bound += 2;
    const long long width = d.hasWidth ? d.width : 0;
    const long long precision = d.hasPrecision ? d.precision : 0;
    long long item = 0;
    const char16_t t = d.type;
    if (t == u'c' || t == u'C') {
      (void)va_arg(args, int);
      item = 2;
    } else if (t == u's' || t == u'S') {
      if (IsWideTextDirective(d)) {
        const char16_t* text = va_arg(args, const char16_t*);
        item = text ? static_cast<long long>(WideLength(text)) : 6;
      } else {
        const char* text = va_arg(args, const char*);
        item = text ? static_cast<long long>(NarrowLength(text)) : 6;
      }
      if (item < 1) item = 1;
    } else if (IsIntegerType(t)) {
      if (d.wide64) (void)va_arg(args, long long); else (void)va_arg(args, int);
      item = std::max<long long>(32, width + precision);
    } else if (t == u'p') {
      (void)va_arg(args, void*);
      item = std::max<long long>(32, width + precision);
    } else if (t == u'f') {
      (void)va_arg(args, double);
      item = std::max<long long>(128, precision + 312);
    } else if (IsFloatType(t)) {
      (void)va_arg(args, double);
      item = std::max<long long>(128, width + precision);
    } else if (t == u'n') {
      (void)va_arg(args, int*);
      item = 0;
    }
    if (t == u'c' || t == u'C' || t == u's' || t == u'S') {
      if (d.hasPrecision && precision != 0 && item > precision) item = precision;
      if (item < width) item = width;
    }
    if (item > 0) bound += static_cast<std::size_t>(item);
  }
  return bound;
}

// Writes into a buffer of a measured size. Running past it is the same fault
// as overrunning the platform's checked formatter: the process ends.
class BoundedWriter {
 public:
  explicit BoundedWriter(std::size_t capacity) : buffer_(capacity + 1, u'\0'), capacity_(capacity) {}
  void Put(char16_t c) {
    if (used_ >= capacity_) std::abort();
    buffer_[used_++] = c;
  }
  void PutPadding(long long count, char16_t c) {
    for (long long i = 0; i < count; ++i) Put(c);
  }
  std::size_t used() const { return used_; }
  WideString Result() const {
    std::size_t n = 0;
    while (n < used_ && buffer_[n] != u'\0') ++n;
    return WideString(buffer_.data(), n);
  }

 private:
  std::vector<char16_t> buffer_;
  std::size_t capacity_;
  std::size_t used_ = 0;
};

void PutPadded(BoundedWriter& out, const Directive& d, const char16_t* text, std::size_t length) {
  const long long width = d.hasWidth ? (d.width < 0 ? -static_cast<long long>(d.width) : d.width) : 0;
  const bool left = d.left || (d.hasWidth && d.width < 0);
  const long long pad = width > static_cast<long long>(length) ? width - static_cast<long long>(length) : 0;
  if (!left) out.PutPadding(pad, d.zero ? u'0' : u' ');
  for (std::size_t i = 0; i < length; ++i) out.Put(text[i]);
  if (left) out.PutPadding(pad, u' ');
}

// Numbers go through the C library's formatter, rebuilt as a narrow format.
void PutNumber(BoundedWriter& out, const Directive& d, std::va_list& args) {
  std::string narrowFormat = "%";
  if (d.alternate) narrowFormat += '#';
  if (d.left) narrowFormat += '-';
  if (d.plus) narrowFormat += '+';
  if (d.zero) narrowFormat += '0';
  if (d.blank) narrowFormat += ' ';
  if (d.hasWidth) narrowFormat += std::to_string(d.width);
  if (d.hasPrecision) narrowFormat += "." + std::to_string(d.precision);

  const char16_t t = d.type;
  char text[512];
  std::string dynamic;
  int n = 0;
  auto format = [&](auto value) {
    n = std::snprintf(text, sizeof text, narrowFormat.c_str(), value);
    if (n >= static_cast<int>(sizeof text)) {
      dynamic.resize(static_cast<std::size_t>(n) + 1);
      std::snprintf(dynamic.data(), dynamic.size(), narrowFormat.c_str(), value);
    }
  };
  if (IsIntegerType(t)) {
    const bool isSigned = (t == u'd' || t == u'i');
    if (d.wide64) {
      narrowFormat += "ll";
      narrowFormat += static_cast<char>(t);
      long long v = va_arg(args, long long);
      if (isSigned) format(v); else format(static_cast<unsigned long long>(v));
    } else {
      int v = va_arg(args, int);
      if (d.shortMark) {
        narrowFormat += "h";
        v = isSigned ? static_cast<short>(v) : static_cast<unsigned short>(v);
      }
      narrowFormat += static_cast<char>(t);
      if (isSigned) format(v); else format(static_cast<unsigned>(v));
    }
  } else if (t == u'p') {
    // The other platform prints pointers as zero-padded upper-case hex digits.
    void* v = va_arg(args, void*);
    n = std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(v)));
  } else {
    narrowFormat += static_cast<char>(t);
    double v = va_arg(args, double);
    format(v);
  }
  if (n < 0) return;
  const char* s = dynamic.empty() ? text : dynamic.c_str();
  for (int i = 0; i < n; ++i) out.Put(static_cast<unsigned char>(s[i]));
}

}  // namespace

WideString FormatStringV(const char16_t* format, std::va_list arguments) {
  if (!format) return WideString();
  std::va_list measureArgs;
  va_copy(measureArgs, arguments);
  const std::size_t bound = Measure(format, measureArgs);
  va_end(measureArgs);

  std::va_list args;
  va_copy(args, arguments);
  BoundedWriter out(bound);
  const char16_t* p = format;
  while (*p) {
    if (*p != u'%') { out.Put(*p++); continue; }
    ++p;
    if (*p == u'%') { out.Put(u'%'); ++p; continue; }
    Directive d = Parse(p, args);
    const char16_t t = d.type;
    if (t == u'c' || t == u'C') {
      const int value = va_arg(args, int);
      const bool narrow = d.shortMark || (t == u'C' && !d.longMark);
      char16_t c = static_cast<char16_t>(value);
      if (narrow) {
        const unsigned char byte = static_cast<unsigned char>(value);
        c = byte < 0x80 ? byte : u'\xFFFD';
      }
      PutPadded(out, d, &c, 1);
    } else if (t == u's' || t == u'S') {
      WideString text;
      if (IsWideTextDirective(d)) {
        const char16_t* s = va_arg(args, const char16_t*);
        text = s ? WideString(s) : WideString(u"(null)");
      } else {
        const char* s = va_arg(args, const char*);
        text = s ? Utf8ToWide(s) : WideString(u"(null)");
      }
      std::size_t length = text.size();
      if (d.hasPrecision && d.precision >= 0 && static_cast<std::size_t>(d.precision) < length) length = d.precision;
      PutPadded(out, d, text.data(), length);
    } else if (IsIntegerType(t) || t == u'p' || IsFloatType(t)) {
      PutNumber(out, d, args);
    } else if (t == u'n') {
      int* target = va_arg(args, int*);
      if (target) *target = static_cast<int>(out.used());
    }
    // Any other type character produces nothing and takes no argument.
  }
  va_end(args);
  return out.Result();
}

WideString FormatString(const char16_t* format, ...) {
  std::va_list args;
  va_start(args, format);
  WideString result = FormatStringV(format, args);
  va_end(args);
  return result;
}
