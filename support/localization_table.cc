#include "support/localization_table.h"

#include <algorithm>

#include "support/language_names.h"
#include "support/string_id.h"

namespace Marlowen {

LocalizationTable::LocalizationTable() {
  rows_.reserve(kInitialRows);
  capacity_ = kInitialRows;
}

int LocalizationTable::Add(WideString key, std::optional<WideString> local, std::uint32_t id) {
  if (rows_.size() == capacity_) {
    capacity_ *= 2;
    rows_.reserve(capacity_);
  }
  auto row = std::make_unique<LocalizedStringT>();
  row->headerId = StringId(key);
  row->key = std::move(key);
  row->local = std::move(local);
  row->id = id;
  if (!rows_.empty() && sorted_ && rows_.back()->key > row->key) sorted_ = false;
  rows_.push_back(std::move(row));
  return size() - 1;
}

void LocalizationTable::Remove(int index) {
  rows_.erase(rows_.begin() + index);
}

void LocalizationTable::Rekey(int index, WideString key) {
  LocalizedStringT& row = (*this)[index];
  row.key = std::move(key);
  row.headerId = StringId(row.key);
  row.id = row.headerId;
  sorted_ = false;
}

void LocalizationTable::Clear() {
  rows_.clear();
  sorted_ = true;
}

void LocalizationTable::Sort() {
  if (sorted_) return;
  // Stable, so that rows with equal keys keep the order they were added in.
  std::stable_sort(rows_.begin(), rows_.end(),
                   [](const auto& a, const auto& b) { return a->key < b->key; });
  sorted_ = true;
}

int LocalizationTable::Find(WideStringView key) {
  Sort();
  auto it = std::lower_bound(rows_.begin(), rows_.end(), key,
                             [](const auto& row, WideStringView k) { return row->key < k; });
  if (it == rows_.end() || (*it)->key != key) return -1;
  return static_cast<int>(it - rows_.begin());
}

void LanguageTable::Sort() {
  std::stable_sort(rows_.begin(), rows_.end(), [](const LanguageRowT& a, const LanguageRowT& b) {
    return CompareIgnoringCase(a.name, b.name) < 0;
  });
}

int LanguageTable::Find(WideStringView name) const {
  auto it = std::lower_bound(rows_.begin(), rows_.end(), name,
                             [](const LanguageRowT& row, WideStringView n) {
                               return CompareIgnoringCase(row.name, n) < 0;
                             });
  if (it == rows_.end() || CompareIgnoringCase(it->name, name) != 0) return -1;
  return static_cast<int>(it - rows_.begin());
}

int LanguageTable::FindTag(WideStringView tag) const {
  for (int i = 0; i < size(); ++i) {
    if (rows_[static_cast<std::size_t>(i)].tag == tag) return i;
  }
  return -1;
}

}  // namespace Marlowen
