// A host program: builds a small simulation database the way an analysis
// component would, closes it, reopens it read-only and prints what it finds.
//
//   ddb_demo [directory]      demo.sim in the directory, made if missing
//                             (default: a fresh directory under /tmp); an
//                             existing demo.sim is left alone, with a message
//   ddb_demo --walk FILE      only the walk, of a database made elsewhere
//                             (examples/python/make_database.py makes the same one)
//   ddb_demo --help
//
// Bulk data (collections, ordered sets, int32 fields) goes into the
// simulation-database service through its client API; the persistent objects
// only keep the service's identifiers. Reading back, every object is opened
// from the file when it is first touched, so the walk below is what loads
// the tree. Apart from the file path the output is the same on every run.
#include <DDB_PDM_Core.h>
#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

const int kNodes = 8;
const int kElements = 3;

// --- building ---------------------------------------------------------------

// An ordered set of the given members of a collection.
QELSimCSetID OrderedSet(QELSimCollectionID collection, const std::vector<int>& members) {
  return QELSimCollectionRef(collection)
      .CreateOrderedCSet(members.data(), static_cast<int>(members.size()));
}

// An int32 field over a set: value i belongs to the set's i-th member.
QELSimDistributionID Field(QELSimCSetID set, const std::vector<int>& values) {
  return QELSimDistributionRef::CreateInt32(set, values.data());
}

std::vector<int> Range(int first, int count, int step = 1) {
  std::vector<int> out;
  for (int i = 0; i < count; ++i) out.push_back(first + i * step);
  return out;
}

// Bulk data of the whole mesh, made once and shared by its systems.
struct MeshData {
  QELSimContextID context;
  QELSimCollectionID nodes, elements, dofTypes, dofs, loads, modes, frames, cases;
  QELSimCSetID allNodes, allElements;
  QELSimDistributionID labels, masks;
};

MeshData MakeMeshData(QELSimContextID context) {
  MeshData d;
  d.context = context;
  d.nodes = QELSimCollectionRef::Create(context, kNodes);
  d.elements = QELSimCollectionRef::Create(context, kElements);
  d.dofTypes = QELSimCollectionRef::Create(context, 3);
  d.dofs = QELSimCollectionRef::Create(context, 3 * kNodes);
  d.loads = QELSimCollectionRef::Create(context, 2);
  d.modes = QELSimCollectionRef::Create(context, 6);
  d.frames = QELSimCollectionRef::Create(context, 10);
  d.cases = QELSimCollectionRef::Create(context, 2);
  d.allNodes = OrderedSet(d.nodes, Range(0, kNodes));
  d.allElements = OrderedSet(d.elements, Range(0, kElements));
  d.labels = Field(d.allNodes, Range(101, kNodes));          // user labels 101 ...
  d.masks = Field(d.allNodes, std::vector<int>(kNodes, 7));  // ux, uy, uz at every node
  return d;
}

void FillMesh(const msfD_Mesh& mesh, const MeshData& d) {
  ada_MapString<QELSimCSetID> nodeSets;
  nodeSets.insert("fixed", OrderedSet(d.nodes, {0, 1, 2, 3}));
  nodeSets.insert("loaded", OrderedSet(d.nodes, {7, 6}));
  mesh.NodeSets(nodeSets);
  ada_MapString<QELSimCSetID> elementSets;
  elementSets.insert("all", d.allElements);
  mesh.ElementSets(elementSets);
  ada_MapString<QELSimDistributionID> nodeFields;
  nodeFields.insert("temperature", Field(d.allNodes, Range(20, kNodes, 5)));
  mesh.NodeFields(nodeFields);
  ada_MapString<QELSimDistributionID> elementFields;
  elementFields.insert("material", Field(d.allElements, {1, 1, 2}));
  mesh.ElementFields(elementFields);
}

// Every system keeps the labels and masks, plus two more fields in its maps.
template <class System>
void AddSystemFields(const System& system, const MeshData& d) {
  ada_MapInt<QELSimDistributionID> byNumber;
  byNumber.insert(1, d.masks);
  system.Distributions(byNumber);
  ada_MapString<QELSimDistributionID> byName;
  byName.insert("labels", d.labels);
  system.UserDistributions(byName);
}

