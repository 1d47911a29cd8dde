// ddb_schemagen: turns a schema class's member table into its C++ family.
//
//   ddb_schemagen <table.schema> <output-directory>
//
// writes <Class>.h and <Class>.cpp. Every schema class follows one pattern
// of seven classes (handle X, XHolder, XHolderMoveSrc, XAccess, XMembers,
// XImpl, XInterface). What is the same for every class lives in the
// framework (persistence/gbb_SchemaFamily.h); what varies by member (indices
// from the byte-sorted names, the value record and its member list, getters
// and setters, traversal by index and by name) is emitted from the table.
// The generator is in parts: schema_table (reading and checking tables,
// resolving a base's table), emit_cpp_class (the table as the emitter sees
// it), emit_cpp_header and emit_cpp_source (the two files).
//
// Table syntax, one declaration per line ('#' starts a comment):
//   class <Name> <identifier>
//   base <BaseClass> <header>          the class extends another schema class,
//                                      whose table lies beside its header
//   root                               the class is the top object (the sim)
//   simple <name> <type> [required]    a simple-typed member
//   subobject <name> <Class> <header>  one owned sub-object
//   array <name> <Class> <header>      a persistent array of objects
//   service <name> <type>              a member answered by the sim itself
//   register <Class> <header>          a class of the sim's schema snapshot
//   include <header>                   extra include of the implementation
// Members are saved in the order of their lines.
#include <iostream>
#include <string>

#include "emit_cpp.h"
#include "schema_table.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: ddb_schemagen <table.schema> <output-directory>\n"
                 "  writes <Class>.h and <Class>.cpp into the directory\n";
    return 2;
  }
  Table table = Load(argv[1]);
  CppClass view(table);
  std::string dir = argv[2];
  WriteIfChanged(dir + "/" + table.name + ".h", EmitHeader(view));
  WriteIfChanged(dir + "/" + table.name + ".cpp", EmitSource(view));
  return 0;
}
