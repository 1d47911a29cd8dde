// The nodal DOF numbering against a plain model built from the definitions
// (label sets per node, the sorted union of labels, (node, label) pairs in
// order), on random masks and on the meshes of real input decks.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "platform/core/mem.h"
#include "support/fe_deck.h"

namespace {

using Ints = std::vector<int>;

const int kAcousticLabel = 8;

std::set<int> LabelsOf(unsigned mask) {
  std::set<int> labels;
  for (int label = 1; label <= 32; ++label) {
    if ((mask >> (label - 1)) & 1u) labels.insert(label);
  }
  return labels;
}

// The numbering as its definitions state it, with no tables of its own.
struct Reference {
  std::vector<std::set<int>> nodeLabels;        // after preparation
  std::vector<int> unionLabels;                 // ascending; DOF id = position
  std::vector<std::pair<int, int>> systemDofs;  // (node, label), numbered in order
  std::map<std::pair<int, int>, int> systemDofOf;

  Reference(const Ints& masks, int shift, bool addLabel10) {
    const int s = ((shift % 32) + 32) % 32;
    std::set<int> all;
    for (int mask : masks) {
      std::set<int> labels = LabelsOf(static_cast<unsigned>(mask));
      if (addLabel10 && labels.count(kAcousticLabel)) labels.insert(10);
      std::set<int> shifted = labels;
      for (int label : labels) {
        if (s > 0 && label + s <= 32) shifted.insert(label + s);
      }
      nodeLabels.push_back(shifted);
      all.insert(shifted.begin(), shifted.end());
    }
    unionLabels.assign(all.begin(), all.end());
    for (int n = 0; n < static_cast<int>(nodeLabels.size()); ++n) {
      for (int label : nodeLabels[n]) {
        systemDofOf[{n, label}] = static_cast<int>(systemDofs.size());
        systemDofs.emplace_back(n, label);
      }
    }
  }

  int DofId(int label) const {
    return static_cast<int>(std::find(unionLabels.begin(), unionLabels.end(), label) -
                            unionLabels.begin());
  }
  int Label(int systemDof) const { return systemDofs[systemDof].second; }
};

// A solver ordering as its definition states it: the solver's part, then
// every other system DOF ascending.
struct SolverReference {
  Ints order;
  int numSolver = 0;
  std::set<int> labels;  // labels occurring among the solver's DOFs
  int acoustic = 0;

  SolverReference(const Reference& ref, const Ints& solverPart, int acousticCount) {
    numSolver = static_cast<int>(solverPart.size());
    order = solverPart;
    std::set<int> used(solverPart.begin(), solverPart.end());
    for (int s = 0; s < static_cast<int>(ref.systemDofs.size()); ++s) {
      if (!used.count(s)) order.push_back(s);
    }
    for (int s : solverPart) labels.insert(ref.Label(s));
    acoustic = acousticCount;
  }
};

::testing::AssertionResult SameInts(const Ints& got, const Ints& want) {
  if (got.size() != want.size()) {
    return ::testing::AssertionFailure() << "size " << got.size() << " instead of " << want.size();
  }
  for (size_t i = 0; i < got.size(); ++i) {
    if (got[i] != want[i]) {
      return ::testing::AssertionFailure()
             << "entry " << i << " is " << got[i] << " instead of " << want[i];
    }
  }
  return ::testing::AssertionSuccess();
}

int* AllocatorCopy(const Ints& masks) {
  int* copy =
      static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(masks.size(), sizeof(int))));
  std::copy(masks.begin(), masks.end(), copy);
  return copy;
}

// A random third of the nodes, and their system DOFs in ascending order.
struct Selection {
  std::unique_ptr<bool[]> flags;
  Ints systemDofs;

  Selection(const Reference& ref, std::mt19937& rng) {
    const int nodes = static_cast<int>(ref.nodeLabels.size());
    flags.reset(new bool[nodes + 1]);
    for (int n = 0; n < nodes; ++n) {
      flags[n] = rng() % 3 == 0;
      if (!flags[n]) continue;
      for (int label : ref.nodeLabels[n]) systemDofs.push_back(ref.systemDofOf.at({n, label}));
    }
  }
};

