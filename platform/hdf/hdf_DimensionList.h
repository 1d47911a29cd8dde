// hdf_DimensionList: the extents of an HDF5 dataspace, a small value list.
//
// Fixed room for HDF5's largest rank, so a list never allocates; entries
// beyond that rank are dropped. Reading past the end gives 0.
#ifndef DDB_PLATFORM_HDF_HDF_DIMENSIONLIST_H_
#define DDB_PLATFORM_HDF_HDF_DIMENSIONLIST_H_

#include <hdf5.h>

#include <initializer_list>

// A maximum extent without limit.
constexpr hsize_t hdf_Unlimited = H5S_UNLIMITED;

class hdf_DimensionList {
 public:
  enum { kMaxRank = H5S_MAX_RANK };

  hdf_DimensionList() : m_count(0), m_dims{} {}
  hdf_DimensionList(std::initializer_list<hsize_t> dims) : m_count(0), m_dims{} {
    for (hsize_t d : dims) Append(d);
  }

  int Count() const { return m_count; }
  hsize_t operator[](int i) const { return i >= 0 && i < m_count ? m_dims[i] : 0; }
  void Append(hsize_t d) {
    if (m_count < kMaxRank) m_dims[m_count++] = d;
  }
  // Sets entry i, for 0 <= i < Count().
  void Set(int i, hsize_t d) {
    if (i >= 0 && i < m_count) m_dims[i] = d;
  }
  // For HDF5 calls; null for an empty list.
  const hsize_t* Data() const { return m_count > 0 ? m_dims : nullptr; }

  friend bool operator==(const hdf_DimensionList& a, const hdf_DimensionList& b) {
    if (a.m_count != b.m_count) return false;
    for (int i = 0; i < a.m_count; ++i) {
      if (a.m_dims[i] != b.m_dims[i]) return false;
    }
    return true;
  }
  friend bool operator!=(const hdf_DimensionList& a, const hdf_DimensionList& b) {
    return !(a == b);
  }

 private:
  int m_count;
  hsize_t m_dims[kMaxRank];
};

#endif  // DDB_PLATFORM_HDF_HDF_DIMENSIONLIST_H_
