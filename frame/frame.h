// The library frame: start-up and shut-down, and the library's version.
#ifndef DDB_FRAME_FRAME_H_
#define DDB_FRAME_FRAME_H_

#include "frame/DDB_PDM_Core_startup.h"
#include "frame/DDB_PDM_Core_version.h"

#endif  // DDB_FRAME_FRAME_H_
