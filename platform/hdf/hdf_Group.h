// hdf_Group: an HDF5 group (the root group of a file included), the place
// where child groups, attributes and datasets are made and found by name.
//
// A failing call prints one line naming the operation, the name, the
// group's path and the file. The probes GetObjinfoExists and AttributeExists,
// and the Try... opens, are silent: a missing name is an answer, not a failure.
#ifndef DDB_PLATFORM_HDF_HDF_GROUP_H_
#define DDB_PLATFORM_HDF_HDF_GROUP_H_

#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_Attribute.h"
#include "platform/hdf/hdf_Dataset.h"
#include "platform/hdf/hdf_Dataspace.h"
#include "platform/hdf/hdf_Datatype.h"
#include "platform/hdf/hdf_Id.h"
#include "platform/hdf/hdf_PropListDatasetCreation.h"

class DDB_API hdf_Group {
 public:
  hdf_Group() {}
  // Takes over a group identifier (closed with the last copy).
  static hdf_Group Adopt(hid_t id);

  bool IsValid() const { return m_id.IsValid(); }
  hid_t Id() const { return m_id.Get(); }

  // A new child group. The int is a size hint of older HDF5 versions; unused.
  hdf_Group GroupCreate(const cow_String& name, int sizeHint) const;
  hdf_Group GroupOpen(const cow_String& name) const;
  // GroupOpen and DatasetOpen for a name that may well be absent: silent, and
  // one look-up instead of a probe and an open.
  hdf_Group TryGroupOpen(const cow_String& name) const;
  hdf_Dataset TryDatasetOpen(const cow_String& name) const;
  // Whether `name` (a child, or a relative path) exists; false for an invalid group.
  bool GetObjinfoExists(const cow_String& name) const;
  // Number of links (children) in the group; 0 when invalid.
  int NumObjects() const;

  hdf_Attribute AttributeCreate(const cow_String& name, const hdf_Datatype& type,
                                const hdf_Dataspace& space) const;
  hdf_Attribute AttributeOpen(const cow_String& name) const;
  bool AttributeExists(const cow_String& name) const;

  hdf_Dataset DatasetCreate(const cow_String& name, const hdf_Datatype& type,
                            const hdf_Dataspace& space,
                            const hdf_PropListDatasetCreation& creation) const;
  hdf_Dataset DatasetOpen(const cow_String& name) const;

  // Path in the file ("/sim"), for messages.
  cow_String Name() const;

 private:
  void Report(const char* operation, const char* action, const cow_String& name,
              bool writing) const;
  hdf_Id m_id;
};

#endif  // DDB_PLATFORM_HDF_HDF_GROUP_H_
