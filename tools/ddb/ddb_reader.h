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

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A value that is an array of numbers: an ordered set's members or a
// distribution's values, after what names it ("set 0/1", "distribution 3").
// Objects that name the same array share its items (one read, one copy).
struct DdbArray {
  std::string head;
  std::shared_ptr<const std::vector<int>> items;
};

// What a read keeps. By default everything, each array also as text in
// `values` ("set 0/1 [0 3 4 7]"), so that two trees compare as text. Tools
// that show arrays themselves keep only the head there ("set 0/1"); a
// picture of the tree needs no values at all.
struct DdbReadOptions {
  bool values = true;
  bool arrayText = true;
};

struct DdbObject {
  std::string cls;   // the class identifier, "com.trevolo.Mesh"; "" when none could be opened
  std::string link;  // a link text that resolves to it, "#/discreteModel/mesh"
  std::string name;  // the member or element that holds it, "mesh", "systems[2]"
  // Simple-typed members (map entries as "name[key]") and array sizes, in
  // save order, a base part's first.
  std::vector<std::pair<std::string, std::string>> values;
  // The values above that hold arrays, by name, element by element: tools
  // summarise long ones and compare them per element.
  std::map<std::string, DdbArray> arrays;
  std::vector<std::string> messages;  // what the library printed while reading it
  // Members records that stopped decoding: "at byte 57 (fesD_FESystemImpl,
  // stream error 3: an identifier longer than 64 bytes)".
  std::vector<std::string> undecoded;
  std::vector<DdbObject> children;
};

// Reads the database `path` down to `depth` levels of objects below the sim
// (-1: all). False when it cannot be opened: *why says so.
bool DdbRead(const std::string& path, int depth, DdbObject* sim, std::string* why,
             const DdbReadOptions& options = DdbReadOptions());

// Reads the object a link text names (every form of the link grammar), and
// `depth` levels of objects below it (-1: all); false with *why when it names
// nothing.
bool DdbReadLink(const std::string& path, const std::string& link, int depth, DdbObject* object,
                 std::string* why, const DdbReadOptions& options = DdbReadOptions());

// The names of every member any class shows as a value, sorted.
std::vector<std::string> DdbValueNames();

// The superblock version of the database `path` as a reader sees it (its
// last commit), -1 when it cannot be opened.
int DdbSuperblockVersion(const std::string& path);

// Every object of the tree, depth first, parents before children.
void DdbVisit(const DdbObject& root, void (*visit)(const DdbObject&, void*), void* context);

#endif  // DDB_TOOLS_DDB_DDB_READER_H_
