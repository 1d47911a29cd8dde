// Reading the member tables, and writing what the generator makes of them (see schema_table.h).
#include "schema_table.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

[[noreturn]] void Fail(const std::string& where, const std::string& why) {
  std::cerr << where << ": " << why << "\n";
  std::exit(1);
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

// What the root object can answer as a service member.
bool IsServiceType(const std::string& type) {
  return type == "gbb_DistributionService" || type == "gbb_SchemaSnapshot";
}

std::vector<const Member*> Table::Of(MemberKind kind) const {
  std::vector<const Member*> list;
  for (const Member& m : members) {
    if (m.kind == kind) list.push_back(&m);
  }
  return list;
}

std::vector<const Member*> Table::Required() const {
  std::vector<const Member*> list;
  for (const Member& m : members) {
    if (m.kind == MemberKind::kSimple && m.required) list.push_back(&m);
  }
  return list;
}

Table Load(const std::string& path) {
  Table table = Parse(path);
  if (!table.Derived()) return table;
  const std::string& header = table.baseHeader;
  size_t dot = header.rfind(".h");
  std::string basePath = header.substr(0, dot) + ".schema";
  if (dot == std::string::npos || !std::ifstream(basePath)) {
    Fail(path, "cannot read the table of base " + table.base + " ('" + basePath + "')");
  }
  Table base = Load(basePath);
  if (base.name != table.base)
    Fail(basePath, "is the table of " + base.name + ", not " + table.base);
  LinkBase(table, base);
  return table;
}

void LinkBase(Table& table, const Table& base) {
  table.baseRequired = base.baseRequired;
  for (const Member* m : base.Required()) table.baseRequired.push_back(*m);
  table.baseMembers = base.baseMembers;
  table.baseMembers.insert(table.baseMembers.end(), base.members.begin(), base.members.end());
}

std::vector<Table> LinkAmong(const std::vector<Table>& tables) {
  std::map<std::string, const Table*> byName;
  for (const Table& t : tables) byName[t.name] = &t;
  std::vector<Table> ordered;
  std::map<std::string, size_t> placed;  // name: position in `ordered`
  while (ordered.size() < tables.size()) {
    size_t before = ordered.size();
    for (const Table& t : tables) {
      if (placed.count(t.name) != 0) continue;
      if (t.Derived() && byName.count(t.base) == 0) {
        Fail(t.source, "the base class '" + t.base + "' has no table here");
      }
      if (!t.Derived() || placed.count(t.base) != 0) {
        ordered.push_back(t);
        if (t.Derived()) LinkBase(ordered.back(), ordered[placed.at(t.base)]);
        placed[t.name] = ordered.size() - 1;
      }
    }
    if (ordered.size() == before) Fail(tables.front().source, "the base classes form a cycle");
  }
  return ordered;
}

std::string Capital(const std::string& s) {
  std::string t = s;
  if (!t.empty() && t[0] >= 'a' && t[0] <= 'z') t[0] = static_cast<char>(t[0] - 'a' + 'A');
  return t;
}

bool IsMap(const std::string& type) {
  return type.rfind("ada_Map", 0) == 0;
}

std::string ShortName(const std::string& className) {
  size_t underscore = className.find('_');
  return underscore == std::string::npos ? className : className.substr(underscore + 1);
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
      t.baseHeader = w[2];
      t.headers.push_back(w[2]);
    } else if (what == "root") {
      t.root = true;
    } else if (what == "simple") {
      need(3);
      Member m;
      m.kind = MemberKind::kSimple;
      m.name = w[1];
      m.type = w[2];
      if (!IsMemberType(m.type)) Fail(where, "unknown member type '" + m.type + "'");
      m.required = w.size() > 3 && w[3] == "required";
      t.members.push_back(m);
    } else if (what == "subobject" || what == "array") {
      need(4);
      Member m;
      m.kind = what == "array" ? MemberKind::kArray : MemberKind::kSubobject;
      m.name = w[1];
      m.type = w[2];
      t.members.push_back(m);
      t.headers.push_back(w[3]);
    } else if (what == "service") {
      need(3);
      Member m;
      m.kind = MemberKind::kService;
      m.name = w[1];
      m.type = w[2];
      if (!IsServiceType(m.type)) Fail(where, "unknown service type '" + m.type + "'");
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
