// hdf_PropListDatasetCreation: how a dataset is laid out when it is created.
// The default is HDF5's (contiguous); SetChunk makes it chunked, which an
// extensible dataset needs.
#ifndef DDB_PLATFORM_HDF_HDF_PROPLISTDATASETCREATION_H_
#define DDB_PLATFORM_HDF_HDF_PROPLISTDATASETCREATION_H_

#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_DimensionList.h"
#include "platform/hdf/hdf_Id.h"

class DDB_API hdf_PropListDatasetCreation {
 public:
  hdf_PropListDatasetCreation();
  // HDF5's default list, shared and unchangeable (SetChunk fails): for the
  // many datasets that need nothing special, without making a list each time.
  static hdf_PropListDatasetCreation Default();

  bool IsValid() const { return m_id.IsValid(); }
  hid_t Id() const { return m_id.Get(); }
  // Chunked layout with chunks of `dims` (one entry per dimension, none 0).
  bool SetChunk(const hdf_DimensionList& dims);

 private:
  explicit hdf_PropListDatasetCreation(hid_t borrowed) : m_id(hdf_Id::Borrow(borrowed)) {}
  hdf_Id m_id;
};

#endif  // DDB_PLATFORM_HDF_HDF_PROPLISTDATASETCREATION_H_
