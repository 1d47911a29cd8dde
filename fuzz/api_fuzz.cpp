// Fuzzes sequences of public API calls: each input is decoded into calls on
// two database slots, a few loose holders, a table of object handles and a
// few open accesses, in any order the bytes choose. A call that would be a
// misuse of a handle (one whose owner has closed) is never made; everything
// else is, including what the library must refuse: sims opened twice,
// sub-objects set twice, accesses that outlive their object or see their
// record replaced, identifiers of another database, links of any text.
//
// Beside "no crash, sanitizer report, leak or hang" it keeps a cheap model:
// the last value each setter committed (until an access edits the object,
// whose outcome the model does not follow), the number of systems in each
// mesh, and, after a database was closed and opened again, the count and
// names of its stored systems. A mismatch traps with the expected value.
//
// Input: one byte per call (the call is byte % kCalls), each followed by the
// operand bytes it reads; missing bytes read as 0. Messages are dropped.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "fes/fes.h"
#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/service/QELSimService.h"
#include "sim_schema/sim_schema.h"

namespace {

void Drop(void*, const char*, int) {}

[[noreturn]] void Mismatch(const char* what, const std::string& expected, const std::string& got) {
  std::fprintf(stderr, "model mismatch: %s: expected %s, got %s\n", what, expected.c_str(),
               got.c_str());
  std::abort();
}

class Input {
 public:
  Input(const uint8_t* data, size_t size) : m_data(data), m_size(size), m_at(0) {}
  bool More() const { return m_at < m_size; }
  unsigned Byte() { return m_at < m_size ? m_data[m_at++] : 0; }
  unsigned Pick(unsigned n) { return Byte() % n; }
  // A short text of the input's own bytes (NUL ends it early).
  std::string Text(unsigned maxLength) {
    unsigned n = Pick(maxLength + 1);
    std::string text;
    for (unsigned i = 0; i < n; ++i) text.push_back(static_cast<char>(Byte()));
    return text.substr(0, text.find('\0'));
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_at;
};

enum Kind { kDamp, kSystem, kModal, kSub, kEvent, kKinds };
const char* const kNames[] = {"a", "b", "plain", "modal", "sub", "x y", "e"};

// Owners: the two sims (0, 1) and the loose holders (2 ..). A handle lives
// while its owner's generation is the one it was taken under.
constexpr int kSims = 2, kHolders = 4, kOwners = kSims + kHolders, kObjects = 16, kAccesses = 4;

struct Owner {
  unsigned generation = 0;
};

// The model of one object: the value last committed by a setter, while no
// access has edited it.
struct Object {
  int kind = -1;  // -1: free slot
  int owner = 0;
  unsigned generation = 0;
  fesD_SubDamp damp;
  fesD_FESystem system;  // the FE system part of any system
  fesD_ModalEvent event;
  bool modelled = true;
  double coefficient[5] = {0, 0, 0, 0, 0};
  std::string name;
  int typeID = 0;
  void* Identity() const {
    gbb_Handle h = kind == kDamp    ? static_cast<gbb_Handle>(damp)
                   : kind == kEvent ? static_cast<gbb_Handle>(event)
                                    : static_cast<gbb_Handle>(system);
    return h.Pointer();
  }
};

struct Holder {
  int kind = -1;
  fesD_SubDampHolder damp;
  fesD_FESystemHolder system;
  fesD_ModalSystemHolder modal;
  fesD_SubstructureSystemHolder sub;
  fesD_ModalEventHolder event;
  int context = -1;      // of the identifiers it was made with
  std::string name;      // the system's name, as last set
  bool modelled = true;  // false once an access edited it
  int typeID = 0;
  void Close() {
    damp.Close();
    system.Close();
    modal.Close();
    sub.Close();
    event.Close();
    kind = -1;
  }
};

// A distribution made in an open sim, with the masks it holds.
struct Masks {
  QELSimDistributionID id;
  std::vector<int> values;
};

struct Sim {
  msfD_Sim sim;  // empty while closed
  bool readOnly = false;
  int context = -1;
  // Systems in the open sim's mesh (memory), and what the file will hold.
  int count = 0;
  bool fileKnown = true;
  std::vector<std::string> fileNames;  // "" where the name is not modelled
  std::vector<Masks> masks;
  std::vector<QELSimCollectionID> collections;
};

class Session {
 public:
  explicit Session(int trace) : m_root(trace) {
    for (int i = 0; i < kSims; ++i) {
      m_files[i] = "/dev/shm/ddb_api_fuzz_" + std::to_string(getpid()) + "_" + std::to_string(i);
      std::remove(m_files[i].c_str());
      std::remove((m_files[i] + "-journal").c_str());
      m_existing[i] = false;
    }
  }
  ~Session() {
    for (Holder& h : m_holders) h.Close();  // accesses may outlive their objects
  }

