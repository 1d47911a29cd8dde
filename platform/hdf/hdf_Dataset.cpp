#include "platform/hdf/hdf_Dataset.h"

#include "platform/hdf/hdf_report.h"

namespace {
bool AllValid(const hdf_Datatype& type, const hdf_Dataspace& memSpace,
              const hdf_Dataspace& fileSpace, const void* data) {
  return type.IsValid() && memSpace.IsValid() && fileSpace.IsValid() && data != nullptr;
}
}  // namespace

hdf_Dataset hdf_Dataset::Adopt(hid_t id) {
  hdf_Dataset d;
  d.m_id = hdf_Id::Own(id);
  return d;
}

hdf_Dataspace hdf_Dataset::Space() const {
  return IsValid() ? hdf_Dataspace::Adopt(H5Dget_space(Id())) : hdf_Dataspace();
}

hdf_Datatype hdf_Dataset::Type() const {
  return IsValid() ? hdf_Datatype::Adopt(H5Dget_type(Id())) : hdf_Datatype();
}

hsize_t hdf_Dataset::StorageSize() const {
  return IsValid() ? H5Dget_storage_size(Id()) : 0;
}

bool hdf_Dataset::Extend(const hdf_DimensionList& size) {
  if (!IsValid()) return false;
  hdf_DimensionList current = Space().Dimensions();
  bool grows = false;
  bool fits = current.Count() == size.Count();
  for (int i = 0; fits && i < size.Count(); ++i) {
    if (size[i] > current[i]) {
      current.Set(i, size[i]);
      grows = true;
    }
  }
  if (fits && !grows) return true;
  if (!fits || H5Dset_extent(Id(), current.Data()) < 0) {
    hdf_ReportFailure("hdf_Dataset::Extend", "extend", nullptr, Id(), true);
    return false;
  }
  return true;
}

bool hdf_Dataset::Write(const hdf_Datatype& memType, const hdf_Dataspace& memSpace,
                        const hdf_Dataspace& fileSpace, const void* data) {
  if (!IsValid()) return false;
  if (!AllValid(memType, memSpace, fileSpace, data) ||
      H5Dwrite(Id(), memType.Id(), memSpace.Id(), fileSpace.Id(), H5P_DEFAULT, data) < 0) {
    hdf_ReportFailure("hdf_Dataset::Write", "write", nullptr, Id(), true);
    return false;
  }
  hdf_FlushAfterWrite(Id());
  return true;
}

bool hdf_Dataset::Read(const hdf_Datatype& memType, const hdf_Dataspace& memSpace,
                       const hdf_Dataspace& fileSpace, void* data) const {
  if (!IsValid()) return false;
  if (!AllValid(memType, memSpace, fileSpace, data) ||
      H5Dread(Id(), memType.Id(), memSpace.Id(), fileSpace.Id(), H5P_DEFAULT, data) < 0) {
    hdf_ReportFailure("hdf_Dataset::Read", "read", nullptr, Id(), false);
    return false;
  }
  return true;
}

hdf_Attribute hdf_Dataset::AttributeCreate(const cow_String& name, const hdf_Datatype& type,
                                           const hdf_Dataspace& space) const {
  if (!IsValid()) return hdf_Attribute();
  return hdf_Attribute::CreateOn(Id(), name, type, space, "hdf_Dataset::AttributeCreate");
}

hdf_Attribute hdf_Dataset::AttributeOpen(const cow_String& name) const {
  if (!IsValid()) return hdf_Attribute();
  return hdf_Attribute::OpenOn(Id(), name, "hdf_Dataset::AttributeOpen");
}

cow_String hdf_Dataset::Name() const {
  return IsValid() ? hdf_ObjectPath(Id()) : cow_String();
}
