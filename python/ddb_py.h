// The Python module ddb_pdm: what its parts share.
//
// Every binding call runs the library inside a Messages scope: what the
// library prints on aio_cerr is collected instead of reaching standard
// error, and settles the call afterwards. An answer the library marks as
// empty (a null handle or identifier, a refused change) raises ddb.Error
// with the library's text; any other message becomes a DatabaseWarning.
//
// A Python object never owns library memory through a raw pointer alone: it
// carries a Life that says whether what it designates still exists. A sim
// and everything reached from it share the sim's life, which ends when the
// sim or its root is closed; an object made by `new` has a life of its own
// that owns it until an assignment or an append hands it over, and then
// follows its new owner. Every access checks the life first, so a handle
// used after its database was closed raises ddb.Error instead of touching
// freed memory.
#ifndef DDB_PYTHON_DDB_PY_H_
#define DDB_PYTHON_DDB_PY_H_

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "DDB_PDM_Core.h"

namespace ddb_py {
namespace py = pybind11;

// ---- errors and messages ----------------------------------------------------

// ddb.Error in Python (a RuntimeError).
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Collects what the library prints while it lives. Scopes do not nest: an
// inner scope leaves the collecting to the outer one.
class Messages {
 public:
  Messages();
  ~Messages();
  // The messages collected so far, without trace lines (those go to
  // sys.stderr as they are), and forgets them.
  std::string Take();

 private:
  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;
  bool m_outer;
};

// Messages after a read: with an empty answer they raise Error, otherwise
// they become a warning.
void Settle(const std::string& messages, bool empty);
// Messages after a change: any message raises Error.
void SettleChange(const std::string& messages);
// `text` as a DatabaseWarning.
void Warn(const std::string& text);

// What counts as an empty answer.
inline bool IsEmptyAnswer(const QELSimCollectionID& id) {
  return !id.IsValid();
}
inline bool IsEmptyAnswer(const QELSimCSetID& id) {
  return !id.IsValid();
}
inline bool IsEmptyAnswer(const QELSimDistributionID& id) {
  return !id.IsValid();
}
// Handles: empty when they designate nothing.
template <class T, class = typename std::enable_if<!std::is_arithmetic<T>::value>::type>
auto IsEmptyAnswer(const T& handle) -> decltype(!handle) {
  return !handle;
}
// Values, texts and maps are answers even after a message: any other type
// reaches this overload through a conversion, the worst match.
struct AnyAnswer {
  template <class T>
  AnyAnswer(const T&) {}  // NOLINT: converts anything
};
inline bool IsEmptyAnswer(AnyAnswer) {
  return false;
}

// Runs a read of the library and settles its messages.
template <class F>
auto Read(F&& call) {
  Messages messages;
  auto result = call();
  Settle(messages.Take(), IsEmptyAnswer(result));
  return result;
}

// The same for a count, which the library answers with 0 when it cannot.
template <class F>
int ReadCount(F&& call) {
  Messages messages;
  int count = call();
  Settle(messages.Take(), count == 0);
  return count;
}

// Runs a change of the library and settles its messages.
template <class F>
void Change(F&& call) {
  Messages messages;
  call();
  SettleChange(messages.Take());
}

// ---- construction from Python -------------------------------------------------

// Python can make an instance without running its constructor
// (cls.__new__(cls), copy.copy, the __new__ of pybind11's base class), and
// pybind11 would then hand the methods memory no constructor ran on. So no
// class of the module keeps pybind11's allocating __new__: a class whose
// objects only the module makes refuses it, and a class Python constructs
// builds the whole object in it (its __init__ then finds the object built
// and leaves it). Both are C-level slots, so that Python's own check stops
// reaching past them to a base class's __new__.
void RefuseNew(py::handle cls);
// Makes `make` the class's constructor, called from its __new__ (through
// the static `_make`, whose overloads accumulate).
void ConstructInNew(py::handle cls);

template <class T, class... Args, class... Extra>
void DefineConstructor(py::class_<T>& cls, T (*make)(Args...), const Extra&... extra) {
  cls.def(py::init(make), extra...);
  cls.def_static("_make", make, extra...);
  ConstructInNew(cls);
}

// ---- lives --------------------------------------------------------------------

// Where an identifier passed from Python came from: its database's service
// context and file (see ddb_py_checks.h).
struct Origin {
  int context;
  std::string file;
};

// What the life of a sim tells about its database.
struct DatabaseFacts {
  int context = -1;
  std::string file;
  bool readOnly = false;
};

class Life;

// Changes of a database (defined in ddb_py_checks.cpp). Every conversion of
// an identifier from Python notes where it came from; a change then checks
// its target: in a database, Error unless it is open for update and every
// noted identifier is of its own service context ("<what>: ..."); under an
// object made by new and not stored yet, the origins are kept with that
// object and checked when it is stored.
void NoteOrigin(const Life& life);
void ForgetOrigins();  // a conversion failed, or a change begins
std::vector<Origin> TakeOrigins();
void CheckChange(const Life& target, const std::vector<Origin>& origins, const char* what);

class Life {
 public:
  virtual ~Life();
  virtual bool Alive() const = 0;
  // The database this life is the life of (false: not a sim's).
  virtual bool Facts(DatabaseFacts&) const { return false; }
  // Why handles under this life may not be used ("its database was closed").
  virtual std::string Why() const = 0;
  // The life this one follows (a handed-over object follows its owner).
  virtual const Life* Next() const { return nullptr; }
};
typedef std::shared_ptr<Life> LifePtr;

// Raises Error "<what> used after <why>" unless `life` is alive.
void RequireAlive(const Life& life, const char* what);

// Owns an object made by `new` until it is handed over.
class Box {
 public:
  virtual ~Box();
  // The outer interface of the object it owns.
  const void* Identity() const { return m_identity; }

