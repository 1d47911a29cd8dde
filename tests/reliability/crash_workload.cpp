#include "reliability/crash_workload.h"

#include <DDB_PDM_Core.h>

#include <cstdio>
#include <sstream>

#include "support/capture.h"

namespace {

int g_option = 0;  // of createSim (see SetWorkloadOption)

std::string Name(QELSimCollectionID id) {
  return id.IsValid() ? "C" + std::to_string(id.CollectionMinor()) : "-";
}
std::string Name(QELSimCSetID id) {
  return id.IsValid()
             ? "S" + std::to_string(id.CollectionMinor()) + "/" + std::to_string(id.CSetMinor())
             : "-";
}
std::string Name(QELSimDistributionID id) {
  return id.IsValid() ? "D" + std::to_string(id.DistributionMinor()) : "-";
}
std::string Number(double value) {
  char text[32];
  snprintf(text, sizeof text, "%.17g", value);
  return text;
}
std::string Ints(const std::vector<int>& values) {
  std::string text;
  for (int v : values) text += " " + std::to_string(v);
  return text;
}
template <class T>
std::string MapText(const ada_MapString<T>& map) {
  std::string text;
  ada_MapStringIterator<T> it(map);
  for (it.first(); !it.isDone(); it.next()) {
    text += std::string(it.key().cStr()) + "=" + Name(it.value()) + ";";
  }
  return text;
}
std::string System(int k) {
  return "sys[" + std::to_string(k) + "].";
}

// The workload: each step is one call of the library's API, one commit.
class Workload {
 public:
  Workload(const std::string& path, const std::function<void(int, const Facts&)>& committed)
      : m_path(path), m_committed(committed), m_root(0) {
    m_facts["open"] = "failed";
  }

  void Run(int commits) {
    while (m_commit < commits) {
      Step(m_commit < kSetup ? m_commit : kSetup + (m_commit - kSetup) % kKinds);
    }
  }

 private:
  static const int kSetup = 8;
  static const int kKinds = 15;

  void Done() {
    ++m_commit;
    if (m_committed) m_committed(m_commit, m_facts);
  }

  QELSimCollectionID NewCollection(int size) {
    QELSimCollectionID c = QELSimCollectionRef::Create(m_context, size);
    m_facts[Name(c)] = "size " + std::to_string(size);
    m_collections.push_back(c);
    return c;
  }
  QELSimCSetID NewSet(QELSimCollectionID c, const std::vector<int>& members) {
    QELSimCSetID s =
        QELSimCollectionRef(c).CreateOrderedCSet(members.data(), static_cast<int>(members.size()));
    m_facts[Name(s)] = Ints(members);
    m_sets.push_back(s);
    m_setSizes.push_back(static_cast<int>(members.size()));
    return s;
  }
  QELSimDistributionID NewDistribution(size_t set, int base) {
    std::vector<int> values;
    for (int k = 0; k < m_setSizes[set]; ++k) values.push_back(base + k);
    QELSimDistributionID d = QELSimDistributionRef::CreateInt32(m_sets[set], values.data());
    m_facts[Name(d)] = Name(m_sets[set]) + Ints(values);
    m_distributions.push_back(d);
    return d;
  }
  // Facts of a system as it is added; `kind` F, G, M or S.
  void SystemAdded(char kind, const std::string& name) {
    std::string s = System(static_cast<int>(m_kinds.size()));
    m_kinds.push_back(kind);
    m_facts[s + "class"] = std::string(1, kind);
    m_facts[s + "name"] = name;
    m_facts[s + "labels"] = Name(m_labels);
    m_facts[s + "masks"] = Name(m_masks);
    m_facts[s + "user"] = "";
    m_facts["systems"] = std::to_string(m_kinds.size());
  }
  fesD_FESystem SystemAt(int k) { return m_mesh.systems().get(k); }

