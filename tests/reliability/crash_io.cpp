#include "reliability/crash_io.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/hdf/hdf_JournalIo.h"

namespace {

// One change since the file's last sync: bytes at an offset, or a new length.
struct Change {
  uint64_t offset;
  std::string bytes;
  bool length;
};

// What a file is on the disk, and what waits in the cache above it.
struct Disk {
  std::string synced;
  std::vector<Change> unsynced;
  pid_t process;  // a forked process starts from what the files hold
};

class CrashIo : public hdf_JournalIo {
 public:
  long crashAt = 0, changes = 0;
  bool torn = false;
  std::string suffix, after;  // after: none counts until such a file changed
  long lossAt = 0, points = 0;
  bool atChange = false;
  uint64_t seed = 0;

  int Open(const char* name, int flags, mode_t mode) override {
    int fd = hdf_JournalIo::Open(name, flags, mode);
    if (fd >= 0) {
      names_[fd] = name;
      auto disk = disks_.find(name);
      if (disk == disks_.end() || disk->second.process != getpid()) {
        disks_[name] = Disk{Contents(name), {}, getpid()};
      }
    }
    return fd;
  }
  void Close(int fd) override {
    names_.erase(fd);
    hdf_JournalIo::Close(fd);
  }
  bool Write(int fd, const void* bytes, size_t size, uint64_t offset) override {
    Changing(fd, bytes, size, offset);
    Track(fd, Change{offset, std::string(static_cast<const char*>(bytes), size), false});
    return hdf_JournalIo::Write(fd, bytes, size, offset);
  }
  bool SetLength(int fd, uint64_t length) override {
    Changing(fd, nullptr, 0, 0);
    Track(fd, Change{length, std::string(), true});
    return hdf_JournalIo::SetLength(fd, length);
  }
  bool Punch(int fd, uint64_t offset, uint64_t length) override {
    Changing(fd, nullptr, 0, 0);
    Track(fd, Change{offset, std::string(static_cast<size_t>(length), '\0'), false});
    return hdf_JournalIo::Punch(fd, offset, length);
  }
  bool Sync(int fd) override {
    if (lossAt != 0 && !atChange && ++points == lossAt) LosePower();
    auto name = names_.find(fd);
    if (name != names_.end()) {
      Disk& disk = disks_[name->second];
      disk.synced = Contents(name->second);
      disk.unsynced.clear();
    }
    return true;  // what the disk holds is modelled; the real sync adds nothing
  }
  bool Unlink(const char* name) override {
    disks_.erase(name);
    return hdf_JournalIo::Unlink(name);
  }

 private:
  static bool EndsWith(const std::string& name, const std::string& end) {
    return name.size() >= end.size() &&
           name.compare(name.size() - end.size(), end.size(), end) == 0;
  }

  void Changing(int fd, const void* bytes, size_t size, uint64_t offset) {
    const std::string& name = names_[fd];
    if (!after.empty()) {
      if (EndsWith(name, after)) after.clear();
      return;
    }
    if (!suffix.empty() && !EndsWith(name, suffix)) return;
    ++changes;
    if (lossAt != 0 && atChange && ++points == lossAt) LosePower();
    if (crashAt == 0 || changes != crashAt) return;
    if (torn && bytes != nullptr && size > 1) {
      hdf_JournalIo::Write(fd, bytes, size / 2, offset);
    }
    raise(SIGKILL);
  }

  void Track(int fd, const Change& change) {
    auto name = names_.find(fd);
    if (name != names_.end()) disks_[name->second].unsynced.push_back(change);
  }

  static std::string Contents(const std::string& name) {
    std::string bytes;
    int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return bytes;
    char chunk[65536];
    ssize_t n;
    while ((n = read(fd, chunk, sizeof chunk)) > 0) bytes.append(chunk, static_cast<size_t>(n));
    close(fd);
    return bytes;
  }

  // Leaves every file as the disk would have it, then dies.
  [[noreturn]] void LosePower() {
    std::mt19937_64 random(seed);
    for (auto& entry : disks_) {
      if (entry.second.process != getpid()) continue;
      std::string image = entry.second.synced;
      for (const Change& change : entry.second.unsynced) {
        unsigned fate = static_cast<unsigned>(random() % 3);  // kept, lost, torn
        if (fate == 1) continue;
        if (change.length) {
          image.resize(static_cast<size_t>(change.offset), '\0');
          continue;
        }
        size_t end = static_cast<size_t>(change.offset) + change.bytes.size();
        if (image.size() < end) image.resize(end, '\0');
        for (size_t at = 0; at < change.bytes.size(); at += 512) {
          if (fate == 2 && random() % 2 == 0) continue;  // this sector never arrived
          size_t n = std::min<size_t>(512, change.bytes.size() - at);
          image.replace(static_cast<size_t>(change.offset) + at, n, change.bytes, at, n);
        }
      }
      int fd = open(entry.first.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
      if (fd >= 0) {
        ssize_t ignored = write(fd, image.data(), image.size());
        (void)ignored;
        close(fd);
      }
    }
    raise(SIGKILL);
    for (;;) pause();
  }

  std::map<int, std::string> names_;
  std::map<std::string, Disk> disks_;
};

CrashIo* Installed() {
  static CrashIo* io = [] {
    CrashIo* made = new CrashIo();
    hdf_JournalIo::Install(made);
    return made;
  }();
  return io;
}

// Journals opened before the first call must go through it too.
const bool kInstalled = Installed() != nullptr;

}  // namespace

long CrashAt(long change, bool torn, const char* suffix, const char* after) {
  CrashIo* io = Installed();
  io->suffix = suffix != nullptr ? suffix : "";
  io->after = after != nullptr ? after : "";
  long counted = io->changes;
  io->changes = 0;
  io->crashAt = change;
  io->torn = torn;
  return counted;
}

long PowerLossAt(long sync, bool atChange, uint64_t seed) {
  CrashIo* io = Installed();
  long counted = io->points;
  io->points = 0;
  io->lossAt = sync;
  io->atChange = atChange;
  io->seed = seed;
  return counted;
}

int RunToEnd(const std::function<void()>& body) {
  pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
