// What the schema does with input it cannot use: files that are no
// database, damaged or truncated databases, tampered members datasets,
// repositories and derived-system parts, empty handles of every class, and
// writes to a database opened read-only. Each case prints its message and
// goes on without a crash, and nothing already committed is damaged.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <random>
#include <string>

#include "fes/fes.h"
#include "sim_schema/sim_schema.h"
#include "support/capture.h"
#include "support/h5_raw.h"
#include "support/scratch_dir.h"

namespace {

const char kSystems[] = "/sim/discreteModel/mesh/systems";

// Reads every member of every object below the sim; returns how many
// objects it reached. Whatever the file holds, this must neither crash nor hang.
int TouchEverything(const msfD_Sim& sim) {
  int reached = 0;
  msfD_DiscreteModel model = sim.discreteModel();
  if (!model) return reached;
  ++reached;
  model.vectors();
  model.localNodeSets();
  msfD_Mesh mesh = model.mesh();
  if (!mesh) return reached;
  ++reached;
  mesh.nodes();
  mesh.nodeSets();
  mesh.surfaceFields();
  auto systems = mesh.systems();
  for (int i = 0; i < systems.count(); ++i) {
    fesD_FESystem system = systems.get(i);
    if (!system) continue;
    ++reached;
    system.systemName();
    system.userDistributions();
    fesD_ModalSystem modal(system);
    if (!!modal) {
      modal.propertyEvaluation();
      auto events = modal.events();
      for (int e = 0; e < events.count(); ++e) {
        fesD_ModalEvent event = events.get(e);
        if (!event) continue;
        ++reached;
        event.eventName();
      }
    }
    fesD_SubstructureSystem sub(system);
    if (!!sub) {
      sub.retainedNodes();
      fesD_SubDamp damping = sub.damping();
      if (!!damping) {
        ++reached;
        damping.volume();
      }
    }
  }
  return reached;
}

class BadInput : public testing::Test {
 protected:
  // A database of seven objects: model, mesh with a node set, a plain
  // system, a modal system with one event, a substructure with damping.
  void MakeDatabase() {
    msfD_Root root(0);
    msfD_Sim sim = root.createSim(file.c_str(), "", 0);
    int c = sim.distributionService().Context().Number();
    msfD_Mesh mesh =
        sim.DiscreteModel(
               msfD_DiscreteModel::New(QELSimCollectionID(c, 1), QELSimCollectionID(c, 2), 0))
            .Mesh(msfD_Mesh::New(QELSimCollectionID(c, 3), QELSimCollectionID(c, 4), 0));
    ada_MapString<QELSimCSetID> sets;
    sets.insert("top", QELSimCSetID(c, 3, 7));
    mesh.NodeSets(sets);
    auto systems = mesh.systems();
    systems.add(fesD_FESystem::New("plain", QELSimDistributionID(c, 5), QELSimDistributionID(), 0));
    fesD_ModalSystemHolder modal =
        fesD_ModalSystem::New("modal", QELSimDistributionID(), QELSimDistributionID(),
                              QELSimCollectionID(c, 6), QELSimCollectionID(c, 7), 0);
    modal.Get().PropertyEvaluation(1.5);
    modal.Get().events().add(
        fesD_ModalEvent::New("e0", 3, QELSimCollectionID(c, 8), QELSimCollectionID(c, 9), 0));
    systems.add(modal.ReleaseAsFESystem());
    fesD_SubstructureSystemHolder sub = fesD_SubstructureSystem::New(
        "sub", QELSimDistributionID(), QELSimDistributionID(), QELSimCollectionID(c, 10),
        QELSimCollectionID(c, 11), QELSimCollectionID(c, 12), 0);
    sub.Get().Damping(fesD_SubDamp::New(0)).Beta(0.5);
    systems.add(sub.ReleaseAsFESystem());
  }

  ScratchDir dir;
  std::string file = dir.File("bad.sim");
};

// The HDF5 files still open in the process (none once every root is gone).
long OpenObjects() {
  return static_cast<long>(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL));
}

