#include "platform/hdf/hdf_File.h"

#include <sys/stat.h>

#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/hdf/hdf_Journal.h"
#include "platform/hdf/hdf_JournalDriver.h"
#include "platform/hdf/hdf_report.h"

namespace {

// Plain values: constant-initialised, nothing runs at load.
bool g_flushAfterWrites = true;
bool g_journaling = true;
int g_batchDepth = 0;
// The files that open batches flush at their end (one each), innermost last.
const int kMaxBatchFiles = 8;
unsigned long g_batchFiles[kMaxBatchFiles];
int g_batchFileCount = 0;
// Files written while a batch was open that no open batch flushes: flushed
// when the last batch ends, so that no commit is left behind.
const int kMaxDeferred = 8;
hid_t g_deferred[kMaxDeferred];
unsigned long g_deferredNumbers[kMaxDeferred];
int g_deferredCount = 0;

// Each flush makes HDF5 walk its whole metadata cache, clean entries too, so
// with HDF5's default cache (which grows to megabytes) flushing after every
// write gets slower as a file grows: 10,000 small objects took minutes. A
// small fixed cache keeps a flush proportional to what changed; the operating
// system still caches the file itself, so reading loses little.
const size_t kMetadataCacheBytes = 128 * 1024;

// The file format: HDF5's 1.8 format for everything the library creates.
// Its groups keep their links in a fractal heap indexed by a B-tree of name
// hashes (small groups in their object header), where the original format
// keeps every name of a group in one local heap that each commit rewrites
// whole and each lookup reads: a commit there costs O(objects in the group)
// (a 90 KB heap written per commit at 10,000 systems). The 1.10 format would index a
// one-chunk dataset more compactly, but its superblock carries a "file is
// open for writing" flag: every state the journal commits is written while
// the file is open, so a killed writer would leave a file that HDF5 then
// refuses to open (even with its file locking off). Files of the original
// format still open and update (new objects in them take the 1.8 form).
const H5F_libver_t kFormat = H5F_LIBVER_V18;

// Half the fan-out of the B-tree that indexes a chunked dataset's chunks.
// Every object's members dataset has one: with HDF5's default (32) its
// root node is 2 KB, more than the object's 1 KB chunk and the rest of its
// metadata together (3.7 KB per FE system); with 4 it is 304 bytes (1.9 KB
// per system). A 3 MB record (3,000 chunks) then costs 21% more to write and
// read (callgrind), a rare size beside the usual one chunk.
const unsigned kChunkIndexK = 4;

// The metadata cache of every file (see kMetadataCacheBytes).
bool ConfigureCache(hid_t fileAccess) {
  H5AC_cache_config_t config;
  config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
  if (H5Pget_mdc_config(fileAccess, &config) < 0) return false;
  config.set_initial_size = true;
  config.initial_size = kMetadataCacheBytes;
  config.min_size = kMetadataCacheBytes;
  config.max_size = kMetadataCacheBytes;
  config.incr_mode = H5C_incr__off;
  config.flash_incr_mode = H5C_flash_incr__off;
  config.decr_mode = H5C_decr__off;
  return H5Pset_mdc_config(fileAccess, &config) >= 0;
}

// Cache, format and (while journaling is on) the journal driver.
bool ConfigureAccessList(hid_t fileAccess, unsigned options) {
  if (!ConfigureCache(fileAccess)) return false;
  if (H5Pset_libver_bounds(fileAccess, kFormat, kFormat) < 0) return false;
  return !g_journaling ||
         hdf_JournalDriver::Use(fileAccess, (options & hdf_File::SyncCommits) != 0);
}

// The property list of a Create or Open, made once per setting (journal or
// not, synced or not) and kept by HDF5 until it closes: making one costs as
// much as a fifth of opening a small database. Invalid when HDF5 cannot make
// one: then nothing is opened, since a file opened without its journal would
// lose crash consistency unnoticed.
hdf_Id AccessList(unsigned options) {
  static hid_t lists[2][2] = {{H5I_INVALID_HID, H5I_INVALID_HID},
                              {H5I_INVALID_HID, H5I_INVALID_HID}};
  hid_t& list = lists[g_journaling ? 1 : 0][(options & hdf_File::SyncCommits) != 0 ? 1 : 0];
  if (list < 0 || H5Iis_valid(list) <= 0) {
    list = H5Pcreate(H5P_FILE_ACCESS);
    if (list >= 0 && !ConfigureAccessList(list, options)) {
      H5Pclose(list);
      list = H5I_INVALID_HID;
    }
  }
  return list >= 0 ? hdf_Id::Borrow(list) : hdf_Id();
}

hdf_Id CreationList() {
  hdf_Id list = hdf_Id::Own(H5Pcreate(H5P_FILE_CREATE));
  if (!list.IsValid() || !hdf_File::ConfigureCreation(list.Get())) return hdf_Id();
  return list;
}

void ReportFile(const char* operation, const char* action, const char* name, const char* reason) {
  aio_cerr.print("**ERROR ").print(operation).print(": cannot ").print(action).print(" file ");
  aio_cerr.print(name);
  if (reason != nullptr) aio_cerr.print(": ").print(reason);
  aio_cerr.put('\n');
}

// The directory part of `name` exists ("" and "x" live in the current one).
bool DirectoryExists(const char* name) {
  const char* slash = nullptr;
  for (const char* p = name; *p != '\0'; ++p) {
    if (*p == '/') slash = p;
  }
  if (slash == nullptr) return true;
  if (slash == name) return true;  // "/x"
  cow_String directory(name, static_cast<int>(slash - name));
  struct stat info;
  return stat(directory.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Why `name` cannot be opened, as far as it can be told without opening it.
const char* WhyNotOpenable(const char* name) {
  struct stat info;
  if (stat(name, &info) != 0) return "no such file";
  if (S_ISDIR(info.st_mode)) return "it is a directory";
  return nullptr;
}

// Why HDF5 refused to open `name`: what the journal said, or what the bytes show.
const char* WhyOpenFailed(const char* name) {
  if (hdf_JournalDriver::LastFailure() != nullptr) return hdf_JournalDriver::LastFailure();
  if (!hdf_Journal::Pending(name) && H5Fis_hdf5(name) <= 0) return "not an HDF5 file";
  return "damaged or truncated HDF5 file";
}

// HDF5's number for the file that holds `object`, the same for every handle.
unsigned long FileNumber(hid_t object) {
  H5O_info_t info;
  return H5Oget_info2(object, &info, H5O_INFO_BASIC) >= 0 ? info.fileno : 0;
}

}  // namespace

hdf_File hdf_File::Create(const char* name, CreateFlags flags, unsigned options) {
  hdf_Quiet();
  hdf_File file;
  if (name == nullptr || name[0] == '\0') {
    ReportFile("hdf_File::Create", "create", "", "no file name");
    return file;
  }
  struct stat info;
  const char* reason = nullptr;
  if (flags != Exclusive && flags != Truncate) {
    reason = "unknown creation flags";
  } else if (!DirectoryExists(name)) {
    reason = "no such directory";
  } else if (stat(name, &info) == 0 && (flags == Exclusive || S_ISDIR(info.st_mode))) {
    reason = S_ISDIR(info.st_mode) ? "it is a directory" : "it exists";
  }
  if (reason == nullptr) {
    unsigned access = flags == Truncate ? H5F_ACC_TRUNC : H5F_ACC_EXCL;
    hdf_Id list = AccessList(options);
    hdf_Id creation = CreationList();
    if (list.IsValid() && creation.IsValid()) {
      file.m_id = hdf_Id::Own(H5Fcreate(name, access, creation.Get(), list.Get()));
    }
    if (!file.IsValid()) {
      reason = list.IsValid() && hdf_JournalDriver::LastFailure() != nullptr
                   ? hdf_JournalDriver::LastFailure()
                   : "HDF5 refused (no permission, or the file is open)";
    }
  }
  if (reason != nullptr) ReportFile("hdf_File::Create", "create", name, reason);
  return file;
}

hdf_File hdf_File::Open(const char* name, OpenFlags flags, unsigned options) {
  hdf_Quiet();
  hdf_File file;
  if (name == nullptr || name[0] == '\0') {
    ReportFile("hdf_File::Open", "open", "", "no file name");
    return file;
  }
  const char* reason =
      flags != ReadWrite && flags != ReadOnly ? "unknown open flags" : WhyNotOpenable(name);
  if (reason == nullptr) {
    unsigned access = flags == ReadOnly ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    hdf_Id list = AccessList(options);
    if (list.IsValid()) file.m_id = hdf_Id::Own(H5Fopen(name, access, list.Get()));
    if (!file.IsValid()) reason = list.IsValid() ? WhyOpenFailed(name) : "HDF5 refused";
  }
  if (reason != nullptr) ReportFile("hdf_File::Open", "open", name, reason);
  return file;
}

hdf_Group hdf_File::RootGroup() const {
  if (!IsValid()) return hdf_Group();
  return hdf_Group::Adopt(H5Gopen2(Id(), "/", H5P_DEFAULT));
}

bool hdf_File::Flush() {
  if (!IsValid()) return false;
  if (H5Fflush(Id(), H5F_SCOPE_LOCAL) < 0) {
    ReportFile("hdf_File::Flush", "flush", Name().c_str(), hdf_Journal::LastFailure());
    return false;
  }
  return true;
}

bool hdf_File::IsReadOnly() const {
  unsigned intent = 0;
  return IsValid() && H5Fget_intent(Id(), &intent) >= 0 && (intent & H5F_ACC_RDWR) == 0;
}

cow_String hdf_File::Name() const {
  return IsValid() ? hdf_FileName(Id()) : cow_String();
}

void hdf_File::Close() {
  if (!IsValid()) return;
  unsigned kinds =
      H5F_OBJ_DATASET | H5F_OBJ_GROUP | H5F_OBJ_DATATYPE | H5F_OBJ_ATTR | H5F_OBJ_LOCAL;
  ssize_t count = H5Fget_obj_count(Id(), kinds);
  if (count > 0) {
    size_t n = static_cast<size_t>(count);
    hid_t* ids =
        static_cast<hid_t*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(count, sizeof(hid_t))));
    ssize_t got = H5Fget_obj_ids(Id(), kinds, n, ids);
    for (ssize_t i = 0; i < got; ++i) hdf_Id::CloseCompletely(ids[i]);
    mem_Free(ids);
  }
  m_id.CloseNow();
}