  void Run(Input& in) {
    while (in.More()) Call(in);
  }

 private:
  void Call(Input& in) {
    static const bool trace = std::getenv("DDB_API_FUZZ_TRACE") != nullptr;
    unsigned call = in.Pick(26);
    if (trace) std::fprintf(stderr, "call %u\n", call);
    switch (call) {
      case 0:
        return CreateSim(in.Pick(kSims));
      case 1:
        return OpenSim(in.Pick(kSims), false);
      case 2:
        return OpenSim(in.Pick(kSims), true);
      case 3:
        return CloseSim(in.Pick(kSims));
      case 4:
        return MakeMesh(in.Pick(kSims));
      case 5:
        return NewHolder(in);
      case 6:
        return CloseHolder(in.Pick(kHolders));
      case 7:
        return MoveHolder(in.Pick(kHolders), in.Pick(kHolders));
      case 8:
        return HolderGet(in.Pick(kHolders));
      case 9:
        return AddSystem(in.Pick(kSims), in.Pick(kHolders));
      case 10:
        return GetSystem(in.Pick(kSims), static_cast<int>(in.Pick(8)) - 1);
      case 11:
        return SetDamping(in.Pick(kObjects), in.Pick(kHolders));
      case 12:
        return AddEvent(in.Pick(kObjects), in.Pick(kHolders));
      case 13:
        return Setter(in);
      case 14:
        return Getter(in.Pick(kObjects));
      case 15:
        return OpenAccess(in.Pick(kAccesses), in.Pick(kObjects));
      case 16:
        return EditAccess(in);
      case 17:
        return CommitAccess(in.Pick(kAccesses));
      case 18:
        return CloseAccess(in.Pick(kAccesses));
      case 19:
        return Link(in);
      case 20:
        return Service(in);
      case 21:
        return Numbering(in);
      case 22:
        return Labels(in.Pick(kObjects));
      case 23:
        return Count(in.Pick(kSims));
      case 24:
        return Reopen(in.Pick(kSims));
      default:
        return Subobjects(in.Pick(kObjects));
    }
  }

  // --- databases ---------------------------------------------------------
  void CreateSim(unsigned s) {
    if (!!m_sims[s].sim) return;  // the file is open: createSim would refuse it
    Adopt(s, m_root.createSim(m_files[s].c_str(), "", 0), false);
    if (!!m_sims[s].sim) {
      m_existing[s] = true;
      m_sims[s].count = 0;
      m_sims[s].fileKnown = true;
      m_sims[s].fileNames.clear();
    }
  }
  void OpenSim(unsigned s, bool readOnly) {
    Sim& sim = m_sims[s];
    if (!!sim.sim) {  // refused: the file is open already
      msfD_Sim again = readOnly ? m_root.openSimReadOnly(m_files[s].c_str(), "", 0)
                                : m_root.openSim(m_files[s].c_str(), "", 0);
      if (!!again) Mismatch("second open", "refused", "a sim");
      return;
    }
    msfD_Sim opened = readOnly ? m_root.openSimReadOnly(m_files[s].c_str(), "", 0)
                               : m_root.openSim(m_files[s].c_str(), "", 0);
    if (!m_existing[s]) {
      if (!!opened) Mismatch("open of a missing file", "refused", "a sim");
      return;
    }
    Adopt(s, opened, readOnly);
    if (!sim.sim) return;
    sim.count = Systems(s).count();
    if (sim.fileKnown) {
      if (sim.count != static_cast<int>(sim.fileNames.size()))
        Mismatch("systems after reopening", std::to_string(sim.fileNames.size()),
                 std::to_string(sim.count));
      for (int i = 0; i < sim.count; ++i) {
        const std::string& expected = sim.fileNames[i];
        if (expected.empty()) continue;
        std::string name = Systems(s).get(i).systemName().cStr();
        if (name != expected) Mismatch("stored system name", expected, name);
      }
    }
  }
  void Adopt(unsigned s, msfD_Sim opened, bool readOnly) {
    Sim& sim = m_sims[s];
    sim.sim = opened;
    sim.readOnly = readOnly;
    sim.masks.clear();
    sim.collections.clear();
    sim.context = !opened ? -1 : opened.distributionService().Context().Number();
  }
  void CloseSim(unsigned s) {
    Sim& sim = m_sims[s];
    if (!sim.sim) return;
    m_root.closeSim(sim.sim);
    sim.sim = msfD_Sim();
    ++m_owners[s].generation;
  }
  void Reopen(unsigned s) {
    bool readOnly = m_sims[s].readOnly;
    CloseSim(s);
    OpenSim(s, readOnly);
  }
  void MakeMesh(unsigned s) {
    Sim& sim = m_sims[s];
    if (!sim.sim) return;
    QELSimCollectionID none;
    msfD_DiscreteModel model = sim.sim.DiscreteModel(msfD_DiscreteModel::New(none, none, 0));
    if (!!model) model.Mesh(msfD_Mesh::New(none, none, 0));
    if (sim.readOnly) sim.fileKnown = false;
    sim.count = Systems(s).count();
  }
  msfD_Mesh_SystemsArray Systems(unsigned s) {
    return m_sims[s].sim.discreteModel().mesh().systems();
  }

