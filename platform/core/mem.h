// The suite's allocation functions, as this library expects them.
//
// Every block the library allocates comes from here and goes back through
// mem_Free, so that callers can release arrays the library hands them.
// Exhaustion throws mem_Exhausted; a size that cannot be represented (see
// mem_ArraySize) fails the same way instead of wrapping to a small block.
#ifndef DDB_PLATFORM_CORE_MEM_H_
#define DDB_PLATFORM_CORE_MEM_H_

#include <cstddef>
#include <cstdint>
#include <new>

#include "platform/core/ddb_export.h"

class DDB_API mem_Exhausted : public std::bad_alloc {
 public:
  const char* what() const noexcept override;
};

// Objects (nodes, implementations, links).
DDB_API void* mem_OperatorNewThrow(size_t size);
// Small objects; same contract as mem_OperatorNewThrow.
DDB_API void* mem_OperatorNewTinyThrow(size_t size);
// Plain arrays and string buffers.
DDB_API void* mem_OperatorNewThrowBuiltin(size_t size);
// Plain arrays that start as zero bytes. A large block comes from the system
// already zeroed and costs nothing until its pages are used.
DDB_API void* mem_OperatorNewZeroedThrow(size_t size);
// Growable buffers; a null pointer allocates. On failure the old block stays valid.
DDB_API void* mem_Realloc(void* pointer, size_t size);
// Releases any of the above; null is allowed.
DDB_API void mem_Free(void* pointer);
// Releases a block from mem_OperatorNewZeroedThrow whose bytes are all zero
// again; null is allowed. A large one stays mapped for the next zeroed
// request, which then costs neither a fresh mapping nor first page faults
// on the pages used before.
DDB_API void mem_FreeZeroed(void* pointer);

// count * elementSize, saturated to SIZE_MAX when the product does not fit or
// count is negative, so that the allocation that follows fails.
inline size_t mem_ArraySize(long long count, size_t elementSize) {
  if (count < 0) return SIZE_MAX;
  size_t n = static_cast<size_t>(count);
  if (elementSize != 0 && n > SIZE_MAX / elementSize) return SIZE_MAX;
  return n * elementSize;
}

// Process-wide counters, for tests and benchmarks that check allocation promises.
struct mem_Statistics {
  long long allocations;    // new blocks, including mem_Realloc of null
  long long reallocations;  // mem_Realloc of an existing block
  long long frees;          // mem_Free of a non-null block
};
DDB_API mem_Statistics mem_GetStatistics();

// Base classes whose operator new/delete route through the functions above.
class mem_AllocationOperators {
 public:
  static void* operator new(size_t size) { return mem_OperatorNewThrow(size); }
  static void operator delete(void* pointer) { mem_Free(pointer); }
  static void* operator new(size_t, void* place) noexcept { return place; }
  static void operator delete(void*, void*) noexcept {}
};

class mem_AllocationOperatorsTiny {
 public:
  static void* operator new(size_t size) { return mem_OperatorNewTinyThrow(size); }
  static void operator delete(void* pointer) { mem_Free(pointer); }
  static void* operator new(size_t, void* place) noexcept { return place; }
  static void operator delete(void*, void*) noexcept {}
};

#endif  // DDB_PLATFORM_CORE_MEM_H_