 protected:
  Box() : m_identity(nullptr) {}
  const void* m_identity;
};

class DetachedLife : public Life {
 public:
  explicit DetachedLife(std::unique_ptr<Box> box) : m_box(std::move(box)) {}
  bool Alive() const override { return m_owner ? m_owner->Alive() : m_box != nullptr; }
  std::string Why() const override;
  const Life* Next() const override { return m_owner.get(); }
  // Null once the object was handed over or destroyed.
  Box* box() const { return m_box.get(); }
  // The object now belongs to what `owner` is the life of.
  void HandOver(LifePtr owner);
  // The library destroyed the object (it refused to take it).
  void Destroyed();
  // Where the identifiers stored in the object so far came from, its
  // sub-objects' included (checked when it is stored in a database).
  std::vector<Origin>& origins() { return m_origins; }

 private:
  std::unique_ptr<Box> m_box;
  LifePtr m_owner;
  std::vector<Origin> m_origins;
};

// ---- objects of the schema classes ------------------------------------------

// ddb.Object: the base of every schema class in Python.
class Object {
 public:
  template <class THandle>
  Object(const THandle&, LifePtr life) : m_life(std::move(life)), m_identity(nullptr) {}
  virtual ~Object();

  const LifePtr& life() const { return m_life; }
  // Raises Error when the object may not be used any more.
  void Require() const { RequireAlive(*m_life, Name()); }
  // The object as a generic handle; only after Require().
  virtual gbb_Handle Generic() const = 0;
  // The Python class name.
  virtual const char* Name() const = 0;
  // Its outer interface, kept from when it was alive (compared, never used).
  const void* Identity() const { return m_identity; }

 protected:
  void SetIdentity(const void* identity) { m_identity = identity; }

