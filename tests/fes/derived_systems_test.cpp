// Generic, modal and substructure systems, modal events and damping, stored
// in a mesh: the FE system part in "#base" and the derived part beside it,
// conversions guarded by the stored class, the Bind and SetPath order of the
// two parts, paths and typed links into events and damping, and the
// damping slot's rules. (The stored bytes are pinned in schema_golden_test.cpp;
// with them, reading back every distinct value here pins the index each
// member loads from. Records in any order: schema_pattern_test.cpp.)
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "persistence/gbb_TypedLink.h"
#include "platform/service/QELSimService.h"
#include "support/capture.h"
#include "support/sample_sim.h"

namespace {

using DerivedSystems = SampleSim;

TEST_F(DerivedSystems, EveryKindRoundTripsThroughTheMeshArrayAsAnFESystem) {
  Build();
  msfD_Root root(0);
  CaptureErr err;
  auto systems = Systems(root);
  ASSERT_EQ(systems.count(), kSystemCount);

  // Every element is an FE system; exactly the matching conversion succeeds.
  const char* names[kSystemCount] = {"plain", "generic", "modal", "sub", "bare"};
  const unsigned labels[kSystemCount] = {1, 11, 21, 41, 51};
  for (int i = 0; i < kSystemCount; ++i) {
    SCOPED_TRACE(names[i]);
    fesD_FESystem system = systems.get(i);
    ASSERT_FALSE(!system);
    EXPECT_STREQ(system.systemName().cStr(), names[i]);
    EXPECT_EQ(system.nodalLabels(), D(labels[i]));
    if (i == kBareSub) {
      EXPECT_FALSE(system.nodalActivityMask().IsValid());
    } else {
      EXPECT_EQ(system.nodalActivityMask(), D(labels[i] + 1));
    }
    EXPECT_EQ(!fesD_GenericSystem(system), i != kGeneric);
    EXPECT_EQ(!fesD_ModalSystem(system), i != kModal);
    EXPECT_EQ(!fesD_SubstructureSystem(system), i != kSub && i != kBareSub);
    EXPECT_TRUE(gbb_Handle(system).Class().IsA(fesD_FESystemInterface::StaticClass()));
  }
  // (Maps are saved in key order, not insertion order: schema_golden_test.cpp.)
  fesD_FESystem plain = systems.get(kPlain);
  EXPECT_EQ(plain.distributions().get(-1), D(4));
  EXPECT_EQ(plain.distributions().get(7), D(3));
  EXPECT_EQ(plain.userDistributions().count(), 1);
  EXPECT_EQ(gbb_Handle(systems.get(kModal)).Class(), fesD_ModalSystemInterface::StaticClass());

  fesD_GenericSystem generic(systems.get(kGeneric));
  EXPECT_EQ(generic.dofs(), C(13));
  EXPECT_EQ(generic.loads(), C(14));

  fesD_ModalSystem modal(systems.get(kModal));
  EXPECT_STREQ(modal.systemName().cStr(), "modal");  // the base part of a derived handle
  EXPECT_EQ(modal.dofs(), C(23));
  EXPECT_EQ(modal.modes(), C(24));
  EXPECT_EQ(modal.propertyEvaluation(), -0.125);
  EXPECT_EQ(modal.solverDofOrdering(), S(25, 1));
  EXPECT_EQ(modal.selectiveRecoveryNodes(), S(25, 2));
  EXPECT_EQ(modal.residualModeDofs(), S(25, 3));
  EXPECT_EQ(modal.residualModes(), S(25, 4));
  EXPECT_EQ(modal.structuralModes(), S(25, 5));
  EXPECT_EQ(modal.acousticModes(), S(25, 6));
  ASSERT_EQ(modal.events().count(), 2);
  fesD_ModalEvent e0 = modal.events().get(0);
  EXPECT_STREQ(e0.eventName().cStr(), "e0");
  EXPECT_EQ(e0.eventTypeID(), -7);
  EXPECT_EQ(e0.activeModes(), S(24, 1));
  EXPECT_EQ(e0.frames(), C(26));
  EXPECT_EQ(e0.cases(), C(27));
  EXPECT_EQ(e0.distributions().count(), 0);
  EXPECT_EQ(e0.userDistributions().count(), 2);
  fesD_ModalEvent e1 = modal.events().get(1);
  EXPECT_STREQ(e1.eventName().cStr(), "e1");
  EXPECT_EQ(e1.eventTypeID(), INT_MIN);  // signed 32 bits
  EXPECT_FALSE(e1.activeModes().IsValid());

  fesD_SubstructureSystem sub(systems.get(kSub));
  EXPECT_EQ(sub.dofTypes(), C(43));
  EXPECT_EQ(sub.dofs(), C(44));
  EXPECT_EQ(sub.modes(), C(45));
  EXPECT_EQ(sub.retainedNodes(), S(46, 1));
  EXPECT_EQ(sub.retainedDofs(), S(46, 2));
  EXPECT_EQ(sub.recoveryNodes(), S(46, 3));
  EXPECT_EQ(sub.recoveryElements(), S(46, 4));
  EXPECT_EQ(sub.userDistributions().count(), 2);
  fesD_SubDamp damping = sub.damping();
  ASSERT_FALSE(!damping);
  EXPECT_EQ(damping.alpha(), kAlpha);
  EXPECT_EQ(damping.beta(), kBeta);
  EXPECT_EQ(damping.structural(), kStructural);
  EXPECT_EQ(damping.mass(), kMass);
  EXPECT_EQ(damping.volume(), kVolume);
  EXPECT_TRUE(!fesD_SubstructureSystem(systems.get(kBareSub)).damping());

  // Conversions from a handle check the class the same way.
  EXPECT_FALSE(!fesD_ModalSystem(gbb_Handle(modal)));
  EXPECT_TRUE(!fesD_ModalSystem(gbb_Handle(sub)));
  EXPECT_TRUE(!fesD_ModalEvent(gbb_Handle(damping)));
  EXPECT_TRUE(!fesD_SubDamp(gbb_Handle(e0)));
  EXPECT_TRUE(!fesD_GenericSystem(gbb_Handle()));
  EXPECT_EQ(err.Take(), "");
}

TEST_F(DerivedSystems, SettersWriteOnlyTheDatasetOfTheirPart) {
  Build();
  msfD_Root root(0);
  auto systems = Systems(root, false);
  fesD_GenericSystem generic(systems.get(kGeneric));
  fesD_ModalSystem modal(systems.get(kModal));
  fesD_SubstructureSystem sub(systems.get(kSub));
  struct Case {
    const char* path;
    fesD_FESystem base;                // the FE system view of the derived handle
    std::function<void()> setDerived;  // a member of the derived part
  } cases[] = {
      {"/1", generic, [&] { generic.Loads(C(99)); }},
      {"/2", modal, [&] { modal.PropertyEvaluation(99.0); }},
      {"/3", sub, [&] { sub.RecoveryElements(S(99, 9)); }},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.path);
    const std::string own = kSystems + c.path + "/#simpleTypeMembers";
    const std::string part = kSystems + c.path + "/#base/#simpleTypeMembers";
    const Bytes ownBefore = RawDatasetBytes(file, own);
    const Bytes partBefore = RawDatasetBytes(file, part);
    c.base.SystemName("renamed");
    EXPECT_EQ(RawDatasetBytes(file, own), ownBefore);
    const Bytes partAfter = RawDatasetBytes(file, part);
    EXPECT_NE(partAfter, partBefore);
    c.setDerived();
    EXPECT_NE(RawDatasetBytes(file, own), ownBefore);
    EXPECT_EQ(RawDatasetBytes(file, part), partAfter);
  }
}

}  // namespace

