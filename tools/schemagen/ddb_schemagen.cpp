// ddb_schemagen: turns a schema class's member table into its C++ family.
//
//   ddb_schemagen <table.schema> <output-directory>
//
// writes <Class>.h and <Class>.cpp. Every schema class follows one pattern
// of seven classes (handle X, XHolder, XHolderMoveSrc, XAccess, XMembers,
// XImpl, XInterface); the pattern lives here, once, and each class is only
// its table. What varies by member (indices from the byte-sorted names,
// stream records, getters and setters with their messages, trace lines,
// traversal by index and by name) is derived from the table; what is the
// same for every class lives in the framework (persistence/gbb_Schema.h).
//
// Table syntax, one declaration per line ('#' starts a comment):
//   class <Name> <identifier>
//   base <BaseClass> <header>          the class extends an FE system
//   root                               the class is the top object (the sim)
//   simple <name> <type> [required]    a simple-typed member
//   subobject <name> <Class> <header>  one owned sub-object
//   array <name> <Class> <header>      a persistent array of objects
//   service <name> <type>              a member answered by the sim itself
//   register <Class> <header>          a class of the sim's schema snapshot
//   include <header>                   extra include of the implementation
// Members are saved in the order of their lines.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Member {
  std::string kind;  // simple, subobject, array, service
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
  bool root = false;
  std::vector<Member> members;
  std::vector<std::string> headers;      // for the declarations
  std::vector<std::string> cppIncludes;  // for the definitions
  std::vector<std::string> registered;
};

[[noreturn]] void Fail(const std::string& where, const std::string& why) {
  std::cerr << where << ": " << why << "\n";
  std::exit(1);
}

std::string Capital(const std::string& s) {
  std::string t = s;
  if (!t.empty() && t[0] >= 'a' && t[0] <= 'z') t[0] = static_cast<char>(t[0] - 'a' + 'A');
  return t;
}

std::string Upper(const std::string& s) {
  std::string t;
  for (char c : s) t += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
  return t;
}

// The simple-typed member types the stream can carry (persistence/gbb_MemberRecords.h).
bool IsMemberType(const std::string& type) {
  static const char* const kScalars[] = {
      "int", "double", "ada_string", "QELSimCollectionID", "QELSimCSetID", "QELSimDistributionID"};
  for (const char* scalar : kScalars) {
    if (type == scalar) return true;
  }
  for (const char* map : {"ada_MapString<", "ada_MapInt<"}) {
    std::string prefix = map;
    if (type.rfind(prefix, 0) == 0 && type.back() == '>') {
      std::string value = type.substr(prefix.size(), type.size() - prefix.size() - 1);
      return value.find('<') == std::string::npos && IsMemberType(value);
    }
  }
  return false;
}

Table Parse(const std::string& path) {
  std::ifstream in(path);
  if (!in) Fail(path, "cannot read");
  Table t;
  t.source = path;
  std::string line;
  int number = 0;
  bool seenClass = false;
  while (std::getline(in, line)) {
    ++number;
    std::string where = path + ":" + std::to_string(number);
    if (!line.empty() && line[0] == '#') {
      if (!seenClass) t.comment.push_back(line.size() > 1 ? line.substr(2) : "");
      continue;
    }
    std::istringstream words(line);
    std::vector<std::string> w;
    for (std::string x; words >> x;) w.push_back(x);
    if (w.empty()) continue;
    const std::string& what = w[0];
    auto need = [&](size_t n) {
      if (w.size() < n) Fail(where, "too few words for '" + what + "'");
    };
    if (what == "class") {
      need(3);
      t.name = w[1];
      t.id = w[2];
      seenClass = true;
    } else if (what == "base") {
      need(3);
      t.base = w[1];
      t.headers.push_back(w[2]);
    } else if (what == "root") {
      t.root = true;
    } else if (what == "simple") {
      need(3);
      Member m;
      m.kind = what;
      m.name = w[1];
      m.type = w[2];
      if (!IsMemberType(m.type)) Fail(where, "unknown member type '" + m.type + "'");
      m.required = w.size() > 3 && w[3] == "required";
      t.members.push_back(m);
    } else if (what == "subobject" || what == "array") {
      need(4);
      Member m;
      m.kind = what;
      m.name = w[1];
      m.type = w[2];
      t.members.push_back(m);
      t.headers.push_back(w[3]);
    } else if (what == "service") {
      need(3);
      Member m;
      m.kind = what;
      m.name = w[1];
      m.type = w[2];
      t.members.push_back(m);
    } else if (what == "register") {
      need(3);
      t.registered.push_back(w[1]);
      t.cppIncludes.push_back(w[2]);
    } else if (what == "include") {
      need(2);
      t.cppIncludes.push_back(w[1]);
    } else {
      Fail(where, "unknown declaration '" + what + "'");
    }
  }
  if (t.name.empty()) Fail(path, "no class line");
  // A member's index is the position of its name among all member names of
  // the class, sorted by byte value.
  std::vector<std::string> names;
  for (const Member& m : t.members) names.push_back(m.name);
  std::sort(names.begin(), names.end());
  auto twice = std::adjacent_find(names.begin(), names.end());
  if (twice != names.end()) Fail(path, "duplicate member '" + *twice + "'");
  for (Member& m : t.members) {
    m.index =
        static_cast<int>(std::lower_bound(names.begin(), names.end(), m.name) - names.begin());
  }
  return t;
}

bool IsMap(const std::string& type) {
  return type.rfind("ada_Map", 0) == 0;
}

// How a simple member's value is passed and returned.
std::string GetterType(const Member& m) {
  return IsMap(m.type) ? "const " + m.type + "&" : m.type;
}
std::string SetterParam(const Member& m) {
  return IsMap(m.type) ? "const " + m.type + "& value" : m.type + " value";
}
std::string InitialValue(const Member& m) {
  if (m.type == "int") return "0";
  if (m.type == "double") return "0.0";
  return "";
}

class Generator {
 public:
  explicit Generator(const Table& t) : t_(t) {
    X = t.name;
    for (const Member& m : t.members) {
      if (m.kind == "simple") simple_.push_back(&m);
      if (m.kind == "simple" && m.required) required_.push_back(&m);
      if (m.kind != "simple") selectable_.push_back(&m);
    }
    derived_ = !t.base.empty();
    ptr_ = derived_ ? "m_derived" : "m_impl";
  }

