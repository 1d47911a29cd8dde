// ddb_pygen: the Python bindings of the schema classes from their member tables.
//
//   ddb_pygen <bindings.cpp> <stub.pyi> <prelude.pyi> <table.schema>...
//
// writes the pybind11 code of every class (ddb_py::BindSchema) and the
// module's stub: the prelude (the hand-written part of the module) followed
// by the classes. It reads the same tables as ddb_schemagen, with the same
// parser, and hands them to the Python emitter as its narrow view.
#include <fstream>
#include <iostream>
#include <sstream>

#include "emit_python.h"
#include "schema_table.h"

namespace {

emit_python::Class View(const Table& table) {
  emit_python::Class c;
  c.source = table.source;
  c.name = table.name;
  c.base = table.base;
  c.root = table.root;
  for (const std::string& line : table.comment) {
    c.comment += (c.comment.empty() || line.empty() ? "" : " ") + line;
  }
  for (const Member& m : table.members) {
    emit_python::Member member;
    member.kind = m.kind;
    member.name = m.name;
    member.type = m.type;
    member.required = m.required;
    c.members.push_back(member);
  }
  return c;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: ddb_pygen <bindings.cpp> <stub.pyi> <prelude.pyi> <table.schema>...\n";
    return 2;
  }
  std::ifstream prelude(argv[3]);
  if (!prelude) Fail(argv[3], "cannot read");
  std::ostringstream preludeText;
  preludeText << prelude.rdbuf();
  std::vector<emit_python::Class> classes;
  for (int i = 4; i < argc; ++i) classes.push_back(View(Parse(argv[i])));
  WriteIfChanged(argv[1], emit_python::BindingSource(classes));
  WriteIfChanged(argv[2], emit_python::Stub(classes, preludeText.str()));
  return 0;
}