// Opens the derived object stored in `stored` for an outer interface of its
// own (so connected, no class check) and binds it again to `target`.
template <class THolder>
std::string RebindStored(const gbb_Group& stored, const gbb_Group& target) {
  CaptureErr err;
  THolder holder = THolder::Open(nullptr, gbb_Path(), 0, stored, 1);
  holder.Bind(target);
  return err.Take();
}

TEST_F(DerivedSystems, BindingBindsTheFESystemPartFirstEvenWhenConnected) {
  Build();
  msfD_Root root(0);
  msfD_Sim sim = Open(root, false);
  msfD_Mesh mesh = sim.discreteModel().mesh();
  CaptureErr err;
  fesD_ModalSystemHolder modal = fesD_ModalSystem::New("m", D(1), D(2), C(3), C(4), 1);
  modal.Get().events().add(fesD_ModalEvent::New("e", 1, C(5), C(6), 1));
  EXPECT_EQ(err.Take(), "");
  mesh.systems().add(modal.ReleaseAsFESystem());
  EXPECT_EQ(err.Take(),
            "fesD_FESystemImpl::Bind\n"
            "fesD_FESystemImpl::CreateMembers: creating fesD_FESystemMembers\n"
            "fesD_FESystemImpl::BindMembers: saving fesD_FESystemMembers\n"
            "fesD_ModalSystemImpl::Bind\n"
            "fesD_ModalSystemImpl::CreateMembers: creating fesD_ModalSystemMembers\n"
            "fesD_ModalSystemImpl::BindMembers: saving fesD_ModalSystemMembers\n"
            "gbb_ArrayImpl::Bind\n"
            "fesD_ModalEventImpl::Bind\n"
            "fesD_ModalEventImpl::CreateMembers: creating fesD_ModalEventMembers\n"
            "fesD_ModalEventImpl::BindMembers: saving fesD_ModalEventMembers\n");

  // A connected object refuses, but only after its part was offered the
  // new "#base" (and refused too).
  gbb_Group top(QELSimContextRef(sim.distributionService().Context()).File().RootGroup());
  gbb_Group systems = top.OpenGroup("sim/discreteModel/mesh/systems");
  auto refusal = [](const std::string& impl) {
    return impl + "::Bind\n** ERROR " + impl + "::Bind: called for a connected object\n";
  };
  const std::string part = refusal("fesD_FESystemImpl");
  EXPECT_EQ(RebindStored<fesD_GenericSystemHolder>(systems.OpenGroup("1"), top.CreateGroup("g")),
            part + refusal("fesD_GenericSystemImpl"));
  EXPECT_EQ(RebindStored<fesD_ModalSystemHolder>(systems.OpenGroup("2"), top.CreateGroup("m")),
            part + refusal("fesD_ModalSystemImpl"));
  EXPECT_EQ(
      RebindStored<fesD_SubstructureSystemHolder>(systems.OpenGroup("3"), top.CreateGroup("s")),
      part + refusal("fesD_SubstructureSystemImpl"));
  for (const char* target : {"/g", "/m", "/s"}) {
    EXPECT_EQ(RawChildren(file, target), std::vector<std::string>{"#base"}) << target;
  }
}

