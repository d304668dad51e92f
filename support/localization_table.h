// The sorted tables of the localization library: the strings of one language
// keyed by their original text, and the languages on offer keyed by name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "shell/wide_string.h"

namespace Marlowen {

// One string of a language: the original text, its translation if any, the
// id that the file gave it and the id computed when the row was made.
struct LocalizedStringT {
  WideString key;
  std::optional<WideString> local;
  std::uint32_t id = 0;
  std::uint32_t headerId = 0;
};

// Rows in an array of row pointers that starts with room for 5000 and
// doubles, so that sorting moves pointers, not texts. Rows are appended in
// any order and sorted on demand by plain comparison of UTF-16 code units;
// Find sorts first, so indexes are those of the sorted order once any lookup
// has run.
class LocalizationTable final {
 public:
  static constexpr std::size_t kInitialRows = 5000;

  LocalizationTable();
  LocalizationTable(LocalizationTable&&) noexcept = default;
  LocalizationTable& operator=(LocalizationTable&&) noexcept = default;
  LocalizationTable(const LocalizationTable&) = delete;
  LocalizationTable& operator=(const LocalizationTable&) = delete;

  // Appends a row; its headerId is StringId(key). Returns its index.
  int Add(WideString key, std::optional<WideString> local, std::uint32_t id);
  void Remove(int index);
  void Clear();
  // Gives a row a new key: its headerId and id follow the new text.
  void Rekey(int index, WideString key);

  void Sort();
  bool sorted() const { return sorted_; }
  // Index of a row with exactly this key (sorting first), or -1.
  int Find(WideStringView key);

  int size() const { return static_cast<int>(rows_.size()); }
  std::size_t capacity() const { return capacity_; }
  LocalizedStringT& operator[](int index) { return *rows_[static_cast<std::size_t>(index)]; }
  const LocalizedStringT& operator[](int index) const {
    return *rows_[static_cast<std::size_t>(index)];
  }

 private:
  std::vector<std::unique_ptr<LocalizedStringT>> rows_;
  std::size_t capacity_ = 0;
  bool sorted_ = true;
};

// One language that a folder offers: display name, tag and file.
struct LanguageRowT {
  WideString name;
  WideString tag;
  WideString path;
};

// The languages handed to a chooser, ordered by display name under the
// case-blind linguistic comparison.
class LanguageTable final {
 public:
  void Add(LanguageRowT row) { rows_.push_back(std::move(row)); }
  void Remove(int index) { rows_.erase(rows_.begin() + index); }
  void Sort();
  // Index of the row whose name equals `name` ignoring case, or -1. The
  // table must be sorted.
  int Find(WideStringView name) const;
  int FindTag(WideStringView tag) const;

  int size() const { return static_cast<int>(rows_.size()); }
  LanguageRowT& operator[](int index) { return rows_[static_cast<std::size_t>(index)]; }
  const LanguageRowT& operator[](int index) const {
    return rows_[static_cast<std::size_t>(index)];
  }

 private:
  std::vector<LanguageRowT> rows_;
};

}  // namespace Marlowen
