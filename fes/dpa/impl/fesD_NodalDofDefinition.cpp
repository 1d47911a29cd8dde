// The numbering itself: mask preparation, the nodal tables, the solver
// orderings and the queries that need loops.
//
// Masks are scanned as unsigned words, set bit by set bit, so a scan costs
// the number of active labels and always ends. Every table is an int array
// from the suite allocator, sized through mem_ArraySize so that an absurd
// size fails to allocate instead of wrapping.
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

// A bit set of `count` bits, all clear at first, from the suite allocator.
// Setting bits in the order of an ordering: consecutive entries mostly fall
// in one word (a node's DOFs, runs of nodes), so the word is loaded once
// per run and stored at every entry (BitRun): no entry then waits for the
// store of the one before, as `word |= bit` in memory would.
class Bits {
 public:
  explicit Bits(int count)
      : m_count(count),
        m_words((static_cast<int64_t>(count) + 63) / 64),
        m_bits(static_cast<uint64_t*>(
            mem_OperatorNewThrowBuiltin(mem_ArraySize(m_words, sizeof(uint64_t))))) {
    std::memset(m_bits, 0, static_cast<size_t>(m_words) * sizeof(uint64_t));
  }
  ~Bits() { mem_Free(m_bits); }
  Bits(const Bits&) = delete;
  Bits& operator=(const Bits&) = delete;

  uint64_t* Data() { return m_bits; }
  int64_t Words() const { return m_words; }
  // The clear bits of word w that stand for one of the `count` bits.
  uint64_t ClearBits(int64_t w) const {
    uint64_t clear = ~m_bits[w];
    const int64_t past = m_count - 64 * w;  // bits of this word in range
    return past >= 64 ? clear : clear & ((uint64_t{1} << past) - 1);
  }

 private:
  int m_count;
  int64_t m_words;
  uint64_t* m_bits;
};

// Sets bit i of `bits`; true when it was set before. `word` and `cached`
// carry the current word's index and value from one call to the next.
inline bool BitRun(uint64_t* bits, int i, int64_t& word, uint64_t& cached) {
  const int64_t w = i >> 6;
  if (w != word) {
    word = w;
    cached = bits[w];
  }
  const uint64_t bit = uint64_t{1} << (i & 63);
  const bool was = (cached & bit) != 0;
  cached |= bit;
  bits[w] = cached;
  return was;
}

// Writes first, first + 1, ..., first + count - 1 from out on, eight at a
// time in two vector stores: there is room for kRunSlack ints past the end
// of the ordering table, and the next run overwrites the excess.
const int kRunSlack = 8;
typedef int Int4 __attribute__((vector_size(16)));
inline void WriteRun(int* out, int first, int count) {
  const Int4 low = {0, 1, 2, 3}, high = {4, 5, 6, 7};
  int j = 0;
  do {  // count > 0
    const Int4 a = low + (first + j), b = high + (first + j);
    std::memcpy(out + j, &a, sizeof a);
    std::memcpy(out + j + 4, &b, sizeof b);
    j += 8;
  } while (j < count);
}

