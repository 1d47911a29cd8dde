// Damaged databases never stop, stall or exhaust the host. Copies of a
// database holding every class are damaged (structurally through the HDF5 C
// API, by truncation, by flipped bytes, by random members records) and each
// is walked completely (tests/reliability/walk.h) in a child process under a
// time and a memory limit. What ended otherwise than cleanly is counted by
// where it happened: our code, or inside HDF5.
//
// The structural damage is made from the pristine file itself, so that it
// follows the layout when it grows; three families:
//  - every attribute and dataset of the layout (one of each per role: per
//    class of the object that holds it, or per path with element numbers
//    left out) missing, of another type, of another shape, shorter, longer,
//    and datasets with an extent far beyond what is stored;
//  - the service identifiers inside every members record made foreign, of
//    another kind, oversized, or with a damaged length;
//  - chosen values: class identifiers unknown, empty, of another class or
//    unterminated; "#size" negative, huge, zero; members headers that lie;
//    element groups and "#base" missing; the service's format version, set
//    members and distributions inconsistent with each other.
//
//   scripts/reliability.sh   the full run (2,000 flips, 500 records) under the
//                            sanitizers, with the table; the test command
//                            runs every structural kind and 200 flips.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hdf5.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "reliability/crash_workload.h"
#include "reliability/walk.h"
#include "support/scratch_dir.h"

