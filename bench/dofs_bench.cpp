// The nodal DOF numbering on large synthetic meshes and on real decks.
//
// Baseline, measured in the same run on the same masks: one pass that reads
// every mask and writes one int per DOF into a fresh array, the least any
// numbering must do. Construction is expected within 2.5x of it, each solver
// setup and query path within 2x. Pass --large for the 10M-node meshes.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench_util.h"
#include "fe_deck.h"
#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "platform/core/mem.h"
#include "platform/service/QELSimService.h"

namespace {

int* AllocatorCopy(const std::vector<int>& masks) {
  int* copy =
      static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(masks.size(), sizeof(int))));
  std::memcpy(copy, masks.data(), masks.size() * sizeof(int));
  return copy;
}

// Times operations on one mesh against the baseline pass. The machine is
// shared, so every run of an operation is paired with a run of the baseline
// and each keeps its best: both see the same disturbances.
class Timer {
 public:
  Timer(const std::vector<int>& masks, int runs, int repeat)
      : m_masks(masks), m_runs(runs), m_repeat(repeat), m_dofs(0), m_baseline(1e300) {
    for (int m : masks) m_dofs += __builtin_popcount(static_cast<unsigned>(m));
  }
  int dofs() const { return m_dofs; }
  double baseline() const { return m_baseline; }

  // Time of one call of `timed`, each call preceded by an untimed `prepare`
  // and followed by an untimed `finish`.
  template <class Prepare, class Timed, class Finish>
  double Time(Prepare prepare, Timed timed, Finish finish) {
    double best = 1e300;
    for (int r = 0; r < m_runs; ++r) {
      m_baseline = std::min(m_baseline, Mean([] {}, [&] { Baseline(); }, [&] { Release(); }));
      best = std::min(best, Mean(prepare, timed, finish));
    }
    return best;
  }
  template <class Timed>
  double Time(Timed timed) {
    return Time([] {}, timed, [] {});
  }

 private:
  template <class Prepare, class Timed, class Finish>
  double Mean(const Prepare& prepare, const Timed& timed, const Finish& finish) {
    double total = 0;
    for (int i = 0; i < m_repeat; ++i) {
      prepare();
      total += bench::BestOf(1, timed);
      finish();
    }
    return total / m_repeat;
  }

  // Reads every mask and writes one int per DOF into a fresh array.
  void Baseline() {
    m_out = static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(m_dofs, sizeof(int))));
    int k = 0;
    const int n = static_cast<int>(m_masks.size());
    for (int node = 0; node < n; ++node) {
      for (unsigned m = static_cast<unsigned>(m_masks[node]); m != 0; m &= m - 1) m_out[k++] = node;
    }
    bench::Keep(m_out[m_dofs > 0 ? m_dofs - 1 : 0]);
  }
  void Release() { mem_Free(m_out); }

  const std::vector<int>& m_masks;
  int m_runs, m_repeat, m_dofs;
  double m_baseline;
  int* m_out = nullptr;
};

// Tables held after construction and one solver ordering, per DOF.
double BytesPerDof(const fesD_NodalDofDefinition& def) {
  const double nodes = def.NumberOfNodes(), width = def.MaxNodalDof(), dofs = def.NumberOfDofs();
  const double highestLabel = width > 0 ? def.DofLabel(def.MaxNodalDof() - 1) : 0;
  const double ints = nodes               // masks
                      + nodes * width     // node-by-DOF-id table
                      + nodes + 1         // first DOF of each node
                      + highestLabel + 1  // label to DOF id
                      + 4 * width         // DOF id to label, buffer, two solver maps
                      + dofs              // packed node/DOF codes
                      + dofs;             // solver ordering
  return ints * sizeof(int) / dofs;
}

// A scratch database file for the ordered-set form, removed at the end.
class ScratchDatabase {
 public:
  ScratchDatabase() {
    char folder[] = "/tmp/dofs_bench_XXXXXX";
    if (mkdtemp(folder) == nullptr) return;
    m_folder = folder;
    m_file = m_folder + "/orderings.h5";
    m_context = QELSimManager::CreateContext(m_file.c_str(), hdf_File::Exclusive, 0, false, 0);
  }
  ~ScratchDatabase() {
    QELSimManager::CloseContext(m_context);
    if (!m_file.empty()) unlink(m_file.c_str());
    if (!m_folder.empty()) rmdir(m_folder.c_str());
  }
  QELSimContextID context() const { return m_context; }

 private:
  std::string m_folder, m_file;
  QELSimContextID m_context;
};

