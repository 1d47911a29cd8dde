#include "platform/hdf/hdf_report.h"

#include <cstring>

#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/hdf/hdf_File.h"
#include "platform/hdf/hdf_Journal.h"

namespace {

// Runs one of HDF5's "get name" calls twice: once for the length, once to fill.
template <class GetName>
cow_String NameOf(GetName getName) {
  ssize_t length = getName(nullptr, 0);
  if (length <= 0) return cow_String("");
  size_t size = static_cast<size_t>(length) + 1;
  char* buffer = static_cast<char*>(mem_OperatorNewThrowBuiltin(size));
  cow_String result;
  if (getName(buffer, size) >= 0) result = cow_String(buffer, static_cast<int>(length));
  mem_Free(buffer);
  return result;
}

bool IsReadOnlyFile(hid_t object) {
  hid_t file = H5Iget_file_id(object);
  if (file < 0) return false;
  unsigned intent = 0;
  bool readOnly = H5Fget_intent(file, &intent) >= 0 && (intent & H5F_ACC_RDWR) == 0;
  H5Fclose(file);
  return readOnly;
}

}  // namespace

cow_String hdf_ObjectPath(hid_t id) {
  return NameOf([id](char* buffer, size_t size) { return H5Iget_name(id, buffer, size); });
}

cow_String hdf_FileName(hid_t id) {
  return NameOf([id](char* buffer, size_t size) { return H5Fget_name(id, buffer, size); });
}

cow_String hdf_AttributeName(hid_t attribute) {
  return NameOf(
      [attribute](char* buffer, size_t size) { return H5Aget_name(attribute, size, buffer); });
}

void hdf_ReportFailure(const char* operation, const char* action, const char* name, hid_t where,
                       bool writing) {
  aio_cerr.print("**ERROR ").print(operation).print(": cannot ").print(action).put(' ');
  if (name != nullptr) aio_cerr.print(name).print(" in ");
  aio_cerr << hdf_ObjectPath(where);
  aio_cerr.print(" of file ") << hdf_FileName(where);
  if (writing && IsReadOnlyFile(where)) {
    aio_cerr.print(": file is read-only");
  } else if (strcmp(action, "flush") == 0 && hdf_Journal::LastFailure() != nullptr) {
    aio_cerr.print(": ").print(hdf_Journal::LastFailure());  // why the commit failed
  }
  aio_cerr.put('\n');
}
