// A database read while it is written: what readers cost the writer, how
// soon they see a commit, and what a snapshot costs beside a running writer.
//
// Helper processes are forked before the library starts (each starts it on
// its own, as a separate program would) and take commands over pipes; what
// they measure comes back through shared memory. Three parts:
//  - Commit rate: the writer runs setter commits on a mesh of 1,000 FE
//    systems alone, then with 4 readers that open a snapshot, walk every
//    system and close, over and over; for scale, also beside 4 processes
//    that only spin (on a machine with fewer cores than processes that is
//    the floor: the readers' CPU is taken from the writer whatever they do).
//    Rows per commit; a rate of at least 0.9x of the writer alone is a time
//    per commit of at most 1.11x.
//  - Visibility: the writer renames system 0 to "commit k" at random
//    moments (0-20 ms apart); a reader polls hdf_File::Watch every 10 ms and,
//    when the mark moved, opens a snapshot and reads the name. For each
//    commit: from its return to the first snapshot holding it. p50 and p99
//    against the polling interval + 20 ms.
//  - Snapshot open: opening a database of 10,000 systems read-only,
//    reaching the mesh, reading one system and closing, with no writer and
//    while the writer commits continuously (best of each, phases alternate).
//
//   live_bench [directory]   (default /tmp; BENCH_RUNS: runs per figure)
#include <signal.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench_mesh.h"
#include "bench_util.h"
#include "fes/fes.h"
#include "frame/DDB_PDM_Core_startup.h"
#include "platform/hdf/hdf.h"
#include "platform/service/QELSimService.h"
#include "sim_schema/sim_schema.h"

namespace {

const int kReaders = 4;
const int kWalkedSystems = 1000;
const int kOpenedSystems = 10000;
const int kCommits = 2000;          // per commit-rate run
const int kVisibleCommits = 400;    // per visibility run
const double kPollSeconds = 0.010;  // the visibility reader's polling interval

std::string g_directory = "/tmp";

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "live_bench: %s failed\n", what);
    std::exit(1);
  }
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// --- what the processes share ---------------------------------------------

enum Command { kQuit, kWalk, kSpin, kPoll, kOpen };

struct Shared {
  std::atomic<int> stop;
  std::atomic<long long> walks;           // completed by the walking readers
  std::atomic<int> started;               // helpers that began their loop
  std::atomic<int> seen;                  // the last commit the polling reader saw
  double committed[kVisibleCommits + 1];  // when commit k returned (0: not yet)
  double visible[kVisibleCommits + 1];    // when a snapshot first held it
  double bestOpen;                        // the opener's best time
  char path[512];
};

Shared* g_shared = nullptr;

struct Helper {
  pid_t pid;
  int command;  // the parent writes commands here
  int done;     // and reads one byte per finished command here
};

std::vector<Helper> g_helpers;

// --- the helpers' side ------------------------------------------------------

template <class Visit>
void WithSnapshot(const char* path, Visit visit) {
  msfD_Root root(0);
  msfD_Sim sim = root.openSimReadOnly(path, "", 0);
  Check(!!sim, "openSimReadOnly");
  visit(sim.discreteModel().mesh().systems());
  root.closeSim(sim);
}

long long Walk(const char* path) {
  long long sum = 0;
  WithSnapshot(path, [&](const auto& systems) {
    for (int i = 0; i < systems.count(); ++i) {
      fesD_FESystem system = systems.get(i);
      sum += system.systemName().byteCount() + system.distributions().count();
    }
  });
  return sum;
}

void Poll(const char* path) {
  unsigned long long last = ~0ULL;
  int seen = 0;
  while (g_shared->stop.load() == 0) {
    unsigned long long mark = 0;
    bool writing = false;
    if (hdf_File::Watch(path, &mark, &writing) && mark != last) {
      last = mark;
      int k = 0;
      WithSnapshot(path, [&](const auto& systems) {
        std::string name = systems.get(0).systemName().cStr();
        if (name.compare(0, 7, "commit ") == 0) k = std::atoi(name.c_str() + 7);
      });
      double t = Now();
      for (int j = seen + 1; j <= k && j <= kVisibleCommits; ++j) g_shared->visible[j] = t;
      seen = std::max(seen, k);
      g_shared->seen.store(seen);
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(kPollSeconds));
  }
}

void OpenRepeatedly(const char* path, int times) {
  double best = 1e300;
  long long sum = 0;
  for (int r = 0; r < times; ++r) {
    best = std::min(best, bench::BestOf(1, [&] {
                      WithSnapshot(path, [&](const auto& systems) {
                        sum += systems.get(systems.count() / 2).systemName().byteCount();
                      });
                    }));
  }
  bench::Keep(sum);
  g_shared->bestOpen = best;
}