  // --- holders -----------------------------------------------------------
  void NewHolder(Input& in) {
    unsigned h = in.Pick(kHolders);
    unsigned kind = in.Pick(kKinds);
    const char* name = kNames[in.Pick(7)];
    Sim& ids = m_sims[in.Pick(kSims)];
    CloseHolder(h);
    Holder& holder = m_holders[h];
    QELSimDistributionID labels, masks;
    QELSimCollectionID c;
    if (!ids.masks.empty()) labels = masks = ids.masks.back().id;
    if (!ids.collections.empty()) c = ids.collections.back();
    holder.kind = static_cast<int>(kind);
    holder.modelled = true;
    holder.context = ids.context;
    holder.name = name;
    holder.typeID = static_cast<int>(in.Byte()) - 128;
    switch (kind) {
      case kDamp:
        holder.damp = fesD_SubDamp::New(0);
        break;
      case kSystem:
        holder.system = fesD_FESystem::New(name, labels, masks, 0);
        break;
      case kModal:
        holder.modal = fesD_ModalSystem::New(name, labels, masks, c, c, 0);
        break;
      case kSub:
        holder.sub = fesD_SubstructureSystem::New(name, labels, masks, c, c, c, 0);
        break;
      default:
        holder.event = fesD_ModalEvent::New(name, holder.typeID, c, c, 0);
        break;
    }
  }
  void CloseHolder(unsigned h) {
    m_holders[h].Close();
    ++m_owners[kSims + h].generation;
  }
  // The holder's object went elsewhere (to `owner`, or destroyed when -1).
  void Moved(unsigned h, int owner) {
    for (Object& o : m_objects) {
      if (o.kind < 0 || !Live(o) || o.owner != static_cast<int>(kSims + h)) continue;
      if (owner < 0) {
        o.kind = -1;
      } else {
        o.owner = owner;
        o.generation = m_owners[owner].generation;
      }
    }
    m_holders[h].kind = -1;
    ++m_owners[kSims + h].generation;
  }
  void MoveHolder(unsigned from, unsigned to) {
    if (from == to) return;
    CloseHolder(to);
    Holder& a = m_holders[from];
    Holder& b = m_holders[to];
    b.damp = a.damp;  // each assignment moves ownership
    b.system = a.system;
    b.modal = a.modal;
    b.sub = a.sub;
    b.event = a.event;
    b.kind = a.kind;
    b.context = a.context;
    b.name = a.name;
    b.modelled = a.modelled;
    b.typeID = a.typeID;
    Moved(from, static_cast<int>(kSims + to));
  }
  void HolderGet(unsigned h) {
    Holder& holder = m_holders[h];
    Object o;
    o.kind = holder.kind;
    o.name = holder.name;
    o.typeID = holder.typeID;
    switch (holder.kind) {
      case kDamp:
        o.damp = holder.damp.Get();
        break;
      case kSystem:
        o.system = holder.system.Get();
        break;
      case kModal:
        o.system = holder.modal.FESystemSubobject().Get();
        break;
      case kSub:
        o.system = holder.sub.FESystemSubobject().Get();
        break;
      case kEvent:
        o.event = holder.event.Get();
        break;
      default:
        return;
    }
    if (holder.kind == kSystem || holder.kind == kModal || holder.kind == kSub) o.kind = kSystem;
    Track(o, static_cast<int>(kSims + h));
  }
  // Enters an object into the table, sharing the model of an entry that
  // designates the same object.
  void Track(Object o, int owner) {
    if (o.Identity() == nullptr) return;
    for (Object& known : m_objects) {
      if (known.kind >= 0 && Live(known) && known.Identity() == o.Identity()) return;
    }
    o.owner = owner;
    o.generation = m_owners[owner].generation;
    for (Object& slot : m_objects) {
      if (slot.kind < 0 || !Live(slot)) {
        slot = o;
        return;
      }
    }
  }
  bool Live(const Object& o) const { return o.generation == m_owners[o.owner].generation; }
  Object* Find(unsigned i, int kind) {
    Object& o = m_objects[i];
    if (o.kind < 0 || !Live(o) || (kind >= 0 && o.kind != kind)) return nullptr;
    return &o;
  }

