// hdf_Attribute: a small named value attached to a group or dataset.
#ifndef DDB_PLATFORM_HDF_HDF_ATTRIBUTE_H_
#define DDB_PLATFORM_HDF_HDF_ATTRIBUTE_H_

#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_Dataspace.h"
#include "platform/hdf/hdf_Datatype.h"
#include "platform/hdf/hdf_Id.h"

class DDB_API hdf_Attribute {
 public:
  hdf_Attribute() {}
  // Takes over an attribute identifier (closed with the last copy).
  static hdf_Attribute Adopt(hid_t id);
  // Creating and opening an attribute of a group or dataset `owner`; a
  // failure is reported as `operation` (e.g. "hdf_Group::AttributeOpen").
  static hdf_Attribute CreateOn(hid_t owner, const cow_String& name, const hdf_Datatype& type,
                                const hdf_Dataspace& space, const char* operation);
  static hdf_Attribute OpenOn(hid_t owner, const cow_String& name, const char* operation);

  bool IsValid() const { return m_id.IsValid(); }
  hid_t Id() const { return m_id.Get(); }
  // The whole attribute, from `data` in memory type `memType`; made durable
  // before returning (see hdf_File::SetFlushAfterWrites).
  bool Write(const hdf_Datatype& memType, const void* data);
  // The whole attribute into `data`, which must hold all its elements.
  bool Read(const hdf_Datatype& memType, void* data) const;
  hdf_Dataspace Space() const;
  hdf_Datatype Type() const;
  cow_String Name() const;

 private:
  hdf_Id m_id;
};

#endif  // DDB_PLATFORM_HDF_HDF_ATTRIBUTE_H_
