// What the schema does with input it cannot use: files that are no
// database, damaged or truncated databases, tampered members datasets and
// repositories, empty handles of every class, and writes to a database
// opened read-only. Each case prints its message and goes on without a
// crash, and nothing already committed is damaged. (Tampered parts of
// derived systems are in derived_systems_test.cpp.)
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

const char kMesh[] = "/sim/discreteModel/mesh";
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
  // A database of eight objects: model, mesh with a node set, a plain
  // system, a modal system with one event, a substructure with damping and
  // one without.
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
    systems.add(fesD_SubstructureSystem::New("bare", QELSimDistributionID(), QELSimDistributionID(),
                                             QELSimCollectionID(), QELSimCollectionID(),
                                             QELSimCollectionID(), 0)
                    .ReleaseAsFESystem());
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
  EXPECT_EQ(TouchEverything(sim), 8);
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
      EXPECT_EQ(err.Take(),
                "**ERROR hdf_File::Open: cannot open file " + copy +
                    (keep < 8 ? ": not an HDF5 file\n" : ": damaged or truncated HDF5 file\n"));
    }
  }
  EXPECT_EQ(OpenObjects(), 0);
  EXPECT_EQ(ReadWholeFile(file), whole);
  msfD_Root root(0);
  EXPECT_EQ(TouchEverything(root.openSimReadOnly(file.c_str(), "", 0)), 8);
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
  EXPECT_EQ(mesh.systems().count(), 4);
  EXPECT_STREQ(mesh.systems().get(0).systemName().cStr(), "plain");
  EXPECT_EQ(err.Take(), "");
}

