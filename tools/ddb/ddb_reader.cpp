#include "ddb_reader.h"

#include <DDB_PDM_Core.h>

#include <cstdio>

namespace {

std::string Ints(const std::vector<int>& values) {
  std::string text;
  for (int v : values) text += (text.empty() ? "" : " ") + std::to_string(v);
  return text;
}

// Everything the library prints while a reader lives, line by line.
class Capture {
 public:
  Capture() {
    aio_cerr.SetSink(&Capture::Sink, this);
    gbb_TakeLoadFailures(nullptr, 0);  // what failed before this read is not its
  }
  ~Capture() { aio_cerr.SetSink(nullptr, nullptr); }
  // The complete lines printed since the last call.
  std::vector<std::string> Take() {
    aio_cerr.flush();
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = m_text.find('\n', start)) != std::string::npos; start = end + 1) {
      lines.push_back(m_text.substr(start, end - start));
    }
    m_text.erase(0, start);
    return lines;
  }

 private:
  static void Sink(void* self, const char* bytes, int count) {
    static_cast<Capture*>(self)->m_text.append(bytes, static_cast<size_t>(count));
  }
  std::string m_text;
};

class Reader {
 public:
  Reader(Capture* capture, int depth) : m_capture(capture), m_depth(depth) {}

  void Sim(const msfD_Sim& sim, DdbObject* out) {
    Begin(out, "com.trevolo.Sim", "#", "sim");
    msfD_DiscreteModel model = sim.discreteModel();
    End(out);
    if (!model || !Deeper(1)) return;
    DdbObject* o = Child(out, "com.trevolo.DiscreteModel", "#/discreteModel", "discreteModel");
    Value(o, "vectors", model.vectors());
    Value(o, "localNodes", model.localNodes());
    Value(o, "localFaces", model.localFaces());
    Value(o, "frames", model.frames());
    Value(o, "integrationPoints", model.integrationPoints());
    Value(o, "sectionPoints", model.sectionPoints());
    Value(o, "components", model.components());
    Value(o, "localNodeSets", model.localNodeSets());
    Value(o, "sectionPointSets", model.sectionPointSets());
    msfD_Mesh mesh = model.mesh();
    End(o);
    if (!!mesh && Deeper(2))
      Mesh(mesh, Child(o, "com.trevolo.Mesh", "#/discreteModel/mesh", "mesh"));
  }

  // The object a handle designates, whatever its class.
  void Any(const gbb_Handle& handle, const std::string& link, DdbObject* out) {
    msfD_Mesh mesh(handle);
    if (!!mesh) return Mesh(mesh, Start(out, "com.trevolo.Mesh", link));
    fesD_SubDamp damping(handle);
    if (!!damping) return Damping(damping, Start(out, "com.trevolo.SubDamp", link));
    fesD_ModalEvent event(handle);
    if (!!event) return Event(event, Start(out, "com.trevolo.ModalEvent", link));
    fesD_FESystem system(handle);
    if (!!system) return System(system, link, out, 0);
    // Objects without members of their own to show.
    gbb_ClassID id = handle.Class().ClassID();
    Start(out, std::string(id.Bytes(), static_cast<size_t>(id.Length())), link);
    End(out);
  }

 private:
  static DdbObject* Start(DdbObject* o, const std::string& cls, const std::string& link) {
    o->cls = cls;
    o->link = link;
    return o;
  }
  void Begin(DdbObject* o, const std::string& cls, const std::string& link,
             const std::string& name) {
    Start(o, cls, link);
    o->name = name;
  }
  DdbObject* Child(DdbObject* parent, const std::string& cls, const std::string& link,
                   const std::string& name) {
    parent->children.emplace_back();
    DdbObject* o = &parent->children.back();
    Begin(o, cls, link, name);
    return o;
  }
  void End(DdbObject* o) {
    for (std::string& line : m_capture->Take()) o->messages.push_back(line);
    gbb_LoadFailure failures[16];
    int n = gbb_TakeLoadFailures(failures, 16);
    for (int i = 0; i < n; ++i) {
      o->undecoded.push_back("at byte " + std::to_string(failures[i].offset) + " (" +
                             failures[i].implName + ", stream error " +
                             std::to_string(failures[i].status) + ")");
    }
  }
  bool Deeper(int level) const { return m_depth < 0 || level <= m_depth; }

