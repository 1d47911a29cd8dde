// The service's open files and contexts, and where its objects live in a
// file (internal to the library).
//
// Layout, beside the group "sim" of the database:
//
//   /QELSim                       attribute "formatVersion" = 1
//     collections/<c>             group, attribute "size" (int): members 0 .. size-1
//       <s>                       dataset of int: ordered set s of collection c
//     distributions/<d>           dataset of int: one value per member of its set,
//                                 attribute "dimensionSet" (2 uint): c, s
//
// Minor parts are the decimal names, handed out densely from 0, so the next
// one is the number of children; a file counts its two large groups once,
// when it first makes something, and keeps the counts. Objects are never changed after they are
// made, which is what makes it safe to keep the last ones used open.
//
// A file is open once however many contexts use it (two spellings of one
// path are one file): the contexts share its counts and its HDF5 file, and
// the file is closed, with everything opened in it, when its last context
// closes.
#ifndef DDB_PLATFORM_SERVICE_QELSIMSTORAGE_H_
#define DDB_PLATFORM_SERVICE_QELSIMSTORAGE_H_

#include <sys/types.h>

#include <cstdint>

#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/hdf/hdf_File.h"
#include "platform/service/QELSimIDs.h"

// A distribution as found in the file.
struct QELSimStoredDistribution {
  hdf_Dataset values;
  hdf_Dataspace space;  // the whole of `values`, as read into memory too
  QELSimCSetID dimensionSet;
  int count = 0;
};

class QELSimStorage : public mem_AllocationOperators {
 public:
  QELSimStorage(const hdf_File& file, dev_t device, ino_t inode, bool writable);

  const hdf_File& File() const { return m_file; }
  bool Writable() const { return m_writable; }

  // The service's groups, opened on first use; made when `create` and they do
  // not exist yet. False when the file holds no service data (nothing printed),
  // data of another format (see CheckFormat) or a group cannot be opened or
  // made (the wrapper prints).
  // A caller that names itself as `operation` (writers, and every lookup of
  // an identifier) has a refusal of data of another format reported.
  bool Ready(bool create, const char* operation = nullptr);
  // False after a message when the file holds service data that does not say
  // it is of this service's format; the storage then offers none.
  bool CheckFormat(const char* operation);
  bool Foreign() const { return m_foreign; }
  const hdf_Group& Collections() const { return m_collections; }
  const hdf_Group& Distributions() const { return m_distributions; }
  // The minor part of the next new collection (distribution): the number made
  // so far. Counted on first use only: counting a large group reads all of it.
  uint32_t NextCollection();
  uint32_t NextDistribution();
  void CollectionAdded() { ++m_numCollections; }
  void DistributionAdded() { ++m_numDistributions; }

  // Lookups by minor parts; false, silently, when they name nothing here.
  // Sets and distributions are checked against what they stand on (no more
  // members than their collection, one value per member of the set, all of
  // them in the file): one that is not consistent is refused after a
  // message, with *damaged set.
  // A set is checked member by member (each inside its collection) when
  // `checkMembers`: where its members are handed out or built on. Reading a
  // distribution's values does not use them, and skips that second pass
  // over as many bytes as the values.
  // The object of each kind found or made last is kept open: callers go
  // from a collection to its new set to a distribution over it, or from a
  // distribution's drawers to its values, one object at a time.
  bool FindCollection(uint32_t minor, hdf_Group* group, int* size);
  bool FindSet(uint32_t collection, uint32_t set, bool checkMembers, hdf_Dataset* members,
               int* size, const char* operation, bool* damaged);
  bool FindDistribution(uint32_t minor, QELSimStoredDistribution* distribution,
                        const char* operation, bool* damaged);
  // The members of a set into `out` (room for all of them), checked as they
  // are read when they have not been yet; false, as FindSet, when it is
  // refused (`out` is then partly written).
  bool ReadSet(uint32_t collection, uint32_t set, int* out, const char* operation, bool* damaged);
  // `sets`: how many sets it has, when known (a new collection has none).
  void RememberCollection(uint32_t minor, const hdf_Group& group, int size,
                          uint32_t sets = kQELSimNoMinor);
  // The minor part of the next new set of `collection` (an open group of it).
  uint32_t NextSet(uint32_t collection, const hdf_Group& group);
  void SetAdded(uint32_t collection);
  // A set just made, its members checked as they were given.
  void RememberSet(uint32_t collection, uint32_t set, const hdf_Dataset& members, int size,
                   int collectionSize);

