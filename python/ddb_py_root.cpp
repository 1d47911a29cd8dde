// The database root in Python: Root (creates, opens and closes databases,
// also as a context manager) and ddb.open (one database with a root of its
// own), and the lives of the open sims, which end when a sim or its root is
// closed.
#include <pybind11/stl/filesystem.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "python/ddb_py.h"
#include "python/ddb_py_checks.h"

namespace ddb_py {

namespace {

class RootState;

// The life of one open sim and of everything reached from it.
class SimLife : public Life {
 public:
  SimLife(std::shared_ptr<RootState> root, const msfD_Sim& sim, std::string file, bool readOnly)
      : m_root(std::move(root)),
        m_sim(sim),
        m_file(std::move(file)),
        m_readOnly(readOnly),
        m_context(sim.distributionService().Context().Number()) {}
  bool Alive() const override { return m_open; }
  bool Facts(DatabaseFacts& facts) const override {
    facts.context = m_context;
    facts.file = m_file;
    facts.readOnly = m_readOnly;
    return true;
  }
  std::string Why() const override { return "its database was closed"; }
  void Closed() { m_open = false; }

  RootState& root() const { return *m_root; }
  const msfD_Sim& sim() const { return m_sim; }
  const std::string& file() const { return m_file; }
  bool readOnly() const { return m_readOnly; }

 private:
  std::shared_ptr<RootState> m_root;  // open sims keep their root
  msfD_Sim m_sim;
  std::string m_file;
  bool m_readOnly;
  int m_context;
  bool m_open = true;
};

std::set<RootState*>& LiveRoots() {
  static std::set<RootState*> roots;
  return roots;
}

// One msfD_Root and the Python lives of its open sims.
class RootState : public std::enable_shared_from_this<RootState> {
 public:
  enum Mode { kCreate, kUpdate, kReadOnly };

  explicit RootState(int trace) : m_root(new msfD_Root(trace)) { LiveRoots().insert(this); }
  ~RootState() {
    Close(false);
    LiveRoots().erase(this);
  }

  bool closed() const { return !m_root; }

  py::object Open(Mode mode, const std::filesystem::path& path, const std::string& alias,
                  bool sync) {
    msfD_Root& root = Root();
    const std::string file = path.string();
    CheckText(file, "file");
    CheckText(alias, "alias");
    const int option = sync ? QELSimManager::SyncCommits : 0;
    Messages messages;
    msfD_Sim sim = mode == kCreate   ? root.createSim(file.c_str(), alias.c_str(), option)
                   : mode == kUpdate ? root.openSim(file.c_str(), alias.c_str(), option)
                                     : root.openSimReadOnly(file.c_str(), alias.c_str(), option);
    // A file without the group "sim" opens as a sim of nothing; here it is
    // refused as no database, and closed again.
    if (!!sim && mode != kCreate &&
        !QELSimContextRef(sim.distributionService().Context())
             .File()
             .RootGroup()
             .GetObjinfoExists("sim")) {
      root.closeSim(sim);
      sim = msfD_Sim();
    }
    std::string text = messages.Take();
    if (!sim) throw Error(text.empty() ? "cannot open " + file : text);
    m_sims.push_back(Entry{sim, file, mode == kReadOnly, {}});
    Settle(text, false);
    return Sim(sim);
  }

  // The Python object of one of the open sims.
  py::object Sim(const msfD_Sim& sim) {
    for (Entry& entry : m_sims) {
      if (!entry.sim.IsSame(sim)) continue;
      std::shared_ptr<SimLife> life = entry.life.lock();
      if (!life) {
        life = std::make_shared<SimLife>(shared_from_this(), sim, entry.file, entry.readOnly);
        entry.life = life;
      }
      return MakeObject(static_cast<gbb_Handle>(sim), life, nullptr);
    }
    return py::none();
  }

  void CloseSim(const msfD_Sim& sim) {
    auto it = std::find_if(m_sims.begin(), m_sims.end(),
                           [&](const Entry& entry) { return entry.sim.IsSame(sim); });
    if (it == m_sims.end() || !m_root) return;  // closed already
    if (auto life = it->life.lock()) life->Closed();
    msfD_Sim closing = it->sim;
    m_sims.erase(it);
    Messages messages;
    m_root->closeSim(closing);
    Settle(messages.Take(), false);
  }

  // Closes every sim. From Python, what the library says becomes warnings;
  // from a destructor it goes where the library writes it.
  void Close(bool fromPython) {
    if (!m_root) return;
    for (Entry& entry : m_sims) {
      if (auto life = entry.life.lock()) life->Closed();
    }
    m_sims.clear();
    if (!fromPython) {
      m_root.reset();
      return;
    }
    Messages messages;
    m_root.reset();
    Settle(messages.Take(), false);
  }

  msfD_Root& Root() {
    if (!m_root) throw Error("Root used after it was closed");
    return *m_root;
  }

