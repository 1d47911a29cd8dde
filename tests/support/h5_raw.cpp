#include "support/h5_raw.h"

#include <hdf5.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

struct File {
  explicit File(const std::string& path, bool write) {
    id = H5Fopen(path.c_str(), write ? H5F_ACC_RDWR : H5F_ACC_RDONLY, H5P_DEFAULT);
  }
  ~File() {
    if (id >= 0) H5Fclose(id);
  }
  hid_t id;
};

herr_t Collect(hid_t, const char* name, const H5L_info_t*, void* out) {
  static_cast<std::vector<std::string>*>(out)->push_back(name);
  return 0;
}

}  // namespace

Bytes RawDatasetBytes(const std::string& file, const std::string& dataset) {
  File f(file, false);
  Bytes bytes;
  if (H5Lexists(f.id, dataset.c_str(), H5P_DEFAULT) <= 0) return bytes;
  hid_t d = H5Dopen2(f.id, dataset.c_str(), H5P_DEFAULT);
  hid_t s = H5Dget_space(d);
  bytes.resize(static_cast<size_t>(H5Sget_simple_extent_npoints(s)));
  if (!bytes.empty()) H5Dread(d, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
  H5Sclose(s);
  H5Dclose(d);
  return bytes;
}

void RawWriteDataset(const std::string& file, const std::string& dataset, const Bytes& bytes) {
  File f(file, true);
  hid_t d = H5Dopen2(f.id, dataset.c_str(), H5P_DEFAULT);
  hsize_t n = bytes.size();
  H5Dset_extent(d, &n);
  if (n > 0) H5Dwrite(d, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
  H5Dclose(d);
}

void RawWriteClass(const std::string& file, const std::string& group, const std::string& id) {
  File f(file, true);
  unsigned char bytes[80] = {};
  std::copy(id.begin(), id.begin() + static_cast<long>(std::min<size_t>(id.size(), 80)), bytes);
  // Through the opened object: writing an attribute opened by path fails in HDF5 1.10.
  hid_t o = H5Oopen(f.id, group.c_str(), H5P_DEFAULT);
  hid_t a = H5Aopen(o, "class", H5P_DEFAULT);
  H5Awrite(a, H5T_NATIVE_UCHAR, bytes);
  H5Aclose(a);
  H5Oclose(o);
}

void RawDelete(const std::string& file, const std::string& object, const char* attribute) {
  File f(file, true);
  if (attribute != nullptr) {
    H5Adelete_by_name(f.id, object.c_str(), attribute, H5P_DEFAULT);
  } else {
    H5Ldelete(f.id, object.c_str(), H5P_DEFAULT);
  }
}

std::vector<std::string> RawChildren(const std::string& file, const std::string& group) {
  File f(file, false);
  std::vector<std::string> names;
  hid_t g = H5Gopen2(f.id, group.c_str(), H5P_DEFAULT);
  if (g < 0) return names;
  H5Literate(g, H5_INDEX_NAME, H5_ITER_INC, nullptr, &Collect, &names);
  H5Gclose(g);
  std::sort(names.begin(), names.end());
  return names;
}

std::string RawClass(const std::string& file, const std::string& group) {
  File f(file, false);
  unsigned char bytes[81] = {};
  hid_t a = H5Aopen_by_name(f.id, group.c_str(), "class", H5P_DEFAULT, H5P_DEFAULT);
  if (a < 0) return "<none>";
  H5Aread(a, H5T_NATIVE_UCHAR, bytes);
  H5Aclose(a);
  return reinterpret_cast<const char*>(bytes);
}

std::vector<int> RawInts(const std::string& file, const std::string& object,
                         const std::string& attribute) {
  File f(file, false);
  std::vector<int> values;
  if (H5Aexists_by_name(f.id, object.c_str(), attribute.c_str(), H5P_DEFAULT) <= 0) return values;
  hid_t a = H5Aopen_by_name(f.id, object.c_str(), attribute.c_str(), H5P_DEFAULT, H5P_DEFAULT);
  hid_t s = H5Aget_space(a);
  values.resize(static_cast<size_t>(H5Sget_simple_extent_npoints(s)));
  if (!values.empty()) H5Aread(a, H5T_NATIVE_INT, values.data());
  H5Sclose(s);
  H5Aclose(a);
  return values;
}

void PutInt(Bytes& out, int value) {
  unsigned u = static_cast<unsigned>(value);
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(u >> (8 * i)));
}

void PutId(Bytes& out, int kind, unsigned first, unsigned second) {
  PutInt(out, kind == 2 ? 16 : 12);
  PutInt(out, kind);
  PutInt(out, 1);
  PutInt(out, static_cast<int>(first));
  if (kind == 2) PutInt(out, static_cast<int>(second));
}

void PutString(Bytes& out, const std::string& text) {
  PutInt(out, static_cast<int>(text.size()));
  out.insert(out.end(), text.begin(), text.end());
}

void PutDouble(Bytes& out, double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<unsigned char>(bits >> (8 * i)));
}

Bytes Stream(const Bytes& body) {
  Bytes out;
  PutInt(out, static_cast<int>(body.size()) + 4);
  out.insert(out.end(), body.begin(), body.end());
  return out;
}