// SetPath on a new derived object places its FE system part at the same
// (parent, index).
template <class THolder>
void ExpectPartPlacedLikeTheWhole(THolder holder) {
  gbb_PathImpl parent;
  holder.SetPath(&parent, 7);
  gbb_Path whole = holder.Object()->Path();
  gbb_Path part = holder.FESystemSubobject().Object()->Path();
  EXPECT_EQ(whole.Parent().Impl(), &parent);
  EXPECT_EQ(whole.Index(), 7);
  EXPECT_EQ(part.Parent().Impl(), &parent);
  EXPECT_EQ(part.Index(), 7);
}

TEST_F(DerivedSystems, PathsOfThePartsAndSubobjectsFollowTheWhole) {
  ExpectPartPlacedLikeTheWhole(fesD_GenericSystem::New("g", D(1), D(2), C(3), C(4), 0));
  ExpectPartPlacedLikeTheWhole(fesD_ModalSystem::New("m", D(1), D(2), C(3), C(4), 0));
  ExpectPartPlacedLikeTheWhole(fesD_SubstructureSystem::New("s", D(1), D(2), C(3), C(4), C(5), 0));

  // Links from the objects under a derived system walk up through it.
  msfD_Root root(0);
  msfD_Mesh mesh = NewMesh(Create(root));
  mesh.systems().add(fesD_FESystem::New("first", D(1), D(2), 0));
  fesD_ModalSystemHolder modal = fesD_ModalSystem::New("m", D(1), D(2), C(3), C(4), 0);
  fesD_ModalEventHolder event = fesD_ModalEvent::New("e", 1, C(5), C(6), 0);
  fesD_ModalEventImpl* eventImpl = event.Object();
  modal.Get().events().add(event);
  fesD_ModalSystemImpl* modalImpl = modal.Object();
  mesh.systems().add(modal.ReleaseAsFESystem());
  fesD_SubstructureSystemHolder sub =
      fesD_SubstructureSystem::New("s", D(1), D(2), C(3), C(4), C(5), 0);
  fesD_SubDampHolder damping = fesD_SubDamp::New(0);
  fesD_SubDampImpl* dampingImpl = damping.Object();
  sub.Get().Damping(damping);
  mesh.systems().add(sub.ReleaseAsFESystem());

  EXPECT_EQ(modalImpl->Path().Index(), 1);
  EXPECT_EQ(modalImpl->Subobject().Object()->Path().Index(), 1);
  EXPECT_EQ(eventImpl->Path().Index(), 0);
  EXPECT_EQ(dampingImpl->Path().Index(), 0);
  const gbb_Path owners[] = {modalImpl->Subobject().Object()->Path(), eventImpl->Path(),
                             dampingImpl->Path()};
  for (gbb_Path owner : owners) {
    gbb_SimpleLink link(owner, "#/discreteModel/mesh");
    EXPECT_TRUE(msfD_Mesh(link.Get(0)).IsSame(mesh));
  }
}

