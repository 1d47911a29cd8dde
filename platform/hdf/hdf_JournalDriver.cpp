#include "platform/hdf/hdf_JournalDriver.h"

#include <cstdlib>
#include <functional>
#include <new>

#include "platform/hdf/hdf_Journal.h"

namespace {

// The driver's part of a file access property list.
struct Config {
  unsigned durable;
};

// HDF5's file structure first, then ours. Each open has a journal of its
// own: a reader its own snapshot, so HDF5 must never take two opens of one
// file for the same (see Compare).
struct JournalFile {
  H5FD_t base;
  hdf_Journal* journal;
  bool durable;
  haddr_t eoa;
};

const haddr_t kMaxAddress = (haddr_t(1) << 63) - 1;

hid_t g_driver = H5I_INVALID_HID;
const char* g_lastFailure = nullptr;

JournalFile* Of(H5FD_t* file) {
  return reinterpret_cast<JournalFile*>(file);
}
const JournalFile* Of(const H5FD_t* file) {
  return reinterpret_cast<const JournalFile*>(file);
}

// No exception may unwind into HDF5's C code.
template <class F>
herr_t Guarded(F body) {
  try {
    return body() ? 0 : -1;
  } catch (...) {
    return -1;
  }
}

herr_t Terminate() {
  g_driver = H5I_INVALID_HID;
  return 0;
}

void* CopyConfig(const Config& config) {
  Config* copy = static_cast<Config*>(malloc(sizeof(Config)));
  if (copy != nullptr) *copy = config;
  return copy;
}

void* FaplGet(H5FD_t* file) {
  return CopyConfig(Config{Of(file)->durable ? 1u : 0u});
}
void* FaplCopy(const void* config) {
  return CopyConfig(*static_cast<const Config*>(config));
}
herr_t FaplFree(void* config) {
  free(config);
  return 0;
}

hdf_Journal::Mode ModeOf(unsigned flags) {
  if ((flags & H5F_ACC_RDWR) == 0) return hdf_Journal::kReadOnly;
  if ((flags & H5F_ACC_TRUNC) != 0) return hdf_Journal::kCreateTruncate;
  if ((flags & H5F_ACC_EXCL) != 0) return hdf_Journal::kCreateExclusive;
  return hdf_Journal::kReadWrite;
}

H5FD_t* Open(const char* name, unsigned flags, hid_t fileAccess, haddr_t maxaddr) {
  g_lastFailure = nullptr;
  if (name == nullptr || name[0] == '\0' || maxaddr == 0 ||
      (maxaddr != HADDR_UNDEF && maxaddr > kMaxAddress)) {
    return nullptr;
  }
  try {
    const Config* config = static_cast<const Config*>(H5Pget_driver_info(fileAccess));
    bool durable = config != nullptr && config->durable != 0;
    const char* reason = nullptr;
    hdf_Journal* journal = hdf_Journal::Open(name, ModeOf(flags), durable, &reason);
    if (journal == nullptr) {
      g_lastFailure = reason;
      return nullptr;
    }
    JournalFile* file = new (std::nothrow) JournalFile();
    if (file == nullptr) {
      hdf_Journal::Release(journal);
      return nullptr;
    }
    file->journal = journal;
    file->durable = durable;
    file->eoa = 0;
    return &file->base;
  } catch (...) {
    return nullptr;
  }
}

herr_t Close(H5FD_t* base) {
  JournalFile* file = Of(base);
  herr_t result = Guarded([file] { return hdf_Journal::Release(file->journal); });
  delete file;
  return result;
}

// Two opens are one file for HDF5 only when they are one journal: two
// snapshots of a database are two files, each with its own cache.
int Compare(const H5FD_t* a, const H5FD_t* b) {
  std::less<const hdf_Journal*> before;
  const hdf_Journal* x = Of(a)->journal;
  const hdf_Journal* y = Of(b)->journal;
  return before(x, y) ? -1 : before(y, x) ? 1 : 0;
}

herr_t Query(const H5FD_t*, unsigned long* flags) {
  if (flags != nullptr) {
    *flags = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA | H5FD_FEAT_DATA_SIEVE |
             H5FD_FEAT_AGGREGATE_SMALLDATA | H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
  }
  return 0;
}

haddr_t GetEoa(const H5FD_t* file, H5FD_mem_t) {
  return Of(file)->eoa;
}

herr_t SetEoa(H5FD_t* file, H5FD_mem_t, haddr_t address) {
  if (address > kMaxAddress) return -1;
  Of(file)->eoa = address;
  return 0;
}

haddr_t GetEof(const H5FD_t* file, H5FD_mem_t) {
  return Of(file)->journal->EndOfFile();
}

herr_t GetHandle(H5FD_t* file, hid_t, void** handle) {
  if (handle == nullptr) return -1;
  *handle = Of(file)->journal->DatabaseDescriptor();
  return 0;
}

// Like HDF5's own POSIX driver, nothing beyond the allocated end is touched.
bool InsideAllocation(const JournalFile* file, haddr_t address, size_t size) {
  return address != HADDR_UNDEF && address <= file->eoa && size <= file->eoa - address;
}

herr_t Read(H5FD_t* base, H5FD_mem_t, hid_t, haddr_t address, size_t size, void* bytes) {
  JournalFile* file = Of(base);
  return Guarded([&] {
    return InsideAllocation(file, address, size) && file->journal->Read(address, size, bytes);
  });
}

herr_t Write(H5FD_t* base, H5FD_mem_t, hid_t, haddr_t address, size_t size, const void* bytes) {
  JournalFile* file = Of(base);
  return Guarded([&] {
    return InsideAllocation(file, address, size) && file->journal->Write(address, size, bytes);
  });
}

herr_t Flush(H5FD_t* base, hid_t, hbool_t) {
  hdf_Journal* journal = Of(base)->journal;
  return Guarded([journal] { return !journal->Writable() || journal->Commit(); });
}

herr_t Truncate(H5FD_t* base, hid_t, hbool_t) {
  JournalFile* file = Of(base);
  return Guarded(
      [file] { return !file->journal->Writable() || file->journal->Truncate(file->eoa); });
}

// Constant-initialised: nothing runs when the library is loaded.
const H5FD_class_t kJournalClass = {"ddb_journal",
                                    kMaxAddress,
                                    H5F_CLOSE_WEAK,
                                    Terminate,
                                    nullptr,  // sb_size: no driver information in the superblock
                                    nullptr,
                                    nullptr,
                                    sizeof(Config),
                                    FaplGet,
                                    FaplCopy,
                                    FaplFree,
                                    0,  // no transfer properties
                                    nullptr,
                                    nullptr,
                                    Open,
                                    Close,
                                    Compare,
                                    Query,
                                    nullptr,  // get_type_map
                                    nullptr,  // alloc: HDF5's own
                                    nullptr,  // free
                                    GetEoa,
                                    SetEoa,
                                    GetEof,
                                    GetHandle,
                                    Read,
                                    Write,
                                    Flush,
                                    Truncate,
                                    nullptr,  // lock: the journal holds its own lock
                                    nullptr,
                                    H5FD_FLMAP_DICHOTOMY};

hid_t DriverId() {
  if (g_driver < 0 || H5Iis_valid(g_driver) <= 0) g_driver = H5FDregister(&kJournalClass);
  return g_driver;
}

}  // namespace

bool hdf_JournalDriver::Use(hid_t fileAccess, bool durable) {
  hid_t driver = DriverId();
  Config config{durable ? 1u : 0u};
  return driver >= 0 && H5Pset_driver(fileAccess, driver, &config) >= 0;
}

const char* hdf_JournalDriver::LastFailure() {
  return g_lastFailure;
}
