#include "platform/hdf/hdf_Datatype.h"

// The H5T_NATIVE_* names are macros that open HDF5 on first use, so each is
// read only when asked for.
hdf_Datatype hdf_Datatype::Native(hid_t (*predefined)()) {
  hdf_Quiet();
  hdf_Datatype t;
  t.m_id = hdf_Id::Borrow(predefined());
  return t;
}

hdf_Datatype hdf_Datatype::NATIVE_INT() {
  return Native([] { return H5T_NATIVE_INT; });
}
hdf_Datatype hdf_Datatype::NATIVE_UINT() {
  return Native([] { return H5T_NATIVE_UINT; });
}
hdf_Datatype hdf_Datatype::NATIVE_UCHAR() {
  return Native([] { return H5T_NATIVE_UCHAR; });
}

hdf_Datatype hdf_Datatype::Adopt(hid_t id) {
  hdf_Datatype t;
  t.m_id = hdf_Id::Own(id);
  return t;
}

bool hdf_Datatype::Equal(const hdf_Datatype& other) const {
  if (!IsValid() || !other.IsValid()) return false;
  return H5Tequal(Id(), other.Id()) > 0;
}

size_t hdf_Datatype::Size() const {
  return IsValid() ? H5Tget_size(Id()) : 0;
}
