// The nodal DOF numbering: against a plain model built from the definitions
// (label sets per node, the sorted union of labels, (node, label) pairs in
// order) on random masks and on the meshes of real input decks; its edge
// cases (mask preparation, no nodes, table reuse); the numbering on a real
// database file (masks read from an int32 distribution, a solver ordering
// read from an ordered set and written back as one); and the ways it stops
// the process on inconsistent input.
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

#include "fe_deck.h"
#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "platform/core/mem.h"
#include "platform/service/QELSimService.h"
#include "support/sample_sim.h"

namespace {

using Ints = std::vector<int>;

// A mask array from the suite allocator, as the adopting constructor wants.
int* Masks(const Ints& values) {
  int* masks = static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(values.size(), 4)));
  std::copy(values.begin(), values.end(), masks);
  return masks;
}

const int kAcousticLabel = 8;

std::set<int> LabelsOf(unsigned mask) {
  std::set<int> labels;
  for (int label = 1; label <= 32; ++label) {
    if ((mask >> (label - 1)) & 1u) labels.insert(label);
  }
  return labels;
}

// A solver's part of the system DOFs, in its order, and the acoustic DOFs
// the numbering should count among them.
struct SolverPart {
  Ints dofs;
  int acoustic;
};

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
  // A solver part taking `dofs`: the array and ordered-set forms count its acoustic DOFs.
  SolverPart Part(const Ints& dofs) const {
    SolverPart part{dofs, 0};
    for (int s : dofs) part.acoustic += Label(s) == kAcousticLabel;
    return part;
  }
  // (node, DOF id) of each of `dofs`, flattened.
  Ints NodeDofs(const Ints& dofs) const {
    Ints out;
    for (int s : dofs) out.insert(out.end(), {systemDofs[s].first, DofId(Label(s))});
    return out;
  }
};

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
  all.resize(k);
  def.SetupSolverDofs(k, prefix ? nullptr : all.data());
  return ref.Part(all);
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
    fesD_NodalDofDefinition def(Masks(masks), 3000, c.shift, c.addLabel10);
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
    fesD_NodalDofDefinition def(Masks(deck.masks), nodes, 0, false);
    CheckNodal(def, ref, rng);
    // A solver taking part of each node's labels, nodes in its own order.
    CheckSolver(def, ref, SetupFromNodeMasks(def, ref, true, 0, rng), rng);
    CheckSolver(def, ref, SetupFromArray(def, ref, def.NumberOfDofs() / 2, rng), rng);
  }
}