  void SetBaseRequired(const std::vector<Member>& baseRequired) { baseRequired_ = baseRequired; }

  std::string Header() {
    std::ostringstream o;
    std::string guard = "DDB_GENERATED_" + Upper(X) + "_H_";
    o << "// Generated by ddb_schemagen from " << t_.source << ": do not edit.\n";
    for (const std::string& c : t_.comment) o << "// " << c << "\n";
    o << "#ifndef " << guard << "\n#define " << guard << "\n\n";
    o << "#include \"persistence/gbb_Schema.h\"\n";
    for (const std::string& h : t_.headers) o << "#include \"" << h << "\"\n";
    o << "\nclass " << X << ";\nclass " << X << "Access;\nclass " << X << "Holder;\nclass " << X
      << "Impl;\nclass " << X << "Interface;\n";
    o << "typedef gbb_HolderToken<" << X << "Impl> " << X << "HolderMoveSrc;\n";
    for (const Member* m : selectable_) {
      if (m->kind == "array") {
        o << "typedef gbb_Array<" << m->type << ", " << m->type << "Holder, gbb_Repository, " << X
          << "> " << ArrayType(*m) << ";\n";
        // One instantiation, in the library, so that the array's class is one object.
        o << "extern template class DDB_API gbb_Array<" << m->type << ", " << m->type
          << "Holder, gbb_Repository, " << X << ">;\n";
      }
    }
    o << "\n";
    if (!simple_.empty()) MembersDecl(o);
    InterfaceDecl(o);
    HandleDecl(o);
    HolderDecl(o);
    if (!simple_.empty()) AccessDecl(o);
    ImplDecl(o);
    o << "\n#endif  // " << guard << "\n";
    return o.str();
  }

  std::string Source() {
    std::ostringstream o;
    o << "// Generated by ddb_schemagen from " << t_.source << ": do not edit.\n";
    o << "#include \"" << Layer() << "/" << X << ".h\"\n\n";
    for (const std::string& h : t_.cppIncludes) o << "#include \"" << h << "\"\n";
    o << "\n";
    for (const Member* m : selectable_) {
      if (m->kind != "array") continue;
      std::string e = m->type;
      o << "template class gbb_Array<" << e << ", " << e << "Holder, gbb_Repository, " << X
        << ">;\n\n";
    }
    if (!simple_.empty()) MembersDef(o);
    InterfaceDef(o);
    HandleDef(o);
    HolderDef(o);
    if (!simple_.empty()) AccessDef(o);
    ImplDef(o);
    return o.str();
  }

  std::string Layer() const {
    std::string s = t_.source;
    size_t slash = s.find_last_of('/');
    std::string dir = slash == std::string::npos ? "" : s.substr(0, slash);
    size_t prev = dir.find_last_of('/');
    return prev == std::string::npos ? dir : dir.substr(prev + 1);
  }

 private:
  std::string ArrayType(const Member& m) const { return X + "_" + Capital(m.name) + "Array"; }
  // The named constant of a member's index, declared in the implementation class.
  static std::string IndexName(const Member& m) { return "k" + Capital(m.name); }
  std::string HandleOf(const Member& m) const {
    if (m.kind == "array") return ArrayType(m);
    return m.type;
  }

  // Parameters of New: the base's required members, then the class's own.
  std::string NewParams() const {
    std::string s;
    for (const Member& m : baseRequired_) s += m.type + " " + m.name + ", ";
    for (const Member* m : required_) s += m->type + " " + m->name + ", ";
    return s;
  }
  std::string NewArgs() const {
    std::string s;
    for (const Member& m : baseRequired_) s += m.name + ", ";
    for (const Member* m : required_) s += m->name + ", ";
    return s;
  }
  std::string OwnArgs() const {
    std::string s;
    for (size_t i = 0; i < required_.size(); ++i) s += (i ? ", " : "") + required_[i]->name;
    return s;
  }

  void MembersDecl(std::ostringstream& o) {
    o << "// The value record: every simple-typed member, in save order.\n";
    o << "class DDB_API " << X << "Members : public gbb_Members {\n public:\n";
    o << "  " << X << "Members();\n";
    if (!required_.empty()) {
      o << "  " << X << "Members(";
      for (size_t i = 0; i < required_.size(); ++i) {
        o << (i ? ", " : "") << required_[i]->type << " " << required_[i]->name;
      }
      o << ");\n";
    }
    o << "  ~" << X << "Members() override;\n\n";
    for (const Member* m : simple_) o << "  " << m->type << " " << m->name << ";\n";
    o << "};\n\n";
  }

  void InterfaceDecl(std::ostringstream& o) {
    std::string parent = derived_ ? t_.base + "Interface" : "gbb_ObjectInterface";
    o << "class DDB_API " << X << "Interface : public " << parent << " {\n public:\n";
    o << "  ~" << X << "Interface() override;\n";
    if (!derived_) {
      if (t_.root) {
        o << "  virtual void Bind(QELSimContextID context, const gbb_Group& group) = 0;\n";
        o << "  virtual void SetPath(gbb_Root root, int index) = 0;\n";
      } else {
        o << "  virtual void Bind(const gbb_Group& group) = 0;\n";
        o << "  virtual void SetPath(gbb_Path parent, int index) = 0;\n";
      }
      o << "  virtual gbb_Handle Traverse(gbb_TraverseContext& context) = 0;\n";
      o << "  virtual gbb_Class Class() = 0;\n";
      o << "  virtual " << X << " Impl() = 0;\n";
    } else {
      o << "  virtual " << X << " DerivedImpl() = 0;\n";
    }
    o << "  static gbb_Class StaticClass();\n};\n\n";
  }

