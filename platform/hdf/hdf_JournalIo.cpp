#include "platform/hdf/hdf_JournalIo.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace {

hdf_JournalIo* g_current = nullptr;

struct flock Range(short type, uint64_t start, uint64_t length) {
  struct flock lock;
  memset(&lock, 0, sizeof lock);
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(start);
  lock.l_len = static_cast<off_t>(length);
  return lock;
}

}  // namespace

hdf_JournalIo::~hdf_JournalIo() {}

hdf_JournalIo* hdf_JournalIo::Current() {
  static hdf_JournalIo posix;  // made on first use: nothing runs at load
  return g_current != nullptr ? g_current : &posix;
}

void hdf_JournalIo::Install(hdf_JournalIo* io) {
  g_current = io;
}

int hdf_JournalIo::Open(const char* name, int flags, mode_t mode) {
  int fd;
  do {
    fd = open(name, flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

void hdf_JournalIo::Close(int fd) {
  close(fd);
}

bool hdf_JournalIo::Read(int fd, void* bytes, size_t size, uint64_t offset) {
  char* p = static_cast<char*>(bytes);
  while (size > 0) {
    ssize_t n = pread(fd, p, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) {
      memset(p, 0, size);
      return true;
    }
    p += n;
    size -= static_cast<size_t>(n);
    offset += static_cast<uint64_t>(n);
  }
  return true;
}

bool hdf_JournalIo::Write(int fd, const void* bytes, size_t size, uint64_t offset) {
  const char* p = static_cast<const char*>(bytes);
  while (size > 0) {
    ssize_t n = pwrite(fd, p, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<size_t>(n);
    offset += static_cast<uint64_t>(n);
  }
  return true;
}

bool hdf_JournalIo::Size(int fd, uint64_t* size) {
  struct stat info;
  if (fstat(fd, &info) != 0) return false;
  *size = static_cast<uint64_t>(info.st_size);
  return true;
}

bool hdf_JournalIo::SetLength(int fd, uint64_t length) {
  while (ftruncate(fd, static_cast<off_t>(length)) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

bool hdf_JournalIo::Sync(int fd) {
  while (fdatasync(fd) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

bool hdf_JournalIo::Punch(int fd, uint64_t offset, uint64_t length) {
  return fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                   static_cast<off_t>(length)) == 0;
}

bool hdf_JournalIo::Unlink(const char* name) {
  return unlink(name) == 0;
}

bool hdf_JournalIo::SyncDirectory(const char* name) {
  const char* slash = strrchr(name, '/');
  std::vector<char> directory;
  if (slash == nullptr) {
    directory = {'.', '\0'};
  } else {
    directory.assign(name, slash == name ? slash + 1 : slash);
    directory.push_back('\0');
  }
  int fd = open(directory.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = fsync(fd) == 0;
  close(fd);
  return ok;
}

hdf_JournalIo::LockResult hdf_JournalIo::Lock(int fd, LockType type, uint64_t start,
                                              uint64_t length, bool wait) {
  struct flock lock = Range(type == kShared ? F_RDLCK : F_WRLCK, start, length);
  while (fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &lock) != 0) {
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EACCES ? kBusy : kNoLocks;
  }
  return kLocked;
}

void hdf_JournalIo::Unlock(int fd, uint64_t start, uint64_t length) {
  struct flock lock = Range(F_UNLCK, start, length);
  while (fcntl(fd, F_OFD_SETLK, &lock) != 0 && errno == EINTR) {
  }
}

hdf_JournalIo::LockResult hdf_JournalIo::Test(int fd, LockType type, uint64_t start,
                                              uint64_t length, uint64_t* at) {
  struct flock lock = Range(type == kShared ? F_RDLCK : F_WRLCK, start, length);
  while (fcntl(fd, F_OFD_GETLK, &lock) != 0) {
    if (errno != EINTR) return kNoLocks;
  }
  if (lock.l_type == F_UNLCK) return kFree;
  if (at != nullptr) *at = static_cast<uint64_t>(lock.l_start);
  return kBusy;
}

const void* hdf_JournalIo::Map(int fd, size_t size) {
  void* view = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  return view == MAP_FAILED ? nullptr : view;
}

void hdf_JournalIo::Unmap(const void* view, size_t size) {
  munmap(const_cast<void*>(view), size);
}