bool hdf_File::ConfigureAccess(hid_t fileAccess) {
  return ConfigureAccessList(fileAccess, NoOptions);
}

bool hdf_File::ConfigureCreation(hid_t fileCreation) {
  return H5Pset_istore_k(fileCreation, kChunkIndexK) >= 0;
}

void hdf_File::SetFlushAfterWrites(bool on) {
  g_flushAfterWrites = on;
}

bool hdf_File::FlushAfterWrites() {
  return g_flushAfterWrites;
}

void hdf_File::SetJournaling(bool on) {
  g_journaling = on;
}

bool hdf_File::JournalPending(const char* name) {
  return hdf_Journal::Pending(name);
}

bool hdf_File::Watch(const char* name, unsigned long long* mark, bool* writing) {
  uint64_t at = 0;
  if (name == nullptr || !hdf_Journal::Watch(name, &at, writing)) return false;
  *mark = at;
  return true;
}

hdf_File hdf_File::Of(hid_t object) {
  hdf_File file;
  if (H5Iis_valid(object) > 0) file.m_id = hdf_Id::Own(H5Iget_file_id(object));
  return file;
}

hdf_WriteBatch::hdf_WriteBatch(const hdf_File& file)
    : m_file(file), m_flushes(true), m_pushed(false) {
  ++g_batchDepth;
  unsigned long number = m_file.IsValid() ? FileNumber(m_file.Id()) : 0;
  for (int i = 0; i < g_batchFileCount; ++i) {
    if (g_batchFiles[i] == number) m_flushes = false;  // an enclosing batch flushes this file
  }
  if (m_flushes && g_batchFileCount < kMaxBatchFiles) {
    g_batchFiles[g_batchFileCount++] = number;
    m_pushed = true;
  }
}

