// The library at scale, against the HDF5 C API doing the same work.
//
// For each size N (default 1,000, 10,000 and 100,000) the library builds a
// sim, a discrete model, a mesh and N FE systems, each with four
// distributions in its `distributions` and `userDistributions` maps, one
// commit per system; commits a setter on up to 1,000 systems spread over
// the array (three passes, the best counts); closes the sim; then reopens
// the file and reads one system (first access), and reopens it and reads
// every system (full walk). The baseline makes and reads the same groups,
// attributes and datasets directly with the C API, with the same members
// bytes, the same flushes (one per added system, one per setter) and the
// same file settings (hdf_File::ConfigureAccess and ConfigureCreation:
// format, metadata cache and journal). Runs alternate between the two so
// that both see the same disturbances of a shared machine; the best of each
// counts. Each build (create, setters, close) runs in a fresh process of
// this program (--build), as the memory walks do (below): built one after
// the other in one process, the second side inherits the heap the first
// left, and its close is up to 1.5x slower whichever side it is.
//
// Rows per size: per-system time of create + commit, setter commit, close,
// reopen, first access and full walk against the C API; file size per
// system; and how create + commit and reopen + first access grow with N
// (against 1,000 systems and against a database of 100 systems, each side
// against its own). Last, a record whose map holds 100,000 entries: its
// commit and its load against a minimal hand-written encoder and decoder of
// the same bytes with the C API.
//
// Memory of a full walk is measured in fresh processes (this program run
// again with --walk-memory), so that neither side inherits the other's heap:
// the peak resident size while every system is loaded, per system, beside the
// C API's walk that keeps every element group open; and how much the
// resident size grows per walk after the first (each walk opens, loads every
// system and closes): no more than the C API's own (HDF5's free lists and the
// C library's heap keep a few bytes per object either way).
//
//   database_bench [sizes [directory]]   sizes comma-separated, default
//                                        1000,10000,100000; directory /tmp
#include <hdf5.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bench_util.h"
#include "fes/fes.h"
#include "frame/DDB_PDM_Core_startup.h"
#include "platform/hdf/hdf.h"
#include "sim_schema/sim_schema.h"

namespace {

std::string g_directory = "/tmp";
hid_t g_access = H5P_DEFAULT;
hid_t g_creation = H5P_DEFAULT;

std::string FileName(const char* what, int systems) {
  return g_directory + "/database_bench_" + std::to_string(getpid()) + "_" + what + "_" +
         std::to_string(systems) + ".h5";
}

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "database_bench: %s failed\n", what);
    std::exit(1);
  }
}

std::string SystemName(int i) {
  return "system " + std::to_string(i);
}
std::string NewName(int i) {
  return "renamed " + std::to_string(i);
}

// The setter passes over the sample rename, rename back and rename again, so
// that every pass changes every record and the last leaves the new names;
// the best pass counts (one pass of 1,000 commits is too short to be steady).
const int kSetterPasses = 3;
std::string NameAfterPass(int i, int pass) {
  return pass % 2 == 0 ? NewName(i) : SystemName(i);
}

// The systems that get a setter commit: up to 1,000, spread over the array.
std::vector<int> SetterSample(int systems) {
  int n = std::min(systems, 1000);
  std::vector<int> sample;
  for (int k = 0; k < n; ++k) sample.push_back(static_cast<int>(1LL * k * systems / n));
  return sample;
}

long long FileSize(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : 0;
}

void Fresh(const std::string& path) {
  std::remove(path.c_str());
}

// Seconds of each phase of building a database.
struct BuildTimes {
  double add = 1e300, set = 1e300, close = 1e300;
  void Keep(const BuildTimes& t) {
    add = std::min(add, t.add);
    set = std::min(set, t.set);
    close = std::min(close, t.close);
  }
};

// Times the phases of one build: adding the systems, the setter passes (the
// best counts) and the close. Each phase starts with every dirty page of the
// machine written back: the operating system writes a build's pages some
// seconds later, and that must not fall into the next phase of either side
// (without it, two runs at 100,000 systems gave the setter commit 0.56x and
// 1.66x of the C API).
template <class Add, class Set, class Close>
BuildTimes TimeBuild(int systems, Add add, Set set, Close close) {
  BuildTimes t;
  sync();
  t.add = bench::BestOf(1, add);
  const std::vector<int> sample = SetterSample(systems);
  sync();
  for (int pass = 0; pass < kSetterPasses; ++pass) {
    t.set = std::min(t.set, bench::BestOf(1, [&] { set(sample, pass); }));
  }
  sync();
  t.close = bench::BestOf(1, close);
  return t;
}

// The distributions of every system (identifiers of the sim's context; the
// service's data are not what is measured here).
const unsigned kLabels = 10, kMasks = 11;
const int kNumbers[2] = {1, 2};
const unsigned kNumbered[2] = {12, 13};
const char* const kNames[2] = {"strain", "stress"};
const unsigned kNamed[2] = {14, 15};

// --- the library ------------------------------------------------------------

