// hdf_Id: the shared, reference-counted ownership of one HDF5 identifier.
//
// Every hdf_* class holds one of these, which is what gives them value
// semantics: a copy shares the open HDF5 object and the last copy closes it.
// The count lives in a small block allocated through mem_*; copies share the
// block, so when a file is closed on purpose (hdf_File::Close) every copy of
// that file sees it at once. Objects of a file closed that way become stale
// HDF5 identifiers; HDF5 never hands a number out twice in a process, so
// IsValid() asks HDF5 (only after such a close) and a stale identifier is
// simply dropped, never closed.
//
// Predefined types (H5T_NATIVE_INT ...) belong to HDF5: they are borrowed,
// never closed, and need no block.
#ifndef DDB_PLATFORM_HDF_HDF_ID_H_
#define DDB_PLATFORM_HDF_HDF_ID_H_

#include <hdf5.h>

#include "platform/core/ddb_export.h"

class DDB_API hdf_Id {
 public:
  hdf_Id() : m_id(H5I_INVALID_HID), m_block(nullptr) {}
  // Takes over `id` (closed with the last copy); a negative id gives an empty holder.
  static hdf_Id Own(hid_t id);
  // Refers to an identifier HDF5 keeps for itself.
  static hdf_Id Borrow(hid_t id);

  hdf_Id(const hdf_Id& other) : m_id(other.m_id), m_block(other.m_block) {
    if (m_block != nullptr) ++m_block->refs;
  }
  hdf_Id& operator=(const hdf_Id& other);
  ~hdf_Id() { Release(); }

  // The identifier, or H5I_INVALID_HID.
  hid_t Get() const { return m_block != nullptr ? m_block->id : m_id; }
  // Non-empty and still known to HDF5.
  bool IsValid() const;
  // Closes the object now, for every copy; later copies see an empty holder.
  void CloseNow();
  // Drops every reference to `id`, so HDF5 closes it whoever holds it.
  static void CloseCompletely(hid_t id);

 private:
  struct Block {
    int refs;
    hid_t id;
    unsigned checked;  // forced closes counted when id was last known valid
  };
  static bool Alive(Block* block);
  void Release();

  hid_t m_id;  // borrowed identifier (m_block is null)
  Block* m_block;
};

// Switches HDF5's automatic error printing off, once. Called by every entry
// point that can be the first use of HDF5 through the wrapper.
DDB_API void hdf_Quiet();

#endif  // DDB_PLATFORM_HDF_HDF_ID_H_
