// The numbering itself: mask preparation, the nodal tables, the solver
// orderings and the queries that need loops.
//
// Masks are scanned as unsigned words, set bit by set bit, so a scan costs
// the number of active labels and always ends. Every table is an int array
// from the suite allocator, sized through mem_ArraySize so that an absurd
// size fails to allocate instead of wrapping. The passes over every node or
// every DOF are kept free of branches that depend on the data: they store
// vectors of four ints (GCC vector types, no instruction set beyond the
// generic target), look masks up in a small table instead of testing them,
// and mark DOFs with byte stores that wait for no load.
#include "fes/dpa/impl/fesD_NodalDofDefinition.h"

#include "fes/fesD_NodalValues.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/service/QELSimService.h"

namespace {

const int kAcousticLabel = 8;
const uint32_t kAcousticLabelBit = 1u << (kAcousticLabel - 1);
const uint32_t kLabel32Bit = 1u << 31;

int* NewInts(int64_t count) {
  return static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(count, sizeof(int))));
}

// Number of labels in a mask. Portable bit counting: the generic x86-64
// target has no popcount instruction and would call a library routine.
inline int CountLabels(uint32_t m) {
  m = m - ((m >> 1) & 0x55555555u);
  m = (m & 0x33333333u) + ((m >> 2) & 0x33333333u);
  m = (m + (m >> 4)) & 0x0F0F0F0Fu;
  return static_cast<int>((m * 0x01010101u) >> 24);
}

// Lowest set label of a non-zero mask.
inline int LowestLabel(uint32_t mask) {
  return __builtin_ctz(mask) + 1;
}

// Ends the process on input no numbering can be built from: one upper-case
// line, optionally a second "<what>: a / b" line naming the culprit.
[[noreturn]] void AbortInconsistent(const char* line, const char* what, int a, int b) {
  aio_cerr.print(line);
  if (what != nullptr) {
    aio_cerr.print(what).print(": ").print_int(a).print(" / ").print_int(b).put('\n');
  }
  aio_cerr.flush();
  std::abort();
}

[[noreturn]] void AbortInconsistent(const char* line) {
  AbortInconsistent(line, nullptr, 0, 0);
}

// The packed node/DOF code must stay a positive int.
void CheckNodeCount(int numNodes) {
  if (numNodes < 0 || numNodes > fesD_NodalDofDefinition::kMaxNodes) {
    AbortInconsistent("NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING.\n", "NODES / LIMIT",
                      numNodes, fesD_NodalDofDefinition::kMaxNodes);
  }
}

const char kInconsistentCount[] = "THE SOLVER AND FE MESH HAVE AN INCONSISTENT NUMBER OF DOFS.\n";

// A byte per item, all clear at first, from the suite allocator, for
// marking the items an ordering takes. Setting a byte is one store that
// waits for nothing (a bit would need the word's load first); the scans
// read eight bytes a step, and whole clear blocks of 64 at once.
class Marks {
 public:
  explicit Marks(int count)
      : m_count(count),
        m_bytes(static_cast<uint8_t*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(count, 1)))) {
    std::memset(m_bytes, 0, static_cast<size_t>(std::max(count, 0)));
  }
  ~Marks() { mem_Free(m_bytes); }
  Marks(const Marks&) = delete;
  Marks& operator=(const Marks&) = delete;

  uint8_t* Data() { return m_bytes; }
  // Calls f(i) for each clear item i, ascending.
  template <class F>
  void ForEachClear(F f) const {
    const uint64_t kOnes = 0x0101010101010101u;
    int64_t i = 0;
    for (; i + 64 <= m_count; i += 64) {
      uint64_t all = kOnes;
      for (int k = 0; k < 64; k += 8) all &= Word(i + k);
      if (all == kOnes) continue;  // every item of the block set
      for (int k = 0; k < 64; k += 8) EachClear(i + k, Word(i + k), f);
    }
    for (; i < m_count; ++i) {
      if (m_bytes[i] == 0) f(i);
    }
  }

 private:
  uint64_t Word(int64_t i) const {
    uint64_t w;
    std::memcpy(&w, m_bytes + i, sizeof w);
    return w;
  }
  // Items are 0 or 1: the low bit of each byte of ~w says "clear".
  template <class F>
  static void EachClear(int64_t first, uint64_t w, F& f) {
    for (uint64_t clear = ~w & 0x0101010101010101u; clear != 0; clear &= clear - 1) {
      f(first + __builtin_ctzll(clear) / 8);
    }
  }

  int m_count;
  uint8_t* m_bytes;
};

