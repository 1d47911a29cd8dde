// Node label conversions on label distributions stored by the database
// service: both directions, duplicate and non-positive labels, no nodes, and
// a system whose labels distribution is missing (a message, then no nodes).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/capture.h"
#include "support/sample_sim.h"

namespace {

class NodeLabels : public SampleSim {
 protected:
  QELSimDistributionID Labels(const std::vector<int>& labels) {
    return StoreInts(sim.distributionService().Context(), labels);
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

  msfD_Root root{0};
  msfD_Sim sim = Create(root);
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
  fesD_FESystemHolder otherContext = System(D(0xFFFFFFFFu));
  EXPECT_TRUE(Forward(otherContext.Get()).empty());
  EXPECT_EQ(err.Take(), notFound + nullId);

  EXPECT_TRUE(Forward(fesD_FESystem()).empty());
  EXPECT_EQ(err.Take(),
            "**ERROR fesD_FESystem::nodalLabels: called on an empty handle\n" + notFound + nullId);

  // An identifier that names nothing is not null: only the service speaks.
  fesD_FESystemHolder dangling = System(D(99));
  EXPECT_EQ(Inverse(dangling.Get()), std::vector<int>{-1});
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimDistributionRef::QueryDrawers: no distribution 99 in context " +
                std::to_string(context) + "\n");
}

TEST_F(NodeLabels, StoredSystemsAreReadAfterReopeningAndDerivedOnesThroughTheirPart) {
  msfD_Mesh mesh = NewMesh(sim);
  mesh.systems().add(System(Labels({4, 8})));
  mesh.systems().add(fesD_ModalSystem::New("m", Labels({2, 1, 2}), QELSimDistributionID(),
                                           QELSimCollectionID(), QELSimCollectionID(), 0)
                         .ReleaseAsFESystem());
  root.closeSim(sim);

  CaptureErr err;
  auto systems = Systems(root);
  EXPECT_EQ(Forward(systems.get(0)), (std::vector<int>{4, 8}));
  EXPECT_EQ(Inverse(systems.get(0)), (std::vector<int>{-1, -1, -1, -1, 0, -1, -1, -1, 1}));
  fesD_ModalSystem modal(systems.get(1));
  ASSERT_FALSE(!modal);
  EXPECT_EQ(Inverse(modal), (std::vector<int>{-1, 1, 2}));
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