  void HandleDecl(std::ostringstream& o) {
    o << "class DDB_API " << X << (derived_ ? " : public " + t_.base : "") << " {\n public:\n";
    o << "  " << X << "();\n";
    o << "  " << X << "(const gbb_Handle& handle);  // NOLINT: a checked conversion\n";
    if (derived_) {
      o << "  " << X << "(const " << t_.base << "& system);  // NOLINT: a checked conversion\n";
    }
    o << "  operator gbb_Handle() const;\n";
    o << "  bool operator!() const { return " << ptr_ << " == nullptr; }\n";
    o << "  // Whether both handles designate the same object (neither is dereferenced).\n";
    o << "  bool IsSame(const " << X << "& other) const { return " << ptr_ << " == other." << ptr_
      << "; }\n\n";
    o << "  static " << X << "Holder New(" << NewParams() << "int traceFlag);\n";
    o << "  static " << X << "Holder New(" << X << "Interface* outer, " << NewParams()
      << "int traceFlag);\n\n";
    for (const Member* m : simple_) {
      o << "  " << GetterType(*m) << " " << m->name << "() const;\n";
      o << "  void " << Capital(m->name) << "(" << SetterParam(*m) << ") const;\n";
    }
    for (const Member* m : selectable_) {
      if (m->kind == "subobject") {
        o << "  " << m->type << " " << m->name << "() const;\n";
        o << "  " << m->type << " " << Capital(m->name) << "(" << m->type
          << "Holder holder) const;\n";
      } else if (m->kind == "array") {
        o << "  " << ArrayType(*m) << " " << m->name << "() const;\n";
      } else {
        o << "  " << m->type << " " << m->name << "() const;\n";
      }
    }
    if (t_.root) o << "  gbb_Path Path() const;\n";
    o << "\n private:\n";
    if (!t_.root) o << "  gbb_Path Path() const;\n";
    o << "  explicit " << X << "(" << X << "Impl* impl);\n";
    o << "  friend class " << X << "Access;\n  friend class " << X << "Holder;\n  friend class "
      << X << "Impl;\n";
    o << "  " << X << "Impl* " << ptr_ << ";\n};\n\n";
  }

  void HolderDecl(std::ostringstream& o) {
    std::string H = X + "Holder";
    o << "// Owns one " << X << " (see gbb_HolderBase.h).\n";
    o << "class DDB_API " << H << " : public gbb_HolderBase<" << X << "Impl> {\n public:\n";
    o << "  typedef " << X << "HolderMoveSrc Token;\n";
    o << "  " << H << "() {}\n";
    o << "  " << H << "(" << X << "HolderMoveSrc source) { Adopt(source); }  // NOLINT\n";
    o << "  // Ownership moves out of `other`, which is left empty.\n";
    o << "  " << H << "(" << H << "& other) : gbb_HolderBase<" << X << "Impl>() {\n    " << X
      << "HolderMoveSrc token = other.Release();\n    Adopt(token);\n  }\n";
    o << "  " << H << "& operator=(" << X
      << "HolderMoveSrc source) {\n    Adopt(source);\n    return *this;\n  }\n";
    o << "  " << H << "& operator=(" << H << "& other) {\n    if (this != &other) {\n      " << X
      << "HolderMoveSrc token = other.Release();\n      Adopt(token);\n    }\n    return *this;\n  "
         "}\n";
    o << "  operator " << X << "HolderMoveSrc() { return Release(); }  // NOLINT\n\n";
    o << "  " << X << " Get() const;\n";
    if (t_.root) {
      o << "  void Bind(QELSimContextID context, const gbb_Group& group);\n";
      o << "  void SetPath(gbb_Root root, int index);\n";
    } else {
      o << "  void Bind(const gbb_Group& group);\n";
      o << "  void SetPath(gbb_Path parent, int index);\n";
    }
    o << "  gbb_Handle Traverse(gbb_TraverseContext& context);\n";
    if (t_.root) {
      o << "  static " << H
        << " Open(gbb_Root root, int index, QELSimContextID context, const gbb_Group& group, int "
           "traceFlag);\n";
      o << "  static " << H << " Open(" << X
        << "Interface* outer, gbb_Root root, int index, QELSimContextID context, const gbb_Group& "
           "group, int traceFlag);\n";
    } else {
      o << "  static " << H
        << " Open(gbb_Path parent, int index, const gbb_Group& group, int traceFlag);\n";
      o << "  static " << H << " Open(" << X
        << "Interface* outer, gbb_Path parent, int index, const gbb_Group& group, int "
           "traceFlag);\n";
    }
    if (derived_) {
      o << "  // The " << t_.base << " part (stored in \"#base\").\n";
      o << "  const " << t_.base << "Holder& FESystemSubobject() const;\n";
      o << "  // Moves the whole object out as a holder of its " << t_.base
        << " part, for\n  // the mesh's systems array; closing that holder destroys the whole "
           "object.\n";
      o << "  " << t_.base << "HolderMoveSrc ReleaseAs" << t_.base.substr(t_.base.find('_') + 1)
        << "();\n";
    }
    o << "\n private:\n  " << H << "(" << X << "Impl* object, unsigned flags) : gbb_HolderBase<"
      << X << "Impl>(object, flags) {}\n";
    o << "  friend class " << X << ";\n  friend class " << X << "Impl;\n};\n\n";
  }

  void AccessDecl(std::ostringstream& o) {
    o << "// Edits the value record; edits are stored by commit() and dropped otherwise.\n";
    o << "class DDB_API " << X << "Access {\n public:\n";
    o << "  explicit " << X << "Access(" << X << " handle);\n  ~" << X << "Access();\n";
    o << "  " << X << "Members& members();\n  void commit();\n\n private:\n";
    o << "  " << X << "Access(const " << X << "Access&) = delete;\n";
    o << "  " << X << "Access& operator=(const " << X << "Access&) = delete;\n";
    o << "  " << X << "Impl* m_impl;\n  " << X << "Members* m_members;\n};\n\n";
  }