// The main pass of the node-mask form (see SetupSolverDofs): node by node
// in the solver's order (nodeAtRank, or index order), the system DOFs of
// the labels the solver asks for, refusing labels a node lacks (whether or
// not the mesh has them elsewhere: there is no system DOF to point at).
// Nodes mostly repeat the mask of the node before, so a mask's DOF count
// and first DOF id are worked out when it changes. Run is compiled once
// with and once without a rank table.
struct NodeMaskTake {
  const int* nodeAtRank;
  const int* solverMasks;
  const int* meshMasks;
  const int* labelToDofId;
  const int* rows;
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
    uint32_t lastMask = 0;
    int lastCount = 0, lastFirstId = 0;
    for (int k = 0; k < numNodes; ++k) {
      const int n = kRanked ? nodeAtRank[k] : k;
      const uint32_t m = static_cast<uint32_t>(solverMasks[n]);
      const uint32_t meshMask = static_cast<uint32_t>(meshMasks[n]);
      if ((m & ~meshMask) != 0) {
        AbortInconsistent("ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF.\n", "SOLVER/MESH DOF MASK",
                          solverMasks[n], meshMasks[n]);
      }
      const int* row = rows + width * n;
      labels |= m;
      if (m == meshMask) {
        // All of the node's DOFs: consecutive system DOFs.
        if (m == 0) continue;
        if (m != lastMask) {
          lastMask = m;
          lastCount = CountLabels(m);
          lastFirstId = labelToDofId[LowestLabel(m)];
        }
        WriteRun(order + c, row[lastFirstId], lastCount);
        c += lastCount;
      } else {
        partial = true;
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
// ordering (given, or 0 .. count - 1 when null) into `order`, refuses
// positions that are no system DOF, marks each in `marks`, and for a part
// of the system DOFs collects the DOF ids in use and the acoustic DOFs
// through the codes. Run is compiled once per case, so that the loop tests
// neither per DOF.
struct OrderingCopy {
  const int* given;
  int count, numDofs;
  const int* codes;
  int acousticDofId;
  int* order;
  uint64_t* marks;
  uint32_t dofIdMask = 0;
  int acoustic = 0;

  template <bool kGiven, bool kPart>
  void Run() {
    int64_t word = -1;
    uint64_t cached = 0;
    uint32_t mask = 0;
    int acousticDofs = 0;
    for (int i = 0; i < count; ++i) {
      const int s = kGiven ? given[i] : i;
      if (static_cast<unsigned>(s) >= static_cast<unsigned>(numDofs)) {
        AbortInconsistent("ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF.\n");
      }
      order[i] = s;
      BitRun(marks, s, word, cached);
      if (kPart) {
        const int dofId = codes[s] & 63;
        mask |= 1u << dofId;
        acousticDofs += dofId == acousticDofId;
      }
    }
    dofIdMask = mask;
    acoustic = acousticDofs;
  }
};

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
}

// Label 8 drags in label 10 on request; then every label L drags in L + shift
// (labels pushed past 31 fall off). Returns the union of the prepared masks.
// A shift can set the sign bit, so label 32 is refused after preparation; the
// loop stays branch-free and the culprit is looked for only on failure.
uint32_t fesD_NodalDofDefinition::PrepareMasks(int shift, bool addLabel10) {
  const unsigned s = static_cast<unsigned>(shift) & 31u;
  const uint32_t acoustic = addLabel10 ? kAcousticLabelBit : 0;
  uint32_t* masks = reinterpret_cast<uint32_t*>(m_activityMasks);
  uint32_t unionMask = 0;
  for (int n = 0; n < m_numNodes; ++n) {
    uint32_t m = masks[n];
    m |= (m & acoustic) << (10 - kAcousticLabel);
    m |= m << s;
    masks[n] = m;
    unionMask |= m;
  }
  if ((unionMask & kLabel32Bit) != 0) {
    int n = 0;
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
  unsigned labelBit[32];  // bit position of each DOF id's label
  int r = 0;
  for (uint32_t rest = unionMask; rest != 0; rest &= rest - 1, ++r) {
    const int label = LowestLabel(rest);
    m_labelToDofId[label] = r;
    m_dofIdToLabel[r] = label;
    labelBit[r] = static_cast<unsigned>(label - 1);
  }

  // The node count is capped, so neither the row table nor the codes
  // overflow an int. The codes get room for a full row per node and give
  // back the rest at the end, which spares a counting pass.
  const int width = m_maxNodalDof;
  const int64_t cells = static_cast<int64_t>(width) * m_numNodes;
  m_maxDofToSystem = NewInts(cells);
  m_systemDofCode = NewInts(cells);
  // Nodes mostly repeat the mask of the node before (solid after solid,
  // shell after shell), so each new mask is turned once into a pattern: per
  // DOF id its rank among the node's DOF ids (-1 if absent), and the node's
  // DOF ids. Applying a pattern has no dependency from one entry to the next.
  const uint32_t* masks = reinterpret_cast<const uint32_t*>(m_activityMasks);
  int* codes = m_systemDofCode;
  int rankOf[32], dofIds[32];
  int perNode = 0;
  uint32_t patternMask = kLabel32Bit;  // no prepared mask has it
  int dof = 0;
  for (int n = 0; n < m_numNodes; ++n) {
    const uint32_t m = masks[n];
    if (m != patternMask) {
      perNode = 0;
      for (int d = 0; d < width; ++d) {
        const bool active = ((m >> labelBit[d]) & 1u) != 0;
        rankOf[d] = active ? perNode : -1;
        if (active) dofIds[perNode++] = d;
      }
      patternMask = m;
    }
    int* row = m_maxDofToSystem + static_cast<int64_t>(width) * n;
    for (int d = 0; d < width; ++d) row[d] = (dof + rankOf[d]) | (rankOf[d] >> 31);
    const int base = 128 * (n + 1);
    for (int j = 0; j < perNode; ++j) codes[dof + j] = base + dofIds[j];
    dof += perNode;
  }
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

  // One pass (OrderingCopy) copies the ordering and marks the solver's DOFs
  // in a bit set: a bit per DOF stays in the processor's caches where a byte
  // per DOF would not. (Locals: the stores could alias any member and force
  // reloads.)
  const int numDofs = m_numDofs;
  Bits used(numDofs);
  int* order = OrderingTable();
  m_numSolverDofs = numSolverDofs;
  const int* codes = m_systemDofCode;
  const int acousticDofId = m_maxNodalDof > 0 && DofLabel(m_maxNodalDof - 1) >= kAcousticLabel
                                ? SystemDofId(kAcousticLabel)
                                : -1;
  const bool everyDof = numSolverDofs == numDofs;
  OrderingCopy copy{solverToSystem, numSolverDofs, numDofs,    codes,
                    acousticDofId,  order,         used.Data()};
  if (solverToSystem != nullptr) {
    everyDof ? copy.Run<true, false>() : copy.Run<true, true>();
  } else {
    everyDof ? copy.Run<false, false>() : copy.Run<false, true>();
  }
  uint32_t dofIdMask = copy.dofIdMask;
  int acoustic = copy.acoustic;
  if (everyDof) {
    // An ordering of all system DOFs (a permutation, or refused below) uses
    // every DOF id, and its acoustic DOFs are the nodes carrying label 8:
    // cheaper to count on the masks than through the codes.
    dofIdMask = m_maxNodalDof == 0 ? 0 : 0xFFFFFFFFu >> (32 - m_maxNodalDof);
    for (int n = 0; n < m_numNodes; ++n) {
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
  // bits, a word of 64 at a time. A duplicate leaves more of them than free
  // entries: those are counted, not stored, and the count refuses the
  // ordering.
  int64_t position = numSolverDofs;
  for (int64_t w = 0; w < used.Words(); ++w) {
    for (uint64_t clear = used.ClearBits(w); clear != 0; clear &= clear - 1) {
      if (position < numDofs) order[position] = static_cast<int>(64 * w + __builtin_ctzll(clear));
      ++position;
    }
  }
  if (position != numDofs) AbortInconsistent(kInconsistentCount);
}

void fesD_NodalDofDefinition::SetupSolverDofs(QELSimCSetID ordering) {
  QELSimCSet set(ordering);
  const int n = set.Size();
  int* members = NewInts(n);
  set.OrderedMembers(members);
  SetupSolverDofs(n, members);
  mem_Free(members);
}

void fesD_NodalDofDefinition::SetupSolverDofs(const int* nodeRank, const int* solverMasks) {
  int* order = OrderingTable();
  int* nodeAtRank = nullptr;
  if (nodeRank != nullptr) {
    // Ranks must be a permutation of 1 .. nodes, or the order has holes: a
    // bit per rank taken.
    Bits taken(m_numNodes);
    nodeAtRank = NewInts(m_numNodes);
    uint64_t* marks = taken.Data();
    int64_t word = -1;
    uint64_t cached = 0;
    const unsigned numNodes = static_cast<unsigned>(m_numNodes);
    for (int i = 0; i < m_numNodes; ++i) {
      const int rank = nodeRank[i];
      // 1 .. nodes: rank - 1 below nodes as an unsigned number.
      if (static_cast<unsigned>(rank) - 1u >= numNodes || BitRun(marks, rank - 1, word, cached)) {
        AbortInconsistent("INVALID NODE RANK IN THE SOLVER NODE ORDER.\n", "NODE / RANK", i, rank);
      }
      nodeAtRank[rank - 1] = i;
    }
  }

  // Every node is visited once and asks only for labels it has, so the
  // solver's DOFs are distinct system DOFs and fit the table.
  NodeMaskTake take{nodeAtRank,       solverMasks,   m_activityMasks, m_labelToDofId,
                    m_maxDofToSystem, m_maxNodalDof, m_numNodes,      order};
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
