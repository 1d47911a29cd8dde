// The hand-written core of the Python module: the error stream diverted into
// exceptions and warnings, the lives that keep handles safe, the database
// root (Root, ddb.open), the service context and its identifiers
// (Collection, OrderedSet, Distribution) and the Object base of the schema
// classes. The schema classes themselves are generated (BindSchema).
#include <pybind11/stl/filesystem.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <set>
#include <vector>

#include "python/ddb_py.h"
#include "python/ddb_py_checks.h"

namespace ddb_py {

// ---- the error stream ---------------------------------------------------------

namespace {

bool g_collecting = false;
std::string g_text;             // what the current call collected
PyObject* g_warning = nullptr;  // ddb_pdm.DatabaseWarning, kept for the process
int g_startups = 0;             // the library's start-up count

// Outside a call (an object the garbage collector closes) the bytes go
// where the library would have written them.
void WriteStandardError(const char* bytes, size_t count) {
  while (count > 0) {
    ssize_t written = ::write(2, bytes, count);
    if (written <= 0) return;
    bytes += written;
    count -= static_cast<size_t>(written);
  }
}

void Sink(void*, const char* bytes, int count) {
  if (g_collecting) {
    g_text.append(bytes, static_cast<size_t>(count));
  } else {
    WriteStandardError(bytes, static_cast<size_t>(count));
  }
}

// A trace line ("msfD_Root::createSim run1.sim") names a function in its
// first word; messages start with "**" or are plain sentences.
bool IsTraceLine(const std::string& line) {
  if (line.empty() || !std::isalpha(static_cast<unsigned char>(line[0]))) return false;
  size_t word = line.find(' ');
  return line.substr(0, word).find("::") != std::string::npos;
}

}  // namespace

Messages::Messages() : m_outer(!g_collecting) {
  if (!m_outer) return;
  aio_cerr.flush();  // what is pending from before is not this call's
  g_text.clear();
  g_collecting = true;
}

Messages::~Messages() {
  if (!m_outer) return;
  aio_cerr.flush();
  g_collecting = false;
  // Left when the call ended by an exception: not lost, shown as the library would.
  WriteStandardError(g_text.data(), g_text.size());
  g_text.clear();
}

std::string Messages::Take() {
  aio_cerr.flush();
  std::string messages, trace;
  size_t start = 0;
  while (start < g_text.size()) {
    size_t end = g_text.find('\n', start);
    if (end == std::string::npos) end = g_text.size();
    std::string line = g_text.substr(start, end - start);
    std::string& to = IsTraceLine(line) ? trace : messages;
    to += (to.empty() ? "" : "\n") + line;
    start = end + 1;
  }
  g_text.clear();
  if (!trace.empty()) {
    py::module_::import("sys").attr("stderr").attr("write")(trace + "\n");
  }
  return messages;
}

void Warn(const std::string& text) {
  if (PyErr_WarnEx(g_warning, text.c_str(), 1) != 0) throw py::error_already_set();
}

void Settle(const std::string& messages, bool empty) {
  if (messages.empty()) return;
  if (empty) throw Error(messages);
  Warn(messages);
}

void SettleChange(const std::string& messages) {
  if (!messages.empty()) throw Error(messages);
}

namespace {

// The class's own __new__, in its dictionary: Python finds it before the one
// pybind11's base class inherits from `object`, and points the C-level slot
// at it, so that every path to a new instance goes through it.
template <class F>
void SetNew(py::handle cls, F make) {
  cls.attr("__new__") = py::staticmethod(py::cpp_function(make));
}

}  // namespace

void RefuseNew(py::handle cls) {
  SetNew(cls, [](py::handle type, const py::args&, const py::kwargs&) -> py::object {
    throw py::type_error(std::string("a ") + reinterpret_cast<PyTypeObject*>(type.ptr())->tp_name +
                         " is made by the module, not directly");
  });
}

void ConstructInNew(py::handle cls) {
  SetNew(cls, [](py::handle type, const py::args& args, const py::kwargs& kwargs) {
    return type.attr("_make")(*args, **kwargs);
  });
}

// ---- lives ------------------------------------------------------------------------

Life::~Life() {}
Box::~Box() {}
Object::~Object() {}

void RequireAlive(const Life& life, const char* what) {
  if (!life.Alive()) throw Error(std::string(what) + " used after " + life.Why());
}

std::string DetachedLife::Why() const {
  if (m_owner) return m_owner->Why();
  return "the library destroyed it (it refused to take it)";
}

void DetachedLife::HandOver(LifePtr owner) {
  m_box.reset();  // its holder is empty: the object is the owner's now
  m_owner = std::move(owner);
}

void DetachedLife::Destroyed() {
  m_box.reset();
  m_owner.reset();
}

DetachedLife& Detached(const Object& item, const Life& owner, const char* verb) {
  item.Require();
  auto* detached = dynamic_cast<DetachedLife*>(item.life().get());
  if (detached == nullptr || detached->box() == nullptr ||
      detached->box()->Identity() != item.Identity()) {
    throw Error(std::string(item.Name()) +
                " is stored already: only an object made by new can be " + verb);
  }
  for (const Life* life = &owner; life != nullptr; life = life->Next()) {
    if (life == detached) {
      throw Error(std::string(item.Name()) + " cannot be " + verb + " inside itself");
    }
  }
  return *detached;
}

// ---- objects ----------------------------------------------------------------------

namespace {

std::vector<std::pair<gbb_Class, Maker>>& Makers() {
  static std::vector<std::pair<gbb_Class, Maker>> makers;
  return makers;
}

}  // namespace

void RegisterMaker(gbb_Class cls, Maker make) {
  Makers().emplace_back(cls, make);
}

py::object MakeObject(const gbb_Handle& handle, const LifePtr& life, Maker fallback) {
  if (!handle) return py::none();
  for (const auto& entry : Makers()) {
    if (entry.first == handle.Class()) return entry.second(handle, life);
  }
  if (fallback == nullptr) throw Error("no Python class for a stored object");
  return fallback(handle, life);
}

int ArrayIndex(py::ssize_t index, int count) {
  py::ssize_t i = index < 0 ? index + count : index;
  if (i < 0 || i >= count) {
    throw py::index_error("index " + std::to_string(index) + " out of range for " +
                          std::to_string(count) + " elements");
  }
  return static_cast<int>(i);
}

// ---- the root -----------------------------------------------------------------

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

// Closes every root (at interpreter exit, before the library is finalised).
void Shutdown() {
  std::vector<RootState*> roots(LiveRoots().begin(), LiveRoots().end());
  for (RootState* root : roots) root->Close(false);
  aio_cerr.flush();
  aio_cerr.SetSink(nullptr, nullptr);
  DDB_PDM_Core_finalize(g_startups);
}

}  // namespace

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

