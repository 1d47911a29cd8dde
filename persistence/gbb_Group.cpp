#include "persistence/gbb_Group.h"

#include <cstdio>

#include "platform/core/aio_ostream.h"
#include "platform/hdf/hdf_Attribute.h"
#include "platform/hdf/hdf_Dataspace.h"
#include "platform/hdf/hdf_Datatype.h"
#include "platform/hdf/hdf_PropListDatasetCreation.h"

namespace {

const char kTypeAttribute[] = "type";
const char kClassAttribute[] = "class";
const char kSizeAttribute[] = "#size";
const int kChunkSize = 1024;

cow_String Decimal(int index) {
  char text[16];
  std::snprintf(text, sizeof text, "%d", index);
  return cow_String(text);
}

// Number of elements of a dataspace (0 for an invalid one).
long long ElementCount(const hdf_Dataspace& space) {
  hdf_DimensionList dims = space.Dimensions();
  if (!space.IsValid()) return 0;
  long long n = 1;
  for (int i = 0; i < dims.Count(); ++i) n *= static_cast<long long>(dims[i]);
  return n;
}

void ReportGroup(const char* operation, const hdf_Group& group, const char* what) {
  aio_cerr.print("**ERROR ").print(operation).print(": ").print(what).print(" in ");
  aio_cerr << group.Name();
  aio_cerr.put('\n');
}

// No element of a repository takes fewer bytes of its file than this (its
// link alone does), so a "#size" beyond the file's size over it is damage.
const hsize_t kLeastBytesPerElement = 16;
// Members records are small; one whose extent claims more than this is
// checked against the bytes the file holds for it before anything is read.
const hsize_t kTrustedMembersBytes = 64 * 1024;

hsize_t FileSize(hid_t object) {
  hid_t file = H5Iget_file_id(object);
  hsize_t size = 0;
  if (file >= 0) {
    if (H5Fget_filesize(file, &size) < 0) size = 0;
    H5Fclose(file);
  }
  return size;
}

}  // namespace

gbb_Group::gbb_Group(const hdf_Group& group, int typeTag) : m_group(group) {
  if (!m_group.IsValid()) return;
  if (typeTag > 0) {
    const int tag[2] = {typeTag, 0};
    hdf_Attribute type = m_group.AttributeCreate(kTypeAttribute, hdf_Datatype::NATIVE_INT(),
                                                 hdf_Dataspace(hdf_DimensionList{2}));
    type.Write(hdf_Datatype::NATIVE_INT(), tag);
  }
  const unsigned char empty[gbb_ClassID::kSize] = {};
  hdf_Attribute cls = m_group.AttributeCreate(kClassAttribute, hdf_Datatype::NATIVE_UCHAR(),
                                              hdf_Dataspace(hdf_DimensionList{gbb_ClassID::kSize}));
  cls.Write(hdf_Datatype::NATIVE_UCHAR(), empty);
}

gbb_Group gbb_Group::CreateGroup(const cow_String& name) const {
  return gbb_Group(m_group.GroupCreate(name, 0), -1);
}

gbb_Group gbb_Group::OpenGroup(const cow_String& name) const {
  return gbb_Group(m_group.GroupOpen(name));
}

gbb_Repository gbb_Group::CreateRepository(const cow_String& name) const {
  gbb_Repository repository(m_group.GroupCreate(name, 0));
  if (repository.IsValid()) {
    repository.m_group.AttributeCreate(kSizeAttribute, hdf_Datatype::NATIVE_INT(),
                                       hdf_Dataspace(hdf_DimensionList{1, 1}));
    repository.WriteSize(0);
  }
  return repository;
}

gbb_Repository gbb_Group::OpenRepository(const cow_String& name) const {
  return gbb_Repository(m_group.GroupOpen(name));
}

bool gbb_Group::Exists(const cow_String& name) const {
  return m_group.GetObjinfoExists(name);
}

