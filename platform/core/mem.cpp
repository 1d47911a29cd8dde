// Allocation on top of the C heap, with counters and a hard size ceiling;
// small blocks come from mem_SmallBlocks.
#include "platform/core/mem.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/core/mem_SmallBlocks.h"

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
//
// A fresh mapping is not free either: each page's first touch is a fault,
// and unmapping tears the page tables down, tens of microseconds each on a
// virtual machine, as much as opening a small database. So a block its
// owner hands back all zero (mem_FreeZeroed) is kept as a spare, pages and
// all, and the next zeroed request it fits takes it; the oldest spare goes
// when a newer one needs its place.
constexpr size_t kMapAtLeast = size_t{1} << 20;
constexpr int kMaxMapped = 64;
constexpr int kMaxSpare = 2;
struct Mapped {
  void* pointer;
  size_t size;
};
Mapped g_mapped[kMaxMapped];
int g_mappedCount = 0;
Mapped g_spare[kMaxSpare];
int g_spareCount = 0;

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

// The smallest spare of at least `size` bytes, listed as mapped again; null
// when none fits.
void* TakeSpare(size_t size) {
  int best = -1;
  for (int i = 0; i < g_spareCount; ++i) {
    if (g_spare[i].size >= size && (best < 0 || g_spare[i].size < g_spare[best].size)) best = i;
  }
  if (best < 0) return nullptr;
  g_mapped[g_mappedCount++] = g_spare[best];
  for (int i = best; i + 1 < g_spareCount; ++i) g_spare[i] = g_spare[i + 1];
  --g_spareCount;
  return g_mapped[g_mappedCount - 1].pointer;
}

void KeepSpare(int mapped) {
  if (g_spareCount == kMaxSpare) {
    munmap(g_spare[0].pointer, g_spare[0].size);
    for (int i = 0; i + 1 < g_spareCount; ++i) g_spare[i] = g_spare[i + 1];
    --g_spareCount;
  }
  g_spare[g_spareCount++] = g_mapped[mapped];
  g_mapped[mapped] = g_mapped[--g_mappedCount];
}

// A new block, small ones from their size classes.
void* Block(size_t size) {
  if (size > kMaxRequest) throw mem_Exhausted();
  if (size <= kMemSmallMax) {
    if (void* p = mem_SmallAllocate(size)) return p;
  }
  return Checked(std::malloc(size == 0 ? 1 : size));
}

void* Allocate(size_t size) {
  void* p = Block(size);
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
    if (void* spare = TakeSpare(size)) {
      ++g_stats.allocations;
      return spare;
    }
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
  if (size_t small = mem_SmallSize(pointer)) {
    void* p = pointer;
    if (size > small) {
      p = Block(size);
      std::memcpy(p, pointer, small);
      mem_SmallFree(pointer);
    }
    ++g_stats.reallocations;
    return p;
  }
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
  if (mem_SmallFree(pointer)) return;
  int mapped = MappedIndex(pointer);
  if (mapped >= 0) {
    Unmap(mapped);
  } else {
    std::free(pointer);
  }
}

void mem_FreeZeroed(void* pointer) {
  if (pointer == nullptr) return;
  int mapped = MappedIndex(pointer);
  if (mapped < 0) {
    mem_Free(pointer);
    return;
  }
  ++g_stats.frees;
  KeepSpare(mapped);
}

mem_Statistics mem_GetStatistics() {
  return g_stats;
}
