// Workload for tests and benchmarks: reads the nodes and elements of a finite-element
// input deck in keyword format (*NODE, *ELEMENT, *INCLUDE; plain or gzip) and
// derives per-node DOF activity masks from the element types.
//
// Mask by element type name prefix (case-insensitive):
//   C3D, CPS, CPE, CAX (solids) and T2D, T3D (trusses): translations, labels 1-3;
//   S (shells) and B (beams): translations and rotations, labels 1-6.
// The node count of an element comes from the type name (C3D20R: 20, S8: 8,
// T3D2: 2, B31: 2, B32: 3), so records split over several lines read right.
// Blocks of other element types are skipped and counted.
#ifndef DDB_TOOLS_WORKLOAD_FE_DECK_H_
#define DDB_TOOLS_WORKLOAD_FE_DECK_H_

#include <string>
#include <vector>

struct FeDeck {
  std::vector<int> nodeLabels;  // user label of each node, in order of definition
  std::vector<int> masks;       // activity mask of each node (0 if no element uses it)
  int elements = 0;
  int skippedElementBlocks = 0;
  int undefinedNodeReferences = 0;  // element nodes no *NODE line defines
};

// The mask of an element type and its node count; false for types not known.
bool FeDeckElementType(const std::string& type, int* mask, int* nodesPerElement);

// Reads `path` (and the files it includes, relative to its folder). On
// failure returns false with a reason in `error`.
bool ReadFeDeck(const std::string& path, FeDeck* deck, std::string* error);

// The deck folder: $DDB_FE_DECKS if set, else the build's default; empty if
// the folder does not exist.
std::string FeDeckFolder();

#endif  // DDB_TOOLS_WORKLOAD_FE_DECK_H_
