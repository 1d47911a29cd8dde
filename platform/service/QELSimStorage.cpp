#include "platform/service/QELSimStorage.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const char kServiceGroup[] = "QELSim";
const int kFormatVersion = 1;

struct Context {
  int number;
  bool readOnly;
  QELSimStorage* storage;
  Context* next;
};

// Plain values: constant-initialised, nothing runs at load.
Context* g_contexts = nullptr;
int g_nextContext = 1;

Context* Find(int number) {
  for (Context* c = g_contexts; c != nullptr; c = c->next) {
    if (c->number == number) return c;
  }
  return nullptr;
}

bool WriteIntAttribute(const hdf_Group& group, const char* name, int value) {
  hdf_Attribute a = group.AttributeCreate(name, hdf_Datatype::NATIVE_INT(), hdf_Dataspace({1}));
  return a.Write(hdf_Datatype::NATIVE_INT(), &value);
}

// The number of elements of a one-dimensional space that an int can count;
// -1 for any other shape. Files may be damaged: nothing is read on trust.
int Count(const hdf_Dataspace& space) {
  hdf_DimensionList dims = space.Dimensions();
  return dims.Count() == 1 && dims[0] <= 0x7FFFFFFF ? static_cast<int>(dims[0]) : -1;
}

// Reads an attribute that must hold exactly `count` elements.
bool ReadAttribute(const hdf_Attribute& a, const hdf_Datatype& type, int count, void* out) {
  return Count(a.Space()) == count && a.Read(type, out);
}

// Members are checked in pieces of this many (256 KB): one buffer that
// stays in the processor's cache. A buffer the size of a large set costs
// what the caller's own read of the set costs (its new pages are most of
// that), which doubled every first read of bulk data; a piece at a time the
// check costs one pass over the set's bytes in the page cache.
const int kCheckPiece = 1 << 16;
// Read into the caller's buffer, a piece is still in the processor's last
// level cache when it is checked; fewer, larger reads cost HDF5 less.
const int kReadPiece = 1 << 20;

// Why the `count` stored members of a set are not members of a collection
// of `size`: null when they are; else *outside and *member say which one.
// With `into`, the members are read there, each piece checked while it is
// still in the cache: one pass over the bytes for a read and its check.
const char* CheckStoredMembers(const hdf_Dataset& members, int count, int size, int* outside,
                               int* member, int* into = nullptr) {
  const hsize_t total = static_cast<hsize_t>(count);
  const hsize_t piece = std::min<hsize_t>(total, into == nullptr ? kCheckPiece : kReadPiece);
  std::vector<int> buffer(into == nullptr ? static_cast<size_t>(piece) : 0);
  hdf_Dataspace file = members.Space();
  for (hsize_t start = 0; start < total; start += piece) {
    const hsize_t n = std::min(piece, total - start);
    int* read = into == nullptr ? buffer.data() : into + start;
    if ((n < total && !file.SelectHyperslab({start}, {n})) ||
        !members.Read(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({n}), file, read)) {
      return "cannot be read";
    }
    int at = QELSimFirstOutside(read, static_cast<int>(n), size);
    if (at >= 0) {
      *outside = static_cast<int>(start) + at;
      *member = read[at];
      return "has a member outside its collection";
    }
  }
  return nullptr;
}

}  // namespace

QELSimStorage::QELSimStorage(const hdf_File& file, dev_t device, ino_t inode, bool writable)
    : device(device),
      inode(inode),
      users(0),
      m_file(file),
      m_writable(writable),
      m_numCollections(kQELSimNoMinor),
      m_numDistributions(kQELSimNoMinor),
      m_lastCollection{kQELSimNoMinor, hdf_Group(), 0, kQELSimNoMinor},
      m_lastSet{kQELSimNoMinor, kQELSimNoMinor, hdf_Dataset(), 0, 0, false},
      m_lastDistributionMinor(kQELSimNoMinor),
      m_lastDistribution() {}

bool QELSimStorage::CheckFormat(const char* operation) {
  hdf_Group root = m_file.RootGroup();
  if (!root.GetObjinfoExists(kServiceGroup)) return true;
  hdf_Group service = root.GroupOpen(kServiceGroup);
  bool present = service.AttributeExists("formatVersion");
  int found = 0;
  if (present &&
      ReadAttribute(service.AttributeOpen("formatVersion"), hdf_Datatype::NATIVE_INT(), 1,
                    &found) &&
      found == kFormatVersion) {
    return true;
  }
  QELSimError(operation).print("file ") << m_file.Name();
  if (present) {
    aio_cerr.print(": service data of format version ").print_int(found);
  } else {
    aio_cerr.print(": service data without a format version");
  }
  aio_cerr.print(", not ").print_int(kFormatVersion).put('\n');
  m_foreign = true;
  return false;
}

