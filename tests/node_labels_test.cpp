// Node label conversions on label distributions stored by the database
// service: both directions, duplicate and non-positive labels, no nodes, and
// a system whose labels distribution is missing (a message, then no nodes).
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "fes/fes.h"
#include "platform/service/QELSimService.h"
#include "sim_schema/sim_schema.h"
#include "support/capture.h"
#include "support/scratch_dir.h"

namespace {

class NodeLabels : public testing::Test {
 protected:
  NodeLabels() : root(0) {
    sim = root.createSim(file.c_str(), "", 0);
    context = sim.distributionService().Context();
  }

  // A distribution holding `labels`, one per node, over all nodes in order.
  QELSimDistributionID Labels(const std::vector<int>& labels) {
    const int n = static_cast<int>(labels.size());
    std::vector<int> order(n);
    std::iota(order.begin(), order.end(), 0);
    QELSimCollectionRef nodes(QELSimCollectionRef::Create(context, n));
    return QELSimDistributionRef::CreateInt32(nodes.CreateOrderedCSet(order.data(), n),
                                              labels.data());
  }
  fesD_FESystemHolder System(QELSimDistributionID labels) {
    return fesD_FESystem::New("s", labels, QELSimDistributionID(), 0);
  }

  // The converted arrays, copied out and released as a caller must. Their
  // lengths are the counts the calls give (node count, highest label + 1).
  static std::vector<int> Forward(fesD_FESystem system) {
    int count = -1;
    int* array = fesD_Utilities::InternalToUserNodes(system, count);
    std::vector<int> out(array, array + count);
    mem_Free(array);
    return out;
  }
  static std::vector<int> Inverse(fesD_FESystem system) {
    int maxLabel = -1;
    int* array = fesD_Utilities::UserToInternalNodes(system, maxLabel);
    std::vector<int> out(array, array + maxLabel + 1);
    mem_Free(array);
    return out;
  }

  ScratchDir dir;
  std::string file = dir.File("labels.sim");
  msfD_Root root;
  msfD_Sim sim;
  QELSimContextID context;
};

TEST_F(NodeLabels, ConvertInBothDirections) {
  std::vector<int> tens(31, -1);
  tens[10] = 0;
  tens[20] = 1;
  tens[30] = 2;
  struct Case {
    const char* name;
    std::vector<int> labels, inverse;
  } cases[] = {
      {"ascending", {10, 20, 30}, tens},
      {"unordered", {3, 1, 2}, {-1, 1, 2, 0}},
      {"duplicate: the later node wins", {5, 5}, {-1, -1, -1, -1, -1, 1}},
      {"zero and negative labels are skipped", {0, -3}, {-1}},
      {"negative beside positive", {-7, 2}, {-1, -1, 1}},
      {"no nodes", {}, {-1}},
  };
  CaptureErr err;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fesD_FESystemHolder system = System(Labels(c.labels));
    EXPECT_EQ(Forward(system.Get()), c.labels);
    EXPECT_EQ(Inverse(system.Get()), c.inverse);
  }
  EXPECT_EQ(err.Take(), "");
}

TEST_F(NodeLabels, AMissingDistributionIsReportedAndGivesNoNodes) {
  const std::string notFound = "User node labels distribution not found!\n";
  const std::string nullId =
      "**ERROR QELSimDistributionRef::QueryDrawers: null distribution identifier\n";
  CaptureErr err;
  fesD_FESystemHolder nullLabels = System(QELSimDistributionID());
  EXPECT_TRUE(Forward(nullLabels.Get()).empty());
  EXPECT_EQ(err.Take(), notFound + nullId);
  EXPECT_EQ(Inverse(nullLabels.Get()), std::vector<int>{-1});
  EXPECT_EQ(err.Take(), notFound + nullId);

  // Any context counts as null once the last word is -1.
  fesD_FESystemHolder otherContext = System(QELSimDistributionID(context.Number(), 0xFFFFFFFFu));
  EXPECT_TRUE(Forward(otherContext.Get()).empty());
  EXPECT_EQ(err.Take(), notFound + nullId);

  EXPECT_TRUE(Forward(fesD_FESystem()).empty());
  EXPECT_EQ(err.Take(),
            "**ERROR fesD_FESystem::nodalLabels: called on an empty handle\n" + notFound + nullId);

  // An identifier that names nothing is not null: only the service speaks.
  fesD_FESystemHolder dangling = System(QELSimDistributionID(context.Number(), 99));
  EXPECT_EQ(Inverse(dangling.Get()), std::vector<int>{-1});
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimDistributionRef::QueryDrawers: no distribution 99 in context " +
                std::to_string(context.Number()) + "\n");
}

TEST_F(NodeLabels, StoredSystemsAreReadAfterReopeningAndDerivedOnesThroughTheirPart) {
  msfD_Mesh mesh =
      sim.DiscreteModel(msfD_DiscreteModel::New(QELSimCollectionID(), QELSimCollectionID(), 0))
          .Mesh(msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0));
  mesh.systems().add(System(Labels({4, 8})));
  mesh.systems().add(fesD_ModalSystem::New("m", Labels({2, 1, 2}), QELSimDistributionID(),
                                           QELSimCollectionID(), QELSimCollectionID(), 0)
                         .ReleaseAsFESystem());
  root.closeSim(sim);

  CaptureErr err;
  msfD_Sim reopened = root.openSimReadOnly(file.c_str(), "", 0);
  auto systems = reopened.discreteModel().mesh().systems();
  EXPECT_EQ(Forward(systems.get(0)), (std::vector<int>{4, 8}));
  EXPECT_EQ(Inverse(systems.get(0)), (std::vector<int>{-1, -1, -1, -1, 0, -1, -1, -1, 1}));
  fesD_ModalSystem modal(systems.get(1));
  ASSERT_FALSE(!modal);
  EXPECT_EQ(Inverse(modal), (std::vector<int>{-1, 1, 2}));
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
