#include "platform/service/QELSimCollection.h"

#include <cstdint>
#include <cstring>

#include "platform/service/QELSimStorage.h"

namespace {

// The first position of `members[from, to)` that is outside 0 .. size-1 or
// already in `seen` (marking the others), with its problem; null when none.
const char* FirstProblem(const int* members, int from, int to, int size, uint64_t* seen,
                         int* position) {
  for (int i = from; i < to; ++i) {
    const int m = members[i];
    if (m < 0 || m >= size) {
      *position = i;
      return "is outside the collection";
    }
    const uint64_t bit = uint64_t{1} << (m & 63);
    if ((seen[m >> 6] & bit) != 0) {
      *position = i;
      return "occurs twice";
    }
    seen[m >> 6] |= bit;
  }
  return nullptr;
}

// Marks `members[from, to)`, all in range, in `seen`; whether any was marked
// already. The word being marked stays in a register while members fall in
// it, as they do in runs, so marking is not a chain of loads and stores.
inline bool MarkRepeats(const int* members, int from, int to, uint64_t* seen) {
  uint64_t repeated = 0;
  int index = members[from] >> 6;
  uint64_t word = seen[index];
  for (int i = from; i < to; ++i) {
    const int m = members[i];
    if ((m >> 6) != index) {
      seen[index] = word;
      index = m >> 6;
      word = seen[index];
    }
    const uint64_t bit = uint64_t{1} << (m & 63);
    repeated |= word & bit;
    word |= bit;
  }
  seen[index] = word;
  return repeated != 0;
}

// Whether `members[from, to)`, all in range, is a run of consecutive
// members, rising or falling; its lowest and highest member then. Sets are
// often such runs (a collection's members in order, or the reverse), and a
// run is marked a word at a time.
inline bool IsRun(const int* members, int from, int to, int* lowest, int* highest) {
  const int first = members[from], last = members[to - 1];
  const int step = last >= first ? 1 : -1;
  if (last - first != step * (to - 1 - from)) return false;
  const unsigned off = QELSimOrOver(from + 1, to, [&](int i) {
    return static_cast<unsigned>(members[i] - members[i - 1] - step);
  });
  *lowest = step > 0 ? first : last;
  *highest = step > 0 ? last : first;
  return off == 0;
}

// Marks the members lowest .. highest in `seen`; whether any was marked already.
inline bool MarkRange(int lowest, int highest, uint64_t* seen) {
  const int firstWord = lowest >> 6, lastWord = highest >> 6;
  const uint64_t head = ~uint64_t{0} << (lowest & 63);
  const uint64_t tail = ~uint64_t{0} >> (63 - (highest & 63));
  if (firstWord == lastWord) {
    const uint64_t bits = head & tail;
    const bool repeated = (seen[firstWord] & bits) != 0;
    seen[firstWord] |= bits;
    return repeated;
  }
  uint64_t repeated = seen[firstWord] & head;
  seen[firstWord] |= head;
  for (int w = firstWord + 1; w < lastWord; ++w) {
    repeated |= seen[w];
    seen[w] = ~uint64_t{0};
  }
  repeated |= seen[lastWord] & tail;
  seen[lastWord] |= tail;
  return repeated != 0;
}

// Why `members` is not an ordered set of distinct members of 0 .. size-1;
// null when it is. `position` receives the offending position.
//
// Sets of tens of millions of members are written in one call, so the check
// runs in blocks: the range test of stored sets over the block, then
// marking with the repeats only accumulated (a word at a time for a run of
// consecutive members). A block that fails either is walked again one
// member at a time to name the first fault.
const char* CheckMembers(const int* members, int count, int size, int* position) {
  if (count > 0 && members == nullptr) return "no members given";
  const size_t words = static_cast<size_t>(size) / 64 + 1;
  uint64_t* seen = static_cast<uint64_t*>(mem_OperatorNewZeroedThrow(words * sizeof(uint64_t)));
  const int kBlock = 4096;
  const char* problem = nullptr;
  for (int from = 0; from < count && problem == nullptr; from += kBlock) {
    const int to = count - from > kBlock ? from + kBlock : count;
    if (QELSimFirstOutside(members + from, to - from, size) < 0) {
      int lowest = 0, highest = 0;
      const bool repeated = IsRun(members, from, to, &lowest, &highest)
                                ? MarkRange(lowest, highest, seen)
                                : MarkRepeats(members, from, to, seen);
      if (!repeated) continue;
      // The marks are back to those of the earlier blocks (rare: the set is
      // refused), so that the walk below names the first repeat.
      std::memset(seen, 0, words * sizeof(uint64_t));
      for (int i = 0; i < from; ++i) seen[members[i] >> 6] |= uint64_t{1} << (members[i] & 63);
    }
    problem = FirstProblem(members, from, to, size, seen, position);
  }
  if (problem != nullptr) {
    mem_Free(seen);
    return problem;
  }
  // Every member is marked: cleared again, the marks go back as zero, and
  // the next set's check finds the pages in place (a fresh page costs a
  // fault, more than clearing it). Whole when the set is as large as the
  // marks' words, else word by word.
  if (static_cast<size_t>(count) >= words) {
    std::memset(seen, 0, words * sizeof(uint64_t));
  } else {
    for (int i = 0; i < count; ++i) seen[members[i] >> 6] = 0;
  }
  mem_FreeZeroed(seen);
  return nullptr;
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
  storage->RememberSet(m_id.CollectionMinor(), minor, set, count, size);
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

bool QELSimCSet::ReadMembers(const std::function<int*(int count)>& allocate) const {
  const char* operation = "QELSimCSet::ReadMembers";
  QELSimStorage* storage = nullptr;
  hdf_Dataset members;
  int size = 0;
  if (!QELSimLookupSet(m_id, false, operation, &storage, &members, &size, false)) return false;
  int* out = allocate(size);
  if (size == 0) return true;
  if (out == nullptr) {
    QELSimError(operation).print("no buffer given\n");
    return false;
  }
  bool damaged = false;
  return storage->ReadSet(m_id.CollectionMinor(), m_id.CSetMinor(), out, operation, &damaged);
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