// Writes first, first + 1, ..., first + count - 1 from out on, eight at a
// time in two vector stores: there is room for kRunSlack ints past the end
// of the ordering table, and the next run overwrites the excess.
const int kRunSlack = 8;
typedef int Int4 __attribute__((vector_size(16)));
typedef unsigned UInt4 __attribute__((vector_size(16)));
inline void WriteRun(int* out, int first, int count) {
  const Int4 low = {0, 1, 2, 3}, high = {4, 5, 6, 7};
  Int4 a = low + first, b = high + first;
  int j = 0;
  do {  // count >= 0: writes eight at least
    std::memcpy(out + j, &a, sizeof a);
    std::memcpy(out + j + 4, &b, sizeof b);
    a += 8;
    b += 8;
    j += 8;
  } while (j < count);
}

// What building the nodal tables needs of one mask, as vectors of four
// ints over the DOF ids: its row of the node-by-DOF-id table is
// (first DOF + rowAdd) | rowOr (rowOr -1 where the label is absent), its
// codes are the node's code base + ids. Masks seen are kept in a small
// direct-mapped table keyed by the mask: meshes mix a few kinds of nodes
// (solids, shells, beams), so the lookup almost always hits and the pass
// has no branch that depends on the mesh.
struct MaskPattern {
  static const int kLanes = 32;  // DOF ids: at most 31, four a vector
  int rowAdd[kLanes], rowOr[kLanes], ids[kLanes];
  uint32_t mask;
  int count;
};
struct MaskPatterns {
  static const int kSlots = 32;
  unsigned labelBit[32];  // bit position of each DOF id's label
  int width = 0, vecs = 0;
  MaskPattern slots[kSlots];

  void Reset(int dofIds) {
    width = dofIds;
    vecs = (dofIds + 3) / 4;
    for (MaskPattern& slot : slots) slot.mask = kLabel32Bit;  // no prepared mask has it
  }
  // The pattern of m.
  const MaskPattern& Find(uint32_t m) {
    MaskPattern& slot = slots[(m * 0x9E3779B1u) >> 27];
    if (slot.mask != m) Make(slot, m);
    return slot;
  }
  // Out of line: a miss is rare, and inlined it would take the registers
  // of the pass around it.
  __attribute__((noinline)) void Make(MaskPattern& slot, uint32_t m) {
    int c = 0;
    for (int d = 0; d < MaskPattern::kLanes; ++d) {
      const bool active = d < width && ((m >> labelBit[d]) & 1u) != 0;
      slot.rowAdd[d] = active ? c : 0;
      slot.rowOr[d] = active ? 0 : -1;
      slot.ids[d] = 0;
      if (active) slot.ids[c++] = d;
    }
    slot.mask = m;
    slot.count = c;
  }
};