TEST_F(DerivedSystems, PathsReachEventsAndDampingByIndexAndName) {
  Build();
  msfD_Root root(0);
  auto systems = Systems(root);
  gbb_PathImpl top(gbb_Path(), gbb_Root(&root), 0);
  auto find = [&top](const std::string& steps, unsigned flags, int* stale) {
    gbb_SimpleLink link(&top, ("#/discreteModel/mesh/systems/" + steps).c_str());
    gbb_Handle found = link.Get(flags);
    *stale = link.Stale();
    return found;
  };
  int stale = 0;
  // Not in memory yet: a resolution that may not load stops at the element.
  EXPECT_TRUE(find(":3/damping", gbb_TraverseContext::kNoLoad, &stale).IsEmpty());
  EXPECT_EQ(stale, 4);
  fesD_SubstructureSystem sub(systems.get(kSub));
  fesD_ModalSystem modal(systems.get(kModal));
  // The elements are in memory now; their damping and events are not.
  EXPECT_TRUE(find(":3/damping", gbb_TraverseContext::kNoLoad, &stale).IsEmpty());
  EXPECT_EQ(stale, 4);
  EXPECT_TRUE(find(":2/events/:1", gbb_TraverseContext::kNoLoad, &stale).IsEmpty());
  EXPECT_EQ(stale, 4);

  CaptureErr err;
  for (const char* steps : {":2/events/:1", ":2/:2/:1"}) {
    fesD_ModalEvent event(find(steps, 0, &stale));
    EXPECT_STREQ(event.eventName().cStr(), "e1") << steps;
  }
  for (const char* steps : {":3/damping", ":3/:0"}) {
    fesD_SubDamp damping(find(steps, 0, &stale));
    EXPECT_EQ(damping.beta(), kBeta) << steps;
  }
  EXPECT_TRUE(
      fesD_SubDamp(find(":3/damping", gbb_TraverseContext::kNoLoad, &stale)).IsSame(sub.damping()));
  EXPECT_TRUE(fesD_ModalSystem(find(":2", 0, &stale)).IsSame(modal));
  EXPECT_EQ(stale, 0);

  // Other steps go to the FE system part, which has nothing below it.
  for (const char* steps : {":2/:0", ":2/damping", ":3/events", ":3/:1", ":1/:0", ":1/dofs",
                            ":2/events/:2", ":2/events/e0"}) {
    EXPECT_TRUE(find(steps, 0, &stale).IsEmpty()) << steps;
    EXPECT_EQ(stale, 3) << steps;
  }
  // Stored without damping: the step reaches an empty slot, a further one nothing.
  EXPECT_TRUE(find(":4/damping", 0, &stale).IsEmpty());
  EXPECT_EQ(stale, 0);
  EXPECT_TRUE(find(":4/damping/:0", 0, &stale).IsEmpty());
  EXPECT_EQ(stale, 3);

  // Typed links check the class of what they reach.
  auto typed = [&top](const char* text) { return gbb_LinkHolder(new gbb_SimpleLink(&top, text)); };
  gbb_LinkHolder toEvent = typed("#/discreteModel/mesh/systems/:2/events/:1");
  gbb_LinkHolder toDamping = typed("#/discreteModel/mesh/systems/:3/damping");
  gbb_LinkHolder toSim = typed("#/");
  EXPECT_STREQ(gbb_TypedLink<fesD_ModalEvent>(toEvent.Get()).get(0).eventName().cStr(), "e1");
  EXPECT_EQ(gbb_TypedLink<fesD_SubDamp>(toDamping.Get()).get(0).beta(), kBeta);
  gbb_TypedLink<msfD_Mesh> wrong(toSim.Get());
  EXPECT_TRUE(!wrong.get(0));
  EXPECT_EQ(wrong.status(), 2);
  EXPECT_EQ(gbb_TypedLink<msfD_Mesh>().status(), 1);
  EXPECT_TRUE(!gbb_TypedLink<msfD_Mesh>().get(0));
  EXPECT_EQ(err.Take(), "");
}

