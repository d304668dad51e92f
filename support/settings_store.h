// A settings store in one XML file: typed values by group and dotted name,
// arrays with a version, string lists.
//
// The file's root is Marlowen_Settings; its Group children hold Struct
// elements, values (Int, String, Double, Bin16, Bin64), Array and StringList.
// The same value function serves reading and writing: its `write` flag says
// which way the value goes, so a caller writes one list of calls for both.
//
// Failures don't reach the caller: a bad file reads as an empty store and an
// absent value gives its default. A store belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

#include "shell/wide_string.h"
#include "support/settings_address.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
XERCES_CPP_NAMESPACE_END

namespace Marlowen {

// Value types by number, as the table-driven array function takes them.
enum class SettingsValueType : int {
  kInt = 1,            // std::int32_t
  kString = 2,         // a char16_t buffer of elementSize bytes, zero-terminated
  kDouble = 3,         // double
  kBin16 = 4,          // elementSize bytes, as upper-case hexadecimal digits
  kBin64 = 5,          // elementSize bytes, as Base64
  kStringPointer = 6,  // a WideString that the store fills on read; arrays only
};

// The longest text that a read takes from a value element.
inline constexpr std::size_t kMaxSettingsText = 4095;

// One open settings file. The document and everything in it belong to the
// store and go with it; lastAddress and lastElement speed up the next lookup
// and are valid for this store only.
struct SettingsStore {
  SettingsStore() = default;
  ~SettingsStore();
  SettingsStore(const SettingsStore&) = delete;
  SettingsStore& operator=(const SettingsStore&) = delete;

  XERCES_CPP_NAMESPACE::DOMDocument* document = nullptr;
  WideString path;
  XERCES_CPP_NAMESPACE::DOMElement* rootElement = nullptr;
  std::unique_ptr<SettingsAddress> lastAddress;
  XERCES_CPP_NAMESPACE::DOMElement* lastElement = nullptr;
  // How often each way of finding a value was taken.
  std::int32_t fullWalks = 0;
  std::int32_t siblingHits = 0;
  std::int32_t prefixHits = 0;
};

// Opens `path`. A missing or unreadable file opens as an empty store at once.
// A file whose root is absent, wrong or cut off is parsed again up to 11
// times, 200 ms apart, as another process may be rewriting it; if it never
// becomes whole, the store is empty. Null only if the XML library fails.
std::unique_ptr<SettingsStore> OpenStore(const WideString& path);

// A store with an empty document for `path`, whatever the file holds.
std::unique_ptr<SettingsStore> CreateStore(const WideString& path);

// Writes the document to the store's path, creating missing parent folders.
// The file is replaced in one rename, so a reader sees the old or the new
// file; an existing file's mode is kept, a new one gets `newFileMode`
// (less the umask). False if it can't be written; the old file then stays.
[[nodiscard]] bool SaveStore(SettingsStore& store, unsigned newFileMode = 0666);
[[nodiscard]] bool SaveStoreAs(SettingsStore& store, const WideString& path);

// Frees the store without saving and leaves the pointer null.
void CloseStore(std::unique_ptr<SettingsStore>& store);

// 1 if the root has a Group of that name / the group has a direct Struct or
// Array of that name; 0 otherwise. None of them changes the document.
int HasGroup(WideStringView group, const SettingsStore& store);
int HasStruct(WideStringView name, WideStringView group, const SettingsStore& store);
int HasArray(WideStringView name, WideStringView group, const SettingsStore& store);

// Single values. On read: 1 if the element was found, and the value is its
// text converted by type; otherwise the value takes the default and the
// answer is 0. On write: the element is created as needed, its text set, and
// the answer is 0.
int IntValue(std::int32_t& value, std::int32_t defaultValue, WideStringView name,
             WideStringView group, SettingsStore& store, bool write);
int DoubleValue(double& value, double defaultValue, WideStringView name, WideStringView group,
                SettingsStore& store, bool write);
// `bufferSize` counts UTF-16 units with the terminator, as a fixed buffer
// would: a read keeps at most bufferSize - 1 of them (and never more than
// kMaxSettingsText); the default is cut alike.
int StringValue(WideString& value, std::size_t bufferSize, WideStringView defaultValue,
                WideStringView name, WideStringView group, SettingsStore& store, bool write);

// Byte values of `length` bytes. On read, at most `length` bytes are
// replaced; an absent value leaves them as they were. `bytesRead`, if given,
// receives how many were replaced.
//
// Bin16 digits are read two at a time up to the first character below '0';
// a character below 'A' counts from '0' and any other from '7', so lower-case
// digits give wrong bytes without a failure. Bin64 text is filled up with 'A'
// to a multiple of four before it is decoded.
int Bin16Value(std::uint8_t* bytes, std::size_t length, WideStringView name, WideStringView group,
               SettingsStore& store, bool write, std::size_t* bytesRead = nullptr);
int Bin64Value(std::uint8_t* bytes, std::size_t length, WideStringView name, WideStringView group,
               SettingsStore& store, bool write, std::size_t* bytesRead = nullptr);

// An Array of `count` values of one type, each `elementSize` bytes apart in
// `values`. An Array of another version loses its content and takes the
// given version, on a read as well. On read, an absent Array or element
// leaves the values untouched. Always 1.
int ArrayValues(void* values, int count, std::size_t elementSize, int version, WideStringView name,
                WideStringView group, SettingsValueType type, SettingsStore& store, bool write);

// The typed forms of ArrayValues.
int IntArrayValues(std::int32_t* values, int count, int version, WideStringView name,
                   WideStringView group, SettingsStore& store, bool write);
int DoubleArrayValues(double* values, int count, int version, WideStringView name,
                      WideStringView group, SettingsStore& store, bool write);
// `buffers` holds `count` buffers of `bufferChars` UTF-16 units each.
int StringArrayValues(char16_t* buffers, int count, std::size_t bufferChars, int version,
                      WideStringView name, WideStringView group, SettingsStore& store, bool write);
int StringPointerArrayValues(WideString* values, int count, int version, WideStringView name,
                             WideStringView group, SettingsStore& store, bool write);
int Bin16ArrayValues(std::uint8_t* values, int count, std::size_t bytesPerValue, int version,
                     WideStringView name, WideStringView group, SettingsStore& store, bool write);
int Bin64ArrayValues(std::uint8_t* values, int count, std::size_t bytesPerValue, int version,
                     WideStringView name, WideStringView group, SettingsStore& store, bool write);

// A list of texts, each with a number.
struct StringListEntryT {
  WideString text;
  std::int32_t lParam = 0;
};
using StringListT = std::vector<StringListEntryT>;

// Read appends each String child that has an lParam and a text that is not
// empty; write replaces the StringList's children with the list. Always 1.
int StringListValue(StringListT& list, WideStringView name, WideStringView group,
                    SettingsStore& store, bool write);

}  // namespace Marlowen
