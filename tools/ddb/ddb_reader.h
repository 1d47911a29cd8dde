// ddb_reader: a database read whole through the library, as a tree of plain
// values that tools can print, compare and check.
//
// Reading is what a host does: the file is opened read-only, each object is
// loaded when it is reached, and every member is read through the generated
// reflection of the object's own class (persistence/gbb_Reflection.h), so
// that no member is named here: simple-typed members with what the service
// says of each identifier (collection sizes, set members, distribution
// values), array sizes, then sub-objects and array elements as children.
// What the library prints while an object is read stays with that object, so
// a checker can say where a host would trip.
#ifndef DDB_TOOLS_DDB_DDB_READER_H_
#define DDB_TOOLS_DDB_DDB_READER_H_

#include <string>
#include <utility>
#include <vector>

struct DdbObject {
  std::string cls;   // the class identifier, "com.trevolo.Mesh"; "" when none could be opened
  std::string link;  // a link text that resolves to it, "#/discreteModel/mesh"
  std::string name;  // the member or element that holds it, "mesh", "systems[2]"
  // Simple-typed members (map entries as "name[key]") and array sizes, in
  // save order, a base part's first.
  std::vector<std::pair<std::string, std::string>> values;
  std::vector<std::string> messages;  // what the library printed while reading it
  // Members records that stopped decoding: "at byte 57 (fesD_FESystemImpl, stream error 3)".
  std::vector<std::string> undecoded;
  std::vector<DdbObject> children;
};

// Reads the database `path` down to `depth` levels of objects below the sim
// (-1: all). False when it cannot be opened: *why says so.
bool DdbRead(const std::string& path, int depth, DdbObject* sim, std::string* why);

// Reads the object a link text names (every form of the link grammar), and
// `depth` levels of objects below it (-1: all); false with *why when it names
// nothing.
bool DdbReadLink(const std::string& path, const std::string& link, int depth, DdbObject* object,
                 std::string* why);

// Every object of the tree, depth first, parents before children.
void DdbVisit(const DdbObject& root, void (*visit)(const DdbObject&, void*), void* context);

#endif  // DDB_TOOLS_DDB_DDB_READER_H_