 private:
  LifePtr m_life;
  const void* m_identity;
};

// What the generated code says about each schema class X:
//   typedef ... Base;      the base class, or void
//   typedef ... Holder;    X's holder
//   static const char* Name();  the Python class name
//   static gbb_Class Class();
//   static Schema<Base>::Holder::Token ReleaseAsBase(Holder&);  (derived only)
template <class X>
struct Schema;

template <class X>
class Obj;
template <class X>
using ParentOf = typename std::conditional<std::is_void<typename Schema<X>::Base>::value, Object,
                                           Obj<typename Schema<X>::Base>>::type;

// A handle of class X in Python; derived classes derive, as in C++.
template <class X>
class Obj : public ParentOf<X> {
 public:
  Obj(const X& handle, LifePtr life) : ParentOf<X>(handle, std::move(life)), m_handle(handle) {
    this->SetIdentity(static_cast<gbb_Handle>(handle).Pointer());
  }
  // The handle, after checking that it may be used.
  const X& Handle() const {
    this->Require();
    return m_handle;
  }
  gbb_Handle Generic() const override { return m_handle; }
  const char* Name() const override { return Schema<X>::Name(); }

 private:
  X m_handle;
};

template <class X>
using Class = py::class_<Obj<X>, ParentOf<X>>;

// The Python object of a handle: of the class the object has in the file (a
// ModalSystem from an array of FE systems), None for an empty handle.
typedef py::object (*Maker)(const gbb_Handle& handle, const LifePtr& life);
void RegisterMaker(gbb_Class cls, Maker make);
py::object MakeObject(const gbb_Handle& handle, const LifePtr& life, Maker fallback);

template <class X>
py::object MakeAs(const gbb_Handle& handle, const LifePtr& life) {
  return py::cast(Obj<X>(X(handle), life));
}
template <class X>
py::object MakeObject(const X& handle, const LifePtr& life) {
  return MakeObject(static_cast<gbb_Handle>(handle), life, &MakeAs<X>);
}

// An object made by `new` that can be given up as a holder of S.
template <class S>
class OwnedAs : public virtual Box {
 public:
  virtual typename Schema<S>::Holder::Token Release(S* tag) = 0;
};

template <class X, class B>
class Owned : public OwnedAs<X>, public OwnedAs<B> {
 public:
  explicit Owned(typename Schema<X>::Holder& holder) : m_holder(holder) {
    this->m_identity = static_cast<gbb_Handle>(m_holder.Get()).Pointer();
  }
  typename Schema<X>::Holder::Token Release(X*) override { return m_holder; }
  typename Schema<B>::Holder::Token Release(B*) override {
    return Schema<X>::ReleaseAsBase(m_holder);
  }

 private:
  typename Schema<X>::Holder m_holder;
};

template <class X>
class Owned<X, void> : public OwnedAs<X> {
 public:
  explicit Owned(typename Schema<X>::Holder& holder) : m_holder(holder) {
    this->m_identity = static_cast<gbb_Handle>(m_holder.Get()).Pointer();
  }
  typename Schema<X>::Holder::Token Release(X*) override { return m_holder; }