namespace {

const int kSeconds = 20;                 // a walk that takes longer hangs
const rlim_t kMemoryBytes = 1ull << 30;  // a walk may take this much more
const char kMembers[] = "#simpleTypeMembers";

bool Full() {
  return getenv("DDB_DAMAGE_FULL") != nullptr;
}
// DDB_DAMAGE_SHOW=1: every copy is listed with what the library said while walking it.
bool Show() {
  return getenv("DDB_DAMAGE_SHOW") != nullptr;
}

// Runs `body` on the file `path`, HDF5's own messages silenced.
void WithFile(const std::string& path, bool write, const std::function<void(hid_t file)>& body) {
  H5E_BEGIN_TRY {
    hid_t file = H5Fopen(path.c_str(), write ? H5F_ACC_RDWR : H5F_ACC_RDONLY, H5P_DEFAULT);
    body(file);
    H5Fclose(file);
  }
  H5E_END_TRY;
}

// --- reading and writing items of the layout ----------------------------------

hsize_t Count(const std::vector<hsize_t>& dims) {
  hsize_t n = 1;
  for (hsize_t d : dims) n *= d;
  return n;
}

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

// Reads the attribute `name` of `object`, or the dataset `object` when `name` is "".
bool ReadItem(hid_t file, const std::string& object, const std::string& name, hid_t as,
              Item* item) {
  const bool attribute = !name.empty();
  hid_t id = attribute
                 ? H5Aopen_by_name(file, object.c_str(), name.c_str(), H5P_DEFAULT, H5P_DEFAULT)
                 : H5Dopen2(file, object.c_str(), H5P_DEFAULT);
  if (id < 0) return false;
  hid_t stored = attribute ? H5Aget_type(id) : H5Dget_type(id);
  item->type = as >= 0 ? H5Tcopy(as) : H5Tget_native_type(stored, H5T_DIR_ASCEND);
  H5Tclose(stored);
  hid_t space = attribute ? H5Aget_space(id) : H5Dget_space(id);
  int rank = H5Sget_simple_extent_ndims(space);
  item->dims.assign(static_cast<size_t>(std::max(rank, 0)), 0);
  if (rank > 0) H5Sget_simple_extent_dims(space, item->dims.data(), nullptr);
  H5Sclose(space);
  item->count = Count(item->dims);
  item->bytes.resize(static_cast<size_t>(item->count * H5Tget_size(item->type)));
  void* buffer = item->bytes.data();
  bool ok = item->bytes.empty() ||
            (attribute ? H5Aread(id, item->type, buffer)
                       : H5Dread(id, item->type, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer)) >= 0;
  attribute ? H5Aclose(id) : H5Dclose(id);
  return ok;
}

hid_t Space(const std::vector<hsize_t>& dims, const std::vector<hsize_t>* maxdims = nullptr) {
  if (dims.empty()) return H5Screate(H5S_SCALAR);
  return H5Screate_simple(static_cast<int>(dims.size()), dims.data(),
                          maxdims != nullptr ? maxdims->data() : nullptr);
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
  ReadItem(file, path, "", H5T_NATIVE_UCHAR, &item);
  return item.bytes;
}

// Replaces the members record of the object group `group` by `bytes`.
void PutMembersRecord(hid_t file, const std::string& group,
                      const std::vector<unsigned char>& bytes) {
  PutDataset(file, group + "/" + kMembers, H5T_NATIVE_UCHAR, {bytes.size()}, bytes.data());
}

// Little-endian 32-bit words of a members record.
void SetInt(std::vector<unsigned char>& bytes, size_t at, int32_t value) {
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

std::string ClassOf(hid_t file, const std::string& object) {
  Item item;
  if (!ReadItem(file, object, "class", -1, &item)) return "";
  std::string text(item.bytes.begin(), item.bytes.end());
  return text.substr(0, text.find('\0'));
}

std::string WithoutNumbers(const std::string& path) {
  static const std::regex number("(^|/)[0-9]+(?=/|$)");
  return std::regex_replace(path, number, "$1N");
}

struct Survey {
  hid_t file;
  std::vector<Place> places;
  std::set<std::string> roles;

  std::string RoleOf(const std::string& path) {
    std::string cls = ClassOf(file, path);
    if (cls.empty()) return WithoutNumbers(path);
    return (path.find("#base") != std::string::npos ? "#base of " : "") + cls;
  }
  void Add(const std::string& object, const std::string& name, const std::string& role,
           bool group = false) {
    if (roles.insert(role).second) places.push_back({object, name, role, group});
  }
};

void SurveyObject(Survey& survey, const std::string& path) {
  hid_t o = H5Oopen(survey.file, path.c_str(), H5P_DEFAULT);
  if (o < 0) return;
  bool dataset = H5Iget_type(o) == H5I_DATASET;
  std::vector<std::string> names;
  H5Aiterate2(
      o, H5_INDEX_NAME, H5_ITER_INC, nullptr,
      [](hid_t, const char* name, const H5A_info_t*, void* data) -> herr_t {
        static_cast<std::vector<std::string>*>(data)->push_back(name);
        return 0;
      },
      &names);
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
    role = numbered ? WithoutNumbers(path) : survey.RoleOf(parent) + "/" + name;
    survey.Add(path, "", role);
  }
  for (const std::string& name : names) survey.Add(path, name, role + "@" + name);
}

std::vector<Place> SurveyLayout(hid_t file) {
  Survey survey{file, {}, {}};
  SurveyObject(survey, "/");
  H5Lvisit(
      file, H5_INDEX_NAME, H5_ITER_INC,
      [](hid_t, const char* name, const H5L_info_t*, void* data) -> herr_t {
        SurveyObject(*static_cast<Survey*>(data), std::string("/") + name);
        return 0;
      },
      &survey);
  return survey.places;
}

// The object groups that hold a members record, one per class.
std::vector<std::string> MembersGroups(const std::vector<Place>& places) {
  std::vector<std::string> groups;
  for (const Place& p : places) {
    size_t slash = p.object.rfind('/');
    if (p.name.empty() && p.object.substr(slash + 1) == kMembers) {
      groups.push_back(p.object.substr(0, slash));
    }
  }
  return groups;
}

struct DamageKind {
  std::string name;
  std::function<void(hid_t file)> damage;  // given the copy, opened for writing
};

// Rewrites one item of the layout after `change` has altered what is stored.
void Rewrite(hid_t file, const Place& place, hid_t as, const std::function<void(Item&)>& change,
             hsize_t extent = 0) {
  Item item;
  if (!ReadItem(file, place.object, place.name, as, &item)) return;
  change(item);
  if (place.name.empty()) {
    PutDataset(file, place.object, item.type, item.dims, item.bytes.data(), extent);
  } else {
    PutAttribute(file, place.object, place.name.c_str(), item.type, item.dims, item.bytes.data());
  }
}

void Resize(Item& item, hsize_t count, unsigned char fill) {
  item.bytes.resize(static_cast<size_t>(count * H5Tget_size(item.type)), fill);
  item.dims = {count};
  item.count = count;
}

void AddLayoutKinds(const std::vector<Place>& places, std::vector<DamageKind>& kinds) {
  const std::vector<std::pair<std::string, std::function<void(Item&)>>> changes = {
      {"of another shape",
       [](Item& item) {
         item.dims = item.dims.size() == 1 ? std::vector<hsize_t>{1, item.count}
                                           : std::vector<hsize_t>{item.count};
       }},
      {"shorter", [](Item& item) { Resize(item, item.count / 2, 0); }},
      {"longer", [](Item& item) { Resize(item, item.count * 3 + 8, 0x7F); }},
  };
  for (const Place& p : places) {
    std::string what = p.role + " (" + p.object + (p.name.empty() ? "" : " @" + p.name) + ") ";
    kinds.push_back({what + "missing", [p](hid_t f) {
                       if (p.name.empty()) {
                         H5Ldelete(f, p.object.c_str(), H5P_DEFAULT);
                       } else {
                         H5Adelete_by_name(f, p.object.c_str(), p.name.c_str(), H5P_DEFAULT);
                       }
                     }});
    if (p.group) continue;
    kinds.push_back({what + "of another type", [p](hid_t f) {
                       // Numbers as doubles, doubles as ints, both converted by HDF5.
                       Item stored;
                       ReadItem(f, p.object, p.name, -1, &stored);
                       bool floating = H5Tget_class(stored.type) == H5T_FLOAT;
                       Rewrite(f, p, floating ? H5T_NATIVE_INT : H5T_NATIVE_DOUBLE, [](Item&) {});
                     }});
    for (const auto& c : changes) {
      kinds.push_back({what + c.first, [p, c](hid_t f) { Rewrite(f, p, -1, c.second); }});
    }
    if (p.name.empty()) {
      kinds.push_back({what + "with an extent of 2^40 beyond its storage", [p](hid_t f) {
                         Rewrite(
                             f, p, -1, [](Item&) {}, hsize_t(1) << 40);
                       }});
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

// How every identifier of a record is damaged: each minor (the words from
// the third on) set to `minors`, the kind changed, the bytes padded with 0xFF
// to `length` + 4, the length word set to `length` (0: each left as it is).
struct IdDamage {
  const char* how;
  int32_t minors;
  bool otherKind;
  int32_t length;
  bool padded;
};
const IdDamage kIdDamages[] = {
    {"foreign (minors of nothing stored)", 0x7FFFFFF0, false, 0, false},
    {"invalid (minors 0xFFFFFFFE)", -2, false, 0, false},
    {"of another kind", 0, true, 0, false},
    {"of 64 bytes", 0, false, 64, true},
    {"oversized (65 bytes)", 0, false, 65, true},
    {"with a length of 2^31 - 1", 0, false, 0x7FFFFFFF, false},
    {"with a negative length", 0, false, -3, false},
};

std::vector<unsigned char> DamageIdentifiers(const std::vector<unsigned char>& bytes,
                                             const IdDamage& damage) {
  std::vector<size_t> at;
  ForEachIdentifier(bytes, [&](size_t a) { at.push_back(a); });
  std::vector<unsigned char> out;
  size_t copied = 0;
  for (size_t a : at) {
    size_t length = 4 + static_cast<size_t>(GetInt(bytes, a));
    out.insert(out.end(), bytes.begin() + static_cast<long>(copied),
               bytes.begin() + static_cast<long>(a));
    std::vector<unsigned char> id(bytes.begin() + static_cast<long>(a),
                                  bytes.begin() + static_cast<long>(a + length));
    for (size_t w = 12; damage.minors != 0 && w + 4 <= id.size(); w += 4) {
      SetInt(id, w, damage.minors);
    }
    if (damage.otherKind && id.size() >= 8) SetInt(id, 4, GetInt(id, 4) % 4 + 1);
    if (damage.padded) id.resize(static_cast<size_t>(damage.length) + 4, 0xFF);
    if (damage.length != 0) SetInt(id, 0, damage.length);
    out.insert(out.end(), id.begin(), id.end());
    copied = a + length;
  }
  out.insert(out.end(), bytes.begin() + static_cast<long>(copied), bytes.end());
  if (out.size() >= 4)
    SetInt(out, 0, GetInt(out, 0) + static_cast<int32_t>(out.size() - bytes.size()));
  return out;
}

void AddIdentifierKinds(hid_t pristine, const std::vector<std::string>& groups,
                        std::vector<DamageKind>& kinds) {
  for (const std::string& g : groups) {
    std::vector<unsigned char> record = ReadBytes(pristine, g + "/" + kMembers);
    int ids = 0;
    ForEachIdentifier(record, [&](size_t) { ++ids; });
    if (ids == 0) continue;
    for (const IdDamage& d : kIdDamages) {
      std::vector<unsigned char> damaged = DamageIdentifiers(record, d);
      kinds.push_back({"identifiers in the record of " + g + " " + d.how,
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
    const std::string own = ClassOf(pristine, g);
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
    // A header of -2 stands for a third of the record's size.
    for (int header : {-1, 0, 3, 1000000, 0x7FFFFFFF, -2}) {
      std::string name = header == -2 ? "smaller" : std::to_string(header);
      add("members header " + name + at, [=](hid_t f) {
        std::vector<unsigned char> b = ReadBytes(f, members);
        if (b.size() >= 4) SetInt(b, 0, header == -2 ? static_cast<int>(b.size()) / 3 : header);
        PutMembersRecord(f, g, b);
      });
    }
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
    for (const char* element : {"0", "1"}) {
      add("element " + std::string(element) + " missing" + at,
          [=](hid_t f) { H5Ldelete(f, (std::string(r) + "/" + element).c_str(), H5P_DEFAULT); });
    }
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
  const std::string set = "/QELSim/collections/0/0";
  const std::string distribution = "/QELSim/distributions/0";
  const struct {
    const char* name;
    std::string dataset;
    std::vector<int> values;
  } contents[] = {
      {"set member outside", set, {5, 4, 3, 2, 1, 99}},
      {"set member negative", set, {5, -4, 3, 2, 1, 0}},
      {"set longer than its collection", set, {0, 1, 2, 3, 4, 5, 0, 1, 2}},
      {"set member at the collection's size", set, {0, 1, 2, 3, 4, 6}},
      {"distribution shorter than its set", distribution, {1, 2}},
      {"distribution longer than its set", distribution, std::vector<int>(9, 0)},
  };
  for (const auto& c : contents) {
    add(c.name, [=](hid_t f) {
      PutDataset(f, c.dataset, H5T_NATIVE_INT, {c.values.size()}, c.values.data());
    });
  }
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

// A members record of records that mostly make sense: member numbers in and
// around a class's range, the tags that occur and some that do not, values
// and maps of plausible sizes, identifiers of every kind and length, and a
// few bytes of noise.
std::vector<unsigned char> RandomMembersRecord(std::mt19937& random) {
  auto below = [&](uint32_t n) { return static_cast<int32_t>(random() % n); };
  std::vector<unsigned char> b(4, 0);
  auto put = [&](int32_t v) {
    b.resize(b.size() + 4);
    SetInt(b, b.size() - 4, v);
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
  SetInt(b, 0, below(20) == 0 ? small() : static_cast<int32_t>(b.size()));
  return b;
}

// --- walking a copy in a child ----------------------------------------------

enum Ending { kClean, kCrash, kAbort, kHang, kMemory, kSanitizer, kEndings };
const char* const kEndingNames[kEndings] = {"clean", "crash",  "abort",
                                            "hang",  "memory", "sanitizer"};

struct Verdict {
  Ending ending;
  bool inHdf5;
  std::string report;  // what the child printed about it
  std::string said;    // the library's messages (DDB_DAMAGE_SHOW)
};

// Writes to fd 2 from the child (also from a signal handler).
void Say(const std::string& text) {
  if (write(2, text.data(), text.size()) < 0) _exit(125);
}

// In the child: a fault names the library it happened in, then ends the process.
void OnFault(int signal, siginfo_t*, void* context) {
  const ucontext_t* uc = static_cast<const ucontext_t*>(context);
  Dl_info info;
  const char* where = "?";
  void* pc = reinterpret_cast<void*>(uc->uc_mcontext.gregs[REG_RIP]);
  if (dladdr(pc, &info) != 0 && info.dli_fname != nullptr) where = info.dli_fname;
  char line[512];
  int n = snprintf(line, sizeof line, "\n#fault %d in %s\n", signal, where);
  if (n > 0 && write(2, line, static_cast<size_t>(n)) < 0) _exit(125);
  ::signal(signal, SIG_DFL);
  raise(signal);
}

// In the child: walks the copy under the limits, the library's messages
// going to the parent when asked for.
[[noreturn]] void Walk(const std::string& path) {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_sigaction = OnFault;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
  // The limit counts from what the process already maps (the sanitizers
  // reserve terabytes of address space up front).
  long pages = 0;
  if (FILE* statm = fopen("/proc/self/statm", "r")) {
    if (fscanf(statm, "%ld", &pages) != 1) pages = 0;
    fclose(statm);
  }
  rlim_t limit = static_cast<rlim_t>(pages) * static_cast<rlim_t>(getpagesize()) + kMemoryBytes;
  struct rlimit memory = {limit, limit};
  setrlimit(RLIMIT_AS, &memory);
  alarm(kSeconds);
  try {
    std::string walk = WalkDatabase(path);
    if (Show()) {
      for (size_t at = walk.find(".! "); at != std::string::npos; at = walk.find(".! ", at + 1)) {
        Say("#said " + walk.substr(at + 3, walk.find('\n', at) - at - 2));
      }
      if (walk.empty()) Say("#said (does not open)\n");
    }
  } catch (...) {
    Say("\n#exception escaped the library\n");
    _exit(3);
  }
  _exit(0);
}

Verdict WalkInChild(const std::string& path) {
  int out[2];
  if (pipe(out) != 0) abort();
  pid_t child = fork();
  if (child == 0) {
    dup2(out[1], 2);
    close(out[0]);
    Walk(path);
  }
  close(out[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) {
    if (text.size() < (1u << 20)) text.append(buffer, static_cast<size_t>(n));
  }
  close(out[0]);
  int status = 0;
  waitpid(child, &status, 0);

  Verdict v{kClean, false, "", ""};
  for (size_t at = text.find("#said "); at != std::string::npos; at = text.find("#said ", at + 1)) {
    v.said += "    " + text.substr(at + 6, text.find('\n', at) - at - 5);
  }
  size_t report = std::string::npos;
  for (const char* start : {"ERROR: AddressSanitizer", "runtime error:", "#fault", "#exception"}) {
    if (report == std::string::npos) report = text.find(start);
  }
  if (report != std::string::npos) v.report = text.substr(report, 3000);
  bool sanitizer = text.find("Sanitizer") != std::string::npos ||
                   text.find("runtime error:") != std::string::npos;
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    v.ending = kClean;
  } else if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    v.ending = kHang;
  } else if (text.find("out of memory") != std::string::npos ||
             text.find("mem_Exhausted") != std::string::npos ||
             text.find("bad_alloc") != std::string::npos) {
    v.ending = kMemory;
  } else if (sanitizer) {
    v.ending = kSanitizer;
  } else if (WIFSIGNALED(status) && WTERMSIG(status) != SIGABRT) {
    v.ending = kCrash;
  } else {
    v.ending = kAbort;
  }
  // The first frame of the report outside the sanitizer's own runtime (or
  // the faulting address) tells where.
  std::string first = v.report;
  for (size_t frame = text.find("    #", report == std::string::npos ? 0 : report);
       frame != std::string::npos; frame = text.find("    #", frame + 1)) {
    std::string line = text.substr(frame, text.find('\n', frame) - frame);
    if (line.find("libsanitizer") == std::string::npos &&
        line.find("__interceptor_") == std::string::npos &&
        line.find("libasan") == std::string::npos && line.find("libubsan") == std::string::npos) {
      first = line;
      break;
    }
  }
  v.inHdf5 = first.find("libhdf5") != std::string::npos;
  return v;
}

// --- the tally ----------------------------------------------------------------

struct Tally {
  const char* name;
  int copies = 0;
  int ours[kEndings] = {};
  int hdf5[kEndings] = {};
  std::vector<std::string> kept;  // copies whose walk went wrong, for the record
};

// Walks the copy and counts how it ended; one that went wrong is kept in
// `keepDirectory`, and fails the test when it went wrong in our code.
void WalkAndCount(Tally& tally, const std::string& copy, const std::string& what,
                  const std::string& keepDirectory) {
  const Verdict v = WalkInChild(copy);
  ++tally.copies;
  (v.inHdf5 ? tally.hdf5 : tally.ours)[v.ending]++;
  if (Show())
    printf("%s %s: %s\n%s", tally.name, what.c_str(), kEndingNames[v.ending], v.said.c_str());
  if (v.ending == kClean) return;
  std::string kept = keepDirectory + "/" + tally.name + "-" + std::to_string(tally.copies) + ".sim";
  WriteWholeFile(kept, ReadWholeFile(copy));
  tally.kept.push_back(kept + " (" + what + "): " + kEndingNames[v.ending] +
                       (v.inHdf5 ? " in HDF5" : " in our code"));
  if (!v.inHdf5) {
    ADD_FAILURE() << tally.name << " " << what << ": " << kEndingNames[v.ending] << "\n"
                  << v.report;
  }
}

void PrintTable(const std::vector<Tally>& tallies) {
  printf("\n%-12s %7s %7s", "damage", "copies", "clean");
  for (int e = kCrash; e < kEndings; ++e) printf(" %10s", kEndingNames[e]);
  printf("   (each: our code / HDF5)\n");
  for (const Tally& t : tallies) {
    printf("%-12s %7d %7d", t.name, t.copies, t.ours[kClean] + t.hdf5[kClean]);
    for (int e = kCrash; e < kEndings; ++e) {
      char cell[24];
      snprintf(cell, sizeof cell, "%d/%d", t.ours[e], t.hdf5[e]);
      printf(" %10s", cell);
    }
    printf("\n");
  }
  for (const Tally& t : tallies) {
    for (const std::string& k : t.kept) printf("  kept %s\n", k.c_str());
  }
}

TEST(Damage, EveryKindOfDamageIsWalkedWithoutTroubleInOurCode) {
  ScratchDir dir;
  const std::string pristine = dir.File("pristine.sim"), copy = dir.File("copy.sim");
  RunWorkload(pristine, 40);
  const std::string bytes = ReadWholeFile(pristine);
  const char* keep = getenv("DDB_DAMAGE_KEEP");
  const std::string keepDirectory = keep != nullptr ? keep : dir.Path();
  std::vector<Tally> tallies(4);
  tallies[0].name = "structural";
  tallies[1].name = "truncation";
  tallies[2].name = "flips";
  tallies[3].name = "records";

  // The walk reads everything there is: every kind of object and value.
  std::string whole = WalkDatabase(pristine);
  for (const char* seen :
       {"discreteModel.vectors = collection 0 of 6", "events[1].eventName", "damping.alpha",
        "com.trevolo.GenericSystem", "nodeSets[n", "[101 102"}) {
    EXPECT_NE(whole.find(seen), std::string::npos) << seen;
  }

  std::vector<std::string> groups;
  std::vector<DamageKind> kinds;
  WithFile(pristine, false, [&](hid_t file) {
    std::vector<Place> places = SurveyLayout(file);
    groups = MembersGroups(places);
    AddLayoutKinds(places, kinds);
    AddIdentifierKinds(file, groups, kinds);
    AddValueKinds(file, groups, kinds);
  });
  EXPECT_GE(kinds.size(), 40u);
  for (const DamageKind& kind : kinds) {
    WriteWholeFile(copy, bytes);
    WithFile(copy, true, kind.damage);
    EXPECT_TRUE(ReadWholeFile(copy) != bytes) << kind.name << ": the damage was not made";
    WalkAndCount(tallies[0], copy, kind.name, keepDirectory);
  }

  for (int i = 1; i <= 50; ++i) {
    size_t length = bytes.size() * static_cast<size_t>(i) / 51;
    WriteWholeFile(copy, bytes.substr(0, length));
    WalkAndCount(tallies[1], copy, "cut to " + std::to_string(length), keepDirectory);
  }

  std::mt19937 random(20261124);
  const int flips = Full() ? 2000 : 200;
  for (int i = 0; i < flips; ++i) {
    std::string flipped = bytes;
    size_t at = random() % bytes.size();
    unsigned char bit = static_cast<unsigned char>(1u << (random() % 8));
    flipped[at] = static_cast<char>(static_cast<unsigned char>(flipped[at]) ^ bit);
    WriteWholeFile(copy, flipped);
    WalkAndCount(tallies[2], copy, "byte " + std::to_string(at) + " ^ " + std::to_string(bit),
                 keepDirectory);
  }

  // Random members records, in every object group.
  ASSERT_FALSE(groups.empty());
  const int records = Full() ? 500 : 70;
  for (int i = 0; i < records; ++i) {
    const std::string& g = groups[static_cast<size_t>(i) % groups.size()];
    std::vector<unsigned char> record = RandomMembersRecord(random);
    WriteWholeFile(copy, bytes);
    WithFile(copy, true, [&](hid_t f) { PutMembersRecord(f, g, record); });
    WalkAndCount(tallies[3], copy, "record " + std::to_string(i) + " at " + g, keepDirectory);
  }
  PrintTable(tallies);
}

// Inputs that still reach a fault inside HDF5 1.10.8 (see the README's known
// limits): walked as any damaged copy, they must never end badly in our code.
TEST(HdfRegressions, KnownHdf5FaultsNeverEndBadlyInOurCode) {
  Tally tally;
  tally.name = "regressions";
  ScratchDir dir;
  for (const char* name : {"cache-entry-size-1", "cache-entry-size-2", "cache-entry-size-3"}) {
    std::string kept = std::string(DDB_TESTS_DIR) + "/data/hdf5_regressions/" + name + ".sim";
    std::string bytes = ReadWholeFile(kept);
    ASSERT_FALSE(bytes.empty()) << kept << " is missing";
    std::string copy = dir.File("copy.sim");
    WriteWholeFile(copy, bytes);
    WalkAndCount(tally, copy, name, dir.Path());
  }
  PrintTable({tally});
}

}  // namespace