  // --- arrays and sub-objects --------------------------------------------
  void AddSystem(unsigned s, unsigned h) {
    Sim& sim = m_sims[s];
    Holder& holder = m_holders[h];
    if (!sim.sim || holder.kind < kSystem || holder.kind > kSub) return;
    msfD_Mesh mesh = sim.sim.discreteModel().mesh();
    if (!mesh) return;
    fesD_FESystemHolder part;
    if (holder.kind == kSystem) part = holder.system;
    if (holder.kind == kModal) part = holder.modal.ReleaseAsFESystem();
    if (holder.kind == kSub) part = holder.sub.ReleaseAsFESystem();
    const bool modelled = holder.modelled;
    std::string name = modelled ? holder.name : "";
    bool foreign = holder.context != sim.context && holder.context != -1;
    Moved(h, static_cast<int>(s));
    Object o;
    o.kind = kSystem;
    o.system = mesh.systems().add(part);
    o.name = name;
    o.modelled = modelled;
    Track(o, static_cast<int>(s));
    ++sim.count;
    if (sim.readOnly || foreign) sim.fileKnown = false;
    sim.fileNames.push_back(name);
  }
  void GetSystem(unsigned s, int index) {
    if (!m_sims[s].sim) return;
    Object o;
    o.kind = kSystem;
    o.system = Systems(s).get(index);  // out of range: a message and an empty handle
    o.modelled = false;
    if (index >= 0 && index < m_sims[s].count && !o.system) Mismatch("get", "a system", "none");
    Track(o, static_cast<int>(s));
  }
  void SetDamping(unsigned i, unsigned h) {
    Object* o = Find(i, kSystem);
    Holder& holder = m_holders[h];
    if (o == nullptr || holder.kind != kDamp) return;
    fesD_SubstructureSystem sub(o->system);
    if (!sub) return;
    bool empty = !sub.damping();
    Object d;
    d.kind = kDamp;
    int owner = o->owner;
    Moved(h, empty ? owner : -1);  // refused: the offered object is destroyed
    d.damp = sub.Damping(holder.damp);
    if (empty) Track(d, owner);
    if (!d.damp) Mismatch("damping", "an object", "none");
  }
  void AddEvent(unsigned i, unsigned h) {
    Object* o = Find(i, kSystem);
    Holder& holder = m_holders[h];
    if (o == nullptr || holder.kind != kEvent) return;
    fesD_ModalSystem modal(o->system);
    if (!modal) return;
    int owner = o->owner;
    int before = modal.events().count();
    Object e;
    e.kind = kEvent;
    e.name = holder.name;
    e.typeID = holder.typeID;
    Moved(h, owner);
    e.event = modal.events().add(holder.event);
    if (modal.events().count() != before + 1)
      Mismatch("events", std::to_string(before + 1), std::to_string(modal.events().count()));
    Track(e, owner);
    if (owner < kSims) m_sims[owner].fileKnown = false;  // events are not modelled in the file
  }
  void Subobjects(unsigned i) {
    Object* o = Find(i, kSystem);
    if (o == nullptr) return;
    int owner = o->owner;
    fesD_SubstructureSystem sub(o->system);
    if (!!sub && !!sub.damping()) {
      Object d;
      d.kind = kDamp;
      d.damp = sub.damping();
      d.modelled = false;
      Track(d, owner);
    }
    fesD_ModalSystem modal(o->system);
    if (!!modal && modal.events().count() > 0) {
      Object e;
      e.kind = kEvent;
      e.event = modal.events().get(modal.events().count() - 1);
      e.modelled = false;
      Track(e, owner);
    }
  }

