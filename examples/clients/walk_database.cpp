// Opens a database read-only and walks it: every object is read from the
// file when it is first touched.
//
//   walk_database FILE
#include <DDB_PDM_Core/DDB_PDM_Core.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: walk_database FILE\n");
    return 2;
  }
  int count = 0;
  DDB_PDM_Core_initialize(count);
  int status = 1;
  {
    msfD_Root root(0);
    msfD_Sim sim = root.openSimReadOnly(argv[1], "", 0);  // only the sim is read here
    msfD_Mesh mesh = !sim ? msfD_Mesh() : sim.discreteModel().mesh();
    if (!!mesh) {
      std::printf("mesh: %d nodes, %d node sets\n", QELSimCollectionRef(mesh.nodes()).Size(),
                  mesh.nodeSets().count());
      auto systems = mesh.systems();
      for (int i = 0; i < systems.count(); ++i) {
        fesD_FESystem system = systems.get(i);  // opened on first use, by its stored class
        fesD_ModalSystem modal(system);         // empty unless it is a modal system
        std::printf("system %d: %s%s\n", i, system.systemName().cStr(), !modal ? "" : " (modal)");
      }
      status = 0;
    }
  }
  DDB_PDM_Core_finalize(count);
  return status;
}
