// The simulation-database service against the HDF5 C API doing the same work.
//
// Writing: N collections of M members, each with an ordered set of all its
// members (reversed) and an int32 distribution over that set; then reopening
// and reading every distribution back the way the DOF numbering does, and
// every ordered set's members. bench/run also runs it on one collection of
// 50 million members: bulk data, where writing and reading are held to
// 1.2x of the C API (first read included: every read run reopens). The
// baseline makes the same groups, datasets, attributes and flushes directly
// with the C API in the same run. Both are also timed without flushing, which
// gives the cost of flushing after every call. The baseline opens its files
// with the wrapper's file access settings (hdf_File::ConfigureAccess); one
// more row shows HDF5's defaults. The baseline uses HDF5's POSIX driver: the
// service's files go through the write-ahead journal, so its cost is in the
// ratios. Runs alternate between the two
// (BENCH_RUNS of each, default 3) and the best of each counts.
//
//   service_bench [collections [members [directory]]]   (default 10000 1000 /tmp)
#include <hdf5.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "bench_util.h"
#include "platform/service/QELSimService.h"

namespace {

int g_collections = 10000;
int g_members = 1000;
std::string g_directory = "/tmp";

std::string FileName(const char* what) {
  return g_directory + "/service_bench_" + std::to_string(getpid()) + "_" + what + ".h5";
}

struct Sample {
  std::vector<int> members;  // the ordered set: members reversed
  std::vector<int> values;
  Sample() : members(static_cast<size_t>(g_members)), values(static_cast<size_t>(g_members)) {
    for (int k = 0; k < g_members; ++k) {
      members[static_cast<size_t>(k)] = g_members - 1 - k;
      values[static_cast<size_t>(k)] = 3 * k + 1;
    }
  }
};

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "service_bench: %s failed\n", what);
    std::exit(1);
  }
}

// --- the service ------------------------------------------------------------

void ServiceWrite(const std::string& path, const Sample& s) {
  QELSimContextID context =
      QELSimManager::CreateContext(path.c_str(), hdf_File::Exclusive, 102, false, 1);
  Check(!context.IsNull(), "CreateContext");
  for (int i = 0; i < g_collections; ++i) {
    QELSimCollectionRef collection(QELSimCollectionRef::Create(context, g_members));
    QELSimCSetID set = collection.CreateOrderedCSet(s.members.data(), g_members);
    Check(QELSimDistributionRef::CreateInt32(set, s.values.data()).IsValid(), "CreateInt32");
  }
  QELSimManager::CloseContext(context);
}

long long ServiceRead(const std::string& path) {
  QELSimContextID context =
      QELSimManager::OpenContext(path.c_str(), hdf_File::ReadOnly, 102, false, 1);
  Check(!context.IsNull(), "OpenContext");
  std::vector<int> values(static_cast<size_t>(g_members));
  long long sum = 0;
  for (int i = 0; i < g_collections; ++i) {
    QELSimDistributionID id(context.Number(), static_cast<uint32_t>(i));
    QELSimDistributionRef distribution(id);
    QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
    distribution.QueryDrawers(drawers);
    QELSimCSetID set = drawers[0].DimensionSets()[0];
    int count = drawers[0].DataSizeItems(0);
    QELSimTransfer t(id);
    t.SetRead();
    t.SetBufferPadding(false);
    t.SetDim(0, set);
    t.CheckView();
    t.SetBuffer(0, values.data(), static_cast<size_t>(count) * 4);
    Check(t.ExecRead(), "ExecRead");
    t.RelinquishBuffers();
    sum += values[static_cast<size_t>(count - 1)];
  }
  QELSimManager::CloseContext(context);
  return sum;
}

