// Persistent arrays, through the mesh's FE systems: appending before and
// after binding, "#size", element groups, lazy loading, messages.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/capture.h"
#include "support/sample_sim.h"

namespace {

fesD_FESystemHolder NewSystem(const char* name) {
  return fesD_FESystem::New(name, QELSimDistributionID(), QELSimDistributionID(), 0);
}

using Arrays = SampleSim;

std::vector<int> Size(const std::string& file) {
  return RawInts(file, kSystems, "#size");
}

TEST_F(Arrays, UnconnectedElementsAreWrittenWhenTheOwnerIsBound) {
  msfD_Root root(0);
  msfD_DiscreteModel model = Create(root).DiscreteModel(
      msfD_DiscreteModel::New(QELSimCollectionID(), QELSimCollectionID(), 0));
  msfD_MeshHolder holder = msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0);
  msfD_Mesh mesh = holder.Get();
  fesD_FESystemHolder a = NewSystem("a");
  fesD_FESystem first = mesh.systems().add(a);
  EXPECT_TRUE(a.IsEmpty());  // taken over
  a.Close();                 // closing the emptied holder destroys nothing
  EXPECT_STREQ(first.systemName().cStr(), "a");
  mesh.systems().add(NewSystem("b"));
  model.Mesh(holder);
  EXPECT_EQ(Size(file), std::vector<int>{2});
  EXPECT_EQ(RawChildren(file, kSystems), (std::vector<std::string>{"0", "1"}));
  EXPECT_EQ(RawClass(file, kSystems + "/1"), "com.trevolo.FESystem");

  // Appending to a connected array writes at once.
  fesD_FESystem third = mesh.systems().add(NewSystem("c"));
  EXPECT_EQ(Size(file), std::vector<int>{3});
  EXPECT_EQ(RawChildren(file, kSystems), (std::vector<std::string>{"0", "1", "2"}));
  EXPECT_TRUE(mesh.systems().get(2).IsSame(third));
}

// Binding an unconnected array makes a group for every slot and binds every
// holder, in index order, an empty one too (which says so). Once connected,
// the empty slot is opened from its group like any other.
TEST_F(Arrays, BindingAnUnconnectedArrayBindsEverySlotEmptyOrNot) {
  msfD_Root root(0);
  msfD_DiscreteModel model = Create(root).DiscreteModel(
      msfD_DiscreteModel::New(QELSimCollectionID(), QELSimCollectionID(), 0));
  msfD_MeshHolder holder = msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0);
  msfD_Mesh mesh = holder.Get();
  CaptureErr err;
  mesh.systems().add(fesD_FESystem::New("a", QELSimDistributionID(), QELSimDistributionID(), 1));
  fesD_FESystemHolder none;
  mesh.systems().add(none);
  mesh.systems().add(fesD_FESystem::New("c", QELSimDistributionID(), QELSimDistributionID(), 1));
  EXPECT_EQ(err.Take(),
            "**ERROR gbb_ArrayImpl::add: inserting a NULL item\n"
            "**ERROR fesD_FESystemHolder::SetPath: called on an empty holder\n");
  model.Mesh(holder);
  const std::string element =
      "fesD_FESystemImpl::Bind\n"
      "fesD_FESystemImpl::CreateMembers: creating fesD_FESystemMembers\n"
      "fesD_FESystemImpl::BindMembers: saving fesD_FESystemMembers\n";
  EXPECT_EQ(err.Take(),
            element + "**ERROR fesD_FESystemHolder::Bind: called on an empty holder\n" + element);
  EXPECT_EQ(Size(file), std::vector<int>{3});
  EXPECT_EQ(RawChildren(file, kSystems), (std::vector<std::string>{"0", "1", "2"}));
  EXPECT_EQ(RawClass(file, kSystems + "/1"), "");  // made, and no object bound to it
  EXPECT_EQ(RawClass(file, kSystems + "/2"), "com.trevolo.FESystem");
  EXPECT_EQ(RawChildren(file, kSystems + "/1"), std::vector<std::string>{});

  const std::string noClass = "**ERROR fesD_FESystemHolder::Open: class  is not registered\n";
  EXPECT_TRUE(!mesh.systems().get(1));
  EXPECT_EQ(err.Take(), noClass);
  EXPECT_FALSE(mesh.systems().GetImpl()->IsLoaded(1));
  EXPECT_STREQ(mesh.systems().get(2).systemName().cStr(), "c");
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Arrays, StoredElementsAreOpenedOnFirstUseOnly) {
  {
    msfD_Root root(0);
    msfD_Mesh mesh = NewMesh(Create(root));
    EXPECT_EQ(mesh.systems().count(), 0);
    for (const char* n : {"s0", "s1", "s2"}) mesh.systems().add(NewSystem(n));
  }
  msfD_Root root(1);
  CaptureErr err;
  auto systems = Systems(root);
  EXPECT_EQ(systems.count(), 3);
  EXPECT_FALSE(systems.GetImpl()->IsLoaded(1));
  err.Take();
  fesD_FESystem s1 = systems.get(1);
  EXPECT_TRUE(systems.GetImpl()->IsLoaded(1));
  EXPECT_FALSE(systems.GetImpl()->IsLoaded(0));
  EXPECT_TRUE(systems.get(1).IsSame(s1));  // opened once
  EXPECT_STREQ(s1.systemName().cStr(), "s1");
  EXPECT_EQ(err.Take(), "fesD_FESystemImpl::LoadMembers: loading fesD_FESystemMembers\n");

  // Out of range: the message, then an empty handle.
  EXPECT_TRUE(!systems.get(3));
  EXPECT_EQ(err.Take(), "**ERROR gbb_ArrayImpl::get: index out of range: 3, length = 3\n");
  EXPECT_TRUE(!systems.get(-1));
  EXPECT_EQ(err.Take(), "**ERROR gbb_ArrayImpl::get: index out of range: -1, length = 3\n");

  // A path step by number reaches the array itself. (Steps into arrays, by
  // number, by name, beyond the end and without loading, are in
  // DerivedSystems.PathsReachEventsAndDampingByIndexAndName.)
  gbb_PathImpl place(gbb_Path(), gbb_Root(&root), 0);
  gbb_SimpleLink itself(&place, "#/discreteModel/mesh/:18");
  decltype(systems) same(itself.Get(0));
  EXPECT_EQ(same.GetImpl(), systems.GetImpl());
  err.Take();
}