inline Int4 LoadInt4(const int* p) {
  Int4 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void StoreInt4(int* p, Int4 v) {
  std::memcpy(p, &v, sizeof v);
}

// The pass over the nodes that builds the node-by-DOF-id rows, the packed
// codes and each node's first system DOF. Run stores whole vectors (kVecs
// of them per row, 0: patterns.vecs), running past a node's row and codes
// into the next node's, which overwrites them; Finish stores exactly, for
// the last nodes.
struct NodalFill {
  const uint32_t* masks;
  int width;
  int* rows;
  int* codes;
  int* firstDof;
  MaskPatterns* patterns;
  int dof = 0;

  template <int kVecs>
  void Run(int end) {
    MaskPatterns& p = *patterns;
    const int vecs = kVecs > 0 ? kVecs : p.vecs;
    const uint32_t* const masks = this->masks;
    int* const firstDof = this->firstDof;
    int* const codes = this->codes;
    const int64_t width = this->width;
    int d = dof;
    int* row = rows;
    // The node's code base, 128 * (n + 1); unsigned, since it passes 2^31
    // after the last node of the largest mesh.
    UInt4 base = {128, 128, 128, 128};
    for (int n = 0; n < end; ++n, row += width) {
      const MaskPattern& slot = p.Find(masks[n]);
      firstDof[n] = d;
      const Int4 first = {d, d, d, d};
      int* const out = codes + d;
      for (int v = 0; v < vecs; ++v) {
        StoreInt4(row + 4 * v,
                  (first + LoadInt4(slot.rowAdd + 4 * v)) | LoadInt4(slot.rowOr + 4 * v));
        StoreInt4(out + 4 * v, reinterpret_cast<Int4>(base) + LoadInt4(slot.ids + 4 * v));
      }
      d += slot.count;
      base += 128;
    }
    dof = d;
  }
  void Finish(int from, int end) {
    MaskPatterns& p = *patterns;
    for (int n = from; n < end; ++n) {
      const MaskPattern& slot = p.Find(masks[n]);
      firstDof[n] = dof;
      int* row = rows + static_cast<int64_t>(width) * n;
      for (int d = 0; d < width; ++d) row[d] = (dof + slot.rowAdd[d]) | slot.rowOr[d];
      for (int j = 0; j < slot.count; ++j) codes[dof + j] = 128 * (n + 1) + slot.ids[j];
      dof += slot.count;
    }
    firstDof[end] = dof;
  }
};

// The main pass of the node-mask form (see SetupSolverDofs): node by node
// in the solver's order (nodeAtRank, or index order), the system DOFs of
// the labels the solver asks for, refusing labels a node lacks (whether or
// not the mesh has them elsewhere: there is no system DOF to point at).
// A node the solver takes whole gives the run of system DOFs from its
// first one to the next node's, whatever its mask. Run is compiled once
// with and once without a rank table.
struct NodeMaskTake {
  const int* nodeAtRank;
  const int* solverMasks;
  const int* meshMasks;
  const int* labelToDofId;
  const int* rows;
  const int* firstDof;
  int64_t width;
  int numNodes;
  int* order;
  int count = 0;
  uint32_t solverLabelMask = 0;
  bool leftOut = false;  // some node keeps DOFs from the solver

  template <bool kRanked>
  void Run() {
    int c = 0;
    uint32_t labels = 0;
    bool partial = false;
    for (int k = 0; k < numNodes; ++k) {
      const int n = kRanked ? nodeAtRank[k] : k;
      const uint32_t m = static_cast<uint32_t>(solverMasks[n]);
      const uint32_t meshMask = static_cast<uint32_t>(meshMasks[n]);
      labels |= m;
      if (__builtin_expect(m == meshMask, 1)) {
        // All of the node's DOFs (none for an empty mask).
        const int first = firstDof[n];
        const int run = firstDof[n + 1] - first;
        WriteRun(order + c, first, run);
        c += run;
      } else {
        if ((m & ~meshMask) != 0) {
          AbortInconsistent("ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF.\n", "SOLVER/MESH DOF MASK",
                            solverMasks[n], meshMasks[n]);
        }
        partial = true;
        const int* row = rows + width * n;
        for (uint32_t rest = m; rest != 0; rest &= rest - 1) {
          order[c++] = row[labelToDofId[LowestLabel(rest)]];
        }
      }
    }
    count = c;
    solverLabelMask = labels;
    leftOut = partial;
  }
};

// The copying pass of the array form (see SetupSolverDofs): copies the
// ordering (given, or 0 .. count - 1 for kIdentity; kInPlace: it is in
// `order` already) into `order`, refuses positions that are no system DOF,
// marks each in `marks`, and for a part of the system DOFs collects the DOF
// ids in use and the acoustic DOFs through the codes. Run is compiled once
// per case, so that the loop tests neither per DOF.
enum OrderingSource { kIdentity, kCopy, kInPlace };
struct OrderingCopy {
  const int* given;
  int count, numDofs;
  const int* codes;
  int acousticDofId;
  int* order;
  uint8_t* marks;
  uint32_t dofIdMask = 0;
  int acoustic = 0;

  template <OrderingSource kSource, bool kPart>
  void Run() {
    // Locals: a byte store may alias any member and would force reloads.
    const int* const in = given;
    int* const out = order;
    uint8_t* const seen = marks;
    uint32_t mask = 0;
    int acousticDofs = 0;
    // Blocks of kBlock entries: the range of a block is checked four at a
    // time first, so the loop that uses the entries has no test.
    const int kBlock = 512;
    for (int start = 0; start < count; start += kBlock) {
      const int end = std::min(count, start + kBlock);
      if (kSource != kIdentity && !InRange(start, end)) {
        AbortInconsistent("ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF.\n");
      }
      int i = start;
      if (!kPart) {
        // Four a step: the loop's own work would cost as much as the marks.
        for (; i + 4 <= end; i += 4) {
          if (kSource == kIdentity) {
            StoreInt4(out + i, Int4{i, i + 1, i + 2, i + 3});
            std::memset(seen + i, 1, 4);
          } else {
            if (kSource == kCopy) StoreInt4(out + i, LoadInt4(in + i));
            const int s0 = in[i], s1 = in[i + 1], s2 = in[i + 2], s3 = in[i + 3];
            seen[s0] = 1;
            seen[s1] = 1;
            seen[s2] = 1;
            seen[s3] = 1;
          }
        }
      }
      for (; i < end; ++i) {
        const int s = kSource == kIdentity ? i : in[i];
        if (kSource != kInPlace) out[i] = s;
        seen[s] = 1;
        if (kPart) {
          const int dofId = codes[s] & 63;
          mask |= 1u << dofId;
          acousticDofs += dofId == acousticDofId;
        }
      }
    }
    dofIdMask = mask;
    acoustic = acousticDofs;
  }

  // Whether given[start .. end) all lie in 0 .. numDofs - 1: as unsigned
  // numbers below numDofs, compared as signed ones with the sign flipped.
  bool InRange(int start, int end) const {
    const int flip = static_cast<int>(0x80000000u);
    const int limit = (numDofs - 1) ^ flip;  // numDofs > 0 when there are entries
    Int4 out = {0, 0, 0, 0};
    int i = start;
    for (; i + 4 <= end; i += 4) out |= (LoadInt4(given + i) ^ flip) > limit;
    int rest = out[0] | out[1] | out[2] | out[3];
    for (; i < end; ++i) rest |= static_cast<unsigned>(given[i]) >= static_cast<unsigned>(numDofs);
    return rest == 0;
  }
};

// The node at each rank, from the 1-based rank of each node. Ranks must be
// a permutation of 1 .. nodes, or the order has holes: a mark per rank
// taken (a byte per node stays in the processor's caches, where setting the
// table to -1 first and scanning it for holes would pass over it twice
// more). Caller frees with mem_Free.
int* NodesAtRanks(const int* nodeRank, int numNodes) {
  Marks taken(numNodes);
  int* nodeAtRank = NewInts(numNodes);
  uint8_t* marks = taken.Data();
  const unsigned limit = static_cast<unsigned>(numNodes);
  for (int i = 0; i < numNodes; ++i) {
    const int rank = nodeRank[i];
    // 1 .. nodes: rank - 1 below nodes as an unsigned number.
    if (static_cast<unsigned>(rank) - 1u >= limit || marks[rank - 1] != 0) {
      AbortInconsistent("INVALID NODE RANK IN THE SOLVER NODE ORDER.\n", "NODE / RANK", i, rank);
    }
    marks[rank - 1] = 1;
    nodeAtRank[rank - 1] = i;
  }
  return nodeAtRank;
}

}  // namespace

