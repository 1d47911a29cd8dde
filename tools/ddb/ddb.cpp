// ddb: looks inside, checks and compares simulation databases.
//
//   ddb tree FILE [LINK] [--depth N]   the object tree, every member decoded by name
//   ddb get FILE LINK                  the object a link text names
//   ddb check FILE                     what a host would trip over, one line each
//   ddb diff FILE1 FILE2               differences member by member
//   ddb dot FILE                       the object tree as a Graphviz graph
//   ddb info FILE                      classes, counts, sizes, format, journal
//
// Long arrays are summarised (ddb_arrays.h; --full shows them whole).
// `info` and `tree` take --follow: they print again each time a writer's
// commit lands and end when the writer closes the database. Every command
// takes --json. Databases are opened read-only, through the
// library, so what is shown is what a host sees; nothing is ever written.
// Exit status: 0 clean or equal, 1 problems found or different, 2 the file
// cannot be opened at all or the command line is wrong (then with the usage
// line). `ddb --help` and `ddb help` describe the commands, `ddb --version`
// names the library's version.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "ddb_arrays.h"
#include "ddb_reader.h"
#include "frame/DDB_PDM_Core_version.h"
#include "platform/hdf/hdf_File.h"

namespace {

using nlohmann::json;

enum Exit { kClean = 0, kProblems = 1, kCannotOpen = 2, kUsage = 2 };

const char kUsageLine[] =
    "usage: ddb {tree|get|check|diff|dot|info} FILE... [options]  (ddb --help for more)";

// The library's version and the HDF5 it runs with.
std::string VersionText() {
  unsigned majorVersion = 0, minorVersion = 0, release = 0;
  H5get_libversion(&majorVersion, &minorVersion, &release);
  return std::string("DDB_PDM_Core ") + DDB_PDM_Core_version() + " (HDF5 " +
         std::to_string(majorVersion) + "." + std::to_string(minorVersion) + "." +
         std::to_string(release) + ")";
}

json ToJson(const DdbObject& o, bool full) {
  json j = {{"class", o.cls}, {"link", o.link}, {"name", o.name}};
  json values = json::object();
  for (const auto& v : o.values) values[v.first] = DdbValueText(o, v.first, v.second, full);
  j["members"] = values;
  if (!o.messages.empty()) j["messages"] = o.messages;
  json children = json::array();
  for (const DdbObject& c : o.children) children.push_back(ToJson(c, full));
  j["children"] = children;
  return j;
}

// The members of `o`, each on a line of its own after `pad`.
void PrintValues(const DdbObject& o, const std::string& pad, bool full) {
  for (const auto& v : o.values) {
    std::cout << pad << v.first << " = " << DdbValueText(o, v.first, v.second, full) << "\n";
  }
}

void PrintTree(const DdbObject& o, int indent, bool full) {
  std::string pad(static_cast<size_t>(indent) * 2, ' ');
  std::cout << pad << (o.name.empty() ? "sim" : o.name) << ": "
            << (o.cls.empty() ? "(none)" : o.cls) << "  " << o.link << "\n";
  PrintValues(o, pad + "  ", full);
  for (const DdbObject& c : o.children) PrintTree(c, indent + 1, full);
}

int CannotOpen(const std::string& why, bool asJson) {
  if (asJson) {
    std::cout << json{{"error", why}}.dump(2) << "\n";
  } else {
    std::cerr << "ddb: " << why << "\n";
  }
  return kCannotOpen;
}

// The tool shows arrays itself (ddb_arrays.h); pictures and counts need no values.
DdbReadOptions Shown() {
  DdbReadOptions options;
  options.arrayText = false;
  return options;
}
DdbReadOptions Structure() {
  DdbReadOptions options;
  options.values = false;
  return options;
}

bool Read(const std::string& file, int depth, DdbObject* sim, std::string* why,
          const DdbReadOptions& options = Shown()) {
  struct stat info;
  if (stat(file.c_str(), &info) != 0) {
    *why = "no such file: " + file;
    return false;
  }
  return DdbRead(file, depth, sim, why, options);
}

// --- check -------------------------------------------------------------------

struct Problem {
  std::string link, what;
};

// What a holder says when an object's group has an empty class identifier.
bool SaysNoClass(const std::string& message) {
  const std::string said = "::Open: class  is not registered";
  return message.size() > said.size() &&
         message.compare(message.size() - said.size(), said.size(), said) == 0;
}

void CollectProblems(const DdbObject& o, void* context) {
  auto* problems = static_cast<std::vector<Problem>*>(context);
  bool noClass = false;
  for (const std::string& m : o.messages) noClass = noClass || SaysNoClass(m);
  if (o.cls.empty()) {
    problems->push_back({o.link, noClass ? "the object cannot be opened: no class identifier"
                                         : "the object cannot be opened"});
  }
  for (const std::string& m : o.messages) {
    if (!SaysNoClass(m)) problems->push_back({o.link, m});
  }
  for (const std::string& u : o.undecoded) {
    problems->push_back({o.link, "the members record stops decoding " + u});
  }
  for (const auto& v : o.values) {
    if (v.second.find("unreadable") != std::string::npos) {
      problems->push_back({o.link, v.first + " names a distribution that cannot be read"});
    }
  }
}

int Check(const std::string& file, bool asJson) {
  DdbObject sim;
  std::string why;
  bool tty = isatty(2) != 0;
  if (tty) std::cerr << "ddb: reading " << file << " ...\r" << std::flush;
  if (!Read(file, -1, &sim, &why)) return CannotOpen(why, asJson);
  if (tty) std::cerr << std::string(40, ' ') << "\r" << std::flush;
  std::vector<Problem> problems;
  unsigned long long mark = 0;
  bool writing = false;
  hdf_File::Watch(file.c_str(), &mark, &writing);
  if (!writing && hdf_File::JournalPending(file.c_str())) {
    problems.push_back({"#", "a journal is pending: the database was not closed by the library"});
  }
  DdbVisit(sim, &CollectProblems, &problems);
  if (asJson) {
    json list = json::array();
    for (const Problem& p : problems) list.push_back({{"link", p.link}, {"problem", p.what}});
    std::cout << json{{"file", file}, {"problems", list}}.dump(2) << "\n";
  } else {
    for (const Problem& p : problems) std::cout << p.link << ": " << p.what << "\n";
    if (problems.empty()) std::cout << file << ": clean\n";
  }
  return problems.empty() ? kClean : kProblems;
}

// --- diff ----------------------------------------------------------------------

struct Tolerances {
  double abs = 0, rel = 0;
  std::map<std::string, double> absByName, relByName;
};

// The tolerances of the member `name` ("alpha", "nodeSets[all]").
struct Within {
  double abs, rel;
  Within(const std::string& name, const Tolerances& t) {
    std::string base = name.substr(0, name.find('['));
    abs = t.absByName.count(base) ? t.absByName.at(base) : t.abs;
    rel = t.relByName.count(base) ? t.relByName.at(base) : t.rel;
  }
  static bool Same(double x, double y, const void* self) {
    const Within& w = *static_cast<const Within*>(self);
    double d = std::fabs(x - y);
    return d <= w.abs || d <= w.rel * std::max(std::fabs(x), std::fabs(y));
  }
};

// Numbers compare within the tolerances; anything else exactly.
bool Same(const std::string& name, const std::string& a, const std::string& b,
          const Tolerances& t) {
  if (a == b) return true;
  char* endA = nullptr;
  char* endB = nullptr;
  double x = std::strtod(a.c_str(), &endA), y = std::strtod(b.c_str(), &endB);
  if (a.empty() || b.empty() || *endA != '\0' || *endB != '\0') return false;
  Within within(name, t);
  return Within::Same(x, y, &within);
}

// One difference: what --json prints, and the object in one file only.
struct Found {
  json what;
  const DdbObject* only = nullptr;
};

json Difference(const std::string& link, const std::string& member, const std::string& first,
                const std::string& second) {
  return {{"link", link}, {"member", member}, {"first", first}, {"second", second}};
}

// An array in both files: counts, the values that differ, the first of them.
void CompareArrays(const DdbObject& a, const DdbObject& b, const std::string& name,
                   const Tolerances& t, std::vector<Found>* out) {
  const DdbArray &x = a.arrays.at(name), &y = b.arrays.at(name);
  Within within(name, t);
  DdbArrayDifference d = DdbCompareArrays(x, y, &Within::Same, &within);
  if (!d.Any()) return;
  json j = Difference(a.link, name, DdbArrayText(x, false), DdbArrayText(y, false));
  j["counts"] = {x.items->size(), y.items->size()};
  j["differing"] = d.differing;
  if (d.differing > 0) {
    j["first_index"] = d.first;
    j["values_at_first_index"] = {d.a, d.b};
  }
  j["text"] = DdbDifferenceText(x, y, d);
  out->push_back({j});
}

void Compare(const DdbObject& a, const DdbObject& b, const Tolerances& t, bool full,
             std::vector<Found>* out) {
  if (a.cls != b.cls) out->push_back({Difference(a.link, "class", a.cls, b.cls)});
  std::map<std::string, std::string> first(a.values.begin(), a.values.end());
  std::map<std::string, std::string> second(b.values.begin(), b.values.end());
  for (const auto& v : first) {
    auto w = second.find(v.first);
    if (w != second.end() && a.arrays.count(v.first) && b.arrays.count(v.first)) {
      CompareArrays(a, b, v.first, t, out);
    } else if (w == second.end() || !Same(v.first, v.second, w->second, t)) {
      out->push_back({Difference(
          a.link, v.first, DdbValueText(a, v.first, v.second, full),
          w == second.end() ? "(absent)" : DdbValueText(b, w->first, w->second, full))});
    }
  }
  for (const auto& w : second) {
    if (!first.count(w.first)) {
      out->push_back(
          {Difference(a.link, w.first, "(absent)", DdbValueText(b, w.first, w.second, full))});
    }
  }
  size_t n = std::max(a.children.size(), b.children.size());
  for (size_t i = 0; i < n; ++i) {
    if (i >= a.children.size() || i >= b.children.size()) {
      // An object in one file only, shown whole.
      const DdbObject& only = i < a.children.size() ? a.children[i] : b.children[i];
      json j = Difference(only.link, "(object)", i < a.children.size() ? only.cls : "(absent)",
                          i < b.children.size() ? only.cls : "(absent)");
      j["object"] = ToJson(only, full);
      out->push_back({j, &only});
      continue;
    }
    Compare(a.children[i], b.children[i], t, full, out);
  }
}

// The object a difference names, when it is in one file only: its members
// and the objects below it, as `tree` shows them, indented under the line.
void PrintObjectOnly(const DdbObject& o, bool full) {
  PrintValues(o, "  ", full);
  for (const DdbObject& c : o.children) PrintTree(c, 1, full);
}

// The letters of a name, in lower case: "propertyevaluation" for both
// "propertyEvaluation" and the Python module's "property_evaluation".
std::string Letters(const std::string& name) {
  std::string letters;
  for (char c : name) {
    if (c != '_') letters += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return letters;
}

// Reads --abs or --rel: "X" for every member, "NAME=X" for one. False with
// *why when a value is not a finite non-negative number or NAME is no
// member's name.
bool ParseTolerances(const char* option, const std::vector<std::string>& specs, double* all,
                     std::map<std::string, double>* byName, std::string* why) {
  static const std::vector<std::string> names = DdbValueNames();
  for (const std::string& s : specs) {
    size_t eq = s.find('=');
    char* end = nullptr;
    std::string number = eq == std::string::npos ? s : s.substr(eq + 1);
    double value = std::strtod(number.c_str(), &end);
    if (number.empty() || *end != '\0' || !std::isfinite(value) || value < 0) {
      *why = std::string(option) + " " + s +
             ": a tolerance is a finite non-negative number, or NAME=number";
      return false;
    }
    if (eq == std::string::npos) {
      *all = value;
      continue;
    }
    std::string name = s.substr(0, eq);
    if (!std::binary_search(names.begin(), names.end(), name)) {
      *why = std::string(option) + " " + s + ": no member is named " + name;
      for (const std::string& n : names) {
        if (Letters(n) == Letters(name)) *why += " (the tool's name is " + n + ")";
      }
      *why += "; the names are";
      for (const std::string& n : names) *why += (&n == &names.front() ? " " : ", ") + n;
      return false;
    }
    (*byName)[name] = value;
  }
  return true;
}

// --- dot and info ----------------------------------------------------------------

// Arrays of more elements than this are drawn as one node: Graphviz lays
// out a graph of thousands of nodes slowly and as an unreadable strip.
constexpr size_t kDotElements = 4;

void CountClasses(const DdbObject& o, void* context) {
  (*static_cast<std::map<std::string, int>*>(context))[o.cls.empty() ? "(none)" : o.cls]++;
}

void AnyMessages(const DdbObject& o, void* context) {
  *static_cast<bool*>(context) |= !o.messages.empty() || !o.undecoded.empty();
}

// The array member a child is an element of ("systems" of "systems[2]"),
// "" for a sub-object.
std::string ArrayOf(const DdbObject& child) {
  size_t bracket = child.name.find('[');
  return bracket == std::string::npos ? "" : child.name.substr(0, bracket);
}

void DotNode(const std::string& id, const std::string& label, bool problems, std::ostream& out) {
  out << "  \"" << id << "\" [label=\"" << label << "\"" << (problems ? ", color=red" : "")
      << "];\n";
}

void Dot(const DdbObject& o, const std::string& id, std::ostream& out) {
  DotNode(id, (o.name.empty() ? "sim" : o.name) + "\\n" + o.cls, !o.messages.empty(), out);
  for (size_t i = 0; i < o.children.size();) {
    std::string array = ArrayOf(o.children[i]);
    size_t end = i + 1;
    while (!array.empty() && end < o.children.size() && ArrayOf(o.children[end]) == array) ++end;
    if (end - i <= kDotElements) {
      for (; i < end; ++i) {
        std::string child = id + "/" + std::to_string(i);
        out << "  \"" << id << "\" -> \"" << child << "\";\n";
        Dot(o.children[i], child, out);
      }
      continue;
    }
    // The elements of one array, with the classes of the objects they hold.
    std::map<std::string, int> classes;
    bool problems = false;
    for (size_t k = i; k < end; ++k) {
      CountClasses(o.children[k], &classes);
      DdbVisit(o.children[k], &AnyMessages, &problems);
    }
    std::string label = array + "\\n" + std::to_string(end - i) + " elements";
    for (const auto& c : classes) label += "\\n" + std::to_string(c.second) + " x " + c.first;
    std::string child = id + "/" + array;
    out << "  \"" << id << "\" -> \"" << child << "\";\n";
    DotNode(child, label, problems, out);
    i = end;
  }
}

const char* FormatName(int superblock) {
  switch (superblock) {
    case 0:
    case 1:
      return "the original format (HDF5 1.0 and later)";
    case 2:
      return "the 1.8 format";
    case 3:
      return "the 1.10 format";
    default:
      return "unknown";
  }
}

// Prints what `info` says of `file`; the exit status.
int Info(const std::string& file, bool asJson, bool oneLine) {
  DdbObject root;
  std::string why;
  if (!Read(file, -1, &root, &why, Structure())) return CannotOpen(why, asJson);
  std::map<std::string, int> classes;
  DdbVisit(root, &CountClasses, &classes);
  int objects = 0;
  for (const auto& c : classes) objects += c.second;
  struct stat st;
  stat(file.c_str(), &st);
  unsigned long long mark = 0;
  bool writing = false;
  hdf_File::Watch(file.c_str(), &mark, &writing);
  bool pending = !writing && hdf_File::JournalPending(file.c_str());
  unsigned majorVersion = 0, minorVersion = 0, release = 0;
  H5get_libversion(&majorVersion, &minorVersion, &release);
  int superblock = DdbSuperblockVersion(file);
  if (asJson) {
    std::cout << json{{"file", file},
                      {"bytes", static_cast<long long>(st.st_size)},
                      {"objects", objects},
                      {"classes", classes},
                      {"bytes_per_object", objects > 0 ? st.st_size / objects : 0},
                      {"superblock_version", superblock},
                      {"journal_pending", pending},
                      {"writer_open", writing}}
                     .dump(oneLine ? -1 : 2)
              << "\n";
  } else {
    std::cout << file << "\n  " << st.st_size << " bytes, " << objects << " objects, "
              << (objects > 0 ? st.st_size / objects : 0) << " bytes per object\n";
    for (const auto& c : classes) std::cout << "  " << c.second << " x " << c.first << "\n";
    std::cout << "  HDF5 superblock version " << superblock << ": " << FormatName(superblock)
              << "; read with HDF5 " << majorVersion << "." << minorVersion << "." << release
              << "\n  journal "
              << (writing   ? "in use: a writer has the database open"
                  : pending ? "pending: open once with the library"
                            : "none")
              << "\n";
  }
  return kClean;
}

// Prints what `tree` or `get` says: the object `link` names (the sim when
// empty) and `depth` levels below it; the exit status.
int Tree(const std::string& file, const std::string& link, int depth, bool asJson, bool full,
         bool oneLine) {
  DdbObject root;
  std::string why;
  if (!link.empty()) {
    struct stat st;
    if (stat(file.c_str(), &st) != 0) return CannotOpen("no such file: " + file, asJson);
    if (!DdbReadLink(file, link, depth, &root, &why, Shown())) {
      if (why.rfind("link ", 0) == 0) {
        std::cerr << "ddb: " << why << "\n";
        return kProblems;
      }
      return CannotOpen(why, asJson);
    }
  } else if (!Read(file, depth, &root, &why)) {
    return CannotOpen(why, asJson);
  }
  if (asJson) {
    std::cout << ToJson(root, full).dump(oneLine ? -1 : 2) << "\n";
  } else {
    PrintTree(root, 0, full);
  }
  return kClean;
}

// Shows `file` with show(oneLine) now, and again each time a commit lands,
// looking every `interval` seconds, until no writer has it open. Before
// each showing after the first a line "--- snapshot N ---"; at the end, when
// a writer had it open, "--- the writer closed the database ---". With --json each showing is
// one line of JSON and nothing else is printed.
int Follow(const std::string& file, double interval, bool asJson,
           const std::function<int(bool)>& show) {
  unsigned long long shown = 0, mark = 0;
  bool writing = false, writerSeen = false;
  for (int snapshot = 1;; ++snapshot) {
    if (!hdf_File::Watch(file.c_str(), &mark, &writing)) {
      // Gone or never there: said as the command says it.
      int status = show(asJson);
      return status != kClean ? status : CannotOpen("cannot open file " + file, asJson);
    }
    if (snapshot > 1 && !asJson) {
      std::cout << "--- snapshot " << snapshot << " ---\n";
    }
    shown = mark;
    int status = show(asJson);
    std::cout << std::flush;
    if (status != kClean) return status;
    writerSeen = writerSeen || writing;
    // Waits for a commit or for the writer to close.
    while (writing && mark == shown) {
      usleep(static_cast<useconds_t>(interval * 1e6));
      if (!hdf_File::Watch(file.c_str(), &mark, &writing)) {
        return CannotOpen("cannot open file " + file, asJson);
      }
    }
    if (mark == shown) break;  // the writer closed after the state shown
  }
  if (writerSeen && !asJson) std::cout << "--- the writer closed the database ---\n";
  return kClean;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Looks inside, checks and compares simulation databases.\n"
      "Exit status: 0 clean or equal, 1 problems found or different, 2 the file cannot "
      "be opened at all or the command line is wrong."};
  app.name("ddb");
  app.require_subcommand(1);
  app.set_version_flag("--version", VersionText(), "print the library's version");
  bool asJson = false, full = false, follow = false;
  app.add_flag("--json", asJson, "print JSON for scripts");
  std::string file, file2, link;
  int depth = -1;
  double interval = 0.1;
  bool quiet = false;
  std::vector<std::string> absSpecs, relSpecs;

  CLI::App* tree = app.add_subcommand("tree", "the object tree with every member decoded");
  tree->add_option("FILE", file)->required();
  tree->add_option("LINK", link, "start at the object this link text names");
  tree->add_option("--depth", depth, "levels of objects below the sim (default: all)");
  CLI::App* get = app.add_subcommand("get", "the object a link text names");
  get->add_option("FILE", file)->required();
  get->add_option("LINK", link)->required();
  CLI::App* check = app.add_subcommand("check", "what a host would trip over");
  check->add_option("FILE", file)->required();
  CLI::App* diff = app.add_subcommand("diff", "differences member by member");
  diff->add_option("FILE1", file)->required();
  diff->add_option("FILE2", file2)->required();
  diff->add_option("--abs", absSpecs, "absolute tolerance, or NAME=tolerance for one member");
  diff->add_option("--rel", relSpecs, "relative tolerance, or NAME=tolerance for one member");
  diff->add_flag("--quiet", quiet, "print nothing, only set the exit status");
  CLI::App* dot = app.add_subcommand("dot", "the object tree as a Graphviz graph");
  dot->add_option("FILE", file)->required();
  CLI::App* info = app.add_subcommand("info", "classes, counts, sizes, format, journal");
  info->add_option("FILE", file)->required();
  for (CLI::App* sub : {tree, get, check, diff, dot, info}) {
    sub->add_flag("--json", asJson, "print JSON for scripts");
  }
  for (CLI::App* sub : {tree, get, diff}) {
    sub->add_flag("--full", full,
                  "print arrays whole (longer than " + std::to_string(kDdbShownValues) +
                      " values they are summarised)");
  }
  for (CLI::App* sub : {tree, info}) {
    CLI::Option* following = sub->add_flag(
        "--follow", follow, "print again each time a commit lands; end when the writer closes");
    sub->add_option("--interval", interval, "seconds between looks for a commit (default 0.1)")
        ->check(CLI::Range(0.001, 3600.0))
        ->needs(following);
  }
  if (argc == 2 && std::string(argv[1]) == "help") {
    std::cout << app.help();
    return kClean;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
    std::cerr << "ddb: " << e.what() << "\n" << kUsageLine << "\n";
    return kUsage;
  }

  if (*check) return Check(file, asJson);
  if (*tree || *get) {
    auto show = [&](bool oneLine) {
      return Tree(file, link, *get ? 0 : depth, asJson, full, oneLine);
    };
    return follow ? Follow(file, interval, asJson, show) : show(false);
  }
  if (*info) {
    auto show = [&](bool oneLine) { return Info(file, asJson, oneLine); };
    return follow ? Follow(file, interval, asJson, show) : show(false);
  }

  DdbObject root;
  std::string why;
  if (*dot) {
    if (!Read(file, -1, &root, &why, asJson ? Shown() : Structure())) {
      return CannotOpen(why, asJson);
    }
    if (asJson) {
      std::cout << ToJson(root, full).dump(2) << "\n";
      return kClean;
    }
    std::cout << "digraph database {\n  node [shape=box];\n";
    Dot(root, "sim", std::cout);
    std::cout << "}\n";
    return kClean;
  }
  // diff
  Tolerances t;
  if (!ParseTolerances("--abs", absSpecs, &t.abs, &t.absByName, &why) ||
      !ParseTolerances("--rel", relSpecs, &t.rel, &t.relByName, &why)) {
    std::cerr << "ddb: " << why << "\n" << kUsageLine << "\n";
    return kUsage;
  }
  if (!Read(file, -1, &root, &why)) return CannotOpen(why, asJson);
  DdbObject other;
  if (!Read(file2, -1, &other, &why)) return CannotOpen(why, asJson);
  std::vector<Found> differences;
  Compare(root, other, t, full, &differences);
  if (!quiet) {
    if (asJson) {
      json list = json::array();
      for (const Found& f : differences) list.push_back(f.what);
      std::cout << json{{"first", file}, {"second", file2}, {"differences", list}}.dump(2) << "\n";
    } else {
      for (const Found& f : differences) {
        const json& d = f.what;
        std::cout << d["link"].get<std::string>() << " " << d["member"].get<std::string>() << ": "
                  << (d.contains("text")
                          ? d["text"].get<std::string>()
                          : d["first"].get<std::string>() + " | " + d["second"].get<std::string>())
                  << "\n";
        if (f.only != nullptr) PrintObjectOnly(*f.only, full);
      }
    }
  }
  return differences.empty() ? kClean : kProblems;
}