  // Closes the file and everything opened in it.
  void Close();

  dev_t device;
  ino_t inode;
  int users;  // open contexts on this file

 private:
  // Says why a set is refused; false.
  static bool ReportSet(uint32_t collection, uint32_t set, int collectionSize, const char* problem,
                        int outside, int member, const char* operation, bool* damaged);

  hdf_File m_file;
  bool m_writable;
  bool m_foreign = false;  // service data of another format
  hdf_Group m_collections;
  hdf_Group m_distributions;
  uint32_t m_numCollections;
  uint32_t m_numDistributions;
  struct {
    uint32_t minor;
    hdf_Group group;
    int size;
    uint32_t sets;  // its number of sets, kQELSimNoMinor until counted
  } m_lastCollection;
  struct {
    uint32_t collection, set;
    hdf_Dataset members;
    int size;
    int collectionSize;
    bool checked;  // every member known to be inside the collection
  } m_lastSet;
  uint32_t m_lastDistributionMinor;
  QELSimStoredDistribution m_lastDistribution;
};

// The decimal name of a minor part.
cow_String QELSimMinorName(uint32_t minor);

// The bitwise or of term(i) over i in [from, to), in blocks of a fixed
// length and with no early exit: what the compiler vectorises at -O2. The
// passes over sets of tens of millions of members are made of it.
template <class Term>
inline unsigned QELSimOrOver(int from, int to, Term term) {
  const int kBlock = 16;
  unsigned bits = 0;
  int i = from;
  for (; i + kBlock <= to; i += kBlock) {
    for (int k = 0; k < kBlock; ++k) bits |= term(i + k);
  }
  for (; i < to; ++i) bits |= term(i);
  return bits;
}

// The position of the first of `members[0, count)` outside 0 .. size-1, or
// -1: one pass without branches, then a search only when one is outside.
// Used where sets are written and where they are read.
int QELSimFirstOutside(const int* members, int count, int size);

// Starts a service message: "**ERROR <operation>: ".
aio_ostream& QELSimError(const char* operation);
// Prints an unsigned number (minor parts) on aio_cerr.
aio_ostream& QELSimPrintMinor(uint32_t minor);

// Lookups by identifier for the service's calls: false after one message
// ("**ERROR <operation>: no set 3 of collection 1 in context 2") when the
// identifier is null, its context is not open (or read-only and `write` is
// asked for), or it names nothing.
bool QELSimLookupCollection(QELSimCollectionID id, bool write, const char* operation,
                            QELSimStorage** storage, hdf_Group* group, int* size);
// A set's members are checked unless `checkMembers` is false (see FindSet).
bool QELSimLookupSet(QELSimCSetID id, bool write, const char* operation, QELSimStorage** storage,
                     hdf_Dataset* members, int* size, bool checkMembers = true);
bool QELSimLookupDistribution(QELSimDistributionID id, const char* operation,
                              QELSimStoredDistribution* distribution);

// The storage of context `context`, or null after a message when the
// context is not open, or is read-only and `write` is asked for.
QELSimStorage* QELSimUseContext(int context, bool write, const char* operation);

// The registry of open contexts, kept by QELSimManager. Context numbers are
// handed out once per process and never again.
int QELSimAddContext(QELSimStorage* storage, bool readOnly);
// The storage of an open context (null if none) and whether it is read-only.
QELSimStorage* QELSimFindContext(int context, bool* readOnly);
// Forgets the context; closes and frees its storage when it was the last
// context on it. False when the context is not open.
bool QELSimRemoveContext(int context);
// The storage already open on the file (device, inode), and one context on it.
QELSimStorage* QELSimFindFile(dev_t device, ino_t inode, int* context);

#endif  // DDB_PLATFORM_SERVICE_QELSIMSTORAGE_H_
