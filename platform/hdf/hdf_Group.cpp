#include "platform/hdf/hdf_Group.h"

#include "platform/hdf/hdf_report.h"

hdf_Group hdf_Group::Adopt(hid_t id) {
  hdf_Group g;
  g.m_id = hdf_Id::Own(id);
  return g;
}

hdf_Group hdf_Group::GroupCreate(const cow_String& name, int /*sizeHint*/) const {
  if (!IsValid()) return hdf_Group();
  hid_t id = H5Gcreate2(Id(), name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  if (id < 0) Report("hdf_Group::GroupCreate", "create group", name, true);
  return Adopt(id);
}

hdf_Group hdf_Group::GroupOpen(const cow_String& name) const {
  if (!IsValid()) return hdf_Group();
  hid_t id = H5Gopen2(Id(), name.c_str(), H5P_DEFAULT);
  if (id < 0) Report("hdf_Group::GroupOpen", "open group", name, false);
  return Adopt(id);
}

hdf_Group hdf_Group::TryGroupOpen(const cow_String& name) const {
  if (!IsValid()) return hdf_Group();
  return Adopt(H5Gopen2(Id(), name.c_str(), H5P_DEFAULT));
}

hdf_Dataset hdf_Group::TryDatasetOpen(const cow_String& name) const {
  if (!IsValid()) return hdf_Dataset();
  return hdf_Dataset::Adopt(H5Dopen2(Id(), name.c_str(), H5P_DEFAULT));
}

bool hdf_Group::GetObjinfoExists(const cow_String& name) const {
  if (!IsValid() || name.empty()) return false;
  return H5Lexists(Id(), name.c_str(), H5P_DEFAULT) > 0;
}

int hdf_Group::NumObjects() const {
  H5G_info_t info;
  if (!IsValid() || H5Gget_info(Id(), &info) < 0) return 0;
  return static_cast<int>(info.nlinks);
}

hdf_Attribute hdf_Group::AttributeCreate(const cow_String& name, const hdf_Datatype& type,
                                         const hdf_Dataspace& space) const {
  if (!IsValid()) return hdf_Attribute();
  return hdf_Attribute::CreateOn(Id(), name, type, space, "hdf_Group::AttributeCreate");
}

hdf_Attribute hdf_Group::AttributeOpen(const cow_String& name) const {
  if (!IsValid()) return hdf_Attribute();
  return hdf_Attribute::OpenOn(Id(), name, "hdf_Group::AttributeOpen");
}

bool hdf_Group::AttributeExists(const cow_String& name) const {
  if (!IsValid()) return false;
  return H5Aexists(Id(), name.c_str()) > 0;
}

hdf_Dataset hdf_Group::DatasetCreate(const cow_String& name, const hdf_Datatype& type,
                                     const hdf_Dataspace& space,
                                     const hdf_PropListDatasetCreation& creation) const {
  if (!IsValid()) return hdf_Dataset();
  hid_t id = H5I_INVALID_HID;
  if (type.IsValid() && space.IsValid() && creation.IsValid()) {
    id = H5Dcreate2(Id(), name.c_str(), type.Id(), space.Id(), H5P_DEFAULT, creation.Id(),
                    H5P_DEFAULT);
  }
  if (id < 0) Report("hdf_Group::DatasetCreate", "create dataset", name, true);
  return hdf_Dataset::Adopt(id);
}

hdf_Dataset hdf_Group::DatasetOpen(const cow_String& name) const {
  if (!IsValid()) return hdf_Dataset();
  hid_t id = H5Dopen2(Id(), name.c_str(), H5P_DEFAULT);
  if (id < 0) Report("hdf_Group::DatasetOpen", "open dataset", name, false);
  return hdf_Dataset::Adopt(id);
}

cow_String hdf_Group::Name() const {
  return IsValid() ? hdf_ObjectPath(Id()) : cow_String();
}

void hdf_Group::Report(const char* operation, const char* action, const cow_String& name,
                       bool writing) const {
  hdf_ReportFailure(operation, action, name.c_str(), Id(), writing);
}