TEST_F(BadInput, FilesThatAreNoDatabaseAreRefusedWithTheirReason) {
  std::string missing = dir.File("missing.sim");
  std::string text = dir.File("text.sim");
  WriteWholeFile(text, "not a database\n");
  std::string plain = dir.File("plain.h5");
  H5Fclose(H5Fcreate(plain.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
  struct Case {
    std::string file;
    std::string message;
  } cases[] = {
      {missing, "**ERROR hdf_File::Open: cannot open file " + missing + ": no such file\n"},
      {text, "**ERROR hdf_File::Open: cannot open file " + text + ": not an HDF5 file\n"},
      {plain, "**ERROR hdf_Group::GroupOpen: cannot open group sim in / of file " + plain + "\n"},
  };
  msfD_Root root(0);
  CaptureErr err;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    EXPECT_TRUE(!root.openSim(c.file.c_str(), "a", 0));
    EXPECT_EQ(err.Take(), c.message);
    EXPECT_TRUE(!root.openSimReadOnly(c.file.c_str(), "a", 0));
    EXPECT_EQ(err.Take(), c.message);
  }
  EXPECT_EQ(root.count(), 0);
  EXPECT_TRUE(!root.getByAlias("a"));
  EXPECT_EQ(OpenObjects(), 0);
  EXPECT_EQ(ReadWholeFile(text), "not a database\n");
}

TEST_F(BadInput, CreatingNeedsADirectoryAndANewFile) {
  MakeDatabase();
  const std::string before = ReadWholeFile(file);
  std::string nowhere = dir.Path() + "/no/such/dir/x.sim";
  msfD_Root root(0);
  CaptureErr err;
  EXPECT_TRUE(!root.createSim(nowhere.c_str(), "x", 0));
  EXPECT_EQ(err.Take(),
            "**ERROR hdf_File::Create: cannot create file " + nowhere + ": no such directory\n");
  EXPECT_TRUE(!root.createSim(file.c_str(), "x", 0));
  EXPECT_EQ(err.Take(), "**ERROR hdf_File::Create: cannot create file " + file + ": it exists\n");
  EXPECT_EQ(root.count(), 0);
  EXPECT_EQ(ReadWholeFile(file), before);
  // The refused name is free again: the database opens as before.
  msfD_Sim sim = root.openSimReadOnly(file.c_str(), "x", 0);
  EXPECT_EQ(TouchEverything(sim), 7);
  EXPECT_EQ(err.Take(), "");
}

TEST_F(BadInput, TruncatedCopiesAreRefusedAndTheOriginalStaysIntact) {
  MakeDatabase();
  const std::string whole = ReadWholeFile(file);
  ASSERT_GT(whole.size(), 4096u);
  std::string copy = dir.File("cut.sim");
  const double fractions[] = {0.0, 0.001, 0.1, 0.25, 0.5, 0.75, 0.9, 0.999};
  for (double f : fractions) {
    size_t keep = static_cast<size_t>(f * static_cast<double>(whole.size()));
    SCOPED_TRACE(keep);
    WriteWholeFile(copy, whole.substr(0, keep));
    msfD_Root root(0);
    CaptureErr err;
    for (int readOnly = 0; readOnly < 2; ++readOnly) {
      msfD_Sim sim =
          readOnly ? root.openSimReadOnly(copy.c_str(), "", 0) : root.openSim(copy.c_str(), "", 0);
      EXPECT_TRUE(!sim);
      EXPECT_EQ(err.Take(), "**ERROR hdf_File::Open: cannot open file " + copy +
                                (keep < 8 ? ": not an HDF5 file\n"
                                          : ": damaged or truncated HDF5 file, or open "
                                            "elsewhere\n"));
    }
  }
  EXPECT_EQ(OpenObjects(), 0);
  EXPECT_EQ(ReadWholeFile(file), whole);
  msfD_Root root(0);
  EXPECT_EQ(TouchEverything(root.openSimReadOnly(file.c_str(), "", 0)), 7);
}

// One stored object whose members dataset is tampered with.
struct Target {
  const char* group;
  const char* impl;
  int (*read)(const msfD_Sim& sim);  // reads one member; answers 1 when it reached the object
};

int ReadMesh(const msfD_Sim& sim) {
  msfD_Mesh mesh = sim.discreteModel().mesh();
  mesh.nodes();
  return !mesh ? 0 : 1;
}

int ReadModal(const msfD_Sim& sim) {
  fesD_ModalSystem modal(sim.discreteModel().mesh().systems().get(1));
  modal.propertyEvaluation();
  return !modal ? 0 : 1;
}

int ReadModalBase(const msfD_Sim& sim) {
  fesD_FESystem system = sim.discreteModel().mesh().systems().get(1);
  system.systemName();
  return !system ? 0 : 1;
}

int ReadDamping(const msfD_Sim& sim) {
  fesD_SubDamp damping =
      fesD_SubstructureSystem(sim.discreteModel().mesh().systems().get(2)).damping();
  damping.beta();
  return !damping ? 0 : 1;
}

const Target kTargets[] = {
    {"/sim/discreteModel/mesh", "msfD_MeshImpl", &ReadMesh},
    {"/sim/discreteModel/mesh/systems/1", "fesD_ModalSystemImpl", &ReadModal},
    {"/sim/discreteModel/mesh/systems/1/#base", "fesD_FESystemImpl", &ReadModalBase},
    {"/sim/discreteModel/mesh/systems/2/damping", "fesD_SubDampImpl", &ReadDamping},
};

std::string LoadError(const Target& t, int number) {
  return std::string("**ERROR ") + t.impl + "::LoadMembers: error " + std::to_string(number) +
         " loading class data\n";
}

TEST_F(BadInput, AMissingOrEmptyMembersDatasetLoadsDefaults) {
  MakeDatabase();
  const std::string pristine = ReadWholeFile(file);
  for (const Target& t : kTargets) {
    SCOPED_TRACE(t.group);
    const std::string members = std::string(t.group) + "/#simpleTypeMembers";
    WriteWholeFile(file, pristine);
    RawWriteDataset(file, members, Bytes());
    {
      msfD_Root root(0);
      CaptureErr err;
      EXPECT_EQ(t.read(root.openSimReadOnly(file.c_str(), "", 0)), 1);
      // No bytes at all: not even the length header can be read.
      EXPECT_EQ(err.Take(), LoadError(t, 2));
    }
    RawDelete(file, members);
    {
      msfD_Root root(0);
      CaptureErr err;
      EXPECT_EQ(t.read(root.openSimReadOnly(file.c_str(), "", 0)), 1);
      EXPECT_EQ(err.Take(),
                "**ERROR hdf_Group::DatasetOpen: cannot open dataset "
                "#simpleTypeMembers in " +
                    std::string(t.group) + " of file " + file + "\n" + LoadError(t, 2));
    }
  }
}

TEST_F(BadInput, ATruncatedMembersDatasetKeepsWhatWasReadBeforeTheCut) {
  MakeDatabase();
  const std::string members = "/sim/discreteModel/mesh/#simpleTypeMembers";
  const Bytes stored = RawDatasetBytes(file, members);
  // Cut inside the third record: the first two (nodes, elements) survive.
  const size_t firstTwo = 4 + 2 * (1 + 4 + 1 + 16);
  Bytes cut(stored.begin(), stored.begin() + firstTwo + 7);
  RawWriteDataset(file, members, cut);
  msfD_Root root(0);
  CaptureErr err;
  msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
  int c = sim.distributionService().Context().Number();
  msfD_Mesh mesh = sim.discreteModel().mesh();
  EXPECT_EQ(mesh.nodes(), QELSimCollectionID(c, 3));
  EXPECT_EQ(mesh.elements(), QELSimCollectionID(c, 4));
  EXPECT_FALSE(mesh.faces().IsValid());
  EXPECT_EQ(mesh.nodeSets().count(), 0);
  EXPECT_EQ(err.Take(), "**ERROR msfD_MeshImpl::LoadMembers: error 2 loading class data\n");
  // The rest of the tree is not affected.
  EXPECT_EQ(mesh.systems().count(), 3);
  EXPECT_STREQ(mesh.systems().get(0).systemName().cStr(), "plain");
  EXPECT_EQ(err.Take(), "");
}

TEST_F(BadInput, RandomMembersBytesGiveALoadErrorAndNothingWorse) {
  MakeDatabase();
  const std::string pristine = ReadWholeFile(file);
  std::mt19937 random(20240611);
  for (const Target& t : kTargets) {
    SCOPED_TRACE(t.group);
    const std::string members = std::string(t.group) + "/#simpleTypeMembers";
    const Bytes stored = RawDatasetBytes(file, members);
    for (int round = 0; round < 12; ++round) {
      Bytes bytes(static_cast<size_t>(5 + random() % 200));
      for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
      // Half the rounds keep a plausible header, so the records get parsed.
      if (round % 2 == 0) {
        Bytes header;
        PutInt(header, static_cast<int>(bytes.size()));
        std::copy(header.begin(), header.end(), bytes.begin());
      }
      WriteWholeFile(file, pristine);
      RawWriteDataset(file, members, bytes);
      msfD_Root root(0);
      CaptureErr err;
      msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
      EXPECT_EQ(t.read(sim), 1);
      std::string text = err.Take();
      EXPECT_TRUE(text == LoadError(t, 1) || text == LoadError(t, 2)) << text;
      EXPECT_EQ(TouchEverything(sim), 7);
    }
    WriteWholeFile(file, pristine);
    EXPECT_EQ(RawDatasetBytes(file, members), stored);
  }
}

TEST_F(BadInput, RepositorySizesThatDoNotMatchTheElements) {
  MakeDatabase();
  const std::string pristine = ReadWholeFile(file);
  const std::string where = std::string(" in ") + kSystems + "\n";
  // "#size" is a 1 x 1 int; these rewrite it through HDF5 directly.
  auto writeSize = [&](int n) {
    hid_t f = H5Fopen(file.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
    hid_t o = H5Oopen(f, kSystems, H5P_DEFAULT);
    hid_t a = H5Aopen(o, "#size", H5P_DEFAULT);
    H5Awrite(a, H5T_NATIVE_INT, &n);
    H5Aclose(a);
    H5Oclose(o);
    H5Fclose(f);
  };

  writeSize(5);
  {
    msfD_Root root(0);
    CaptureErr err;
    msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
    auto systems = sim.discreteModel().mesh().systems();
    EXPECT_EQ(systems.count(), 5);
    EXPECT_STREQ(systems.get(2).systemName().cStr(), "sub");
    EXPECT_EQ(err.Take(), "");
    // An element without a group: the open fails, the element stays empty and is tried again.
    EXPECT_TRUE(!systems.get(3));
    const std::string missing = "**ERROR hdf_Group::GroupOpen: cannot open group 3 in " +
                                std::string(kSystems) + " of file " + file +
                                "\n**ERROR fesD_FESystemHolder::Open: class  is not registered\n";
    EXPECT_EQ(err.Take(), missing);
    EXPECT_TRUE(!systems.get(3));
    EXPECT_EQ(err.Take(), missing);
    gbb_SimpleLink link(sim.Path(), "#/discreteModel/mesh/systems/:4");
    EXPECT_TRUE(link.Get(0).IsEmpty());
    EXPECT_EQ(link.Stale(), 4);
    err.Take();
  }
  writeSize(-2);
  {
    msfD_Root root(0);
    CaptureErr err;
    auto systems = root.openSimReadOnly(file.c_str(), "", 0).discreteModel().mesh().systems();
    EXPECT_EQ(systems.count(), 0);
    EXPECT_EQ(err.Take(), "**ERROR gbb_Repository::ReadSize: \"#size\" is negative" + where);
    EXPECT_TRUE(!systems.get(0));
    EXPECT_EQ(err.Take(), "**ERROR gbb_ArrayImpl::get: index out of range: 0, length = 0\n");
  }
  WriteWholeFile(file, pristine);
  RawDelete(file, kSystems, "#size");
  {
    msfD_Root root(0);
    CaptureErr err;
    auto systems = root.openSimReadOnly(file.c_str(), "", 0).discreteModel().mesh().systems();
    EXPECT_EQ(systems.count(), 0);
    EXPECT_EQ(err.Take(), "**ERROR hdf_Group::AttributeOpen: cannot open attribute #size in " +
                              std::string(kSystems) + " of file " + file + "\n");
  }
  // A whole repository missing: the mesh answers an empty array.
  RawDelete(file, kSystems);
  {
    msfD_Root root(0);
    CaptureErr err;
    msfD_Mesh mesh = root.openSimReadOnly(file.c_str(), "", 0).discreteModel().mesh();
    EXPECT_EQ(mesh.systems().count(), 0);
    EXPECT_EQ(err.Take(),
              "**ERROR hdf_Group::GroupOpen: cannot open group systems in "
              "/sim/discreteModel/mesh of file " +
                  file + "\n");
    EXPECT_EQ(mesh.nodes().CollectionMinor(), 3u);
  }
}

TEST_F(BadInput, DerivedSystemsWithoutTheirBaseOrWithAForeignOne) {
  MakeDatabase();
  const std::string pristine = ReadWholeFile(file);
  const std::string base = std::string(kSystems) + "/1/#base";
  // The part's class attribute is never read: the derived object says what it is.
  RawWriteClass(file, base, "com.trevolo.Mesh");
  {
    msfD_Root root(0);
    CaptureErr err;
    fesD_FESystem system =
        root.openSimReadOnly(file.c_str(), "", 0).discreteModel().mesh().systems().get(1);
    EXPECT_STREQ(system.systemName().cStr(), "modal");
    EXPECT_EQ(fesD_ModalSystem(system).propertyEvaluation(), 1.5);
    EXPECT_EQ(err.Take(), "");
  }
  WriteWholeFile(file, pristine);
  RawDelete(file, base);
  {
    msfD_Root root(0);
    CaptureErr err;
    msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
    fesD_FESystem system = sim.discreteModel().mesh().systems().get(1);
    EXPECT_EQ(err.Take(), "**ERROR hdf_Group::GroupOpen: cannot open group #base in " +
                              std::string(kSystems) + "/1 of file " + file + "\n");
    // The modal part is whole; the FE system part reads as defaults.
    fesD_ModalSystem modal(system);
    ASSERT_FALSE(!modal);
    EXPECT_EQ(modal.propertyEvaluation(), 1.5);
    EXPECT_EQ(modal.events().get(0).eventTypeID(), 3);
    EXPECT_EQ(err.Take(), "");
    EXPECT_STREQ(system.systemName().cStr(), "");
    EXPECT_EQ(err.Take(), "**ERROR fesD_FESystemImpl::LoadMembers: error 2 loading class data\n");
    EXPECT_EQ(TouchEverything(sim), 7);
  }
}

}  // namespace
