#include "platform/service/QELSimCollection.h"

#include "platform/service/QELSimStorage.h"

namespace {

// Why `members` is not an ordered set of distinct members of 0 .. size-1;
// null when it is. `position` receives the offending position.
const char* CheckMembers(const int* members, int count, int size, int* position) {
  if (count > 0 && members == nullptr) return "no members given";
  unsigned char* seen =
      static_cast<unsigned char*>(mem_OperatorNewThrowBuiltin(static_cast<size_t>(size) / 8 + 1));
  for (int i = 0; i <= size / 8; ++i) seen[i] = 0;
  const char* problem = nullptr;
  for (int i = 0; i < count && problem == nullptr; ++i) {
    int m = members[i];
    *position = i;
    if (m < 0 || m >= size) {
      problem = "is outside the collection";
    } else if ((seen[m / 8] >> (m % 8)) & 1) {
      problem = "occurs twice";
    } else {
      seen[m / 8] = static_cast<unsigned char>(seen[m / 8] | 1 << (m % 8));
    }
  }
  mem_Free(seen);
  return problem;
}

}  // namespace

QELSimCollectionID QELSimCollectionRef::Create(QELSimContextID context, int size) {
  const char* operation = "QELSimCollectionRef::Create";
  QELSimStorage* storage = QELSimUseContext(context.Number(), true, operation);
  if (storage == nullptr) return QELSimCollectionID();
  if (size < 0) {
    QELSimError(operation).print("negative size ").print_int(size).put('\n');
    return QELSimCollectionID();
  }
  if (!storage->Ready(true, operation)) return QELSimCollectionID();
  hdf_WriteBatch batch(storage->File());
  uint32_t minor = storage->NextCollection();
  hdf_Group group = storage->Collections().GroupCreate(QELSimMinorName(minor), 0);
  if (!group.IsValid()) return QELSimCollectionID();
  storage->CollectionAdded();  // the name is taken, whatever follows
  hdf_Attribute a = group.AttributeCreate("size", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({1}));
  if (!a.Write(hdf_Datatype::NATIVE_INT(), &size)) return QELSimCollectionID();
  storage->RememberCollection(minor, group, size, 0);
  return QELSimCollectionID(context.Number(), minor);
}

QELSimCollectionRef::QELSimCollectionRef(QELSimCollectionID collection)
    : m_id(collection), m_state(0), m_size(0) {}

bool QELSimCollectionRef::Resolve(const char* operation) const {
  if (m_state == 0) {
    QELSimStorage* storage = nullptr;
    m_state = QELSimLookupCollection(m_id, false, operation, &storage, &m_group, &m_size) ? 1 : -1;
  }
  return m_state > 0;
}

int QELSimCollectionRef::Size() const {
  return Resolve("QELSimCollectionRef::Size") ? m_size : 0;
}

QELSimCSetID QELSimCollectionRef::CreateOrderedCSet(const int* members, int count) {
  const char* operation = "QELSimCollectionRef::CreateOrderedCSet";
  QELSimStorage* storage = nullptr;
  hdf_Group group;
  int size = 0;
  if (!QELSimLookupCollection(m_id, true, operation, &storage, &group, &size)) {
    return QELSimCSetID();
  }
  if (count < 0) {
    QELSimError(operation).print("negative count ").print_int(count).put('\n');
    return QELSimCSetID();
  }
  int position = 0;
  if (const char* problem = CheckMembers(members, count, size, &position)) {
    QELSimError(operation);
    if (count > 0 && members != nullptr) {
      aio_cerr.print("member ").print_int(members[position]).print(" at position ");
      aio_cerr.print_int(position).put(' ');
    }
    aio_cerr.print(problem).print(" (collection ");
    QELSimPrintMinor(m_id.CollectionMinor()).print(" of size ").print_int(size).print(")\n");
    return QELSimCSetID();
  }
  hdf_WriteBatch batch(storage->File());
  uint32_t minor = storage->NextSet(m_id.CollectionMinor(), group);
  hsize_t n = static_cast<hsize_t>(count);
  hdf_Dataspace space({n});
  hdf_Dataset set = group.DatasetCreate(QELSimMinorName(minor), hdf_Datatype::NATIVE_INT(), space,
                                        hdf_PropListDatasetCreation::Default());
  if (!set.IsValid()) return QELSimCSetID();
  storage->SetAdded(m_id.CollectionMinor());  // the name is taken, whatever follows
  if (n > 0 && !set.Write(hdf_Datatype::NATIVE_INT(), space, space, members)) {
    return QELSimCSetID();
  }
  storage->RememberSet(m_id.CollectionMinor(), minor, set, count);
  return QELSimCSetID(m_id.ContextNumber(), m_id.CollectionMinor(), minor);
}

QELSimCSet::QELSimCSet(QELSimCSetID set) : m_id(set), m_state(0), m_size(0) {}

bool QELSimCSet::Resolve(const char* operation) const {
  if (m_state == 0) {
    QELSimStorage* storage = nullptr;
    m_state = QELSimLookupSet(m_id, false, operation, &storage, &m_members, &m_size) ? 1 : -1;
  }
  return m_state > 0;
}

int QELSimCSet::Size() const {
  return Resolve("QELSimCSet::Size") ? m_size : 0;
}

void QELSimCSet::OrderedMembers(int* out) const {
  if (!Resolve("QELSimCSet::OrderedMembers") || m_size == 0) return;
  if (out == nullptr) {
    QELSimError("QELSimCSet::OrderedMembers").print("no buffer given\n");
    return;
  }
  hsize_t n = static_cast<hsize_t>(m_size);
  m_members.Read(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({n}), m_members.Space(), out);
}