void CheckNodal(const fesD_NodalDofDefinition& def, const Reference& ref, std::mt19937& rng) {
  const int nodes = static_cast<int>(ref.nodeLabels.size());
  const int width = static_cast<int>(ref.unionLabels.size());
  ASSERT_EQ(def.NumberOfNodes(), nodes);
  ASSERT_EQ(def.MaxNodalDof(), width);
  ASSERT_EQ(def.NumberOfDofs(), static_cast<int>(ref.systemDofs.size()));

  for (int d = 0; d < width; ++d) {
    EXPECT_EQ(def.DofLabel(d), ref.unionLabels[d]);
    EXPECT_EQ(def.SystemDofId(ref.unionLabels[d]), d);
  }

  Ints masks, wantMasks, ordinals, wantOrdinals, ids, wantIds;
  for (int n = 0; n < nodes; ++n) {
    unsigned m = 0;
    for (int label : ref.nodeLabels[n]) m |= 1u << (label - 1);
    wantMasks.push_back(static_cast<int>(m));
    masks.push_back(def.ActivityMasks()[n]);
    for (int d = 0; d < width; ++d) {
      auto it = ref.systemDofOf.find({n, ref.unionLabels[d]});
      wantOrdinals.push_back(it == ref.systemDofOf.end() ? -1 : it->second);
      ordinals.push_back(def.SystemOrdinal(n, d));
    }
    int count = 0;
    const int* nodal = def.NodalDofIds(n, count);
    ids.insert(ids.end(), nodal, nodal + count);
    ids.push_back(-100);  // node separator
    for (int label : ref.nodeLabels[n]) wantIds.push_back(ref.DofId(label));
    wantIds.push_back(-100);
  }
  EXPECT_TRUE(SameInts(masks, wantMasks));
  EXPECT_TRUE(SameInts(ordinals, wantOrdinals));
  EXPECT_TRUE(SameInts(ids, wantIds));

  Ints flat(ordinals.size());
  for (size_t i = 0; i < flat.size(); ++i) flat[i] = static_cast<int>(i);
  def.MaxDofToSystemOrdinals(flat.data(), static_cast<int>(flat.size()));
  EXPECT_TRUE(SameInts(flat, wantOrdinals));

  Ints decoded, wantDecoded;
  for (int s = 0; s < def.NumberOfDofs(); ++s) {
    fesD_NodeDof nd = def.NodeDofFromSystemDof(s);
    decoded.insert(decoded.end(), {nd.node, nd.dof});
    wantDecoded.insert(wantDecoded.end(), {ref.systemDofs[s].first, ref.DofId(ref.Label(s))});
  }
  EXPECT_TRUE(SameInts(decoded, wantDecoded));

  Selection selection(ref, rng);
  int count = -1;
  int* got = def.SystemDofsFromNodes(selection.flags.get(), count);
  EXPECT_TRUE(SameInts(Ints(got, got + count), selection.systemDofs));
  mem_Free(got);
}

void CheckSolver(const fesD_NodalDofDefinition& def, const Reference& ref,
                 const SolverReference& sref, std::mt19937& rng) {
  const int dofs = def.NumberOfDofs();
  ASSERT_EQ(def.NumberOfSolverDofs(), sref.numSolver);
  EXPECT_EQ(def.NumberOfSolverAcousticDofs(), sref.acoustic);

  Ints order, decoded, wantDecoded;
  for (int i = 0; i < dofs; ++i) {
    order.push_back(def.SystemDofFromSolverDof(i));
    fesD_NodeDof nd = def.NodeDofFromSolverDof(i);
    decoded.insert(decoded.end(), {nd.node, nd.dof});
    const int s = sref.order[i];
    wantDecoded.insert(wantDecoded.end(), {ref.systemDofs[s].first, ref.DofId(ref.Label(s))});
  }
  EXPECT_TRUE(SameInts(order, sref.order));
  EXPECT_TRUE(SameInts(decoded, wantDecoded));

  // Position of each system DOF in the solver order.
  Ints position(dofs, -1);
  for (int i = 0; i < dofs; ++i) position[sref.order[i]] = i;
  Ints mapping(dofs, -7);
  def.MappingToSolverDofs(mapping.data());
  EXPECT_TRUE(SameInts(mapping, position));

  Ints values, wantValues;
  for (int i = 0; i < dofs / 2; ++i) {
    values.push_back(static_cast<int>(rng() % dofs));
    wantValues.push_back(position[values.back()]);
  }
  def.MapToSolverDofs(values.data(), static_cast<int>(values.size()));
  EXPECT_TRUE(SameInts(values, wantValues));

  Selection selection(ref, rng);
  Ints want;
  for (int s : selection.systemDofs) want.push_back(position[s]);
  std::sort(want.begin(), want.end());
  int count = -1;
  int* got = def.SolverDofsFromNodes(selection.flags.get(), count);
  EXPECT_TRUE(SameInts(Ints(got, got + count), want));
  mem_Free(got);

  // DOF ids ranked among those whose label the solver uses, both ways.
  Ints toSolver, toSystem, wantToSolver, wantToSystem;
  for (int d = 0; d < def.MaxNodalDof(); ++d) {
    toSolver.push_back(def.SolverDofIdFromSystemDofId(d));
    toSystem.push_back(def.SystemDofIdFromSolverDofId(d));
    wantToSolver.push_back(-1);
    wantToSystem.push_back(-1);
  }
  int rank = 0;
  for (int d = 0; d < def.MaxNodalDof(); ++d) {
    if (!sref.labels.count(ref.unionLabels[d])) continue;
    wantToSolver[d] = rank;
    wantToSystem[rank++] = d;
  }
  EXPECT_TRUE(SameInts(toSolver, wantToSolver));
  EXPECT_TRUE(SameInts(toSystem, wantToSystem));
}

