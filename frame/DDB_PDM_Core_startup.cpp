#include "frame/DDB_PDM_Core_startup.h"

#include "platform/core/startup_counter.h"
#include "platform/core/suite_startup.h"

namespace {
// Plain zero-initialised counters: nothing runs when the library is loaded.
int g_library = 0;
int g_ada = 0;
int g_gbb = 0;
int g_fesD = 0;
int g_msfD = 0;
}  // namespace

// The modules register and allocate nothing at start-up; they only count.
void ada_initialize(int& count) {
  StartupIncrement(g_ada, count);
}
void ada_finalize(int& count) {
  StartupDecrement(g_ada, count);
}
void gbb_initialize(int& count) {
  StartupIncrement(g_gbb, count);
}
void gbb_finalize(int& count) {
  StartupDecrement(g_gbb, count);
}
void fesD_initialize(int& count) {
  StartupIncrement(g_fesD, count);
}
void fesD_finalize(int& count) {
  StartupDecrement(g_fesD, count);
}
void msfD_initialize(int& count) {
  StartupIncrement(g_msfD, count);
}
void msfD_finalize(int& count) {
  StartupDecrement(g_msfD, count);
}

void DDB_PDM_Core_initialize(int& count) {
  if (!StartupIncrement(g_library, count)) return;
  UTI_CoreUtils_initialize(count);
  UTI_BasicUtils_initialize(count);
  UTI_QELSimDynamicAPI_initialize(count);
  DDB_HdxInterface_initialize(count);
  ada_initialize(count);
  gbb_initialize(count);
  fesD_initialize(count);
  msfD_initialize(count);
}

void DDB_PDM_Core_finalize(int& count) {
  if (!StartupDecrement(g_library, count)) return;
  msfD_finalize(count);
  fesD_finalize(count);
  gbb_finalize(count);
  ada_finalize(count);
  DDB_HdxInterface_finalize(count);
  UTI_QELSimDynamicAPI_finalize(count);
  UTI_BasicUtils_finalize(count);
  UTI_CoreUtils_finalize(count);
}