// Makes the sim, its model and mesh; returns the mesh's systems array.
template <class Sim>
auto LibraryMesh(Sim& sim) {
  const int c = sim.distributionService().Context().Number();
  msfD_DiscreteModel model = sim.DiscreteModel(
      msfD_DiscreteModel::New(QELSimCollectionID(c, 1), QELSimCollectionID(c, 2), 0));
  msfD_Mesh mesh =
      model.Mesh(msfD_Mesh::New(QELSimCollectionID(c, 2), QELSimCollectionID(c, 3), 0));
  return mesh.systems();
}

// Adds `systems` FE systems, one commit each. Not inlined: a profiler can
// collect this phase alone (callgrind --toggle-collect='*LibraryAdd*').
template <class Array>
__attribute__((noinline)) void LibraryAdd(const Array& array, int c, int systems) {
  ada_MapInt<QELSimDistributionID> byNumber;
  ada_MapString<QELSimDistributionID> byName;
  for (int k = 0; k < 2; ++k) {
    byNumber.insert(kNumbers[k], QELSimDistributionID(c, kNumbered[k]));
    byName.insert(kNames[k], QELSimDistributionID(c, kNamed[k]));
  }
  for (int i = 0; i < systems; ++i) {
    // Filled before it is added: binding then stores it with one write.
    fesD_FESystemHolder system =
        fesD_FESystem::New(SystemName(i).c_str(), QELSimDistributionID(c, kLabels),
                           QELSimDistributionID(c, kMasks), 0);
    system.Get().Distributions(byNumber);
    system.Get().UserDistributions(byName);
    array.add(system);
  }
}

template <class Array>
__attribute__((noinline)) void LibrarySet(const Array& array, const std::vector<int>& sample,
                                          int pass) {
  for (int i : sample) array.get(i).SystemName(NameAfterPass(i, pass).c_str());
}

__attribute__((noinline)) void LibraryClose(msfD_Root& root, const msfD_Sim& sim) {
  root.closeSim(sim);
}

BuildTimes LibraryBuild(const std::string& path, int systems) {
  msfD_Root root(0);
  msfD_Sim sim = root.createSim(path.c_str(), "", 0);
  Check(!!sim, "createSim");
  const int c = sim.distributionService().Context().Number();
  auto array = LibraryMesh(sim);
  return TimeBuild(
      systems, [&] { LibraryAdd(array, c, systems); },
      [&](const std::vector<int>& sample, int pass) { LibrarySet(array, sample, pass); },
      [&] { LibraryClose(root, sim); });
}

// Reads the members of one system; returns a number that depends on them.
long long Use(const fesD_FESystem& system) {
  return system.systemName().byteCount() + system.distributions().count() +
         system.userDistributions().count() + system.nodalLabels().DistributionMinor();
}

// Reopening (to the systems array), the first access and the close after
// it, timed apart.
struct OpenTimes {
  double open = 1e300, first = 1e300, close = 1e300, all = 1e300;
  double Sum() const { return open + first; }
  void Keep(double t0, double t1, double t2) {
    open = std::min(open, t0);
    first = std::min(first, t1);
    close = std::min(close, t2);
    all = std::min(all, t0 + t1 + t2);
  }
};

double Seconds(std::chrono::steady_clock::time_point from,
               std::chrono::steady_clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

__attribute__((noinline)) long long LibraryOpenAndRead(const std::string& path, int index,
                                                       OpenTimes* best) {
  long long sum = 0;
  auto start = std::chrono::steady_clock::now();
  msfD_Root root(0);
  msfD_Sim sim = root.openSimReadOnly(path.c_str(), "", 0);
  auto systems = sim.discreteModel().mesh().systems();
  sum += systems.count();
  auto opened = std::chrono::steady_clock::now();
  sum += Use(systems.get(index));
  auto read = std::chrono::steady_clock::now();
  root.closeSim(sim);
  auto closed = std::chrono::steady_clock::now();
  best->Keep(Seconds(start, opened), Seconds(opened, read), Seconds(read, closed));
  return sum;
}

__attribute__((noinline)) long long LibraryWalk(const std::string& path) {
  msfD_Root root(0);
  msfD_Sim sim = root.openSimReadOnly(path.c_str(), "", 0);
  auto systems = sim.discreteModel().mesh().systems();
  long long sum = 0;
  for (int i = 0; i < systems.count(); ++i) sum += Use(systems.get(i));
  return sum;
}

// --- the same with the C API ------------------------------------------------

// The members stream, encoded by hand: little-endian words, tag bytes.
struct Encoder {
  std::vector<unsigned char> bytes;
  void Int(int v) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<unsigned char>(unsigned(v) >> (8 * i)));
  }
  void Byte(unsigned char b) { bytes.push_back(b); }
  void Text(const std::string& s) {
    Int(static_cast<int>(s.size()));
    bytes.insert(bytes.end(), s.begin(), s.end());
  }
  void Id(int kind, unsigned minor) {
    Int(12);
    Int(kind);
    Int(1);
    Int(static_cast<int>(minor));
  }
  void Record(int index, unsigned char type) {
    Byte(0x03);
    Int(index);
    Byte(type);
  }
  std::vector<unsigned char> Finish() {
    int n = static_cast<int>(bytes.size());
    for (int k = 0; k < 4; ++k)
      bytes[static_cast<size_t>(k)] = static_cast<unsigned char>(n >> (8 * k));
    return bytes;
  }
};