// The array form: `k` distinct system DOFs in random order.
SolverReference SetupFromArray(fesD_NodalDofDefinition& def, const Reference& ref, int k,
                               std::mt19937& rng) {
  Ints all(def.NumberOfDofs());
  for (int i = 0; i < def.NumberOfDofs(); ++i) all[i] = i;
  std::shuffle(all.begin(), all.end(), rng);
  Ints part(all.begin(), all.begin() + k);
  def.SetupSolverDofs(k, part.data());
  int acoustic = 0;
  for (int s : part) acoustic += ref.Label(s) == kAcousticLabel;
  return SolverReference(ref, part, acoustic);
}

// The node-mask form: random node ranks (or none), a random part of each
// node's labels (or all of them).
SolverReference SetupFromNodeMasks(fesD_NodalDofDefinition& def, const Reference& ref, bool ranked,
                                   int keptAcoustic, std::mt19937& rng, bool whole = false) {
  const int nodes = def.NumberOfNodes();
  Ints nodeOrder(nodes);
  for (int i = 0; i < nodes; ++i) nodeOrder[i] = i;
  if (ranked) std::shuffle(nodeOrder.begin(), nodeOrder.end(), rng);
  Ints rank(nodes), solverMasks(nodes);
  for (int k = 0; k < nodes; ++k) rank[nodeOrder[k]] = k + 1;
  for (int n = 0; n < nodes; ++n) {
    solverMasks[n] = def.ActivityMasks()[n] & (whole ? -1 : static_cast<int>(rng() & 0x7FFFFFFF));
  }
  def.SetupSolverDofs(ranked ? rank.data() : nullptr, solverMasks.data());
  Ints part;
  for (int n : nodeOrder) {
    for (int label : LabelsOf(static_cast<unsigned>(solverMasks[n]))) {
      part.push_back(ref.systemDofOf.at({n, label}));
    }
  }
  return SolverReference(ref, part, keptAcoustic);
}

// Masks of a mixed mesh: solids, shells, acoustic nodes, unused nodes and
// arbitrary label sets. Labels that the shift would move onto label 32 are
// left out (that input is refused; see the death tests).
Ints RandomMasks(int nodes, int shift, std::mt19937& rng) {
  const int palette[] = {0x7, 0x7, 0x3F, 0x80, 0x87, 0x3F | 0x80, 0x1000, 0};
  unsigned allowed = 0x7FFFFFFFu;
  const int s = ((shift % 32) + 32) % 32;
  if (s > 0) allowed &= ~(1u << (31 - s));
  Ints masks(nodes);
  for (int& m : masks) {
    unsigned r = rng();
    unsigned mask = (r % 10 == 0) ? rng() : static_cast<unsigned>(palette[r % 8]);
    m = static_cast<int>(mask & allowed);
  }
  return masks;
}

