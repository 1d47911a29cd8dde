// Everything the generated schema classes build on, in one include.
#ifndef DDB_PERSISTENCE_GBB_SCHEMA_H_
#define DDB_PERSISTENCE_GBB_SCHEMA_H_

#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "containers/ada_string.h"
#include "persistence/gbb_Array.h"
#include "persistence/gbb_AutoArray.h"
#include "persistence/gbb_Class.h"
#include "persistence/gbb_DistributionService.h"
#include "persistence/gbb_Group.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_HolderBase.h"
#include "persistence/gbb_MemberRecords.h"
#include "persistence/gbb_MemoryStream.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_Reflection.h"
#include "persistence/gbb_SchemaFamily.h"
#include "persistence/gbb_SchemaSnapshot.h"
#include "persistence/gbb_SchemaSupport.h"
#include "persistence/gbb_TraverseContext.h"
#include "persistence/gbb_TypedLink.h"
#include "platform/core/aio_ostream.h"
#include "platform/service/QELSimIDs.h"

#endif  // DDB_PERSISTENCE_GBB_SCHEMA_H_
