#include "ddb_reader.h"

#include <DDB_PDM_Core.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "platform/core/aio_capture.h"

namespace {

// What a members stream's error number means (gbb_MemoryStream::Error), as
// a reader meets it.
std::string StreamError(int status) {
  switch (status) {
    case gbb_MemoryStream::ErrorTagMismatch:
      return "a type tag that does not match";
    case gbb_MemoryStream::ErrorOverrun:
      return "the bytes end inside a value";
    case gbb_MemoryStream::ErrorForeignID:
      return "an identifier longer than 64 bytes";
    default:
      return "an unknown error";
  }
}

std::string Ints(const std::vector<int>& values) {
  std::string text;
  for (int v : values) text += (text.empty() ? "" : " ") + std::to_string(v);
  return text;
}

// Everything the library prints while a reader lives, line by line.
class Capture {
 public:
  Capture() {
    gbb_TakeLoadFailures(nullptr, 0);  // what failed before this read is not its
  }
  // The complete lines printed since the last call.
  std::vector<std::string> Take() {
    m_text += m_printed.Take();
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = m_text.find('\n', start)) != std::string::npos; start = end + 1) {
      lines.push_back(m_text.substr(start, end - start));
    }
    m_text.erase(0, start);
    return lines;
  }

 private:
  aio_Capture m_printed;
  std::string m_text;  // the start of a line not ended yet
};

// Reads objects through the reflection of their classes (gbb_Reflection.h):
// every member in save order, its value as text; sub-objects and array
// elements become children, read once the object itself is complete, so
// that what the library prints while reading an object stays with it.
class Reader {
 public:
  Reader(Capture* capture, int depth, const DdbReadOptions& options)
      : m_capture(capture), m_depth(depth), m_options(options) {}

  // Reads the object `handle` designates into *o, and the objects below it
  // down to the reader's depth; `level` is o's level below where reading began.
  void Read(const gbb_Handle& handle, DdbObject* o, int level) {
    ObjectReader members(this, o, level);
    if (!gbb_VisitAsOwnClass(handle, gbb_Reflection<msfD_Sim>::Classes(), members)) {
      // Objects without members of their own to show (the services).
      gbb_ClassID id = handle.Class().ClassID();
      o->cls.assign(id.Bytes(), static_cast<size_t>(id.Length()));
      End(o);
    }
  }

 private:
  // The visitor of one object's members (see gbb_Reflection.h).
  class ObjectReader {
   public:
    ObjectReader(Reader* reader, DdbObject* o, int level)
        : m_reader(reader), m_o(o), m_level(level) {}

    template <class X>
    void Object(const X& object) {
      gbb_ClassID id = gbb_Reflection<X>::Class().ClassID();
      m_o->cls.assign(id.Bytes(), static_cast<size_t>(id.Length()));
      gbb_Reflection<X>::Visit(object, *this);
      m_reader->End(m_o);
      if (!m_reader->Deeper(m_level + 1)) return;
      for (auto& descend : m_below) descend();
    }

    template <class B>
    void Base(const gbb_MemberInfo&, const B& part) {
      gbb_Reflection<B>::Visit(part, *this);
    }
    template <class T>
    void Simple(const gbb_MemberInfo& member, const T& value) {
      if (m_reader->m_options.values) m_reader->Value(m_o, member.name, value);
    }
    template <class S>
    void Subobject(const gbb_MemberInfo& member, const S& object) {
      if (!object) return;
      std::string name = member.name;
      m_below.push_back([this, object, name] {
        m_reader->Child(m_o, object, name, m_o->link + "/" + name, m_level + 1);
      });
    }
    template <class A>
    void Array(const gbb_MemberInfo& member, const A& array) {
      m_reader->Value(m_o, member.name, array.count());
      std::string name = member.name;
      m_below.push_back([this, array, name] {
        for (int i = 0; i < array.count(); ++i) {
          auto element = array.get(i);
          std::string at = std::to_string(i);
          m_reader->Child(m_o, element, name + "[" + at + "]", m_o->link + "/" + name + "/:" + at,
                          m_level + 1);
        }
      });
    }
    template <class T>
    void Service(const gbb_MemberInfo&, const T&) {}

   private:
    Reader* m_reader;
    DdbObject* m_o;
    int m_level;
    std::vector<std::function<void()>> m_below;  // the children, read after the object
  };

  // A child of *parent: an empty handle (an element that cannot be opened)
  // gives an object without class.
  void Child(DdbObject* parent, const gbb_Handle& handle, const std::string& name,
             const std::string& link, int level) {
    parent->children.emplace_back();
    DdbObject* o = &parent->children.back();
    o->name = name;
    o->link = link;
    if (handle.IsEmpty()) {
      End(o);
      return;
    }
    Read(handle, o, level);
  }

  void End(DdbObject* o) {
    for (std::string& line : m_capture->Take()) o->messages.push_back(line);
    gbb_LoadFailure failures[16];
    int n = gbb_TakeLoadFailures(failures, 16);
    for (int i = 0; i < n; ++i) {
      o->undecoded.push_back("at byte " + std::to_string(failures[i].offset) + " (" +
                             failures[i].implName + ", stream error " +
                             std::to_string(failures[i].status) + ": " +
                             StreamError(failures[i].status) + ")");
    }
  }
  bool Deeper(int level) const { return m_depth < 0 || level <= m_depth; }