fesD_NodalDofDefinition::fesD_NodalDofDefinition(QELSimDistributionID masks, int shift,
                                                 bool addLabel10) {
  QELSimDistributionRef distribution(masks);
  if (!(distribution.NumDrawers() == 1)) {
    FailAssertion("distribution.NumDrawers() == 1", __FILE__, __LINE__, __PRETTY_FUNCTION__);
  }
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  distribution.QueryDrawers(drawers);
  m_numNodes = drawers[0].DataSizeItems(0);
  CheckNodeCount(m_numNodes);
  m_activityMasks = fesD_ReadNodalValues(masks, drawers[0], m_numNodes);
  InitialiseTables(shift, addLabel10);
}

fesD_NodalDofDefinition::fesD_NodalDofDefinition(int* masks, int numNodes, int shift,
                                                 bool addLabel10) {
  m_numNodes = numNodes;
  m_activityMasks = masks;
  CheckNodeCount(numNodes);
  InitialiseTables(shift, addLabel10);
}

void fesD_NodalDofDefinition::InitialiseTables(int shift, bool addLabel10) {
  // An allocation that fails throws; the tables made so far and the masks
  // must not leak with it.
  try {
    SetupNodalTables(PrepareMasks(shift, addLabel10));
  } catch (...) {
    ReleaseTables();
    throw;
  }
}