bool QELSimStorage::Ready(bool create, const char* operation) {
  if (m_foreign) {
    if (operation != nullptr) {
      QELSimError(operation).print("the file's service data are of another format\n");
    }
    return false;
  }
  if (m_collections.IsValid() && m_distributions.IsValid()) return true;
  hdf_Group root = m_file.RootGroup();
  hdf_Group service;
  if (root.GetObjinfoExists(kServiceGroup)) {
    service = root.GroupOpen(kServiceGroup);
    m_collections = service.GroupOpen("collections");
    m_distributions = service.GroupOpen("distributions");
  } else if (create) {
    hdf_WriteBatch batch(m_file);
    service = root.GroupCreate(kServiceGroup, 0);
    WriteIntAttribute(service, "formatVersion", kFormatVersion);
    m_collections = service.GroupCreate("collections", 0);
    m_distributions = service.GroupCreate("distributions", 0);
  }
  if (!m_collections.IsValid() || !m_distributions.IsValid()) {
    m_collections = hdf_Group();
    m_distributions = hdf_Group();
    return false;
  }
  return true;
}

uint32_t QELSimStorage::NextCollection() {
  if (m_numCollections == kQELSimNoMinor) {
    m_numCollections = static_cast<uint32_t>(m_collections.NumObjects());
  }
  return m_numCollections;
}

uint32_t QELSimStorage::NextDistribution() {
  if (m_numDistributions == kQELSimNoMinor) {
    m_numDistributions = static_cast<uint32_t>(m_distributions.NumObjects());
  }
  return m_numDistributions;
}

bool QELSimStorage::FindCollection(uint32_t minor, hdf_Group* group, int* size) {
  if (minor == m_lastCollection.minor && m_lastCollection.group.IsValid()) {
    *group = m_lastCollection.group;
    *size = m_lastCollection.size;
    return true;
  }
  if (!Ready(false)) return false;
  *group = m_collections.TryGroupOpen(QELSimMinorName(minor));
  *size = 0;
  if (!group->IsValid() ||
      !ReadAttribute(group->AttributeOpen("size"), hdf_Datatype::NATIVE_INT(), 1, size) ||
      *size < 0) {
    return false;
  }
  RememberCollection(minor, *group, *size);
  return true;
}

bool QELSimStorage::FindSet(uint32_t collection, uint32_t set, bool checkMembers,
                            hdf_Dataset* members, int* size, const char* operation, bool* damaged) {
  // Distinct members of the collection: never more than it has, each inside it.
  if (collection != m_lastSet.collection || set != m_lastSet.set || !m_lastSet.members.IsValid()) {
    hdf_Group group;
    int collectionSize = 0;
    if (!FindCollection(collection, &group, &collectionSize)) return false;
    hdf_Dataset found = group.TryDatasetOpen(QELSimMinorName(set));
    const int count = Count(found.Space());
    if (count < 0) return false;
    const char* problem = nullptr;
    if (count > collectionSize) {
      problem = "has more members than its collection";
    } else if (found.StorageSize() < static_cast<hsize_t>(count) * sizeof(int)) {
      problem = "holds fewer members in the file than its extent";
    }
    if (problem != nullptr) {
      return ReportSet(collection, set, collectionSize, problem, -1, 0, operation, damaged);
    }
    m_lastSet = {collection, set, found, count, collectionSize, count == 0};
  }
  if (checkMembers && !m_lastSet.checked) {
    int outside = -1;  // the position of a member outside the collection
    int member = 0;    // and that member
    if (const char* problem = CheckStoredMembers(m_lastSet.members, m_lastSet.size,
                                                 m_lastSet.collectionSize, &outside, &member)) {
      return ReportSet(collection, set, m_lastSet.collectionSize, problem, outside, member,
                       operation, damaged);
    }
    m_lastSet.checked = true;
  }
  *members = m_lastSet.members;
  *size = m_lastSet.size;
  return true;
}

bool QELSimStorage::ReadSet(uint32_t collection, uint32_t set, int* out, const char* operation,
                            bool* damaged) {
  hdf_Dataset members;
  int size = 0;
  if (!FindSet(collection, set, false, &members, &size, operation, damaged)) return false;
  if (size == 0) return true;
  if (m_lastSet.checked) {
    hsize_t n = static_cast<hsize_t>(size);
    return members.Read(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({n}), members.Space(), out);
  }
  int outside = -1, member = 0;
  if (const char* problem =
          CheckStoredMembers(members, size, m_lastSet.collectionSize, &outside, &member, out)) {
    return ReportSet(collection, set, m_lastSet.collectionSize, problem, outside, member, operation,
                     damaged);
  }
  m_lastSet.checked = true;
  return true;
}

