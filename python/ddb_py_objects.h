// The Python objects of the schema classes, and how Python may make them.
//
// ddb.Object is the base of every schema class in Python; Obj<X> holds a
// handle of class X with the life of what it was reached from, and derived
// classes derive, as in C++. MakeObject gives a handle the Python class
// its object has in the file (a ModalSystem read from an array of FE
// systems).
#ifndef DDB_PYTHON_DDB_PY_OBJECTS_H_
#define DDB_PYTHON_DDB_PY_OBJECTS_H_

#include <pybind11/pybind11.h>

#include <type_traits>
#include <utility>

#include "DDB_PDM_Core.h"
#include "python/ddb_py_lives.h"

namespace ddb_py {
namespace py = pybind11;

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

// Defines ddb.Object.
void BindObject(py::module_& m);

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

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_OBJECTS_H_
