// The library frame: start-up and shut-down.
#ifndef DDB_FRAME_FRAME_H_
#define DDB_FRAME_FRAME_H_

#include "frame/DDB_PDM_Core_startup.h"

#endif  // DDB_FRAME_FRAME_H_