  void ImplDecl(std::ostringstream& o) {
    std::string I = X + "Impl";
    o << "class DDB_API " << I << " : public " << X << "Interface {\n public:\n";
    if (t_.root) {
      o << "  " << I << "(" << X << "Interface* outer, int traceFlag);\n";
      o << "  " << I << "(" << X
        << "Interface* outer, gbb_Root root, int index, QELSimContextID context, const gbb_Group& "
           "group, int traceFlag);\n";
    } else {
      o << "  " << I << "(" << X << "Interface* outer, " << NewParams() << "int traceFlag);\n";
      o << "  " << I << "(" << X
        << "Interface* outer, gbb_Path parent, int index, const gbb_Group& group, int "
           "traceFlag);\n";
    }
    o << "  ~" << I << "() override;\n\n";
    if (!t_.members.empty()) {
      std::vector<const Member*> byIndex;
      for (const Member& m : t_.members) byIndex.push_back(&m);
      std::sort(byIndex.begin(), byIndex.end(),
                [](const Member* a, const Member* b) { return a->index < b->index; });
      o << "  // Member indices: each name's position among the class's member names,\n"
           "  // sorted by their bytes. They tag stored records and number path steps.\n";
      o << "  enum MemberIndex {\n";
      for (const Member* m : byIndex) o << "    " << IndexName(*m) << " = " << m->index << ",\n";
      o << "  };\n\n";
    }
    if (t_.root) {
      o << "  void Bind(QELSimContextID context, const gbb_Group& group) override;\n";
      o << "  void SetPath(gbb_Root root, int index) override;\n";
    } else {
      o << "  void Bind(const gbb_Group& group) override;\n";
      o << "  void SetPath(gbb_Path parent, int index) override;\n";
    }
    o << "  gbb_Handle Traverse(gbb_TraverseContext& context) override;\n";
    o << "  gbb_Class Class() override;\n";
    o << "  " << (derived_ ? t_.base : X) << " Impl() override;\n";
    if (derived_) o << "  " << X << " DerivedImpl() override;\n";
    o << "\n  " << X << "Interface* Interface() const { return m_outer; }\n";
    o << "  gbb_Path Path() const { return &m_path; }\n";
    o << "  bool IsConnected() const { return m_connected; }\n";
    o << "  int TraceFlag() const { return m_trace; }\n";
    if (!simple_.empty()) {
      o << "\n  // The cached value record, loaded or created on first use.\n";
      o << "  " << X << "Members& Members();\n";
      o << "  " << X << "Members* CachedMembers() const { return m_members; }\n";
      o << "  void SetCachedMembers(" << X << "Members* members) { m_members = members; }\n";
      o << "  " << X << "Members* CreateMembers();\n  " << X << "Members* CopyMembers();\n  " << X
        << "Members* LoadMembers();\n  void SaveMembers();\n  void BindMembers();\n";
    }
    o << "\n";
    for (const Member* m : selectable_) {
      if (m->kind == "subobject") {
        o << "  " << m->type << " " << m->name << "();\n";
        o << "  " << m->type << " Set" << Capital(m->name) << "(" << m->type
          << "Holder& offered);\n";
      } else if (m->kind == "array") {
        o << "  " << ArrayType(*m) << " " << m->name << "();\n";
      }
    }
    if (t_.root) {
      o << "  QELSimContextID Context() const { return m_context; }\n";
      o << "  gbb_SchemaSnapshotImpl& Snapshot() { return m_snapshot; }\n";
    }
    if (derived_) o << "  const " << t_.base << "Holder& Subobject() const { return m_base; }\n";
    o << "\n private:\n";
    o << "  " << I << "(const " << I << "&) = delete;\n  " << I << "& operator=(const " << I
      << "&) = delete;\n";
    if (t_.root) o << "  void RegisterClasses();\n";
    o << "\n  " << X << "Interface* m_outer;\n  gbb_PathImpl m_path;\n";
    if (t_.root) o << "  gbb_PathImpl m_servicePath;\n  QELSimContextID m_context;\n";
    o << "  gbb_Group m_group;\n";
    if (t_.root) o << "  gbb_SchemaSnapshotImpl m_snapshot;\n";
    o << "  int m_trace;\n  bool m_connected;\n";
    if (!simple_.empty()) o << "  " << X << "Members* m_members;\n";
    if (derived_) o << "  " << t_.base << "Holder m_base;\n";
    for (const Member* m : selectable_) {
      if (m->kind == "subobject") o << "  " << m->type << "Holder m_" << m->name << ";\n";
      if (m->kind == "array") o << "  " << ArrayType(*m) << "::Holder m_" << m->name << ";\n";
    }
    for (const Member* m : required_) o << "  " << m->type << " m_new_" << m->name << ";\n";
    o << "};\n\n";
  }

  // ----- definitions -----

  void MembersDef(std::ostringstream& o) {
    std::string M = X + "Members";
    auto init = [&](bool fromArgs) {
      std::string s;
      for (const Member* m : simple_) {
        std::string v = fromArgs && m->required ? m->name : InitialValue(*m);
        if (v.empty()) continue;
        s += (s.empty() ? "\n    : " : ",\n      ") + m->name + "(" + v + ")";
      }
      return s;
    };
    o << M << "::" << M << "()" << init(false) << " {}\n\n";
    if (!required_.empty()) {
      o << M << "::" << M << "(";
      for (size_t i = 0; i < required_.size(); ++i) {
        o << (i ? ", " : "") << required_[i]->type << " " << required_[i]->name;
      }
      o << ")" << init(true) << " {}\n\n";
    }
    o << M << "::~" << M << "() {}\n\n";
  }

  void InterfaceDef(std::ostringstream& o) {
    o << X << "Interface::~" << X << "Interface() {}\n\n";
    if (!t_.root) {
      o << "namespace {\n// The class's open function: an implementation on a stored group.\n";
      o << "gbb_ObjectInterface* OpenStored"
        << "(gbb_Path parent, int index, const gbb_Group& group, int traceFlag) {\n";
      o << "  return new " << X
        << "Impl(nullptr, parent, index, group, traceFlag);\n}\n}  // namespace\n\n";
    }
    o << "gbb_Class " << X
      << "Interface::StaticClass() {\n  static gbb_ClassDescriptor descriptor;\n";
    o << "  return gbb_DescribeClass(descriptor, \"" << t_.id << "\", "
      << (derived_ ? "&" + t_.base + "Interface::StaticClass" : "nullptr") << ", "
      << (t_.root ? "nullptr" : "&OpenStored") << ");\n}\n\n";
  }

  // The guard of every handle operation.
  std::string Guard(const std::string& op, const std::string& fallback) const {
    return "  if (" + ptr_ + " == nullptr) {\n    gbb_ReportEmptyHandle(\"" + X + "::" + op +
           "\");\n    return" + (fallback.empty() ? "" : " " + fallback) + ";\n  }\n";
  }