// Closing a stored array closes the elements it loaded or added, in any
// order of loading, and frees the slots never read without touching them:
// what the library allocated for the sim is all given back.
TEST_F(Arrays, ClosingClosesWhatWasLoadedOrAddedAndNothingElse) {
  {
    msfD_Root root(0);
    msfD_Mesh mesh = NewMesh(Create(root));
    for (const char* n : {"s0", "s1", "s2", "s3", "s4"}) mesh.systems().add(NewSystem(n));
  }
  auto live = [] { return mem_GetStatistics().allocations - mem_GetStatistics().frees; };
  for (int round = 0; round < 2; ++round) {  // the first settles what a first open keeps
    long long before = live();
    {
      msfD_Root root(0);
      auto systems = Systems(root, false);
      EXPECT_STREQ(systems.get(3).systemName().cStr(), "s3");
      EXPECT_STREQ(systems.get(1).systemName().cStr(), "s1");
      EXPECT_STREQ(systems.get(3).systemName().cStr(), "s3");  // loaded once
      systems.add(NewSystem(round == 0 ? "s5" : "s6"));
      EXPECT_TRUE(systems.GetImpl()->IsLoaded(5 + round));
      EXPECT_FALSE(systems.GetImpl()->IsLoaded(0));
    }
    if (round == 1) {
      EXPECT_EQ(live(), before);
    }
  }
  msfD_Root root(0);
  auto systems = Systems(root);
  ASSERT_EQ(systems.count(), 7);
  EXPECT_STREQ(systems.get(6).systemName().cStr(), "s6");
}