hdf_WriteBatch::hdf_WriteBatch(hid_t object) : hdf_WriteBatch(hdf_File::Of(object)) {}

hdf_WriteBatch::~hdf_WriteBatch() {
  --g_batchDepth;
  if (m_pushed) --g_batchFileCount;
  // Flushing a read-only file writes nothing and succeeds.
  if (m_flushes && g_flushAfterWrites && m_file.IsValid()) m_file.Flush();
  if (g_batchDepth > 0) return;
  // What other files were written meanwhile is committed now.
  for (int i = 0; i < g_deferredCount; ++i) {
    hdf_FlushAfterWrite(g_deferred[i]);
    H5Fclose(g_deferred[i]);
  }
  g_deferredCount = 0;
}

void hdf_FlushAfterWrite(hid_t object) {
  if (!g_flushAfterWrites) return;
  if (g_batchDepth > 0) {
    unsigned long number = FileNumber(object);
    for (int i = 0; i < g_batchFileCount; ++i) {
      if (g_batchFiles[i] == number) return;  // its batch flushes it
    }
    for (int i = 0; i < g_deferredCount; ++i) {
      if (g_deferredNumbers[i] == number) return;
    }
    hid_t file = H5Iget_file_id(object);
    if (file >= 0 && g_deferredCount < kMaxDeferred) {
      g_deferredNumbers[g_deferredCount] = number;
      g_deferred[g_deferredCount++] = file;
      return;
    }
    if (file >= 0) H5Fclose(file);  // too many at once: flushed now
  }
  if (H5Fflush(object, H5F_SCOPE_LOCAL) < 0) {
    hdf_ReportFailure("hdf_File::Flush", "flush", nullptr, object, true);
  }
}