  static void Put(DdbObject* o, const std::string& name, const std::string& value) {
    o->values.emplace_back(name, value);
  }
  void Value(DdbObject* o, const std::string& name, int v) { Put(o, name, std::to_string(v)); }
  void Value(DdbObject* o, const std::string& name, double v) {
    char text[32];
    snprintf(text, sizeof text, "%.17g", v);
    Put(o, name, text);
  }
  void Value(DdbObject* o, const std::string& name, const ada_string& v) {
    Put(o, name, std::string("\"") + (v.cStr() != nullptr ? v.cStr() : "") + "\"");
  }
  void Value(DdbObject* o, const std::string& name, QELSimCollectionID id) {
    if (!id.IsValid()) return Put(o, name, "-");
    Put(o, name,
        "collection " + std::to_string(id.CollectionMinor()) + " of " +
            std::to_string(QELSimCollectionRef(id).Size()));
  }
  void Value(DdbObject* o, const std::string& name, QELSimCSetID id) {
    if (!id.IsValid()) return Put(o, name, "-");
    QELSimCSet set(id);
    std::vector<int> members(static_cast<size_t>(set.Size()) + 1);
    set.OrderedMembers(members.data());
    members.pop_back();
    Put(o, name,
        "set " + std::to_string(id.CollectionMinor()) + "/" + std::to_string(id.CSetMinor()) +
            " [" + Ints(members) + "]");
  }
  void Value(DdbObject* o, const std::string& name, QELSimDistributionID id) {
    if (!id.IsValid()) return Put(o, name, "-");
    std::string label = "distribution " + std::to_string(id.DistributionMinor());
    QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
    QELSimDistributionRef(id).QueryDrawers(drawers);
    if (drawers.Size() != 1 || drawers[0].NumDimensions() != 1) {
      return Put(o, name, label + " unreadable");
    }
    std::vector<int> values(static_cast<size_t>(drawers[0].DataSizeItems(0)) + 1);
    QELSimTransfer t(id);
    t.SetRead();
    t.SetBufferPadding(false);
    t.SetDim(0, drawers[0].DimensionSets()[0]);
    t.SetBuffer(0, values.data(), (values.size() - 1) * sizeof(int));
    bool read = t.ExecRead();
    values.pop_back();
    Put(o, name, read ? label + " [" + Ints(values) + "]" : label + " unreadable");
  }
  template <class T>
  void Value(DdbObject* o, const std::string& name, const ada_MapString<T>& map) {
    ada_MapStringIterator<T> it(map);
    for (it.first(); !it.isDone(); it.next()) {
      Value(o, name + "[" + (it.key().cStr() != nullptr ? it.key().cStr() : "") + "]", it.value());
    }
  }
  template <class T>
  void Value(DdbObject* o, const std::string& name, const ada_MapInt<T>& map) {
    ada_MapIntIterator<T> it(map);
    for (it.first(); !it.isDone(); it.next()) {
      Value(o, name + "[" + std::to_string(it.key()) + "]", it.value());
    }
  }

  void Mesh(const msfD_Mesh& mesh, DdbObject* o) {
    Value(o, "nodes", mesh.nodes());
    Value(o, "elements", mesh.elements());
    Value(o, "faces", mesh.faces());
    Value(o, "instances", mesh.instances());
    Value(o, "regions", mesh.regions());
    Value(o, "lagrangeNodes", mesh.lagrangeNodes());
    Value(o, "nodeSets", mesh.nodeSets());
    Value(o, "elementSets", mesh.elementSets());
    Value(o, "instanceSets", mesh.instanceSets());
    Value(o, "regionSets", mesh.regionSets());
    Value(o, "meshFields", mesh.meshFields());
    Value(o, "surfaces", mesh.surfaces());
    Value(o, "frameFields", mesh.frameFields());
    Value(o, "nodeFields", mesh.nodeFields());
    Value(o, "elementFields", mesh.elementFields());
    Value(o, "surfaceFields", mesh.surfaceFields());
    Value(o, "regionFields", mesh.regionFields());
    Value(o, "localNodeFields", mesh.localNodeFields());
    auto systems = mesh.systems();
    Value(o, "systems", systems.count());
    End(o);
    if (!Deeper(3)) return;
    for (int i = 0; i < systems.count(); ++i) {
      fesD_FESystem system = systems.get(i);
      o->children.emplace_back();
      DdbObject* c = &o->children.back();
      c->name = "systems[" + std::to_string(i) + "]";
      System(system, o->link + "/systems/:" + std::to_string(i), c, 3);
    }
  }

