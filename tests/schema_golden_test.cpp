// The stored form of a whole database, compared with expectations written
// out here from the member tables: every group's name, children and "class"
// attribute, and every "#simpleTypeMembers" byte by byte. This pins, for all
// nine classes, the save order, the member indices (ranks of the byte-sorted
// member names) and the type bytes, so that a change to any of them (and
// with it the file format) cannot go unnoticed.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "fes/fes.h"
#include "sim_schema/sim_schema.h"
#include "support/capture.h"
#include "support/h5_raw.h"
#include "support/scratch_dir.h"

namespace {

const unsigned kNull = 0xFFFFFFFFu;

// Expected member records, one per call, in the order they are made. Each
// record is the member tag (0x03 and the index), the value's type byte and
// the value; the type byte of each kind of value is spelled out here.
class Records {
 public:
  typedef std::pair<unsigned, unsigned> SetId;  // collection, set

  Records& Int(int index, int value) {
    Tag(index, 0x03);
    PutInt(m_body, value);
    return *this;
  }
  Records& Real(int index, double value) {
    Tag(index, 0x06);
    PutDouble(m_body, value);
    return *this;
  }
  Records& Text(int index, const std::string& value) {
    Tag(index, 0x07);
    PutString(m_body, value);
    return *this;
  }
  Records& Collection(int index, unsigned minor) {
    Tag(index, 0x08);
    PutId(m_body, 1, minor);
    return *this;
  }
  Records& Set(int index, SetId id) {
    Tag(index, 0x09);
    PutId(m_body, 2, id.first, id.second);
    return *this;
  }
  Records& Distribution(int index, unsigned minor) {
    Tag(index, 0x0A);
    PutId(m_body, 3, minor);
    return *this;
  }
  // ada_MapString<QELSimCSetID>: count, then key and value per entry in key order.
  Records& SetsByName(int index, const std::vector<std::pair<std::string, SetId>>& entries) {
    Tag(index, 0x39);
    PutInt(m_body, static_cast<int>(entries.size()));
    for (const auto& e : entries) {
      PutString(m_body, e.first);
      PutId(m_body, 2, e.second.first, e.second.second);
    }
    return *this;
  }
  // ada_MapString<QELSimDistributionID>.
  Records& FieldsByName(int index, const std::vector<std::pair<std::string, unsigned>>& entries) {
    Tag(index, 0x3A);
    PutInt(m_body, static_cast<int>(entries.size()));
    for (const auto& e : entries) {
      PutString(m_body, e.first);
      PutId(m_body, 3, e.second);
    }
    return *this;
  }
  // ada_MapInt<QELSimDistributionID>: the keys are plain ints.
  Records& FieldsByNumber(int index, const std::vector<std::pair<int, unsigned>>& entries) {
    Tag(index, 0x4A);
    PutInt(m_body, static_cast<int>(entries.size()));
    for (const auto& e : entries) {
      PutInt(m_body, e.first);
      PutId(m_body, 3, e.second);
    }
    return *this;
  }
  Bytes Stream() const { return ::Stream(m_body); }

