// The member tables of the schema classes (*.schema), parsed: what every
// emitter of the generator reads (the C++ family in ddb_schemagen.cpp, the
// Python bindings in emit_python.cpp). The table syntax is described at the
// top of ddb_schemagen.cpp.
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
  // A derived class: its base's required members, which come first in New.
  std::vector<Member> baseRequired;

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

// Writes `text` to `path` unless the file holds it already (an unchanged
// output keeps its timestamp, so nothing is rebuilt).
void WriteIfChanged(const std::string& path, const std::string& text);

#endif  // DDB_TOOLS_SCHEMAGEN_SCHEMA_TABLE_H_