// Reads every ordered set's members after reopening.
long long ServiceReadSets(const std::string& path) {
  QELSimContextID context =
      QELSimManager::OpenContext(path.c_str(), hdf_File::ReadOnly, 102, false, 1);
  Check(!context.IsNull(), "OpenContext");
  std::vector<int> members(static_cast<size_t>(g_members));
  long long sum = 0;
  for (int i = 0; i < g_collections; ++i) {
    QELSimCSet set(QELSimCSetID(context.Number(), static_cast<uint32_t>(i), 0));
    int count = set.Size();
    set.OrderedMembers(members.data());
    sum += members[static_cast<size_t>(count - 1)];
  }
  QELSimManager::CloseContext(context);
  return sum;
}

// --- the same with the C API ------------------------------------------------

void RawIntAttribute(hid_t owner, const char* name, hid_t type, hsize_t n, const void* data) {
  hid_t space = H5Screate_simple(1, &n, nullptr);
  hid_t a = H5Acreate2(owner, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
  Check(a >= 0 && H5Awrite(a, type, data) >= 0, "H5Awrite");
  H5Aclose(a);
  H5Sclose(space);
}

hid_t RawIntDataset(hid_t owner, const char* name, const int* data) {
  hsize_t n = static_cast<hsize_t>(g_members);
  hid_t space = H5Screate_simple(1, &n, nullptr);
  hid_t d = H5Dcreate2(owner, name, H5T_NATIVE_INT, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  Check(d >= 0 && H5Dwrite(d, H5T_NATIVE_INT, space, space, H5P_DEFAULT, data) >= 0, "H5Dwrite");
  H5Sclose(space);
  return d;
}

// File access as the wrapper sets it up, or HDF5's default.
hid_t g_access = H5P_DEFAULT;

void RawWrite(const std::string& path, const Sample& s, bool flush) {
  hid_t file = H5Fcreate(path.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, g_access);
  Check(file >= 0, "H5Fcreate");
  hid_t service = H5Gcreate2(file, "QELSim", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  int version = 1;
  RawIntAttribute(service, "formatVersion", H5T_NATIVE_INT, 1, &version);
  hid_t collections = H5Gcreate2(service, "collections", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  hid_t distributions = H5Gcreate2(service, "distributions", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  if (flush) H5Fflush(file, H5F_SCOPE_LOCAL);
  for (int i = 0; i < g_collections; ++i) {
    std::string name = std::to_string(i);
    hid_t c = H5Gcreate2(collections, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    RawIntAttribute(c, "size", H5T_NATIVE_INT, 1, &g_members);
    if (flush) H5Fflush(file, H5F_SCOPE_LOCAL);
    H5Dclose(RawIntDataset(c, "0", s.members.data()));
    if (flush) H5Fflush(file, H5F_SCOPE_LOCAL);
    H5Gclose(c);
    hid_t d = RawIntDataset(distributions, name.c_str(), s.values.data());
    unsigned set[2] = {static_cast<unsigned>(i), 0};
    RawIntAttribute(d, "dimensionSet", H5T_NATIVE_UINT, 2, set);
    if (flush) H5Fflush(file, H5F_SCOPE_LOCAL);
    H5Dclose(d);
  }
  H5Gclose(distributions);
  H5Gclose(collections);
  H5Gclose(service);
  H5Fclose(file);
}

// Reads a whole one-dimensional int dataset into `into`; returns its length.
hsize_t RawReadInts(hid_t d, int* into) {
  hid_t space = H5Dget_space(d);
  hsize_t n = 0;
  H5Sget_simple_extent_dims(space, &n, nullptr);
  hid_t memory = H5Screate_simple(1, &n, nullptr);
  Check(H5Dread(d, H5T_NATIVE_INT, memory, space, H5P_DEFAULT, into) >= 0, "H5Dread");
  H5Sclose(memory);
  H5Sclose(space);
  return n;
}

long long RawRead(const std::string& path) {
  hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, g_access);
  Check(file >= 0, "H5Fopen");
  hid_t distributions = H5Gopen2(file, "QELSim/distributions", H5P_DEFAULT);
  std::vector<int> values(static_cast<size_t>(g_members));
  long long sum = 0;
  for (int i = 0; i < g_collections; ++i) {
    hid_t d = H5Dopen2(distributions, std::to_string(i).c_str(), H5P_DEFAULT);
    unsigned set[2];
    hid_t a = H5Aopen(d, "dimensionSet", H5P_DEFAULT);
    H5Aread(a, H5T_NATIVE_UINT, set);
    H5Aclose(a);
    hsize_t n = RawReadInts(d, values.data());
    H5Dclose(d);
    sum += values[n - 1];
  }
  H5Gclose(distributions);
  H5Fclose(file);
  return sum;
}

long long RawReadSets(const std::string& path) {
  hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, g_access);
  Check(file >= 0, "H5Fopen");
  hid_t collections = H5Gopen2(file, "QELSim/collections", H5P_DEFAULT);
  std::vector<int> members(static_cast<size_t>(g_members));
  long long sum = 0;
  for (int i = 0; i < g_collections; ++i) {
    hid_t c = H5Gopen2(collections, std::to_string(i).c_str(), H5P_DEFAULT);
    hid_t d = H5Dopen2(c, "0", H5P_DEFAULT);
    hsize_t n = RawReadInts(d, members.data());
    H5Dclose(d);
    H5Gclose(c);
    sum += members[n - 1];
  }
  H5Gclose(collections);
  H5Fclose(file);
  return sum;
}

// Best wall and process CPU times of one kind of run. On a busy shared
// machine the wall time swings; CPU time counts only this process's work.
struct Best {
  double wall = 1e300;
  double cpu = 1e300;
};

double CpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

template <class F>
void Measure(F f, Best* best) {
  double cpu = CpuSeconds();
  best->wall = std::min(best->wall, bench::BestOf(1, f));
  best->cpu = std::min(best->cpu, CpuSeconds() - cpu);
}

// Runs `raw` and `service` alternately, so that both see the same
// disturbances, keeping the best times of each.
template <class Raw, class Service>
void Alternately(int runs, Raw raw, Service service, Best* rawBest, Best* serviceBest) {
  for (int i = 0; i < runs; ++i) {
    Measure(raw, rawBest);
    Measure(service, serviceBest);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) g_collections = std::atoi(argv[1]);
  if (argc > 2) g_members = std::atoi(argv[2]);
  if (argc > 3) g_directory = argv[3];
  if (g_collections <= 0 || g_members <= 0) {
    std::fprintf(stderr, "usage: service_bench [collections [members [directory]]]\n");
    return 2;
  }
  hdf_Quiet();
  // The baseline: the wrapper's cache and format on HDF5's own POSIX driver,
  // so that what the journal costs shows.
  hid_t access = H5Pcreate(H5P_FILE_ACCESS);
  hdf_File::SetJournaling(false);
  Check(hdf_File::ConfigureAccess(access), "ConfigureAccess");
  hdf_File::SetJournaling(true);
  g_access = access;
  Sample sample;
  std::string raw = FileName("raw");
  std::string service = FileName("service");
  double items = g_collections;  // per collection: one collection, set and distribution

  std::printf("%d collections of %d members, each with an ordered set and an int32 distribution",
              g_collections, g_members);
  int runs = bench::Runs(3);
  // Each write run starts from no file; the last one's files are read below.
  auto fresh = [](const std::string& path) { std::remove(path.c_str()); };
  Best rawWrite, serviceWrite;
  Alternately(
      runs, [&] { fresh(raw), RawWrite(raw, sample, true); },
      [&] { fresh(service), ServiceWrite(service, sample); }, &rawWrite, &serviceWrite);
  const std::string size = std::to_string(g_collections) + " x " + std::to_string(g_members);
  // Bulk data (a million members or more) is held to the C API's speed.
  const double bulkTarget = g_members >= 1000000 ? 1.2 : 0;
  bench::Header("writing, flushed after every call (per item = per collection)", size.c_str());
  bench::BaselineRow("HDF5 C API, same objects, flushes, cache", rawWrite.wall, items);
  bench::Row("service: write a collection, set, distribution", serviceWrite.wall, items,
             rawWrite.wall, bulkTarget);
  // Why the wrapper sets a small metadata cache: HDF5 walks the whole cache at
  // every flush. One run, for information (slow at full size).
  g_access = H5P_DEFAULT;
  fresh(raw);
  double defaultCache = bench::BestOf(1, [&] { RawWrite(raw, sample, true); });
  g_access = access;
  fresh(raw);
  RawWrite(raw, sample, true);
  bench::InfoRow("HDF5 C API, HDF5's default metadata cache", defaultCache, items, rawWrite.wall);

  // Reading is quick: more runs steady it. The last row reads the C API's
  // file through the service, which separates the code from the file layout.
  int readRuns = 4 * runs;
  long long rawSum = 0, serviceSum = 0, crossSum = 0;
  Best rawRead, serviceRead, crossRead;
  Alternately(
      readRuns, [&] { rawSum = RawRead(raw); }, [&] { serviceSum = ServiceRead(service); },
      &rawRead, &serviceRead);
  Alternately(
      readRuns, [&] { rawSum = RawRead(raw); }, [&] { crossSum = ServiceRead(raw); }, &rawRead,
      &crossRead);
  long long rawSetSum = 0, serviceSetSum = 0;
  Best rawSetRead, serviceSetRead;
  Alternately(
      readRuns, [&] { rawSetSum = RawReadSets(raw); },
      [&] { serviceSetSum = ServiceReadSets(service); }, &rawSetRead, &serviceSetRead);
  Check(rawSum == serviceSum && rawSum == crossSum && rawSetSum == serviceSetSum,
        "reading back the same values");
  bench::Header("reading every distribution back after reopening", size.c_str());
  bench::BaselineRow("HDF5 C API, same reads", rawRead.wall, items);
  bench::Row("service: read a distribution back", serviceRead.wall, items, rawRead.wall,
             bulkTarget);
  bench::Row("service: read a distribution of the C API's file", crossRead.wall, items,
             rawRead.wall);
  bench::BaselineRow("HDF5 C API: read an ordered set", rawSetRead.wall, items);
  bench::Row("service: read an ordered set's members", serviceSetRead.wall, items, rawSetRead.wall,
             bulkTarget);

  Best rawUnflushed, serviceUnflushed;
  hdf_File::SetFlushAfterWrites(false);
  Alternately(
      runs, [&] { fresh(raw), RawWrite(raw, sample, false); },
      [&] { fresh(service), ServiceWrite(service, sample); }, &rawUnflushed, &serviceUnflushed);
  hdf_File::SetFlushAfterWrites(true);
  bench::Header("the cost of flushing after every call (writing without flushes)", size.c_str());
  bench::BaselineRow("HDF5 C API, no flushes", rawUnflushed.wall, items);
  bench::Row("service: write, no flushes", serviceUnflushed.wall, items, rawUnflushed.wall);
  bench::Against("service, no flushes");
  bench::Row("service: write, flushed", serviceWrite.wall, items, serviceUnflushed.wall);

  bench::Header("the same, process CPU time (steadier on a busy machine)", size.c_str());
  bench::InfoRow("writing flushed: HDF5 C API", rawWrite.cpu, items, rawWrite.cpu);
  bench::InfoRow("writing flushed: service", serviceWrite.cpu, items, rawWrite.cpu);
  bench::InfoRow("reading: HDF5 C API", rawRead.cpu, items, rawRead.cpu);
  bench::InfoRow("reading: service", serviceRead.cpu, items, rawRead.cpu);
  bench::InfoRow("writing unflushed: HDF5 C API", rawUnflushed.cpu, items, rawUnflushed.cpu);
  bench::InfoRow("writing unflushed: service", serviceUnflushed.cpu, items, rawUnflushed.cpu);

  std::remove(raw.c_str());
  std::remove(service.c_str());
  H5Pclose(access);
  return 0;
}
