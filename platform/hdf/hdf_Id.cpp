#include "platform/hdf/hdf_Id.h"

#include "platform/core/mem.h"

namespace {
// Identifiers only go stale when objects are closed behind their holders'
// backs (CloseCompletely). Counting those events lets a holder skip asking
// HDF5 (H5Iis_valid, a full API call) while nothing has been closed since it
// last checked, which is nearly always.
unsigned g_forcedCloses = 0;  // constant-initialised
}  // namespace

bool hdf_Id::Alive(Block* block) {
  if (block->id < 0) return false;
  if (block->checked == g_forcedCloses) return true;
  if (H5Iis_valid(block->id) <= 0) return false;
  block->checked = g_forcedCloses;
  return true;
}

hdf_Id hdf_Id::Own(hid_t id) {
  hdf_Id result;
  if (id < 0) return result;
  result.m_block = static_cast<Block*>(mem_OperatorNewTinyThrow(sizeof(Block)));
  result.m_block->refs = 1;
  result.m_block->id = id;
  result.m_block->checked = g_forcedCloses;
  return result;
}

hdf_Id hdf_Id::Borrow(hid_t id) {
  hdf_Id result;
  result.m_id = id < 0 ? H5I_INVALID_HID : id;
  return result;
}

hdf_Id& hdf_Id::operator=(const hdf_Id& other) {
  if (other.m_block != nullptr) ++other.m_block->refs;
  Release();
  m_id = other.m_id;
  m_block = other.m_block;
  return *this;
}

bool hdf_Id::IsValid() const {
  // HDF5 counts its own identifiers as not the application's: a borrowed one
  // is valid as long as it is set.
  if (m_block == nullptr) return m_id >= 0;
  return Alive(m_block);
}

void hdf_Id::CloseNow() {
  if (m_block == nullptr) return;
  CloseCompletely(m_block->id);
  m_block->id = H5I_INVALID_HID;
}

void hdf_Id::Release() {
  if (m_block != nullptr && --m_block->refs == 0) {
    // Drops this holder's HDF5 reference; HDF5 closes the object with the last one.
    if (Alive(m_block)) H5Idec_ref(m_block->id);
    mem_Free(m_block);
  }
  m_block = nullptr;
  m_id = H5I_INVALID_HID;
}

void hdf_Id::CloseCompletely(hid_t id) {
  // Also the references HDF5 handed out itself (H5Iget_file_id and the like).
  ++g_forcedCloses;
  while (id >= 0 && H5Iis_valid(id) > 0 && H5Idec_ref(id) > 0) {
  }
}

void hdf_Quiet() {
  static bool quiet = false;
  if (!quiet) {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    quiet = true;
  }
}
