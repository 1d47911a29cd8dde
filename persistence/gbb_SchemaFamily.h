// The part of every schema class family that does not depend on its members.
//
// A schema class X comes as a family of seven classes: the handle X, the
// owning holder XHolder and its move token XHolderMoveSrc, the editing object
// XAccess, the value record XMembers, the implementation XImpl and the
// abstract interface XInterface. The generator writes per class only what
// needs the class's member names (the value record, getters and setters,
// the member lists that saving, loading and traversal walk, sub-object and
// array accessors) and the few lines where a derived class or the root
// object differs. Everything else is written here once, as templates over
// the class's family record, which the generator also writes:
//
//   struct XFamily {
//     typedef X Handle;           typedef XHolder Holder;
//     typedef XImpl Object;       typedef XInterface Outer;
//     typedef XMembers Record;    // gbb_Members when X has no simple member
//     static constexpr const char kName[] = "X";
//     enum MemberIndex { kA = 0, ... };  // the member indices
//   };
//
// The templates are implicitly instantiated where they are used (in the
// library and in clients alike); they call only the generated classes and
// the library's exported functions. Every message keeps the class's own
// names ("XHolder::Bind", "XImpl::LoadMembers", ...), made from kName once.
#ifndef DDB_PERSISTENCE_GBB_SCHEMAFAMILY_H_
#define DDB_PERSISTENCE_GBB_SCHEMAFAMILY_H_

#include "persistence/gbb_SchemaAccess.h"
#include "persistence/gbb_SchemaHandle.h"
#include "persistence/gbb_SchemaHolder.h"
#include "persistence/gbb_SchemaImpl.h"

#endif  // DDB_PERSISTENCE_GBB_SCHEMAFAMILY_H_