  void HandleDef(std::ostringstream& o) {
    std::string C = X;
    if (derived_) {
      o << C << "::" << C << "() : " << ptr_ << "(nullptr) {}\n\n";
      o << C << "::" << C << "(" << C << "Impl* impl) : " << ptr_ << "(impl) {\n";
      o << "  if (impl != nullptr) " << t_.base << "::operator=(impl->Impl());\n}\n\n";
    } else {
      o << C << "::" << C << "() : m_impl(nullptr) {}\n\n";
      o << C << "::" << C << "(" << C << "Impl* impl) : m_impl(impl) {}\n\n";
    }
    o << C << "::" << C << "(const gbb_Handle& handle) : " << ptr_ << "(nullptr) {\n";
    o << "  if (!handle.Class().IsA(" << C << "Interface::StaticClass())) return;\n";
    o << "  auto* object = dynamic_cast<" << C
      << "Interface*>(static_cast<gbb_ObjectInterface*>(handle.Pointer()));\n";
    o << "  if (object == nullptr) return;\n";
    if (derived_) {
      o << "  *this = object->DerivedImpl();\n}\n\n";
      o << C << "::" << C << "(const " << t_.base << "& system)\n    : " << C
        << "(static_cast<gbb_Handle>(system)) {}\n\n";
    } else if (t_.root) {
      o << "  m_impl = object->Impl().m_impl;\n}\n\n";
    } else {
      o << "  m_impl = object->Impl().m_impl;\n}\n\n";
    }
    o << C << "::operator gbb_Handle() const {\n";
    o << "  if (" << ptr_ << " == nullptr || " << ptr_
      << "->Interface() == nullptr) return gbb_Handle();\n";
    o << "  " << C << "Interface* outer = " << ptr_ << "->Interface();\n";
    o << "  return gbb_Handle(static_cast<gbb_ObjectInterface*>(outer), outer->Class());\n}\n\n";
    o << "gbb_Path " << C << "::Path() const {\n"
      << Guard("Path", "gbb_Path()") << "  return " << ptr_ << "->Path();\n}\n\n";
    // New
    std::string H = C + "Holder";
    std::string args = NewArgs();
    o << H << " " << C << "::New(" << NewParams() << "int traceFlag) {\n";
    o << "  return " << H << "(new " << C << "Impl(nullptr, " << args << "traceFlag), 1);\n}\n\n";
    o << H << " " << C << "::New(" << C << "Interface* outer, " << NewParams()
      << "int traceFlag) {\n";
    o << "  return " << H << "(new " << C << "Impl(outer, " << args
      << "traceFlag), outer != nullptr ? 3 : 1);\n}\n\n";
    for (const Member* m : simple_) {
      o << GetterType(*m) << " " << C << "::" << m->name << "() const {\n"
        << Guard(m->name, "gbb_EmptyValue<" + m->type + ">()") << "  return " << ptr_
        << "->Members()." << m->name << ";\n}\n\n";
      o << "void " << C << "::" << Capital(m->name) << "(" << SetterParam(*m) << ") const {\n";
      o << "  if (" << ptr_ << " == nullptr) gbb_ReportEmptyHandle(\"" << C
        << "::" << Capital(m->name) << "\");\n";
      o << "  " << C << "Access access(*this);\n";
      if (IsMap(m->type) || m->type == "ada_string") {
        o << "  " << m->type << " copy(value);\n  access.members()." << m->name << ".swap(copy);\n";
      } else {
        o << "  access.members()." << m->name << " = value;\n";
      }
      o << "  access.commit();\n}\n\n";
    }
    for (const Member* m : selectable_) {
      if (m->kind == "subobject") {
        o << m->type << " " << C << "::" << m->name << "() const {\n"
          << Guard(m->name, m->type + "()") << "  return " << ptr_ << "->" << m->name
          << "();\n}\n\n";
        o << m->type << " " << C << "::" << Capital(m->name) << "(" << m->type
          << "Holder holder) const {\n"
          << Guard(Capital(m->name), m->type + "()") << "  return " << ptr_ << "->Set"
          << Capital(m->name) << "(holder);\n}\n\n";
      } else if (m->kind == "array") {
        o << ArrayType(*m) << " " << C << "::" << m->name << "() const {\n"
          << Guard(m->name, ArrayType(*m) + "()") << "  return " << ptr_ << "->" << m->name
          << "();\n}\n\n";
      } else if (m->type == "gbb_DistributionService") {
        o << m->type << " " << C << "::" << m->name << "() const {\n"
          << Guard(m->name, m->type + "()") << "  return gbb_DistributionService(" << ptr_
          << "->Context());\n}\n\n";
      } else if (m->type == "gbb_SchemaSnapshot") {
        o << m->type << " " << C << "::" << m->name << "() const {\n"
          << Guard(m->name, m->type + "()") << "  return gbb_SchemaSnapshot(&" << ptr_
          << "->Snapshot());\n}\n\n";
      } else {
        Fail(t_.source, "unknown service type " + m->type);
      }
    }
  }