fesD_NodalDofDefinition::~fesD_NodalDofDefinition() {
  ReleaseTables();
}

void fesD_NodalDofDefinition::ReleaseTables() {
  mem_Free(m_maxDofToSystem);
  mem_Free(m_labelToDofId);
  mem_Free(m_dofIdToLabel);
  mem_Free(m_nodalDofIdBuffer);
  mem_Free(m_activityMasks);
  mem_Free(m_systemDofCode);
  mem_Free(m_solverToSystemId);
  mem_Free(m_dofIdToSolverDofId);
  mem_Free(m_solverDofIdToDofId);
  mem_Free(m_nodeFirstDof);
}

// Label 8 drags in label 10 on request; then every label L drags in L + shift
// (labels pushed past 31 fall off). Returns the union of the prepared masks.
// A shift can set the sign bit, so label 32 is refused after preparation; the
// loop stays branch-free and the culprit is looked for only on failure.
uint32_t fesD_NodalDofDefinition::PrepareMasks(int shift, bool addLabel10) {
  const unsigned s = static_cast<unsigned>(shift) & 31u;
  const uint32_t acoustic = addLabel10 ? kAcousticLabelBit : 0;
  uint32_t* masks = reinterpret_cast<uint32_t*>(m_activityMasks);
  // Four masks a step; with neither a shift nor label 10 the masks stay as
  // they are and are only read.
  const bool change = s != 0 || acoustic != 0;
  UInt4 all = {0, 0, 0, 0};
  int n = 0;
  for (; n + 4 <= m_numNodes; n += 4) {
    UInt4 m;
    std::memcpy(&m, masks + n, sizeof m);
    if (change) {
      m |= (m & acoustic) << (10 - kAcousticLabel);
      m |= m << s;
      std::memcpy(masks + n, &m, sizeof m);
    }
    all |= m;
  }
  uint32_t unionMask = all[0] | all[1] | all[2] | all[3];
  for (; n < m_numNodes; ++n) {
    uint32_t m = masks[n];
    m |= (m & acoustic) << (10 - kAcousticLabel);
    m |= m << s;
    masks[n] = m;
    unionMask |= m;
  }
  if ((unionMask & kLabel32Bit) != 0) {
    n = 0;
    while ((masks[n] & kLabel32Bit) == 0) ++n;
    AbortInconsistent("NODAL DOF MASK WITH LABEL 32 SET.\n", "NODE / MASK", n, m_activityMasks[n]);
  }
  return unionMask;
}

