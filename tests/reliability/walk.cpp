#include "reliability/walk.h"

#include <DDB_PDM_Core.h>

#include <cstdio>
#include <sstream>
#include <vector>

namespace {

class Walker {
 public:
  std::string Text() const { return m_out.str(); }

  void Sim(const msfD_Sim& sim) {
    msfD_DiscreteModel model = sim.discreteModel();
    if (!model) return;
    Scope scope(this, "model");
    Value("vectors", model.vectors());
    Value("localNodes", model.localNodes());
    Value("localFaces", model.localFaces());
    Value("frames", model.frames());
    Value("integrationPoints", model.integrationPoints());
    Value("sectionPoints", model.sectionPoints());
    Value("components", model.components());
    Value("localNodeSets", model.localNodeSets());
    Value("sectionPointSets", model.sectionPointSets());
    Mesh(model.mesh());
  }

 private:
  // Prefixes the lines written while it lives.
  struct Scope {
    Scope(Walker* w, const std::string& name) : walker(w), saved(w->m_prefix) {
      w->m_prefix += name + ".";
    }
    ~Scope() { walker->m_prefix = saved; }
    Walker* walker;
    std::string saved;
  };

  void Line(const std::string& name, const std::string& value) {
    m_out << m_prefix << name << " = " << value << "\n";
  }

  void Value(const std::string& name, int v) { Line(name, std::to_string(v)); }
  void Value(const std::string& name, double v) {
    char text[32];
    snprintf(text, sizeof text, "%.17g", v);
    Line(name, text);
  }
  void Value(const std::string& name, const ada_string& v) {
    Line(name, v.cStr() != nullptr ? v.cStr() : "");
  }
  void Value(const std::string& name, QELSimCollectionID id) {
    if (!id.IsValid()) return Line(name, "-");
    Line(name, "collection of " + std::to_string(QELSimCollectionRef(id).Size()));
  }
  void Value(const std::string& name, QELSimCSetID id) {
    if (!id.IsValid()) return Line(name, "-");
    QELSimCSet set(id);
    std::vector<int> members(static_cast<size_t>(set.Size()) + 1);
    set.OrderedMembers(members.data());
    members.pop_back();
    Line(name, "set" + Ints(members));
  }
  void Value(const std::string& name, QELSimDistributionID id) {
    if (!id.IsValid()) return Line(name, "-");
    QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
    QELSimDistributionRef(id).QueryDrawers(drawers);
    if (drawers.Size() != 1 || drawers[0].NumDimensions() != 1) return Line(name, "unreadable");
    std::vector<int> values(static_cast<size_t>(drawers[0].DataSizeItems(0)) + 1);
    QELSimTransfer t(id);
    t.SetRead();
    t.SetBufferPadding(false);
    t.SetDim(0, drawers[0].DimensionSets()[0]);
    t.SetBuffer(0, values.data(), (values.size() - 1) * sizeof(int));
    bool read = t.ExecRead();
    values.pop_back();
    Line(name, read ? "values" + Ints(values) : "unreadable");
  }
  template <class T>
  void Value(const std::string& name, const ada_MapString<T>& map) {
    ada_MapStringIterator<T> it(map);
    for (it.first(); !it.isDone(); it.next()) {
      Value(name + "[" + (it.key().cStr() != nullptr ? it.key().cStr() : "") + "]", it.value());
    }
  }
  template <class T>
  void Value(const std::string& name, const ada_MapInt<T>& map) {
    ada_MapIntIterator<T> it(map);
    for (it.first(); !it.isDone(); it.next()) {
      Value(name + "[" + std::to_string(it.key()) + "]", it.value());
    }
  }

  static std::string Ints(const std::vector<int>& values) {
    std::string text;
    for (int v : values) text += " " + std::to_string(v);
    return text;
  }

