// The schema classes described to programs that walk any object without
// naming its members: the ddb tool, the test walkers, checkers.
//
// The generator writes, at the end of each class's header, a specialization
// gbb_Reflection<X> made from the class's member table:
//
//   static constexpr const char* kName;            // "X"
//   static gbb_Class Class();                      // XInterface::StaticClass()
//   static constexpr int kCount;                   // the number of members
//   static constexpr gbb_MemberInfo kMembers[];    // save order, a base part first
//   template <class V> static void Visit(const X& object, V&& visitor);
//
// Visit reads each member through its getter, in save order, and hands it
// to one of the visitor's five calls:
//
//   visitor.Base(member, const TBase& part)        a derived class's base part
//   visitor.Simple(member, const T& value)         a value, an identifier or a map
//   visitor.Subobject(member, const TSub& handle)  an owned sub-object (empty when absent)
//   visitor.Array(member, const TArray& array)     a persistent array (count(), get(i))
//   visitor.Service(member, const TService& s)     a member the sim answers itself
//
// Each member is read when the visit reaches it, so what the library prints
// while loading a member falls between the visitor's calls in save order.
// The root class's reflection also names, as `Classes`, itself and every
// class its schema snapshot registers: the classes an object of one database
// can have, among which gbb_VisitAsOwnClass finds an object's own.
//
// Why templates and a visitor rather than a table of accessors: the
// members' types differ (maps of several kinds, handles of each class), and
// the visitor is compiled against them, so nothing is converted or boxed.
#ifndef DDB_PERSISTENCE_GBB_REFLECTION_H_
#define DDB_PERSISTENCE_GBB_REFLECTION_H_

#include <type_traits>

#include "persistence/gbb_Class.h"
#include "persistence/gbb_Handle.h"

// What a member is. The simple-typed members of a table come in three
// kinds, by type: a plain value (int, double, ada_string), an identifier of
// the simulation-database service (QELSimCollectionID, QELSimCSetID,
// QELSimDistributionID) and a map.
enum class gbb_MemberKind { kValue, kIdentifier, kMap, kSubobject, kArray, kService, kBase };

struct gbb_MemberInfo {
  const char* name;  // as in the table; "#base" for the base part (its group)
  gbb_MemberKind kind;
  const char* type;  // the C++ type; the class for sub-objects, arrays and the base part
  int index;         // the member index (tag and path step); -1 for the base part
};

// Defined by the generator for each schema class.
template <class X>
struct gbb_Reflection;

// A list of schema classes (gbb_Reflection<Root>::Classes).
template <class... X>
struct gbb_ClassList {};

// Calls visitor.Object(x) with the handle of the class the object `handle`
// designates was made as (exactly that class, not a base), when it is among
// `classes`; false when it is not.
template <class V, class... X>
bool gbb_VisitAsOwnClass(const gbb_Handle& handle, gbb_ClassList<X...>, V&& visitor) {
  bool found = false;
  auto attempt = [&](auto* tag) {
    typedef std::remove_pointer_t<decltype(tag)> C;
    if (found || handle.Class() != gbb_Reflection<C>::Class()) return;
    found = true;
    visitor.Object(C(handle));
  };
  (attempt(static_cast<X*>(nullptr)), ...);
  return found;
}

#endif  // DDB_PERSISTENCE_GBB_REFLECTION_H_