// An extent damaged far beyond what the file holds is not read on trust:
// the stored bytes are read, with one line on what the extent claimed.
TEST_F(BadInput, AMembersExtentBeyondTheFileReadsOnlyWhatIsStored) {
  MakeDatabase();
  const std::string members = std::string(kMesh) + "/#simpleTypeMembers";
  const size_t stored = RawDatasetBytes(file, members).size();
  hid_t f = H5Fopen(file.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
  hid_t d = H5Dopen2(f, members.c_str(), H5P_DEFAULT);
  hsize_t huge = hsize_t(1) << 58;
  H5Dset_extent(d, &huge);
  H5Dclose(d);
  H5Fclose(f);
  msfD_Root root(0);
  CaptureErr err;
  msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
  msfD_Mesh mesh = sim.discreteModel().mesh();
  long long before = mem_GetStatistics().allocations;
  EXPECT_EQ(mesh.nodes(), QELSimCollectionID(sim.distributionService().Context().Number(), 3));
  EXPECT_LT(mem_GetStatistics().allocations - before, 100);
  const std::string claim =
      "**ERROR gbb_Dataset::Size: members dataset claims "
      "288230376151711744 bytes, the file holds 1024 in " +
      std::string(kMesh) + "\n";
  EXPECT_EQ(err.Take(), claim);
  EXPECT_LE(stored, 1024u);
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
      EXPECT_EQ(TouchEverything(sim), 8);
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

  writeSize(6);
  {
    msfD_Root root(0);
    CaptureErr err;
    msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
    auto systems = sim.discreteModel().mesh().systems();
    EXPECT_EQ(systems.count(), 6);
    EXPECT_STREQ(systems.get(2).systemName().cStr(), "sub");
    EXPECT_EQ(err.Take(), "");
    // An element without a group: the open fails, the element stays empty and is tried again.
    EXPECT_TRUE(!systems.get(4));
    const std::string missing = "**ERROR hdf_Group::GroupOpen: cannot open group 4 in " +
                                std::string(kSystems) + " of file " + file +
                                "\n**ERROR fesD_FESystemHolder::Open: class  is not registered\n";
    EXPECT_EQ(err.Take(), missing);
    EXPECT_TRUE(!systems.get(4));
    EXPECT_EQ(err.Take(), missing);
    gbb_SimpleLink link(sim.Path(), "#/discreteModel/mesh/systems/:5");
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
  // Sizes no file of this size can hold: the elements that are there count,
  // and opening the array allocates nothing for the others.
  for (long long huge : {2147483647LL, 1LL << 40}) {
    WriteWholeFile(file, pristine);
    hid_t f = H5Fopen(file.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
    hid_t o = H5Oopen(f, kSystems, H5P_DEFAULT);
    H5Adelete(o, "#size");
    hsize_t one[2] = {1, 1};
    hid_t space = H5Screate_simple(2, one, nullptr);
    hid_t a = H5Acreate2(o, "#size", H5T_NATIVE_LLONG, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(a, H5T_NATIVE_LLONG, &huge);
    H5Aclose(a);
    H5Sclose(space);
    H5Oclose(o);
    H5Fclose(f);
    msfD_Root root(0);
    CaptureErr err;
    long long before = mem_GetStatistics().allocations;
    auto systems = root.openSimReadOnly(file.c_str(), "", 0).discreteModel().mesh().systems();
    EXPECT_EQ(systems.count(), 4);
    EXPECT_LT(mem_GetStatistics().allocations - before, 1000);
    EXPECT_EQ(err.Take(),
              "**ERROR gbb_Repository::ReadSize: \"#size\" is 2147483647, more than "
              "the file can hold: 4 elements are there" +
                  where);
    EXPECT_STREQ(systems.get(3).systemName().cStr(), "bare");
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

// The three lines every empty holder of a schema class prints: Bind,
// SetPath, and Traverse of an empty part made for an outer interface.
template <class Holder>
void ExpectEmptyHolderLines(CaptureErr& err, const std::string& name) {
  SCOPED_TRACE(name);
  Holder holder;
  holder.Bind(gbb_Group());
  holder.SetPath(gbb_Path(), 0);
  Holder part(typename Holder::Token(nullptr, 2));
  gbb_TraverseContext context(gbb_Path(), "x", 0, nullptr);
  EXPECT_TRUE(part.Traverse(context).IsEmpty());
  EXPECT_EQ(err.Take(), "**ERROR " + name + "::Bind: called on an empty holder\n**ERROR " + name +
                            "::SetPath: called on an empty holder\n**ERROR " + name +
                            "::Traverse: called on an empty base holder\n");
  EXPECT_TRUE(!holder.Get());
}

TEST(EmptyHandles, EveryClassReportsEachOperationAndGoesOn) {
  CaptureErr err;
  auto setter = [](const char* handle, const char* access) {
    return std::string("**ERROR ") + handle + ": called on an empty handle\n**ERROR " + access +
           "::members: called on an empty object\n";
  };
  auto getter = [](const char* handle) {
    return std::string("**ERROR ") + handle + ": called on an empty handle\n";
  };

  msfD_Sim sim;
  EXPECT_TRUE(!sim.discreteModel());
  EXPECT_EQ(err.Take(), getter("msfD_Sim::discreteModel"));
  EXPECT_TRUE(
      !sim.DiscreteModel(msfD_DiscreteModel::New(QELSimCollectionID(), QELSimCollectionID(), 0)));
  EXPECT_EQ(err.Take(), getter("msfD_Sim::DiscreteModel"));
  EXPECT_TRUE(!sim.schemaSnapshot());
  EXPECT_EQ(err.Take(), getter("msfD_Sim::schemaSnapshot"));
  EXPECT_TRUE(!sim.distributionService());
  EXPECT_EQ(err.Take(), getter("msfD_Sim::distributionService"));
  msfD_SimHolder simHolder;
  simHolder.Bind(QELSimContextID(), gbb_Group());
  simHolder.SetPath(gbb_Root(), 0);
  EXPECT_EQ(err.Take(),
            "**ERROR msfD_SimHolder::Bind: called on an empty holder\n"
            "**ERROR msfD_SimHolder::SetPath: called on an empty holder\n");

  msfD_DiscreteModel model;
  EXPECT_FALSE(model.vectors().IsValid());
  EXPECT_EQ(err.Take(), getter("msfD_DiscreteModel::vectors"));
  model.LocalNodeSets(ada_MapString<QELSimCSetID>());
  EXPECT_EQ(err.Take(), setter("msfD_DiscreteModel::LocalNodeSets", "msfD_DiscreteModelAccess"));
  EXPECT_TRUE(!model.mesh());
  EXPECT_EQ(err.Take(), getter("msfD_DiscreteModel::mesh"));
  EXPECT_TRUE(!model.Mesh(msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0)));
  EXPECT_EQ(err.Take(), getter("msfD_DiscreteModel::Mesh"));

  msfD_Mesh mesh;
  EXPECT_EQ(mesh.elementFields().count(), 0);
  EXPECT_EQ(err.Take(), getter("msfD_Mesh::elementFields"));
  mesh.LagrangeNodes(QELSimCSetID(1, 2, 3));
  EXPECT_EQ(err.Take(), setter("msfD_Mesh::LagrangeNodes", "msfD_MeshAccess"));
  EXPECT_TRUE(!mesh.systems().add(
      fesD_FESystem::New("x", QELSimDistributionID(), QELSimDistributionID(), 0)));
  EXPECT_EQ(err.Take(),
            getter("msfD_Mesh::systems") + "**ERROR gbb_Array::add: called on an empty handle\n");

  fesD_FESystem system;
  EXPECT_EQ(system.distributions().count(), 0);
  EXPECT_EQ(err.Take(), getter("fesD_FESystem::distributions"));
  system.NodalLabels(QELSimDistributionID(1, 2));
  EXPECT_EQ(err.Take(), setter("fesD_FESystem::NodalLabels", "fesD_FESystemAccess"));

  // A derived handle reports its own members under its own name and the FE
  // system members under the FE system's.
  fesD_GenericSystem generic;
  EXPECT_FALSE(generic.loads().IsValid());
  EXPECT_EQ(err.Take(), getter("fesD_GenericSystem::loads"));
  generic.Dofs(QELSimCollectionID(1, 2));
  EXPECT_EQ(err.Take(), setter("fesD_GenericSystem::Dofs", "fesD_GenericSystemAccess"));
  EXPECT_STREQ(generic.systemName().cStr(), "");
  EXPECT_EQ(err.Take(), getter("fesD_FESystem::systemName"));
  generic.SystemName("x");
  EXPECT_EQ(err.Take(), setter("fesD_FESystem::SystemName", "fesD_FESystemAccess"));

  fesD_ModalSystem modal;
  EXPECT_EQ(modal.propertyEvaluation(), 0.0);
  EXPECT_EQ(err.Take(), getter("fesD_ModalSystem::propertyEvaluation"));
  modal.AcousticModes(QELSimCSetID(1, 2, 3));
  EXPECT_EQ(err.Take(), setter("fesD_ModalSystem::AcousticModes", "fesD_ModalSystemAccess"));
  EXPECT_EQ(modal.events().count(), 0);
  EXPECT_EQ(err.Take(), getter("fesD_ModalSystem::events") +
                            "**ERROR gbb_Array::count: called on an empty handle\n");
  EXPECT_TRUE(!modal.events().get(0));
  EXPECT_EQ(err.Take(), getter("fesD_ModalSystem::events") +
                            "**ERROR gbb_Array::get: called on an empty handle\n");

  fesD_ModalEvent event;
  EXPECT_EQ(event.eventTypeID(), 0);
  EXPECT_EQ(err.Take(), getter("fesD_ModalEvent::eventTypeID"));
  event.EventName("x");
  EXPECT_EQ(err.Take(), setter("fesD_ModalEvent::EventName", "fesD_ModalEventAccess"));

  fesD_SubstructureSystem sub;
  EXPECT_FALSE(sub.recoveryElements().IsValid());
  EXPECT_EQ(err.Take(), getter("fesD_SubstructureSystem::recoveryElements"));
  sub.DofTypes(QELSimCollectionID(1, 2));
  EXPECT_EQ(err.Take(),
            setter("fesD_SubstructureSystem::DofTypes", "fesD_SubstructureSystemAccess"));
  EXPECT_TRUE(!sub.damping());
  EXPECT_EQ(err.Take(), getter("fesD_SubstructureSystem::damping"));
  EXPECT_TRUE(!sub.Damping(fesD_SubDamp::New(0)));  // the offered damping is destroyed
  EXPECT_EQ(err.Take(), getter("fesD_SubstructureSystem::Damping"));

  fesD_SubDamp damping;
  EXPECT_EQ(damping.mass(), 0.0);
  EXPECT_EQ(err.Take(), getter("fesD_SubDamp::mass"));
  damping.Volume(2.0);
  EXPECT_EQ(err.Take(), setter("fesD_SubDamp::Volume", "fesD_SubDampAccess"));
  EXPECT_EQ(damping.volume(), 0.0);  // the invalid access stored nothing anywhere
  EXPECT_EQ(err.Take(), getter("fesD_SubDamp::volume"));

  ExpectEmptyHolderLines<msfD_DiscreteModelHolder>(err, "msfD_DiscreteModelHolder");
  ExpectEmptyHolderLines<msfD_MeshHolder>(err, "msfD_MeshHolder");
  ExpectEmptyHolderLines<fesD_FESystemHolder>(err, "fesD_FESystemHolder");
  ExpectEmptyHolderLines<fesD_GenericSystemHolder>(err, "fesD_GenericSystemHolder");
  ExpectEmptyHolderLines<fesD_ModalSystemHolder>(err, "fesD_ModalSystemHolder");
  ExpectEmptyHolderLines<fesD_ModalEventHolder>(err, "fesD_ModalEventHolder");
  ExpectEmptyHolderLines<fesD_SubstructureSystemHolder>(err, "fesD_SubstructureSystemHolder");
  ExpectEmptyHolderLines<fesD_SubDampHolder>(err, "fesD_SubDampHolder");
}

TEST_F(BadInput, AReadOnlyDatabaseRefusesEveryWriteAndStaysByteIdentical) {
  MakeDatabase();
  const std::string before = ReadWholeFile(file);
  const std::string systemsIn = std::string(kSystems);
  const std::string ofFile = " of file " + file + ": file is read-only\n";
  {
    msfD_Root root(0);
    CaptureErr err;
    msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
    int c = sim.distributionService().Context().Number();
    // Setters: the commit's write is refused.
    msfD_Mesh mesh = sim.discreteModel().mesh();
    mesh.Faces(QELSimCollectionID(c, 30));
    EXPECT_EQ(err.Take(), "**ERROR hdf_Dataset::Write: cannot write " + std::string(kMesh) +
                              "/#simpleTypeMembers" + ofFile);
    auto systems = mesh.systems();
    systems.get(0).SystemName("renamed");  // a longer stream: the dataset would grow
    EXPECT_EQ(err.Take(), "**ERROR hdf_Dataset::Extend: cannot extend " + systemsIn +
                              "/0/#simpleTypeMembers" + ofFile);
    fesD_SubDamp damping = fesD_SubstructureSystem(systems.get(2)).damping();
    damping.Mass(9.0);
    EXPECT_EQ(err.Take(), "**ERROR hdf_Dataset::Write: cannot write " + systemsIn +
                              "/2/damping/#simpleTypeMembers" + ofFile);
    EXPECT_EQ(damping.mass(), 9.0);  // the edit lives on in memory only
    // Sub-object setters: an empty slot takes the object, but its group
    // cannot be made; an occupied one refuses before touching the file.
    fesD_SubstructureSystem bare(systems.get(3));
    EXPECT_FALSE(!bare.Damping(fesD_SubDamp::New(0)));
    EXPECT_EQ(err.Take(), "**ERROR hdf_Group::GroupCreate: cannot create group damping in " +
                              systemsIn + "/3" + ofFile);
    sim.DiscreteModel(msfD_DiscreteModel::New(QELSimCollectionID(), QELSimCollectionID(), 0));
    EXPECT_EQ(err.Take(), "**ERROR:msfD_SimImpl::DiscreteModel: already exists\n");
    // Array adds: neither the element group nor the new size is written.
    systems.add(fesD_FESystem::New("new", QELSimDistributionID(), QELSimDistributionID(), 0));
    EXPECT_EQ(err.Take(), "**ERROR hdf_Group::GroupCreate: cannot create group 4 in " + systemsIn +
                              ofFile +
                              "**ERROR hdf_Attribute::Write: cannot write attribute #size in " +
                              systemsIn + ofFile);
    EXPECT_EQ(systems.count(), 5);
    fesD_ModalSystem(systems.get(1))
        .events()
        .add(fesD_ModalEvent::New("e1", 1, QELSimCollectionID(), QELSimCollectionID(), 0));
    EXPECT_EQ(err.Take(), "**ERROR hdf_Group::GroupCreate: cannot create group 1 in " + systemsIn +
                              "/1/events" + ofFile +
                              "**ERROR hdf_Attribute::Write: cannot write attribute #size in " +
                              systemsIn + "/1/events" + ofFile);
  }
  EXPECT_EQ(ReadWholeFile(file), before);
  msfD_Root root(0);
  CaptureErr err;
  msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
  EXPECT_EQ(TouchEverything(sim), 8);
  EXPECT_FALSE(sim.discreteModel().mesh().faces().IsValid());
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
