// Small blocks for mem: objects, records, map nodes and short strings.
//
// A loaded object is a score of small blocks, and a database of a million
// objects is twenty million of them; through the C library's heap, freeing
// them costs more than closing the HDF5 groups they came from. Here each
// size class (multiples of 16 bytes, up to kMemSmallMax) keeps a free list of
// its own, threaded through the free blocks, so that a block is handed out
// and taken back in a few instructions, with no header beside it. Blocks
// are carved from runs of 64 KiB, one class per run, out of one address
// range reserved once: a block is known as small by its address alone, and
// its class by its run's.
//
// Freed blocks stay in their lists for the next objects; the pages are
// returned to the system only when the process ends, as the C library's
// heap keeps its own. Single-threaded, like the rest of the library. Off
// under AddressSanitizer and Valgrind, so that they see every block.
#ifndef DDB_PLATFORM_CORE_MEM_SMALLBLOCKS_H_
#define DDB_PLATFORM_CORE_MEM_SMALLBLOCKS_H_

#include <cstddef>

#include "platform/core/ddb_export.h"

constexpr size_t kMemSmallMax = 256;

// A block of at least `size` bytes (0 to kMemSmallMax), or null when the
// range is used up, could not be reserved or is off (the heap serves then).
DDB_API void* mem_SmallAllocate(size_t size);
// The usable size of a small block, or 0 when `pointer` is not one.
DDB_API size_t mem_SmallSize(const void* pointer);
// Takes a small block back; false, and nothing done, for any other pointer.
DDB_API bool mem_SmallFree(void* pointer);

#endif  // DDB_PLATFORM_CORE_MEM_SMALLBLOCKS_H_