// The tables are built a vector of four at a time over the DOF ids, with
// exact stores for the last nodes: every width up to 31 (one to eight
// vectors), with node counts around where the two meet, and masks mixed
// enough to pass the table of mask patterns many times.
TEST(NodalDofsReference, EveryWidthAndSmallMeshes) {
  std::mt19937 rng(2026);
  for (int width : {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 31}) {
    for (int nodes : {1, 2, 3, 5, 8, 70}) {
      SCOPED_TRACE(std::to_string(nodes) + " nodes, width " + std::to_string(width));
      // Labels spread over the word, the widest first.
      const unsigned all = width == 31 ? 0x7FFFFFFFu : (((1u << width) - 1) << (31 - width));
      Ints masks(nodes);
      for (int& m : masks) m = static_cast<int>(all & rng());
      masks[rng() % nodes] = static_cast<int>(all);  // the union is all of them
      Reference ref(masks, 0, false);
      fesD_NodalDofDefinition def(Masks(masks), nodes, 0, false);
      CheckNodal(def, ref, rng);
      SolverPart every = SetupFromArray(def, ref, def.NumberOfDofs(), rng);
      CheckSolver(def, ref, every, rng);
      CheckSolver(def, ref, SetupFromNodeMasks(def, ref, true, every.acoustic, rng, true), rng);
      CheckSolver(def, ref, SetupFromNodeMasks(def, ref, false, every.acoustic, rng), rng);
      CheckSolver(def, ref, SetupFromArray(def, ref, def.NumberOfDofs(), rng, true), rng);
    }
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

TEST(NodalDofs, MaskPreparation) {
  struct Case {
    int mask, shift;
    bool label10;
    int prepared;
  } cases[] = {
      {0x80, 0, true, 0x280},              // acoustic label 8 brings label 10
      {0x80, 0, false, 0x80},              //
      {0x3, 16, false, 0x30003},           // labels 1, 2 bring 17, 18
      {0x3, 48, false, 0x30003},           // the shift counts modulo 32
      {0x3, 32, false, 0x3},               //
      {0x80, 1, true, 0x780},              // label 10 is added before the shift
      {0x40000001, 2, false, 0x40000005},  // label 31 + 2 falls off the word
      {0x2, -1, false, 0x2},               // -1 is 31 modulo 32: label 33 is lost
      {0x1, -31, false, 0x3},              // -31 is 1 modulo 32
  };
  for (const Case& c : cases) {
    fesD_NodalDofDefinition def(Masks({c.mask}), 1, c.shift, c.label10);
    EXPECT_EQ(def.ActivityMasks()[0], c.prepared) << c.mask << " << " << c.shift;
  }
}

TEST(NodalDofs, RepeatedSetupsReleaseSupersededTables) {
  int* masks = Masks({0b011, 0b101, 0b111});
  mem_Statistics before = mem_GetStatistics();
  {
    fesD_NodalDofDefinition def(masks, 3, 0, false);
    const int solverMasks[] = {0b001, 0b100, 0b010};
    for (int round = 0; round < 3; ++round) {
      def.SetupSolverDofs(4, nullptr);
      def.SetupSolverDofs(nullptr, solverMasks);
    }
  }
  mem_Statistics after = mem_GetStatistics();
  // Everything allocated since, and the adopted mask array, went back.
  EXPECT_EQ(after.frees - before.frees, after.allocations - before.allocations + 1);
}

// A database file holding the masks of a mesh as the FE system keeps them
// (StoreInts: a node collection, the node order as an ordered set, one int32
// per node).
class MaskDatabase : public ::testing::Test {
 protected:
  void SetUp() override {
    m_file = m_dir.File("masks.h5");
    m_context = QELSimManager::CreateContext(m_file.c_str(), hdf_File::Exclusive, 0, false, 0);
    ASSERT_NE(m_context.Number(), -1);
  }
  void TearDown() override { QELSimManager::CloseContext(m_context); }

  // An ordered set of `members` of a new collection of `size` DOFs.
  QELSimCSetID StoreOrdering(int size, const Ints& members) {
    QELSimCollectionRef dofs(QELSimCollectionRef::Create(m_context, size));
    return dofs.CreateOrderedCSet(members.data(), static_cast<int>(members.size()));
  }
  static Ints Members(QELSimCSetID id) {
    QELSimCSet set(id);
    Ints members(set.Size());
    set.OrderedMembers(members.data());
    return members;
  }

  ScratchDir m_dir;
  std::string m_file;
  QELSimContextID m_context;
};

// Both constructors, and every setup form, on a mesh without nodes.
TEST_F(MaskDatabase, NoNodes) {
  fesD_NodalDofDefinition def(nullptr, 0, 0, false);
  EXPECT_EQ(def.NumberOfDofs(), 0);
  EXPECT_EQ(def.MaxNodalDof(), 0);
  def.SetupSolverDofs(0, nullptr);
  EXPECT_EQ(def.NumberOfSolverDofs(), 0);
  def.SetupSolverDofs(nullptr, nullptr);
  EXPECT_EQ(def.NumberOfSolverDofs(), 0);
  int count = -1;
  int* dofs = def.SolverDofsFromNodes(nullptr, count);
  EXPECT_EQ(count, 0);
  EXPECT_NE(dofs, nullptr);
  mem_Free(dofs);

  fesD_NodalDofDefinition stored(StoreInts(m_context, {}), 0, false);
  EXPECT_EQ(stored.NumberOfNodes(), 0);
  EXPECT_EQ(stored.NumberOfDofs(), 0);
  stored.SetupSolverDofs(StoreOrdering(0, {}));
  EXPECT_EQ(stored.NumberOfSolverDofs(), 0);
}

// The stored masks are prepared on reading, not changed in the file. (The
// distribution form's numbering is checked against the reference below.)
TEST_F(MaskDatabase, MasksFromADistributionArePreparedOnReading) {
  QELSimDistributionID masks = StoreInts(m_context, {0x80, 0x3});
  fesD_NodalDofDefinition acoustic(masks, 16, true);
  EXPECT_EQ(Ints(acoustic.ActivityMasks(), acoustic.ActivityMasks() + 2),
            Ints({0x2800280, 0x30003}));
  fesD_NodalDofDefinition again(masks, 0, false);
  EXPECT_EQ(Ints(again.ActivityMasks(), again.ActivityMasks() + 2), Ints({0x80, 0x3}));
}

// The ordered-set form on random masks, against the reference. Only the
// solver's part is written back, in solver order. (Sets surviving a reopen:
// QELSimService.StoresCollectionsSetsAndDistributionsAcrossReopening.)
TEST_F(MaskDatabase, OrderedSetFormMatchesTheReferenceAndIsWrittenBack) {
  std::mt19937 rng(11);
  Ints masks(500);
  for (int& m : masks) m = static_cast<int>(rng() & 0x80BF);  // labels 1-6, 8 and 16
  Reference ref(masks, 0, true);
  fesD_NodalDofDefinition def(StoreInts(m_context, masks), 0, true);
  CheckNodal(def, ref, rng);

  Ints ordering(def.NumberOfDofs());
  std::iota(ordering.begin(), ordering.end(), 0);
  std::shuffle(ordering.begin(), ordering.end(), rng);
  ordering.resize(ordering.size() * 2 / 3);
  def.SetupSolverDofs(StoreOrdering(def.NumberOfDofs(), ordering));
  SolverPart part = ref.Part(ordering);
  EXPECT_GT(part.acoustic, 0);
  CheckSolver(def, ref, part, rng);

  QELSimCSetID written =
      def.WritePermutation(QELSimCollectionRef::Create(m_context, def.NumberOfDofs()));
  EXPECT_EQ(Members(written), ordering);

  // A second ordering replaces the first one in the same table.
  Ints reversed(def.NumberOfDofs());
  std::iota(reversed.rbegin(), reversed.rend(), 0);
  def.SetupSolverDofs(StoreOrdering(def.NumberOfDofs(), reversed));
  CheckSolver(def, ref, ref.Part(reversed), rng);
}

// The C runtime's own report: "<program>: <file>:<line>: <function>: Assertion `...' failed."
const std::string kFailed = "nodal_dofs_test: [^\n]*/fes/dpa/impl/fesD_NodalDofDefinition\\.";
const char* kCount = "THE SOLVER AND FE MESH HAVE AN INCONSISTENT NUMBER OF DOFS\\.\n";
const char* kNotActive = "ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF\\.\n";

TEST(NodalDofsDeathTest, SolverQueriesBeforeSetupStop) {
  fesD_NodalDofDefinition def(Masks({0b1}), 1, 0, false);
  const std::string kAssert = "^" + kFailed +
                              "h:[0-9]+: void fesD_NodalDofDefinition::RequireSolverDofs\\(\\) "
                              "const: Assertion `m_solverToSystemId' failed\\.\n";
  int out[1] = {0};
  bool selected[1] = {true};
  int count = 0;
  EXPECT_DEATH(def.NumberOfSolverDofs(), kAssert);
  EXPECT_DEATH(def.NumberOfSolverAcousticDofs(), kAssert);
  EXPECT_DEATH(def.SystemDofFromSolverDof(0), kAssert);
  EXPECT_DEATH(def.NodeDofFromSolverDof(0), kAssert);
  EXPECT_DEATH(def.SolverDofIdFromSystemDofId(0), kAssert);
  EXPECT_DEATH(def.SystemDofIdFromSolverDofId(0), kAssert);
  EXPECT_DEATH(def.MappingToSolverDofs(out), kAssert);
  EXPECT_DEATH(def.MapToSolverDofs(out, 1), kAssert);
  EXPECT_DEATH(def.SolverDofsFromNodes(selected, count), kAssert);
}

TEST(NodalDofsDeathTest, ArrayFormRejectsOrderingsThatAreNoPermutation) {
  fesD_NodalDofDefinition def(Masks({0b011, 0b101}), 2, 0, false);
  const int duplicate[] = {1, 1}, beyond[] = {0, 4}, negative[] = {-1}, huge[] = {1 << 30};
  EXPECT_DEATH(def.SetupSolverDofs(2, duplicate), kCount);
  EXPECT_DEATH(def.SetupSolverDofs(2, beyond), kNotActive);
  EXPECT_DEATH(def.SetupSolverDofs(1, negative), kNotActive);
  EXPECT_DEATH(def.SetupSolverDofs(1, huge), kNotActive);
  EXPECT_DEATH(def.SetupSolverDofs(5, nullptr), kCount);  // more than there are
  EXPECT_DEATH(def.SetupSolverDofs(-1, nullptr), kCount);

  // Long orderings: a bad entry anywhere, even the last of an odd count.
  fesD_NodalDofDefinition wide(Masks(Ints(700, 0b111)), 700, 0, false);
  for (int at : {0, 3, 511, 512, 1000, 2099}) {
    SCOPED_TRACE(at);
    Ints order(2100);
    std::iota(order.begin(), order.end(), 0);
    order[at] = 2100;
    EXPECT_DEATH(wide.SetupSolverDofs(at + 1, order.data()), kNotActive);
    order[at] = -5;
    EXPECT_DEATH(wide.SetupSolverDofs(2100, order.data()), kNotActive);
    order[at] = (at + 1) % 2100;
    EXPECT_DEATH(wide.SetupSolverDofs(2100, order.data()), kCount);
  }
}

TEST(NodalDofsDeathTest, NodeMaskFormRejectsLabelsTheNodeLacks) {
  fesD_NodalDofDefinition def(Masks({0b011, 0b101}), 2, 0, false);
  // Label 2 exists at node 0 only; label 4 exists nowhere; label 32 never.
  const int lacking[] = {0b001, 0b010}, unknown[] = {0b1000, 0}, sign[] = {0, -2147483647 - 1};
  const std::string kInvalid =
      "ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF\\.\nSOLVER/MESH DOF MASK: ";
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, lacking), kInvalid + "2 / 5\n");
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, unknown), kInvalid + "8 / 3\n");
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, sign), kInvalid + "-2147483648 / 5\n");
}

