// The member tables of the schema classes (*.schema), parsed, and the names
// made from them: what every emitter of the generator reads (the C++ family
// in ddb_schemagen.cpp, the Python bindings in ddb_pygen.cpp), so that a
// table is parsed, and a name made, in one place. The table syntax is
// described at the top of ddb_schemagen.cpp.
#ifndef DDB_TOOLS_SCHEMAGEN_SCHEMA_TABLE_H_
#define DDB_TOOLS_SCHEMAGEN_SCHEMA_TABLE_H_

#include <string>
#include <vector>

// What a member is: a simple-typed value of the value record, one owned
// sub-object, a persistent array of objects, or a member answered by the
// root object itself (a service).
enum class MemberKind { kSimple, kSubobject, kArray, kService };

struct Member {
  MemberKind kind = MemberKind::kSimple;
  std::string name;
  std::string type;  // C++ type (simple, service) or class name (subobject, array)
  bool required = false;
  int index = 0;
};

struct Table {
  std::string source;
  std::vector<std::string> comment;
  std::string name;
  std::string id;
  std::string base;
  std::string baseHeader;
  bool root = false;
  std::vector<Member> members;
  std::vector<std::string> headers;      // for the declarations
  std::vector<std::string> cppIncludes;  // for the definitions
  std::vector<std::string> registered;
  // A derived class: its base's required members, which come first in New,
  // and all its base's members (a base's own base first); see LinkBase.
  std::vector<Member> baseRequired;
  std::vector<Member> baseMembers;

  bool Derived() const { return !base.empty(); }
  std::vector<const Member*> Of(MemberKind kind) const;
  std::vector<const Member*> Required() const;
};

// Prints "<where>: <why>" on standard error and ends the generator.
[[noreturn]] void Fail(const std::string& where, const std::string& why);

// The simple-typed member types the stream can carry (persistence/gbb_MemberRecords.h).
bool IsMemberType(const std::string& type);

// Reads one table; a table with a mistake ends the generator through Fail.
Table Parse(const std::string& path);

// Reads a table and, for a derived class, its base's table: the base line
// names the base's header, and its table lies beside it (fes/X.h:
// fes/X.schema, from the directory the generator runs in).
Table Load(const std::string& path);

// Gives a derived table what it takes from its base's (already linked) table.
void LinkBase(Table& table, const Table& base);

// Links every derived table to its base among `tables` and answers them
// with each base before the classes derived from it (otherwise in the given
// order); a base that is not among them ends the generator through Fail.
std::vector<Table> LinkAmong(const std::vector<Table>& tables);

// Names made from a table.
std::string Capital(const std::string& s);  // "nodeSets": "NodeSets"
bool IsMap(const std::string& type);        // ada_MapInt<...>, ada_MapString<...>
// A class name without its module prefix ("fesD_FESystem": "FESystem").
std::string ShortName(const std::string& className);

// Writes `text` to `path` unless the file holds it already (an unchanged
// output keeps its timestamp, so nothing is rebuilt).
void WriteIfChanged(const std::string& path, const std::string& text);

#endif  // DDB_TOOLS_SCHEMAGEN_SCHEMA_TABLE_H_