 private:
  void Tag(int index, unsigned char type) {
    m_body.push_back(0x03);
    PutInt(m_body, index);
    m_body.push_back(type);
  }
  Bytes m_body;
};

const Records::SetId kNoSet(kNull, kNull);

class Golden : public testing::Test {
 protected:
  // Every value below is distinct, so that a member stored in another's
  // place shows up.
  void Build() {
    msfD_Root root(0);
    msfD_Sim sim = root.createSim(file.c_str(), "golden", 0);
    const int c = sim.distributionService().Context().Number();
    auto coll = [c](unsigned n) { return QELSimCollectionID(c, n); };
    auto set = [c](unsigned collection, unsigned n) { return QELSimCSetID(c, collection, n); };
    auto field = [c](unsigned n) { return QELSimDistributionID(c, n); };

    msfD_DiscreteModel model = sim.DiscreteModel(msfD_DiscreteModel::New(coll(1), coll(2), 0));
    model.Frames(coll(3));
    ada_MapString<QELSimCSetID> corners;
    corners.insert("corner", set(2, 5));
    model.LocalNodeSets(corners);

    msfD_Mesh mesh = model.Mesh(msfD_Mesh::New(coll(2), coll(4), 0));
    ada_MapString<QELSimCSetID> nodeSets;
    nodeSets.insert("fixed", set(2, 6));
    nodeSets.insert("all", set(2, 7));
    mesh.NodeSets(nodeSets);
    ada_MapString<QELSimDistributionID> elementFields;
    elementFields.insert("material", field(8));
    mesh.ElementFields(elementFields);
    auto systems = mesh.systems();

    fesD_FESystem plain = systems.add(fesD_FESystem::New("plain", field(10), field(11), 0));
    ada_MapInt<QELSimDistributionID> byNumber;
    byNumber.insert(2, field(12));
    byNumber.insert(-1, field(13));
    plain.Distributions(byNumber);
    ada_MapString<QELSimDistributionID> byName;
    byName.insert("temp", field(14));
    plain.UserDistributions(byName);

    systems.add(
        fesD_GenericSystem::New("gen", field(10), QELSimDistributionID(), coll(20), coll(21), 0)
            .ReleaseAsFESystem());

    fesD_ModalSystemHolder modal =
        fesD_ModalSystem::New("modal", field(10), field(11), coll(22), coll(23), 0);
    modal.Get().PropertyEvaluation(293.15);
    modal.Get().SolverDofOrdering(set(22, 1));
    modal.Get().StructuralModes(set(23, 2));
    fesD_ModalEvent event =
        modal.Get().events().add(fesD_ModalEvent::New("eigen", -4, coll(24), coll(25), 0));
    event.ActiveModes(set(23, 3));
    ada_MapString<QELSimDistributionID> shapes;
    shapes.insert("shape", field(26));
    event.UserDistributions(shapes);
    systems.add(modal.ReleaseAsFESystem());

    fesD_SubstructureSystemHolder sub = fesD_SubstructureSystem::New(
        "super", field(10), field(11), coll(27), coll(28), coll(29), 0);
    sub.Get().RetainedNodes(set(2, 9));
    fesD_SubDamp damping = sub.Get().Damping(fesD_SubDamp::New(0));
    damping.Alpha(0.5);
    damping.Beta(0.25);
    damping.Mass(2.0);
    damping.Structural(0.125);
    damping.Volume(-1.0);
    systems.add(sub.ReleaseAsFESystem());
  }

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

  ScratchDir dir;
  std::string file = dir.File("golden.sim");
};

const char kModel[] = "/sim/discreteModel";
const char kMesh[] = "/sim/discreteModel/mesh";
const char kSystems[] = "/sim/discreteModel/mesh/systems";

std::string At(const char* base, const std::string& rest) {
  return std::string(base) + rest;
}

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
  ExpectGroup(kSystems, "<none>", {"0", "1", "2", "3"});
  EXPECT_EQ(RawInts(file, kSystems, "#size"), std::vector<int>{4});
  ExpectGroup(At(kSystems, "/0"), "com.trevolo.FESystem", {members});
  ExpectGroup(At(kSystems, "/1"), "com.trevolo.GenericSystem", {"#base", members});
  ExpectGroup(At(kSystems, "/2"), "com.trevolo.ModalSystem", {"#base", members, "events"});
  ExpectGroup(At(kSystems, "/3"), "com.trevolo.SubstructureSystem", {"#base", members, "damping"});
  for (const char* derived : {"/1/#base", "/2/#base", "/3/#base"}) {
    ExpectGroup(At(kSystems, derived), "com.trevolo.FESystem", {members});
  }
  ExpectGroup(At(kSystems, "/2/events"), "<none>", {"0"});
  EXPECT_EQ(RawInts(file, At(kSystems, "/2/events"), "#size"), std::vector<int>{1});
  ExpectGroup(At(kSystems, "/2/events/0"), "com.trevolo.ModalEvent", {members});
  ExpectGroup(At(kSystems, "/3/damping"), "com.trevolo.SubDamp", {members});
}

