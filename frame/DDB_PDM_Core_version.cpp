#include "frame/DDB_PDM_Core_version.h"

const char* DDB_PDM_Core_version() {
  return DDB_PDM_CORE_VERSION_TEXT;
}
