// hdf_Dataset: an HDF5 dataset, read and written through selections.
#ifndef DDB_PLATFORM_HDF_HDF_DATASET_H_
#define DDB_PLATFORM_HDF_HDF_DATASET_H_

#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_Attribute.h"
#include "platform/hdf/hdf_Dataspace.h"
#include "platform/hdf/hdf_Datatype.h"
#include "platform/hdf/hdf_Id.h"

class DDB_API hdf_Dataset {
 public:
  hdf_Dataset() {}
  // Takes over a dataset identifier (closed with the last copy).
  static hdf_Dataset Adopt(hid_t id);

  bool IsValid() const { return m_id.IsValid(); }
  hid_t Id() const { return m_id.Get(); }
  // The current extent (a fresh dataspace on every call).
  hdf_Dataspace Space() const;
  hdf_Datatype Type() const;
  // The bytes the file holds for the dataset's values (0 when none, or invalid):
  // what an extent read from a damaged file cannot be trusted beyond.
  hsize_t StorageSize() const;
  // Grows the dataset to at least `size` in every dimension; never shrinks it.
  bool Extend(const hdf_DimensionList& size);
  // The selection of `memSpace` in `data` to the selection of `fileSpace`;
  // made durable before returning (see hdf_File::SetFlushAfterWrites).
  bool Write(const hdf_Datatype& memType, const hdf_Dataspace& memSpace,
             const hdf_Dataspace& fileSpace, const void* data);
  bool Read(const hdf_Datatype& memType, const hdf_Dataspace& memSpace,
            const hdf_Dataspace& fileSpace, void* data) const;
  // Attributes of the dataset, as for a group.
  hdf_Attribute AttributeCreate(const cow_String& name, const hdf_Datatype& type,
                                const hdf_Dataspace& space) const;
  hdf_Attribute AttributeOpen(const cow_String& name) const;
  // Path in the file ("/sim/mesh/#simpleTypeMembers").
  cow_String Name() const;

 private:
  hdf_Id m_id;
};

#endif  // DDB_PLATFORM_HDF_HDF_DATASET_H_