  void Mesh(const msfD_Mesh& mesh) {
    if (!mesh) return;
    Scope scope(this, "mesh");
    Value("nodes", mesh.nodes());
    Value("elements", mesh.elements());
    Value("faces", mesh.faces());
    Value("instances", mesh.instances());
    Value("regions", mesh.regions());
    Value("lagrangeNodes", mesh.lagrangeNodes());
    Value("nodeSets", mesh.nodeSets());
    Value("elementSets", mesh.elementSets());
    Value("instanceSets", mesh.instanceSets());
    Value("regionSets", mesh.regionSets());
    Value("meshFields", mesh.meshFields());
    Value("surfaces", mesh.surfaces());
    Value("frameFields", mesh.frameFields());
    Value("nodeFields", mesh.nodeFields());
    Value("elementFields", mesh.elementFields());
    Value("surfaceFields", mesh.surfaceFields());
    Value("regionFields", mesh.regionFields());
    Value("localNodeFields", mesh.localNodeFields());
    auto systems = mesh.systems();
    Value("systems", systems.count());
    for (int i = 0; i < systems.count(); ++i) {
      Scope element(this, "systems[" + std::to_string(i) + "]");
      System(systems.get(i));
    }
  }

  void System(const fesD_FESystem& system) {
    if (!system) return Line("class", "none");
    Value("systemName", system.systemName());
    Value("nodalLabels", system.nodalLabels());
    Value("nodalActivityMask", system.nodalActivityMask());
    Value("distributions", system.distributions());
    Value("userDistributions", system.userDistributions());
    fesD_GenericSystem generic(system);
    fesD_ModalSystem modal(system);
    fesD_SubstructureSystem sub(system);
    if (!!generic) {
      Line("class", "generic");
      Value("dofs", generic.dofs());
      Value("loads", generic.loads());
    } else if (!!modal) {
      Line("class", "modal");
      Modal(modal);
    } else if (!!sub) {
      Line("class", "substructure");
      Substructure(sub);
    } else {
      Line("class", "plain");
    }
  }

  void Modal(const fesD_ModalSystem& modal) {
    Value("dofs", modal.dofs());
    Value("modes", modal.modes());
    Value("propertyEvaluation", modal.propertyEvaluation());
    Value("solverDofOrdering", modal.solverDofOrdering());
    Value("selectiveRecoveryNodes", modal.selectiveRecoveryNodes());
    Value("residualModeDofs", modal.residualModeDofs());
    Value("residualModes", modal.residualModes());
    Value("structuralModes", modal.structuralModes());
    Value("acousticModes", modal.acousticModes());
    auto events = modal.events();
    Value("events", events.count());
    for (int j = 0; j < events.count(); ++j) {
      Scope scope(this, "events[" + std::to_string(j) + "]");
      fesD_ModalEvent event = events.get(j);
      if (!event) {
        Line("class", "none");
        continue;
      }
      Value("eventName", event.eventName());
      Value("eventTypeID", event.eventTypeID());
      Value("activeModes", event.activeModes());
      Value("frames", event.frames());
      Value("cases", event.cases());
      Value("distributions", event.distributions());
      Value("userDistributions", event.userDistributions());
    }
  }

  void Substructure(const fesD_SubstructureSystem& sub) {
    Value("dofTypes", sub.dofTypes());
    Value("dofs", sub.dofs());
    Value("modes", sub.modes());
    Value("retainedNodes", sub.retainedNodes());
    Value("retainedDofs", sub.retainedDofs());
    Value("recoveryNodes", sub.recoveryNodes());
    Value("recoveryElements", sub.recoveryElements());
    fesD_SubDamp damping = sub.damping();
    if (!damping) return Line("damping", "none");
    Scope scope(this, "damping");
    Value("alpha", damping.alpha());
    Value("beta", damping.beta());
    Value("structural", damping.structural());
    Value("mass", damping.mass());
    Value("volume", damping.volume());
  }

  std::ostringstream m_out;
  std::string m_prefix;
};

}  // namespace

std::string WalkDatabase(const std::string& path) {
  msfD_Root root(0);
  msfD_Sim sim = root.openSimReadOnly(path.c_str(), "", 0);
  if (!sim) return "";
  Walker walker;
  walker.Sim(sim);
  return walker.Text();
}