  void System(const fesD_FESystem& system, const std::string& link, DdbObject* o, int level) {
    o->link = link;
    if (!system) {
      End(o);
      return;
    }
    fesD_GenericSystem generic(system);
    fesD_ModalSystem modal(system);
    fesD_SubstructureSystem sub(system);
    o->cls = !!generic ? "com.trevolo.GenericSystem"
             : !!modal ? "com.trevolo.ModalSystem"
             : !!sub   ? "com.trevolo.SubstructureSystem"
                       : "com.trevolo.FESystem";
    Value(o, "systemName", system.systemName());
    Value(o, "nodalLabels", system.nodalLabels());
    Value(o, "nodalActivityMask", system.nodalActivityMask());
    Value(o, "distributions", system.distributions());
    Value(o, "userDistributions", system.userDistributions());
    if (!!generic) {
      Value(o, "dofs", generic.dofs());
      Value(o, "loads", generic.loads());
    } else if (!!modal) {
      Value(o, "dofs", modal.dofs());
      Value(o, "modes", modal.modes());
      Value(o, "propertyEvaluation", modal.propertyEvaluation());
      Value(o, "solverDofOrdering", modal.solverDofOrdering());
      Value(o, "selectiveRecoveryNodes", modal.selectiveRecoveryNodes());
      Value(o, "residualModeDofs", modal.residualModeDofs());
      Value(o, "residualModes", modal.residualModes());
      Value(o, "structuralModes", modal.structuralModes());
      Value(o, "acousticModes", modal.acousticModes());
      Value(o, "events", modal.events().count());
    } else if (!!sub) {
      Value(o, "dofTypes", sub.dofTypes());
      Value(o, "dofs", sub.dofs());
      Value(o, "modes", sub.modes());
      Value(o, "retainedNodes", sub.retainedNodes());
      Value(o, "retainedDofs", sub.retainedDofs());
      Value(o, "recoveryNodes", sub.recoveryNodes());
      Value(o, "recoveryElements", sub.recoveryElements());
    }
    fesD_SubDamp damping = !!sub ? sub.damping() : fesD_SubDamp();
    End(o);
    if (!Deeper(level + 1)) return;
    if (!!modal) {
      auto events = modal.events();
      for (int j = 0; j < events.count(); ++j) {
        fesD_ModalEvent event = events.get(j);
        std::string name = "events[" + std::to_string(j) + "]";
        DdbObject* c =
            Child(o, "com.trevolo.ModalEvent", link + "/events/:" + std::to_string(j), name);
        if (!event) {
          c->cls.clear();
          End(c);
          continue;
        }
        Event(event, c);
      }
    }
    if (!!damping) Damping(damping, Child(o, "com.trevolo.SubDamp", link + "/damping", "damping"));
  }

  void Event(const fesD_ModalEvent& event, DdbObject* o) {
    Value(o, "eventName", event.eventName());
    Value(o, "eventTypeID", event.eventTypeID());
    Value(o, "activeModes", event.activeModes());
    Value(o, "frames", event.frames());
    Value(o, "cases", event.cases());
    Value(o, "distributions", event.distributions());
    Value(o, "userDistributions", event.userDistributions());
    End(o);
  }

  void Damping(const fesD_SubDamp& damping, DdbObject* o) {
    Value(o, "alpha", damping.alpha());
    Value(o, "beta", damping.beta());
    Value(o, "structural", damping.structural());
    Value(o, "mass", damping.mass());
    Value(o, "volume", damping.volume());
    End(o);
  }

  Capture* m_capture;
  int m_depth;
};

// Whether the file of an open sim holds the group "sim". The root opens a
// file without it too (an HDF5 file that is no database), as a sim with no
// objects; the tool refuses such a file as one it cannot open.
bool HasSimGroup(const msfD_Sim& sim) {
  return QELSimContextRef(sim.distributionService().Context())
      .File()
      .RootGroup()
      .GetObjinfoExists("sim");
}

// Opens `path` read-only in `root` under `alias`; the reason on failure
// from what the library said. What it said on a successful open (a foreign
// service format, say) is left in *said.
msfD_Sim Open(msfD_Root& root, const std::string& path, const std::string& alias, Capture& capture,
              std::string* why, std::vector<std::string>* said) {
  msfD_Sim sim = root.openSimReadOnly(path.c_str(), alias.c_str(), 0);
  const bool opened = !sim == false;
  if (opened && !HasSimGroup(sim)) {
    root.closeSim(sim);
    sim = msfD_Sim();
  }
  *said = capture.Take();
  if (!sim) *why = said->empty() ? "cannot open " + path : said->front();
  return sim;
}

}  // namespace

bool DdbRead(const std::string& path, int depth, DdbObject* sim, std::string* why) {
  Capture capture;
  msfD_Root root(0);
  std::vector<std::string> said;
  msfD_Sim opened = Open(root, path, "", capture, why, &said);
  if (!opened) return false;
  Reader(&capture, depth).Sim(opened, sim);
  sim->messages.insert(sim->messages.begin(), said.begin(), said.end());
  return true;
}

bool DdbReadLink(const std::string& path, const std::string& link, int depth, DdbObject* object,
                 std::string* why) {
  Capture capture;
  msfD_Root root(0);
  // A link that starts at a sim by alias names the alias the sim is opened under.
  std::string alias;
  if (link.rfind("alias:", 0) == 0) alias = link.substr(6, link.find('#') - 6);
  std::vector<std::string> said;
  msfD_Sim sim = Open(root, path, alias, capture, why, &said);
  if (!sim) return false;
  gbb_SimpleLink resolved(sim.Path(), link.c_str());
  gbb_Handle handle = resolved.Get(0);
  if (handle.IsEmpty()) {
    *why =
        "link " + link + " resolves to nothing (status " + std::to_string(resolved.Stale()) + ")";
    return false;
  }
  Reader(&capture, depth).Any(handle, link, object);
  return true;
}

void DdbVisit(const DdbObject& root, void (*visit)(const DdbObject&, void*), void* context) {
  visit(root, context);
  for (const DdbObject& child : root.children) DdbVisit(child, visit, context);
}