  void HolderDef(std::ostringstream& o) {
    std::string H = X + "Holder";
    o << X << " " << H << "::Get() const {\n  if (m_object == nullptr) return " << X << "();\n";
    if (t_.root || derived_) {
      o << "  return " << X << "(m_object);\n}\n\n";
    } else {
      o << "  return m_object->Impl();\n}\n\n";
    }
    std::string bindParams =
        t_.root ? "QELSimContextID context, const gbb_Group& group" : "const gbb_Group& group";
    std::string bindArgs = t_.root ? "context, group" : "group";
    std::string pathParams = t_.root ? "gbb_Root root, int index" : "gbb_Path parent, int index";
    std::string pathArgs = t_.root ? "root, index" : "parent, index";
    auto forward = [&](const char* op, const std::string& params, const std::string& args) {
      o << "void " << H << "::" << op << "(" << params << ") {\n";
      o << "  if (!CheckNotEmpty(\"" << H << "\", \"" << op << "\")) return;\n";
      o << "  if ((m_flags & kOuterSupplied) != 0) {\n    m_object->" << X << "Impl::" << op << "("
        << args
        << ");\n  } else if (m_object->Interface() != nullptr) {\n    m_object->Interface()->" << op
        << "(" << args << ");\n  }\n}\n\n";
    };
    forward("Bind", bindParams, bindArgs);
    forward("SetPath", pathParams, pathArgs);
    o << "gbb_Handle " << H
      << "::Traverse(gbb_TraverseContext& context) {\n  return TraverseStep(context, \"" << H
      << "\");\n}\n\n";
    if (t_.root) {
      o << H << " " << H
        << "::Open(gbb_Root root, int index, QELSimContextID context, const gbb_Group& group, int "
           "traceFlag) {\n";
      o << "  return " << H << "(new " << X
        << "Impl(nullptr, root, index, context, group, traceFlag), 1);\n}\n\n";
      o << H << " " << H << "::Open(" << X
        << "Interface* outer, gbb_Root root, int index, QELSimContextID context, const gbb_Group& "
           "group, int traceFlag) {\n";
      o << "  return " << H << "(new " << X
        << "Impl(outer, root, index, context, group, traceFlag), 3);\n}\n\n";
    } else {
      o << H << " " << H
        << "::Open(gbb_Path parent, int index, const gbb_Group& group, int traceFlag) {\n";
      o << "  bool failed = false;\n";
      o << "  gbb_ObjectInterface* object = gbb_OpenByClass(parent, index, group, traceFlag, " << X
        << "Interface::StaticClass(), \"" << H << "\", &failed);\n";
      o << "  if (failed) return " << H << "();\n";
      o << "  auto* outer = dynamic_cast<" << X << "Interface*>(object);\n";
      o << "  if (outer == nullptr) {\n    delete object;\n    return " << H
        << "(nullptr, 1);\n  }\n";
      o << "  return " << H << "(outer->" << (derived_ ? "DerivedImpl()." + ptr_ : "Impl().m_impl")
        << ", 1);\n}\n\n";
      o << H << " " << H << "::Open(" << X
        << "Interface* outer, gbb_Path parent, int index, const gbb_Group& group, int traceFlag) "
           "{\n";
      o << "  return " << H << "(new " << X
        << "Impl(outer, parent, index, group, traceFlag), 3);\n}\n\n";
    }
    if (derived_) {
      std::string B = t_.base;
      o << "const " << B << "Holder& " << H << "::FESystemSubobject() const {\n";
      o << "  if (m_object == nullptr) {\n    aio_cerr.print(\"**ERROR " << H
        << "::FESystemSubobject: called on an empty holder\\n\");\n";
      o << "    return gbb_EmptyValue<" << B << "Holder>();\n  }\n";
      o << "  return m_object->Subobject();\n}\n\n";
      o << B << "HolderMoveSrc " << H << "::ReleaseAs" << B.substr(B.find('_') + 1) << "() {\n";
      o << "  if (m_object == nullptr) return " << B << "HolderMoveSrc(nullptr, 0);\n";
      o << "  " << B << "Impl* part = m_object->Subobject().Object();\n";
      o << "  Release();  // the part's holder now owns the whole object\n";
      o << "  return " << B << "HolderMoveSrc(part, 1);\n}\n\n";
    }
  }

  void AccessDef(std::ostringstream& o) {
    std::string A = X + "Access";
    std::string M = X + "Members";
    o << A << "::" << A << "(" << X << " handle) : m_impl(handle." << ptr_
      << "), m_members(nullptr) {}\n\n";
    o << "namespace {\n// What an access without an object edits: a record no object reads.\n";
    o << M << "& Scratch" << M << "() {\n  static " << M
      << " scratch;\n  return scratch;\n}\n}  // namespace\n\n";
    o << A << "::~" << A << "() {\n  if (m_members == nullptr || m_members == &Scratch" << M
      << "()) return;\n";
    o << "  if (m_impl != nullptr && m_impl->CachedMembers() == m_members) "
         "m_impl->SetCachedMembers(nullptr);\n";
    o << "  delete m_members;\n}\n\n";
    o << M << "& " << A << "::members() {\n";
    o << "  if (m_impl == nullptr) {\n    aio_cerr.print(\"**ERROR " << A
      << "::members: called on an empty object\\n\");\n    m_members = &Scratch" << M
      << "();\n    return *m_members;\n  }\n";
    o << "  if (m_members != nullptr) return *m_members;\n";
    o << "  if (m_impl->IsConnected()) {\n    m_members = &m_impl->Members();\n";
    o << "  } else if (m_impl->CachedMembers() != nullptr) {\n    m_members = "
         "m_impl->CopyMembers();\n";
    o << "  } else {\n    m_members = m_impl->CreateMembers();\n    "
         "m_impl->SetCachedMembers(m_members);\n  }\n";
    o << "  return *m_members;\n}\n\n";
    o << "void " << A << "::commit() {\n";
    o << "  if (m_members != nullptr && m_impl != nullptr && m_members != &Scratch" << M
      << "()) {\n";
    o << "    if (m_members != m_impl->CachedMembers()) {\n      delete m_impl->CachedMembers();\n "
         "     m_impl->SetCachedMembers(m_members);\n    }\n";
    o << "    if (m_impl->IsConnected()) {\n      if (m_impl->TraceFlag() != 0) {\n        "
         "aio_cerr.print(\""
      << X << "Impl::CommitMembers: saving " << M
      << "\\n\");\n      }\n      m_impl->SaveMembers();\n    }\n  }\n";
    o << "  m_members = nullptr;\n}\n\n";
  }

  void Trace(std::ostringstream& o, const std::string& text, const std::string& indent = "  ") {
    o << indent << "if (m_trace != 0) aio_cerr.print(\"" << text << "\\n\");\n";
  }

