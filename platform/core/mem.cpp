// Allocation on top of the C heap, with counters and a hard size ceiling.
#include "platform/core/mem.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Requests above this are refused before reaching the heap: no real request
// is that large, and a saturated size (SIZE_MAX) must fail, not be attempted.
constexpr size_t kMaxRequest = size_t{1} << 40;

mem_Statistics g_stats = {0, 0, 0};

void* Checked(void* p) {
  if (p == nullptr) throw mem_Exhausted();
  return p;
}

// Large zeroed blocks (the slot tables of stored arrays) are pages mapped
// for them alone: the kernel hands them out zeroed and touches a page only
// when it is used, so a table of a million empty slots costs nothing until
// its slots are. calloc does the same the first time only: once such a
// block is freed, the C library raises its mapping threshold and serves the
// next one from the heap, clearing every byte. The few live mapped blocks
// are listed so that mem_Free and mem_Realloc know them (the library is
// single-threaded); when the list is full, calloc serves.
constexpr size_t kMapAtLeast = size_t{1} << 20;
constexpr int kMaxMapped = 64;
struct Mapped {
  void* pointer;
  size_t size;
};
Mapped g_mapped[kMaxMapped];
int g_mappedCount = 0;

int MappedIndex(const void* pointer) {
  if (g_mappedCount == 0 || reinterpret_cast<uintptr_t>(pointer) % 4096 != 0) return -1;
  for (int i = 0; i < g_mappedCount; ++i) {
    if (g_mapped[i].pointer == pointer) return i;
  }
  return -1;
}

void Unmap(int i) {
  munmap(g_mapped[i].pointer, g_mapped[i].size);
  g_mapped[i] = g_mapped[--g_mappedCount];
}

void* Allocate(size_t size) {
  if (size > kMaxRequest) throw mem_Exhausted();
  void* p = Checked(std::malloc(size == 0 ? 1 : size));
  ++g_stats.allocations;
  return p;
}

}  // namespace

const char* mem_Exhausted::what() const noexcept {
  return "mem_Exhausted: out of memory";
}

void* mem_OperatorNewThrow(size_t size) {
  return Allocate(size);
}
void* mem_OperatorNewTinyThrow(size_t size) {
  return Allocate(size);
}
void* mem_OperatorNewThrowBuiltin(size_t size) {
  return Allocate(size);
}

void* mem_OperatorNewZeroedThrow(size_t size) {
  if (size > kMaxRequest) throw mem_Exhausted();
  if (size >= kMapAtLeast && g_mappedCount < kMaxMapped) {
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p != MAP_FAILED) {
      g_mapped[g_mappedCount++] = {p, size};
      ++g_stats.allocations;
      return p;
    }
  }
  void* p = Checked(std::calloc(size == 0 ? 1 : size, 1));
  ++g_stats.allocations;
  return p;
}

void* mem_Realloc(void* pointer, size_t size) {
  if (pointer == nullptr) return Allocate(size);
  if (size > kMaxRequest) throw mem_Exhausted();
  int mapped = MappedIndex(pointer);
  if (mapped >= 0) {
    void* p = Checked(std::malloc(size == 0 ? 1 : size));
    std::memcpy(p, pointer, size < g_mapped[mapped].size ? size : g_mapped[mapped].size);
    Unmap(mapped);
    ++g_stats.reallocations;
    return p;
  }
  void* p = Checked(std::realloc(pointer, size == 0 ? 1 : size));
  ++g_stats.reallocations;
  return p;
}

void mem_Free(void* pointer) {
  if (pointer == nullptr) return;
  ++g_stats.frees;
  int mapped = MappedIndex(pointer);
  if (mapped >= 0) {
    Unmap(mapped);
  } else {
    std::free(pointer);
  }
}

mem_Statistics mem_GetStatistics() {
  return g_stats;
}