bool QELSimStorage::ReportSet(uint32_t collection, uint32_t set, int collectionSize,
                              const char* problem, int outside, int member, const char* operation,
                              bool* damaged) {
  *damaged = true;
  QELSimError(operation).print("set ");
  QELSimPrintMinor(set).print(" of collection ");
  QELSimPrintMinor(collection).print(" (size ").print_int(collectionSize).print(") ");
  aio_cerr.print(problem);
  if (outside >= 0) {
    aio_cerr.print(": ").print_int(member);
    aio_cerr.print(" at position ").print_int(outside);
  }
  aio_cerr.put('\n');
  return false;
}

void QELSimStorage::RememberCollection(uint32_t minor, const hdf_Group& group, int size,
                                       uint32_t sets) {
  if (minor != m_lastCollection.minor || sets != kQELSimNoMinor) m_lastCollection.sets = sets;
  m_lastCollection.minor = minor;
  m_lastCollection.group = group;
  m_lastCollection.size = size;
}

uint32_t QELSimStorage::NextSet(uint32_t collection, const hdf_Group& group) {
  if (collection != m_lastCollection.minor) return static_cast<uint32_t>(group.NumObjects());
  if (m_lastCollection.sets == kQELSimNoMinor) {
    m_lastCollection.sets = static_cast<uint32_t>(group.NumObjects());
  }
  return m_lastCollection.sets;
}

void QELSimStorage::SetAdded(uint32_t collection) {
  if (collection == m_lastCollection.minor && m_lastCollection.sets != kQELSimNoMinor) {
    ++m_lastCollection.sets;
  }
}

void QELSimStorage::RememberSet(uint32_t collection, uint32_t set, const hdf_Dataset& members,
                                int size, int collectionSize) {
  m_lastSet = {collection, set, members, size, collectionSize, true};
}

bool QELSimStorage::FindDistribution(uint32_t minor, QELSimStoredDistribution* distribution,
                                     const char* operation, bool* damaged) {
  if (minor == m_lastDistributionMinor && m_lastDistribution.values.IsValid()) {
    *distribution = m_lastDistribution;
    return true;
  }
  if (!Ready(false)) return false;
  hdf_Dataset values = m_distributions.TryDatasetOpen(QELSimMinorName(minor));
  if (!values.IsValid()) return false;
  uint32_t set[2] = {kQELSimNoMinor, kQELSimNoMinor};
  hdf_Dataspace space = values.Space();
  int count = Count(space);
  if (count < 0 ||
      !ReadAttribute(values.AttributeOpen("dimensionSet"), hdf_Datatype::NATIVE_UINT(), 2, set)) {
    return false;
  }
  // One value per member of its set, all of them in the file.
  hdf_Dataset setMembers;
  int setSize = -1;
  bool setDamaged = false;
  bool setFound = FindSet(set[0], set[1], false, &setMembers, &setSize, operation, &setDamaged);
  if (!setFound || count != setSize ||
      values.StorageSize() < static_cast<hsize_t>(count) * sizeof(int)) {
    *damaged = true;
    QELSimError(operation).print("distribution ");
    QELSimPrintMinor(minor).print(" holds ").print_int(count).print(" values");
    if (!setFound) {
      aio_cerr.print(" over a set that cannot be used\n");
    } else if (count != setSize) {
      aio_cerr.print(" for the ").print_int(setSize).print(" members of its set\n");
    } else {
      aio_cerr.print(", fewer in the file\n");
    }
    return false;
  }
  distribution->values = values;
  distribution->space = space;
  distribution->dimensionSet = QELSimCSetID(0, set[0], set[1]);
  distribution->count = count;
  m_lastDistributionMinor = minor;
  m_lastDistribution = *distribution;
  return true;
}

void QELSimStorage::Close() {
  m_lastCollection.group = hdf_Group();
  m_lastSet.members = hdf_Dataset();
  m_lastDistribution = QELSimStoredDistribution();
  m_collections = hdf_Group();
  m_distributions = hdf_Group();
  m_file.Close();
}

int QELSimFirstOutside(const int* members, int count, int size) {
  // Sets are large and usually sound: a pass without branches says whether
  // to look for the position at all. A member m is inside when neither m
  // nor size-1-m is negative: the sign bit of their or.
  const unsigned last = static_cast<unsigned>(size) - 1;
  const unsigned bits = QELSimOrOver(0, count, [&](int i) {
    const unsigned m = static_cast<unsigned>(members[i]);
    return m | (last - m);
  });
  if ((bits >> 31) == 0) return -1;
  int i = 0;
  while (members[i] >= 0 && members[i] < size) ++i;
  return i;
}

cow_String QELSimMinorName(uint32_t minor) {
  char text[16];
  int n = std::snprintf(text, sizeof text, "%u", static_cast<unsigned>(minor));
  return cow_String(text, n);
}

aio_ostream& QELSimError(const char* operation) {
  return aio_cerr.print("**ERROR ").print(operation).print(": ");
}

