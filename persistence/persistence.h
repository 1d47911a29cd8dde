// The persistence framework: handles, holders, classes, paths, links,
// the memory stream, persistent arrays and storage groups.
#ifndef DDB_PERSISTENCE_PERSISTENCE_H_
#define DDB_PERSISTENCE_PERSISTENCE_H_

#include "persistence/gbb_Array.h"
#include "persistence/gbb_AutoArray.h"
#include "persistence/gbb_Class.h"
#include "persistence/gbb_DistributionService.h"
#include "persistence/gbb_Group.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_HolderBase.h"
#include "persistence/gbb_Link.h"
#include "persistence/gbb_MemberRecords.h"
#include "persistence/gbb_MemoryStream.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_Reflection.h"
#include "persistence/gbb_SchemaSnapshot.h"
#include "persistence/gbb_SchemaSupport.h"
#include "persistence/gbb_TraverseContext.h"
#include "persistence/gbb_TypedLink.h"

#endif  // DDB_PERSISTENCE_PERSISTENCE_H_
