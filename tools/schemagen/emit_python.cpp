// The Python emitter (see emit_python.h).
//
// Member kinds map onto the templates of python/ddb_py.h:
//   simple     DefineSimple     a property; assigning commits
//   subobject  DefineSubobject  a property, None while absent; assigning a new object stores it
//   array      DefineArray      a read-only property: a sequence class of its own with append
//   service    DefineService    a read-only property; the distribution service appears as
//                               `service`, the database's service context
// A class's required simple members (its base's first) are the arguments of
// its static `new`; the top object (the `root` table) gets close() and the
// context-manager methods instead of `new`.
#include "emit_python.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

namespace emit_python {
namespace {

[[noreturn]] void Refuse(const Class& c, const std::string& why) {
  std::cerr << c.source << ": " << why << "\n";
  std::exit(1);
}

std::string Capital(const std::string& s) {
  std::string t = s;
  if (!t.empty()) t[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(t[0])));
  return t;
}

// A C++ string literal.
std::string Literal(const std::string& text) {
  std::string out = "\"";
  for (char ch : text) {
    if (ch == '"' || ch == '\\') out += '\\';
    out += ch;
  }
  return out + "\"";
}

bool IsPythonKeyword(const std::string& name) {
  static const std::set<std::string> keywords = {
      "False", "None",     "True",  "and",    "as",   "assert", "async",  "await",    "break",
      "class", "continue", "def",   "del",    "elif", "else",   "except", "finally",  "for",
      "from",  "global",   "if",    "import", "in",   "is",     "lambda", "nonlocal", "not",
      "or",    "pass",     "raise", "return", "try",  "while",  "with",   "yield"};
  return keywords.count(name) != 0;
}

// Names the module gives every object, every top object, or every class itself.
bool IsReservedName(const std::string& name) {
  static const std::set<std::string> reserved = {"new",    "class_id", "close",
                                                 "closed", "file",     "read_only"};
  return reserved.count(name) != 0;
}

bool IsMap(const std::string& type) {
  return type.rfind("ada_Map", 0) == 0;
}

// The value type of a map, and its key's Python type.
std::string MapValue(const std::string& type) {
  size_t open = type.find('<');
  return type.substr(open + 1, type.size() - open - 2);
}
std::string MapKey(const std::string& type) {
  return type.rfind("ada_MapString<", 0) == 0 ? "str" : "int";
}

// The Python type of a simple member, for the stub.
std::string StubType(const std::string& type, bool optional = true) {
  static const std::map<std::string, std::string> scalars = {
      {"int", "int"},
      {"double", "float"},
      {"ada_string", "str"},
      {"QELSimCollectionID", "Collection"},
      {"QELSimCSetID", "OrderedSet"},
      {"QELSimDistributionID", "Distribution"}};
  if (IsMap(type)) {
    return "Dict[" + MapKey(type) + ", " + StubType(MapValue(type), false) + "]";
  }
  std::string name = scalars.at(type);
  bool id = type.rfind("QELSim", 0) == 0;
  return id && optional ? "Optional[" + name + "]" : name;
}

std::string ServiceClass(const Class& c, const Member& m) {
  if (m.type == "gbb_DistributionService") return "Service";
  if (m.type == "gbb_SchemaSnapshot") return "SchemaSnapshot";
  Refuse(c, "no Python form for the service member type '" + m.type + "'");
}

std::string ArrayClass(const Class& c, const Member& m) {
  return PythonClassName(c.name) + Capital(m.name);
}

// "<table name>: <kind> <type>", which tests and readers can rely on.
std::string MemberDoc(const Member& m) {
  static const std::map<std::string, std::string> kinds = {{"simple", ""},
                                                           {"subobject", "sub-object "},
                                                           {"array", "array of "},
                                                           {"service", "service "}};
  std::string doc = m.name + ": " + kinds.at(m.kind) + m.type;
  return m.required ? doc + ", required" : doc;
}

class Emitter {
 public:
  explicit Emitter(const std::vector<Class>& classes) {
    for (const Class& c : classes) m_byName[c.name] = &c;
    // Bases before the classes derived from them.
    std::set<std::string> placed;
    while (m_ordered.size() < classes.size()) {
      size_t before = m_ordered.size();
      for (const Class& c : classes) {
        if (placed.count(c.name) != 0) continue;
        if (!c.base.empty() && m_byName.count(c.base) == 0) {
          Refuse(c, "the base class '" + c.base + "' has no table here");
        }
        if (c.base.empty() || placed.count(c.base) != 0) {
          m_ordered.push_back(&c);
          placed.insert(c.name);
        }
      }
      if (m_ordered.size() == before) Refuse(classes.front(), "the base classes form a cycle");
    }
    for (const Class* c : m_ordered) CheckNames(*c);
  }