 private:
  typename Schema<X>::Holder m_holder;
};

// The Python object of a new object: it owns the holder `New` returned.
template <class X>
py::object New(typename Schema<X>::Holder holder) {
  X handle = holder.Get();
  auto box = std::make_unique<Owned<X, typename Schema<X>::Base>>(holder);
  auto life = std::make_shared<DetachedLife>(std::move(box));
  life->origins() = TakeOrigins();  // of the identifiers `new` was given
  return py::cast(Obj<X>(handle, std::move(life)));
}

// The detached life of `item`, checked for being handed over under
// `owner` ("assigned", "appended"): its own (made by `new` and not handed
// over yet, not merely reached from such an object), and not something
// `owner` lives in.
DetachedLife& Detached(const Object& item, const Life& owner, const char* verb);

// Hands `item` over to `store` as a holder token of S. `store` returns the
// handle the library answers; the item then follows `owner`, or is marked
// destroyed when the library refused it. Messages raise Error.
template <class S, class Store>
py::object HandOver(Obj<S>& item, const LifePtr& owner, const char* verb, Store store) {
  DetachedLife& detached = Detached(item, *owner, verb);
  auto* owned = dynamic_cast<OwnedAs<S>*>(detached.box());
  if (owned == nullptr) throw py::type_error(std::string(item.Name()) + " cannot be " + verb);
  CheckChange(*owner, detached.origins(), item.Name());
  typename Schema<S>::Holder::Token token = owned->Release(static_cast<S*>(nullptr));
  // From here the object is the library's: should the call below end by an
  // exception, the Python object must not think it still owns it.
  detached.Destroyed();
  Messages messages;
  S stored = store(token);
  std::string text = messages.Take();
  if (!!stored && static_cast<gbb_Handle>(stored).Pointer() == item.Identity()) {
    detached.HandOver(owner);
  }
  SettleChange(text);
  return MakeObject(stored, owner);
}

// ---- values: how each member type crosses ---------------------------------------

// What each kind of held value is called in messages.
inline const char* HeldName(const QELSimCollectionID*) {
  return "Collection";
}
inline const char* HeldName(const QELSimCSetID*) {
  return "OrderedSet";
}
inline const char* HeldName(const QELSimDistributionID*) {
  return "Distribution";
}
inline const char* HeldName(const QELSimContextID*) {
  return "Service";
}
inline const char* HeldName(const gbb_SchemaSnapshot*) {
  return "SchemaSnapshot";
}
template <class T, class THolder, class TRepository, class TOwner>
const char* HeldName(const gbb_Array<T, THolder, TRepository, TOwner>*) {
  return "array";
}

// A value of the library that designates something of a database (a
// service identifier, the service context, an array, the schema snapshot)
// with the life of what it came from.
template <class T>
class Held {
 public:
  Held(const T& value, LifePtr life) : m_value(value), m_life(std::move(life)) {}
  // The value, after checking that it may be used.
  const T& get() const {
    RequireAlive(*m_life, HeldName(static_cast<const T*>(nullptr)));
    return m_value;
  }
  // The value as it was, for comparing.
  const T& raw() const { return m_value; }
  const LifePtr& life() const { return m_life; }

