// An outside client: only the installed umbrella header and the package.
#include <DDB_PDM_Core/DDB_PDM_Core.h>

int main() {
  int count = 0;
  DDB_PDM_Core_initialize(count);
  ada_List<int> list;
  list.append(7, 3);
  void* block = mem_OperatorNewThrowBuiltin(16);
  mem_Free(block);
  hid_t type = H5T_NATIVE_INT;  // <hdf5.h> comes with the package
  (void)type;
  DDB_PDM_Core_finalize(count);
  return (list.count() == 3 && count == 0) ? 0 : 1;
}
