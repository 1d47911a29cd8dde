// A whole database through the schema against the HDF5 C API doing the same
// work.
//
// The library builds a sim, a discrete model, a mesh and N FE systems, each
// with four distributions in its `distributions` and `userDistributions`
// maps, and closes the sim; then it reopens the file and reads one system,
// and reopens it and reads every system. The baseline makes and reads the
// same groups, attributes and datasets directly with the C API, with the
// same members bytes, and flushes where the library's HDF5 wrapper does
// (after every attribute and dataset write, see hdf_File::FlushAfterWrites).
// Both open files with the wrapper's file access settings
// (hdf_File::ConfigureAccess). Runs alternate between the two and the best of
// each counts (BENCH_RUNS, default 3; the open-and-read-one rows take the
// best of 20 times as many).
//
// Opening and reading one system is shown for 100 and for N systems side by
// side: it should not depend on the number of systems.
//
//   database_bench [systems [directory]]   (default 10000 /tmp)
#include <hdf5.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_util.h"
#include "fes/fes.h"
#include "frame/DDB_PDM_Core_startup.h"
#include "platform/hdf/hdf.h"
#include "sim_schema/sim_schema.h"

namespace {

std::string g_directory = "/tmp";
hid_t g_access = H5P_DEFAULT;

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

// The distributions of every system (identifiers of the sim's context; the
// service's data are not what is measured here).
const unsigned kLabels = 10, kMasks = 11;
const int kNumbers[2] = {1, 2};
const unsigned kNumbered[2] = {12, 13};
const char* const kNames[2] = {"strain", "stress"};
const unsigned kNamed[2] = {14, 15};

// --- the library ------------------------------------------------------------

void LibraryCreate(const std::string& path, int systems) {
  msfD_Root root(0);
  msfD_Sim sim = root.createSim(path.c_str(), "", 0);
  Check(!!sim, "createSim");
  const int c = sim.distributionService().Context().Number();
  msfD_DiscreteModel model = sim.DiscreteModel(
      msfD_DiscreteModel::New(QELSimCollectionID(c, 1), QELSimCollectionID(c, 2), 0));
  msfD_Mesh mesh =
      model.Mesh(msfD_Mesh::New(QELSimCollectionID(c, 2), QELSimCollectionID(c, 3), 0));
  ada_MapInt<QELSimDistributionID> byNumber;
  ada_MapString<QELSimDistributionID> byName;
  for (int k = 0; k < 2; ++k) {
    byNumber.insert(kNumbers[k], QELSimDistributionID(c, kNumbered[k]));
    byName.insert(kNames[k], QELSimDistributionID(c, kNamed[k]));
  }
  auto array = mesh.systems();
  for (int i = 0; i < systems; ++i) {
    // Filled before it is added: binding then stores it with one write.
    fesD_FESystemHolder system =
        fesD_FESystem::New(SystemName(i).c_str(), QELSimDistributionID(c, kLabels),
                           QELSimDistributionID(c, kMasks), 0);
    system.Get().Distributions(byNumber);
    system.Get().UserDistributions(byName);
    array.add(system);
  }
  root.closeSim(sim);
}

// Reads the members of one system; returns a number that depends on them.
long long Use(const fesD_FESystem& system) {
  return system.systemName().byteCount() + system.distributions().count() +
         system.userDistributions().count() + system.nodalLabels().DistributionMinor();
}

long long LibraryReadOne(const std::string& path, int index) {
  msfD_Root root(0);
  msfD_Sim sim = root.openSimReadOnly(path.c_str(), "", 0);
  return Use(sim.discreteModel().mesh().systems().get(index));
}

long long LibraryReadAll(const std::string& path) {
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
};

std::vector<unsigned char> SystemBytes(int i) {
  Encoder e;
  e.Int(0);  // length header, filled in below
  e.Record(3, 0x07);
  e.Text(SystemName(i));
  e.Record(2, 0x0A);
  e.Id(3, kLabels);
  e.Record(1, 0x0A);
  e.Id(3, kMasks);
  e.Record(0, 0x4A);
  e.Int(2);
  for (int k = 0; k < 2; ++k) e.Int(kNumbers[k]), e.Id(3, kNumbered[k]);
  e.Record(4, 0x3A);
  e.Int(2);
  for (int k = 0; k < 2; ++k) e.Text(kNames[k]), e.Id(3, kNamed[k]);
  int n = static_cast<int>(e.bytes.size());
  for (int k = 0; k < 4; ++k)
    e.bytes[static_cast<size_t>(k)] = static_cast<unsigned char>(n >> (8 * k));
  return e.bytes;
}

// Model and mesh streams of the same lengths as the library's (their
// contents do not matter to HDF5): 7 identifiers and 2 empty maps, 6
// identifiers and 12 empty maps.
const int kModelBytes = 4 + 7 * 22 + 2 * 10;
const int kMeshBytes = 4 + 5 * 22 + 26 + 12 * 10;

std::vector<unsigned char> FillerBytes(int size) {
  return std::vector<unsigned char>(static_cast<size_t>(size), 0x03);
}

long long MembersSize(const std::string& path, const std::string& group) {
  hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  hid_t d = H5Dopen2(f, (group + "/#simpleTypeMembers").c_str(), H5P_DEFAULT);
  hid_t s = H5Dget_space(d);
  long long n = H5Sget_simple_extent_npoints(s);
  H5Sclose(s);
  H5Dclose(d);
  H5Fclose(f);
  return n;
}

class RawWriter {
 public:
  RawWriter(hid_t file, bool flush) : m_file(file), m_flush(flush) {}

