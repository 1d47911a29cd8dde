#include "support/fe_deck.h"

#include <sys/stat.h>
#include <zlib.h>

#include <cctype>
#include <cstdlib>
#include <unordered_map>

namespace {

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return std::string();
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

std::vector<std::string> SplitCommas(const std::string& line) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (;;) {
    size_t comma = line.find(',', start);
    fields.push_back(Trim(line.substr(start, comma - start)));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return fields;
}

// The value of KEY=VALUE among a keyword line's parameters, or "".
std::string Parameter(const std::vector<std::string>& fields, const std::string& key) {
  for (size_t i = 1; i < fields.size(); ++i) {
    size_t eq = fields[i].find('=');
    if (eq != std::string::npos && Upper(Trim(fields[i].substr(0, eq))) == key) {
      return Trim(fields[i].substr(eq + 1));
    }
  }
  return std::string();
}

bool StartsWith(const std::string& s, const char* prefix) {
  return s.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

struct Reader {
  FeDeck* deck;
  std::unordered_map<int, int> nodeIndex;         // user label -> node index
  std::vector<std::pair<int, int>> elementNodes;  // (user label, mask)
  enum { kNone, kNodes, kElements } block = kNone;
  int elementMask = 0;
  int nodesPerElement = 0;
  std::vector<int> record;  // element fields read so far

  bool ReadFile(const std::string& path, std::string* error);
  bool Line(const std::string& line, const std::string& folder, std::string* error);
  void Keyword(const std::vector<std::string>& fields);
};

bool Reader::ReadFile(const std::string& path, std::string* error) {
  gzFile file = gzopen(path.c_str(), "rb");
  if (file == nullptr) {
    *error = "cannot open " + path;
    return false;
  }
  std::string folder = path.substr(0, path.find_last_of('/') + 1);
  std::string line;
  char buffer[4096];
  bool ok = true;
  while (ok && gzgets(file, buffer, sizeof buffer) != nullptr) {
    line += buffer;
    if (line.back() != '\n' && !gzeof(file)) continue;  // a line longer than the buffer
    ok = Line(line, folder, error);
    line.clear();
  }
  gzclose(file);
  return ok;
}

bool Reader::Line(const std::string& raw, const std::string& folder, std::string* error) {
  std::string line = Trim(raw);
  if (line.empty() || StartsWith(line, "**")) return true;
  if (line[0] == '*') {
    std::vector<std::string> fields = SplitCommas(line);
    if (Upper(fields[0]) == "*INCLUDE") {
      std::string input = Parameter(fields, "INPUT");
      block = kNone;
      return ReadFile(input[0] == '/' ? input : folder + input, error);
    }
    Keyword(fields);
    return true;
  }
  if (block == kNone) return true;
  std::vector<std::string> fields = SplitCommas(line);
  if (block == kNodes) {
    int label = std::atoi(fields[0].c_str());
    if (nodeIndex.emplace(label, static_cast<int>(deck->nodeLabels.size())).second) {
      deck->nodeLabels.push_back(label);
    }
    return true;
  }
  for (const std::string& f : fields) {
    if (f.empty()) continue;  // the trailing comma of a continued record
    record.push_back(std::atoi(f.c_str()));
    if (static_cast<int>(record.size()) == nodesPerElement + 1) {
      for (int i = 1; i <= nodesPerElement; ++i) elementNodes.emplace_back(record[i], elementMask);
      ++deck->elements;
      record.clear();
    }
  }
  return true;
}

void Reader::Keyword(const std::vector<std::string>& fields) {
  std::string name = Upper(fields[0]);
  block = kNone;
  record.clear();
  if (name == "*NODE") {
    block = kNodes;
  } else if (name == "*ELEMENT") {
    if (FeDeckElementType(Parameter(fields, "TYPE"), &elementMask, &nodesPerElement)) {
      block = kElements;
    } else {
      ++deck->skippedElementBlocks;
    }
  }
}

}  // namespace

bool FeDeckElementType(const std::string& type, int* mask, int* nodesPerElement) {
  std::string t = Upper(type);
  const int kTranslations = 0x7, kTranslationsAndRotations = 0x3F;
  struct Family {
    const char* prefix;
    int mask;
  };
  static const Family kFamilies[] = {
      {"C3D", kTranslations},           {"CPS", kTranslations},           {"CPE", kTranslations},
      {"CAX", kTranslations},           {"T2D", kTranslations},           {"T3D", kTranslations},
      {"S", kTranslationsAndRotations}, {"B", kTranslationsAndRotations},
  };
  for (const Family& f : kFamilies) {
    if (!StartsWith(t, f.prefix)) continue;
    std::string digits = t.substr(std::char_traits<char>::length(f.prefix));
    int n = std::atoi(digits.c_str());
    // Beams are named by order, not node count: B31 has 2 nodes, B32 3.
    if (f.prefix[0] == 'B') n = (n == 31) ? 2 : (n == 32) ? 3 : 0;
    if (n <= 0) return false;
    *mask = f.mask;
    *nodesPerElement = n;
    return true;
  }
  return false;
}

bool ReadFeDeck(const std::string& path, FeDeck* deck, std::string* error) {
  *deck = FeDeck();
  Reader reader;
  reader.deck = deck;
  if (!reader.ReadFile(path, error)) return false;
  deck->masks.assign(deck->nodeLabels.size(), 0);
  for (const auto& en : reader.elementNodes) {
    auto it = reader.nodeIndex.find(en.first);
    if (it == reader.nodeIndex.end()) {
      ++deck->undefinedNodeReferences;
    } else {
      deck->masks[it->second] |= en.second;
    }
  }
  return true;
}

std::string FeDeckFolder() {
  const char* env = std::getenv("DDB_FE_DECKS");
#ifdef DDB_FE_DECKS_DIR
  std::string folder = env != nullptr ? env : DDB_FE_DECKS_DIR;
#else
  std::string folder = env != nullptr ? env : "";
#endif
  struct stat info;
  if (folder.empty() || stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return "";
  return folder;
}
