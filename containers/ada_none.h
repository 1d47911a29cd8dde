// ada_none: the value type of nothing. A map to ada_none is a set; a list of
// ada_none only counts (each slot still takes one byte of storage).
#ifndef DDB_CONTAINERS_ADA_NONE_H_
#define DDB_CONTAINERS_ADA_NONE_H_

struct ada_none {};

#endif  // DDB_CONTAINERS_ADA_NONE_H_