void gbb_Group::WriteClassID(const gbb_ClassID& id) const {
  hdf_Attribute cls = m_group.AttributeOpen(kClassAttribute);
  cls.Write(hdf_Datatype::NATIVE_UCHAR(), id.Bytes());
}

gbb_ClassID gbb_Group::ReadClassID() const {
  gbb_ClassID id;
  hdf_Attribute cls = m_group.AttributeOpen(kClassAttribute);
  if (!cls.IsValid()) return id;
  // Read only what fits: the attribute must hold at most 80 elements in all.
  long long n = ElementCount(cls.Space());
  if (n <= 0 || n > gbb_ClassID::kSize) return id;
  unsigned char bytes[gbb_ClassID::kSize] = {};
  if (!cls.Read(hdf_Datatype::NATIVE_UCHAR(), bytes)) return id;
  for (int i = 0; i < gbb_ClassID::kSize; ++i) id.Bytes()[i] = static_cast<char>(bytes[i]);
  return id;
}

gbb_Dataset gbb_Group::CreateDataset(const cow_String& name) const {
  hdf_PropListDatasetCreation properties;
  properties.SetChunk(hdf_DimensionList{kChunkSize});
  hdf_Dataspace space(hdf_DimensionList{0}, hdf_DimensionList{hdf_Unlimited});
  return gbb_Dataset(*this,
                     m_group.DatasetCreate(name, hdf_Datatype::NATIVE_UCHAR(), space, properties));
}

gbb_Dataset gbb_Group::OpenDataset(const cow_String& name) const {
  return gbb_Dataset(*this, m_group.DatasetOpen(name));
}

gbb_Group gbb_Repository::CreateElement(int index) const {
  return gbb_Group(m_group.GroupCreate(Decimal(index), 0), -1);
}

gbb_Group gbb_Repository::OpenElement(int index) const {
  return gbb_Group(m_group.GroupOpen(Decimal(index)));
}

int gbb_Repository::ReadSize() const {
  if (!m_group.IsValid()) return 0;
  hdf_Attribute size = m_group.AttributeOpen(kSizeAttribute);
  if (!size.IsValid()) return 0;
  if (ElementCount(size.Space()) != 1) {
    ReportGroup("gbb_Repository::ReadSize", m_group, "\"#size\" does not hold one integer");
    return 0;
  }
  int n = 0;
  if (!size.Read(hdf_Datatype::NATIVE_INT(), &n)) return 0;
  if (n < 0) {
    ReportGroup("gbb_Repository::ReadSize", m_group, "\"#size\" is negative");
    return 0;
  }
  if (static_cast<hsize_t>(n) > FileSize(m_group.Id()) / kLeastBytesPerElement) {
    // Claims more elements than the file can hold: count the ones that are
    // there (named densely from "0"), so that opening the array stays bounded.
    int present = 0, absent = n;
    while (absent - present > 1) {
      int middle = present + (absent - present) / 2;
      (m_group.GetObjinfoExists(Decimal(middle - 1)) ? present : absent) = middle;
    }
    char what[96];
    std::snprintf(what, sizeof what,
                  "\"#size\" is %d, more than the file can hold: %d elements are there", n,
                  present);
    ReportGroup("gbb_Repository::ReadSize", m_group, what);
    return present;
  }
  return n;
}

void gbb_Repository::WriteSize(int size) const {
  hdf_Attribute attribute = m_group.AttributeOpen(kSizeAttribute);
  attribute.Write(hdf_Datatype::NATIVE_INT(), &size);
}

bool gbb_Dataset::Shape(const char* operation, hdf_Dataspace* space, hsize_t* length) const {
  if (!m_dataset.IsValid()) return false;
  *space = m_dataset.Space();
  hdf_DimensionList dims = space->Dimensions();
  if (!space->IsValid() || dims.Count() != 1) {
    ReportGroup(operation, m_group.Platform(), "members dataset is not one-dimensional");
    return false;
  }
  if (!m_dataset.Type().Equal(hdf_Datatype::NATIVE_UCHAR())) {
    ReportGroup(operation, m_group.Platform(), "members dataset does not hold bytes");
    return false;
  }
  *length = dims[0];
  return true;
}