 private:
  T m_value;
  LifePtr m_life;
};

template <class Id>
using IdRef = Held<Id>;

template <class T, class Enable = void>
struct Convert;

template <>
struct Convert<int> {
  typedef int In;
  static py::object Out(int value, const LifePtr&) { return py::int_(value); }
  static int Value(int value) { return value; }
};

template <>
struct Convert<double> {
  typedef double In;
  static py::object Out(double value, const LifePtr&) { return py::float_(value); }
  static double Value(double value) { return value; }
};

template <>
struct Convert<ada_string> {
  typedef std::string In;
  static py::object Out(const ada_string& value, const LifePtr&);
  static ada_string Value(const std::string& value);
};

template <class Id>
struct Convert<Id, typename std::enable_if<std::is_same<Id, QELSimCollectionID>::value ||
                                           std::is_same<Id, QELSimCSetID>::value ||
                                           std::is_same<Id, QELSimDistributionID>::value>::type> {
  typedef std::optional<IdRef<Id>> In;
  // Missing identifiers read as None.
  static py::object Out(const Id& id, const LifePtr& life) {
    return id.IsValid() ? py::cast(IdRef<Id>(id, life)) : py::none();
  }
  static Id Value(const In& value) {
    if (!value) return Id();
    try {
      Id id = value->get();
      NoteOrigin(*value->life());
      return id;
    } catch (...) {
      ForgetOrigins();
      throw;
    }
  }
};

template <class V>
struct Convert<ada_MapString<V>> {
  typedef std::map<std::string, typename Convert<V>::In> In;
  static py::object Out(const ada_MapString<V>& map, const LifePtr& life) {
    py::dict out;
    ada_MapStringIterator<V> it(map);
    for (it.first(); !it.isDone(); it.next()) {
      out[Convert<ada_string>::Out(it.key(), life)] = Convert<V>::Out(it.value(), life);
    }
    return std::move(out);
  }
  static void Value(const In& in, ada_MapString<V>& map) {
    for (const auto& pair : in) {
      map.insert(Convert<ada_string>::Value(pair.first), Convert<V>::Value(pair.second));
    }
  }
};

template <class V>
struct Convert<ada_MapInt<V>> {
  typedef std::map<int, typename Convert<V>::In> In;
  static py::object Out(const ada_MapInt<V>& map, const LifePtr& life) {
    py::dict out;
    ada_MapIntIterator<V> it(map);
    for (it.first(); !it.isDone(); it.next())
      out[py::int_(it.key())] = Convert<V>::Out(it.value(), life);
    return std::move(out);
  }
  static void Value(const In& in, ada_MapInt<V>& map) {
    for (const auto& pair : in) map.insert(pair.first, Convert<V>::Value(pair.second));
  }
};

template <class T>
struct IsMap : std::false_type {};
template <class V>
struct IsMap<ada_MapString<V>> : std::true_type {};
template <class V>
struct IsMap<ada_MapInt<V>> : std::true_type {};

// The library's value of what Python passed for a member of type T.
template <class T>
T ValueOf(const typename Convert<T>::In& in) {
  if constexpr (IsMap<T>::value) {
    T map;
    Convert<T>::Value(in, map);
    return map;
  } else {
    return Convert<T>::Value(in);
  }
}

// ---- members, as the generated code declares them -------------------------------

// A simple member: a property whose assignment commits.
template <class X, class C, class T, class V>
void DefineSimple(Class<X>& c, const char* name, T (C::*get)() const, void (C::*set)(V) const,
                  const char* doc) {
  typedef typename std::decay<T>::type Type;
  c.def_property(
      name,
      [get](const Obj<X>& self) {
        const X& handle = self.Handle();
        return Convert<Type>::Out(Read([&] { return Type((handle.*get)()); }), self.life());
      },
      [set](const Obj<X>& self, const typename Convert<Type>::In& value) {
        const X& handle = self.Handle();
        ForgetOrigins();
        const Type converted = ValueOf<Type>(value);
        CheckChange(*self.life(), TakeOrigins(), self.Name());
        Change([&] { (handle.*set)(converted); });
      },
      doc);
}

// A sub-object: None while there is none; assigning a new object stores it.
template <class X, class C, class S>
void DefineSubobject(Class<X>& c, const char* name, S (C::*get)() const,
                     S (C::*set)(typename Schema<S>::Holder) const, const char* doc) {
  c.def_property(
      name,
      [get](const Obj<X>& self) {
        const X& handle = self.Handle();
        return MakeObject(Read([&] { return (handle.*get)(); }), self.life());
      },
      [set](const Obj<X>& self, Obj<S>& value) {
        const X& handle = self.Handle();
        HandOver<S>(value, self.life(), "assigned", [&](typename Schema<S>::Holder::Token token) {
          return (handle.*set)(typename Schema<S>::Holder(token));
        });
      },
      doc);
}

// A persistent array in Python: len(), [i], iteration, append.
template <class A>
struct ArrayOf;
template <class T, class THolder, class TRepository, class TOwner>
struct ArrayOf<gbb_Array<T, THolder, TRepository, TOwner>> {
  typedef T Element;
};

// A position from Python (negative counts from the end), or IndexError.
int ArrayIndex(py::ssize_t index, int count);

template <class A>
void DefineArrayClass(py::module_& m, const char* name, const char* doc) {
  typedef typename ArrayOf<A>::Element T;
  auto get = [](const Held<A>& self, py::ssize_t index) {
    const A& array = self.get();
    int i = ArrayIndex(index, ReadCount([&] { return array.count(); }));
    return MakeObject(Read([&] { return array.get(i); }), self.life());
  };
  py::class_<Held<A>> cls(m, name, doc);
  RefuseNew(cls);
  cls.def("__len__",
          [](const Held<A>& self) {
            const A& array = self.get();
            return ReadCount([&] { return array.count(); });
          })
      .def("__getitem__", get, py::arg("index"))
      .def(
          "append",
          [](const Held<A>& self, Obj<T>& item) {
            const A& array = self.get();
            return HandOver<T>(item, self.life(), "appended",
                               [&](typename Schema<T>::Holder::Token token) {
                                 return array.add(typename Schema<T>::Holder(token));
                               });
          },
          py::arg("item"), "Stores a new object at the end; returns it as stored.")
      .def("__repr__", [name](const Held<A>& self) {
        const A& array = self.get();
        return std::string("<ddb_pdm.") + name + " of " +
               std::to_string(ReadCount([&] { return array.count(); })) + ">";
      });
}

// What a read-only member gives Python: the distribution service as the
// database's service context, anything else (an array, the schema
// snapshot) as it is; with the life of the object it came from.
inline QELSimContextID HeldValue(const gbb_DistributionService& service) {
  return service.Context();
}
template <class T>
T HeldValue(const T& value) {
  return value;
}

template <class X, class C, class T>
void DefineHeld(Class<X>& c, const char* name, T (C::*get)() const, const char* doc) {
  c.def_property_readonly(
      name,
      [get](const Obj<X>& self) {
        const X& handle = self.Handle();
        auto value = HeldValue(Read([&] { return (handle.*get)(); }));
        return Held<decltype(value)>(value, self.life());
      },
      doc);
}

template <class X, class C, class A>
void DefineArray(Class<X>& c, py::module_& m, const char* name, A (C::*get)() const,
                 const char* arrayClass, const char* doc) {
  DefineArrayClass<A>(m, arrayClass, doc);
  DefineHeld(c, name, get, doc);
}

// A member the sim answers itself (the distribution service, the snapshot).
template <class X, class C, class T>
void DefineService(Class<X>& c, const char* name, T (C::*get)() const, const char* doc) {
  DefineHeld(c, name, get, doc);
}

// What a top object (a sim) has beside its members: it closes, also as a
// context manager, and says which file it is.
void CloseSim(const Object& sim);
bool SimClosed(const Object& sim);
std::string SimFile(const Object& sim);
bool SimReadOnly(const Object& sim);

template <class X>
void DefineRoot(Class<X>& c) {
  c.def(
       "close", [](const Obj<X>& self) { CloseSim(self); },
       "Closes the database (its whole tree and its file); later use of its objects raises "
       "ddb.Error.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](const Obj<X>& self, py::args) { CloseSim(self); })
      .def_property_readonly("closed", [](const Obj<X>& self) { return SimClosed(self); })
      .def_property_readonly("file", [](const Obj<X>& self) { return SimFile(self); })
      .def_property_readonly("read_only", [](const Obj<X>& self) { return SimReadOnly(self); });
}

template <class X>
Class<X> DefineClass(py::module_& m, const char* doc) {
  RegisterMaker(Schema<X>::Class(), &MakeAs<X>);
  Class<X> cls(m, Schema<X>::Name(), doc);
  RefuseNew(cls);
  return cls;
}

// ---- the module's parts -----------------------------------------------------------

void BindCore(py::module_& m);       // errors, lives, Root, the service, the Object base
void BindSchema(py::module_& m);     // generated from the member tables
void BindNumbering(py::module_& m);  // DOF numbering and node labels

// A 1-D int32 array of `values` (any integer array-like; values outside
// int32 raise ValueError), copied only when its type or layout needs it.
py::array_t<int32_t, py::array::c_style | py::array::forcecast> Int32Array(py::handle values,
                                                                           const char* what);
// A new 1-D int32 array of n elements.
py::array_t<int32_t> NewInt32Array(py::ssize_t n);
// The first drawer of a distribution (with its dimension set), or Error
// with the service's text.
QELSimPersistentDrawerDesc Drawer(const QELSimDistributionID& id);

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_H_