TEST_F(DerivedSystems, DampingIsBoundWithItsSubstructureOrAtOnce) {
  msfD_Root root(0);
  msfD_Sim sim = Create(root);
  msfD_Mesh mesh = NewMesh(sim);
  CaptureErr err;
  fesD_SubstructureSystemHolder loose =
      fesD_SubstructureSystem::New("loose", D(1), D(2), C(3), C(4), C(5), 0);
  EXPECT_TRUE(!loose.Get().damping());
  fesD_SubDamp first = loose.Get().Damping(fesD_SubDamp::New(0));
  ASSERT_FALSE(!first);
  EXPECT_TRUE(loose.Get().damping().IsSame(first));
  const double coefficients[] = {first.alpha(), first.beta(), first.structural(), first.mass(),
                                 first.volume()};
  for (double c : coefficients) EXPECT_EQ(c, 0.0);
  first.Alpha(1.5);
  fesD_SubDampHolder offered = fesD_SubDamp::New(0);
  fesD_SubDamp kept = loose.Get().Damping(offered);
  EXPECT_TRUE(offered.IsEmpty());
  EXPECT_EQ(err.Take(), "**ERROR:fesD_SubstructureSystemImpl::Damping: already exists\n");
  EXPECT_TRUE(kept.IsSame(first));
  EXPECT_EQ(kept.alpha(), 1.5);

  mesh.systems().add(
      loose.ReleaseAsFESystem());  // its group: GroupsAndClassesFormTheDocumentedTree
  EXPECT_EQ(err.Take(), "");
  root.closeSim(sim);
  msfD_Root again(0);
  EXPECT_EQ(fesD_SubstructureSystem(Systems(again).get(0)).damping().alpha(), 1.5);
}