[[noreturn]] void Serve(int commands, int done) {
  int count = 0;
  DDB_PDM_Core_initialize(count);
  hdf_Quiet();
  for (;;) {
    int command[2] = {kQuit, 0};
    if (read(commands, command, sizeof command) != sizeof command || command[0] == kQuit) break;
    const char* path = g_shared->path;
    g_shared->started.fetch_add(1);
    switch (command[0]) {
      case kWalk:
        while (g_shared->stop.load() == 0) {
          bench::Keep(Walk(path));
          g_shared->walks.fetch_add(1);
        }
        break;
      case kSpin: {
        volatile unsigned long long x = 0;
        while (g_shared->stop.load() == 0) x = x + 1;
        break;
      }
      case kPoll:
        Poll(path);
        break;
      case kOpen:
        OpenRepeatedly(path, command[1]);
        break;
    }
    char byte = 1;
    Check(write(done, &byte, 1) == 1, "reporting to the parent");
  }
  DDB_PDM_Core_finalize(count);
  _exit(0);
}

void StartHelpers(int n) {
  for (int i = 0; i < n; ++i) {
    int commands[2], done[2];
    Check(pipe(commands) == 0 && pipe(done) == 0, "pipe");
    std::fflush(stdout);
    pid_t pid = fork();
    Check(pid >= 0, "fork");
    if (pid == 0) {
      close(commands[1]);
      close(done[0]);
      Serve(commands[0], done[1]);
    }
    close(commands[0]);
    close(done[1]);
    g_helpers.push_back({pid, commands[1], done[0]});
  }
}

// Starts `command` in the first n helpers (the parent stops loops by
// setting stop, and waits with Finish).
void Send(int n, Command command, int argument = 0) {
  g_shared->stop.store(0);
  g_shared->started.store(0);
  for (int i = 0; i < n; ++i) {
    int message[2] = {command, argument};
    Check(
        write(g_helpers[static_cast<size_t>(i)].command, message, sizeof message) == sizeof message,
        "sending a command");
  }
  while (g_shared->started.load() < n) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void Finish(int n) {
  g_shared->stop.store(1);
  for (int i = 0; i < n; ++i) {
    char byte = 0;
    Check(read(g_helpers[static_cast<size_t>(i)].done, &byte, 1) == 1, "waiting for a helper");
  }
}

void StopHelpers() {
  for (const Helper& h : g_helpers) {
    int message[2] = {kQuit, 0};
    Check(write(h.command, message, sizeof message) == sizeof message, "stopping a helper");
    close(h.command);
    close(h.done);
    waitpid(h.pid, nullptr, 0);
  }
}

// --- the writer's side ------------------------------------------------------

std::string FileName(const char* what) {
  return g_directory + "/live_bench_" + std::to_string(getpid()) + "_" + what + ".sim";
}

void Build(const std::string& path, int systems) {
  std::remove(path.c_str());
  msfD_Root root(0);
  msfD_Sim sim = root.createSim(path.c_str(), "", 0);
  Check(!!sim, "createSim");
  bench::Mesh mesh = bench::MakeMesh(sim);
  for (int i = 0; i < systems; ++i) mesh.systems.add(bench::System(mesh, i));
  root.closeSim(sim);
}

// Opens `path` for update and hands the systems array to `work`.
template <class Work>
void AsWriter(const std::string& path, Work work) {
  msfD_Root root(0);
  msfD_Sim sim = root.openSim(path.c_str(), "", 0);
  Check(!!sim, "openSim");
  work(sim.discreteModel().mesh().systems());
  root.closeSim(sim);
}

double CpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Wall and CPU seconds of the writer, the best of each.
struct Best {
  double wall = 1e300, cpu = 1e300;
};

// kCommits setter commits spread over the array.
template <class Array>
void Commits(const Array& systems, int round, Best* best) {
  const int n = systems.count();
  double cpu = CpuSeconds();
  best->wall =
      std::min(best->wall, bench::BestOf(1, [&] {
                 for (int k = 0; k < kCommits; ++k) {
                   systems.get(k * 7 % n).SystemName(
                       ("round " + std::to_string(round) + "." + std::to_string(k)).c_str());
                 }
               }));
  best->cpu = std::min(best->cpu, CpuSeconds() - cpu);
}

void CommitRateRows() {
  std::string path = FileName("walked");
  Build(path, kWalkedSystems);
  std::snprintf(g_shared->path, sizeof g_shared->path, "%s", path.c_str());
  Best alone, withReaders, besideSpinners;
  long long walks = 0;
  const int runs = bench::Runs(3);
  AsWriter(path, [&](const auto& systems) {
    int round = 0;
    for (int r = 0; r < runs; ++r) {
      Commits(systems, ++round, &alone);
      Send(kReaders, kWalk);
      long long before = g_shared->walks.load();
      Commits(systems, ++round, &withReaders);
      walks += g_shared->walks.load() - before;
      Finish(kReaders);
      Send(kReaders, kSpin);
      Commits(systems, ++round, &besideSpinners);
      Finish(kReaders);
    }
  });
  std::remove(path.c_str());
  bench::Header("commit rate: setter commits beside 4 processes (per item: per commit)",
                "1,000 systems, 4 readers");
  bench::BaselineRow("writer alone: setter commit", alone.wall, kCommits);
  bench::Row("writer beside 4 walking readers: setter commit", withReaders.wall, kCommits,
             alone.wall, 1.0 / 0.9);
  bench::BaselineRow("writer beside 4 spinning processes (CPU floor)", besideSpinners.wall,
                     kCommits);
  bench::Row("writer beside 4 walking readers, against that floor", withReaders.wall, kCommits,
             besideSpinners.wall, 1.0 / 0.9);
  // What the readers make the writer do (CPU time: the shared cores left out).
  bench::BaselineRow("writer alone: CPU time per commit", alone.cpu, kCommits);
  bench::Row("writer beside 4 walking readers: CPU time per commit", withReaders.cpu, kCommits,
             alone.cpu, 1.0 / 0.9);
  std::printf("(walks completed by the readers while measured: %lld)\n", walks);
}

double Percentile(std::vector<double> v, double p) {
  std::sort(v.begin(), v.end());
  size_t i = static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5);
  return v[std::min(i, v.size() - 1)];
}

