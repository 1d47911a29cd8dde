// The numbering itself: mask preparation, the nodal tables, the three ways
// of setting up a solver ordering and the queries that need loops.
//
// Masks are scanned as unsigned words, set bit by set bit, so a scan costs
// the number of active labels and always ends. Every table is an int array
// from the suite allocator, sized through mem_ArraySize so that an absurd
// size fails to allocate instead of wrapping.
#include "fes/dpa/impl/fesD_NodalDofDefinition.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/aio_ostream.h"
#include "platform/mem.h"

namespace {

const uint32_t kAcousticLabelBit = 1u << 7;  // label 8
const uint32_t kLabel10Bit = 1u << 9;
const uint32_t kLabel32Bit = 1u << 31;

int* NewInts(int64_t count) {
  return static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(count, sizeof(int))));
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

const char kInconsistentCount[] = "THE SOLVER AND FE MESH HAVE AN INCONSISTENT NUMBER OF DOFS.\n";

}  // namespace

fesD_NodalDofDefinition::fesD_NodalDofDefinition(int* masks, int numNodes, int shift,
                                                 bool addLabel10)
    : m_numNodes(numNodes),
      m_maxDofToSystem(nullptr),
      m_maxNodalDof(0),
      m_labelToDofId(nullptr),
      m_dofIdToLabel(nullptr),
      m_nodalDofIdBuffer(nullptr),
      m_activityMasks(masks),
      m_numDofs(0),
      m_systemDofCode(nullptr),
      m_numSolverDofs(0),
      m_numSolverAcousticDofs(0),
      m_solverToSystemId(nullptr),
      m_dofIdToSolverDofId(nullptr),
      m_solverDofIdToDofId(nullptr) {
  if (numNodes < 0 || numNodes > kMaxNodes) {
    AbortInconsistent("NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING.\n", "NODES / LIMIT",
                      numNodes, kMaxNodes);
  }
  PrepareMasks(shift, addLabel10);
  SetupNodalTables();
}

