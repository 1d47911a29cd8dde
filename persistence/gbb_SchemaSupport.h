// What every schema class's generated code shares.
//
// The generator emits, per class, declarations and the member-specific
// glue; the steps that are the same for every class live here once: the
// value record base, the empty-handle report, opening a stored object by its
// recorded class, reaching the sim's distribution service, storing and
// fetching the members dataset, and the lazy loading and setting of
// sub-objects and arrays.
#ifndef DDB_PERSISTENCE_GBB_SCHEMASUPPORT_H_
#define DDB_PERSISTENCE_GBB_SCHEMASUPPORT_H_

#include "persistence/gbb_AutoArray.h"
#include "persistence/gbb_Class.h"
#include "persistence/gbb_DistributionService.h"
#include "persistence/gbb_Group.h"
#include "persistence/gbb_MemoryStream.h"
#include "persistence/gbb_Path.h"
#include "platform/core/aio_ostream.h"
#include "platform/core/ddb_export.h"
#include "platform/core/mem.h"
#include "platform/hdf/hdf_File.h"

// Base of every value record XMembers.
class DDB_API gbb_Members : public mem_AllocationOperatorsTiny {
 public:
  virtual ~gbb_Members();
  virtual void verify();
};

// The bytes of a members dataset.
typedef gbb_AutoArray<unsigned char, gbb_MemoryStream> gbb_MembersBuffer;

// Name of the dataset holding an object's simple-typed members.
constexpr const char kMembersDataset[] = "#simpleTypeMembers";

// "**ERROR <qualifiedName>: called on an empty handle\n".
DDB_API void gbb_ReportEmptyHandle(const char* qualifiedName);
// "**ERROR <className>::<operation>: called on an empty handle\n".
DDB_API void gbb_ReportEmptyHandle(const char* className, const char* operation);

// The names a schema class family's messages use, made from the class name
// X: "XHolder", "XImpl", "XAccess", "XMembers".
struct DDB_API gbb_FamilyNames {
  explicit gbb_FamilyNames(const char* className);
  char holder[72];
  char impl[72];
  char access[72];
  char members[72];
};

// What an operation on an empty handle answers after its message.
template <class T>
const T& gbb_EmptyValue() {
  static const T value = T();
  return value;
}

// Opens the object stored in `group` through the sim's schema snapshot
// (reached from `parent` by "#/schemaSnapshot"): the class recorded in the
// group must be registered and be `expected` or derived from it; otherwise
// the holder's message is printed ("<holderName>::Open: class <id> is not
// registered" / "unrelated class <id>") and *failed is set. On success the
// class's open function gives the object (possibly null).
DDB_API gbb_ObjectInterface* gbb_OpenByClass(gbb_Path parent, int index, const gbb_Group& group,
                                             int traceFlag, gbb_Class expected,
                                             const char* holderName, bool* failed);

// The distribution service of the sim that owns `path`.
DDB_API gbb_DistributionService gbb_ResolveService(gbb_Path path);

// Writes a finished members stream to the group's members dataset, or, when
// the stream failed, prints "**ERROR <implName>::SaveMembers: error <n>
// saving class data" and writes nothing.
DDB_API void gbb_StoreMembers(const gbb_Group& group, gbb_MemoryStream& stream,
                              const char* implName);

// The bytes of the group's members dataset (empty when it cannot be read).
DDB_API gbb_MembersBuffer::gbb_AutoArrayMoveSrc gbb_FetchMembers(const gbb_Group& group);

// "**ERROR <implName>::LoadMembers: error <n> loading class data\n", and the
// failure kept for gbb_TakeLoadFailures: `offset` is the byte of the members
// dataset at which decoding stopped.
DDB_API void gbb_ReportLoadError(const char* implName, int status, int offset);

// The members records that failed to load since the last call (at most 16
// are kept), for tools that say more than the message a host sees: which
// implementation, the stream's error and where decoding stopped.
struct gbb_LoadFailure {
  const char* implName;
  int status;
  int offset;
};
DDB_API int gbb_TakeLoadFailures(gbb_LoadFailure* failures, int capacity);

// Lazy loading of a sub-object member: an unresolved holder is opened from
// the sub-group named after the member when it exists, else it becomes an
// empty, resolved holder. A failed open leaves it unresolved. Answers the
// member's handle.
template <class THolder>
auto gbb_LoadSubobject(THolder& holder, const gbb_Group& group, const char* name, gbb_Path path,
                       int index, int traceFlag) {
  if (!holder.IsResolved()) {
    if (group.Exists(name)) {
      holder = THolder::Open(path, index, group.OpenGroup(name), traceFlag);
    } else {
      holder = typename THolder::Token(nullptr, THolder::kResolved);
    }
  }
  return holder.Get();
}

// Lazy loading of an array member: an unresolved array is opened on the
// repository named after the member. Answers the array's handle.
template <class TArrayHolder>
auto gbb_LoadArray(TArrayHolder& holder, const gbb_Group& group, const char* name, gbb_Path path,
                   int index, int traceFlag) {
  if (holder.IsEmpty()) {
    holder = TArrayHolder::Open(path, index, group.OpenRepository(name), traceFlag);
  }
  return holder.Get();
}

// The sub-object setter: an empty slot takes the offered object (placed at
// (path, index), and bound to a new sub-group when the owner is connected);
// an occupied slot refuses with `refusal`. Answers the slot's handle, then
// closes `offered` (destroying a refused object).
template <class THolder>
auto gbb_SetSubobject(THolder& slot, THolder& offered, bool connected, const gbb_Group& group,
                      const char* name, gbb_Path path, int index, const char* refusal) {
  if (!slot.IsEmpty()) {
    aio_cerr.print(refusal);
  } else {
    slot = offered;
    if (!slot.IsEmpty()) {
      slot.SetPath(path, index);
      if (connected) {
        hdf_WriteBatch transaction(group.Platform().Id());  // the whole sub-tree, or nothing
        slot.Bind(group.CreateGroup(name));
      }
    }
  }
  auto result = slot.Get();
  offered.Close();
  return result;
}

#endif  // DDB_PERSISTENCE_GBB_SCHEMASUPPORT_H_