  // --- setters, getters, accesses ----------------------------------------
  bool OnReadOnly(const Object& o) const { return o.owner < kSims && m_sims[o.owner].readOnly; }
  void Setter(Input& in) {
    Object* o = Find(in.Pick(kObjects), -1);
    unsigned field = in.Pick(5);
    unsigned value = in.Byte();
    if (o == nullptr) return;
    if (o->kind == kDamp) {
      double v = static_cast<double>(value);
      switch (field) {
        case 0:
          o->damp.Alpha(v);
          break;
        case 1:
          o->damp.Beta(v);
          break;
        case 2:
          o->damp.Structural(v);
          break;
        case 3:
          o->damp.Mass(v);
          break;
        default:
          o->damp.Volume(v);
          break;
      }
      o->coefficient[field] = v;
    } else if (o->kind == kEvent) {
      o->event.EventTypeID(static_cast<int>(value));
      o->typeID = static_cast<int>(value);
    } else {
      std::string name = kNames[value % 7];
      o->system.SystemName(name.c_str());
      o->name = name;
      if (o->owner < kSims) Rename(*o, name);
      if (o->owner >= kSims) m_holders[o->owner - kSims].name = name;  // a system tops its holder
    }
  }
  // The stored name of a system in a sim, for the model of the file.
  void Rename(const Object& o, const std::string& name) {
    Sim& sim = m_sims[o.owner];
    if (sim.readOnly) sim.fileKnown = false;
    msfD_Mesh_SystemsArray systems = Systems(o.owner);
    for (int i = 0; i < systems.count() && i < static_cast<int>(sim.fileNames.size()); ++i) {
      if (systems.get(i).IsSame(o.system)) sim.fileNames[i] = o.modelled ? name : "";
    }
  }
  void Getter(unsigned i) {
    Object* o = Find(i, -1);
    if (o == nullptr) return;
    if (o->kind == kDamp) {
      double got[5] = {o->damp.alpha(), o->damp.beta(), o->damp.structural(), o->damp.mass(),
                       o->damp.volume()};
      for (int k = 0; k < 5 && o->modelled; ++k) {
        if (got[k] != o->coefficient[k])
          Mismatch("damping coefficient", std::to_string(o->coefficient[k]),
                   std::to_string(got[k]));
      }
    } else if (o->kind == kEvent) {
      int got = o->event.eventTypeID();
      if (o->modelled && got != o->typeID)
        Mismatch("eventTypeID", std::to_string(o->typeID), std::to_string(got));
      (void)o->event.eventName();
    } else {
      std::string got = o->system.systemName().cStr();
      if (o->modelled && got != o->name) Mismatch("systemName", o->name, got);
      (void)o->system.distributions().count();
    }
  }
  void Unmodel(Object& o) {
    o.modelled = false;
    if (o.kind == kSystem && o.owner < kSims) Rename(o, "");
    if (o.kind == kSystem && o.owner >= kSims) m_holders[o.owner - kSims].modelled = false;
  }
  void OpenAccess(unsigned a, unsigned i) {
    Object* o = Find(i, -1);
    if (o == nullptr || o->kind == kEvent) return;
    m_damp[a].reset();
    m_system[a].reset();
    Unmodel(*o);
    if (o->kind == kDamp) {
      m_damp[a].reset(new fesD_SubDampAccess(o->damp));
    } else {
      m_system[a].reset(new fesD_FESystemAccess(o->system));
    }
  }
  void EditAccess(Input& in) {
    unsigned a = in.Pick(kAccesses);
    unsigned field = in.Pick(5);
    unsigned value = in.Byte();
    if (m_damp[a]) {
      fesD_SubDampMembers& m = m_damp[a]->members();
      double* fields[] = {&m.alpha, &m.beta, &m.structural, &m.mass, &m.volume};
      *fields[field] = value;
    } else if (m_system[a]) {
      fesD_FESystemMembers& m = m_system[a]->members();
      if (field == 0) {
        m.systemName = kNames[value % 7];
      } else {
        ada_MapInt<QELSimDistributionID> map(m.distributions);
        map.insert(static_cast<int>(value), QELSimDistributionID());
        m.distributions.swap(map);
      }
    }
  }
  void CommitAccess(unsigned a) {
    if (m_damp[a]) m_damp[a]->commit();
    if (m_system[a]) m_system[a]->commit();
  }
  void CloseAccess(unsigned a) {
    m_damp[a].reset();
    m_system[a].reset();
  }