  void ImplDef(std::ostringstream& o) {
    std::string I = X + "Impl";
    std::string M = X + "Members";
    // Constructors.
    std::string common = "    : m_outer(outer != nullptr ? outer : this),\n";
    auto holders = [&](bool fresh) {
      std::string s;
      if (!simple_.empty()) s += ",\n      m_members(nullptr)";
      if (derived_) {
        std::string baseArgs;
        for (const Member& m : baseRequired_) baseArgs += m.name + ", ";
        s += fresh ? ",\n      m_base(" + t_.base + "::New(m_outer, " + baseArgs + "traceFlag))"
                   : ",\n      m_base(" + t_.base +
                         "Holder::Open(m_outer, parent, index, group.OpenGroup(\"#base\"), "
                         "traceFlag))";
      }
      for (const Member* m : selectable_) {
        if (m->kind == "subobject" && fresh) {
          s += ",\n      m_" + m->name + "(" + m->type + "HolderMoveSrc(nullptr, 1))";
        }
        if (m->kind == "array" && fresh)
          s += ",\n      m_" + m->name + "(" + ArrayType(*m) + "::New(traceFlag))";
      }
      for (const Member* m : required_)
        s += ",\n      m_new_" + m->name + "(" + (fresh ? m->name : "") + ")";
      return s;
    };
    if (t_.root) {
      o << I << "::" << I << "(" << X << "Interface* outer, int traceFlag)\n"
        << common
        << "      m_path(gbb_Path(), gbb_Root(), -1),\n      m_servicePath(),\n      m_context(),\n"
        << "      m_trace(traceFlag),\n      m_connected(false)" << holders(true)
        << " {\n  RegisterClasses();\n}\n\n";
      o << I << "::" << I << "(" << X
        << "Interface* outer, gbb_Root root, int index, QELSimContextID context, const gbb_Group& "
           "group, int traceFlag)\n"
        << common
        << "      m_path(gbb_Path(), root, index),\n      m_servicePath(&m_path, gbb_Root(), 1),\n"
        << "      m_context(context),\n      m_group(group),\n      m_trace(traceFlag),\n      "
           "m_connected(true)"
        << holders(false)
        << " {\n  m_snapshot.PathRecord().Set(&m_path, gbb_Root(), 2);\n  "
           "RegisterClasses();\n}\n\n";
      o << "void " << I << "::RegisterClasses() {\n";
      for (const std::string& r : t_.registered)
        o << "  m_snapshot.Register(" << r << "Interface::StaticClass());\n";
      o << "}\n\n";
    } else {
      o << I << "::" << I << "(" << X << "Interface* outer, " << NewParams() << "int traceFlag)\n"
        << common
        << "      m_path(gbb_Path(), gbb_Root(), -1),\n      m_trace(traceFlag),\n      "
           "m_connected(false)"
        << holders(true) << " {\n";
      for (const Member* m : selectable_) {
        if (m->kind == "array")
          o << "  m_" << m->name << ".SetPath(&m_path, " << IndexName(*m) << ");\n";
      }
      o << "}\n\n";
      o << I << "::" << I << "(" << X
        << "Interface* outer, gbb_Path parent, int index, const gbb_Group& group, int traceFlag)\n"
        << common
        << "      m_path(parent, gbb_Root(), index),\n      m_group(group),\n      "
           "m_trace(traceFlag),\n      m_connected(true)"
        << holders(false) << " {}\n\n";
    }
    // Destructor: sub-objects first, then the record; the group goes with the object.
    o << I << "::~" << I << "() {\n";
    for (auto it = selectable_.rbegin(); it != selectable_.rend(); ++it) {
      if ((*it)->kind != "service") o << "  m_" << (*it)->name << ".Close();\n";
    }
    if (derived_) o << "  m_base.Close();\n";
    if (!simple_.empty()) o << "  delete m_members;\n";
    if (t_.root) {
      o << "  m_group = gbb_Group();  // let the file close completely\n";
      o << "  QELSimManager::CloseContext(m_context);\n";
    }
    o << "}\n\n";
    // Bind.
    if (t_.root) {
      o << "void " << I << "::Bind(QELSimContextID context, const gbb_Group& group) {\n";
    } else {
      o << "void " << I << "::Bind(const gbb_Group& group) {\n";
    }
    if (derived_) o << "  m_base.Bind(group.CreateGroup(\"#base\"));\n";
    Trace(o, I + "::Bind");
    o << "  if (m_connected) {\n    aio_cerr.print(\"** ERROR " << I
      << "::Bind: called for a connected object\\n\");\n    return;\n  }\n";
    if (t_.root) o << "  m_context = context;\n";
    o << "  m_group = group;\n  m_group.WriteClassID(Class().ClassID());\n";
    if (!simple_.empty()) o << "  BindMembers();\n";
    for (const Member* m : selectable_) {
      if (m->kind == "array") {
        o << "  m_" << m->name << ".Bind(m_group.CreateRepository(\"" << m->name << "\"));\n";
      } else if (m->kind == "subobject") {
        o << "  if (!m_" << m->name << ".IsEmpty()) m_" << m->name << ".Bind(m_group.CreateGroup(\""
          << m->name << "\"));\n";
      }
    }
    o << "  m_connected = true;\n}\n\n";
    // SetPath.
    if (t_.root) {
      o << "void " << I
        << "::SetPath(gbb_Root root, int index) { m_path.Set(gbb_Path(), root, index); }\n\n";
    } else {
      o << "void " << I << "::SetPath(gbb_Path parent, int index) {\n";
      if (derived_) o << "  m_base.SetPath(parent, index);\n";
      o << "  m_path.Set(parent, gbb_Root(), index);\n}\n\n";
    }
    // Traverse.
    o << "gbb_Handle " << I << "::Traverse(gbb_TraverseContext& context) {\n";
    if (!selectable_.empty()) {
      o << "  const int kind = context.CurrentKind();\n  const int number = "
           "context.CurrentIndex();\n";
      o << "  const bool load = (context.Flags() & gbb_TraverseContext::kNoLoad) == 0;\n";
      o << "  (void)load;\n";
    }
    for (const Member* m : selectable_) {
      o << "  if ((kind == gbb_TraverseContext::kByNumber && number == " << IndexName(*m)
        << ") ||\n      (kind == gbb_TraverseContext::kByName && context.CurrentNameIs(\""
        << m->name << "\"))) {\n";
      if (m->kind == "subobject") {
        o << "    if (load) " << m->name << "();\n";
        o << "    if (!m_" << m->name
          << ".IsResolved()) {\n      context.SetStatus(gbb_TraverseContext::kNotLoaded);\n      "
             "return gbb_Handle();\n    }\n";
        o << "    return m_" << m->name << ".Traverse(context);\n  }\n";
      } else if (m->kind == "array") {
        o << "    if (load) " << m->name << "();\n";
        o << "    if (m_" << m->name
          << ".IsEmpty()) {\n      context.SetStatus(gbb_TraverseContext::kNotLoaded);\n      "
             "return gbb_Handle();\n    }\n";
        o << "    return m_" << m->name << ".Traverse(context);\n  }\n";
      } else if (m->type == "gbb_DistributionService") {
        o << "    return gbb_TraverseLeaf(context, gbb_DistributionService(m_context));\n  }\n";
      } else {
        o << "    return gbb_TraverseLeaf(context, gbb_SchemaSnapshot(&m_snapshot));\n  }\n";
      }
    }
    if (derived_) {
      o << "  // Every other step belongs to the " << t_.base
        << " part.\n  return m_base.Traverse(context);\n}\n\n";
    } else {
      o << "  context.SetStatus(gbb_TraverseContext::kNothingThere);\n  return "
           "gbb_Handle();\n}\n\n";
    }
    o << "gbb_Class " << I << "::Class() { return " << X << "Interface::StaticClass(); }\n\n";
    if (derived_) {
      o << t_.base << " " << I << "::Impl() { return m_base.Get(); }\n\n";
      o << X << " " << I << "::DerivedImpl() { return " << X << "(this); }\n\n";
    } else {
      o << X << " " << I << "::Impl() { return " << X << "(this); }\n\n";
    }
    // Value record.
    if (!simple_.empty()) {
      o << M << "& " << I
        << "::Members() {\n  if (m_members == nullptr) m_members = m_connected ? LoadMembers() : "
           "CreateMembers();\n  return *m_members;\n}\n\n";
      o << M << "* " << I << "::CreateMembers() {\n";
      Trace(o, I + "::CreateMembers: creating " + M);
      o << "  return new " << M << "(";
      for (size_t i = 0; i < required_.size(); ++i)
        o << (i ? ", " : "") << "m_new_" << required_[i]->name;
      o << ");\n}\n\n";
      o << M << "* " << I << "::CopyMembers() {\n";
      Trace(o, I + "::CopyMembers: copying " + M);
      o << "  return new " << M << "(*m_members);\n}\n\n";
      o << M << "* " << I << "::LoadMembers() {\n";
      Trace(o, I + "::LoadMembers: loading " + M);
      o << "  gbb_MembersBuffer bytes(gbb_FetchMembers(m_group));\n";
      o << "  " << M << "* members = new " << M << "();\n";
      o << "  gbb_MemoryStream stream(bytes, gbb_ResolveService(&m_path).Context());\n";
      o << "  int status = gbb_ReadMemberRecords(stream, [&stream, members](int index) {\n    "
           "switch (index) {\n";
      std::vector<const Member*> byIndex = simple_;
      std::sort(byIndex.begin(), byIndex.end(),
                [](const Member* a, const Member* b) { return a->index < b->index; });
      for (const Member* m : byIndex) {
        o << "      case " << IndexName(*m) << ":\n        gbb_ReadMemberValue(stream, members->"
          << m->name << ");\n        break;\n";
      }
      o << "      default:\n        break;  // not a simple member of this class: nothing is "
           "read\n    }\n  });\n";
      o << "  if (status != 0) gbb_ReportLoadError(\"" << I
        << "\", status);\n  return members;\n}\n\n";
      o << "void " << I << "::SaveMembers() {\n";
      o << "  gbb_MemoryStream stream(gbb_ResolveService(&m_path).Context());\n";
      o << "  const " << M << "& members = Members();\n";
      for (const Member* m : simple_) {
        o << "  gbb_WriteMemberRecord(stream, " << IndexName(*m) << ", members." << m->name
          << ");\n";
      }
      o << "  gbb_StoreMembers(m_group, stream, \"" << I << "\");\n}\n\n";
      o << "void " << I
        << "::BindMembers() {\n  if (m_members == nullptr) m_members = CreateMembers();\n";
      Trace(o, I + "::BindMembers: saving " + M);
      o << "  m_group.CreateDataset(kMembersDataset);\n  SaveMembers();\n}\n\n";
    }
    // Sub-objects and arrays.
    for (const Member* m : selectable_) {
      if (m->kind == "subobject") {
        o << m->type << " " << I << "::" << m->name << "() {\n";
        o << "  gbb_LoadSubobject(m_" << m->name << ", m_group, \"" << m->name << "\", &m_path, "
          << IndexName(*m) << ", m_trace);\n  return m_" << m->name << ".Get();\n}\n\n";
        o << m->type << " " << I << "::Set" << Capital(m->name) << "(" << m->type
          << "Holder& offered) {\n";
        o << "  gbb_SetSubobject(m_" << m->name << ", offered, m_connected, m_group, \"" << m->name
          << "\", &m_path, " << IndexName(*m) << ",\n                   \"**ERROR:" << I
          << "::" << Capital(m->name) << ": already exists\\n\");\n";
        o << "  " << m->type << " result = m_" << m->name
          << ".Get();\n  offered.Close();\n  return result;\n}\n\n";
      } else if (m->kind == "array") {
        o << ArrayType(*m) << " " << I << "::" << m->name << "() {\n";
        o << "  gbb_LoadArray(m_" << m->name << ", m_group, \"" << m->name << "\", &m_path, "
          << IndexName(*m) << ", m_trace);\n  return m_" << m->name << ".Get();\n}\n\n";
      }
    }
  }

