// Test helper: reads a whole database through the library, the way a host
// that trusts nothing would: every getter of every object, every element of
// every array, every entry of every map, and every identifier asked of the
// service (collection sizes, set members, distribution values).
//
// What was read comes back as text, one line per value, so that walks of two
// files can be compared; what the library printed while reading an object
// comes after its values as lines "<object>.! <message>" (nothing is printed).
#ifndef DDB_TESTS_RELIABILITY_WALK_H_
#define DDB_TESTS_RELIABILITY_WALK_H_

#include <string>

// Opens `path` read-only with a root of its own and walks it all; "" when
// the database does not open.
std::string WalkDatabase(const std::string& path);

#endif  // DDB_TESTS_RELIABILITY_WALK_H_
