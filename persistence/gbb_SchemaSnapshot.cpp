#include "persistence/gbb_SchemaSnapshot.h"

#include "containers/omi_Btree_impl.h"
#include "platform/core/aio_ostream.h"

// The registry's tree, instantiated here for the library's own use.
template class omi_Btree<gbb_ClassID, gbb_Class>;

gbb_SchemaSnapshotImpl::gbb_SchemaSnapshotImpl() {}

gbb_SchemaSnapshotImpl::~gbb_SchemaSnapshotImpl() {}

void gbb_SchemaSnapshotImpl::Register(gbb_Class cls) {
  m_classes.Insert(cls.ClassID(), cls);
}

gbb_Class gbb_SchemaSnapshotImpl::GetClass(const gbb_ClassID& id) const {
  return m_classes.ConstGet(id);
}

int gbb_SchemaSnapshotImpl::Count() const {
  return m_classes.Count();
}

gbb_SchemaSnapshot::gbb_SchemaSnapshot(const gbb_Handle& handle) : m_impl(nullptr) {
  if (handle.Class().IsA(StaticClass())) {
    m_impl = static_cast<gbb_SchemaSnapshotImpl*>(handle.Pointer());
  }
}

gbb_SchemaSnapshot::operator gbb_Handle() const {
  return m_impl != nullptr ? gbb_Handle(m_impl, StaticClass()) : gbb_Handle();
}

gbb_Class gbb_SchemaSnapshot::GetClass(const gbb_ClassID& id) const {
  if (m_impl == nullptr) {
    aio_cerr.print("**ERROR: gbb_SchemaSnapshot::GetClass: called on an empty handle\n");
    return gbb_Class();
  }
  return m_impl->GetClass(id);
}

gbb_Class gbb_SchemaSnapshot::StaticClass() {
  static gbb_ClassDescriptor descriptor;
  return gbb_DescribeClass(descriptor, "com.trevolo.SchemaSnapshot", nullptr, nullptr);
}