void AddSystems(const msfD_Mesh& mesh, const MeshData& d) {
  auto systems = mesh.systems();
  fesD_FESystem plain = systems.add(fesD_FESystem::New("structure", d.labels, d.masks, 0));
  AddSystemFields(plain, d);

  fesD_GenericSystemHolder generic =
      fesD_GenericSystem::New("generic", d.labels, d.masks, d.dofs, d.loads, 0);
  systems.add(generic.ReleaseAsFESystem());

  // A derived system is filled before it goes into the array: its holder is
  // given up there, and the array keeps a holder of its FE system part.
  fesD_ModalSystemHolder modalHolder =
      fesD_ModalSystem::New("modal", d.labels, d.masks, d.dofs, d.modes, 0);
  fesD_ModalSystem modal = modalHolder.Get();
  modal.PropertyEvaluation(20.0);
  modal.StructuralModes(OrderedSet(d.modes, {0, 1, 2, 3}));
  modal.ResidualModes(OrderedSet(d.modes, {4, 5}));
  AddSystemFields(modal, d);
  modal.events().add(fesD_ModalEvent::New("eigen", 1, d.frames, d.cases, 0));
  fesD_ModalEvent response =
      modal.events().add(fesD_ModalEvent::New("response", 2, d.frames, d.cases, 0));
  response.ActiveModes(OrderedSet(d.modes, {0, 1}));
  systems.add(modalHolder.ReleaseAsFESystem());

  fesD_SubstructureSystemHolder subHolder = fesD_SubstructureSystem::New(
      "superelement", d.labels, d.masks, d.dofTypes, d.dofs, d.modes, 0);
  fesD_SubstructureSystem sub = subHolder.Get();
  sub.RetainedNodes(OrderedSet(d.nodes, {0, 7}));
  fesD_SubDamp damping = sub.Damping(fesD_SubDamp::New(0));
  damping.Alpha(0.1);
  damping.Beta(0.02);
  damping.Structural(0.05);
  systems.add(subHolder.ReleaseAsFESystem());
}

bool Build(msfD_Root& root, const std::string& file) {
  msfD_Sim sim = root.createSim(file.c_str(), "demo", 0);
  if (!sim) return false;
  QELSimContextID context = sim.distributionService().Context();
  MeshData d = MakeMeshData(context);
  QELSimCollectionID vectors = QELSimCollectionRef::Create(context, 3);
  msfD_DiscreteModel model = sim.DiscreteModel(msfD_DiscreteModel::New(vectors, d.nodes, 0));
  ada_MapString<QELSimCSetID> localNodeSets;
  localNodeSets.insert("corners", OrderedSet(d.nodes, {0, 3, 4, 7}));
  model.LocalNodeSets(localNodeSets);
  msfD_Mesh mesh = model.Mesh(msfD_Mesh::New(d.nodes, d.elements, 0));
  FillMesh(mesh, d);
  AddSystems(mesh, d);
  root.closeSim(sim);
  return true;
}

// --- reading ----------------------------------------------------------------

// What the service says about each kind of identifier.
std::string Describe(QELSimCollectionID id) {
  if (!id.IsValid()) return "-";
  return "collection of " + std::to_string(QELSimCollectionRef(id).Size());
}

std::string Describe(QELSimCSetID id) {
  if (!id.IsValid()) return "-";
  return "set of " + std::to_string(QELSimCSet(id).Size());
}

std::string Describe(QELSimDistributionID id) {
  if (!id.IsValid()) return "-";
  QELSimDistributionRef field(id);
  if (field.NumDrawers() < 1) return "unknown field";
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  field.QueryDrawers(drawers);
  return "int32 field of " + std::to_string(drawers[0].DataSizeItems(0));
}

std::string ClassName(const gbb_Handle& handle) {
  gbb_ClassID id = handle.Class().ClassID();
  return std::string(id.Bytes(), static_cast<size_t>(id.Length()));
}

void Line(int depth, const std::string& text) {
  std::printf("%*s%s\n", 2 * depth, "", text.c_str());
}

template <class Id>
void Member(int depth, const char* name, Id id) {
  Line(depth, std::string(name) + ": " + Describe(id));
}

template <class Id>
void Map(int depth, const char* name, const ada_MapString<Id>& map) {
  if (map.count() == 0) return;  // empty maps are left out
  Line(depth, std::string(name) + ":");
  ada_MapStringIterator<Id> it(map);
  for (it.first(); !it.isDone(); it.next()) {
    Line(depth + 1, std::string(it.key().cStr()) + ": " + Describe(it.value()));
  }
}

