// How texts cross between Python and the library (ddb_py_values.h); the
// other member types cross inline.
#include "python/ddb_py_values.h"

#include <string>

namespace ddb_py {

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

}  // namespace ddb_py
