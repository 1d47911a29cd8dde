#include "platform/service/QELSimManager.h"

#include <sys/stat.h>

#include "platform/service/QELSimStorage.h"

namespace {

// Registers a new context on a freshly opened file.
QELSimContextID AddFile(const hdf_File& file, const char* name, bool readOnly,
                        const char* operation) {
  if (!file.IsValid()) return QELSimContextID();  // the wrapper has said why
  struct stat info;
  if (stat(name, &info) != 0) {  // removed under our feet
    QELSimError(operation).print("file ").print(name).print(" vanished after opening\n");
    return QELSimContextID();
  }
  QELSimStorage* storage = new QELSimStorage(file, info.st_dev, info.st_ino, !readOnly);
  storage->CheckFormat(operation);  // a foreign format is reported; the sim may still be read
  return QELSimContextID(QELSimAddContext(storage, readOnly));
}

}  // namespace

namespace {
unsigned FileOptions(int option) {
  return (option & QELSimManager::SyncCommits) != 0 ? hdf_File::SyncCommits : hdf_File::NoOptions;
}
}  // namespace

QELSimContextID QELSimManager::CreateContext(const char* name, hdf_File::CreateFlags flags, int,
                                             bool, int option) {
  hdf_File file = hdf_File::Create(name, flags, FileOptions(option));
  return AddFile(file, name, false, "QELSimManager::CreateContext");
}

QELSimContextID QELSimManager::OpenContext(const char* name, hdf_File::OpenFlags flags, int, bool,
                                           int option) {
  bool readOnly = flags == hdf_File::ReadOnly;
  struct stat info;
  int other = -1;
  QELSimStorage* open = name != nullptr && stat(name, &info) == 0
                            ? QELSimFindFile(info.st_dev, info.st_ino, &other)
                            : nullptr;
  if (open != nullptr) {
    // One context writes a file: two would each keep their own objects
    // over it, and only the last to write would count.
    if (!readOnly) {
      QELSimError("QELSimManager::OpenContext")
          .print("cannot open file ")
          .print(name)
          .print(open->Writable() ? " for update: it is open for update in context "
                                  : " for update: it is open read-only in context ")
          .print_int(other)
          .put('\n');
      return QELSimContextID();
    }
    return QELSimContextID(QELSimAddContext(open, readOnly));
  }
  hdf_File file = hdf_File::Open(name, flags, FileOptions(option));
  return AddFile(file, name, readOnly, "QELSimManager::OpenContext");
}

void QELSimManager::CloseContext(QELSimContextID context) {
  if (context.IsNull()) return;
  if (!QELSimRemoveContext(context.Number())) {
    QELSimError("QELSimManager::CloseContext")
        .print("no open context ")
        .print_int(context.Number())
        .put('\n');
  }
}

QELSimContextRef::QELSimContextRef(const QELSimContextID& context) : m_context(context) {}

hdf_File QELSimContextRef::File() const {
  if (m_context.IsNull()) return hdf_File();
  QELSimStorage* storage = QELSimUseContext(m_context.Number(), false, "QELSimContextRef::File");
  return storage != nullptr ? storage->File() : hdf_File();
}

bool QELSimContextRef::IsReadOnly() const {
  bool readOnly = false;
  return QELSimFindContext(m_context.Number(), &readOnly) != nullptr && readOnly;
}