// A connected array runs every step of add on an empty holder too: the
// slot's own messages, an element group, and the new "#size". Reopened, the
// array reserves exactly its size.
TEST_F(Arrays, AnEmptyHolderGoesThroughEveryStepAndStoredArraysReserveTheirSize) {
  {
    msfD_Root root(0);
    msfD_Mesh mesh = NewMesh(Create(root));
    for (int i = 0; i < 17; ++i) mesh.systems().add(NewSystem("s"));
    CaptureErr err;
    fesD_FESystemHolder none;
    EXPECT_TRUE(!mesh.systems().add(none));
    EXPECT_EQ(err.Take(),
              "**ERROR gbb_ArrayImpl::add: inserting a NULL item\n"
              "**ERROR fesD_FESystemHolder::SetPath: called on an empty holder\n"
              "**ERROR fesD_FESystemHolder::Bind: called on an empty holder\n");
    EXPECT_EQ(Size(file), std::vector<int>{18});
    EXPECT_EQ(RawChildren(file, kSystems).size(), 18u);
  }
  msfD_Root root(0);
  auto stored = Systems(root);
  EXPECT_EQ(stored.count(), 18);
  EXPECT_EQ(stored.GetImpl()->Capacity(), 18);  // not 32, as growing one by one would give
}

TEST(ArraysInMemory, MessagesOfMisuse) {
  CaptureErr err;
  msfD_MeshHolder holder = msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0);
  auto systems = holder.Get().systems();
  fesD_FESystemHolder none;
  EXPECT_TRUE(!systems.add(none));
  // The steps still run on the empty slot, which says what it cannot do.
  EXPECT_EQ(err.Take(),
            "**ERROR gbb_ArrayImpl::add: inserting a NULL item\n"
            "**ERROR fesD_FESystemHolder::SetPath: called on an empty holder\n");
  EXPECT_EQ(systems.count(), 1);  // an empty slot was appended
  // An unresolved slot is loaded, connected or not: the array has no group,
  // and the class look-up from an object outside any sim reaches no root,
  // so no snapshot, and no class.
  const std::string noSnapshot =
      "**ERROR gbb_LinkImpl::Get: root is empty\n"
      "**ERROR: gbb_SchemaSnapshot::GetClass: called on an empty handle\n";
  const std::string noClass =
      noSnapshot + "**ERROR fesD_FESystemHolder::Open: class  is not registered\n";
  EXPECT_TRUE(!systems.get(0));
  EXPECT_EQ(err.Take(), noClass);
  EXPECT_FALSE(systems.GetImpl()->IsLoaded(0));  // still unresolved: tried again
  EXPECT_TRUE(!systems.get(0));
  EXPECT_EQ(err.Take(), noClass);
  EXPECT_EQ(systems.count(), 1);
  // The modal events' array, the other instantiation, names its own holder.
  fesD_ModalSystemHolder modal =
      fesD_ModalSystem::New("m", QELSimDistributionID(), QELSimDistributionID(),
                            QELSimCollectionID(), QELSimCollectionID(), 0);
  auto events = modal.Get().events();
  fesD_ModalEventHolder noEvent;
  events.add(noEvent);
  err.Take();
  EXPECT_TRUE(!events.get(0));
  EXPECT_EQ(err.Take(),
            noSnapshot + "**ERROR fesD_ModalEventHolder::Open: class  is not registered\n");
  // The handle conversions keep the instantiation: a mesh's array is not a
  // modal system's event array, although both identifiers are empty.
  gbb_Handle h = systems;
  EXPECT_EQ(decltype(systems)(h).GetImpl(), systems.GetImpl());
  EXPECT_TRUE(!fesD_ModalSystem_EventsArray(h));
  EXPECT_TRUE(!decltype(systems)(gbb_Handle()));
  gbb_Holder<decltype(systems), decltype(systems)::Impl, gbb_Repository> emptyArray;
  emptyArray.Bind(gbb_Repository());
  emptyArray.SetPath(gbb_Path(), 0);
  EXPECT_EQ(err.Take(),
            "**ERROR gbb_Holder::Bind: called on an empty holder\n"
            "**ERROR gbb_Holder::SetPath: called on an empty holder\n");
  // An empty array handle's own messages: EmptyHandles.EveryClassReportsEachOperationAndGoesOn.
}

TEST_F(Arrays, BindingAConnectedArrayIsRefused) {
  msfD_Root root(0);
  msfD_Mesh mesh = NewMesh(Create(root));
  CaptureErr err;
  mesh.systems().GetImpl()->Bind(gbb_Repository());
  EXPECT_EQ(err.Take(), "** ERROR gbb_ArrayImpl::Bind: called for a connected object\n");
}

}  // namespace