int gbb_Dataset::Length(hdf_Dataspace* space, hsize_t* extent) const {
  if (!Shape("gbb_Dataset::Size", space, extent)) return 0;
  const hsize_t n = Backed(*extent, "gbb_Dataset::Size");
  return n > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(n);
}

int gbb_Dataset::Size() const {
  hdf_Dataspace space;
  hsize_t extent = 0;
  return Length(&space, &extent);
}

int gbb_Dataset::Write(const void* bytes, int count, int64_t offset) const {
  if (count <= 0 || offset < 0) return 0;
  hdf_Dataspace file, memory;
  hsize_t length = 0;
  if (!Shape("gbb_Dataset::Write", &file, &length)) return 0;
  hdf_Dataset dataset = m_dataset;  // shares the open dataset
  hsize_t end = static_cast<hsize_t>(offset) + static_cast<hsize_t>(count);
  if (length < end) {
    if (!dataset.Extend(hdf_DimensionList{end})) return 0;
    file = dataset.Space();  // the extended extent
  }
  if (!Select(offset, count, &file, &memory)) return 0;
  return dataset.Write(hdf_Datatype::NATIVE_UCHAR(), memory, file, bytes) ? count : 0;
}

int gbb_Dataset::Read(void* bytes, int count, int64_t offset) const {
  if (count <= 0 || offset < 0) return 0;
  hdf_Dataspace file, memory;
  hsize_t length = 0;
  if (!Shape("gbb_Dataset::Read", &file, &length)) return 0;
  length = Backed(length, nullptr);              // Size has said what the extent claims
  if (length > 0x7FFFFFFF) length = 0x7FFFFFFF;  // as Size() answers
  int64_t available = static_cast<int64_t>(length) - offset;
  if (available <= 0) return 0;
  int n = available < count ? static_cast<int>(available) : count;
  if (!Select(offset, n, &file, &memory)) return 0;
  return m_dataset.Read(hdf_Datatype::NATIVE_UCHAR(), memory, file, bytes) ? n : 0;
}

int gbb_Dataset::ReadWhole(const std::function<void*(int length)>& room) const {
  hdf_Dataspace space;
  hsize_t extent = 0;
  const int n = Length(&space, &extent);
  if (n == 0) return 0;
  void* bytes = room(n);
  // All of the dataset: its own space, everything selected, on both sides.
  if (static_cast<hsize_t>(n) == extent) {
    return m_dataset.Read(hdf_Datatype::NATIVE_UCHAR(), space, space, bytes) ? n : 0;
  }
  hdf_Dataspace memory;
  if (!Select(0, n, &space, &memory)) return 0;
  return m_dataset.Read(hdf_Datatype::NATIVE_UCHAR(), memory, space, bytes) ? n : 0;
}

hsize_t gbb_Dataset::Backed(hsize_t length, const char* operation) const {
  if (length <= kTrustedMembersBytes) return length;
  hsize_t stored = m_dataset.StorageSize();
  if (length <= stored) return length;
  if (operation != nullptr) {
    char what[96];
    std::snprintf(what, sizeof what, "members dataset claims %llu bytes, the file holds %llu",
                  static_cast<unsigned long long>(length), static_cast<unsigned long long>(stored));
    ReportGroup(operation, m_group.Platform(), what);
  }
  return stored;
}

bool gbb_Dataset::Select(int64_t offset, int count, hdf_Dataspace* file, hdf_Dataspace* memory) {
  if (!file->SelectHyperslab(hdf_DimensionList{static_cast<hsize_t>(offset)},
                             hdf_DimensionList{static_cast<hsize_t>(count)})) {
    return false;
  }
  *memory = hdf_Dataspace(hdf_DimensionList{static_cast<hsize_t>(count)});
  return true;
}
