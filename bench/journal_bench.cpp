// What crash consistency costs: the same commits through the write-ahead
// journal and straight through HDF5's own POSIX driver, in the same run.
//
// A sim gets a mesh with N FE systems, one commit each (an array addition:
// element group, class, members dataset, size), then one setter commit on
// every system (its members rewritten); then the sim is closed. Both runs
// flush exactly where the wrapper does. Each run is a fresh process. The
// journal with SyncCommits (two disk syncs per commit) is measured on fewer
// systems, against the plain journal on as many.
//
//   journal_bench [systems [directory]]   (default 10000 /tmp)
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench_mesh.h"
#include "bench_util.h"
#include "fes/fes.h"
#include "frame/DDB_PDM_Core_startup.h"
#include "platform/hdf/hdf.h"
#include "platform/service/QELSimService.h"
#include "sim_schema/sim_schema.h"

namespace {

std::string g_directory = "/tmp";

struct Times {
  double add = 0, set = 0;
};

Times Run(int systems, int option) {
  std::string file = g_directory + "/journal_bench_" + std::to_string(getpid()) + ".sim";
  unlink(file.c_str());
  Times times;
  {
    msfD_Root root(0);
    msfD_Sim sim = root.createSim(file.c_str(), "", option);
    bench::Mesh mesh = bench::MakeMesh(sim);
    auto& array = mesh.systems;
    times.add = bench::BestOf(1, [&] {
      for (int i = 0; i < systems; ++i) array.add(bench::System(mesh, i));
    });
    times.set = bench::BestOf(1, [&] {
      for (int i = 0; i < systems; ++i) {
        array.get(i).SystemName(("renamed " + std::to_string(i)).c_str());
      }
    });
    root.closeSim(sim);
  }
  unlink(file.c_str());
  return times;
}

// One run in a fresh process, from clean pages: the other side's writes are
// on the disk, not in the writeback that follows them.
Times RunInFreshProcess(int systems, bool journal, int option) {
  sync();
  double t[2] = {0, 0};
  if (!bench::InFreshProcess("--run " + std::to_string(systems) + " " + (journal ? "1 " : "0 ") +
                                 std::to_string(option) + " " + g_directory,
                             t)) {
    std::fprintf(stderr, "journal_bench: a run in a fresh process failed\n");
    std::exit(1);
  }
  return {t[0], t[1]};
}

// Best of `runs` for each of two configurations, alternating.
void Compare(const char* title, int systems, int runs, int option, bool baselineJournal,
             int baselineOption, const char* baselineName, const char* name, double target) {
  Times best{1e300, 1e300}, base{1e300, 1e300};
  for (int r = 0; r < runs; ++r) {
    Times b = RunInFreshProcess(systems, baselineJournal, baselineOption);
    Times t = RunInFreshProcess(systems, true, option);
    base = {std::min(base.add, b.add), std::min(base.set, b.set)};
    best = {std::min(best.add, t.add), std::min(best.set, t.set)};
  }
  bench::Header(title, (std::to_string(systems) + " FE systems").c_str());
  std::string row = std::string(baselineName) + ": add a system";
  bench::BaselineRow(row.c_str(), base.add, systems);
  row = std::string(name) + ": add a system";
  bench::Row(row.c_str(), best.add, systems, base.add, target);
  row = std::string(baselineName) + ": setter commit";
  bench::BaselineRow(row.c_str(), base.set, systems);
  row = std::string(name) + ": setter commit";
  bench::Row(row.c_str(), best.set, systems, base.set, target);
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  DDB_PDM_Core_initialize(count);
  if (argc == 6 && std::string(argv[1]) == "--run") {  // one run, for Compare
    g_directory = argv[5];
    hdf_File::SetJournaling(std::atoi(argv[3]) != 0);
    Times t = Run(std::atoi(argv[2]), std::atoi(argv[4]));
    std::printf("%.9g %.9g\n", t.add, t.set);
    DDB_PDM_Core_finalize(count);
    return 0;
  }
  int systems = argc > 1 ? std::atoi(argv[1]) : 10000;
  if (argc > 2) g_directory = argv[2];
  int runs = bench::Runs(3);
  std::printf(
      "journal_bench: %d FE systems, best of %d runs in fresh processes (target: journal "
      "at most 1.3x)\n",
      systems, runs);
  Compare("The journal against HDF5's POSIX driver, same flushes", systems, runs, 0, false, 0,
          "POSIX driver", "journal", 1.3);
  int synced = std::max(1, systems / 50);
  Compare("SyncCommits: two disk syncs per commit", synced, runs, QELSimManager::SyncCommits, true,
          0, "journal", "journal + SyncCommits", 0);
  DDB_PDM_Core_finalize(count);
  return 0;
}
