#include "platform/hdf/hdf_Attribute.h"

#include "platform/hdf/hdf_report.h"

hdf_Attribute hdf_Attribute::Adopt(hid_t id) {
  hdf_Attribute a;
  a.m_id = hdf_Id::Own(id);
  return a;
}

hdf_Attribute hdf_Attribute::CreateOn(hid_t owner, const cow_String& name, const hdf_Datatype& type,
                                      const hdf_Dataspace& space, const char* operation) {
  hid_t id = H5I_INVALID_HID;
  if (type.IsValid() && space.IsValid()) {
    id = H5Acreate2(owner, name.c_str(), type.Id(), space.Id(), H5P_DEFAULT, H5P_DEFAULT);
  }
  if (id < 0) hdf_ReportFailure(operation, "create attribute", name.c_str(), owner, true);
  return Adopt(id);
}

hdf_Attribute hdf_Attribute::OpenOn(hid_t owner, const cow_String& name, const char* operation) {
  hid_t id = H5Aopen(owner, name.c_str(), H5P_DEFAULT);
  if (id < 0) hdf_ReportFailure(operation, "open attribute", name.c_str(), owner, false);
  return Adopt(id);
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
