#include "platform/dbghelp/arena.h"

#include <sys/mman.h>

namespace mldbghelp {
namespace {

constexpr size_t kChunkSize = 1 << 20;
constexpr size_t kPageSize = 4096;

size_t RoundUp(size_t value, size_t to) { return (value + to - 1) / to * to; }

}  // namespace

Arena::~Arena() {
  while (chunks_) {
    Chunk* next = chunks_->next;
    munmap(chunks_, chunks_->size);
    chunks_ = next;
  }
}

void* Arena::Allocate(size_t size, size_t alignment) {
  const size_t header = RoundUp(sizeof(Chunk), 64);
  if (chunks_) {
    size_t offset = RoundUp(chunks_->used, alignment);
    if (offset + size <= chunks_->size) {
      chunks_->used = offset + size;
      return reinterpret_cast<char*>(chunks_) + offset;
    }
  }
  // A large request gets a chunk of its own; the current one stays in front
  // so that its free room is still used.
  size_t mapSize = RoundUp(header + size + alignment, kPageSize);
  if (mapSize < kChunkSize) mapSize = kChunkSize;
  void* memory = mmap(nullptr, mapSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  // Own flags keep the kernel from merging these pages with the process's
  // memory in /proc/<pid>/maps, so the full dump can leave exactly them out.
  madvise(memory, mapSize, MADV_DONTDUMP);
  Chunk* chunk = static_cast<Chunk*>(memory);
  chunk->size = mapSize;
  size_t offset = RoundUp(header, alignment);
  chunk->used = offset + size;
  if (chunks_ && mapSize > kChunkSize) {
    chunk->next = chunks_->next;
    chunks_->next = chunk;
  } else {
    chunk->next = chunks_;
    chunks_ = chunk;
  }
  return reinterpret_cast<char*>(chunk) + offset;
}

char* Arena::CopyString(const char* text, size_t length) {
  char* copy = static_cast<char*>(Allocate(length + 1, 1));
  if (!copy) return nullptr;
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

bool Arena::Overlaps(uint64_t address, uint64_t size) const {
  for (const Chunk* c = chunks_; c; c = c->next) {
    uint64_t start = reinterpret_cast<uint64_t>(c);
    if (address < start + c->size && start < address + size) return true;
  }
  return false;
}

}  // namespace mldbghelp
