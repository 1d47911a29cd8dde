// The binding templates the generated code declares each schema class with:
// one per kind of member (simple, sub-object, array, held value, service),
// the array classes, what a top object has beside its members, and the
// class itself. Every member of every class is bound through these, so that
// what is the same for all of them is written once.
#ifndef DDB_PYTHON_DDB_PY_MEMBERS_H_
#define DDB_PYTHON_DDB_PY_MEMBERS_H_

#include <pybind11/pybind11.h>

#include <string>
#include <type_traits>

#include "python/ddb_py_messages.h"
#include "python/ddb_py_objects.h"
#include "python/ddb_py_ownership.h"
#include "python/ddb_py_values.h"

namespace ddb_py {

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
// context manager, and says which file it is (ddb_py_root.cpp).
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

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_MEMBERS_H_
