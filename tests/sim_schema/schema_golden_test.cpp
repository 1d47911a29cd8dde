// The stored form of the sample database, compared with expectations
// written out here from the member tables: every group's name, children and
// "class" attribute, and every "#simpleTypeMembers" byte by byte. This pins,
// for all nine classes, the save order, the member indices (ranks of the
// byte-sorted member names) and the type bytes, so that a change to any of
// them (and with it the file format) cannot go unnoticed. (The values read
// back are checked in derived_systems_test.cpp.)
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/sample_sim.h"

namespace {

const unsigned kNull = 0xFFFFFFFFu;
const Records::SetId kNoSet(kNull, kNull);

// FE system: distributions 0, nodalActivityMask 1, nodalLabels 2,
// systemName 3, userDistributions 4.
Records FESystem(const std::string& name, unsigned labels, unsigned mask,
                 const std::vector<std::pair<int, unsigned>>& byNumber,
                 const std::vector<std::pair<std::string, unsigned>>& byName) {
  return Records()
      .Text(3, name)
      .Distribution(2, labels)
      .Distribution(1, mask)
      .FieldsByNumber(0, byNumber)
      .FieldsByName(4, byName);
}

class Golden : public SampleSim {
 protected:
  void ExpectGroup(const std::string& group, const std::string& cls,
                   const std::vector<std::string>& children) {
    SCOPED_TRACE(group);
    EXPECT_EQ(RawClass(file, group), cls);
    EXPECT_EQ(RawChildren(file, group), children);
  }
  void ExpectMembers(const std::string& group, const Records& records) {
    SCOPED_TRACE(group);
    EXPECT_EQ(RawDatasetBytes(file, group + "/#simpleTypeMembers"), records.Stream());
  }
};

TEST_F(Golden, GroupsAndClassesFormTheDocumentedTree) {
  CaptureErr err;
  Build();
  EXPECT_EQ(err.Take(), "");
  const std::string members = "#simpleTypeMembers";
  ExpectGroup("/sim", "com.trevolo.Sim", {"discreteModel"});
  EXPECT_EQ(RawInts(file, "/sim", "type"), (std::vector<int>{1523728409, 0}));
  ExpectGroup(kModel, "com.trevolo.DiscreteModel", {members, "mesh"});
  ExpectGroup(kMesh, "com.trevolo.Mesh", {members, "systems"});
  // Repositories carry a size and no class.
  ExpectGroup(kSystems, "<none>", {"0", "1", "2", "3", "4"});
  EXPECT_EQ(RawInts(file, kSystems, "#size"), std::vector<int>{5});
  ExpectGroup(kSystems + "/0", "com.trevolo.FESystem", {members});
  ExpectGroup(kSystems + "/1", "com.trevolo.GenericSystem", {"#base", members});
  ExpectGroup(kSystems + "/2", "com.trevolo.ModalSystem", {"#base", members, "events"});
  ExpectGroup(kSystems + "/3", "com.trevolo.SubstructureSystem", {"#base", members, "damping"});
  ExpectGroup(kSystems + "/4", "com.trevolo.SubstructureSystem", {"#base", members});
  for (const char* derived : {"/1/#base", "/2/#base", "/3/#base", "/4/#base"}) {
    ExpectGroup(kSystems + derived, "com.trevolo.FESystem", {members});
  }
  ExpectGroup(kSystems + "/2/events", "<none>", {"0", "1"});
  EXPECT_EQ(RawInts(file, kSystems + "/2/events", "#size"), std::vector<int>{2});
  ExpectGroup(kSystems + "/2/events/0", "com.trevolo.ModalEvent", {members});
  ExpectGroup(kSystems + "/3/damping", "com.trevolo.SubDamp", {members});
}

TEST_F(Golden, MembersAreStoredInSaveOrderWithSortedIndicesAndTypeBytes) {
  Build();
  // Discrete model: components 0, frames 1, integrationPoints 2, localFaces 3,
  // localNodeSets 4, localNodes 5, (mesh 6), sectionPointSets 7, sectionPoints 8, vectors 9.
  ExpectMembers(kModel, Records()
                            .Collection(9, 1)
                            .Collection(5, 2)
                            .Collection(3, kNull)
                            .Collection(1, 5)
                            .Collection(2, kNull)
                            .Collection(8, kNull)
                            .Collection(0, kNull)
                            .SetsByName(4, {{"corner", {2, 5}}})
                            .SetsByName(7, {}));
  // Mesh: map entries come in key order, whatever order they were inserted in.
  ExpectMembers(kMesh, Records()
                           .Collection(12, 3)
                           .Collection(2, 4)
                           .Collection(3, kNull)
                           .Collection(6, kNull)
                           .Collection(15, kNull)
                           .Set(7, kNoSet)
                           .SetsByName(11, {{"all", {3, 7}}, {"fixed", {3, 6}}})
                           .SetsByName(1, {})
                           .SetsByName(5, {})
                           .SetsByName(14, {})
                           .FieldsByName(9, {})
                           .FieldsByName(17, {})
                           .FieldsByName(4, {})
                           .FieldsByName(10, {})
                           .FieldsByName(0, {{"material", 8}})
                           .FieldsByName(16, {})
                           .FieldsByName(13, {})
                           .FieldsByName(8, {}));
  ExpectMembers(kSystems + "/0", FESystem("plain", 1, 2, {{-1, 4}, {7, 3}}, {{"temp", 5}}));
  // Derived systems keep only their own members; the FE system part is in "#base".
  ExpectMembers(kSystems + "/1", Records().Collection(0, 13).Collection(1, 14));
  ExpectMembers(kSystems + "/1/#base", FESystem("generic", 11, 12, {}, {}));
  // Modal system: acousticModes 0, dofs 1, (events 2), modes 3,
  // propertyEvaluation 4, residualModeDofs 5, residualModes 6,
  // selectiveRecoveryNodes 7, solverDofOrdering 8, structuralModes 9.
  ExpectMembers(kSystems + "/2", Records()
                                     .Collection(1, 23)
                                     .Collection(3, 24)
                                     .Real(4, -0.125)
                                     .Set(8, {25, 1})
                                     .Set(7, {25, 2})
                                     .Set(5, {25, 3})
                                     .Set(6, {25, 4})
                                     .Set(9, {25, 5})
                                     .Set(0, {25, 6}));
  ExpectMembers(kSystems + "/2/#base", FESystem("modal", 21, 22, {}, {}));
  // Modal event: activeModes 0, cases 1, distributions 2, eventName 3,
  // eventTypeID 4, frames 5, userDistributions 6.
  ExpectMembers(kSystems + "/2/events/0", Records()
                                              .Text(3, "e0")
                                              .Int(4, -7)
                                              .Set(0, {24, 1})
                                              .Collection(5, 26)
                                              .Collection(1, 27)
                                              .FieldsByNumber(2, {})
                                              .FieldsByName(6, {{"x", 28}, {"y", 29}}));
  ExpectMembers(kSystems + "/2/events/1", Records()
                                              .Text(3, "e1")
                                              .Int(4, INT_MIN)
                                              .Set(0, kNoSet)
                                              .Collection(5, 30)
                                              .Collection(1, 31)
                                              .FieldsByNumber(2, {})
                                              .FieldsByName(6, {}));
  // Substructure: (damping 0), dofTypes 1, dofs 2, modes 3, recoveryElements 4,
  // recoveryNodes 5, retainedDofs 6, retainedNodes 7.
  ExpectMembers(kSystems + "/3", Records()
                                     .Collection(1, 43)
                                     .Collection(2, 44)
                                     .Collection(3, 45)
                                     .Set(7, {46, 1})
                                     .Set(6, {46, 2})
                                     .Set(5, {46, 3})
                                     .Set(4, {46, 4}));
  ExpectMembers(kSystems + "/3/#base", FESystem("sub", 41, 42, {}, {{"x", 28}, {"y", 29}}));
  // Damping: saved alpha, beta, structural, mass, volume; indexed alpha 0,
  // beta 1, mass 2, structural 3, volume 4.
  ExpectMembers(kSystems + "/3/damping", Records()
                                             .Real(0, kAlpha)
                                             .Real(1, kBeta)
                                             .Real(3, kStructural)
                                             .Real(2, kMass)
                                             .Real(4, kVolume));
  ExpectMembers(kSystems + "/4", Records()
                                     .Collection(1, 53)
                                     .Collection(2, 54)
                                     .Collection(3, 55)
                                     .Set(7, kNoSet)
                                     .Set(6, kNoSet)
                                     .Set(5, kNoSet)
                                     .Set(4, kNoSet));
  ExpectMembers(kSystems + "/4/#base", FESystem("bare", 51, kNull, {}, {}));
}

}  // namespace