  void Step(int kind) {
    const int i = m_commit;
    const std::string tag = std::to_string(i);
    switch (kind) {
      case 0:
        m_sim = m_root.createSim(m_path.c_str(), "crash", g_option);
        m_context = m_sim.distributionService().Context();
        m_facts.erase("open");
        m_facts["sim"] = "yes";
        return Done();
      case 1:
        m_nodes = NewCollection(6);
        return Done();
      case 2:
        m_elements = NewCollection(4);
        return Done();
      case 3:
        m_sim.DiscreteModel(msfD_DiscreteModel::New(m_nodes, m_nodes, 0));
        m_facts["model.vectors"] = Name(m_nodes);
        return Done();
      case 4:
        m_mesh = m_sim.discreteModel().Mesh(msfD_Mesh::New(m_nodes, m_elements, 0));
        m_facts["mesh.nodes"] = Name(m_nodes);
        m_facts["mesh.faces"] = "-";
        m_facts["mesh.nodeSets"] = "";
        m_facts["systems"] = "0";
        return Done();
      case 5:
        NewSet(m_nodes, {5, 4, 3, 2, 1, 0});
        return Done();
      case 6:
        m_labels = NewDistribution(0, 101);
        return Done();
      case 7:
        m_masks = NewDistribution(0, 7);
        return Done();
      case kSetup + 0:
        NewCollection(3 + i % 5);
        return Done();
      case kSetup + 1: {
        int size = 3 + (i - 1) % 5;
        std::vector<int> members;
        for (int k = size - 1; k >= 0; k -= 1 + i % 2) members.push_back(k);
        NewSet(m_collections.back(), members);
        return Done();
      }
      case kSetup + 2:
        NewDistribution(m_sets.size() - 1, 10 * i);
        return Done();
      case kSetup + 3:
        m_mesh.Faces(m_collections.back());
        m_facts["mesh.faces"] = Name(m_collections.back());
        return Done();
      case kSetup + 4:
      case kSetup + 11: {
        ada_MapString<QELSimCSetID> sets(m_mesh.nodeSets());
        if (kind == kSetup + 11 && sets.count() > 2) {
          ada_MapStringIterator<QELSimCSetID> first(sets);
          first.first();
          ada_string key(first.key().cStr());
          sets.remove(key);
        } else {
          sets.insert(("n" + tag).c_str(), m_sets.back());
        }
        m_mesh.NodeSets(sets);
        m_facts["mesh.nodeSets"] = MapText(sets);
        return Done();
      }
      case kSetup + 5:
        m_mesh.systems().add(fesD_FESystem::New(("s" + tag).c_str(), m_labels, m_masks, 0));
        SystemAdded('F', "s" + tag);
        return Done();
      case kSetup + 6: {
        int k = i % static_cast<int>(m_kinds.size());
        SystemAt(k).SystemName(("r" + tag).c_str());
        m_facts[System(k) + "name"] = "r" + tag;
        return Done();
      }
      case kSetup + 7: {
        fesD_ModalSystemHolder modal =
            fesD_ModalSystem::New(("m" + tag).c_str(), m_labels, m_masks, m_nodes, m_elements, 0);
        modal.Get().events().add(fesD_ModalEvent::New("e0", 0, m_nodes, m_elements, 0));
        m_mesh.systems().add(modal.ReleaseAsFESystem());
        m_lastModal = static_cast<int>(m_kinds.size());
        SystemAdded('M', "m" + tag);
        m_facts[System(m_lastModal) + "events"] = "e0:0;";
        m_facts[System(m_lastModal) + "evaluation"] = Number(0);
        return Done();
      }
      case kSetup + 8: {
        fesD_ModalSystem modal(SystemAt(m_lastModal));
        modal.events().add(fesD_ModalEvent::New(("e" + tag).c_str(), i, m_nodes, m_elements, 0));
        m_facts[System(m_lastModal) + "events"] += "e" + tag + ":" + tag + ";";
        return Done();
      }
      case kSetup + 9: {
        fesD_SubstructureSystemHolder sub = fesD_SubstructureSystem::New(
            ("u" + tag).c_str(), m_labels, m_masks, m_nodes, m_nodes, m_elements, 0);
        sub.Get().Damping(fesD_SubDamp::New(0)).Alpha(i);
        m_mesh.systems().add(sub.ReleaseAsFESystem());
        m_lastSub = static_cast<int>(m_kinds.size());
        SystemAdded('S', "u" + tag);
        m_facts[System(m_lastSub) + "alpha"] = Number(i);
        return Done();
      }
      case kSetup + 10:
        fesD_SubstructureSystem(SystemAt(m_lastSub)).damping().Alpha(i + 0.5);
        m_facts[System(m_lastSub) + "alpha"] = Number(i + 0.5);
        return Done();
      case kSetup + 12:
        fesD_ModalSystem(SystemAt(m_lastModal)).PropertyEvaluation(i * 0.25);
        m_facts[System(m_lastModal) + "evaluation"] = Number(i * 0.25);
        return Done();
      case kSetup + 13: {
        int k = (i / 2) % static_cast<int>(m_kinds.size());
        ada_MapString<QELSimDistributionID> user;
        user.insert(("d" + tag).c_str(), m_distributions.back());
        SystemAt(k).UserDistributions(user);
        m_facts[System(k) + "user"] = MapText(user);
        return Done();
      }
      case kSetup + 14:
        m_mesh.systems().add(
            fesD_GenericSystem::New(("g" + tag).c_str(), m_labels, m_masks, m_nodes, m_elements, 0)
                .ReleaseAsFESystem());
        SystemAdded('G', "g" + tag);
        return Done();
    }
  }

