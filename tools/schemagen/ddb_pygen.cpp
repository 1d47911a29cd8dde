// ddb_pygen: the Python bindings of the schema classes from their member tables.
//
//   ddb_pygen <bindings.cpp> <stub.pyi> <prelude.pyi> <table.schema>...
//
// writes the pybind11 code of every class (ddb_py::BindSchema) and the
// module's stub: the prelude (the hand-written part of the module) followed
// by the classes. It reads the same tables as ddb_schemagen, with the same
// parser, and links each derived class to its base among the given tables.
#include <fstream>
#include <iostream>
#include <sstream>

#include "emit_python.h"
#include "schema_table.h"

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: ddb_pygen <bindings.cpp> <stub.pyi> <prelude.pyi> <table.schema>...\n";
    return 2;
  }
  std::ifstream prelude(argv[3]);
  if (!prelude) Fail(argv[3], "cannot read");
  std::ostringstream preludeText;
  preludeText << prelude.rdbuf();
  std::vector<Table> tables;
  for (int i = 4; i < argc; ++i) tables.push_back(Parse(argv[i]));
  std::vector<Table> classes = LinkAmong(tables);
  WriteIfChanged(argv[1], emit_python::BindingSource(classes));
  WriteIfChanged(argv[2], emit_python::Stub(classes, preludeText.str()));
  return 0;
}
