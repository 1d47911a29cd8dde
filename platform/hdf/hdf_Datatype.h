// hdf_Datatype: an HDF5 datatype; the native types are HDF5's own and are
// never closed, the type of an attribute or dataset is a copy owned here.
#ifndef DDB_PLATFORM_HDF_HDF_DATATYPE_H_
#define DDB_PLATFORM_HDF_HDF_DATATYPE_H_

#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_Id.h"

class DDB_API hdf_Datatype {
 public:
  hdf_Datatype() {}
  static hdf_Datatype NATIVE_INT();
  static hdf_Datatype NATIVE_UINT();
  static hdf_Datatype NATIVE_UCHAR();
  // Takes over a datatype identifier (closed with the last copy).
  static hdf_Datatype Adopt(hid_t id);

  bool IsValid() const { return m_id.IsValid(); }
  hid_t Id() const { return m_id.Get(); }
  // Same HDF5 type (H5Tequal); false when either is invalid.
  bool Equal(const hdf_Datatype& other) const;
  // Size of one element in bytes, 0 when invalid.
  size_t Size() const;

 private:
  static hdf_Datatype Native(hid_t (*predefined)());
  hdf_Id m_id;
};

#endif  // DDB_PLATFORM_HDF_HDF_DATATYPE_H_