  void Flush() {
    if (m_flush) H5Fflush(m_file, H5F_SCOPE_LOCAL);
  }
  void WriteAttribute(hid_t owner, const char* name, hid_t type, const void* data) {
    hid_t a = H5Aopen(owner, name, H5P_DEFAULT);
    Check(a >= 0 && H5Awrite(a, type, data) >= 0, "H5Awrite");
    H5Aclose(a);
    Flush();
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
  void Members(hid_t group, const std::vector<unsigned char>& bytes) {
    hsize_t zero = 0, unlimited = H5S_UNLIMITED, chunk = 1024;
    hid_t space = H5Screate_simple(1, &zero, &unlimited);
    hid_t properties = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(properties, 1, &chunk);
    hid_t d = H5Dcreate2(group, "#simpleTypeMembers", H5T_NATIVE_UCHAR, space, H5P_DEFAULT,
                         properties, H5P_DEFAULT);
    H5Pclose(properties);
    H5Sclose(space);
    hsize_t n = bytes.size(), start = 0;
    Check(d >= 0 && H5Dset_extent(d, &n) >= 0, "H5Dset_extent");
    hid_t fileSpace = H5Dget_space(d);
    H5Sselect_hyperslab(fileSpace, H5S_SELECT_SET, &start, nullptr, &n, nullptr);
    hid_t memory = H5Screate_simple(1, &n, nullptr);
    Check(H5Dwrite(d, H5T_NATIVE_UCHAR, memory, fileSpace, H5P_DEFAULT, bytes.data()) >= 0,
          "H5Dwrite");
    H5Sclose(memory);
    H5Sclose(fileSpace);
    H5Dclose(d);
    Flush();
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
  bool m_flush;
};

void RawCreate(const std::string& path, int systems, bool flush) {
  hid_t file = H5Fcreate(path.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, g_access);
  Check(file >= 0, "H5Fcreate");
  RawWriter w(file, flush);
  // The service's own groups, made with every new file.
  hid_t service = H5Gcreate2(file, "QELSim", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  H5Gclose(H5Gcreate2(service, "collections", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
  H5Gclose(H5Gcreate2(service, "distributions", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
  H5Gclose(service);
  hid_t sim = w.ObjectGroup(file, "sim", "com.trevolo.Sim", 1523728409);
  hid_t model = w.ObjectGroup(sim, "discreteModel", "com.trevolo.DiscreteModel", -1);
  w.Members(model, FillerBytes(kModelBytes));
  hid_t mesh = w.ObjectGroup(model, "mesh", "com.trevolo.Mesh", -1);
  w.Members(mesh, FillerBytes(kMeshBytes));
  hid_t repository = w.Repository(mesh, "systems");
  for (int i = 0; i < systems; ++i) {
    hid_t g = w.ObjectGroup(repository, std::to_string(i).c_str(), "com.trevolo.FESystem", -1);
    w.Members(g, SystemBytes(i));
    H5Gclose(g);
    w.WriteSize(repository, i + 1);
  }
  H5Gclose(repository);
  H5Gclose(mesh);
  H5Gclose(model);
  H5Gclose(sim);
  H5Fclose(file);
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

long long RawReadMembers(hid_t group) {
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
  return static_cast<long long>(n) + bytes[n - 1];
}

// Opens the file and the groups down to the systems repository; `visit`
// gets the repository and its size.
template <class Visit>
long long RawOpen(const std::string& path, Visit visit) {
  hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, g_access);
  Check(file >= 0, "H5Fopen");
  hid_t service = H5Gopen2(file, "QELSim", H5P_DEFAULT);
  hid_t collections = H5Gopen2(service, "collections", H5P_DEFAULT);
  hid_t distributions = H5Gopen2(service, "distributions", H5P_DEFAULT);
  hid_t sim = H5Gopen2(file, "sim", H5P_DEFAULT);
  hid_t model = RawOpenObject(sim, "discreteModel", true);
  hid_t mesh = RawOpenObject(model, "mesh", true);
  hid_t repository = H5Gopen2(mesh, "systems", H5P_DEFAULT);
  int size = 0;
  hid_t a = H5Aopen(repository, "#size", H5P_DEFAULT);
  H5Aread(a, H5T_NATIVE_INT, &size);
  H5Aclose(a);
  long long sum = visit(repository, size);
  for (hid_t g : {repository, mesh, model, sim, distributions, collections, service}) H5Gclose(g);
  H5Fclose(file);
  return sum;
}

// Reads one system; its group is closed at once, or, like a loaded object's
// group in the library, kept open in `kept` until the file is closed.
long long RawReadSystem(hid_t repository, int index, std::vector<hid_t>* kept = nullptr) {
  hid_t g = RawOpenObject(repository, std::to_string(index).c_str(), false);
  long long sum = RawReadMembers(g);
  if (kept != nullptr) {
    kept->push_back(g);
  } else {
    H5Gclose(g);
  }
  return sum;
}

long long RawReadOne(const std::string& path, int index) {
  return RawOpen(path, [index](hid_t repository, int) { return RawReadSystem(repository, index); });
}

long long RawReadAll(const std::string& path, bool keepOpen) {
  return RawOpen(path, [keepOpen](hid_t repository, int size) {
    std::vector<hid_t> kept;
    long long sum = 0;
    for (int i = 0; i < size; ++i) sum += RawReadSystem(repository, i, keepOpen ? &kept : nullptr);
    for (hid_t g : kept) H5Gclose(g);
    return sum;
  });
}

// Best times of `raw` and `library`, run alternately so that both see the
// same disturbances of a shared machine.
template <class Raw, class Library>
void Alternately(int runs, Raw raw, Library library, double* rawBest, double* libraryBest) {
  *rawBest = 1e300;
  *libraryBest = 1e300;
  for (int i = 0; i < runs; ++i) {
    *rawBest = std::min(*rawBest, bench::BestOf(1, raw));
    *libraryBest = std::min(*libraryBest, bench::BestOf(1, library));
  }
}

void Fresh(const std::string& path) {
  std::remove(path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  int systems = argc > 1 ? std::atoi(argv[1]) : 10000;
  if (argc > 2) g_directory = argv[2];
  if (systems < 100) {
    std::fprintf(stderr, "usage: database_bench [systems (at least 100) [directory]]\n");
    return 2;
  }
  int count = 0;
  DDB_PDM_Core_initialize(count);
  hdf_Quiet();
  hid_t access = H5Pcreate(H5P_FILE_ACCESS);
  Check(hdf_File::ConfigureAccess(access), "ConfigureAccess");
  g_access = access;
  const int runs = bench::Runs(3);
  const int small = 100;
  std::string raw = FileName("raw", systems), library = FileName("library", systems);
  std::string rawSmall = FileName("raw", small), librarySmall = FileName("library", small);

  std::printf("a mesh of %d FE systems, each with 4 distributions in its maps", systems);
  double rawCreate = 0, libraryCreate = 0;
  Alternately(
      runs, [&] { Fresh(raw), RawCreate(raw, systems, true); },
      [&] { Fresh(library), LibraryCreate(library, systems); }, &rawCreate, &libraryCreate);
  bench::Header("creating, committing and closing (per item = per system)");
  bench::Row("HDF5 C API, same objects and flushes", rawCreate, systems, rawCreate);
  bench::Row("library", libraryCreate, systems, rawCreate);

  // The same bytes on both sides, or the comparison would mean nothing.
  Check(MembersSize(library, "sim/discreteModel") == kModelBytes &&
            MembersSize(library, "sim/discreteModel/mesh") == kMeshBytes,
        "model and mesh streams of the expected sizes");
  {
    hid_t f = H5Fopen(library.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    hid_t d = H5Dopen2(f, "sim/discreteModel/mesh/systems/7/#simpleTypeMembers", H5P_DEFAULT);
    std::vector<unsigned char> stored(SystemBytes(7).size() + 1);
    hid_t s = H5Dget_space(d);
    Check(H5Sget_simple_extent_npoints(s) == static_cast<hssize_t>(stored.size() - 1), "same size");
    H5Dread(d, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, stored.data());
    stored.pop_back();
    Check(stored == SystemBytes(7), "the same members bytes");
    H5Sclose(s);
    H5Dclose(d);
    H5Fclose(f);
  }

  long long rawSum = 0, librarySum = 0;
  double rawAll = 0, libraryAll = 0;
  Alternately(
      runs, [&] { rawSum = RawReadAll(raw, false); }, [&] { librarySum = LibraryReadAll(library); },
      &rawAll, &libraryAll);
  // How much of the difference is the library keeping every loaded object's
  // group open (an object needs it for its later saves and sub-objects).
  double rawKept = bench::BestOf(runs, [&] { rawSum += RawReadAll(raw, true); });
  bench::Header("reopening and reading every system (per item = per system)");
  bench::Row("HDF5 C API", rawAll, systems, rawAll);
  bench::Row("library", libraryAll, systems, rawAll);
  bench::Row("HDF5 C API, groups kept open (for information)", rawKept, systems, rawAll);

  Fresh(rawSmall);
  Fresh(librarySmall);
  RawCreate(rawSmall, small, true);
  LibraryCreate(librarySmall, small);
  double rawOne[2], libraryOne[2];
  const std::string* rawFiles[2] = {&rawSmall, &raw};
  const std::string* libraryFiles[2] = {&librarySmall, &library};
  const int sizes[2] = {small, systems};
  for (int k = 0; k < 2; ++k) {
    int middle = sizes[k] / 2;
    Alternately(
        20 * runs, [&] { rawSum += RawReadOne(*rawFiles[k], middle); },
        [&] { librarySum += LibraryReadOne(*libraryFiles[k], middle); }, &rawOne[k],
        &libraryOne[k]);
  }
  bench::Header("reopening and reading one system (ratio: to the C API at the same size)");
  for (int k = 0; k < 2; ++k) {
    std::string n = std::to_string(sizes[k]);
    bench::Row(("HDF5 C API, " + n + " systems").c_str(), rawOne[k], 1, rawOne[k]);
    bench::Row(("library, " + n + " systems").c_str(), libraryOne[k], 1, rawOne[k]);
  }
  bench::Row(("library, " + std::to_string(systems) + " (ratio: to 100 systems)").c_str(),
             libraryOne[1], 1, libraryOne[0]);

  bench::Keep(rawSum);
  bench::Keep(librarySum);
  for (const std::string* f : {&raw, &library, &rawSmall, &librarySmall}) Fresh(*f);
  H5Pclose(access);
  DDB_PDM_Core_finalize(count);
  return 0;
}
