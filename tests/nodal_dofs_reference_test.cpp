// The nodal DOF numbering against a plain model built from the definitions
// (label sets per node, the sorted union of labels, (node, label) pairs in
// order), on random masks and on the meshes of real input decks.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
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
  // (node, DOF id) of each of `dofs`, flattened.
  Ints NodeDofs(const Ints& dofs) const {
    Ints out;
    for (int s : dofs) out.insert(out.end(), {systemDofs[s].first, DofId(Label(s))});
    return out;
  }
};

// A solver's part of the system DOFs, in its order, and the acoustic DOFs
// the numbering should count among them.
struct SolverPart {
  Ints dofs;
  int acoustic;
};

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
  EXPECT_EQ(masks, wantMasks);
  EXPECT_EQ(ordinals, wantOrdinals);
  EXPECT_EQ(ids, wantIds);

  Ints flat(ordinals.size());
  std::iota(flat.begin(), flat.end(), 0);
  def.MaxDofToSystemOrdinals(flat.data(), static_cast<int>(flat.size()));
  EXPECT_EQ(flat, wantOrdinals);

  Ints all(def.NumberOfDofs()), decoded;
  std::iota(all.begin(), all.end(), 0);
  for (int s : all) {
    fesD_NodeDof nd = def.NodeDofFromSystemDof(s);
    decoded.insert(decoded.end(), {nd.node, nd.dof});
  }
  EXPECT_EQ(decoded, ref.NodeDofs(all));

  Selection selection(ref, rng);
  int count = -1;
  int* got = def.SystemDofsFromNodes(selection.flags.get(), count);
  EXPECT_EQ(Ints(got, got + count), selection.systemDofs);
  mem_Free(got);
}

// A solver ordering as its definition states it: the solver's part, then
// every other system DOF ascending.
void CheckSolver(const fesD_NodalDofDefinition& def, const Reference& ref, const SolverPart& part,
                 std::mt19937& rng) {
  const int dofs = def.NumberOfDofs();
  ASSERT_EQ(def.NumberOfSolverDofs(), static_cast<int>(part.dofs.size()));
  EXPECT_EQ(def.NumberOfSolverAcousticDofs(), part.acoustic);

  Ints want = part.dofs, position(dofs, -1);  // position: of each system DOF in the solver order
  std::set<int> inPart(part.dofs.begin(), part.dofs.end()), labels;
  for (int s = 0; s < dofs; ++s) {
    if (!inPart.count(s)) want.push_back(s);
  }
  for (int s : part.dofs) labels.insert(ref.Label(s));
  for (int i = 0; i < dofs; ++i) position[want[i]] = i;

  Ints order, decoded;
  for (int i = 0; i < dofs; ++i) {
    order.push_back(def.SystemDofFromSolverDof(i));
    fesD_NodeDof nd = def.NodeDofFromSolverDof(i);
    decoded.insert(decoded.end(), {nd.node, nd.dof});
  }
  EXPECT_EQ(order, want);
  EXPECT_EQ(decoded, ref.NodeDofs(want));

  Ints mapping(dofs, -7);
  def.MappingToSolverDofs(mapping.data());
  EXPECT_EQ(mapping, position);

  Ints values, wantValues;
  for (int i = 0; i < dofs / 2; ++i) {
    values.push_back(static_cast<int>(rng() % dofs));
    wantValues.push_back(position[values.back()]);
  }
  def.MapToSolverDofs(values.data(), static_cast<int>(values.size()));
  EXPECT_EQ(values, wantValues);

  Selection selection(ref, rng);
  Ints wantSelected;
  for (int s : selection.systemDofs) wantSelected.push_back(position[s]);
  std::sort(wantSelected.begin(), wantSelected.end());
  int count = -1;
  int* got = def.SolverDofsFromNodes(selection.flags.get(), count);
  EXPECT_EQ(Ints(got, got + count), wantSelected);
  mem_Free(got);

  // DOF ids ranked among those whose label the solver uses, both ways.
  const int width = def.MaxNodalDof();
  Ints toSolver, toSystem, wantToSolver, wantToSystem(width, -1);
  for (int d = 0, rank = 0; d < width; ++d) {
    toSolver.push_back(def.SolverDofIdFromSystemDofId(d));
    toSystem.push_back(def.SystemDofIdFromSolverDofId(d));
    const bool used = labels.count(ref.unionLabels[d]) > 0;
    if (used) wantToSystem[rank] = d;
    wantToSolver.push_back(used ? rank++ : -1);
  }
  EXPECT_EQ(toSolver, wantToSolver);
  EXPECT_EQ(toSystem, wantToSystem);
}

