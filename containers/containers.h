// The core containers: string, list, balanced search tree and maps.
#ifndef DDB_CONTAINERS_CONTAINERS_H_
#define DDB_CONTAINERS_CONTAINERS_H_

#include "containers/ada_List.h"
#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "containers/ada_element_types.h"
#include "containers/ada_none.h"
#include "containers/ada_string.h"
#include "containers/omi_Btree.h"
#include "containers/omi_BtreeCompare.h"

#endif  // DDB_CONTAINERS_CONTAINERS_H_