 private:
  struct Entry {
    msfD_Sim sim;
    std::string file;
    bool readOnly;
    std::weak_ptr<SimLife> life;
  };
  std::unique_ptr<msfD_Root> m_root;
  std::vector<Entry> m_sims;
};

// ddb.Root in Python.
struct RootRef {
  std::shared_ptr<RootState> state;
};

RootRef MakeRoot(bool trace) {
  return RootRef{std::make_shared<RootState>(trace ? 1 : 0)};
}

const SimLife& SimLifeOf(const Object& sim) {
  auto* life = dynamic_cast<const SimLife*>(sim.life().get());
  if (life == nullptr) throw py::type_error("not a sim of a Root");
  return *life;
}

}  // namespace

void CloseRoots() {
  std::vector<RootState*> roots(LiveRoots().begin(), LiveRoots().end());
  for (RootState* root : roots) root->Close(false);
}

py::object OpenReadOnly(const std::filesystem::path& file) {
  return std::make_shared<RootState>(0)->Open(RootState::kReadOnly, file, "", false);
}

void CloseSim(const Object& sim) {
  const SimLife& life = SimLifeOf(sim);
  if (life.Alive()) life.root().CloseSim(life.sim());
}

bool SimClosed(const Object& sim) {
  return !SimLifeOf(sim).Alive();
}

std::string SimFile(const Object& sim) {
  return SimLifeOf(sim).file();
}

bool SimReadOnly(const Object& sim) {
  return SimLifeOf(sim).readOnly();
}

void BindRoot(py::module_& m) {
  typedef RootState::Mode Mode;
  auto open = [](Mode mode) {
    return [mode](RootRef& self, const std::filesystem::path& file, const std::string& alias,
                  bool sync) { return self.state->Open(mode, file, alias, sync); };
  };
  py::class_<RootRef> root(m, "Root",
                           "The entry point: creates, opens and closes databases. As a context "
                           "manager it closes what is open when the block ends.");
  DefineConstructor(root, &MakeRoot, py::arg("trace") = false);
  root.def("create_sim", open(RootState::kCreate), py::arg("file"), py::arg("alias") = "",
           py::kw_only(), py::arg("sync_commits") = false, "A new database file.")
      .def("open_sim", open(RootState::kUpdate), py::arg("file"), py::arg("alias") = "",
           py::kw_only(), py::arg("sync_commits") = false, "An existing database, for update.")
      .def(
          "open_sim_read_only",
          [](RootRef& self, const std::filesystem::path& file, const std::string& alias) {
            return self.state->Open(RootState::kReadOnly, file, alias, false);
          },
          py::arg("file"), py::arg("alias") = "", "An existing database, read-only.")
      .def(
          "close_sim",
          [](RootRef& self, const Object& sim) {
            const SimLife& life = SimLifeOf(sim);
            if (!life.Alive()) return;  // closed already
            if (!msfD_Sim(sim.Generic())) throw py::type_error("close_sim: a Sim is expected");
            if (&life.root() != self.state.get()) throw Error("close_sim: a sim of another Root");
            self.state->CloseSim(life.sim());
          },
          py::arg("sim"), "Closes one database; the later ones move down.")
      .def(
          "get_by_alias",
          [](RootRef& self, const std::string& alias) {
            msfD_Root& root = self.state->Root();
            msfD_Sim sim = root.getByAlias(alias.c_str());
            return !sim ? py::none() : self.state->Sim(sim);
          },
          py::arg("alias"), "The open sim with that alias, or None.")
      .def("__len__", [](RootRef& self) { return self.state->Root().count(); })
      .def(
          "__getitem__",
          [](RootRef& self, py::ssize_t index) {
            msfD_Root& root = self.state->Root();
            return self.state->Sim(root.get(ArrayIndex(index, root.count())));
          },
          py::arg("index"))
      .def(
          "close", [](RootRef& self) { self.state->Close(true); },
          "Closes every database of this root.")
      .def_property_readonly("closed", [](RootRef& self) { return self.state->closed(); })
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](RootRef& self, py::args) { self.state->Close(true); });

  m.def(
      "open",
      [](const std::filesystem::path& file, const std::string& mode, const std::string& alias) {
        Mode how = mode == "r"    ? RootState::kReadOnly
                   : mode == "r+" ? RootState::kUpdate
                   : mode == "w"  ? RootState::kCreate
                                  : throw py::value_error("mode must be 'r', 'r+' or 'w'");
        return std::make_shared<RootState>(0)->Open(how, file, alias, false);
      },
      py::arg("file"), py::arg("mode") = "r", py::arg("alias") = "",
      "Opens one database with a root of its own: 'r' read-only, 'r+' for update, 'w' a new "
      "file. The sim closes it as a context manager or through close().");
}

}  // namespace ddb_py