  // --- links, service, numbering, labels ---------------------------------
  void Link(Input& in) {
    static const char* const kTexts[] = {"#/",
                                         "#/discreteModel/mesh",
                                         "#/discreteModel/mesh/systems/:0",
                                         "#/discreteModel/mesh/systems/:1/damping",
                                         "#/discreteModel/mesh/systems/:1/events/:0",
                                         "#/distributionService",
                                         "#/schemaSnapshot",
                                         "alias:x#/discreteModel",
                                         "#/:0/:6/:18/:0"};
    Sim& sim = m_sims[in.Pick(kSims)];
    unsigned pick = in.Pick(12);
    std::string text = pick < 9 ? kTexts[pick] : in.Text(24);
    if (!sim.sim) return;
    gbb_SimpleLink link(sim.sim.Path(), text.c_str());
    gbb_Handle found = link.Get(in.Pick(2));
    fesD_SubDamp damp(found);
    if (!!damp) (void)damp.beta();
    fesD_FESystem system(found);
    if (!!system) (void)system.systemName();
    gbb_DistributionService service(found);
    if (!!service) (void)service.Context();
  }
  void Service(Input& in) {
    Sim& sim = m_sims[in.Pick(kSims)];
    unsigned what = in.Pick(3);
    int n = static_cast<int>(in.Pick(6));
    std::vector<int> values(static_cast<size_t>(n) + 1);
    for (int& v : values) v = static_cast<int>(in.Pick(16));
    if (!sim.sim) return;
    QELSimContextID context = sim.sim.distributionService().Context();
    if (what == 0 || sim.collections.empty()) {
      QELSimCollectionID c = QELSimCollectionRef::Create(context, n);
      if (c.IsValid()) sim.collections.push_back(c);
      return;
    }
    QELSimCollectionRef collection(sim.collections[values[0] % sim.collections.size()]);
    // Members may lie outside the collection or repeat: the service refuses those.
    QELSimCSetID set = collection.CreateOrderedCSet(values.data() + 1, n);
    if (what == 1 || !set.IsValid()) return;
    int size = QELSimCSet(set).Size();
    std::vector<int> masks(static_cast<size_t>(size > 0 ? size : 0) + 1);
    for (int k = 0; k < size; ++k) masks[k] = values[1 + k % n] & 0xff;  // labels 1..8
    QELSimDistributionID id = QELSimDistributionRef::CreateInt32(set, masks.data());
    if (id.IsValid() && size == n) {
      masks.resize(static_cast<size_t>(n));
      sim.masks.push_back(Masks{id, masks});
    }
  }
  void Numbering(Input& in) {
    Sim& sim = m_sims[in.Pick(kSims)];
    unsigned which = in.Byte();
    int shift = static_cast<int>(in.Pick(9));  // labels stay below 17: bit 31 is never set
    bool add10 = in.Pick(2) != 0;
    unsigned form = in.Pick(4);
    unsigned seed = in.Byte();
    std::vector<int> masks;
    std::unique_ptr<fesD_NodalDofDefinition> dofs;
    if (!sim.sim || sim.masks.empty()) {
      int n = static_cast<int>(which % 6);
      int* adopted = static_cast<int*>(mem_OperatorNewThrowBuiltin(sizeof(int) * (n + 1)));
      for (int k = 0; k < n; ++k) masks.push_back(adopted[k] = static_cast<int>((seed >> k) & 7));
      dofs.reset(new fesD_NodalDofDefinition(adopted, n, shift, add10));
    } else {
      const Masks& m = sim.masks[which % sim.masks.size()];
      masks = m.values;
      dofs.reset(new fesD_NodalDofDefinition(m.id, shift, add10));
    }
    int expected = 0;
    for (int& mask : masks) {
      unsigned m = static_cast<unsigned>(mask);
      if (add10 && (m & 0x80u) != 0) m |= 0x200u;
      m |= m << shift;
      mask = static_cast<int>(m);
      expected += __builtin_popcount(m);
    }
    if (dofs->NumberOfDofs() != expected)
      Mismatch("NumberOfDofs", std::to_string(expected), std::to_string(dofs->NumberOfDofs()));
    int count = dofs->NumberOfDofs();
    for (int node = 0; node < dofs->NumberOfNodes(); ++node) {
      int ids = 0;
      dofs->NodalDofIds(node, ids);
      if (ids != __builtin_popcount(static_cast<unsigned>(masks[node])))
        Mismatch("NodalDofIds", std::to_string(masks[node]), std::to_string(ids));
    }
    // A solver ordering of distinct system DOFs, or per-node masks within the node's own.
    std::vector<int> order;
    for (int k = 0; k < count; ++k) {
      if (((seed >> (k % 8)) & 1) != 0)
        order.insert(order.begin(), k);
      else if (k % 3 != 0)
        order.push_back(k);
    }
    if (form == 0) {
      dofs->SetupSolverDofs(static_cast<int>(order.size()), order.data());
    } else if (form == 1 && !!sim.sim && !sim.readOnly && !sim.collections.empty()) {
      dofs->SetupSolverDofs(static_cast<int>(order.size()), order.data());
      QELSimCSetID written = dofs->WritePermutation(QELSimCollectionRef::Create(
          sim.sim.distributionService().Context(), count > 0 ? count : 1));
      if (written.IsValid()) dofs->SetupSolverDofs(written);
    } else if (form == 2) {
      std::vector<int> solver(masks.size());
      for (size_t k = 0; k < masks.size(); ++k) solver[k] = masks[k] & static_cast<int>(seed);
      dofs->SetupSolverDofs(nullptr, solver.data());
    } else {
      dofs->SetupSolverDofs(0, nullptr);
      return;
    }
    std::vector<int> map(static_cast<size_t>(count) + 1);
    dofs->MappingToSolverDofs(map.data());
    for (int k = 0; k < count; ++k) {
      if (dofs->SystemDofFromSolverDof(map[k]) != k) Mismatch("permutation", "inverse", "not");
    }
  }
  void Labels(unsigned i) {
    Object* o = Find(i, kSystem);
    if (o == nullptr) return;
    int count = 0;
    int* user = fesD_Utilities::InternalToUserNodes(o->system, count);
    mem_Free(user);
    int maxLabel = 0;
    int* internal = fesD_Utilities::UserToInternalNodes(o->system, maxLabel);
    mem_Free(internal);
  }
  void Count(unsigned s) {
    Sim& sim = m_sims[s];
    if (!sim.sim) return;
    int got = Systems(s).count();
    if (!!sim.sim.discreteModel().mesh() && got != sim.count)
      Mismatch("systems", std::to_string(sim.count), std::to_string(got));
  }

  // Accesses come first so that they are destroyed last: they may outlive
  // every object.
  std::unique_ptr<fesD_SubDampAccess> m_damp[kAccesses];
  std::unique_ptr<fesD_FESystemAccess> m_system[kAccesses];
  msfD_Root m_root;
  std::string m_files[kSims];
  bool m_existing[kSims];
  Sim m_sims[kSims];
  Owner m_owners[kOwners];
  Holder m_holders[kHolders];
  Object m_objects[kObjects];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  aio_cerr.SetSink(&Drop, nullptr);
  {
    Input in(data, size);
    Session session(static_cast<int>(in.Pick(2)));
    session.Run(in);
  }
  aio_cerr.SetSink(nullptr, nullptr);
  return 0;
}