// The members of an FE system named `name` whose distributions map holds
// the (number, distribution minor) pairs `numbered`, in key order.
std::vector<unsigned char> RecordBytes(const std::string& name,
                                       const std::vector<std::pair<int, unsigned>>& numbered) {
  Encoder e;
  e.bytes.reserve(64 + 26 * numbered.size());
  e.Int(0);  // length header, filled in by Finish
  e.Record(3, 0x07);
  e.Text(name);
  e.Record(2, 0x0A);
  e.Id(3, kLabels);
  e.Record(1, 0x0A);
  e.Id(3, kMasks);
  e.Record(0, 0x4A);
  e.Int(static_cast<int>(numbered.size()));
  for (const auto& pair : numbered) e.Int(pair.first), e.Id(3, pair.second);
  e.Record(4, 0x3A);
  e.Int(2);
  for (int k = 0; k < 2; ++k) e.Text(kNames[k]), e.Id(3, kNamed[k]);
  return e.Finish();
}

std::vector<unsigned char> SystemBytes(const std::string& name) {
  return RecordBytes(name, {{kNumbers[0], kNumbered[0]}, {kNumbers[1], kNumbered[1]}});
}

// Model and mesh streams of the same lengths as the library's (their
// contents do not matter to HDF5): 7 identifiers and 2 empty maps, 6
// identifiers and 12 empty maps.
const int kModelBytes = 4 + 7 * 22 + 2 * 10;
const int kMeshBytes = 4 + 5 * 22 + 26 + 12 * 10;

std::vector<unsigned char> FillerBytes(int size) {
  return std::vector<unsigned char>(static_cast<size_t>(size), 0x03);
}