// The array form: `k` distinct system DOFs in random order, or with
// `prefix` the first `k` (given as no array).
SolverPart SetupFromArray(fesD_NodalDofDefinition& def, const Reference& ref, int k,
                          std::mt19937& rng, bool prefix = false) {
  Ints all(def.NumberOfDofs());
  std::iota(all.begin(), all.end(), 0);
  if (!prefix) std::shuffle(all.begin(), all.end(), rng);
  SolverPart part{Ints(all.begin(), all.begin() + k), 0};
  def.SetupSolverDofs(k, prefix ? nullptr : part.dofs.data());
  for (int s : part.dofs) part.acoustic += ref.Label(s) == kAcousticLabel;
  return part;
}

// The node-mask form: random node ranks (or none), a random part of each
// node's labels (or all of them). The acoustic count it should keep is given.
SolverPart SetupFromNodeMasks(fesD_NodalDofDefinition& def, const Reference& ref, bool ranked,
                              int keptAcoustic, std::mt19937& rng, bool whole = false) {
  const int nodes = def.NumberOfNodes();
  Ints nodeOrder(nodes), rank(nodes), solverMasks(nodes);
  std::iota(nodeOrder.begin(), nodeOrder.end(), 0);
  if (ranked) std::shuffle(nodeOrder.begin(), nodeOrder.end(), rng);
  for (int k = 0; k < nodes; ++k) rank[nodeOrder[k]] = k + 1;
  for (int n = 0; n < nodes; ++n) {
    solverMasks[n] = def.ActivityMasks()[n] & (whole ? -1 : static_cast<int>(rng() & 0x7FFFFFFF));
  }
  def.SetupSolverDofs(ranked ? rank.data() : nullptr, solverMasks.data());
  SolverPart part{{}, keptAcoustic};
  for (int n : nodeOrder) {
    for (int label : LabelsOf(static_cast<unsigned>(solverMasks[n]))) {
      part.dofs.push_back(ref.systemDofOf.at({n, label}));
    }
  }
  return part;
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
    CheckSolver(def, ref, SetupFromNodeMasks(def, ref, true, 0, rng), rng);
    const int k = def.NumberOfDofs() / 3;
    SolverPart fromArray = SetupFromArray(def, ref, k, rng);
    CheckSolver(def, ref, fromArray, rng);
    CheckSolver(def, ref, SetupFromNodeMasks(def, ref, false, fromArray.acoustic, rng), rng);
    SolverPart every = SetupFromArray(def, ref, def.NumberOfDofs(), rng);
    CheckSolver(def, ref, every, rng);
    // Every label of every node, over the table the partial orderings filled.
    CheckSolver(def, ref, SetupFromNodeMasks(def, ref, true, every.acoustic, rng, true), rng);
    CheckSolver(def, ref, SetupFromArray(def, ref, k, rng, true), rng);
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
  struct Case {
    const char* type;
    int mask, nodes;  // mask 0: not a known type
  } cases[] = {{"C3D20R", 0x7, 20}, {"s8", 0x3F, 8},   {"B32R", 0x3F, 3},
               {"T3D2", 0x7, 2},    {"SPRINGA", 0, 0}, {"DCOUP3D", 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    int mask = 0, n = 0;
    ASSERT_EQ(FeDeckElementType(c.type, &mask, &n), c.mask != 0);
    if (c.mask == 0) continue;
    EXPECT_EQ(mask, c.mask);
    EXPECT_EQ(n, c.nodes);
  }
}

}  // namespace