void VisibilityRows() {
  std::string path = FileName("visible");
  Build(path, kWalkedSystems);
  std::snprintf(g_shared->path, sizeof g_shared->path, "%s", path.c_str());
  std::vector<double> latencies;
  std::mt19937 random(7);
  std::uniform_real_distribution<double> pause(0.0, 0.020);
  const int runs = bench::Runs(3);
  for (int r = 0; r < std::max(1, runs / 2); ++r) {
    for (int k = 0; k <= kVisibleCommits; ++k) g_shared->committed[k] = g_shared->visible[k] = 0;
    g_shared->seen.store(0);
    AsWriter(path, [&](const auto& systems) {
      systems.get(0).SystemName("commit 0");
      Send(1, kPoll);
      for (int k = 1; k <= kVisibleCommits; ++k) {
        std::this_thread::sleep_for(std::chrono::duration<double>(pause(random)));
        systems.get(0).SystemName(("commit " + std::to_string(k)).c_str());
        g_shared->committed[k] = Now();
      }
      // Up to a second for the reader to catch up, then let it go.
      for (int w = 0; w < 1000 && g_shared->seen.load() < kVisibleCommits; ++w) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      Finish(1);
    });
    for (int k = 1; k <= kVisibleCommits; ++k) {
      // A reader may read a commit before its writer took the time.
      if (g_shared->visible[k] > 0) {
        latencies.push_back(std::max(0.0, g_shared->visible[k] - g_shared->committed[k]));
      }
    }
  }
  std::remove(path.c_str());
  Check(!latencies.empty(), "seeing commits");
  const double bound = kPollSeconds + 0.020;
  bench::Header("visibility: from a commit's return to a polling reader's snapshot",
                "polling every 10 ms");
  bench::Against("polling interval + 20 ms");
  std::printf("%zu commits seen\n", latencies.size());
  bench::PerItemRow("visibility p50", Percentile(latencies, 0.50) * 1e9, bound * 1e9);
  bench::PerItemRow("visibility p99", Percentile(latencies, 0.99) * 1e9, bound * 1e9, 1.0);
}

void SnapshotOpenRows() {
  std::string path = FileName("opened");
  Build(path, kOpenedSystems);
  std::snprintf(g_shared->path, sizeof g_shared->path, "%s", path.c_str());
  const int runs = bench::Runs(3), opens = 30;
  double quiet = 1e300, busy = 1e300;
  for (int r = 0; r < runs; ++r) {
    Send(1, kOpen, opens);
    Finish(1);
    quiet = std::min(quiet, g_shared->bestOpen);
    AsWriter(path, [&](const auto& systems) {
      Send(1, kOpen, opens);
      // Commit until the opener is done (it reports on its pipe).
      int k = 0;
      for (;;) {
        systems.get(k * 13 % systems.count()).SystemName(("busy " + std::to_string(k)).c_str());
        ++k;
        struct timeval none = {0, 0};
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(g_helpers[0].done, &ready);
        if (select(g_helpers[0].done + 1, &ready, nullptr, nullptr, &none) > 0) break;
      }
      char byte = 0;
      Check(read(g_helpers[0].done, &byte, 1) == 1, "waiting for the opener");
      std::printf("(%d commits while the snapshots opened)\n", k);
    });
    busy = std::min(busy, g_shared->bestOpen);
  }
  std::remove(path.c_str());
  bench::Header("opening a snapshot: open, reach the mesh, read one system, close",
                "10,000 systems");
  bench::BaselineRow("snapshot open, no writer", quiet, 1);
  bench::Row("snapshot open while the writer commits", busy, 1, quiet, 1.2);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) g_directory = argv[1];
  if (argc > 2) {
    std::fprintf(stderr, "usage: live_bench [directory]\n");
    return 2;
  }
  void* memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Check(memory != MAP_FAILED, "mmap");
  g_shared = new (memory) Shared();
  StartHelpers(kReaders);
  int count = 0;
  DDB_PDM_Core_initialize(count);
  hdf_Quiet();
  std::printf("live_bench: one writer, helper processes reading (best of %d runs)\n",
              bench::Runs(3));
  CommitRateRows();
  VisibilityRows();
  SnapshotOpenRows();
  StopHelpers();
  DDB_PDM_Core_finalize(count);
  return 0;
}