aio_ostream& QELSimPrintMinor(uint32_t minor) {
  return aio_cerr << QELSimMinorName(minor);
}

namespace {

// The context of an identifier, after the checks every lookup makes.
QELSimStorage* UseIdentifier(int context, bool valid, bool write, const char* kind,
                             const char* operation) {
  if (!valid) {
    QELSimError(operation).print("null ").print(kind).print(" identifier\n");
    return nullptr;
  }
  QELSimStorage* storage = QELSimUseContext(context, write, operation);
  // Data of another format: said so, rather than "no such" of every identifier.
  if (storage != nullptr && storage->Foreign()) {
    storage->Ready(false, operation);
    return nullptr;
  }
  return storage;
}

void ReportMissing(const char* operation, const char* kind, uint32_t minor) {
  QELSimError(operation).print("no ").print(kind).put(' ');
  QELSimPrintMinor(minor);
}

void ReportContext(int context) {
  aio_cerr.print(" in context ").print_int(context).put('\n');
}

}  // namespace

bool QELSimLookupCollection(QELSimCollectionID id, bool write, const char* operation,
                            QELSimStorage** storage, hdf_Group* group, int* size) {
  *storage = UseIdentifier(id.ContextNumber(), id.IsValid(), write, "collection", operation);
  if (*storage == nullptr) return false;
  if ((*storage)->FindCollection(id.CollectionMinor(), group, size)) return true;
  ReportMissing(operation, "collection", id.CollectionMinor());
  ReportContext(id.ContextNumber());
  return false;
}

bool QELSimLookupSet(QELSimCSetID id, bool write, const char* operation, QELSimStorage** storage,
                     hdf_Dataset* members, int* size, bool checkMembers) {
  *storage = UseIdentifier(id.ContextNumber(), id.IsValid(), write, "set", operation);
  if (*storage == nullptr) return false;
  bool damaged = false;
  if ((*storage)->FindSet(id.CollectionMinor(), id.CSetMinor(), checkMembers, members, size,
                          operation, &damaged)) {
    return true;
  }
  if (damaged) return false;
  ReportMissing(operation, "set", id.CSetMinor());
  aio_cerr.print(" of collection ");
  QELSimPrintMinor(id.CollectionMinor());
  ReportContext(id.ContextNumber());
  return false;
}

bool QELSimLookupDistribution(QELSimDistributionID id, const char* operation,
                              QELSimStoredDistribution* distribution) {
  QELSimStorage* storage =
      UseIdentifier(id.ContextNumber(), id.IsValid(), false, "distribution", operation);
  if (storage == nullptr) return false;
  bool damaged = false;
  if (storage->FindDistribution(id.DistributionMinor(), distribution, operation, &damaged)) {
    distribution->dimensionSet =
        QELSimCSetID(id.ContextNumber(), distribution->dimensionSet.CollectionMinor(),
                     distribution->dimensionSet.CSetMinor());
    return true;
  }
  if (damaged) return false;
  ReportMissing(operation, "distribution", id.DistributionMinor());
  ReportContext(id.ContextNumber());
  return false;
}

QELSimStorage* QELSimUseContext(int context, bool write, const char* operation) {
  Context* c = Find(context);
  if (c == nullptr) {
    QELSimError(operation).print("no open context ").print_int(context).put('\n');
    return nullptr;
  }
  if (write && c->readOnly) {
    QELSimError(operation).print("context ").print_int(context).print(" is read-only\n");
    return nullptr;
  }
  return c->storage;
}

int QELSimAddContext(QELSimStorage* storage, bool readOnly) {
  Context* c = static_cast<Context*>(mem_OperatorNewTinyThrow(sizeof(Context)));
  *c = Context{g_nextContext++, readOnly, storage, g_contexts};
  g_contexts = c;
  ++storage->users;
  return c->number;
}

QELSimStorage* QELSimFindContext(int context, bool* readOnly) {
  Context* c = Find(context);
  if (c == nullptr) return nullptr;
  if (readOnly != nullptr) *readOnly = c->readOnly;
  return c->storage;
}

bool QELSimRemoveContext(int context) {
  for (Context** link = &g_contexts; *link != nullptr; link = &(*link)->next) {
    Context* c = *link;
    if (c->number != context) continue;
    *link = c->next;
    QELSimStorage* storage = c->storage;
    mem_Free(c);
    if (--storage->users == 0) {
      storage->Close();
      delete storage;
    }
    return true;
  }
  return false;
}

QELSimStorage* QELSimFindFile(dev_t device, ino_t inode, int* context) {
  for (Context* c = g_contexts; c != nullptr; c = c->next) {
    if (c->storage->device == device && c->storage->inode == inode) {
      if (context != nullptr) *context = c->number;
      return c->storage;
    }
  }
  return nullptr;
}