  // Values as the tools show them.
  static void Put(DdbObject* o, const std::string& name, const std::string& value) {
    o->values.emplace_back(name, value);
  }
  void PutArray(DdbObject* o, const std::string& name, const std::string& head,
                std::shared_ptr<const std::vector<int>> items) {
    Put(o, name, m_options.arrayText ? head + " [" + Ints(*items) + "]" : head);
    o->arrays[name] = DdbArray{head, std::move(items)};
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
    std::string head =
        "set " + std::to_string(id.CollectionMinor()) + "/" + std::to_string(id.CSetMinor());
    auto& items = m_sets[{id.CollectionMinor(), id.CSetMinor()}];
    if (!items) {
      QELSimCSet set(id);
      auto members = std::make_shared<std::vector<int>>(static_cast<size_t>(set.Size()) + 1);
      set.OrderedMembers(members->data());
      members->pop_back();
      items = members;
    }
    PutArray(o, name, head, items);
  }
  void Value(DdbObject* o, const std::string& name, QELSimDistributionID id) {
    if (!id.IsValid()) return Put(o, name, "-");
    std::string label = "distribution " + std::to_string(id.DistributionMinor());
    auto& items = m_distributions[id.DistributionMinor()];
    if (!items) items = ReadInts(id);
    if (items->empty() && m_unreadable.count(id.DistributionMinor())) {
      return Put(o, name, label + " unreadable");
    }
    PutArray(o, name, label, items);
  }
  // The values of a one-dimensional distribution; none, and the
  // distribution counted unreadable, when they cannot be read.
  std::shared_ptr<const std::vector<int>> ReadInts(QELSimDistributionID id) {
    QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
    QELSimDistributionRef(id).QueryDrawers(drawers);
    auto values = std::make_shared<std::vector<int>>();
    if (drawers.Size() == 1 && drawers[0].NumDimensions() == 1) {
      values->resize(static_cast<size_t>(drawers[0].DataSizeItems(0)) + 1);
      QELSimTransfer t(id);
      t.SetRead();
      t.SetBufferPadding(false);
      t.SetDim(0, drawers[0].DimensionSets()[0]);
      t.SetBuffer(0, values->data(), (values->size() - 1) * sizeof(int));
      if (t.ExecRead()) {
        values->pop_back();
        return values;
      }
    }
    m_unreadable.insert(id.DistributionMinor());
    return std::make_shared<std::vector<int>>();
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

  Capture* m_capture;
  int m_depth;
  DdbReadOptions m_options;
  // The arrays read so far, by identifier: objects that share one read it once.
  std::map<std::pair<unsigned, unsigned>, std::shared_ptr<const std::vector<int>>> m_sets;
  std::map<unsigned, std::shared_ptr<const std::vector<int>>> m_distributions;
  std::set<unsigned> m_unreadable;
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

bool DdbRead(const std::string& path, int depth, DdbObject* sim, std::string* why,
             const DdbReadOptions& options) {
  Capture capture;
  msfD_Root root(0);
  std::vector<std::string> said;
  msfD_Sim opened = Open(root, path, "", capture, why, &said);
  if (!opened) return false;
  sim->name = "sim";
  sim->link = "#";
  Reader(&capture, depth, options).Read(opened, sim, 0);
  sim->messages.insert(sim->messages.begin(), said.begin(), said.end());
  return true;
}

bool DdbReadLink(const std::string& path, const std::string& link, int depth, DdbObject* object,
                 std::string* why, const DdbReadOptions& options) {
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
  object->link = link;
  Reader(&capture, depth, options).Read(handle, object, 0);
  return true;
}

namespace {

// Collects the names of the members each class shows as values.
struct ValueNames {
  template <class... X>
  void Add(gbb_ClassList<X...>) {
    (AddClass(gbb_Reflection<X>::kMembers, gbb_Reflection<X>::kCount), ...);
  }
  void AddClass(const gbb_MemberInfo* members, int count) {
    for (int i = 0; i < count; ++i) {
      gbb_MemberKind kind = members[i].kind;
      if (kind == gbb_MemberKind::kValue || kind == gbb_MemberKind::kIdentifier ||
          kind == gbb_MemberKind::kMap || kind == gbb_MemberKind::kArray) {
        names.push_back(members[i].name);
      }
    }
  }
  std::vector<std::string> names;
};

}  // namespace

std::vector<std::string> DdbValueNames() {
  ValueNames collect;
  collect.Add(gbb_Reflection<msfD_Sim>::Classes());
  std::sort(collect.names.begin(), collect.names.end());
  collect.names.erase(std::unique(collect.names.begin(), collect.names.end()), collect.names.end());
  return collect.names;
}

int DdbSuperblockVersion(const std::string& path) {
  Capture capture;  // what opening says belongs to the tool's other reads
  hdf_File file = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
  if (!file.IsValid()) return -1;
  H5F_info2_t info;
  int version = H5Fget_info2(file.Id(), &info) >= 0 ? static_cast<int>(info.super.version) : -1;
  file.Close();
  return version;
}

void DdbVisit(const DdbObject& root, void (*visit)(const DdbObject&, void*), void* context) {
  visit(root, context);
  for (const DdbObject& child : root.children) DdbVisit(child, visit, context);
}