TEST_F(Golden, MembersAreStoredInSaveOrderWithSortedIndicesAndTypeBytes) {
  Build();
  // Discrete model: components 0, frames 1, integrationPoints 2, localFaces 3,
  // localNodeSets 4, localNodes 5, (mesh 6), sectionPointSets 7, sectionPoints 8, vectors 9.
  ExpectMembers(kModel, Records()
                            .Collection(9, 1)
                            .Collection(5, 2)
                            .Collection(3, kNull)
                            .Collection(1, 3)
                            .Collection(2, kNull)
                            .Collection(8, kNull)
                            .Collection(0, kNull)
                            .SetsByName(4, {{"corner", {2, 5}}})
                            .SetsByName(7, {}));
  // Mesh: map entries come in key order, whatever order they were inserted in.
  ExpectMembers(kMesh, Records()
                           .Collection(12, 2)
                           .Collection(2, 4)
                           .Collection(3, kNull)
                           .Collection(6, kNull)
                           .Collection(15, kNull)
                           .Set(7, kNoSet)
                           .SetsByName(11, {{"all", {2, 7}}, {"fixed", {2, 6}}})
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
  // FE system: distributions 0, nodalActivityMask 1, nodalLabels 2,
  // systemName 3, userDistributions 4.
  ExpectMembers(At(kSystems, "/0"), Records()
                                        .Text(3, "plain")
                                        .Distribution(2, 10)
                                        .Distribution(1, 11)
                                        .FieldsByNumber(0, {{-1, 13}, {2, 12}})
                                        .FieldsByName(4, {{"temp", 14}}));
  // Derived systems keep only their own members; the FE system part is in "#base".
  ExpectMembers(At(kSystems, "/1"), Records().Collection(0, 20).Collection(1, 21));
  ExpectMembers(At(kSystems, "/1/#base"), Records()
                                              .Text(3, "gen")
                                              .Distribution(2, 10)
                                              .Distribution(1, kNull)
                                              .FieldsByNumber(0, {})
                                              .FieldsByName(4, {}));
  // Modal system: acousticModes 0, dofs 1, (events 2), modes 3,
  // propertyEvaluation 4, residualModeDofs 5, residualModes 6,
  // selectiveRecoveryNodes 7, solverDofOrdering 8, structuralModes 9.
  ExpectMembers(At(kSystems, "/2"), Records()
                                        .Collection(1, 22)
                                        .Collection(3, 23)
                                        .Real(4, 293.15)
                                        .Set(8, {22, 1})
                                        .Set(7, kNoSet)
                                        .Set(5, kNoSet)
                                        .Set(6, kNoSet)
                                        .Set(9, {23, 2})
                                        .Set(0, kNoSet));
  ExpectMembers(At(kSystems, "/2/#base"), Records()
                                              .Text(3, "modal")
                                              .Distribution(2, 10)
                                              .Distribution(1, 11)
                                              .FieldsByNumber(0, {})
                                              .FieldsByName(4, {}));
  // Modal event: activeModes 0, cases 1, distributions 2, eventName 3,
  // eventTypeID 4, frames 5, userDistributions 6.
  ExpectMembers(At(kSystems, "/2/events/0"), Records()
                                                 .Text(3, "eigen")
                                                 .Int(4, -4)
                                                 .Set(0, {23, 3})
                                                 .Collection(5, 24)
                                                 .Collection(1, 25)
                                                 .FieldsByNumber(2, {})
                                                 .FieldsByName(6, {{"shape", 26}}));
  // Substructure: (damping 0), dofTypes 1, dofs 2, modes 3, recoveryElements 4,
  // recoveryNodes 5, retainedDofs 6, retainedNodes 7.
  ExpectMembers(At(kSystems, "/3"), Records()
                                        .Collection(1, 27)
                                        .Collection(2, 28)
                                        .Collection(3, 29)
                                        .Set(7, {2, 9})
                                        .Set(6, kNoSet)
                                        .Set(5, kNoSet)
                                        .Set(4, kNoSet));
  ExpectMembers(At(kSystems, "/3/#base"), Records()
                                              .Text(3, "super")
                                              .Distribution(2, 10)
                                              .Distribution(1, 11)
                                              .FieldsByNumber(0, {})
                                              .FieldsByName(4, {}));
  // Damping: saved alpha, beta, structural, mass, volume; indexed alpha 0,
  // beta 1, mass 2, structural 3, volume 4.
  ExpectMembers(At(kSystems, "/3/damping"),
                Records().Real(0, 0.5).Real(1, 0.25).Real(3, 0.125).Real(2, 2.0).Real(4, -1.0));
}

TEST_F(Golden, TheStoredTreeReadsBackAsBuilt) {
  Build();
  msfD_Root root(0);
  CaptureErr err;
  msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
  const int c = sim.distributionService().Context().Number();
  auto systems = sim.discreteModel().mesh().systems();
  ASSERT_EQ(systems.count(), 4);
  fesD_FESystem plain = systems.get(0);
  EXPECT_EQ(plain.distributions().get(-1), QELSimDistributionID(c, 13));
  fesD_ModalSystem modal(systems.get(2));
  EXPECT_EQ(modal.propertyEvaluation(), 293.15);
  EXPECT_EQ(modal.events().get(0).eventTypeID(), -4);
  fesD_SubDamp damping = fesD_SubstructureSystem(systems.get(3)).damping();
  EXPECT_EQ(damping.structural(), 0.125);
  EXPECT_EQ(damping.mass(), 2.0);
  EXPECT_EQ(damping.volume(), -1.0);
  EXPECT_EQ(fesD_GenericSystem(systems.get(1)).loads(), QELSimCollectionID(c, 21));
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
