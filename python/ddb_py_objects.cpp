// The Python objects of the schema classes (ddb_py_objects.h): how Python
// may make them, the Python class of a stored object, and ddb.Object.
#include "python/ddb_py_objects.h"

#include <string>
#include <utility>
#include <vector>

#include "python/ddb_py_messages.h"

namespace ddb_py {

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

Object::~Object() {}

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

}  // namespace ddb_py