TEST_F(DerivedSystems, StoredDampingIsReadOnFirstUse) {
  Build();
  {
    msfD_Root root(1);
    CaptureErr err;
    auto systems = Systems(root, false);
    fesD_SubstructureSystem sub(systems.get(kSub));
    fesD_SubstructureSystem bare(systems.get(kBareSub));
    err.Take();
    fesD_SubDamp damping = sub.damping();
    EXPECT_EQ(err.Take(), "");  // opened, not read
    EXPECT_EQ(damping.alpha(), kAlpha);
    EXPECT_EQ(err.Take(), "fesD_SubDampImpl::LoadMembers: loading fesD_SubDampMembers\n");
    EXPECT_TRUE(sub.damping().IsSame(damping));
    EXPECT_TRUE(!bare.damping());
    EXPECT_TRUE(!bare.damping());
    EXPECT_EQ(err.Take(), "");
    // A stored substructure binds a new damping at once.
    bare.Damping(fesD_SubDamp::New(0)).Volume(2.0);
    EXPECT_EQ(RawChildren(file, kSystems + "/4"),
              (std::vector<std::string>{"#base", "#simpleTypeMembers", "damping"}));
    EXPECT_EQ(RawClass(file, kSystems + "/4/damping"), "com.trevolo.SubDamp");
  }
  // The setter does not look for a stored damping not read yet: the new
  // object is taken in memory, its group cannot be made, and the stored
  // damping stays as it was.
  {
    msfD_Root root(0);
    auto systems = Systems(root, false);
    CaptureErr err;
    fesD_SubstructureSystem sub(systems.get(kSub));
    fesD_SubDamp replaced = sub.Damping(fesD_SubDamp::New(0));
    EXPECT_EQ(err.Take(), "**ERROR hdf_Group::GroupCreate: cannot create group damping in " +
                              kSystems + "/3 of file " + file + "\n");
    EXPECT_TRUE(sub.damping().IsSame(replaced));
    replaced.Alpha(3.0);
    EXPECT_EQ(replaced.alpha(), 3.0);
  }
  msfD_Root root(0);
  auto systems = Systems(root);
  EXPECT_EQ(fesD_SubstructureSystem(systems.get(kSub)).damping().alpha(), kAlpha);
  EXPECT_EQ(fesD_SubstructureSystem(systems.get(kBareSub)).damping().volume(), 2.0);
}

TEST_F(DerivedSystems, ATamperedFESystemPartIsReportedWithoutACrash) {
  Build();
  RawWriteClass(file, kSystems + "/2/#base", "com.trevolo.Mesh");
  RawDelete(file, kSystems + "/3/#base");
  RawDelete(file, kSystems + "/1/#base/#simpleTypeMembers");
  msfD_Root root(0);
  CaptureErr err;
  auto systems = Systems(root);
  // The part is opened for its whole: its class attribute is not read.
  fesD_ModalSystem modal(systems.get(kModal));
  EXPECT_STREQ(modal.systemName().cStr(), "modal");
  EXPECT_EQ(err.Take(), "");

  fesD_FESystem generic = systems.get(kGeneric);
  EXPECT_STREQ(generic.systemName().cStr(), "");
  EXPECT_EQ(err.Take(),
            "**ERROR hdf_Group::DatasetOpen: cannot open dataset #simpleTypeMembers in " +
                kSystems + "/1/#base of file " + file +
                "\n**ERROR fesD_FESystemImpl::LoadMembers: error 2 loading class data\n");
  EXPECT_EQ(fesD_GenericSystem(generic).loads(), C(14));

  fesD_FESystem sub = systems.get(kSub);
  EXPECT_EQ(err.Take(), "**ERROR hdf_Group::GroupOpen: cannot open group #base in " + kSystems +
                            "/3 of file " + file + "\n");
  EXPECT_FALSE(sub.nodalLabels().IsValid());
  EXPECT_EQ(err.Take(), "**ERROR fesD_FESystemImpl::LoadMembers: error 2 loading class data\n");
  fesD_SubstructureSystem whole(sub);
  ASSERT_FALSE(!whole);
  EXPECT_EQ(whole.dofs(), C(44));
  EXPECT_EQ(whole.damping().beta(), kBeta);
  EXPECT_EQ(err.Take(), "");
}
