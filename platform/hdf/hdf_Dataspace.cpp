#include "platform/hdf/hdf_Dataspace.h"

#include "platform/core/aio_ostream.h"

hdf_Dataspace::hdf_Dataspace(const hdf_DimensionList& current) {
  Make(current, nullptr);
}

hdf_Dataspace::hdf_Dataspace(const hdf_DimensionList& current, const hdf_DimensionList& maximum) {
  if (maximum.Count() != current.Count()) {
    aio_cerr.print("**ERROR hdf_Dataspace::hdf_Dataspace: ")
        .print_int(current.Count())
        .print(" current but ")
        .print_int(maximum.Count())
        .print(" maximum dimensions\n");
    return;
  }
  Make(current, maximum.Data());
}

void hdf_Dataspace::Make(const hdf_DimensionList& current, const hsize_t* maximum) {
  hdf_Quiet();
  hid_t id = current.Count() == 0 ? H5Screate(H5S_SCALAR)
                                  : H5Screate_simple(current.Count(), current.Data(), maximum);
  if (id < 0) {
    aio_cerr.print("**ERROR hdf_Dataspace::hdf_Dataspace: cannot make a dataspace of rank ")
        .print_int(current.Count())
        .print("\n");
  }
  m_id = hdf_Id::Own(id);
}

hdf_Dataspace hdf_Dataspace::Adopt(hid_t id) {
  hdf_Dataspace s;
  s.m_id = hdf_Id::Own(id);
  return s;
}

hdf_DimensionList hdf_Dataspace::Dimensions() const {
  return Extent(false);
}

hdf_DimensionList hdf_Dataspace::MaxDimensions() const {
  return Extent(true);
}

hdf_DimensionList hdf_Dataspace::Extent(bool maximum) const {
  hdf_DimensionList result;
  if (!IsValid()) return result;
  // Room for the largest rank, so one call gives the rank and the extents.
  hsize_t current[hdf_DimensionList::kMaxRank];
  hsize_t limit[hdf_DimensionList::kMaxRank];
  int rank = H5Sget_simple_extent_dims(Id(), current, limit);
  for (int i = 0; i < rank; ++i) result.Append(maximum ? limit[i] : current[i]);
  return result;
}

bool hdf_Dataspace::SelectHyperslab(const hdf_DimensionList& start,
                                    const hdf_DimensionList& count) {
  if (!IsValid()) return false;
  int rank = H5Sget_simple_extent_ndims(Id());
  if (rank <= 0 || start.Count() != rank || count.Count() != rank ||
      H5Sselect_hyperslab(Id(), H5S_SELECT_SET, start.Data(), nullptr, count.Data(), nullptr) < 0) {
    aio_cerr.print("**ERROR hdf_Dataspace::SelectHyperslab: cannot select ")
        .print_int(count.Count())
        .print("-dimensional block at ")
        .print_int(start.Count())
        .print("-dimensional start in a dataspace of rank ")
        .print_int(rank)
        .print("\n");
    return false;
  }
  return true;
}