  const Table& t_;
  std::string X;
  std::vector<const Member*> simple_, required_, selectable_;
  std::vector<Member> baseRequired_;
  bool derived_;
  std::string ptr_;
};

void WriteIfChanged(const std::string& path, const std::string& text) {
  std::ifstream in(path);
  if (in) {
    std::ostringstream old;
    old << in.rdbuf();
    if (old.str() == text) return;  // keep the timestamp: nothing to rebuild
  }
  std::ofstream out(path);
  if (!out) Fail(path, "cannot write");
  out << text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: ddb_schemagen <table.schema> <output-directory> [<base.schema>]\n"
                 "  writes <Class>.h and <Class>.cpp into the directory; a derived class\n"
                 "  (a 'base' line) needs its base's table as third argument\n";
    return 2;
  }
  Table table = Parse(argv[1]);
  Generator generator(table);
  if (!table.base.empty()) {
    if (argc < 4) Fail(argv[1], "a derived class needs its base's table as third argument");
    Table base = Parse(argv[3]);
    std::vector<Member> required;
    for (const Member& m : base.members) {
      if (m.kind == "simple" && m.required) required.push_back(m);
    }
    generator.SetBaseRequired(required);
  }
  std::string dir = argv[2];
  WriteIfChanged(dir + "/" + table.name + ".h", generator.Header());
  WriteIfChanged(dir + "/" + table.name + ".cpp", generator.Source());
  return 0;
}