void Measure(const char* title, const std::vector<int>& masks, int runs, int repeat,
             QELSimContextID database) {
  const int nodes = static_cast<int>(masks.size());
  Timer timer(masks, runs, repeat);
  const int dofs = timer.dofs();

  fesD_NodalDofDefinition* def = nullptr;
  int* adopted = nullptr;
  const double construct = timer.Time(
      [&] { adopted = AllocatorCopy(masks); },
      [&] { def = new fesD_NodalDofDefinition(adopted, nodes, 0, false); }, [&] { delete def; });

  fesD_NodalDofDefinition numbering(AllocatorCopy(masks), nodes, 0, false);
  // A solver that reverses the node order and takes every DOF.
  std::vector<int> reversedDofs(dofs), reversedRank(nodes);
  for (int i = 0; i < dofs; ++i) reversedDofs[i] = dofs - 1 - i;
  for (int n = 0; n < nodes; ++n) reversedRank[n] = nodes - n;
  const double fromArray =
      timer.Time([&] { numbering.SetupSolverDofs(dofs, reversedDofs.data()); });
  QELSimCollectionRef dofCollection(QELSimCollectionRef::Create(database, dofs));
  const QELSimCSetID reversedSet = dofCollection.CreateOrderedCSet(reversedDofs.data(), dofs);
  const double fromSet = timer.Time([&] { numbering.SetupSolverDofs(reversedSet); });
  const double fromNodeMasks =
      timer.Time([&] { numbering.SetupSolverDofs(reversedRank.data(), masks.data()); });

  std::vector<int> mapping(dofs);
  const double mappingTime = timer.Time([&] { numbering.MappingToSolverDofs(mapping.data()); });
  const double decodeTime = timer.Time([&] {
    long long sum = 0;
    for (int i = 0; i < dofs; ++i) {
      fesD_NodeDof nd = numbering.NodeDofFromSolverDof(i);
      sum += nd.node + nd.dof;
    }
    bench::Keep(sum);
  });

  const double baseline = timer.baseline();
  char name[160];
  std::snprintf(name, sizeof name,
                "%s: %d nodes, %d DOFs (minimal pass: read the masks, write an int per DOF)", title,
                nodes, dofs);
  bench::Header(name, title);
  bench::BaselineRow("minimal pass", baseline, dofs);
  bench::Row("DOFs: construction", construct, dofs, baseline, 2.5);
  bench::Row("DOFs: SetupSolverDofs, array form", fromArray, dofs, baseline, 2);
  bench::Row("DOFs: SetupSolverDofs, ordered-set form (file)", fromSet, dofs, baseline);
  bench::Row("DOFs: SetupSolverDofs, node-mask form", fromNodeMasks, dofs, baseline, 2);
  bench::Row("DOFs: MappingToSolverDofs", mappingTime, dofs, baseline, 2);
  bench::Row("DOFs: NodeDofFromSolverDof, all DOFs", decodeTime, dofs, baseline, 2);
  std::printf("%-44s %12.1f\n", "memory [bytes per DOF]", BytesPerDof(numbering));
}

std::vector<int> Uniform(int nodes, int mask) {
  return std::vector<int>(nodes, mask);
}

// A tenth of the nodes carry rotations too.
std::vector<int> Mixed(int nodes) {
  std::vector<int> masks(nodes, 0x7);
  for (int n = 0; n < nodes; n += 10) masks[n] = 0x3F;
  return masks;
}

}  // namespace

int main(int argc, char** argv) {
  const bool large = argc > 1 && std::strcmp(argv[1], "--large") == 0;
  const int runs = bench::Runs(5);
  // The C heap serves blocks below its (adaptive) mapping threshold from
  // reused memory once a large block has been freed; settle that before the
  // first figure so that every row sees the same heap.
  mem_Free(mem_OperatorNewThrowBuiltin(size_t{64} << 20));
  mem_Free(mem_OperatorNewThrowBuiltin(size_t{16} << 20));
  ScratchDatabase database;
  std::vector<int> sizes = {1000000};
  if (large) sizes.push_back(10000000);
  for (int nodes : sizes) {
    const char* label = nodes == 1000000 ? "1M" : "10M";
    std::string t3 = std::string(label) + " nodes x 3 DOFs";
    std::string t6 = std::string(label) + " nodes x 6 DOFs";
    std::string tm = std::string(label) + " nodes, mixed 3/6 DOFs";
    Measure(t3.c_str(), Uniform(nodes, 0x7), runs, 1, database.context());
    Measure(t6.c_str(), Uniform(nodes, 0x3F), runs, 1, database.context());
    Measure(tm.c_str(), Mixed(nodes), runs, 1, database.context());
  }

  std::string folder = FeDeckFolder();
  if (folder.empty()) {
    std::printf("\nreal decks skipped: deck folder not found (set DDB_FE_DECKS)\n");
    return 0;
  }
  for (const char* name : {"hueeber1.inp.gz", "crackIIcum.inp.gz", "induction2.inp.gz"}) {
    FeDeck deck;
    std::string error;
    if (!ReadFeDeck(folder + "/" + name, &deck, &error)) {
      std::printf("\n%s: %s\n", name, error.c_str());
      continue;
    }
    // Small meshes: repeat each operation so that a figure spans milliseconds.
    const int repeat = std::max(1, 2000000 / static_cast<int>(deck.masks.size() + 1));
    Measure(name, deck.masks, runs, repeat, database.context());
  }
  return 0;
}
