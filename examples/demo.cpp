// A host program: starts the library, uses its containers, shuts it down.
#include <DDB_PDM_Core.h>

#include <cstdio>

int main() {
  int count = 0;
  DDB_PDM_Core_initialize(count);
  std::printf("library started: %d components brought up\n", count);

  ada_List<ada_string> names;
  names.append(ada_string("nodes"), 1);
  names.append(ada_string("elements"), 1);
  names.append(ada_string("faces"), 1);
  std::printf("list of %d names (capacity %d):", names.count(), names.capacity());
  for (int i = 0; i < names.count(); ++i) std::printf(" %s", names[i].cStr());
  std::printf("\n");

  ada_List<int> labels;
  for (int i = 1; i <= 5; ++i) labels.append(i * 10, 1);
  ada_List<int> copy(labels);
  std::printf("labels copied: count %d, capacity %d (source capacity %d)\n", copy.count(),
              copy.capacity(), labels.capacity());

  std::printf("an out-of-range index reports on the error stream:\n");
  std::fflush(stdout);
  (void)labels[7];
  aio_cerr.flush();

  DDB_PDM_Core_finalize(count);
  std::printf("library stopped: count back to %d\n", count);
  return 0;
}