TEST(NodalDofsReference, RandomMasks) {
  struct Config {
    int shift;
    bool addLabel10;
  } configs[] = {{0, false}, {0, true}, {3, true}, {35, false}, {20, false}, {-5, true}};
  std::mt19937 rng(20261122);
  for (const Config& c : configs) {
    SCOPED_TRACE("shift " + std::to_string(c.shift) + (c.addLabel10 ? " with label 10" : ""));
    Ints masks = RandomMasks(3000, c.shift, rng);
    Reference ref(masks, c.shift, c.addLabel10);
    fesD_NodalDofDefinition def(AllocatorCopy(masks), 3000, c.shift, c.addLabel10);
    CheckNodal(def, ref, rng);

    // A fresh object set up by node masks counts no acoustic DOFs; the
    // array form counts them, and the node-mask form keeps that count.
    SolverReference first = SetupFromNodeMasks(def, ref, true, 0, rng);
    CheckSolver(def, ref, first, rng);
    const int k = def.NumberOfDofs() / 3;
    SolverReference fromArray = SetupFromArray(def, ref, k, rng);
    CheckSolver(def, ref, fromArray, rng);
    CheckSolver(def, ref, SetupFromNodeMasks(def, ref, false, fromArray.acoustic, rng), rng);
    SolverReference every = SetupFromArray(def, ref, def.NumberOfDofs(), rng);
    CheckSolver(def, ref, every, rng);
    // Every label of every node, over the table the partial orderings filled.
    CheckSolver(def, ref, SetupFromNodeMasks(def, ref, true, every.acoustic, rng, true), rng);

    Ints prefix(k);
    for (int i = 0; i < k; ++i) prefix[i] = i;
    def.SetupSolverDofs(k, nullptr);
    int acoustic = 0;
    for (int s : prefix) acoustic += ref.Label(s) == kAcousticLabel;
    CheckSolver(def, ref, SolverReference(ref, prefix, acoustic), rng);
  }
}

TEST(NodalDofsReference, RealDecks) {
  std::string folder = FeDeckFolder();
  if (folder.empty()) GTEST_SKIP() << "finite-element decks not found (set DDB_FE_DECKS)";
  // Shells with beams, solids with beams, beams with trusses, a deck that
  // includes another, and two gzip decks mixing shells and solids.
  const char* decks[] = {"shellbeam.inp", "segmentbeam.inp",   "disconnect.inp",
                         "opt3.inp",      "crackIIcum.inp.gz", "induction2.inp.gz"};
  std::mt19937 rng(7);
  for (const char* name : decks) {
    SCOPED_TRACE(name);
    FeDeck deck;
    std::string error;
    ASSERT_TRUE(ReadFeDeck(folder + "/" + name, &deck, &error)) << error;
    ASSERT_GT(deck.elements, 0);
    EXPECT_EQ(deck.skippedElementBlocks, 0);
    EXPECT_EQ(deck.undefinedNodeReferences, 0);
    const int nodes = static_cast<int>(deck.masks.size());

    Reference ref(deck.masks, 0, false);
    fesD_NodalDofDefinition def(AllocatorCopy(deck.masks), nodes, 0, false);
    CheckNodal(def, ref, rng);
    // A solver taking part of each node's labels, nodes in its own order.
    CheckSolver(def, ref, SetupFromNodeMasks(def, ref, true, 0, rng), rng);
    CheckSolver(def, ref, SetupFromArray(def, ref, def.NumberOfDofs() / 2, rng), rng);
  }
}

TEST(NodalDofsReference, DeckElementTypes) {
  int mask = 0, n = 0;
  ASSERT_TRUE(FeDeckElementType("C3D20R", &mask, &n));
  EXPECT_EQ(mask, 0x7);
  EXPECT_EQ(n, 20);
  ASSERT_TRUE(FeDeckElementType("s8", &mask, &n));
  EXPECT_EQ(mask, 0x3F);
  EXPECT_EQ(n, 8);
  ASSERT_TRUE(FeDeckElementType("B32R", &mask, &n));
  EXPECT_EQ(n, 3);
  ASSERT_TRUE(FeDeckElementType("T3D2", &mask, &n));
  EXPECT_EQ(mask, 0x7);
  EXPECT_EQ(n, 2);
  EXPECT_FALSE(FeDeckElementType("SPRINGA", &mask, &n));
  EXPECT_FALSE(FeDeckElementType("DCOUP3D", &mask, &n));
}

}  // namespace