TEST(NodalDofsDeathTest, NodeMaskFormRejectsRanksThatAreNoPermutation) {
  fesD_NodalDofDefinition def(Masks({0b1, 0b1, 0b1}), 3, 0, false);
  const int solverMasks[] = {1, 1, 1};
  const int repeated[] = {1, 3, 1}, zero[] = {1, 0, 2}, beyond[] = {1, 2, 4};
  const std::string kRank = "INVALID NODE RANK IN THE SOLVER NODE ORDER\\.\nNODE / RANK: ";
  EXPECT_DEATH(def.SetupSolverDofs(repeated, solverMasks), kRank + "2 / 1\n");
  EXPECT_DEATH(def.SetupSolverDofs(zero, solverMasks), kRank + "1 / 0\n");
  EXPECT_DEATH(def.SetupSolverDofs(beyond, solverMasks), kRank + "2 / 4\n");
  // The first node at fault is named, whichever fault comes later.
  const int repeatedFirst[] = {1, 1, 9}, beyondFirst[] = {1, 9, 1};
  EXPECT_DEATH(def.SetupSolverDofs(repeatedFirst, solverMasks), kRank + "1 / 1\n");
  EXPECT_DEATH(def.SetupSolverDofs(beyondFirst, solverMasks), kRank + "1 / 9\n");
  fesD_NodalDofDefinition nine(Masks(Ints(9, 0b1)), 9, 0, false);
  const int nineMasks[] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  const int lastRepeated[] = {9, 2, 3, 4, 5, 6, 7, 8, 8};
  EXPECT_DEATH(nine.SetupSolverDofs(lastRepeated, nineMasks), kRank + "8 / 8\n");
}

