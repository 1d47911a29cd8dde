// Allocation on top of the C heap, with counters and a hard size ceiling.
#include "platform/core/mem.h"

#include <cstdlib>

namespace {

// Requests above this are refused before reaching the heap: no real request
// is that large, and a saturated size (SIZE_MAX) must fail, not be attempted.
constexpr size_t kMaxRequest = size_t{1} << 40;

mem_Statistics g_stats = {0, 0, 0};

void* Checked(void* p) {
  if (p == nullptr) throw mem_Exhausted();
  return p;
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
  void* p = Checked(std::calloc(size == 0 ? 1 : size, 1));
  ++g_stats.allocations;
  return p;
}

void* mem_Realloc(void* pointer, size_t size) {
  if (pointer == nullptr) return Allocate(size);
  if (size > kMaxRequest) throw mem_Exhausted();
  void* p = Checked(std::realloc(pointer, size == 0 ? 1 : size));
  ++g_stats.reallocations;
  return p;
}

void mem_Free(void* pointer) {
  if (pointer == nullptr) return;
  ++g_stats.frees;
  std::free(pointer);
}

mem_Statistics mem_GetStatistics() {
  return g_stats;
}