std::vector<unsigned char> ReadMembersOf(const std::string& path, const std::string& group) {
  hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  hid_t d = H5Dopen2(f, (group + "/#simpleTypeMembers").c_str(), H5P_DEFAULT);
  hid_t s = H5Dget_space(d);
  std::vector<unsigned char> bytes(static_cast<size_t>(H5Sget_simple_extent_npoints(s)));
  if (!bytes.empty()) H5Dread(d, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
  H5Sclose(s);
  H5Dclose(d);
  H5Fclose(f);
  return bytes;
}

class RawWriter {
 public:
  explicit RawWriter(hid_t file) : m_file(file) {}

  void Flush() { H5Fflush(m_file, H5F_SCOPE_LOCAL); }
  void WriteAttribute(hid_t owner, const char* name, hid_t type, const void* data) {
    hid_t a = H5Aopen(owner, name, H5P_DEFAULT);
    Check(a >= 0 && H5Awrite(a, type, data) >= 0, "H5Awrite");
    H5Aclose(a);
  }
  void CreateAttribute(hid_t owner, const char* name, hid_t type, int rank, const hsize_t* dims) {
    hid_t space = H5Screate_simple(rank, dims, nullptr);
    H5Aclose(H5Acreate2(owner, name, type, space, H5P_DEFAULT, H5P_DEFAULT));
    H5Sclose(space);
  }
  // An object group: "class" made empty, then written.
  hid_t ObjectGroup(hid_t parent, const char* name, const char* id, int typeTag) {
    hid_t g = H5Gcreate2(parent, name, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    Check(g >= 0, "H5Gcreate2");
    if (typeTag > 0) {
      hsize_t two = 2;
      CreateAttribute(g, "type", H5T_NATIVE_INT, 1, &two);
      int tag[2] = {typeTag, 0};
      WriteAttribute(g, "type", H5T_NATIVE_INT, tag);
    }
    hsize_t eighty = 80;
    CreateAttribute(g, "class", H5T_NATIVE_UCHAR, 1, &eighty);
    unsigned char bytes[80] = {};
    WriteAttribute(g, "class", H5T_NATIVE_UCHAR, bytes);
    std::snprintf(reinterpret_cast<char*>(bytes), sizeof bytes, "%s", id);
    WriteAttribute(g, "class", H5T_NATIVE_UCHAR, bytes);
    return g;
  }
  void CreateMembers(hid_t group) {
    hsize_t zero = 0, unlimited = H5S_UNLIMITED, chunk = 1024;
    hid_t space = H5Screate_simple(1, &zero, &unlimited);
    hid_t properties = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(properties, 1, &chunk);
    hid_t d = H5Dcreate2(group, "#simpleTypeMembers", H5T_NATIVE_UCHAR, space, H5P_DEFAULT,
                         properties, H5P_DEFAULT);
    Check(d >= 0, "H5Dcreate2");
    H5Pclose(properties);
    H5Sclose(space);
    H5Dclose(d);
  }
  // Opens the members dataset, grows it to the bytes and writes them at 0.
  void WriteMembers(hid_t group, const std::vector<unsigned char>& bytes) {
    hid_t d = H5Dopen2(group, "#simpleTypeMembers", H5P_DEFAULT);
    hsize_t n = bytes.size(), start = 0, current = 0;
    hid_t fileSpace = H5Dget_space(d);
    H5Sget_simple_extent_dims(fileSpace, &current, nullptr);
    if (n > current) {
      Check(H5Dset_extent(d, &n) >= 0, "H5Dset_extent");
      H5Sclose(fileSpace);
      fileSpace = H5Dget_space(d);
    }
    H5Sselect_hyperslab(fileSpace, H5S_SELECT_SET, &start, nullptr, &n, nullptr);
    hid_t memory = H5Screate_simple(1, &n, nullptr);
    Check(H5Dwrite(d, H5T_NATIVE_UCHAR, memory, fileSpace, H5P_DEFAULT, bytes.data()) >= 0,
          "H5Dwrite");
    H5Sclose(memory);
    H5Sclose(fileSpace);
    H5Dclose(d);
  }
  void Members(hid_t group, const std::vector<unsigned char>& bytes) {
    CreateMembers(group);
    WriteMembers(group, bytes);
  }
  hid_t Repository(hid_t parent, const char* name) {
    hid_t g = H5Gcreate2(parent, name, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    hsize_t dims[2] = {1, 1};
    CreateAttribute(g, "#size", H5T_NATIVE_INT, 2, dims);
    WriteSize(g, 0);
    return g;
  }
  void WriteSize(hid_t repository, int n) {
    WriteAttribute(repository, "#size", H5T_NATIVE_INT, &n);
  }

 private:
  hid_t m_file;
};

// A database made with the C API, open: the file, the groups down to the
// systems repository, and every element group (kept open, as the library
// keeps each loaded object's group).
struct RawDatabase {
  hid_t file = -1;
  std::vector<hid_t> path;  // sim, model, mesh
  hid_t repository = -1;
  std::vector<hid_t> elements;
};

RawDatabase RawSetUp(const std::string& path) {
  RawDatabase db;
  db.file = H5Fcreate(path.c_str(), H5F_ACC_EXCL, g_creation, g_access);
  Check(db.file >= 0, "H5Fcreate");
  RawWriter w(db.file);
  // (The service makes its groups with its first collection: none here.)
  hid_t sim = w.ObjectGroup(db.file, "sim", "com.trevolo.Sim", 1523728409);
  w.Flush();
  hid_t model = w.ObjectGroup(sim, "discreteModel", "com.trevolo.DiscreteModel", -1);
  w.Members(model, FillerBytes(kModelBytes));
  w.Flush();
  hid_t mesh = w.ObjectGroup(model, "mesh", "com.trevolo.Mesh", -1);
  w.Members(mesh, FillerBytes(kMeshBytes));
  w.Flush();
  db.path.insert(db.path.end(), {sim, model, mesh});
  db.repository = w.Repository(mesh, "systems");
  w.Flush();
  return db;
}

__attribute__((noinline)) void RawAdd(RawDatabase& db, int systems) {
  RawWriter w(db.file);
  for (int i = 0; i < systems; ++i) {
    hid_t g = w.ObjectGroup(db.repository, std::to_string(i).c_str(), "com.trevolo.FESystem", -1);
    w.Members(g, SystemBytes(SystemName(i)));
    w.WriteSize(db.repository, i + 1);
    w.Flush();
    db.elements.push_back(g);
  }
}

__attribute__((noinline)) void RawSet(RawDatabase& db, const std::vector<int>& sample, int pass) {
  RawWriter w(db.file);
  for (int i : sample) {
    w.WriteMembers(db.elements[static_cast<size_t>(i)], SystemBytes(NameAfterPass(i, pass)));
    w.Flush();
  }
}

__attribute__((noinline)) void RawClose(RawDatabase& db) {
  for (hid_t g : db.elements) H5Gclose(g);
  H5Gclose(db.repository);
  for (hid_t g : db.path) H5Gclose(g);
  H5Fclose(db.file);
}

BuildTimes RawBuild(const std::string& path, int systems) {
  RawDatabase db = RawSetUp(path);
  return TimeBuild(
      systems, [&] { RawAdd(db, systems); },
      [&](const std::vector<int>& sample, int pass) { RawSet(db, sample, pass); },
      [&] { RawClose(db); });
}

// An object group opened the way a lazy load does: probed, opened, its class read.
hid_t RawOpenObject(hid_t parent, const char* name, bool probe) {
  if (probe) Check(H5Lexists(parent, name, H5P_DEFAULT) > 0, "H5Lexists");
  hid_t g = H5Gopen2(parent, name, H5P_DEFAULT);
  Check(g >= 0, "H5Gopen2");
  unsigned char id[80];
  hid_t a = H5Aopen(g, "class", H5P_DEFAULT);
  Check(H5Aread(a, H5T_NATIVE_UCHAR, id) >= 0, "H5Aread");
  H5Aclose(a);
  return g;
}

std::vector<unsigned char> RawReadMembers(hid_t group) {
  hid_t d = H5Dopen2(group, "#simpleTypeMembers", H5P_DEFAULT);
  hid_t space = H5Dget_space(d);
  hsize_t n = 0, start = 0;
  H5Sget_simple_extent_dims(space, &n, nullptr);
  std::vector<unsigned char> bytes(n);
  H5Sselect_hyperslab(space, H5S_SELECT_SET, &start, nullptr, &n, nullptr);
  hid_t memory = H5Screate_simple(1, &n, nullptr);
  Check(H5Dread(d, H5T_NATIVE_UCHAR, memory, space, H5P_DEFAULT, bytes.data()) >= 0, "H5Dread");
  H5Sclose(memory);
  H5Sclose(space);
  H5Dclose(d);
  return bytes;
}

// Opens the file and the groups down to the systems repository as the
// library does (the service's group probed, the sim, each sub-object probed
// and its class read, no members: reaching the systems needs none);
// `visit` gets the repository and its size.
template <class Visit>
long long RawOpen(const std::string& path, Visit visit) {
  hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, g_access);
  Check(file >= 0, "H5Fopen");
  Check(H5Lexists(file, "QELSim", H5P_DEFAULT) == 0, "no service group");
  hid_t sim = RawOpenObject(file, "sim", false);
  hid_t model = RawOpenObject(sim, "discreteModel", true);
  hid_t mesh = RawOpenObject(model, "mesh", true);
  hid_t repository = H5Gopen2(mesh, "systems", H5P_DEFAULT);
  int size = 0;
  hid_t a = H5Aopen(repository, "#size", H5P_DEFAULT);
  H5Aread(a, H5T_NATIVE_INT, &size);
  H5Aclose(a);
  long long sum = visit(repository, size);
  for (hid_t g : {repository, mesh, model, sim}) H5Gclose(g);
  H5Fclose(file);
  return sum;
}

// Reads one system; its group stays open in `kept` until the file closes,
// like a loaded object's group in the library.
long long RawReadSystem(hid_t repository, int index, std::vector<hid_t>* kept) {
  hid_t g = RawOpenObject(repository, std::to_string(index).c_str(), false);
  std::vector<unsigned char> bytes = RawReadMembers(g);
  kept->push_back(g);
  return static_cast<long long>(bytes.size()) + bytes.back();
}

__attribute__((noinline)) long long RawOpenAndRead(const std::string& path, int index,
                                                   OpenTimes* best) {
  auto start = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point opened, read;
  long long sum = RawOpen(path, [&](hid_t repository, int size) {
    opened = std::chrono::steady_clock::now();
    std::vector<hid_t> kept;
    long long s = RawReadSystem(repository, index, &kept) + size;
    read = std::chrono::steady_clock::now();
    for (hid_t g : kept) H5Gclose(g);
    return s;
  });
  auto closed = std::chrono::steady_clock::now();
  best->Keep(Seconds(start, opened), Seconds(opened, read), Seconds(read, closed));
  return sum;
}

__attribute__((noinline)) long long RawWalk(const std::string& path) {
  return RawOpen(path, [](hid_t repository, int size) {
    std::vector<hid_t> kept;
    long long sum = 0;
    for (int i = 0; i < size; ++i) sum += RawReadSystem(repository, i, &kept);
    for (hid_t g : kept) H5Gclose(g);
    return sum;
  });
}

// --- memory of a walk, in a fresh process -----------------------------------

// A field of /proc/self/status in bytes ("VmRSS", "VmHWM"); 0 if absent.
long long StatusBytes(const char* field) {
  long long kb = 0;
  if (std::FILE* f = std::fopen("/proc/self/status", "r")) {
    char line[256];
    const size_t n = std::strlen(field);
    while (std::fgets(line, sizeof line, f) != nullptr) {
      if (std::strncmp(line, field, n) == 0 && line[n] == ':') kb = std::atoll(line + n + 1);
    }
    std::fclose(f);
  }
  return kb * 1024;
}

// The child's side: walks `path` with the library or the C API and prints
// "<peak bytes of the first walk beyond the start> <growth over the next
// walks, bytes per walk>".
int WalkMemoryChild(const std::string& kind, const std::string& path, int systems) {
  auto walk = [&] { return kind == "library" ? LibraryWalk(path) : RawWalk(path); };
  const long long start = StatusBytes("VmRSS");
  // Resets the peak to the present size (Linux 4.0 and later).
  if (std::FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
    std::fputs("5", f);
    std::fclose(f);
  }
  long long sum = walk();
  const long long peak = StatusBytes("VmHWM") - start;
  sum += walk();
  const long long second = StatusBytes("VmRSS");
  // As many walks as fit the size (20 up to 50,000 systems, 2 at 1,000,000).
  const int more = std::max(2, std::min(20, 1000000 / std::max(1, systems)));
  for (int i = 0; i < more; ++i) sum += walk();
  const long long growth = (StatusBytes("VmRSS") - second) / more;
  bench::Keep(sum);
  std::printf("%lld %lld\n", peak, growth);
  return 0;
}

// The child's side of a build: builds `path` with the library or the C API
// and prints the seconds of its phases, "<add> <setter> <close>".
int BuildChild(const std::string& kind, const std::string& path, int systems) {
  BuildTimes t = kind == "library" ? LibraryBuild(path, systems) : RawBuild(path, systems);
  std::printf("%.9g %.9g %.9g\n", t.add, t.set, t.close);
  return 0;
}

// Builds in a fresh process (whichever builds second in one process closes
// up to 1.5x slower).
BuildTimes BuildInFreshProcess(const char* kind, const std::string& path, int systems) {
  double t[3];
  Check(bench::InFreshProcess(
            std::string("--build ") + kind + " " + path + " " + std::to_string(systems), t),
        "a build in a fresh process");
  BuildTimes times;
  times.add = t[0];
  times.set = t[1];
  times.close = t[2];
  return times;
}

struct WalkMemory {
  double peak = 0, growth = 0;  // bytes per system
};

WalkMemory MeasureWalkMemory(const char* kind, const std::string& path, int systems) {
  double bytes[2];
  Check(
      bench::InFreshProcess(
          std::string("--walk-memory ") + kind + " " + path + " " + std::to_string(systems), bytes),
      "the walk in a fresh process");
  return {bytes[0] / systems, bytes[1] / systems};
}

// Best times of `raw` and `library`, run alternately.
template <class Raw, class Library>
void Alternately(int runs, Raw raw, Library library, double* rawBest, double* libraryBest) {
  for (int i = 0; i < runs; ++i) {
    *rawBest = std::min(*rawBest, bench::BestOf(1, raw));
    *libraryBest = std::min(*libraryBest, bench::BestOf(1, library));
  }
}

// The library writes what the C API writes: same members bytes, same sizes.
// (Systems 0 and count - 1: both renamed when all are, else only the first.)
void CheckSameBytes(const std::string& library, int count) {
  Check(ReadMembersOf(library, "sim/discreteModel").size() == kModelBytes &&
            ReadMembersOf(library, "sim/discreteModel/mesh").size() == kMeshBytes,
        "model and mesh streams of the expected sizes");
  const std::string systems = "sim/discreteModel/mesh/systems/";
  Check(ReadMembersOf(library, systems + "0") == SystemBytes(NewName(0)) &&
            ReadMembersOf(library, systems + std::to_string(count - 1)) ==
                SystemBytes(count > 1000 ? SystemName(count - 1) : NewName(count - 1)),
        "the same members bytes");
}

std::string Thousands(long long n) {
  std::string digits = std::to_string(n), out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

// Figures of one size, per system (seconds), for the growth rows.
struct SizeFigures {
  int systems = 0;
  double libraryAdd = 0, rawAdd = 0;
  OpenTimes libraryOpen, rawOpen;
};

// Reopen + first access of a database of 100 systems, each side.
struct Opens100 {
  OpenTimes library, raw;
};

SizeFigures MeasureSize(int systems, const Opens100& opens100) {
  // Large sizes take long: fewer runs (the figure is a mean over many systems).
  const int runs = systems >= 100000 ? bench::Runs(1) : bench::Runs(3);
  std::string raw = FileName("raw", systems), library = FileName("library", systems);
  BuildTimes rawBuild, libraryBuild;
  for (int r = 0; r < runs; ++r) {
    Fresh(raw);
    rawBuild.Keep(BuildInFreshProcess("raw", raw, systems));
    Fresh(library);
    libraryBuild.Keep(BuildInFreshProcess("library", library, systems));
  }
  sync();  // the builds' last pages, before the reads
  CheckSameBytes(library, systems);
  const double sampled = static_cast<double>(SetterSample(systems).size());

  SizeFigures f;
  f.systems = systems;
  f.libraryAdd = libraryBuild.add / systems;
  f.rawAdd = rawBuild.add / systems;
  long long sum = 0;
  for (int r = 0; r < 10 * runs; ++r) {
    sum += RawOpenAndRead(raw, systems / 2, &f.rawOpen);
    sum += LibraryOpenAndRead(library, systems / 2, &f.libraryOpen);
  }
  double rawWalk = 1e300, libraryWalk = 1e300;
  Alternately(
      runs, [&] { sum += RawWalk(raw); }, [&] { sum += LibraryWalk(library); }, &rawWalk,
      &libraryWalk);
  bench::Keep(sum);
  const WalkMemory rawMemory = MeasureWalkMemory("raw", raw, systems);
  const WalkMemory libraryMemory = MeasureWalkMemory("library", library, systems);

  const std::string size = Thousands(systems) + " systems";
  bench::Header(("a mesh of " + size + " (per item: per system)").c_str(), size.c_str());
  bench::BaselineRow("HDF5 C API: create + commit", rawBuild.add, systems);
  bench::Row("create + commit a system", libraryBuild.add, systems, rawBuild.add, 1.2);
  bench::BaselineRow("HDF5 C API: setter commit", rawBuild.set, sampled);
  bench::Row("setter commit", libraryBuild.set, sampled, rawBuild.set);
  bench::BaselineRow("HDF5 C API: close", rawBuild.close, systems);
  bench::Row("close (per system)", libraryBuild.close, systems, rawBuild.close);
  bench::BaselineRow("HDF5 C API: reopen", f.rawOpen.open, 1);
  bench::Row("reopen (per database)", f.libraryOpen.open, 1, f.rawOpen.open);
  bench::BaselineRow("HDF5 C API: first access", f.rawOpen.first, 1);
  bench::Row("first access (one system)", f.libraryOpen.first, 1, f.rawOpen.first);
  bench::BaselineRow("HDF5 C API: close after one read", f.rawOpen.close, 1);
  bench::Row("close after one read", f.libraryOpen.close, 1, f.rawOpen.close);
  bench::BaselineRow("HDF5 C API: full walk", rawWalk, systems);
  bench::Row("full walk", libraryWalk, systems, rawWalk, 1.15);
  bench::Against("HDF5 C API: full walk, every group kept open");
  bench::BytesRow("full walk: peak memory per system", libraryMemory.peak, rawMemory.peak);
  bench::BytesRow("full walk: memory beyond the C API's, per system",
                  libraryMemory.peak - rawMemory.peak, rawMemory.peak, 1024);
  bench::Against("HDF5 C API: the same walks");
  bench::BytesRow("repeated walks: memory growth per walk, per system", libraryMemory.growth,
                  rawMemory.growth);
  bench::BytesRow("repeated walks: growth beyond the C API's, per walk and system",
                  libraryMemory.growth - rawMemory.growth, rawMemory.growth, 1);
  bench::Against("HDF5 C API, same objects");
  bench::BytesRow("file size per system", static_cast<double>(FileSize(library)) / systems,
                  static_cast<double>(FileSize(raw)) / systems, 2048);
  bench::Against("library, 100 systems");
  bench::Row("reopen + first access", f.libraryOpen.Sum(), 1, opens100.library.Sum(),
             systems >= 100000 ? 1.2 : 0);
  bench::Against("HDF5 C API, 100 systems");
  bench::Row("HDF5 C API: reopen + first access", f.rawOpen.Sum(), 1, opens100.raw.Sum());
  Fresh(raw);
  Fresh(library);
  return f;
}

// How create + commit, and opening, reading one system and closing, grow
// from the first size, for the library and the C API.
void GrowthRows(const SizeFigures& small, const SizeFigures& large) {
  const std::string base = Thousands(small.systems) + " systems";
  bench::Header(("growth from " + base).c_str(), (Thousands(large.systems) + " systems").c_str());
  bench::Against("library, " + base);
  bench::PerItemRow("create + commit a system, growth", large.libraryAdd * 1e9,
                    small.libraryAdd * 1e9, large.systems >= 100000 ? 1.2 : 0);
  bench::PerItemRow("open, read one system, close, growth", large.libraryOpen.all * 1e9,
                    small.libraryOpen.all * 1e9, 1.2);
  bench::Against("HDF5 C API, " + base);
  bench::PerItemRow("HDF5 C API: create + commit, growth", large.rawAdd * 1e9, small.rawAdd * 1e9);
  bench::PerItemRow("HDF5 C API: open, read one system, close, growth", large.rawOpen.all * 1e9,
                    small.rawOpen.all * 1e9);
}

// --- a record with a large map ------------------------------------------------

const int kMapEntries = 100000;

ada_MapInt<QELSimDistributionID> LargeMap(int c) {
  ada_MapInt<QELSimDistributionID> map;
  for (int k = 0; k < kMapEntries; ++k) {
    map.insert(k * 7, QELSimDistributionID(c, static_cast<uint32_t>(1000 + k)));
  }
  return map;
}

// The minimal encoder: the same bytes as the library's stream for a system
// whose distributions map is `map`, written straight into one buffer.
// (The user distributions keep the two entries every system is made with.)
std::vector<unsigned char> LargeRecordBytes(const std::string& name,
                                            const ada_MapInt<QELSimDistributionID>& map) {
  std::vector<std::pair<int, unsigned>> numbered;
  numbered.reserve(static_cast<size_t>(map.count()));
  ada_MapIntIterator<QELSimDistributionID> it(map);
  for (it.first(); !it.isDone(); it.next()) {
    numbered.emplace_back(it.key(), it.value().DistributionMinor());
  }
  return RecordBytes(name, numbered);
}

// The minimal decoder of those bytes into the same map type (the two user
// distributions left aside).
long long DecodeLargeRecord(const std::vector<unsigned char>& bytes, int c) {
  size_t p = 4;
  auto word = [&]() {
    unsigned v = 0;
    for (int i = 0; i < 4; ++i) v |= unsigned(bytes[p + static_cast<size_t>(i)]) << (8 * i);
    p += 4;
    return static_cast<int>(v);
  };
  p += 6;
  p += static_cast<size_t>(word());  // name
  p += 6 + 16 + 6 + 16 + 6;          // two identifiers, the map's record
  int n = word();
  ada_MapInt<QELSimDistributionID> map;
  for (int k = 0; k < n; ++k) {
    int key = word();
    p += 12;
    map.insert(key, QELSimDistributionID(c, static_cast<uint32_t>(word())));
  }
  return map.count();
}

void LargeMapRows() {
  std::string raw = FileName("raw_map", kMapEntries),
              library = FileName("library_map", kMapEntries);
  const int runs = bench::Runs(3);
  double rawSet = 1e300, librarySet = 1e300, rawLoad = 1e300, libraryLoad = 1e300;
  long long sum = 0;
  for (int r = 0; r < runs; ++r) {
    Fresh(raw);
    Fresh(library);
    {
      RawDatabase db = RawSetUp(raw);
      RawAdd(db, 1);
      RawWriter w(db.file);
      const int c = 1;  // the raw file has no service: any context does
      ada_MapInt<QELSimDistributionID> map = LargeMap(c);
      rawSet = std::min(rawSet, bench::BestOf(1, [&] {
                          w.WriteMembers(db.elements[0], LargeRecordBytes(SystemName(0), map));
                          w.Flush();
                        }));
      RawClose(db);
    }
    {
      msfD_Root root(0);
      msfD_Sim sim = root.createSim(library.c_str(), "", 0);
      const int c = sim.distributionService().Context().Number();
      auto array = LibraryMesh(sim);
      LibraryAdd(array, c, 1);
      ada_MapInt<QELSimDistributionID> map = LargeMap(c);
      fesD_FESystem system = array.get(0);
      librarySet = std::min(librarySet, bench::BestOf(1, [&] { system.Distributions(map); }));
      root.closeSim(sim);
    }
    rawLoad = std::min(rawLoad, bench::BestOf(1, [&] {
                         sum += RawOpen(raw, [](hid_t repository, int) {
                           std::vector<hid_t> kept;
                           hid_t g = RawOpenObject(repository, "0", false);
                           kept.push_back(g);
                           long long n = DecodeLargeRecord(RawReadMembers(g), 1);
                           H5Gclose(g);
                           return n;
                         });
                       }));
    libraryLoad =
        std::min(libraryLoad, bench::BestOf(1, [&] {
                   msfD_Root root(0);
                   msfD_Sim sim = root.openSimReadOnly(library.c_str(), "", 0);
                   sum += sim.discreteModel().mesh().systems().get(0).distributions().count();
                 }));
  }
  Check(ReadMembersOf(library, "sim/discreteModel/mesh/systems/0") ==
            ReadMembersOf(raw, "sim/discreteModel/mesh/systems/0"),
        "the same large record");
  bench::Keep(sum);
  bench::Header("a record with a map of 100,000 entries (per item: per entry)", "100,000 entries");
  bench::BaselineRow("minimal encoder + HDF5 C API: commit", rawSet, kMapEntries);
  bench::Row("commit a record with a large map", librarySet, kMapEntries, rawSet);
  bench::BaselineRow("HDF5 C API + minimal decoder: reopen, load", rawLoad, kMapEntries);
  bench::Row("reopen and load a record with a large map", libraryLoad, kMapEntries, rawLoad);
  Fresh(raw);
  Fresh(library);
}

std::vector<int> ParseSizes(const char* text) {
  std::vector<int> sizes;
  for (const char* p = text; *p != '\0';) {
    char* end = nullptr;
    long n = std::strtol(p, &end, 10);
    if (end == p || n < 1000 || n > 10000000) return {};
    sizes.push_back(static_cast<int>(n));
    p = *end == ',' ? end + 1 : end;
    if (*end != ',' && *end != '\0') return {};
  }
  return sizes;
}

}  // namespace

int main(int argc, char** argv) {
  const bool child = argc == 5 && (std::strcmp(argv[1], "--walk-memory") == 0 ||
                                   std::strcmp(argv[1], "--build") == 0);
  std::vector<int> sizes = ParseSizes(argc > 1 && !child ? argv[1] : "1000,10000,100000");
  if (argc > 2 && !child) g_directory = argv[2];
  if (sizes.empty()) {
    std::fprintf(stderr,
                 "usage: database_bench [sizes (comma-separated, each 1000 to 10000000) "
                 "[directory]]\n");
    return 2;
  }
  int count = 0;
  DDB_PDM_Core_initialize(count);
  hdf_Quiet();
  g_access = H5Pcreate(H5P_FILE_ACCESS);
  g_creation = H5Pcreate(H5P_FILE_CREATE);
  Check(hdf_File::ConfigureAccess(g_access) && hdf_File::ConfigureCreation(g_creation),
        "the wrapper's file settings");
  if (child) {
    const int systems = std::atoi(argv[4]);
    const int status = std::strcmp(argv[1], "--build") == 0
                           ? BuildChild(argv[2], argv[3], systems)
                           : WalkMemoryChild(argv[2], argv[3], systems);
    H5Pclose(g_creation);
    H5Pclose(g_access);
    DDB_PDM_Core_finalize(count);
    return status;
  }

  // The reference for reopen + first access: a database of 100 systems,
  // the library's and the C API's.
  const int small = 100;
  Opens100 opens100;
  std::string library100 = FileName("library", small), raw100 = FileName("raw", small);
  Fresh(library100);
  Fresh(raw100);
  LibraryBuild(library100, small);
  RawBuild(raw100, small);
  long long sum = 0;
  for (int r = 0; r < 30 * bench::Runs(3); ++r) {
    sum += RawOpenAndRead(raw100, small / 2, &opens100.raw);
    sum += LibraryOpenAndRead(library100, small / 2, &opens100.library);
  }
  bench::Keep(sum);
  Fresh(library100);
  Fresh(raw100);

  std::vector<SizeFigures> figures;
  for (int systems : sizes) figures.push_back(MeasureSize(systems, opens100));
  for (size_t k = 1; k < figures.size(); ++k) GrowthRows(figures[0], figures[k]);
  LargeMapRows();

  H5Pclose(g_creation);
  H5Pclose(g_access);
  DDB_PDM_Core_finalize(count);
  return 0;
}
