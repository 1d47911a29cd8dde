#include "platform/hdf/hdf_Journal.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/core/aio_ostream.h"

namespace {

const unsigned char kMagic[8] = {'D', 'D', 'B', 'J', 'R', 'N', 'L', 2};
const unsigned char kEndMark[4] = {'D', 'D', 'B', 'C'};
const uint64_t kHeaderBytes = 24;   // magic, sequence, length
const uint64_t kLengthField = 16;   // where the header keeps the length
const uint64_t kCommitBytes = 24;   // count, cut, end of file
const uint64_t kExtentBytes = 24;   // address, length, position
const uint64_t kTrailerBytes = 24;  // commit position, sequence, crc, end mark
// Journals that grew past this are cut back when emptied, not just marked.
const uint64_t kKeptJournalBytes = uint64_t(64) << 20;
const uint64_t kMaxAddress = (uint64_t(1) << 63) - 1;
// A transaction is kept in memory up to this size, then spilled to the journal.
const size_t kBufferLimit = size_t(1) << 20;
// Copies out of the journal go through a buffer of at most this size.
const size_t kCopyChunk = size_t(1) << 20;
// Writes of this size or more over committed bytes are compared with them
// (see WriteChanges), in granules of this size.
const size_t kCompareFrom = 4096;
const size_t kCompareGranule = 64;

// The process's open journals (single-threaded, like the rest of the library).
hdf_Journal* g_open = nullptr;

// The crash hook (see CrashAt).
long g_crashAt = 0;
long g_changes = 0;
bool g_torn = false;

// Counts one change to a file, and dies there when the hook says so.
void CountChange(int fd, const void* bytes, size_t size, uint64_t offset) {
  ++g_changes;
  if (g_crashAt == 0 || g_changes != g_crashAt) return;
  if (g_torn && bytes != nullptr && size > 1) {
    ssize_t ignored = pwrite(fd, bytes, size / 2, static_cast<off_t>(offset));
    (void)ignored;
  }
  raise(SIGKILL);
}

bool WriteAt(int fd, const void* bytes, size_t size, uint64_t offset) {
  CountChange(fd, bytes, size, offset);
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

bool SetLength(int fd, uint64_t length) {
  CountChange(fd, nullptr, 0, 0);
  while (ftruncate(fd, static_cast<off_t>(length)) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

// Reads what the file holds of [offset, offset + size); the rest is zeros.
bool ReadAt(int fd, void* bytes, size_t size, uint64_t offset) {
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

bool FileSize(int fd, uint64_t* size) {
  struct stat info;
  if (fstat(fd, &info) != 0) return false;
  *size = static_cast<uint64_t>(info.st_size);
  return true;
}

bool Sync(int fd) {
  while (fdatasync(fd) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

// Makes a new entry in the directory of `name` durable.
bool SyncDirectory(const char* name) {
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

void Put64(std::vector<unsigned char>& out, uint64_t value) {
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

uint64_t Get64(const unsigned char* p) {
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = (value << 8) | p[i];
  return value;
}

uint32_t Get32(const unsigned char* p) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = (value << 8) | p[i];
  return value;
}

uint32_t Crc(uint32_t crc, const void* bytes, size_t size) {
  return static_cast<uint32_t>(crc32_z(crc, static_cast<const Bytef*>(bytes), size));
}

}  // namespace

std::vector<char> hdf_Journal::JournalName(const char* name) {
  static const char kSuffix[] = "-journal";
  std::vector<char> journal(name, name + strlen(name));
  journal.insert(journal.end(), kSuffix, kSuffix + sizeof kSuffix);  // with the NUL
  return journal;
}

bool hdf_Journal::Pending(const char* name) {
  if (name == nullptr) return false;
  int fd = open(JournalName(name).data(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char magic[sizeof kMagic] = {};
  ssize_t got = pread(fd, magic, sizeof magic, 0);
  close(fd);
  static const unsigned char kEmptied[sizeof kMagic] = {};
  return got > 0 && memcmp(magic, kEmptied, static_cast<size_t>(got)) != 0;
}

long hdf_Journal::CrashAt(long operation, bool torn) {
  long counted = g_changes;
  g_changes = 0;
  g_crashAt = operation;
  g_torn = torn;
  return counted;
}

hdf_Journal* hdf_Journal::Open(const char* name, Mode mode, bool durable, const char** reason) {
  *reason = nullptr;
  struct stat info;
  if (stat(name, &info) == 0) {
    for (hdf_Journal* open = g_open; open != nullptr; open = open->m_next) {
      if (open->m_device != info.st_dev || open->m_inode != info.st_ino) continue;
      if (mode == kCreateExclusive || mode == kCreateTruncate) {
        *reason = "it is open";
        return nullptr;
      }
      ++open->m_sharers;
      return open;
    }
  }
  hdf_Journal* journal = new hdf_Journal();
  journal->m_durable = durable;
  bool opened = journal->OpenFiles(name, mode, reason) && journal->Recover(reason);
  // HDF5 would make an empty file it opens for update a new one.
  if (opened && mode != kCreateExclusive && mode != kCreateTruncate && journal->m_eof == 0) {
    *reason = "not an HDF5 file";
    opened = false;
  }
  if (!opened) {
    journal->m_failed = true;  // close without committing anything
    journal->Close();
    delete journal;
    return nullptr;
  }
  journal->m_sharers = 1;
  journal->m_next = g_open;
  g_open = journal;
  return journal;
}

bool hdf_Journal::Release(hdf_Journal* journal) {
  if (--journal->m_sharers > 0) return true;
  hdf_Journal** link = &g_open;
  while (*link != journal) link = &(*link)->m_next;
  *link = journal->m_next;
  bool ok = journal->Close();
  delete journal;
  return ok;
}

hdf_Journal::~hdf_Journal() {}

bool hdf_Journal::OpenFiles(const char* name, Mode mode, const char** reason) {
  m_name.assign(name, name + strlen(name) + 1);
  m_journalName = JournalName(name);
  m_writable = mode != kReadOnly;
  bool create = mode == kCreateExclusive || mode == kCreateTruncate;
  int flags = (m_writable ? O_RDWR : O_RDONLY) | O_CLOEXEC;
  if (create) flags |= mode == kCreateExclusive ? O_CREAT | O_EXCL : O_CREAT;
  m_db = open(name, flags, 0666);
  if (m_db < 0) {
    // The wrapper says why a file cannot be made; an existing one may be private.
    if (!create) *reason = errno == ENOENT ? "no such file" : "no permission";
    return false;
  }
  struct stat info;
  if (fstat(m_db, &info) != 0 || !S_ISREG(info.st_mode)) {
    *reason = "not a regular file";
    return false;
  }
  m_device = info.st_dev;
  m_inode = info.st_ino;
  // Whole-file lock, held until the descriptor closes. Only a conflicting
  // lock refuses the open; where the file system or kernel has no such locks
  // (ENOLCK, EINVAL), the database opens unguarded.
  struct flock lock;
  memset(&lock, 0, sizeof lock);
  lock.l_type = m_writable ? F_WRLCK : F_RDLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(m_db, F_OFD_SETLK, &lock) != 0 && (errno == EAGAIN || errno == EACCES)) {
    *reason = "in use by another process";
    return false;
  }
  m_dbSize = static_cast<uint64_t>(info.st_size);
  if (create) {
    // A journal left beside a file that is made anew belongs to the old file.
    if (unlink(m_journalName.data()) != 0 && errno != ENOENT) {
      *reason = "cannot remove the old journal";
      return false;
    }
    if (m_dbSize > 0 && !SetLength(m_db, 0)) {
      *reason = "cannot truncate it";
      return false;
    }
    m_dbSize = 0;
  }
  m_cut = m_eof = m_dbSize;
  if (m_writable) {
    m_journal = open(m_journalName.data(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (m_journal < 0) {
      *reason = "cannot create its journal";
      return false;
    }
    if (m_durable && !SyncDirectory(name)) {
      *reason = "cannot sync its directory";
      return false;
    }
  } else {
    m_journal = open(m_journalName.data(), O_RDONLY | O_CLOEXEC);
    if (m_journal < 0 && errno != ENOENT) {
      *reason = "cannot read its journal";
      return false;
    }
  }
  return true;
}

bool hdf_Journal::Recover(const char** reason) {
  if (m_journal < 0) return true;
  Transaction transaction;
  Recovered found = Parse(&transaction);
  if (found == kIncomplete) {
    aio_cerr.print("**ERROR hdf_Journal::Open: discarded an incomplete transaction of journal ")
        .print(m_journalName.data())
        .put('\n');
  }
  if (found != kComplete) {
    // A writer starts from an empty journal file: nothing older is left in it.
    uint64_t size = 0;
    if (m_writable && (!FileSize(m_journal, &size) || (size > 0 && !SetLength(m_journal, 0)))) {
      *reason = "cannot reset its journal";
      return false;
    }
    return true;
  }
  if (!FileSize(m_journal, &m_spilled)) {  // every position is in the journal file
    *reason = "cannot read its journal";
    return false;
  }
  if (!m_writable) {
    // Read through the journal: nothing of either file changes.
    const std::vector<uint64_t>& e = transaction.extents;
    for (size_t i = 0; i < e.size(); i += 3) {
      m_overlay.emplace_hint(m_overlay.end(), e[i], Extent{e[i] + e[i + 1], e[i + 2]});
    }
    m_cut = transaction.cut;
    m_eof = transaction.eof;
    return true;
  }
  if (!Apply(transaction) || !SetLength(m_journal, 0)) {
    *reason = "cannot replay its journal";
    return false;
  }
  m_dbSize = m_cut = m_eof = transaction.eof;
  return true;
}

hdf_Journal::Recovered hdf_Journal::Parse(Transaction* transaction) {
  uint64_t size = 0;
  if (!FileSize(m_journal, &size) || size == 0) return kEmpty;
  unsigned char header[kHeaderBytes] = {};
  if (!ReadAt(m_journal, header, static_cast<size_t>(std::min(size, kHeaderBytes)), 0)) {
    return kIncomplete;
  }
  static const unsigned char kEmptied[sizeof kMagic] = {};
  if (memcmp(header, kEmptied, sizeof kMagic) == 0) return kEmpty;
  // The header names the transaction and, once it is committed, its length.
  uint64_t length = Get64(header + kLengthField);
  if (memcmp(header, kMagic, sizeof kMagic) != 0 || length > size ||
      length < kHeaderBytes + kCommitBytes + kTrailerBytes) {
    return kIncomplete;
  }
  unsigned char trailer[kTrailerBytes];
  uint64_t body = length - kTrailerBytes;
  if (!ReadAt(m_journal, trailer, sizeof trailer, body) ||
      Get64(trailer + 8) != Get64(header + 8) ||
      memcmp(trailer + 20, kEndMark, sizeof kEndMark) != 0) {
    return kIncomplete;
  }
  // The commit record fills the space between its position and the trailer.
  uint64_t commit = Get64(trailer);
  if (commit < kHeaderBytes || commit > body - kCommitBytes ||
      (body - kCommitBytes - commit) % kExtentBytes != 0) {
    return kIncomplete;
  }
  // The checksum covers all but the length field (written last when the
  // transaction went to the journal in pieces) and the trailer.
  uint32_t crc = Crc(Crc(0, nullptr, 0), header, kLengthField);
  std::vector<unsigned char> chunk(static_cast<size_t>(std::min<uint64_t>(body, kCopyChunk)));
  for (uint64_t at = kHeaderBytes; at < body; at += chunk.size()) {
    size_t n = static_cast<size_t>(std::min<uint64_t>(chunk.size(), body - at));
    if (!ReadAt(m_journal, chunk.data(), n, at)) return kIncomplete;
    crc = Crc(crc, chunk.data(), n);
  }
  if (crc != Get32(trailer + 16)) return kIncomplete;

  std::vector<unsigned char> record(static_cast<size_t>(body - commit));
  if (!ReadAt(m_journal, record.data(), record.size(), commit)) return kIncomplete;
  uint64_t count = Get64(&record[0]);
  transaction->cut = Get64(&record[8]);
  transaction->eof = Get64(&record[16]);
  if (count != (record.size() - kCommitBytes) / kExtentBytes || transaction->eof > kMaxAddress ||
      transaction->cut > transaction->eof) {
    return kIncomplete;
  }
  // Extents lie inside the data, inside the file, in order, apart.
  std::vector<uint64_t>& extents = transaction->extents;
  extents.reserve(static_cast<size_t>(count * 3));
  uint64_t previousEnd = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const unsigned char* p = &record[static_cast<size_t>(kCommitBytes + i * kExtentBytes)];
    uint64_t address = Get64(p), length = Get64(p + 8), position = Get64(p + 16);
    if (length == 0 || address < previousEnd || address > transaction->eof ||
        length > transaction->eof - address || position < kHeaderBytes || position > commit ||
        length > commit - position) {
      return kIncomplete;
    }
    previousEnd = address + length;
    extents.insert(extents.end(), {address, length, position});
  }
  return kComplete;
}

bool hdf_Journal::Apply(const Transaction& transaction) {
  uint64_t size = 0;
  if (!FileSize(m_db, &size)) return false;
  if (size > transaction.cut) {
    if (!SetLength(m_db, transaction.cut)) return false;
    size = transaction.cut;
  }
  const std::vector<uint64_t>& e = transaction.extents;
  std::vector<unsigned char> chunk;
  for (size_t i = 0; i < e.size(); i += 3) {
    uint64_t address = e[i], length = e[i + 1], position = e[i + 2];
    if (position >= m_spilled) {  // still in memory: straight from the buffer
      const unsigned char* bytes = &m_buffer[static_cast<size_t>(position - m_spilled)];
      if (!WriteAt(m_db, bytes, static_cast<size_t>(length), address)) return false;
    } else {
      for (uint64_t done = 0; done < length; done += chunk.size()) {
        chunk.resize(static_cast<size_t>(std::min<uint64_t>(length - done, kCopyChunk)));
        if (!ReadJournal(position + done, chunk.size(), chunk.data()) ||
            !WriteAt(m_db, chunk.data(), chunk.size(), address + done)) {
          return false;
        }
      }
    }
    size = std::max(size, address + length);
  }
  if (size != transaction.eof && !SetLength(m_db, transaction.eof)) return false;
  return !m_durable || Sync(m_db);
}

bool hdf_Journal::ReadJournal(uint64_t position, size_t size, void* bytes) {
  unsigned char* out = static_cast<unsigned char*>(bytes);
  if (position < m_spilled) {
    size_t n = static_cast<size_t>(std::min<uint64_t>(size, m_spilled - position));
    if (!ReadAt(m_journal, out, n, position)) return false;
    out += n;
    size -= n;
    position += n;
  }
  if (size == 0) return true;
  uint64_t offset = position - m_spilled;
  if (offset > m_buffer.size() || size > m_buffer.size() - offset) return false;
  memcpy(out, &m_buffer[static_cast<size_t>(offset)], size);
  return true;
}

bool hdf_Journal::ReadDatabase(uint64_t address, size_t size, unsigned char* bytes) {
  uint64_t limit = std::min(m_dbSize, m_cut);
  size_t stored =
      address >= limit ? 0 : static_cast<size_t>(std::min<uint64_t>(size, limit - address));
  if (stored > 0 && !ReadAt(m_db, bytes, stored, address)) return false;
  memset(bytes + stored, 0, size - stored);
  return true;
}

bool hdf_Journal::Read(uint64_t address, size_t size, void* bytes) {
  if (address > kMaxAddress || size > kMaxAddress - address) return false;
  unsigned char* out = static_cast<unsigned char*>(bytes);
  const uint64_t end = address + size;
  auto it = m_overlay.upper_bound(address);
  if (it != m_overlay.begin() && std::prev(it)->second.end > address) --it;
  for (uint64_t at = address; at < end;) {
    if (it != m_overlay.end() && it->first <= at) {
      uint64_t stop = std::min(it->second.end, end);
      if (!ReadJournal(it->second.position + (at - it->first), static_cast<size_t>(stop - at),
                       out + (at - address))) {
        return false;
      }
      at = stop;
      ++it;
    } else {
      uint64_t stop = it != m_overlay.end() ? std::min(it->first, end) : end;
      if (!ReadDatabase(at, static_cast<size_t>(stop - at), out + (at - address))) return false;
      at = stop;
    }
  }
  return true;
}

void hdf_Journal::Append(const void* bytes, size_t size) {
  const unsigned char* p = static_cast<const unsigned char*>(bytes);
  m_buffer.insert(m_buffer.end(), p, p + size);
  m_crc = Crc(m_crc, bytes, size);
}

bool hdf_Journal::Spill() {
  if (m_buffer.empty()) return true;
  if (!WriteAt(m_journal, m_buffer.data(), m_buffer.size(), m_spilled)) return false;
  m_spilled += m_buffer.size();
  m_buffer.clear();
  return true;
}

bool hdf_Journal::Write(uint64_t address, size_t size, const void* bytes) {
  if (!m_writable || m_failed || address > kMaxAddress || size > kMaxAddress - address) {
    return false;
  }
  if (size == 0) return true;
  if (size >= kCompareFrom && size <= kBufferLimit && Unwritten(address, address + size)) {
    return WriteChanges(address, size, static_cast<const unsigned char*>(bytes));
  }
  return WriteExtent(address, size, bytes);
}

bool hdf_Journal::Unwritten(uint64_t address, uint64_t end) const {
  if (end > std::min(m_dbSize, m_cut)) return false;
  auto it = m_overlay.upper_bound(address);
  if (it != m_overlay.end() && it->first < end) return false;
  return it == m_overlay.begin() || std::prev(it)->second.end <= address;
}

bool hdf_Journal::WriteChanges(uint64_t address, size_t size, const unsigned char* bytes) {
  m_compare.resize(size);
  if (!ReadAt(m_db, m_compare.data(), size, address)) return WriteExtent(address, size, bytes);
  const unsigned char* old = m_compare.data();
  auto same = [&](size_t at) {
    return memcmp(bytes + at, old + at, std::min(kCompareGranule, size - at)) == 0;
  };
  for (size_t at = 0; at < size;) {
    if (same(at)) {
      at += kCompareGranule;
      continue;
    }
    size_t start = at;
    while (at < size && !same(at)) at += kCompareGranule;
    size_t end = std::min(at, size);
    if (!WriteExtent(address + start, end - start, bytes + start)) return false;
  }
  return true;
}

bool hdf_Journal::WriteExtent(uint64_t address, size_t size, const void* bytes) {
  if (m_spilled == 0 && m_buffer.empty()) Begin();
  uint64_t position = m_spilled + m_buffer.size();
  if (size >= kBufferLimit) {
    // Bulk data goes to the journal file at once, not through memory.
    if (!Spill() || !WriteAt(m_journal, bytes, size, m_spilled)) {
      m_failed = true;
      return false;
    }
    m_crc = Crc(m_crc, bytes, size);
    m_spilled += size;
  } else {
    Append(bytes, size);
    if (m_buffer.size() >= kBufferLimit && !Spill()) {
      m_failed = true;
      return false;
    }
  }
  Overlay(address, address + size, position);
  m_eof = std::max(m_eof, address + size);
  m_dirty = true;
  return true;
}

void hdf_Journal::Overlay(uint64_t address, uint64_t end, uint64_t position) {
  auto it = m_overlay.upper_bound(address);
  if (it != m_overlay.begin() && std::prev(it)->second.end > address) --it;
  // Older bytes under [address, end) give way; what sticks out stays.
  while (it != m_overlay.end() && it->first < end) {
    uint64_t start = it->first;
    Extent old = it->second;
    it = m_overlay.erase(it);
    if (start < address) m_overlay.emplace(start, Extent{address, old.position});
    if (old.end > end) {
      m_overlay.emplace(end, Extent{old.end, old.position + (end - start)});
      break;
    }
  }
  it = m_overlay.lower_bound(address);
  if (it != m_overlay.begin()) {
    auto previous = std::prev(it);
    Extent& p = previous->second;
    if (p.end == address && p.position + (address - previous->first) == position) {
      p.end = end;  // continues the previous write in both file and journal
      return;
    }
  }
  m_overlay.emplace_hint(it, address, Extent{end, position});
}

bool hdf_Journal::Truncate(uint64_t eof) {
  if (eof == m_eof) return true;
  if (!m_writable || m_failed || eof > kMaxAddress) return false;
  if (eof < m_eof) {
    auto it = m_overlay.lower_bound(eof);
    if (it != m_overlay.begin() && std::prev(it)->second.end > eof) std::prev(it)->second.end = eof;
    m_overlay.erase(it, m_overlay.end());
    m_cut = std::min(m_cut, eof);
  }
  m_eof = eof;
  m_dirty = true;
  return true;
}

bool hdf_Journal::Commit() {
  if (m_failed) return false;
  if (!m_dirty) return true;
  if (m_spilled == 0 && m_buffer.empty()) Begin();
  Transaction transaction;
  transaction.cut = m_cut;
  transaction.eof = m_eof;
  std::vector<unsigned char> record;
  record.reserve(static_cast<size_t>(kCommitBytes + m_overlay.size() * kExtentBytes));
  Put64(record, m_overlay.size());
  Put64(record, m_cut);
  Put64(record, m_eof);
  transaction.extents.reserve(m_overlay.size() * 3);
  for (const auto& entry : m_overlay) {
    uint64_t length = entry.second.end - entry.first;
    Put64(record, entry.first);
    Put64(record, length);
    Put64(record, entry.second.position);
    transaction.extents.insert(transaction.extents.end(),
                               {entry.first, length, entry.second.position});
  }
  uint64_t commit = m_spilled + m_buffer.size();
  Append(record.data(), record.size());
  record.clear();
  Put64(record, commit);
  Put64(record, m_sequence);
  for (int i = 0; i < 4; ++i) record.push_back(static_cast<unsigned char>(m_crc >> (8 * i)));
  record.insert(record.end(), kEndMark, kEndMark + sizeof kEndMark);
  m_buffer.insert(m_buffer.end(), record.begin(), record.end());
  // The length in the header completes the transaction: in the same write
  // when it is all in memory, else last.
  record.clear();
  Put64(record, m_spilled + m_buffer.size());
  bool written;
  if (m_spilled == 0) {
    std::copy(record.begin(), record.end(), m_buffer.begin() + kLengthField);
    written = WriteAt(m_journal, m_buffer.data(), m_buffer.size(), 0);
  } else {
    written = WriteAt(m_journal, m_buffer.data(), m_buffer.size(), m_spilled) &&
              WriteAt(m_journal, record.data(), record.size(), kLengthField);
  }
  // The commit is in the journal before the first byte of the database
  // changes; until the journal is emptied, a reopen replays. The buffer
  // stays in memory, so the copy needs no reading back.
  if (!written || (m_durable && !Sync(m_journal)) || !Apply(transaction)) {
    m_failed = true;
    return false;
  }
  m_overlay.clear();
  m_dbSize = m_cut = m_eof;
  m_dirty = false;
  return ResetJournal() || (m_failed = true, false);
}

void hdf_Journal::Begin() {
  unsigned char sequence[8];
  ++m_sequence;
  for (int i = 0; i < 8; ++i) sequence[i] = static_cast<unsigned char>(m_sequence >> (8 * i));
  m_crc = Crc(0, nullptr, 0);
  Append(kMagic, sizeof kMagic);
  Append(sequence, sizeof sequence);
  m_buffer.resize(m_buffer.size() + 8, 0);  // the length, once committed
}

bool hdf_Journal::ResetJournal() {
  // Zeros over the magic mark the journal empty: cheaper than giving its
  // blocks back and taking them again at every commit. What stays behind is
  // never read, since a header names its own transaction's length.
  uint64_t used = m_spilled + m_buffer.size();
  m_spilled = 0;
  m_buffer.clear();
  if (m_buffer.capacity() > 4 * kBufferLimit) m_buffer.shrink_to_fit();
  if (used > kKeptJournalBytes) return SetLength(m_journal, 0);
  static const unsigned char kEmptied[sizeof kMagic] = {};
  return WriteAt(m_journal, kEmptied, sizeof kEmptied, 0);
}

bool hdf_Journal::Close() {
  bool ok = true;
  if (m_writable && !m_failed && m_journal >= 0) {
    ok = Commit();
    // A cleanly closed database has no journal beside it.
    if (ok) unlink(m_journalName.data());
  }
  if (m_journal >= 0) close(m_journal);
  if (m_db >= 0) close(m_db);  // releases the lock
  m_journal = m_db = -1;
  return ok;
}
