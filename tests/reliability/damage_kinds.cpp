#include "reliability/damage_kinds.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>

namespace {

const char kMembers[] = "#simpleTypeMembers";

// --- reading and writing items of the layout ----------------------------------

// An attribute or a dataset as it is stored: its type, shape and bytes, read
// in the native form of its own type (or converted to `as`).
struct Item {
  hid_t type = -1;  // owned
  std::vector<hsize_t> dims;
  std::vector<unsigned char> bytes;
  hsize_t count = 0;

  Item() = default;
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;
  ~Item() {
    if (type >= 0) H5Tclose(type);
  }
};

void ShapeOf(hid_t space, Item* item) {
  int rank = H5Sget_simple_extent_ndims(space);
  item->dims.assign(static_cast<size_t>(rank > 0 ? rank : 0), 0);
  if (rank > 0) H5Sget_simple_extent_dims(space, item->dims.data(), nullptr);
  item->count = 1;
  for (hsize_t d : item->dims) item->count *= d;
}

bool ReadAttributeItem(hid_t object, const char* name, hid_t as, Item* item) {
  hid_t a = H5Aopen(object, name, H5P_DEFAULT);
  if (a < 0) return false;
  hid_t stored = H5Aget_type(a);
  item->type = as >= 0 ? H5Tcopy(as) : H5Tget_native_type(stored, H5T_DIR_ASCEND);
  H5Tclose(stored);
  hid_t space = H5Aget_space(a);
  ShapeOf(space, item);
  H5Sclose(space);
  item->bytes.resize(static_cast<size_t>(item->count * H5Tget_size(item->type)));
  bool ok = item->bytes.empty() || H5Aread(a, item->type, item->bytes.data()) >= 0;
  H5Aclose(a);
  return ok;
}

bool ReadDatasetItem(hid_t file, const std::string& path, hid_t as, Item* item) {
  hid_t d = H5Dopen2(file, path.c_str(), H5P_DEFAULT);
  if (d < 0) return false;
  hid_t stored = H5Dget_type(d);
  item->type = as >= 0 ? H5Tcopy(as) : H5Tget_native_type(stored, H5T_DIR_ASCEND);
  H5Tclose(stored);
  hid_t space = H5Dget_space(d);
  ShapeOf(space, item);
  H5Sclose(space);
  item->bytes.resize(static_cast<size_t>(item->count * H5Tget_size(item->type)));
  bool ok = item->bytes.empty() ||
            H5Dread(d, item->type, H5S_ALL, H5S_ALL, H5P_DEFAULT, item->bytes.data()) >= 0;
  H5Dclose(d);
  return ok;
}

hid_t Space(const std::vector<hsize_t>& dims, const std::vector<hsize_t>* maxdims = nullptr) {
  if (dims.empty()) return H5Screate(H5S_SCALAR);
  return H5Screate_simple(static_cast<int>(dims.size()), dims.data(),
                          maxdims != nullptr ? maxdims->data() : nullptr);
}

hsize_t Count(const std::vector<hsize_t>& dims) {
  hsize_t n = 1;
  for (hsize_t d : dims) n *= d;
  return n;
}

// Replaces the attribute `name` of `object` by one of the given type, shape and bytes.
void PutAttribute(hid_t file, const std::string& object, const char* name, hid_t type,
                  const std::vector<hsize_t>& dims, const void* bytes) {
  hid_t o = H5Oopen(file, object.c_str(), H5P_DEFAULT);
  if (H5Aexists(o, name) > 0) H5Adelete(o, name);
  hid_t space = Space(dims);
  hid_t a = H5Acreate2(o, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
  if (Count(dims) > 0) H5Awrite(a, type, bytes);
  H5Aclose(a);
  H5Sclose(space);
  H5Oclose(o);
}

void DeleteAttribute(hid_t file, const std::string& object, const char* name) {
  hid_t o = H5Oopen(file, object.c_str(), H5P_DEFAULT);
  H5Adelete(o, name);
  H5Oclose(o);
}

herr_t CopyOneAttribute(hid_t from, const char* name, const H5A_info_t*, void* to) {
  hid_t a = H5Aopen(from, name, H5P_DEFAULT);
  hid_t type = H5Aget_type(a);
  hid_t space = H5Aget_space(a);
  std::vector<unsigned char> bytes(static_cast<size_t>(H5Aget_storage_size(a)) + 1);
  H5Aread(a, type, bytes.data());
  hid_t copy = H5Acreate2(*static_cast<hid_t*>(to), name, type, space, H5P_DEFAULT, H5P_DEFAULT);
  H5Awrite(copy, type, bytes.data());
  H5Aclose(copy);
  H5Sclose(space);
  H5Tclose(type);
  H5Aclose(a);
  return 0;
}

// Replaces the dataset `path` by one of the given type, shape and bytes, with
// the old one's attributes. Rank-1 datasets that were extensible stay so;
// `extent`, when larger than the data, is set afterwards (nothing stored there).
void PutDataset(hid_t file, const std::string& path, hid_t type, const std::vector<hsize_t>& dims,
                const void* bytes, hsize_t extent = 0) {
  hid_t old = H5Dopen2(file, path.c_str(), H5P_DEFAULT);
  bool chunked = false;
  if (old >= 0) {
    hid_t dcpl = H5Dget_create_plist(old);
    chunked = H5Pget_layout(dcpl) == H5D_CHUNKED;
    H5Pclose(dcpl);
  }
  chunked = (chunked || extent > 0) && dims.size() == 1;
  hid_t dcpl = H5Pcreate(H5P_DATASET_CREATE);
  std::vector<hsize_t> maxdims(dims.size(), H5S_UNLIMITED);
  if (chunked) {
    hsize_t chunk = 1024;
    H5Pset_chunk(dcpl, 1, &chunk);
  }
  hid_t space = Space(dims, chunked ? &maxdims : nullptr);
  const std::string scratch = path + "#damaged";
  hid_t d = H5Dcreate2(file, scratch.c_str(), type, space, H5P_DEFAULT, dcpl, H5P_DEFAULT);
  if (bytes != nullptr && Count(dims) > 0) H5Dwrite(d, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes);
  if (extent > 0 && chunked) H5Dset_extent(d, &extent);
  if (old >= 0) {
    H5Aiterate2(old, H5_INDEX_NAME, H5_ITER_INC, nullptr, CopyOneAttribute, &d);
    H5Dclose(old);
  }
  H5Dclose(d);
  H5Sclose(space);
  H5Pclose(dcpl);
  H5Ldelete(file, path.c_str(), H5P_DEFAULT);
  H5Lmove(file, scratch.c_str(), file, path.c_str(), H5P_DEFAULT, H5P_DEFAULT);
}

std::vector<unsigned char> ReadBytes(hid_t file, const std::string& path) {
  Item item;
  ReadDatasetItem(file, path, H5T_NATIVE_UCHAR, &item);
  return item.bytes;
}

void PutInt(std::vector<unsigned char>& bytes, size_t at, int32_t value) {
  uint32_t v = static_cast<uint32_t>(value);
  for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

int32_t GetInt(const std::vector<unsigned char>& bytes, size_t at) {
  uint32_t v = 0;
  for (size_t i = 0; i < 4; ++i) v |= static_cast<uint32_t>(bytes[at + i]) << (8 * i);
  return static_cast<int32_t>(v);
}

// --- the layout, one item per role ------------------------------------------------

// Where an attribute or dataset sits, and the role it plays: the class of the
// object that holds it (a "#base" part apart), or its path with element
// numbers left out.
struct Place {
  std::string object;  // the object holding the attribute, or the dataset's path
  std::string name;    // the attribute's name; "" for a dataset or group
  std::string role;
  bool group;
};

std::string ClassOf(hid_t object) {
  Item item;
  if (H5Aexists(object, "class") <= 0 || !ReadAttributeItem(object, "class", -1, &item)) return "";
  std::string text(item.bytes.begin(), item.bytes.end());
  return text.substr(0, text.find('\0'));
}

std::string WithoutNumbers(const std::string& path) {
  std::string out;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string part = path.substr(start, end - start);
    bool number = !part.empty() && part.find_first_not_of("0123456789") == std::string::npos;
    out += number ? "N" : part;
    if (end < path.size()) out += '/';
    start = end + 1;
  }
  return out;
}

struct Survey {
  hid_t file;
  std::vector<Place> places;
  std::set<std::string> roles;

  std::string RoleOf(const std::string& path) {
    hid_t o = H5Oopen(file, path.c_str(), H5P_DEFAULT);
    std::string cls = o >= 0 ? ClassOf(o) : "";
    if (o >= 0) H5Oclose(o);
    if (cls.empty()) return WithoutNumbers(path);
    return (path.find("#base") != std::string::npos ? "#base of " : "") + cls;
  }
  void Add(const std::string& object, const std::string& name, const std::string& role,
           bool group = false) {
    if (roles.insert(role).second) places.push_back({object, name, role, group});
  }
};

herr_t SurveyAttribute(hid_t, const char* name, const H5A_info_t*, void* data) {
  static_cast<std::vector<std::string>*>(data)->push_back(name);
  return 0;
}

void SurveyObject(Survey& survey, const std::string& path) {
  hid_t o = H5Oopen(survey.file, path.c_str(), H5P_DEFAULT);
  if (o < 0) return;
  bool dataset = H5Iget_type(o) == H5I_DATASET;
  std::vector<std::string> names;
  H5Aiterate2(o, H5_INDEX_NAME, H5_ITER_INC, nullptr, SurveyAttribute, &names);
  H5Oclose(o);
  std::string role = survey.RoleOf(path);
  if (!dataset && path != "/") survey.Add(path, "", role + " group", true);
  if (dataset) {
    size_t slash = path.rfind('/');
    std::string parent = slash == 0 ? "/" : path.substr(0, slash);
    std::string name = path.substr(slash + 1);
    bool numbered = name.find_first_not_of("0123456789") == std::string::npos;
    // A dataset's role is its holder's class and its name; numbered ones
    // (sets, distributions) go by their path.
    std::string holder = numbered ? WithoutNumbers(path) : survey.RoleOf(parent) + "/" + name;
    survey.Add(path, "", holder);
    role = holder;
  }
  for (const std::string& name : names) survey.Add(path, name, role + "@" + name);
}

herr_t SurveyLink(hid_t, const char* name, const H5L_info_t*, void* data) {
  Survey& survey = *static_cast<Survey*>(data);
  SurveyObject(survey, std::string("/") + name);
  return 0;
}

std::vector<Place> SurveyLayout(hid_t file) {
  Survey survey{file, {}, {}};
  SurveyObject(survey, "/");
  H5Lvisit(file, H5_INDEX_NAME, H5_ITER_INC, SurveyLink, &survey);
  return survey.places;
}

// Rewrites one item of the layout: `change` gets what is stored and returns
// false when this damage does not apply to it.
typedef std::function<bool(Item& item)> Change;

void Rewrite(hid_t file, const Place& place, hid_t as, const Change& change) {
  Item item;
  if (place.name.empty()) {
    if (!ReadDatasetItem(file, place.object, as, &item) || !change(item)) return;
    PutDataset(file, place.object, item.type, item.dims, item.bytes.data());
  } else {
    hid_t o = H5Oopen(file, place.object.c_str(), H5P_DEFAULT);
    bool read = ReadAttributeItem(o, place.name.c_str(), as, &item);
    H5Oclose(o);
    if (!read || !change(item)) return;
    PutAttribute(file, place.object, place.name.c_str(), item.type, item.dims, item.bytes.data());
  }
}

void Resize(Item& item, hsize_t count, unsigned char fill) {
  item.bytes.resize(static_cast<size_t>(count * H5Tget_size(item.type)), fill);
  item.dims = {count};
  item.count = count;
}

void AddLayoutKinds(hid_t pristine, std::vector<DamageKind>& kinds) {
  for (const Place& p : SurveyLayout(pristine)) {
    std::string what = p.role + " (" + p.object + (p.name.empty() ? "" : " @" + p.name) + ")";
    auto add = [&](const std::string& how, std::function<void(hid_t)> f) {
      kinds.push_back({what + " " + how, f});
    };
    add("missing", [p](hid_t f) {
      if (p.group || p.name.empty()) {
        H5Ldelete(f, p.object.c_str(), H5P_DEFAULT);
      } else {
        DeleteAttribute(f, p.object, p.name.c_str());
      }
    });
    if (p.group) continue;
    add("of another type", [p](hid_t f) {
      // Numbers as doubles, doubles as ints, both converted by HDF5.
      hid_t o = H5Oopen(f, p.object.c_str(), H5P_DEFAULT);
      bool floating = false;
      if (o >= 0) {
        hid_t stored = p.name.empty() ? H5Dget_type(o) : -1;
        if (!p.name.empty()) {
          hid_t a = H5Aopen(o, p.name.c_str(), H5P_DEFAULT);
          stored = H5Aget_type(a);
          H5Aclose(a);
        }
        floating = H5Tget_class(stored) == H5T_FLOAT;
        H5Tclose(stored);
        H5Oclose(o);
      }
      Rewrite(f, p, floating ? H5T_NATIVE_INT : H5T_NATIVE_DOUBLE, [](Item&) { return true; });
    });
    add("of another shape", [p](hid_t f) {
      Rewrite(f, p, -1, [](Item& item) {
        item.dims = item.dims.size() == 1 ? std::vector<hsize_t>{1, item.count}
                                          : std::vector<hsize_t>{item.count};
        return true;
      });
    });
    add("shorter", [p](hid_t f) {
      Rewrite(f, p, -1, [](Item& item) {
        Resize(item, item.count / 2, 0);
        return true;
      });
    });
    add("longer", [p](hid_t f) {
      Rewrite(f, p, -1, [](Item& item) {
        Resize(item, item.count * 3 + 8, 0x7F);
        return true;
      });
    });
    if (p.name.empty()) {
      add("with an extent of 2^40 beyond its storage", [p](hid_t f) {
        Item item;
        if (!ReadDatasetItem(f, p.object, -1, &item)) return;
        PutDataset(f, p.object, item.type, item.dims, item.bytes.data(), hsize_t(1) << 40);
      });
    }
  }
}

// --- identifiers inside members records ---------------------------------------------

// Calls `visit(at)` for the length word of every service identifier in the
// members record `bytes` (parsed as the stream lays records out), stopping
// where the record stops making sense.
void ForEachIdentifier(const std::vector<unsigned char>& bytes,
                       const std::function<void(size_t at)>& visit) {
  if (bytes.size() < 4 || GetInt(bytes, 0) < 4) return;
  const size_t end = std::min(bytes.size(), static_cast<size_t>(GetInt(bytes, 0)));
  size_t at = 4;
  auto has = [&](size_t n) { return at + n <= end; };
  auto value = [&](int base) {
    size_t fixed = base == 3 ? 4 : base == 6 ? 8 : 0;
    if (fixed > 0) {
      if (!has(fixed)) return false;
      at += fixed;
      return true;
    }
    if (!has(4)) return false;
    int32_t n = GetInt(bytes, at);
    if (n < 0 || !has(4 + static_cast<size_t>(n))) return false;
    if (base >= 8 && base <= 10) visit(at);
    at += 4 + static_cast<size_t>(n);
    return base == 7 || (base >= 8 && base <= 10);
  };
  while (has(6) && bytes[at] == 0x03) {
    at += 5;
    int tag = bytes[at++];
    int shape = tag >> 4, base = tag & 15;
    if (shape == 0) {
      if (!value(base)) return;
      continue;
    }
    if ((shape != 3 && shape != 4) || !has(4)) return;
    int32_t count = GetInt(bytes, at);
    at += 4;
    for (int32_t i = 0; i < count; ++i) {
      if (!value(shape == 3 ? 7 : 3) || !value(base)) return;
    }
  }
}

// Rewrites each identifier of a record; `change` gets the bytes of one
// (length word and form) and returns its replacement.
typedef std::function<std::vector<unsigned char>(std::vector<unsigned char>)> IdChange;

std::vector<unsigned char> ChangeIdentifiers(const std::vector<unsigned char>& bytes,
                                             const IdChange& change) {
  std::vector<size_t> at;
  ForEachIdentifier(bytes, [&](size_t a) { at.push_back(a); });
  std::vector<unsigned char> out;
  size_t copied = 0;
  for (size_t a : at) {
    size_t length = 4 + static_cast<size_t>(GetInt(bytes, a));
    out.insert(out.end(), bytes.begin() + static_cast<long>(copied),
               bytes.begin() + static_cast<long>(a));
    std::vector<unsigned char> id = change(std::vector<unsigned char>(
        bytes.begin() + static_cast<long>(a), bytes.begin() + static_cast<long>(a + length)));
    out.insert(out.end(), id.begin(), id.end());
    copied = a + length;
  }
  out.insert(out.end(), bytes.begin() + static_cast<long>(copied), bytes.end());
  if (out.size() >= 4)
    PutInt(out, 0, GetInt(out, 0) + static_cast<int32_t>(out.size() - bytes.size()));
  return out;
}

void AddIdentifierKinds(hid_t pristine, const std::vector<std::string>& groups,
                        std::vector<DamageKind>& kinds) {
  const std::vector<std::pair<std::string, IdChange>> changes = {
      {"foreign (minors of nothing stored)",
       [](std::vector<unsigned char> id) {
         for (size_t w = 12; w + 4 <= id.size(); w += 4) PutInt(id, w, 0x7FFFFFF0);
         return id;
       }},
      {"invalid (minors 0xFFFFFFFE)",
       [](std::vector<unsigned char> id) {
         for (size_t w = 12; w + 4 <= id.size(); w += 4) PutInt(id, w, -2);
         return id;
       }},
      {"of another kind",
       [](std::vector<unsigned char> id) {
         if (id.size() >= 8) PutInt(id, 4, GetInt(id, 4) % 4 + 1);
         return id;
       }},
      {"of 64 bytes",
       [](std::vector<unsigned char> id) {
         id.resize(68, 0xFF);
         PutInt(id, 0, 64);
         return id;
       }},
      {"oversized (65 bytes)",
       [](std::vector<unsigned char> id) {
         id.resize(69, 0xFF);
         PutInt(id, 0, 65);
         return id;
       }},
      {"with a length of 2^31 - 1",
       [](std::vector<unsigned char> id) {
         PutInt(id, 0, 0x7FFFFFFF);
         return id;
       }},
      {"with a negative length",
       [](std::vector<unsigned char> id) {
         PutInt(id, 0, -3);
         return id;
       }},
  };
  for (const std::string& g : groups) {
    std::vector<unsigned char> record = ReadBytes(pristine, g + "/" + kMembers);
    int ids = 0;
    ForEachIdentifier(record, [&](size_t) { ++ids; });
    if (ids == 0) continue;
    for (const auto& c : changes) {
      std::vector<unsigned char> damaged = ChangeIdentifiers(record, c.second);
      kinds.push_back({"identifiers in the record of " + g + " " + c.first,
                       [g, damaged](hid_t f) { PutMembersRecord(f, g, damaged); }});
    }
  }
}

// --- chosen values -------------------------------------------------------------------

void AddValueKinds(hid_t pristine, const std::vector<std::string>& groups,
                   std::vector<DamageKind>& kinds) {
  auto add = [&](const std::string& name, std::function<void(hid_t)> f) {
    kinds.push_back({name, f});
  };
  for (const std::string& g : groups) {
    std::string at = " at " + g;
    std::string members = g + "/" + kMembers;
    hid_t o = H5Oopen(pristine, g.c_str(), H5P_DEFAULT);
    const std::string own = ClassOf(o);
    H5Oclose(o);
    for (const char* id : {"com.trevolo.Unknown", "", "com.trevolo.ModalEvent", "com.trevolo.Mesh",
                           "com.trevolo.Sim"}) {
      if (own == id) continue;
      add("class '" + std::string(id) + "'" + at, [=](hid_t f) {
        char v[80] = {};
        strncpy(v, id, sizeof v - 1);
        PutAttribute(f, g, "class", H5T_NATIVE_UCHAR, {80}, v);
      });
    }
    add("class unterminated" + at, [=](hid_t f) {
      char v[80];
      memset(v, 'x', sizeof v);
      PutAttribute(f, g, "class", H5T_NATIVE_UCHAR, {80}, v);
    });
    add("members empty" + at,
        [=](hid_t f) { PutDataset(f, members, H5T_NATIVE_UCHAR, {0}, nullptr); });
    for (int header : {-1, 0, 3, 1000000, 0x7FFFFFFF}) {
      add("members header " + std::to_string(header) + at, [=](hid_t f) {
        std::vector<unsigned char> b = ReadBytes(f, members);
        if (b.size() >= 4) PutInt(b, 0, header);
        PutMembersRecord(f, g, b);
      });
    }
    add("members header smaller" + at, [=](hid_t f) {
      std::vector<unsigned char> b = ReadBytes(f, members);
      if (b.size() >= 4) PutInt(b, 0, static_cast<int>(b.size()) / 3);
      PutMembersRecord(f, g, b);
    });
    add("members extent 2^58" + at, [=](hid_t f) {
      hid_t d = H5Dopen2(f, members.c_str(), H5P_DEFAULT);
      hsize_t huge = hsize_t(1) << 58;
      H5Dset_extent(d, &huge);
      H5Dclose(d);
    });
  }
  for (const char* r :
       {"/sim/discreteModel/mesh/systems", "/sim/discreteModel/mesh/systems/1/events"}) {
    std::string at = std::string(" at ") + r;
    for (long long n : {-5LL, 2147483647LL, 1LL << 30, 1LL << 40, 0LL, 1000LL}) {
      add("#size " + std::to_string(n) + at, [=](hid_t f) {
        PutAttribute(f, r, "#size", H5T_NATIVE_LLONG, {1, 1}, &n);
      });
    }
    add("element 0 missing" + at,
        [=](hid_t f) { H5Ldelete(f, (std::string(r) + "/0").c_str(), H5P_DEFAULT); });
    add("element 1 missing" + at,
        [=](hid_t f) { H5Ldelete(f, (std::string(r) + "/1").c_str(), H5P_DEFAULT); });
  }
  for (const char* d : {"/sim/discreteModel/mesh/systems/1", "/sim/discreteModel/mesh/systems/2"}) {
    std::string base = std::string(d) + "/#base";
    add(std::string("#base missing at ") + d,
        [=](hid_t f) { H5Ldelete(f, base.c_str(), H5P_DEFAULT); });
    add(std::string("#base of another class at ") + d, [=](hid_t f) {
      char v[80] = "com.trevolo.ModalEvent";
      PutAttribute(f, base, "class", H5T_NATIVE_UCHAR, {80}, v);
    });
  }
  // The service's data.
  const std::string set = "/QELSim/collections/0/0";
  const std::string distribution = "/QELSim/distributions/0";
  for (int version : {0, 2, 7, -1}) {
    add("service format " + std::to_string(version), [=](hid_t f) {
      PutAttribute(f, "/QELSim", "formatVersion", H5T_NATIVE_INT, {1}, &version);
    });
  }
  for (int size : {-1, 0, 3, 2147483647}) {
    add("collection size " + std::to_string(size), [=](hid_t f) {
      PutAttribute(f, "/QELSim/collections/0", "size", H5T_NATIVE_INT, {1}, &size);
    });
  }
  const std::vector<std::pair<std::string, std::vector<int>>> sets = {
      {"set member outside", {5, 4, 3, 2, 1, 99}},
      {"set member negative", {5, -4, 3, 2, 1, 0}},
      {"set longer than its collection", {0, 1, 2, 3, 4, 5, 0, 1, 2}},
      {"set member at the collection's size", {0, 1, 2, 3, 4, 6}},
  };
  for (const auto& s : sets) {
    add(s.first,
        [=](hid_t f) { PutDataset(f, set, H5T_NATIVE_INT, {s.second.size()}, s.second.data()); });
  }
  add("distribution shorter than its set", [=](hid_t f) {
    int v[2] = {1, 2};
    PutDataset(f, distribution, H5T_NATIVE_INT, {2}, v);
  });
  add("distribution longer than its set", [=](hid_t f) {
    int v[9] = {};
    PutDataset(f, distribution, H5T_NATIVE_INT, {9}, v);
  });
  for (unsigned collection : {0u, 4u, 77u, 0xFFFFFFFFu}) {
    for (unsigned member : {0u, 77u}) {
      add("distribution over set " + std::to_string(collection) + "/" + std::to_string(member),
          [=](hid_t f) {
            unsigned v[2] = {collection, member};
            PutAttribute(f, distribution, "dimensionSet", H5T_NATIVE_UINT, {2}, v);
          });
    }
  }
}

}  // namespace

std::vector<unsigned char> RandomMembersRecord(std::mt19937& random) {
  auto below = [&](uint32_t n) { return static_cast<int32_t>(random() % n); };
  std::vector<unsigned char> b(4, 0);
  auto put = [&](int32_t v) {
    b.resize(b.size() + 4);
    PutInt(b, b.size() - 4, v);
  };
  auto small = [&]() { return below(8) == 0 ? static_cast<int32_t>(random()) : below(40) - 4; };
  auto value = [&](int base) {
    switch (base) {
      case 3:
        put(small());
        break;
      case 6:
        for (int i = 0; i < 8; ++i) b.push_back(static_cast<unsigned char>(random()));
        break;
      case 7: {
        int32_t n = below(6) == 0 ? small() : below(12);
        put(n);
        for (int32_t i = 0; i < n && i < 64; ++i)
          b.push_back(static_cast<unsigned char>('a' + below(26)));
        break;
      }
      default: {  // an identifier: mostly a form of some kind, with minors near the real ones
        int32_t words = below(5) + 1;
        put(below(10) == 0 ? small() : 4 * words);
        for (int32_t w = 0; w < words; ++w) put(w == 0 ? below(5) : w == 1 ? 1 : below(8));
      }
    }
  };
  static const unsigned char kTags[] = {0x03, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x39, 0x3A, 0x4A};
  for (int records = below(12); records > 0; --records) {
    b.push_back(0x03);
    put(below(24) - 2);
    unsigned char tag = below(10) == 0 ? static_cast<unsigned char>(random()) : kTags[below(9)];
    b.push_back(tag);
    int shape = tag >> 4, base = tag & 15;
    if (shape == 3 || shape == 4) {
      int32_t count = below(8) == 0 ? small() : below(5);
      put(count);
      for (int32_t i = 0; i < count && i < 16; ++i) {
        value(shape == 3 ? 7 : 3);
        value(base);
      }
    } else {
      value(base);
    }
  }
  for (int noise = below(3); noise > 0 && b.size() > 4; --noise) {
    b[4 + static_cast<size_t>(below(static_cast<uint32_t>(b.size() - 4)))] ^=
        static_cast<unsigned char>(1u << below(8));
  }
  PutInt(b, 0, below(20) == 0 ? small() : static_cast<int32_t>(b.size()));
  return b;
}

void PutMembersRecord(hid_t file, const std::string& group,
                      const std::vector<unsigned char>& bytes) {
  PutDataset(file, group + "/" + kMembers, H5T_NATIVE_UCHAR, {bytes.size()}, bytes.data());
}

std::vector<std::string> MembersGroups(const std::string& pristine) {
  std::vector<std::string> groups;
  H5E_BEGIN_TRY {
    hid_t file = H5Fopen(pristine.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    for (const Place& p : SurveyLayout(file)) {
      size_t slash = p.object.rfind('/');
      if (p.name.empty() && p.object.substr(slash + 1) == kMembers) {
        groups.push_back(p.object.substr(0, slash));
      }
    }
    H5Fclose(file);
  }
  H5E_END_TRY;
  return groups;
}

std::vector<DamageKind> StructuralDamageKinds(const std::string& pristine) {
  std::vector<DamageKind> kinds;
  std::vector<std::string> groups = MembersGroups(pristine);
  H5E_BEGIN_TRY {
    hid_t file = H5Fopen(pristine.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    AddLayoutKinds(file, kinds);
    AddIdentifierKinds(file, groups, kinds);
    AddValueKinds(file, groups, kinds);
    H5Fclose(file);
  }
  H5E_END_TRY;
  return kinds;
}
