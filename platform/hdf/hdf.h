// The HDF5 wrapper: value classes over the HDF5 C library, one per kind of
// HDF5 object, that report failures on aio_cerr instead of HDF5's stack.
#ifndef DDB_PLATFORM_HDF_HDF_H_
#define DDB_PLATFORM_HDF_HDF_H_

#include "platform/hdf/hdf_Attribute.h"
#include "platform/hdf/hdf_Dataset.h"
#include "platform/hdf/hdf_Dataspace.h"
#include "platform/hdf/hdf_Datatype.h"
#include "platform/hdf/hdf_DimensionList.h"
#include "platform/hdf/hdf_File.h"
#include "platform/hdf/hdf_Group.h"
#include "platform/hdf/hdf_PropListDatasetCreation.h"

#endif  // DDB_PLATFORM_HDF_HDF_H_
