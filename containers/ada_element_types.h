// The twelve element types for which the containers are exported.
//
// This table is the one place that names them: each container's source
// file expands it to produce its explicit instantiations, and each header
// to declare them, so adding a type is a one-line change here.
#ifndef DDB_CONTAINERS_ADA_ELEMENT_TYPES_H_
#define DDB_CONTAINERS_ADA_ELEMENT_TYPES_H_

#include <cstdint>

#include "containers/ada_none.h"
#include "containers/ada_string.h"
#include "platform/service/QELSimIDs.h"

// The signed 64-bit element type.
typedef int64_t ada_int64;

#define ADA_FOR_EACH_ELEMENT_TYPE(X) \
  X(QELSimDSetID)                    \
  X(QELSimDistributionID)            \
  X(QELSimCSetID)                    \
  X(QELSimCollectionID)              \
  X(ada_string)                      \
  X(double)                          \
  X(float)                           \
  X(ada_int64)                       \
  X(int)                             \
  X(unsigned char)                   \
  X(bool)                            \
  X(ada_none)

#endif  // DDB_CONTAINERS_ADA_ELEMENT_TYPES_H_
