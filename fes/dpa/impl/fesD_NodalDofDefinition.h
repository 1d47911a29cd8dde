// fesD_NodalDofDefinition: numbers the active degrees of freedom of a mesh
// from per-node activity masks, and relates that numbering to the order of a
// solver's unknowns.
//
// Bit (label - 1) of a node's mask says that DOF label (1..31) exists at the
// node. The labels present anywhere (the union mask) are ranked into DOF ids;
// every active (node, label) pair gets a system DOF, node by node and label by
// label. A solver ordering is a permutation of the system DOFs whose leading
// part is what the solver uses. All tables are flat int arrays from the
// suite allocator, so that every query is one or two array reads; the short
// queries are inline because solvers call them once per DOF.
//
// Queries do not check their arguments: node indices, labels, DOF ids and
// positions must lie in range. Inconsistent setup input ends the process with
// an upper-case line on aio_cerr, since no caller could recover a consistent
// numbering from it.
#ifndef DDB_FES_DPA_IMPL_FESD_NODALDOFDEFINITION_H_
#define DDB_FES_DPA_IMPL_FESD_NODALDOFDEFINITION_H_

#include <cstdint>

#include "platform/core/ddb_export.h"
#include "platform/service/QELSimIDs.h"

// A node index and a DOF id.
struct fesD_NodeDof {
  int32_t node;
  int32_t dof;
};

class DDB_API fesD_NodalDofDefinition {
 public:
  // Largest node count: the packed node/DOF code 128 * (node + 1) + DOF id
  // must stay a positive int.
  static const int kMaxNodes = 16777215;

  // Reads one mask per node from a distribution of one drawer (the FE
  // system's nodal activity masks). `shift` also activates label L + shift
  // for every active label L (taken modulo 32); `addLabel10` activates label
  // 10 where the acoustic label 8 is active.
  fesD_NodalDofDefinition(QELSimDistributionID masks, int shift, bool addLabel10);
  // Adopts `masks` (from the suite allocator; modified in place and released
  // by the destructor).
  fesD_NodalDofDefinition(int* masks, int numNodes, int shift, bool addLabel10);
  ~fesD_NodalDofDefinition();
  fesD_NodalDofDefinition(const fesD_NodalDofDefinition&) = delete;
  fesD_NodalDofDefinition& operator=(const fesD_NodalDofDefinition&) = delete;

  // Solver orderings; each replaces the previous one.
  // The solver's system DOFs in its order; null means 0 .. numSolverDofs - 1.
  void SetupSolverDofs(int numSolverDofs, const int* solverToSystem);
  // The same, read from an ordered set of system DOFs.
  void SetupSolverDofs(QELSimCSetID ordering);
  // Per node, the labels the solver solves for; nodes taken by 1-based rank
  // (null: in index order). Leaves NumberOfSolverAcousticDofs() as it was.
  void SetupSolverDofs(const int* nodeRank, const int* solverMasks);

  // Nodal queries.
  int NumberOfNodes() const { return m_numNodes; }
  int MaxNodalDof() const { return m_maxNodalDof; }
  int NumberOfDofs() const { return m_numDofs; }
  const int* ActivityMasks() const { return m_activityMasks; }
  int SystemDofId(int label) const { return m_labelToDofId[label]; }
  int DofLabel(int dofId) const { return m_dofIdToLabel[dofId]; }
  // The system DOF of (node, DOF id), or -1 where that label is not active.
  int SystemOrdinal(int node, int dofId) const {
    return m_maxDofToSystem[static_cast<int64_t>(m_maxNodalDof) * node + dofId];
  }
  // The DOF ids at `node` in ascending order, in a buffer owned by this
  // object and overwritten by the next call.
  const int* NodalDofIds(int node, int& count) const;
  fesD_NodeDof NodeDofFromSystemDof(int systemDof) const {
    int code = m_systemDofCode[systemDof];
    return fesD_NodeDof{(code >> 7) - 1, code & 63};
  }
  // Replaces each flat index node * MaxNodalDof() + DOF id by SystemOrdinal.
  void MaxDofToSystemOrdinals(int* values, int count) const;
  // The system DOFs of the selected nodes, ascending; caller frees with mem_Free.
  int* SystemDofsFromNodes(const bool* selected, int& count) const;

