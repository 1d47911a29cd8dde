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

#include "platform/service/QELSimService.h"
#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"

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
  mem_Free(m_solverToSystemId);
  m_solverToSystemId = nullptr;
  m_numSolverDofs = numSolverDofs;
  m_solverToSystemId = NewInts(m_numDofs);

  // One pass copies the ordering, refuses positions that are no system DOF
  // before they are used as an index, marks the solver's DOFs, and collects
  // the DOF ids in use and the number of acoustic ones. (Locals: the byte
  // stores could alias any member and force reloads.)
  const int numDofs = m_numDofs;
  int* order = m_solverToSystemId;
  const int* codes = m_systemDofCode;
  unsigned char* used =
      static_cast<unsigned char*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(numDofs, 1)));
  std::memset(used, 0, static_cast<size_t>(numDofs));
  const int acousticDofId = m_maxNodalDof > 0 && DofLabel(m_maxNodalDof - 1) >= kAcousticLabel
                                ? SystemDofId(kAcousticLabel)
                                : -1;
  const bool everyDof = numSolverDofs == numDofs;
  uint32_t dofIdMask = 0;
  int acoustic = 0;
  for (int i = 0; i < numSolverDofs; ++i) {
    const int s = solverToSystem != nullptr ? solverToSystem[i] : i;
    if (static_cast<unsigned>(s) >= static_cast<unsigned>(numDofs)) {
      AbortInconsistent("ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF.\n");
    }
    order[i] = s;
    used[s] = 1;
    if (everyDof) continue;
    const int dofId = codes[s] & 63;
    dofIdMask |= 1u << dofId;
    acoustic += dofId == acousticDofId;
  }
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

  // Behind the solver's DOFs every other system DOF, ascending. A duplicate
  // leaves more of them than free entries: those are counted, not stored,
  // and the count refuses the ordering.
  int64_t position = numSolverDofs;
  const uint64_t kEightUsed = 0x0101010101010101ull;
  for (int s = 0; s < numDofs;) {
    uint64_t eight = 0;
    if (s + 8 <= numDofs) std::memcpy(&eight, used + s, 8);
    if (eight == kEightUsed) {  // the usual case: skip eight at a time
      s += 8;
      continue;
    }
    if (used[s] == 0) {
      if (position < numDofs) order[position] = s;
      ++position;
    }
    ++s;
  }
  mem_Free(used);
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
  mem_Free(m_solverToSystemId);
  m_solverToSystemId = nullptr;
  m_solverToSystemId = NewInts(m_numDofs);

  int* nodeAtRank = nullptr;
  if (nodeRank != nullptr) {
    nodeAtRank = NewInts(m_numNodes);
    std::fill(nodeAtRank, nodeAtRank + m_numNodes, -1);
    for (int i = 0; i < m_numNodes; ++i) {
      const int rank = nodeRank[i];
      // Ranks must be a permutation of 1 .. nodes, or the order has holes.
      if (rank < 1 || rank > m_numNodes || nodeAtRank[rank - 1] != -1) {
        AbortInconsistent("INVALID NODE RANK IN THE SOLVER NODE ORDER.\n", "NODE / RANK", i, rank);
      }
      nodeAtRank[rank - 1] = i;
    }
  }

  // Every node is visited once and asks only for labels it has, so the
  // solver's DOFs are distinct system DOFs and fit the table. (Locals keep
  // the stores into the table from forcing members to be reloaded.)
  const int* meshMasks = m_activityMasks;
  const int* labelToDofId = m_labelToDofId;
  const int* rows = m_maxDofToSystem;
  const int64_t width = m_maxNodalDof;
  int* order = m_solverToSystemId;
  int count = 0;
  uint32_t solverLabelMask = 0;
  for (int k = 0; k < m_numNodes; ++k) {
    const int n = nodeAtRank != nullptr ? nodeAtRank[k] : k;
    const uint32_t m = static_cast<uint32_t>(solverMasks[n]);
    const uint32_t meshMask = static_cast<uint32_t>(meshMasks[n]);
    // A label the node lacks (whether or not the mesh has it elsewhere) has
    // no system DOF to point at.
    if ((m & ~meshMask) != 0) {
      AbortInconsistent("ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF.\n", "SOLVER/MESH DOF MASK",
                        solverMasks[n], meshMasks[n]);
    }
    if (m == 0) continue;
    solverLabelMask |= m;
    const int* row = rows + width * n;
    if (m == meshMask) {
      // All of the node's DOFs: consecutive system DOFs.
      const int first = row[labelToDofId[LowestLabel(m)]];
      const int c = CountLabels(m);
      for (int j = 0; j < c; ++j) order[count + j] = first + j;
      count += c;
    } else {
      for (uint32_t rest = m; rest != 0; rest &= rest - 1) {
        order[count++] = row[labelToDofId[LowestLabel(rest)]];
      }
    }
  }
  m_numSolverDofs = count;
  mem_Free(nodeAtRank);
  SetupSolverDofIdMaps(solverLabelMask);

  // The DOFs left out, in ascending system order, are node by node the
  // labels the node has and the solver did not ask for.
  for (int n = 0; n < m_numNodes; ++n) {
    uint32_t rest = static_cast<uint32_t>(meshMasks[n]) & ~static_cast<uint32_t>(solverMasks[n]);
    if (rest == 0) continue;
    const int* row = rows + width * n;
    for (; rest != 0; rest &= rest - 1) order[count++] = row[labelToDofId[LowestLabel(rest)]];
  }
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