void fesD_NodalDofDefinition::SetupNodalTables(uint32_t unionMask) {
  m_maxNodalDof = CountLabels(unionMask);
  const int highest = unionMask == 0 ? 0 : 32 - __builtin_clz(unionMask);
  m_nodalDofIdBuffer = NewInts(m_maxNodalDof);
  m_labelToDofId = NewInts(highest + 1);
  m_dofIdToLabel = NewInts(m_maxNodalDof);
  // Labels outside the union have no DOF id; -1 rather than whatever the
  // allocator left there.
  std::fill(m_labelToDofId, m_labelToDofId + highest + 1, -1);
  MaskPatterns patterns;
  int r = 0;
  for (uint32_t rest = unionMask; rest != 0; rest &= rest - 1, ++r) {
    const int label = LowestLabel(rest);
    m_labelToDofId[label] = r;
    m_dofIdToLabel[r] = label;
    patterns.labelBit[r] = static_cast<unsigned>(label - 1);
  }

  // The node count is capped, so neither the row table nor the codes
  // overflow an int. The codes get room for a full row per node and give
  // back the rest at the end, which spares a counting pass.
  const int width = m_maxNodalDof;
  const int64_t cells = static_cast<int64_t>(width) * m_numNodes;
  m_maxDofToSystem = NewInts(cells);
  m_systemDofCode = NewInts(cells);
  m_nodeFirstDof = NewInts(static_cast<int64_t>(m_numNodes) + 1);
  patterns.Reset(width);
  NodalFill fill{reinterpret_cast<const uint32_t*>(m_activityMasks),
                 width,
                 m_maxDofToSystem,
                 m_systemDofCode,
                 m_nodeFirstDof,
                 &patterns};
  // Vector stores run up to a vector past a node's row and codes; nodes
  // whose stores stay inside the tables take them, the last few do not.
  const int64_t spare = 4 * patterns.vecs;
  int vectorNodes =
      width == 0 ? 0 : static_cast<int>(std::max<int64_t>(0, (cells - spare) / width));
  vectorNodes = std::min(vectorNodes, m_numNodes);
  if (patterns.vecs == 1) {
    fill.Run<1>(vectorNodes);
  } else if (patterns.vecs == 2) {
    fill.Run<2>(vectorNodes);
  } else {
    fill.Run<0>(vectorNodes);
  }
  fill.Finish(vectorNodes, m_numNodes);
  const int dof = fill.dof;
  m_numDofs = dof;
  if (dof < cells) {
    m_systemDofCode = static_cast<int*>(mem_Realloc(m_systemDofCode, mem_ArraySize(dof, 4)));
  }
}

const int* fesD_NodalDofDefinition::NodalDofIds(int node, int& count) const {
  count = 0;
  for (uint32_t rest = static_cast<uint32_t>(m_activityMasks[node]); rest != 0; rest &= rest - 1) {
    m_nodalDofIdBuffer[count++] = m_labelToDofId[LowestLabel(rest)];
  }
  return m_nodalDofIdBuffer;
}

void fesD_NodalDofDefinition::MaxDofToSystemOrdinals(int* values, int count) const {
  for (int i = 0; i < count; ++i) values[i] = m_maxDofToSystem[values[i]];
}

int* fesD_NodalDofDefinition::SystemDofsFromNodes(const bool* selected, int& count) const {
  int* result = NewInts(m_numDofs);
  count = 0;
  for (int n = 0; n < m_numNodes; ++n) {
    if (!selected[n]) continue;
    // A node's DOFs are its row's entries other than -1, already ascending.
    const int* row = m_maxDofToSystem + static_cast<int64_t>(m_maxNodalDof) * n;
    for (int d = 0; d < m_maxNodalDof; ++d) {
      if (row[d] >= 0) result[count++] = row[d];
    }
  }
  return result;
}

