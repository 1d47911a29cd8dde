#include "persistence/gbb_SchemaSupport.h"

#include <cstdio>

#include "persistence/gbb_Link.h"
#include "persistence/gbb_SchemaSnapshot.h"

gbb_Members::~gbb_Members() {}

void gbb_Members::verify() {}

void gbb_ReportEmptyHandle(const char* qualifiedName) {
  aio_cerr.print("**ERROR ").print(qualifiedName).print(": called on an empty handle\n");
}

void gbb_ReportEmptyHandle(const char* className, const char* operation) {
  aio_cerr.print("**ERROR ").print(className).print("::").print(operation);
  aio_cerr.print(": called on an empty handle\n");
}

gbb_FamilyNames::gbb_FamilyNames(const char* className) {
  std::snprintf(holder, sizeof holder, "%sHolder", className);
  std::snprintf(impl, sizeof impl, "%sImpl", className);
  std::snprintf(access, sizeof access, "%sAccess", className);
  std::snprintf(members, sizeof members, "%sMembers", className);
}

gbb_ObjectInterface* gbb_OpenByClass(gbb_Path parent, int index, const gbb_Group& group,
                                     int traceFlag, gbb_Class expected, const char* holderName,
                                     bool* failed) {
  *failed = true;
  gbb_SimpleLink link(parent, "#/schemaSnapshot");
  gbb_SchemaSnapshot snapshot(link.Get(0));
  gbb_ClassID id = group.ReadClassID();
  gbb_Class cls = snapshot.GetClass(id);
  if (cls.IsNull()) {
    aio_cerr.print("**ERROR ").print(holderName).print("::Open: class ");
    aio_cerr << id;
    aio_cerr.print(" is not registered\n");
    return nullptr;
  }
  if (!cls.IsA(expected)) {
    aio_cerr.print("**ERROR ").print(holderName).print("::Open: unrelated class ");
    aio_cerr << id;
    aio_cerr.print("\n");
    return nullptr;
  }
  *failed = false;
  return cls.Open(parent, index, group, traceFlag);
}

gbb_DistributionService gbb_ResolveService(gbb_Path path) {
  gbb_SimpleLink link(path, "#/distributionService");
  return gbb_DistributionService(link.Get(0));
}

void gbb_StoreMembers(const gbb_Group& group, gbb_MemoryStream& stream, const char* implName) {
  if (stream.Status() != 0) {
    aio_cerr.print("**ERROR ").print(implName).print("::SaveMembers: error ");
    aio_cerr.print_int(stream.Status()).print(" saving class data\n");
    return;
  }
  gbb_MembersBuffer bytes(stream.GetBuffer());
  group.OpenDataset(kMembersDataset).Write(&bytes[0], bytes.count(), 0);
}

gbb_MembersBuffer::gbb_AutoArrayMoveSrc gbb_FetchMembers(const gbb_Group& group) {
  gbb_MembersBuffer bytes;
  int size = 0;
  int got = group.OpenDataset(kMembersDataset).ReadWhole([&](int length) -> void* {
    size = length;
    bytes.append(static_cast<unsigned char>(0), length);
    return &bytes[0];
  });
  if (got < size) bytes.truncate(size - got);
  return bytes;
}

namespace {

// The failures since the last gbb_TakeLoadFailures (the library runs on one thread).
gbb_LoadFailure s_failures[16];
int s_failureCount = 0;

}  // namespace

void gbb_ReportLoadError(const char* implName, int status, int offset) {
  aio_cerr.print("**ERROR ").print(implName).print("::LoadMembers: error ");
  aio_cerr.print_int(status).print(" loading class data\n");
  if (s_failureCount < 16) s_failures[s_failureCount++] = {implName, status, offset};
}

int gbb_TakeLoadFailures(gbb_LoadFailure* failures, int capacity) {
  int n = s_failureCount < capacity ? s_failureCount : capacity;
  for (int i = 0; i < n; ++i) failures[i] = s_failures[i];
  s_failureCount = 0;
  return n;
}
