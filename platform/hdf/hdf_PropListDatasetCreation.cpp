#include "platform/hdf/hdf_PropListDatasetCreation.h"

#include "platform/core/aio_ostream.h"

hdf_PropListDatasetCreation::hdf_PropListDatasetCreation() {
  hdf_Quiet();
  m_id = hdf_Id::Own(H5Pcreate(H5P_DATASET_CREATE));
}

hdf_PropListDatasetCreation hdf_PropListDatasetCreation::Default() {
  return hdf_PropListDatasetCreation(H5P_DEFAULT);
}

bool hdf_PropListDatasetCreation::SetChunk(const hdf_DimensionList& dims) {
  if (!IsValid()) return false;
  if (Id() == H5P_DEFAULT || dims.Count() == 0 ||
      H5Pset_chunk(Id(), dims.Count(), dims.Data()) < 0) {
    aio_cerr.print("**ERROR hdf_PropListDatasetCreation::SetChunk: cannot use chunks of rank ")
        .print_int(dims.Count())
        .print("\n");
    return false;
  }
  return true;
}