void fesD_NodalDofDefinition::SetupSolverDofs(int numSolverDofs, const int* solverToSystem) {
  // The table has room for the system DOFs only; a longer ordering cannot be
  // a permutation of them.
  if (numSolverDofs < 0 || numSolverDofs > m_numDofs) AbortInconsistent(kInconsistentCount);

  // One pass (OrderingCopy) copies the ordering and marks the solver's DOFs,
  // a byte each: a store that waits for nothing, where setting a bit would
  // wait for its word (measured: the byte marks take half the time of bits
  // carried word by word). (Locals: the stores could alias any member and
  // force reloads.)
  const int numDofs = m_numDofs;
  Marks used(numDofs);
  int* order = OrderingTable();
  m_numSolverDofs = numSolverDofs;
  const int* codes = m_systemDofCode;
  const int acousticDofId = m_maxNodalDof > 0 && DofLabel(m_maxNodalDof - 1) >= kAcousticLabel
                                ? SystemDofId(kAcousticLabel)
                                : -1;
  const bool everyDof = numSolverDofs == numDofs;
  OrderingCopy copy{solverToSystem, numSolverDofs, numDofs,    codes,
                    acousticDofId,  order,         used.Data()};
  if (solverToSystem == order) {
    everyDof ? copy.Run<kInPlace, false>() : copy.Run<kInPlace, true>();
  } else if (solverToSystem != nullptr) {
    everyDof ? copy.Run<kCopy, false>() : copy.Run<kCopy, true>();
  } else {
    everyDof ? copy.Run<kIdentity, false>() : copy.Run<kIdentity, true>();
  }
  uint32_t dofIdMask = copy.dofIdMask;
  int acoustic = copy.acoustic;
  if (everyDof) {
    // An ordering of all system DOFs (a permutation, or refused below) uses
    // every DOF id, and its acoustic DOFs are the nodes carrying label 8:
    // cheaper to count on the masks than through the codes.
    dofIdMask = m_maxNodalDof == 0 ? 0 : 0xFFFFFFFFu >> (32 - m_maxNodalDof);
    for (int n = 0; acousticDofId >= 0 && n < m_numNodes; ++n) {
      acoustic += static_cast<int>(
          (static_cast<uint32_t>(m_activityMasks[n]) >> (kAcousticLabel - 1)) & 1u);
    }
  }
  m_numSolverAcousticDofs = acoustic;
  uint32_t solverLabelMask = 0;
  for (uint32_t rest = dofIdMask; rest != 0; rest &= rest - 1) {
    solverLabelMask |= 1u << (DofLabel(__builtin_ctz(rest)) - 1);
  }
  SetupSolverDofIdMaps(solverLabelMask);

  // Behind the solver's DOFs every other system DOF, ascending: the clear
  // marks. A duplicate leaves more of them than free entries: those are
  // counted, not stored, and the count refuses the ordering.
  int64_t position = numSolverDofs;
  used.ForEachClear([&](int64_t s) {
    if (position < numDofs) order[position] = static_cast<int>(s);
    ++position;
  });
  if (position != numDofs) AbortInconsistent(kInconsistentCount);
}

void fesD_NodalDofDefinition::SetupSolverDofs(QELSimCSetID ordering) {
  QELSimCSet set(ordering);
  const int n = set.Size();
  if (n >= 0 && n <= m_numDofs) {
    // The members go straight into the ordering table, which the array form
    // then checks and completes in place.
    int* order = OrderingTable();
    set.OrderedMembers(order);
    SetupSolverDofs(n, order);
    return;
  }
  int* members = NewInts(n);
  set.OrderedMembers(members);
  SetupSolverDofs(n, members);  // refuses the count
  mem_Free(members);
}

void fesD_NodalDofDefinition::SetupSolverDofs(const int* nodeRank, const int* solverMasks) {
  int* order = OrderingTable();
  int* nodeAtRank = nullptr;
  if (nodeRank != nullptr) {
    nodeAtRank = NodesAtRanks(nodeRank, m_numNodes);
  }

  // Every node is visited once and asks only for labels it has, so the
  // solver's DOFs are distinct system DOFs and fit the table.
  NodeMaskTake take{nodeAtRank,     solverMasks,      m_activityMasks,
                    m_labelToDofId, m_maxDofToSystem, m_nodeFirstDof,
                    m_maxNodalDof,  m_numNodes,       order};
  nodeAtRank != nullptr ? take.Run<true>() : take.Run<false>();
  const int* meshMasks = m_activityMasks;
  const int* labelToDofId = m_labelToDofId;
  const int* rows = m_maxDofToSystem;
  const int64_t width = m_maxNodalDof;
  int count = take.count;
  const uint32_t solverLabelMask = take.solverLabelMask;
  const bool leftOut = take.leftOut;
  m_numSolverDofs = count;
  mem_Free(nodeAtRank);
  SetupSolverDofIdMaps(solverLabelMask);
  if (!leftOut) return;

  // The DOFs left out, in ascending system order, are node by node the
  // labels the node has and the solver did not ask for.
  for (int n = 0; n < m_numNodes; ++n) {
    uint32_t rest = static_cast<uint32_t>(meshMasks[n]) & ~static_cast<uint32_t>(solverMasks[n]);
    if (rest == 0) continue;
    const int* row = rows + width * n;
    for (; rest != 0; rest &= rest - 1) order[count++] = row[labelToDofId[LowestLabel(rest)]];
  }
}