TEST(NodalDofsDeathTest, ConstructionRejectsLabel32AndBadNodeCounts) {
  const std::string kLabel32 = "NODAL DOF MASK WITH LABEL 32 SET\\.\nNODE / MASK: ";
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0b1, 0, -2147483647}), 3, 0, false),
               kLabel32 + "2 / -2147483647\n");
  // Label 31 shifted by one lands on label 32.
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0x40000000}), 1, 1, false),
               kLabel32 + "0 / -1073741824\n");
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0x40000000}), 1, -31, false),
               kLabel32 + "0 / -1073741824\n");
  // Refused before the masks are read, so a short array does not matter here.
  const std::string kNodes =
      "NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING\\.\nNODES / LIMIT: ";
  EXPECT_DEATH(fesD_NodalDofDefinition(nullptr, -1, 0, false), kNodes + "-1 / 16777215\n");
  EXPECT_DEATH(fesD_NodalDofDefinition(nullptr, 16777216, 0, false),
               kNodes + "16777216 / 16777215\n");
}

using MaskDatabaseDeathTest = MaskDatabase;

TEST_F(MaskDatabaseDeathTest, DistributionMustHaveOneDrawer) {
  // The null identifier names no distribution: the service reports it and
  // counts no drawers.
  EXPECT_DEATH(fesD_NodalDofDefinition(QELSimDistributionID(), 0, false),
               "\\*\\*ERROR QELSimDistributionRef::NumDrawers: null distribution identifier\n" +
                   kFailed +
                   "cpp:[0-9]+: fesD_NodalDofDefinition::fesD_NodalDofDefinition\\("
                   "QELSimDistributionID, int, bool\\): Assertion "
                   "`distribution\\.NumDrawers\\(\\) == 1' failed\\.\n");
}

TEST_F(MaskDatabaseDeathTest, OrderingNamingDofsTheMeshLacks) {
  fesD_NodalDofDefinition def(StoreInts(m_context, {0b011, 0b101}), 0, false);
  QELSimCSetID beyond = StoreOrdering(10, {1, 7});
  EXPECT_DEATH(def.SetupSolverDofs(beyond), kNotActive);
  QELSimCSetID tooMany = StoreOrdering(10, {0, 1, 2, 3, 4});  // the mesh has 4 DOFs
  EXPECT_DEATH(def.SetupSolverDofs(tooMany), kCount);
}

TEST_F(MaskDatabaseDeathTest, WritePermutationNeedsAnOrdering) {
  fesD_NodalDofDefinition def(StoreInts(m_context, {0b1}), 0, false);
  QELSimCollectionID dofs = QELSimCollectionRef::Create(m_context, 1);
  EXPECT_DEATH(def.WritePermutation(dofs), ": Assertion `m_solverToSystemId' failed\\.\n");
}

}  // namespace