// ---- identifiers ------------------------------------------------------------------

py::object Convert<ada_string>::Out(const ada_string& value, const LifePtr&) {
  // Bytes that are not UTF-8 survive a round trip as surrogates.
  PyObject* text = PyUnicode_DecodeUTF8(value.cStr(), value.byteCount(), "surrogateescape");
  if (text == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(text);
}

ada_string Convert<ada_string>::Value(const std::string& value) {
  if (value.find('\0') != std::string::npos) {
    ForgetOrigins();
    throw py::value_error("a text of the database cannot hold a NUL character");
  }
  return ada_string(value.c_str());
}

py::array_t<int32_t> NewInt32Array(py::ssize_t n) {
  return py::array_t<int32_t>(n);
}

py::array_t<int32_t, py::array::c_style | py::array::forcecast> Int32Array(py::handle values,
                                                                           const char* what) {
  typedef py::array_t<int32_t, py::array::c_style | py::array::forcecast> Out;
  py::array array = py::array::ensure(values);
  if (!array) throw py::type_error(std::string(what) + ": an array of integers is expected");
  const char kind = array.dtype().kind();
  if (array.size() == 0) return Out(0);  // an empty list reads as floats
  if (kind != 'i' && kind != 'u' && kind != 'b') {
    throw py::type_error(std::string(what) + ": an array of integers is expected");
  }
  if (array.ndim() != 1) {
    throw py::value_error(std::string(what) + ": a one-dimensional array is expected");
  }
  if (!array.dtype().is(py::dtype::of<int32_t>()) && kind != 'b') {
    py::int_ low = array.attr("min")(), high = array.attr("max")();
    if (low < py::int_(INT32_MIN) || high > py::int_(INT32_MAX)) {
      throw py::value_error(std::string(what) + ": values outside the 32-bit integer range");
    }
  }
  return Out::ensure(array);
}

namespace {

// The identifier's own numbers, for equality, hashing and repr.
std::vector<uint64_t> Key(const QELSimCollectionID& id) {
  return {static_cast<uint64_t>(id.ContextNumber()), id.CollectionMinor()};
}
std::vector<uint64_t> Key(const QELSimCSetID& id) {
  return {static_cast<uint64_t>(id.ContextNumber()), id.CollectionMinor(), id.CSetMinor()};
}
std::vector<uint64_t> Key(const QELSimDistributionID& id) {
  return {static_cast<uint64_t>(id.ContextNumber()), id.DistributionMinor()};
}

template <class Id>
py::class_<IdRef<Id>> DefineId(py::module_& m, const char* doc) {
  py::class_<IdRef<Id>> cls(m, HeldName(static_cast<const Id*>(nullptr)), doc);
  RefuseNew(cls);
  return cls
      .def(
          "__eq__", [](const IdRef<Id>& a, const IdRef<Id>& b) { return a.raw() == b.raw(); },
          py::is_operator())
      .def("__hash__",
           [](const IdRef<Id>& self) {
             size_t h = 0;
             for (uint64_t part : Key(self.raw())) h = h * 1000003u ^ std::hash<uint64_t>()(part);
             return h;
           })
      .def("__repr__", [](const IdRef<Id>& self) {
        std::string text = std::string("<ddb_pdm.") + HeldName(static_cast<const Id*>(nullptr));
        for (uint64_t part : Key(self.raw())) text += " " + std::to_string(part);
        return text + ">";
      });
}

}  // namespace

QELSimPersistentDrawerDesc Drawer(const QELSimDistributionID& id) {
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  Messages messages;
  QELSimDistributionRef(id).QueryDrawers(drawers);
  std::string text = messages.Take();
  bool usable = drawers.Size() > 0 && drawers[0].DimensionSets().Size() > 0;
  Settle(text.empty() && !usable ? "a distribution without values" : text, !usable);
  return drawers[0];
}

namespace {

void BindIdentifiers(py::module_& m) {
  typedef IdRef<QELSimCollectionID> CollectionRef;
  typedef IdRef<QELSimCSetID> SetRef;
  typedef IdRef<QELSimDistributionID> DistributionRef;

  DefineId<QELSimCollectionID>(m, "A collection of the service: members 0 .. size-1.")
      .def_property_readonly("size",
                             [](const CollectionRef& self) {
                               QELSimCollectionRef collection(self.get());
                               return ReadCount([&] { return collection.Size(); });
                             })
      .def(
          "create_ordered_set",
          [](const CollectionRef& self, py::handle members) {
            QELSimCollectionRef collection(self.get());
            auto array = Int32Array(members, "create_ordered_set");
            if (array.size() > INT_MAX)
              throw py::value_error("create_ordered_set: too many members");
            QELSimCSetID set = Read([&] {
              return collection.CreateOrderedCSet(array.data(), static_cast<int>(array.size()));
            });
            return SetRef(set, self.life());
          },
          py::arg("members"), "A new ordered set of distinct members, in the order given.");

  DefineId<QELSimCSetID>(m, "An ordered set of members of one collection.")
      .def_property_readonly("size",
                             [](const SetRef& self) {
                               QELSimCSet set(self.get());
                               return ReadCount([&] { return set.Size(); });
                             })
      .def_property_readonly("collection",
                             [](const SetRef& self) {
                               const QELSimCSetID& id = self.get();
                               return CollectionRef(
                                   QELSimCollectionID(id.ContextNumber(), id.CollectionMinor()),
                                   self.life());
                             })
      .def(
          "members",
          [](const SetRef& self) {
            QELSimCSet set(self.get());
            int n = ReadCount([&] { return set.Size(); });
            py::array_t<int32_t> out = NewInt32Array(n);
            if (n > 0) {
              Messages messages;
              set.OrderedMembers(out.mutable_data());
              Settle(messages.Take(), true);
            }
            return out;
          },
          "The members in their order (int32).")
      .def(
          "create_int32",
          [](const SetRef& self, py::handle values) {
            QELSimCSet set(self.get());
            auto array = Int32Array(values, "create_int32");
            int n = ReadCount([&] { return set.Size(); });
            if (array.size() != n) {
              throw Error("create_int32: " + std::to_string(array.size()) +
                          " values for an ordered set of " + std::to_string(n) + " members");
            }
            QELSimDistributionID id =
                Read([&] { return QELSimDistributionRef::CreateInt32(self.get(), array.data()); });
            return DistributionRef(id, self.life());
          },
          py::arg("values"), "A new int32 distribution: one value per member, in the set's order.");

  DefineId<QELSimDistributionID>(m, "Values over the members of an ordered set.")
      .def_property_readonly("ordered_set",
                             [](const DistributionRef& self) {
                               QELSimPersistentDrawerDesc drawer = Drawer(self.get());
                               return SetRef(drawer.DimensionSets()[0], self.life());
                             })
      .def(
          "values",
          [](const DistributionRef& self) {
            const QELSimDistributionID& id = self.get();
            QELSimPersistentDrawerDesc drawer = Drawer(id);
            const int n = drawer.DataSizeItems(0);
            py::array_t<int32_t> out = NewInt32Array(n);
            QELSimTransfer transfer(id);
            Messages messages;
            transfer.SetRead();
            transfer.SetBufferPadding(false);
            transfer.SetDim(0, drawer.DimensionSets()[0]);
            transfer.CheckView();
            transfer.SetBuffer(0, out.mutable_data(), static_cast<size_t>(n) * sizeof(int32_t));
            bool read = transfer.ExecRead();
            transfer.RelinquishBuffers();
            std::string text = messages.Take();
            Settle(text.empty() && !read ? "the values could not be read" : text, !read);
            return out;
          },
          "The values in the order of the ordered set (int32).");

  py::class_<Held<QELSimContextID>> service(
      m, "Service", "The service context of one database: where bulk data lives.");
  RefuseNew(service);
  service
      .def(
          "create_collection",
          [](const Held<QELSimContextID>& self, int size) {
            QELSimContextID context = self.get();
            QELSimCollectionID id =
                Read([&] { return QELSimCollectionRef::Create(context, size); });
            return CollectionRef(id, self.life());
          },
          py::arg("size"), "A new collection of `size` members.")
      .def("__repr__", [](const Held<QELSimContextID>& self) {
        return "<ddb_pdm.Service " + std::to_string(self.get().Number()) + ">";
      });

  py::class_<Held<gbb_SchemaSnapshot>> snapshot(m, "SchemaSnapshot",
                                                "The classes a database knows, by identifier.");
  RefuseNew(snapshot);
  snapshot
      .def("__len__",
           [](const Held<gbb_SchemaSnapshot>& self) { return self.get().Impl()->Count(); })
      .def("__contains__", [](const Held<gbb_SchemaSnapshot>& self, const std::string& id) {
        gbb_SchemaSnapshot snapshot = self.get();
        return !Read([&] { return snapshot.GetClass(gbb_ClassID(id.c_str())); }).IsNull();
      });
}

void BindFollow(py::module_& m);

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
  BindFollow(m);
}

// Following a database that another process writes: a fresh read-only
// snapshot each time a commit lands, until its writer closes it.
struct Follower {
  std::filesystem::path file;
  double interval = 0.1;
  unsigned long long mark = 0;
  bool started = false, ended = false;
  py::object current = py::none();  // the snapshot handed out last

  void CloseCurrent() {
    if (!current.is_none()) current.attr("close")();
    current = py::none();
  }
  py::object Next() {
    for (;;) {
      if (ended) {
        CloseCurrent();
        throw py::stop_iteration();
      }
      unsigned long long now = 0;
      bool writing = false;
      if (!hdf_File::Watch(file.c_str(), &now, &writing)) {
        throw Error("follow: cannot open file " + file.string());
      }
      if (!started || now != mark) {
        started = true;
        mark = now;
        ended = !writing;  // the final state, handed out once
        CloseCurrent();
        current = std::make_shared<RootState>(0)->Open(RootState::kReadOnly, file, "", false);
        return current;
      }
      if (!writing) ended = true;
      {
        py::gil_scoped_release release;
        usleep(static_cast<useconds_t>(interval * 1e6));
      }
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
  }
};

void BindFollow(py::module_& m) {
  py::class_<Follower, std::shared_ptr<Follower>> follower(
      m, "Follower", "An iterator over the snapshots of a database as its writer commits.");
  RefuseNew(follower);
  follower.def("__iter__", [](py::object self) { return self; })
      .def("__next__", &Follower::Next)
      .def("close", &Follower::CloseCurrent, "Closes the snapshot handed out last.");
  m.def(
      "follow",
      [](const std::filesystem::path& file, double interval) {
        if (!(interval > 0 && interval <= 3600)) {
          throw py::value_error("follow: interval must be a number of seconds in (0, 3600]");
        }
        auto follower = std::make_shared<Follower>();
        follower->file = file;
        follower->interval = interval;
        return follower;
      },
      py::arg("file"), py::arg("interval") = 0.1,
      "A read-only snapshot of the database now, then a fresh one each time a commit lands "
      "(looked for every `interval` seconds), until its writer closes it. Each snapshot is "
      "closed when the next one is handed out.");
}

void BindObject(py::module_& m) {
  py::class_<Object> object(m, "Object", "The base of every class of the schema.");
  RefuseNew(object);
  object
      .def_property_readonly("class_id",
                             [](const Object& self) {
                               self.Require();
                               gbb_ClassID id = self.Generic().Class().ClassID();
                               return std::string(id.Bytes(), static_cast<size_t>(id.Length()));
                             })
      .def(
          "__eq__", [](const Object& a, const Object& b) { return a.Identity() == b.Identity(); },
          py::is_operator())
      .def("__hash__", [](const Object& self) { return std::hash<const void*>()(self.Identity()); })
      .def("__repr__", [](const Object& self) {
        return std::string("<ddb_pdm.") + self.Name() + (self.life()->Alive() ? "" : " (closed)") +
               ">";
      });
}

}  // namespace

void BindCore(py::module_& m) {
  DDB_PDM_Core_initialize(g_startups);
  aio_cerr.SetSink(&Sink, nullptr);
  py::register_exception<Error>(m, "Error", PyExc_RuntimeError);
  g_warning = PyErr_NewExceptionWithDoc("ddb_pdm.DatabaseWarning",
                                        "What the library reports beside an answer.",
                                        PyExc_UserWarning, nullptr);
  if (g_warning == nullptr) throw py::error_already_set();
  m.attr("DatabaseWarning") = py::handle(g_warning);
  BindObject(m);
  BindIdentifiers(m);
  BindRoot(m);
  py::module_::import("atexit").attr("register")(py::cpp_function(&Shutdown));
}

}  // namespace ddb_py

PYBIND11_MODULE(ddb_pdm, m) {
  // Bulk data is numpy arrays both ways: without numpy the import stops here,
  // with one line, rather than at the first array call.
  try {
    pybind11::module_::import("numpy");
  } catch (pybind11::error_already_set&) {
    throw pybind11::import_error(
        "ddb_pdm needs numpy, which this interpreter cannot import (Debian: apt-get install "
        "python3-numpy; a venv: pip install numpy)");
  }
  m.attr("__version__") = DDB_PDM_Core_version();
  m.doc() =
      "Simulation databases from Python: every class of the schema, bulk data as numpy arrays, "
      "the DOF numbering and the node label conversions.";
  ddb_py::BindCore(m);
  ddb_py::BindSchema(m);
  ddb_py::BindNumbering(m);
  ddb_py::TranslateArgumentErrors(m);
}