// The ordering table (one int per system DOF) is made by the first setup
// and overwritten by the next ones: allocating it afresh each time would
// cost the operating system's page faults on it again.
int* fesD_NodalDofDefinition::OrderingTable() {
  if (m_solverToSystemId == nullptr) m_solverToSystemId = NewInts(m_numDofs + kRunSlack);
  return m_solverToSystemId;
}

// Ranks the DOF ids whose labels the solver uses. The tables of an earlier
// ordering are released here: nothing can refer to them any more.
void fesD_NodalDofDefinition::SetupSolverDofIdMaps(uint32_t solverLabelMask) {
  mem_Free(m_dofIdToSolverDofId);
  m_dofIdToSolverDofId = nullptr;
  mem_Free(m_solverDofIdToDofId);
  m_solverDofIdToDofId = nullptr;
  m_dofIdToSolverDofId = NewInts(m_maxNodalDof);
  m_solverDofIdToDofId = NewInts(m_maxNodalDof);
  int c = 0;
  for (int j = 0; j < m_maxNodalDof; ++j) {
    m_dofIdToSolverDofId[j] = -1;
    m_solverDofIdToDofId[j] = -1;
    const unsigned bit = static_cast<unsigned>(DofLabel(j) - 1) & 31u;
    if ((solverLabelMask >> bit) & 1u) {
      m_dofIdToSolverDofId[j] = c;
      m_solverDofIdToDofId[c] = j;  // c <= j: entry c was already reset
      ++c;
    }
  }
}

// The C runtime's report of a failed assert(), which <assert.h> declares only
// without NDEBUG: "<program>: <file>:<line>: <function>: Assertion `<condition>' failed."
extern "C" void __assert_fail(const char* condition, const char* file, unsigned line,
                              const char* function) noexcept __attribute__((__noreturn__));

void fesD_NodalDofDefinition::FailAssertion(const char* condition, const char* file, unsigned line,
                                            const char* function) {
  aio_cerr.flush();
  __assert_fail(condition, file, line, function);
}
void fesD_NodalDofDefinition::MappingToSolverDofs(int* out) const {
  RequireSolverDofs();
  const int* order = m_solverToSystemId;
  const int numDofs = m_numDofs;
  for (int i = 0; i < numDofs; ++i) out[order[i]] = i;
}

void fesD_NodalDofDefinition::MapToSolverDofs(int* values, int count) const {
  RequireSolverDofs();
  int* position = NewInts(m_numDofs);
  MappingToSolverDofs(position);
  for (int i = 0; i < count; ++i) values[i] = position[values[i]];
  mem_Free(position);
}

int* fesD_NodalDofDefinition::SolverDofsFromNodes(const bool* selected, int& count) const {
  RequireSolverDofs();
  int* result = SystemDofsFromNodes(selected, count);
  MapToSolverDofs(result, count);
  // Positions are distinct, so any ascending sort gives the one order.
  std::sort(result, result + count);
  return result;
}

QELSimCSetID fesD_NodalDofDefinition::WritePermutation(QELSimCollectionID collection) const {
  RequireSolverDofs();
  QELSimCollectionRef dofs(collection);
  return dofs.CreateOrderedCSet(m_solverToSystemId, m_numSolverDofs);
}
