#include "platform/hdf_Attribute.h"

#include "platform/hdf_report.h"

hdf_Attribute hdf_Attribute::Adopt(hid_t id) {
  hdf_Attribute a;
  a.m_id = hdf_Id::Own(id);
  return a;
}

bool hdf_Attribute::Write(const hdf_Datatype& memType, const void* data) {
  if (!IsValid()) return false;
  if (!memType.IsValid() || data == nullptr || H5Awrite(Id(), memType.Id(), data) < 0) {
    hdf_ReportFailure("hdf_Attribute::Write", "write attribute", Name().c_str(), Id(), true);
    return false;
  }
  hdf_FlushAfterWrite(Id());
  return true;
}

bool hdf_Attribute::Read(const hdf_Datatype& memType, void* data) const {
  if (!IsValid()) return false;
  if (!memType.IsValid() || data == nullptr || H5Aread(Id(), memType.Id(), data) < 0) {
    hdf_ReportFailure("hdf_Attribute::Read", "read attribute", Name().c_str(), Id(), false);
    return false;
  }
  return true;
}

hdf_Dataspace hdf_Attribute::Space() const {
  return IsValid() ? hdf_Dataspace::Adopt(H5Aget_space(Id())) : hdf_Dataspace();
}

hdf_Datatype hdf_Attribute::Type() const {
  return IsValid() ? hdf_Datatype::Adopt(H5Aget_type(Id())) : hdf_Datatype();
}

cow_String hdf_Attribute::Name() const {
  return IsValid() ? hdf_AttributeName(Id()) : cow_String();
}
