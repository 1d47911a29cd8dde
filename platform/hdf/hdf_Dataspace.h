// hdf_Dataspace: the shape of an attribute or dataset, and a selection in it.
//
// Copies share the HDF5 dataspace, selection included.
#ifndef DDB_PLATFORM_HDF_HDF_DATASPACE_H_
#define DDB_PLATFORM_HDF_HDF_DATASPACE_H_

#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_DimensionList.h"
#include "platform/hdf/hdf_Id.h"

class DDB_API hdf_Dataspace {
 public:
  hdf_Dataspace() {}
  // A simple dataspace; an empty list makes a scalar one. Maximum = current.
  explicit hdf_Dataspace(const hdf_DimensionList& current);
  // Extensible: each maximum at least its current extent, or hdf_Unlimited.
  hdf_Dataspace(const hdf_DimensionList& current, const hdf_DimensionList& maximum);
  // Takes over a dataspace identifier (closed with the last copy).
  static hdf_Dataspace Adopt(hid_t id);

  bool IsValid() const { return m_id.IsValid(); }
  hid_t Id() const { return m_id.Get(); }
  // Empty when invalid or scalar.
  hdf_DimensionList Dimensions() const;
  hdf_DimensionList MaxDimensions() const;
  // Replaces the selection by one block of `count` elements from `start`.
  bool SelectHyperslab(const hdf_DimensionList& start, const hdf_DimensionList& count);

 private:
  void Make(const hdf_DimensionList& current, const hsize_t* maximum);
  hdf_DimensionList Extent(bool maximum) const;
  hdf_Id m_id;
};

#endif  // DDB_PLATFORM_HDF_HDF_DATASPACE_H_
