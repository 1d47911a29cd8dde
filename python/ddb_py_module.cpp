// The Python module ddb_pdm: its start-up and its end. Importing it starts
// the library and binds the parts in order (errors, the Object base, the
// service identifiers, the root, following, the generated schema classes,
// the numbering); at interpreter exit every root still open is closed
// before the library is finalised.
#include "python/ddb_py.h"
#include "python/ddb_py_checks.h"

namespace ddb_py {
namespace {

int g_startups = 0;  // the library's start-up count

void Shutdown() {
  CloseRoots();
  aio_cerr.flush();
  DDB_PDM_Core_finalize(g_startups);
}

void BindCore(py::module_& m) {
  DDB_PDM_Core_initialize(g_startups);
  BindMessages(m);
  BindObject(m);
  BindIdentifiers(m);
  BindRoot(m);
  BindFollow(m);
  py::module_::import("atexit").attr("register")(py::cpp_function(&Shutdown));
}

}  // namespace
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