  std::string Source() const {
    std::ostringstream o;
    o << "// Generated by ddb_pygen from the schema tables: do not edit.\n";
    for (const Class* c : m_ordered) o << "//   " << c->source << "\n";
    o << "#include \"python/ddb_py.h\"\n\nnamespace ddb_py {\n\n";
    for (const Class* c : m_ordered) Traits(o, *c);
    o << "void BindSchema(py::module_& m) {\n";
    for (const Class* c : m_ordered) Binding(o, *c);
    o << "}\n\n}  // namespace ddb_py\n";
    return o.str();
  }

  std::string Stub(const std::string& prelude) const {
    std::ostringstream o;
    o << prelude << "\n# Generated by ddb_pygen from the schema tables: do not edit below.\n";
    for (const Class* c : m_ordered) StubClass(o, *c);
    return o.str();
  }

 private:
  // The required simple members of a class, its base's first: the arguments of `new`.
  std::vector<Member> Required(const Class& c) const {
    std::vector<Member> required;
    if (!c.base.empty()) required = Required(*m_byName.at(c.base));
    for (const Member& m : c.members) {
      if (m.kind == "simple" && m.required) required.push_back(m);
    }
    return required;
  }

  // Every Python name of a class, its base's included, once and not one the module uses.
  void CheckNames(const Class& c) const {
    std::set<std::string> names;
    for (const Class* k = &c; k != nullptr; k = k->base.empty() ? nullptr : m_byName.at(k->base)) {
      for (const Member& m : k->members) {
        std::string name = PythonMemberName(m);
        if (IsReservedName(name))
          Refuse(c, "member '" + m.name + "' would hide the module's '" + name + "'");
        if (!names.insert(name).second) Refuse(c, "two members named '" + name + "' in Python");
      }
    }
  }

  void Traits(std::ostringstream& o, const Class& c) const {
    const std::string& X = c.name;
    o << "template <>\nstruct Schema<" << X << "> {\n";
    o << "  typedef " << (c.base.empty() ? "void" : c.base) << " Base;\n";
    o << "  typedef " << X << "Holder Holder;\n";
    o << "  static const char* Name() { return " << Literal(PythonClassName(X)) << "; }\n";
    o << "  static gbb_Class Class() { return " << X << "Interface::StaticClass(); }\n";
    if (!c.base.empty()) {
      std::string part = c.base.substr(c.base.find('_') + 1);
      o << "  static " << c.base << "HolderMoveSrc ReleaseAsBase(Holder& holder) {\n"
        << "    return holder.ReleaseAs" << part << "();\n  }\n";
    }
    o << "};\n\n";
  }

  void Binding(std::ostringstream& o, const Class& c) const {
    const std::string& X = c.name;
    o << "  {\n    Class<" << X << "> c = DefineClass<" << X << ">(m, " << Literal(c.comment)
      << ");\n";
    if (c.root) {
      o << "    DefineRoot(c);\n";
    } else {
      New(o, c);
    }
    for (const Member& m : c.members) {
      std::string py = Literal(PythonMemberName(m));
      std::string get = "&" + X + "::" + m.name;
      std::string set = "&" + X + "::" + Capital(m.name);
      std::string doc = Literal(MemberDoc(m));
      if (m.kind == "simple") {
        o << "    DefineSimple(c, " << py << ", " << get << ", " << set << ", " << doc << ");\n";
      } else if (m.kind == "subobject") {
        o << "    DefineSubobject(c, " << py << ", " << get << ", " << set << ", " << doc << ");\n";
      } else if (m.kind == "array") {
        o << "    DefineArray(c, m, " << py << ", " << get << ", " << Literal(ArrayClass(c, m))
          << ", " << doc << ");\n";
      } else {
        ServiceClass(c, m);
        o << "    DefineService(c, " << py << ", " << get << ", " << doc << ");\n";
      }
    }
    o << "  }\n";
  }