  std::string m_path;
  std::function<void(int, const Facts&)> m_committed;
  Facts m_facts;
  int m_commit = 0;
  msfD_Root m_root;
  msfD_Sim m_sim;
  QELSimContextID m_context;
  msfD_Mesh m_mesh;
  QELSimCollectionID m_nodes, m_elements;
  QELSimDistributionID m_labels, m_masks;
  std::vector<QELSimCollectionID> m_collections;
  std::vector<QELSimCSetID> m_sets;
  std::vector<int> m_setSizes;
  std::vector<QELSimDistributionID> m_distributions;
  std::vector<char> m_kinds;
  int m_lastModal = -1;
  int m_lastSub = -1;
};

// The service's objects, probed by number until the first that is missing.
void ReadService(int context, CaptureErr& err, Facts& facts) {
  for (uint32_t c = 0;; ++c) {
    QELSimCollectionID collection(context, c);
    int size = QELSimCollectionRef(collection).Size();
    if (!err.Take().empty()) break;
    facts[Name(collection)] = "size " + std::to_string(size);
    for (uint32_t s = 0;; ++s) {
      QELSimCSet set(QELSimCSetID(context, c, s));
      int n = set.Size();
      if (!err.Take().empty()) break;
      std::vector<int> members(static_cast<size_t>(n));
      set.OrderedMembers(members.data());
      facts[Name(set.ID())] = Ints(members);
    }
  }
  for (uint32_t d = 0;; ++d) {
    QELSimDistributionID id(context, d);
    QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
    QELSimDistributionRef(id).QueryDrawers(drawers);
    if (!err.Take().empty() || drawers.Size() != 1) break;
    QELSimCSetID set = drawers[0].DimensionSets()[0];
    std::vector<int> values(static_cast<size_t>(drawers[0].DataSizeItems(0)));
    QELSimTransfer t(id);
    t.SetRead();
    t.SetBufferPadding(false);
    t.SetDim(0, set);
    t.SetBuffer(0, values.data(), values.size() * 4);
    t.ExecRead();
    facts[Name(id)] = Name(set) + Ints(values);
  }
}

void ReadSystem(int k, const fesD_FESystem& system, Facts& facts) {
  std::string s = System(k);
  fesD_ModalSystem modal(system);
  fesD_SubstructureSystem sub(system);
  fesD_GenericSystem generic(system);
  facts[s + "class"] = !!modal ? "M" : !!sub ? "S" : !!generic ? "G" : "F";
  facts[s + "name"] = system.systemName().cStr() != nullptr ? system.systemName().cStr() : "";
  facts[s + "labels"] = Name(system.nodalLabels());
  facts[s + "masks"] = Name(system.nodalActivityMask());
  facts[s + "user"] = MapText(system.userDistributions());
  if (!!modal) {
    facts[s + "evaluation"] = Number(modal.propertyEvaluation());
    std::string events;
    for (int j = 0; j < modal.events().count(); ++j) {
      fesD_ModalEvent e = modal.events().get(j);
      events += std::string(e.eventName().cStr()) + ":" + std::to_string(e.eventTypeID()) + ";";
    }
    facts[s + "events"] = events;
  }
  if (!!sub) facts[s + "alpha"] = Number(sub.damping().alpha());
}

}  // namespace

uint64_t FactsDigest(const Facts& facts) {
  uint64_t digest = 0;
  for (const auto& fact : facts) {
    uint64_t h = std::hash<std::string>()(fact.first + '\0' + fact.second);
    digest ^= h * 0x9E3779B97F4A7C15ull + (h >> 29);
  }
  return digest;
}

void SetWorkloadOption(int option) {
  g_option = option;
}

void RunWorkload(const std::string& path, int commits,
                 const std::function<void(int c, const Facts& facts)>& committed,
                 const std::function<void()>& keepOpen) {
  Workload workload(path, committed);
  workload.Run(commits);
  if (keepOpen) keepOpen();
}

Facts ReadFacts(const std::string& path, bool readOnly) {
  CaptureErr err;
  Facts facts;
  msfD_Root root(0);
  msfD_Sim sim =
      readOnly ? root.openSimReadOnly(path.c_str(), "", 0) : root.openSim(path.c_str(), "", 0);
  if (!sim) return {{"open", "failed"}};
  err.Take();
  facts["sim"] = "yes";
  ReadService(sim.distributionService().Context().Number(), err, facts);
  // What reads without a word is consistent; anything said is a fact too.
  auto said = [&] {
    if (!err.Text().empty()) facts["messages"] = err.Take();
    return facts;
  };
  msfD_DiscreteModel model = sim.discreteModel();
  if (!model) return said();
  facts["model.vectors"] = Name(model.vectors());
  msfD_Mesh mesh = model.mesh();
  if (!mesh) return said();
  facts["mesh.nodes"] = Name(mesh.nodes());
  facts["mesh.faces"] = Name(mesh.faces());
  facts["mesh.nodeSets"] = MapText(mesh.nodeSets());
  int count = mesh.systems().count();
  facts["systems"] = std::to_string(count);
  for (int k = 0; k < count; ++k) ReadSystem(k, mesh.systems().get(k), facts);
  return said();
}

std::string FactsDiff(const Facts& expected, const Facts& actual) {
  std::ostringstream out;
  for (const auto& e : expected) {
    auto a = actual.find(e.first);
    if (a == actual.end()) {
      out << "  missing " << e.first << " = " << e.second << "\n";
    } else if (a->second != e.second) {
      out << "  " << e.first << ": expected " << e.second << ", found " << a->second << "\n";
    }
  }
  for (const auto& a : actual) {
    if (expected.count(a.first) == 0) out << "  extra " << a.first << " = " << a.second << "\n";
  }
  return out.str();
}
