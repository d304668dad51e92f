// Working memory of the dump writer, taken straight from mmap.
//
// Signal-safe: the writer may run while another thread of the crashed
// process holds the allocator's lock, so it never touches malloc. Memory is
// only given back all at once, when the arena dies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace mldbghelp {

class Arena final {
 public:
  Arena() = default;
  ~Arena();
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  // Zeroed memory, or null when mmap fails.
  void* Allocate(size_t size, size_t alignment = 16);
  template <typename T>
  T* AllocateArray(size_t count) {
    return static_cast<T*>(Allocate(count * sizeof(T), alignof(T) < 16 ? 16 : alignof(T)));
  }
  // Copies a string of length bytes and terminates it.
  char* CopyString(const char* text, size_t length);

  // True when [address, address + size) overlaps memory this arena mapped:
  // the full-memory dump leaves the writer's own pages out.
  bool Overlaps(uint64_t address, uint64_t size) const;

 private:
  struct Chunk {
    Chunk* next;
    size_t size;  // whole mapping, header included
    size_t used;
  };
  Chunk* chunks_ = nullptr;
};

// A growable array of plain records in an arena. Growing copies; the old
// block stays in the arena until it dies.
template <typename T>
class ArenaVector final {
 public:
  explicit ArenaVector(Arena* arena) : arena_(arena) {}

  [[nodiscard]] bool PushBack(const T& value) {
    if (size_ == capacity_ && !Grow()) return false;
    data_[size_++] = value;
    return true;
  }
  T* Append() {  // zeroed new element, or null
    if (size_ == capacity_ && !Grow()) return nullptr;
    std::memset(static_cast<void*>(&data_[size_]), 0, sizeof(T));
    return &data_[size_++];
  }
  void Truncate(size_t size) {
    if (size < size_) size_ = size;
  }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T& operator[](size_t i) { return data_[i]; }
  const T& operator[](size_t i) const { return data_[i]; }
  T* begin() { return data_; }
  T* end() { return data_ + size_; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }

 private:
  bool Grow() {
    size_t capacity = capacity_ ? capacity_ * 2 : 16;
    T* data = arena_->AllocateArray<T>(capacity);
    if (!data) return false;
    if (size_) std::memcpy(static_cast<void*>(data), data_, size_ * sizeof(T));
    data_ = data;
    capacity_ = capacity;
    return true;
  }

  Arena* arena_;
  T* data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace mldbghelp