  void New(std::ostringstream& o, const Class& c) const {
    std::vector<Member> required = Required(c);
    o << "    c.def_static(\n        \"new\",\n        [](";
    for (size_t i = 0; i < required.size(); ++i) {
      o << (i ? ", " : "") << "const Convert<" << required[i].type << ">::In& "
        << PythonMemberName(required[i]);
    }
    o << ") {\n          return New<" << c.name << ">(" << c.name << "::New(";
    for (const Member& m : required) {
      o << "ValueOf<" << m.type << ">(" << PythonMemberName(m) << "), ";
    }
    o << "0));\n        },\n        ";
    for (const Member& m : required) o << "py::arg(" << Literal(PythonMemberName(m)) << "), ";
    o << Literal("A new " + PythonClassName(c.name) +
                 ", not stored yet: assigning or appending it stores it.")
      << ");\n";
  }

  void StubClass(std::ostringstream& o, const Class& c) const {
    std::string name = PythonClassName(c.name);
    std::string parent = c.base.empty() ? "Object" : PythonClassName(c.base);
    o << "\nclass " << name << "(" << parent << "):\n";
    o << "    \"\"\"" << c.comment << "\"\"\"\n";
    if (c.root) {
      o << "    def close(self) -> None: ...\n";
      o << "    def __enter__(self) -> " << name << ": ...\n";
      o << "    def __exit__(self, *args: object) -> None: ...\n";
      for (const char* p : {"closed: bool", "file: str", "read_only: bool"}) {
        std::string text = p;
        size_t colon = text.find(':');
        o << "    @property\n    def " << text.substr(0, colon) << "(self) ->"
          << text.substr(colon + 1) << ": ...\n";
      }
    } else {
      o << "    @staticmethod\n    def new(";
      std::vector<Member> required = Required(c);
      for (size_t i = 0; i < required.size(); ++i) {
        o << (i ? ", " : "") << PythonMemberName(required[i]) << ": " << StubType(required[i].type);
      }
      o << ") -> " << name << ": ...\n";
    }
    for (const Member& m : c.members) {
      std::string py = PythonMemberName(m);
      if (m.kind == "simple") {
        o << "    " << py << ": " << StubType(m.type) << "\n";
      } else if (m.kind == "subobject") {
        o << "    @property\n    def " << py << "(self) -> Optional[" << PythonClassName(m.type)
          << "]: ...\n";
        o << "    @" << py << ".setter\n    def " << py
          << "(self, value: " << PythonClassName(m.type) << ") -> None: ...\n";
      } else {
        std::string type = m.kind == "array" ? ArrayClass(c, m) : ServiceClass(c, m);
        o << "    @property\n    def " << py << "(self) -> " << type << ": ...\n";
      }
    }
    for (const Member& m : c.members) {
      if (m.kind != "array") continue;
      std::string element = PythonClassName(m.type);
      o << "\nclass " << ArrayClass(c, m) << ":\n";
      o << "    \"\"\"The " << m.name << " of a " << name << ": elements are read when first used"
        << " and come back as their stored class.\"\"\"\n";
      o << "    def __len__(self) -> int: ...\n";
      o << "    def __getitem__(self, index: int) -> " << element << ": ...\n";
      o << "    def __iter__(self) -> Iterator[" << element << "]: ...\n";
      o << "    def append(self, item: " << element << ") -> " << element << ": ...\n";
    }
  }

  std::map<std::string, const Class*> m_byName;
  std::vector<const Class*> m_ordered;
};

}  // namespace

std::string PythonClassName(const std::string& cppName) {
  size_t underscore = cppName.find('_');
  return underscore == std::string::npos ? cppName : cppName.substr(underscore + 1);
}

std::string PythonMemberName(const Member& member) {
  if (member.kind == "service" && member.type == "gbb_DistributionService") return "service";
  const std::string& s = member.name;
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    unsigned char ch = static_cast<unsigned char>(s[i]);
    if (std::isupper(ch) && i > 0) {
      unsigned char prev = static_cast<unsigned char>(s[i - 1]);
      bool nextLower = i + 1 < s.size() && std::islower(static_cast<unsigned char>(s[i + 1]));
      // A new word: after a lower-case letter or digit, or the last capital of an acronym.
      if (std::islower(prev) || std::isdigit(prev) || (std::isupper(prev) && nextLower)) out += '_';
    }
    out += static_cast<char>(std::tolower(ch));
  }
  return IsPythonKeyword(out) ? out + "_" : out;
}

std::string BindingSource(const std::vector<Class>& classes) {
  return Emitter(classes).Source();
}

std::string Stub(const std::vector<Class>& classes, const std::string& prelude) {
  return Emitter(classes).Stub(prelude);
}

}  // namespace emit_python