template <class Id>
void Map(int depth, const char* name, const ada_MapInt<Id>& map) {
  if (map.count() == 0) return;
  Line(depth, std::string(name) + ":");
  ada_MapIntIterator<Id> it(map);
  for (it.first(); !it.isDone(); it.next()) {
    Line(depth + 1, std::to_string(it.key()) + ": " + Describe(it.value()));
  }
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

// The FE system part every system has, whatever its class.
void PrintFESystem(int depth, const fesD_FESystem& system) {
  Line(depth, std::string("systemName: \"") + system.systemName().cStr() + "\"");
  Member(depth, "nodalLabels", system.nodalLabels());
  Member(depth, "nodalActivityMask", system.nodalActivityMask());
  Map(depth, "distributions", system.distributions());
  Map(depth, "userDistributions", system.userDistributions());
}

void PrintModal(int depth, const fesD_ModalSystem& modal) {
  Member(depth, "dofs", modal.dofs());
  Member(depth, "modes", modal.modes());
  Line(depth, "propertyEvaluation: " + Number(modal.propertyEvaluation()));
  Member(depth, "structuralModes", modal.structuralModes());
  Member(depth, "residualModes", modal.residualModes());
  auto events = modal.events();
  Line(depth, "events: " + std::to_string(events.count()));
  for (int i = 0; i < events.count(); ++i) {
    fesD_ModalEvent event = events.get(i);
    Line(depth + 1, ":" + std::to_string(i) + " " + ClassName(event) + " \"" +
                        event.eventName().cStr() + "\" type " +
                        std::to_string(event.eventTypeID()));
    Member(depth + 2, "activeModes", event.activeModes());
    Member(depth + 2, "frames", event.frames());
    Member(depth + 2, "cases", event.cases());
  }
}

void PrintSubstructure(int depth, const fesD_SubstructureSystem& sub) {
  Member(depth, "dofTypes", sub.dofTypes());
  Member(depth, "dofs", sub.dofs());
  Member(depth, "retainedNodes", sub.retainedNodes());
  fesD_SubDamp damping = sub.damping();
  if (!damping) {
    Line(depth, "damping: -");
    return;
  }
  Line(depth, "damping " + ClassName(damping) + ": alpha " + Number(damping.alpha()) + ", beta " +
                  Number(damping.beta()) + ", structural " + Number(damping.structural()) +
                  ", mass " + Number(damping.mass()) + ", volume " + Number(damping.volume()));
}

// Each element of the array is an FE system; converting it back to its own
// class succeeds only for that class.
void PrintSystem(int depth, int index, const fesD_FESystem& system) {
  Line(depth, ":" + std::to_string(index) + " " + ClassName(system));
  PrintFESystem(depth + 1, system);
  fesD_GenericSystem generic(system);
  if (!!generic) {
    Member(depth + 1, "dofs", generic.dofs());
    Member(depth + 1, "loads", generic.loads());
  }
  fesD_ModalSystem modal(system);
  if (!!modal) PrintModal(depth + 1, modal);
  fesD_SubstructureSystem sub(system);
  if (!!sub) PrintSubstructure(depth + 1, sub);
}

void PrintMesh(int depth, const msfD_Mesh& mesh) {
  Line(depth, "mesh " + ClassName(mesh));
  ++depth;
  Member(depth, "nodes", mesh.nodes());
  Member(depth, "elements", mesh.elements());
  Member(depth, "faces", mesh.faces());
  Map(depth, "nodeSets", mesh.nodeSets());
  Map(depth, "elementSets", mesh.elementSets());
  Map(depth, "nodeFields", mesh.nodeFields());
  Map(depth, "elementFields", mesh.elementFields());
  auto systems = mesh.systems();
  int loaded = 0;
  for (int i = 0; i < systems.count(); ++i) loaded += systems.GetImpl()->IsLoaded(i) ? 1 : 0;
  Line(depth, "systems: " + std::to_string(systems.count()) + " (" + std::to_string(loaded) +
                  " in memory before this walk)");
  for (int i = 0; i < systems.count(); ++i) PrintSystem(depth + 1, i, systems.get(i));
}

void PrintTree(const msfD_Sim& sim) {
  Line(0, "sim " + ClassName(sim) + ", path index " + std::to_string(sim.Path().Index()));
  msfD_DiscreteModel model = sim.discreteModel();
  Line(1, "discreteModel " + ClassName(model));
  Member(2, "vectors", model.vectors());
  Member(2, "localNodes", model.localNodes());
  Map(2, "localNodeSets", model.localNodeSets());
  PrintMesh(2, model.mesh());
}

void ResolveLinks(const msfD_Sim& sim) {
  std::printf("\nlinks, resolved from the sim:\n");
  const char* texts[] = {
      "#/distributionService",
      "#/schemaSnapshot",
      "#/discreteModel/mesh",
      "alias:demo#/discreteModel/mesh/systems/:2/events/:1",
      "#/discreteModel/mesh/systems/:3/damping",
      "#/discreteModel/mesh/systems/:9",
  };
  for (const char* text : texts) {
    gbb_SimpleLink link(sim.Path(), text);
    gbb_Handle found = link.Get(0);
    std::string what;
    if (!found) {
      what = "nothing (status " + std::to_string(link.Stale()) + ")";
    } else {
      what = ClassName(found);
      fesD_ModalEvent event(found);
      if (!!event) what += std::string(" \"") + event.eventName().cStr() + "\"";
      gbb_DistributionService service(found);
      if (!!service)
        what += service.Context() == sim.distributionService().Context() ? " (the sim's context)"
                                                                         : " (another context)";
    }
    Line(1, std::string(text) + " -> " + what);
  }
}

const char kUsage[] =
    "usage: ddb_demo [DIRECTORY]   build DIRECTORY/demo.sim (default: a fresh directory under "
    "/tmp), reopen it, walk it\n"
    "       ddb_demo --walk FILE   only walk a database made elsewhere\n";

std::string TemporaryDirectory() {
  char pattern[] = "/tmp/ddb_demo_XXXXXX";
  const char* made = mkdtemp(pattern);
  return made != nullptr ? made : "/tmp";
}

// Makes `directory` and its missing parents, like mkdir -p.
bool MakeDirectories(const std::string& directory) {
  for (size_t slash = directory.find('/', 1);; slash = directory.find('/', slash + 1)) {
    std::string part = directory.substr(0, slash);
    struct stat info;
    if (stat(part.c_str(), &info) != 0 && mkdir(part.c_str(), 0777) != 0 && errno != EEXIST)
      return false;
    if (slash == std::string::npos) break;
  }
  struct stat info;
  return stat(directory.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// What the command line asks for: the database file and whether only to walk
// it. Returns the exit status to stop with, or -1 to go on.
int ParseArguments(int argc, char** argv, std::string* file, bool* walkOnly) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
    std::printf("%s", kUsage);
    return 0;
  }
  *walkOnly = !args.empty() && args[0] == "--walk";
  bool wellFormed = *walkOnly ? args.size() == 2 : args.size() <= 1;
  for (size_t i = *walkOnly ? 1 : 0; i < args.size(); ++i)
    wellFormed = wellFormed && !args[i].empty() && args[i][0] != '-';
  if (!wellFormed) {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }
  if (*walkOnly) {
    *file = args[1];
    return -1;
  }
  std::string directory = args.empty() ? TemporaryDirectory() : args[0];
  if (!MakeDirectories(directory)) {
    std::fprintf(stderr, "ddb_demo: cannot make the directory %s\n", directory.c_str());
    return 1;
  }
  *file = directory + "/demo.sim";
  struct stat info;
  if (stat(file->c_str(), &info) == 0) {
    std::fprintf(stderr,
                 "ddb_demo: %s exists; the demo does not overwrite it (remove it or give "
                 "another directory)\n",
                 file->c_str());
    return 1;
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  std::string file;
  bool walkOnly = false;
  int stop = ParseArguments(argc, argv, &file, &walkOnly);
  if (stop >= 0) return stop;
  int count = 0;
  DDB_PDM_Core_initialize(count);
  int status = 0;
  {
    msfD_Root root(0);
    std::printf("database file: %s\n", file.c_str());
    std::fflush(stdout);  // before anything the library prints on the error stream
    msfD_Sim sim;
    if (walkOnly || Build(root, file)) sim = root.openSimReadOnly(file.c_str(), "demo", 0);
    if (!sim) {
      std::printf("the database could not be built or reopened (see the error stream)\n");
      status = 1;
    } else {
      std::printf("reopened read-only; objects are read as the walk reaches them\n\n");
      PrintTree(sim);
      ResolveLinks(sim);
    }
  }  // the root closes the sim and its file
  aio_cerr.flush();
  DDB_PDM_Core_finalize(count);
  return status;
}