  // Solver queries: the process stops if no solver ordering was set up.
  int NumberOfSolverDofs() const {
    RequireSolverDofs();
    return m_numSolverDofs;
  }
  int NumberOfSolverAcousticDofs() const {
    RequireSolverDofs();
    return m_numSolverAcousticDofs;
  }
  int SystemDofFromSolverDof(int solverDof) const {
    RequireSolverDofs();
    return m_solverToSystemId[solverDof];
  }
  fesD_NodeDof NodeDofFromSolverDof(int solverDof) const {
    RequireSolverDofs();
    return NodeDofFromSystemDof(m_solverToSystemId[solverDof]);
  }
  // The rank of a DOF id among those the solver uses, or -1.
  int SolverDofIdFromSystemDofId(int dofId) const {
    RequireSolverDofs();
    return m_dofIdToSolverDofId[dofId];
  }
  int SystemDofIdFromSolverDofId(int solverDofId) const {
    RequireSolverDofs();
    return m_solverDofIdToDofId[solverDofId];
  }
  // out[system DOF] = its solver position, for all NumberOfDofs() entries;
  // positions from NumberOfSolverDofs() on are DOFs the solver does not use.
  void MappingToSolverDofs(int* out) const;
  // Replaces each of `count` system DOFs by its solver position.
  void MapToSolverDofs(int* values, int count) const;
  // The solver positions of the selected nodes' DOFs, ascending; caller
  // frees with mem_Free.
  int* SolverDofsFromNodes(const bool* selected, int& count) const;
  // Stores the solver's part of the ordering (system DOFs in solver order)
  // as a new ordered set of `collection`, the collection of system DOFs.
  QELSimCSetID WritePermutation(QELSimCollectionID collection) const;

 private:
  void ReleaseTables();
  uint32_t PrepareMasks(int shift, bool addLabel10);
  void SetupNodalTables(uint32_t unionMask);
  void SetupSolverDofIdMaps(uint32_t solverLabelMask);
  int* OrderingTable();
  void InitialiseTables(int shift, bool addLabel10);
  void RequireSolverDofs() const {
    if (m_solverToSystemId == nullptr) {
      FailAssertion("m_solverToSystemId", __FILE__, __LINE__, __PRETTY_FUNCTION__);
    }
  }
  // Reports a failed assertion as the C runtime's assert() does and stops
  // the process, in every build type (NDEBUG or not).
  [[noreturn]] static void FailAssertion(const char* condition, const char* file, unsigned line,
                                         const char* function);

  // Every field starts zero or null, whichever constructor runs.
  int m_numNodes = 0;
  int* m_maxDofToSystem = nullptr;
  int m_maxNodalDof = 0;
  int* m_labelToDofId = nullptr;
  int* m_dofIdToLabel = nullptr;
  int* m_nodalDofIdBuffer = nullptr;
  int* m_activityMasks = nullptr;
  int m_numDofs = 0;
  int* m_systemDofCode = nullptr;
  int m_numSolverDofs = 0;
  int m_numSolverAcousticDofs = 0;
  int* m_solverToSystemId = nullptr;
  int* m_dofIdToSolverDofId = nullptr;
  int* m_solverDofIdToDofId = nullptr;
  // The first system DOF of each node, then NumberOfDofs(): node n's DOFs
  // are m_nodeFirstDof[n] .. m_nodeFirstDof[n + 1] - 1.
  int* m_nodeFirstDof = nullptr;
};

#endif  // DDB_FES_DPA_IMPL_FESD_NODALDOFDEFINITION_H_
