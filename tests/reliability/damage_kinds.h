// The damage generator of the reliability suite: kinds of structural damage
// that a copy of a valid database can be given through the HDF5 C API.
//
// Three families, all made from the pristine file itself so that they follow
// the layout when it grows:
//  - every attribute and dataset of the layout (one of each per role: per
//    class of the object that holds it, or per path with element numbers
//    left out) missing, of another type, of another shape, shorter, longer,
//    and datasets with an extent far beyond what is stored;
//  - the service identifiers inside every members record made foreign, of
//    another kind, oversized, or with a damaged length;
//  - chosen values: class identifiers unknown, empty, of another class or
//    unterminated; "#size" negative, huge, zero; members headers that lie;
//    element groups and "#base" missing; the service's format version, set
//    members and distributions inconsistent with each other.
#ifndef DDB_TESTS_RELIABILITY_DAMAGE_KINDS_H_
#define DDB_TESTS_RELIABILITY_DAMAGE_KINDS_H_

#include <hdf5.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

struct DamageKind {
  std::string name;
  std::function<void(hid_t file)> damage;  // given the copy, opened for writing
};

// Every kind of structural damage for the database `pristine` (which must
// hold every class, a service collection with a set and a distribution).
std::vector<DamageKind> StructuralDamageKinds(const std::string& pristine);

// Replaces the members record of the object group `group` by `bytes`.
void PutMembersRecord(hid_t file, const std::string& group,
                      const std::vector<unsigned char>& bytes);

// A members record of records that mostly make sense: member numbers in and
// around a class's range, the tags that occur and some that do not, values
// and maps of plausible sizes, identifiers of every kind and length, and a
// few bytes of noise.
std::vector<unsigned char> RandomMembersRecord(std::mt19937& random);

// The object groups that hold a members record, one per class.
std::vector<std::string> MembersGroups(const std::string& pristine);

#endif  // DDB_TESTS_RELIABILITY_DAMAGE_KINDS_H_
