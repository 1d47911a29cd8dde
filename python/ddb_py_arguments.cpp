// Wrong argument types in the module's own words. pybind11 answers a call
// that matches no overload with a TypeError listing every C++ signature,
// some spelled with the module's internal types; each function, method,
// static method and property setter of the module is wrapped once at
// import so that such a TypeError says instead what was expected, in the
// names Python sees, and what came:
//   Mesh.faces: expected Collection or None, got str
//   NodalDofDefinition(): expected (masks: Distribution, shift: int = 0, ...) or
//     (masks: object, ...), got (NoneType)
// Other errors pass unchanged. The wrapping costs one extra call layer.
#include <cstdint>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "python/ddb_py_checks.h"

namespace ddb_py {
namespace {

// The module's own name for what a pybind11 signature spells.
std::string Spoken(std::string text) {
  static const std::pair<const char*, const char*> kRules[] = {
      {R"(ddb_py::Obj<(?:msfD|fesD)_(\w+)>)", "$1"},
      {R"(ddb_py::Held<QELSimCollectionID>)", "Collection"},
      {R"(ddb_py::Held<QELSimCSetID>)", "OrderedSet"},
      {R"(ddb_py::Held<QELSimDistributionID>)", "Distribution"},
      {R"(ddb_py::Held<QELSimContextID>)", "Service"},
      {R"(ddb_py::Held<gbb_SchemaSnapshot>)", "SchemaSnapshot"},
      {R"(ddb_py::Held<[^>]*>)", "array"},
      {R"(ddb_py::\(anonymous namespace\)::(\w+))", "$1"},
      {R"(ddb_py::(\w+))", "$1"},
      {R"(ddb_pdm\.)", ""},
      {R"(numpy\.ndarray\[numpy\.int32\])", "int array"},
      {R"(Optional\[(\w+)\])", "$1 or None"},
      {R"(Dict\[str, (\w+)( or None)?\])", "dict of str to $1"},
      {R"(Dict\[int, (\w+)( or None)?\])", "dict of int to $1"},
      {R"(os\.PathLike)", "path"},
      {R"(: handle\b)", ": int array-like"},
  };
  for (const auto& rule : kRules)
    text = std::regex_replace(text, std::regex(rule.first), rule.second);
  return text;
}

// The parameter lists of pybind11's message (one per overload), without self.
std::vector<std::string> Overloads(const std::string& message, bool method) {
  std::vector<std::string> lists;
  static const std::regex kLine(R"(\n\s*\d+\. \((.*)\) -> )");
  for (std::sregex_iterator it(message.begin(), message.end(), kLine), end; it != end; ++it) {
    std::string params = (*it)[1];
    if (method) {
      size_t comma = params.find(", ");
      params = comma == std::string::npos ? "" : params.substr(comma + 2);
    }
    lists.push_back(Spoken(params));
  }
  return lists;
}

// What came, by its type; an int that no int32 parameter takes says so.
std::string TypeName(py::handle value) {
  if (PyLong_CheckExact(value.ptr())) {
    int overflow = 0;
    long long v = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow != 0 || v < INT32_MIN || v > INT32_MAX) return "int outside the 32-bit range";
  }
  return Spoken(py::str(py::type::handle_of(value).attr("__name__")));
}

bool IsArgumentMismatch(const py::error_already_set& e) {
  return e.matches(PyExc_TypeError) &&
         std::string(e.what()).find("incompatible function arguments") != std::string::npos;
}

// `call` with its TypeError for arguments that match no overload re-worded.
py::cpp_function Wrapped(py::object call, std::string label, bool method) {
  return py::cpp_function([call, label, method](py::args args, py::kwargs kwargs) -> py::object {
    try {
      return call(*args, **kwargs);
    } catch (py::error_already_set& e) {
      if (!IsArgumentMismatch(e)) throw;
      std::string expected;
      for (const std::string& params : Overloads(e.what(), method)) {
        expected += (expected.empty() ? "(" : " or (") + params + ")";
      }
      std::string got;
      for (size_t i = method ? 1 : 0; i < args.size(); ++i) {
        got += (got.empty() ? "" : ", ") + TypeName(args[i]);
      }
      for (auto item : kwargs) {
        got += (got.empty() ? "" : ", ") + std::string(py::str(item.first)) + "=" +
               TypeName(item.second);
      }
      throw py::type_error(label + "(): expected " + expected + ", got (" + got + ")");
    }
  });
}

// A property setter: "<Class>.<name>: expected <type>, got <type>".
py::cpp_function WrappedSetter(py::object set, std::string label) {
  return py::cpp_function([set, label](py::object self, py::object value) {
    try {
      set(self, value);
    } catch (py::error_already_set& e) {
      if (!IsArgumentMismatch(e)) throw;
      std::string expected;
      for (std::string params : Overloads(e.what(), true)) {
        size_t colon = params.find(": ");
        if (colon != std::string::npos) params = params.substr(colon + 2);
        expected += (expected.empty() ? "" : " or ") + params;
      }
      throw py::type_error(label + ": expected " + expected + ", got " + TypeName(value));
    }
  });
}

bool IsBuiltinFunction(py::handle f) {
  return PyCFunction_Check(f.ptr()) != 0;
}

void WrapClass(py::handle cls) {
  const std::string name = py::str(cls.attr("__name__"));
  py::object property = py::module_::import("builtins").attr("property");
  py::object staticmethod = py::module_::import("builtins").attr("staticmethod");
  py::list members = cls.attr("__dict__").attr("items")();  // a copy: the class changes below
  for (py::handle item : members) {
    const std::string member = py::str(item[py::int_(0)]);
    py::object value = item[py::int_(1)];
    // The dunder slots stay, but for indexing.
    if (member.compare(0, 2, "__") == 0 && member != "__getitem__") continue;
    const std::string label = name + "." + (member == "_make" ? std::string() : member);
    if (py::isinstance(value, property)) {
      py::object set = value.attr("fset");
      if (set.is_none()) continue;
      cls.attr(member.c_str()) = property(value.attr("fget"), WrappedSetter(set, label),
                                          value.attr("fdel"), value.attr("__doc__"));
    } else if (py::isinstance(value, staticmethod)) {
      py::object f = value.attr("__func__");
      if (!IsBuiltinFunction(f)) continue;
      std::string called = member == "_make" ? name : label;
      cls.attr(member.c_str()) = staticmethod(Wrapped(f, called, false));
    } else if (PyInstanceMethod_Check(value.ptr())) {
      py::object wrapped = Wrapped(value, label, true);
      cls.attr(member.c_str()) =
          py::reinterpret_steal<py::object>(PyInstanceMethod_New(wrapped.ptr()));
    }
  }
}

}  // namespace

void TranslateArgumentErrors(py::module_& m) {
  py::list names = m.attr("__dict__").attr("items")();
  std::vector<std::pair<std::string, py::object>> functions;
  for (py::handle item : names) {
    const std::string name = py::str(item[py::int_(0)]);
    py::object value = item[py::int_(1)];
    if (PyType_Check(value.ptr())) {
      WrapClass(value);
    } else if (IsBuiltinFunction(value) && name.compare(0, 2, "__") != 0) {
      functions.emplace_back(name, value);
    }
  }
  for (auto& f : functions) m.attr(f.first.c_str()) = Wrapped(f.second, f.first, false);
}

}  // namespace ddb_py