fesD_NodalDofDefinition::~fesD_NodalDofDefinition() {
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
// (labels pushed past 31 fall off). A shift can set the sign bit, so label 32
// is refused only after preparation.
void fesD_NodalDofDefinition::PrepareMasks(int shift, bool addLabel10) {
  const unsigned s = static_cast<unsigned>(shift) & 31u;
  uint32_t* masks = reinterpret_cast<uint32_t*>(m_activityMasks);
  for (int n = 0; n < m_numNodes; ++n) {
    uint32_t m = masks[n];
    if (addLabel10 && (m & kAcousticLabelBit) != 0) m |= kLabel10Bit;
    m |= m << s;
    masks[n] = m;
    if ((m & kLabel32Bit) != 0) {
      AbortInconsistent("NODAL DOF MASK WITH LABEL 32 SET.\n", "NODE / MASK", n,
                        static_cast<int>(m));
    }
  }
}

void fesD_NodalDofDefinition::SetupNodalTables() {
  const uint32_t* masks = reinterpret_cast<const uint32_t*>(m_activityMasks);
  uint32_t unionMask = 0;
  int64_t numDofs = 0;
  for (int n = 0; n < m_numNodes; ++n) {
    unionMask |= masks[n];
    numDofs += __builtin_popcount(masks[n]);
  }

  m_maxNodalDof = __builtin_popcount(unionMask);
  const int highest = unionMask == 0 ? 0 : 32 - __builtin_clz(unionMask);
  m_nodalDofIdBuffer = NewInts(m_maxNodalDof);
  m_labelToDofId = NewInts(highest + 1);
  m_dofIdToLabel = NewInts(m_maxNodalDof);
  // Labels outside the union have no DOF id; -1 rather than whatever the
  // allocator left there.
  std::fill(m_labelToDofId, m_labelToDofId + highest + 1, -1);
  uint32_t dofIdBit[32];
  int r = 0;
  for (uint32_t rest = unionMask; rest != 0; rest &= rest - 1, ++r) {
    const int label = LowestLabel(rest);
    m_labelToDofId[label] = r;
    m_dofIdToLabel[r] = label;
    dofIdBit[r] = 1u << (label - 1);
  }

  // Node count is capped, so neither the row table nor the codes overflow an int.
  const int width = m_maxNodalDof;
  m_maxDofToSystem = NewInts(static_cast<int64_t>(width) * m_numNodes);
  m_systemDofCode = NewInts(numDofs);
  int dof = 0;
  for (int n = 0; n < m_numNodes; ++n) {
    int* row = m_maxDofToSystem + static_cast<int64_t>(width) * n;
    const int base = 128 * (n + 1);
    const uint32_t m = masks[n];
    if (m == unionMask) {
      // The common case: the node carries every label of the mesh.
      for (int d = 0; d < width; ++d) {
        row[d] = dof + d;
        m_systemDofCode[dof + d] = base + d;
      }
      dof += width;
      continue;
    }
    for (int d = 0; d < width; ++d) {
      if ((m & dofIdBit[d]) != 0) {
        row[d] = dof;
        m_systemDofCode[dof++] = base + d;
      } else {
        row[d] = -1;
      }
    }
  }
  m_numDofs = dof;
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
  if (solverToSystem != nullptr) {
    std::memcpy(m_solverToSystemId, solverToSystem, mem_ArraySize(numSolverDofs, sizeof(int)));
  } else {
    for (int i = 0; i < numSolverDofs; ++i) m_solverToSystemId[i] = i;
  }

  m_numSolverAcousticDofs = 0;
  uint32_t solverLabelMask = 0;
  for (int i = 0; i < numSolverDofs; ++i) {
    const int s = m_solverToSystemId[i];
    // Positions that are no system DOF are refused by CompleteSolverDofs;
    // they must not be used as an index before that.
    if (static_cast<unsigned>(s) >= static_cast<unsigned>(m_numDofs)) continue;
    const uint32_t labelBit = 1u << (DofLabel(NodeDofFromSystemDof(s).dof) - 1);
    solverLabelMask |= labelBit;
    if (labelBit == kAcousticLabelBit) ++m_numSolverAcousticDofs;
  }
  SetupSolverDofIdMaps(solverLabelMask);
  CompleteSolverDofs();
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

  m_numSolverDofs = 0;
  uint32_t solverLabelMask = 0;
  for (int k = 0; k < m_numNodes; ++k) {
    const int n = nodeAtRank != nullptr ? nodeAtRank[k] : k;
    const uint32_t m = static_cast<uint32_t>(solverMasks[n]);
    const uint32_t meshMask = static_cast<uint32_t>(m_activityMasks[n]);
    // A label the node lacks (whether or not the mesh has it elsewhere) has
    // no system DOF to point at.
    if ((m & ~meshMask) != 0) {
      AbortInconsistent("ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF.\n", "SOLVER/MESH DOF MASK",
                        solverMasks[n], m_activityMasks[n]);
    }
    solverLabelMask |= m;
    for (uint32_t rest = m; rest != 0; rest &= rest - 1) {
      m_solverToSystemId[m_numSolverDofs++] = SystemOrdinal(n, SystemDofId(LowestLabel(rest)));
    }
  }
  mem_Free(nodeAtRank);
  SetupSolverDofIdMaps(solverLabelMask);
  CompleteSolverDofs();
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

// Appends the system DOFs the solver does not use, ascending, so that the
// ordering becomes a permutation of all system DOFs.
void fesD_NodalDofDefinition::CompleteSolverDofs() {
  unsigned char* used =
      static_cast<unsigned char*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(m_numDofs, 1)));
  std::memset(used, 0, static_cast<size_t>(m_numDofs));
  for (int i = 0; i < m_numSolverDofs; ++i) {
    const int s = m_solverToSystemId[i];
    if (static_cast<unsigned>(s) >= static_cast<unsigned>(m_numDofs)) {
      AbortInconsistent("ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF.\n");
    }
    used[s] = 1;
  }
  // A duplicate in the solver ordering leaves more unused DOFs than free
  // entries; those are counted but not stored, and the count check ends it.
  int64_t position = m_numSolverDofs;
  for (int s = 0; s < m_numDofs; ++s) {
    if (used[s] != 0) continue;
    if (position < m_numDofs) m_solverToSystemId[position] = s;
    ++position;
  }
  if (position != m_numDofs) AbortInconsistent(kInconsistentCount);
  mem_Free(used);
}

void fesD_NodalDofDefinition::FailSolverDofsMissing() {
  aio_cerr.print("Assertion failed: m_solverToSystemId\n").flush();
  std::abort();
}

void fesD_NodalDofDefinition::MappingToSolverDofs(int* out) const {
  RequireSolverDofs();
  for (int i = 0; i < m_numDofs; ++i) out[m_solverToSystemId[i]] = i;
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
