#include "platform/core/suite_startup.h"

#include "platform/core/startup_counter.h"

namespace {
int g_coreUtils = 0;
int g_basicUtils = 0;
int g_qelSimDynamicApi = 0;
int g_hdxInterface = 0;
}  // namespace

void UTI_CoreUtils_initialize(int& count) {
  StartupIncrement(g_coreUtils, count);
}
void UTI_CoreUtils_finalize(int& count) {
  StartupDecrement(g_coreUtils, count);
}
void UTI_BasicUtils_initialize(int& count) {
  StartupIncrement(g_basicUtils, count);
}
void UTI_BasicUtils_finalize(int& count) {
  StartupDecrement(g_basicUtils, count);
}
void UTI_QELSimDynamicAPI_initialize(int& count) {
  StartupIncrement(g_qelSimDynamicApi, count);
}
void UTI_QELSimDynamicAPI_finalize(int& count) {
  StartupDecrement(g_qelSimDynamicApi, count);
}
void DDB_HdxInterface_initialize(int& count) {
  StartupIncrement(g_hdxInterface, count);
}
void DDB_HdxInterface_finalize(int& count) {
  StartupDecrement(g_hdxInterface, count);
}
