// Storage groups: where each persistent object lives in the database file.
//
// gbb_Group wraps one HDF5 group (a copy shares the open group) and offers
// what the framework and the schema classes need: child groups, the "class"
// attribute holding the object's class identifier, and the extensible byte
// dataset holding its simple-typed members. gbb_Repository is the group of
// a persistent array: attribute "#size" and element groups "0", "1", ...
//
// On-file layout written here (binding):
//   "type"  NATIVE_INT [2] = {tag, 0}, only on groups made with a tag > 0
//   "class" NATIVE_UCHAR [80], the NUL-padded identifier (empty when made)
//   "#size" NATIVE_INT 1x1 on repositories
//   members datasets: NATIVE_UCHAR, current [0], maximum [unlimited],
//   chunked by 1024.
#ifndef DDB_PERSISTENCE_GBB_GROUP_H_
#define DDB_PERSISTENCE_GBB_GROUP_H_

#include <cstdint>
#include <functional>

#include "persistence/gbb_Class.h"
#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_Dataset.h"
#include "platform/hdf/hdf_Dataspace.h"
#include "platform/hdf/hdf_Group.h"

class gbb_Dataset;
class gbb_Repository;

// The type tag of the top group of a sim database.
constexpr int kSimFileType = 1523728409;  // 0x5AD24019

class DDB_API gbb_Group {
 public:
  // Holds no group.
  gbb_Group() {}
  // Wraps an existing group as it is.
  explicit gbb_Group(const hdf_Group& group) : m_group(group) {}
  // Makes a fresh group an object group: "type" when tag > 0, then an empty "class".
  gbb_Group(const hdf_Group& group, int typeTag);

  bool IsValid() const { return m_group.IsValid(); }
  const hdf_Group& Platform() const { return m_group; }

  gbb_Group CreateGroup(const cow_String& name) const;
  gbb_Group OpenGroup(const cow_String& name) const;
  gbb_Repository CreateRepository(const cow_String& name) const;
  gbb_Repository OpenRepository(const cow_String& name) const;
  // Silent probe.
  bool Exists(const cow_String& name) const;

  void WriteClassID(const gbb_ClassID& id) const;
  // Empty when the attribute is missing, unreadable, or holds more than 80 bytes.
  gbb_ClassID ReadClassID() const;

  gbb_Dataset CreateDataset(const cow_String& name) const;
  gbb_Dataset OpenDataset(const cow_String& name) const;

 protected:
  hdf_Group m_group;
};

class DDB_API gbb_Repository : public gbb_Group {
 public:
  gbb_Repository() {}
  explicit gbb_Repository(const hdf_Group& group) : gbb_Group(group) {}

  gbb_Group CreateElement(int index) const;
  gbb_Group OpenElement(int index) const;
  // The element count; 0 after a message when "#size" is missing, not one
  // integer, or negative.
  int ReadSize() const;
  void WriteSize(int size) const;
};

// One byte dataset of a group.
class DDB_API gbb_Dataset {
 public:
  gbb_Dataset() {}
  gbb_Dataset(const gbb_Group& group, const hdf_Dataset& dataset)
      : m_group(group), m_dataset(dataset) {}

  bool IsValid() const { return m_dataset.IsValid(); }
  // The current length in bytes (0 for an invalid or unusable dataset).
  int Size() const;
  // Grows the dataset to offset + count if needed and writes `count` bytes at
  // `offset`. Returns count, or 0 when nothing could be written.
  int Write(const void* bytes, int count, int64_t offset) const;
  // Reads up to `count` bytes from `offset`; returns how many were read.
  int Read(void* bytes, int count, int64_t offset) const;
  // Size() and Read() of all of it, with one look at its shape and no
  // selection (on a members record those calls are much of a load's cost):
  // `room(length)` says where the bytes go. Returns how many were read.
  int ReadWhole(const std::function<void*(int length)>& room) const;

 private:
  // The current dataspace and its length when the dataset is one-dimensional
  // and holds bytes; otherwise a message and false. Each operation asks HDF5
  // for the space once: on a members dataset that is much of a load's cost.
  bool Shape(const char* operation, hdf_Dataspace* space, hsize_t* length) const;
  // What Size() answers, with the space and extent it looked at (*extent
  // may claim more than the answer when the file holds fewer bytes).
  int Length(hdf_Dataspace* space, hsize_t* extent) const;
  // `length`, or the bytes the file holds for the dataset when a large
  // extent claims more (damage: reported as `operation` unless null).
  hsize_t Backed(hsize_t length, const char* operation) const;
  // Selects `count` bytes at `offset` in `file` and makes the matching memory space.
  static bool Select(int64_t offset, int count, hdf_Dataspace* file, hdf_Dataspace* memory);

  gbb_Group m_group;
  hdf_Dataset m_dataset;
};

#endif  // DDB_PERSISTENCE_GBB_GROUP_H_
