#include "platform/hdf/hdf_Journal.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/core/aio_ostream.h"

namespace {

const unsigned char kBaseMagic[8] = {'D', 'D', 'B', 'J', 'R', 'N', 'L', 3};
const unsigned char kMagic[8] = {'D', 'D', 'B', 'T', 'X', 'N', 0, 1};
const unsigned char kEndMark[4] = {'D', 'D', 'B', 'C'};

// The journal's first page: two recovery header slots, the live state.
const uint64_t kPage = 4096;
const uint64_t kSlots[2] = {0, 512};
const size_t kSlotBytes = 64;
const uint64_t kLiveAt = 1024;
const size_t kLiveBytes = 96;

const uint64_t kHeaderBytes = 32;   // magic, salt, number, length
const uint64_t kLengthField = 24;   // where the header keeps the length
const uint64_t kCommitBytes = 24;   // count, end of file, safe end
const uint64_t kExtentBytes = 24;   // address, length, position
const uint64_t kTrailerBytes = 24;  // commit position, number, crc, end mark
const uint64_t kMaxAddress = (uint64_t(1) << 63) - 1;

// A transaction is kept in memory up to this size, then spilled to the journal.
const size_t kBufferLimit = size_t(1) << 20;
// Copies out of the journal go through a buffer of at most this size.
const size_t kCopyChunk = size_t(1) << 20;
// Writes of this size or more over committed bytes are compared with them
// (see WriteChanges), in granules of this size.
const size_t kCompareFrom = 4096;
const size_t kCompareGranule = 64;
// A checkpoint runs once this much of the journal is not in the file yet.
const uint64_t kCheckpointBytes = uint64_t(1) << 20;
// The journal's bound: past this many bytes that readers still hold, the
// writer overwrites their snapshots (they fail their next read and reopen).
const uint64_t kJournalBound = uint64_t(64) << 20;

// Locks on the database file, far beyond any data: the writer's byte, the
// byte that guards the journal file's creation and removal, and the readers'
// marks (one byte per transaction number in each region).
const uint64_t kWriterByte = uint64_t(1) << 62;
const uint64_t kJournalByte = kWriterByte + 1;
const uint64_t kSeenMarks = kWriterByte + (uint64_t(1) << 40);
const uint64_t kCopiedMarks = kWriterByte + (uint64_t(1) << 41);
const uint64_t kMarkRange = uint64_t(1) << 40;
const uint64_t kMarksEnd = kCopiedMarks + kMarkRange;

// The process's writers (single-threaded, like the rest of the library).
hdf_Journal* g_writers = nullptr;
// Why the last change to a file failed, in the system's words.
const char* g_failure = nullptr;

// Little-endian, at p; returns the end.
template <int N>
unsigned char* StoreLittle(unsigned char* p, uint64_t value) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  memcpy(p, &value, N);  // the low N bytes, in order
#else
  for (int i = 0; i < N; ++i) p[i] = static_cast<unsigned char>(value >> (8 * i));
#endif
  return p + N;
}

void Put64(std::vector<unsigned char>& out, uint64_t value) {
  out.resize(out.size() + 8);
  StoreLittle<8>(&out[out.size() - 8], value);
}

void Put32(std::vector<unsigned char>& out, uint32_t value) {
  out.resize(out.size() + 4);
  StoreLittle<4>(&out[out.size() - 4], value);
}

template <int N>
uint64_t LoadLittle(const unsigned char* p) {
  uint64_t value = 0;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  memcpy(&value, p, N);
#else
  for (int i = N - 1; i >= 0; --i) value = (value << 8) | p[i];
#endif
  return value;
}

uint64_t Get64(const unsigned char* p) {
  return LoadLittle<8>(p);
}

uint32_t Get32(const unsigned char* p) {
  return static_cast<uint32_t>(LoadLittle<4>(p));
}

uint32_t Crc(uint32_t crc, const void* bytes, size_t size) {
  return static_cast<uint32_t>(crc32_z(crc, static_cast<const Bytef*>(bytes), size));
}

uint64_t NewSalt() {
  uint64_t salt = 0;
  if (getrandom(&salt, sizeof salt, 0) != static_cast<ssize_t>(sizeof salt)) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    salt = (static_cast<uint64_t>(now.tv_nsec) << 20) ^ static_cast<uint64_t>(now.tv_sec) ^
           (static_cast<uint64_t>(getpid()) << 44);
  }
  return salt == 0 ? 1 : salt;
}

// The chained crc a journal starts from.
uint32_t Seed(uint64_t salt) {
  std::vector<unsigned char> bytes;
  Put64(bytes, salt);
  return Crc(Crc(0, nullptr, 0), bytes.data(), bytes.size());
}

bool AllZero(const unsigned char* p, size_t size) {
  // Every byte equals the next and the first is zero (memcmp runs wide).
  return size == 0 || (p[0] == 0 && memcmp(p, p + 1, size - 1) == 0);
}

}  // namespace

std::vector<char> hdf_Journal::JournalName(const char* name) {
  static const char kSuffix[] = "-journal";
  std::vector<char> journal(name, name + strlen(name));
  journal.insert(journal.end(), kSuffix, kSuffix + sizeof kSuffix);  // with the NUL
  return journal;
}

// ---------------------------------------------------------------- opening

hdf_Journal* hdf_Journal::Open(const char* name, Mode mode, bool durable, const char** reason) {
  *reason = nullptr;
  hdf_Journal* journal = new hdf_Journal();
  journal->m_io = hdf_JournalIo::Current();
  journal->m_durable = durable;
  bool opened = mode == kReadOnly ? journal->OpenReader(name, reason)
                                  : journal->OpenWriter(name, mode, reason);
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
  if (journal->m_writable) {
    journal->m_next = g_writers;
    g_writers = journal;
  }
  return journal;
}

bool hdf_Journal::Fail() {
  g_failure = errno != 0 ? strerror(errno) : "write failed";
  m_failed = true;
  return false;
}

const char* hdf_Journal::LastFailure() {
  return g_failure;
}

bool hdf_Journal::Release(hdf_Journal* journal) {
  for (hdf_Journal** link = &g_writers; *link != nullptr; link = &(*link)->m_next) {
    if (*link == journal) {
      *link = journal->m_next;
      break;
    }
  }
  bool ok = journal->Close();
  delete journal;
  return ok;
}

hdf_Journal::~hdf_Journal() {}

bool hdf_Journal::OpenDatabase(const char* name, int flags, const char** reason) {
  m_name.assign(name, name + strlen(name) + 1);
  m_journalName = JournalName(name);
  bool create = (flags & O_CREAT) != 0;
  m_db = m_io->Open(name, flags, 0666);
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
  return true;
}

void hdf_Journal::Report(const char* what) {
  aio_cerr.print("**ERROR hdf_Journal::Open: ").print(what).print(m_journalName.data()).put('\n');
}

bool hdf_Journal::OpenJournal(bool create) {
  m_journal = m_io->Open(m_journalName.data(), m_writable ? O_RDWR : O_RDONLY, 0);
  if (m_journal < 0 && (errno != ENOENT || !create)) return false;
  // The first page always exists while the database is open, so that every
  // reader can follow it. It is made while the journal byte is held, which
  // keeps writers out: no transaction can be cut.
  uint64_t size = 0;
  if (m_journal < 0 || (m_io->Size(m_journal, &size) && size < kPage && create)) {
    int fd = m_writable && m_journal >= 0
                 ? m_journal
                 : m_io->Open(m_journalName.data(), O_RDWR | O_CREAT, 0666);
    if (fd < 0) return m_journal >= 0;
    bool made = m_io->SetLength(fd, kPage);
    if (m_durable) m_io->SyncDirectory(m_journalName.data());
    if (m_journal < 0) {
      m_journal = fd;
    } else if (fd != m_journal) {
      m_io->Close(fd);
    }
    if (!made) return true;
    size = kPage;
  }
  if (size >= kPage) m_view = static_cast<const unsigned char*>(m_io->Map(m_journal, kPage));
  return true;
}

bool hdf_Journal::Writing() {
  uint64_t at = 0;
  return m_guarded &&
         m_io->Test(m_db, hdf_JournalIo::kShared, kWriterByte, 1, &at) == hdf_JournalIo::kBusy;
}

// Whether the journal's first page holds anything at all.
bool hdf_Journal::HoldsAnything() {
  unsigned char bytes[kPage];
  return m_journal >= 0 && m_io->Read(m_journal, bytes, sizeof bytes, 0) &&
         !AllZero(bytes, sizeof bytes);
}

bool hdf_Journal::OpenWriter(const char* name, Mode mode, const char** reason) {
  m_writable = true;
  int flags = O_RDWR;
  if (mode == kCreateExclusive) flags |= O_CREAT | O_EXCL;
  if (mode == kCreateTruncate) flags |= O_CREAT;
  if (!OpenDatabase(name, flags, reason)) return false;
  for (hdf_Journal* open = g_writers; open != nullptr; open = open->m_next) {
    if (open->m_device == m_device && open->m_inode == m_inode) {
      *reason = "open for update in this process";
      return false;
    }
  }
  hdf_JournalIo::LockResult lock =
      m_io->Lock(m_db, hdf_JournalIo::kExclusive, kWriterByte, 1, false);
  if (lock == hdf_JournalIo::kBusy) {
    *reason = "in use by another process";
    return false;
  }
  m_guarded = lock == hdf_JournalIo::kLocked;
  if (!m_guarded) {
    aio_cerr.print("**ERROR hdf_Journal::Open: no file locks for ")
        .print(name)
        .print(": opened without a guard against other writers and readers\n");
  }
  // The journal file is made, read and reset while no reader can be opening.
  if (m_guarded) m_io->Lock(m_db, hdf_JournalIo::kExclusive, kJournalByte, 1, true);
  bool ok = OpenJournal(true);
  if (!ok) *reason = "cannot open its journal";
  bool fresh = mode == kCreateExclusive || mode == kCreateTruncate || !ReadBase(&m_base);
  // After a kill, the live state says how far the file was copied: the
  // transactions before it no longer matter. A writer with durable commits
  // does not sync it, so after its power loss only the header can be
  // trusted, and everything after the header reached the disk.
  m_written = m_base.copied;
  Live live;
  bool trusted = !fresh && ReadLive(&live) && live.base.salt == m_base.salt;
  if (trusted && !live.durable && live.base.copied >= m_base.copied) {
    m_base.copied = live.base.copied;
    m_base.next = live.base.next;
    m_base.size = live.base.size;
    m_base.crc = live.base.crc;
    m_base.safe = live.base.safe;
  }
  if (ok && mode == kCreateTruncate && AnyMark()) {
    *reason = "it is being read";
    ok = false;
  }
  if (ok && !fresh) {
    ok = ReadTransactions(true);
    if (!ok) *reason = "cannot read its journal";
    // What readers were told stays true: what the file may hold, what the
    // journal no longer holds (without the live state, all it copied).
    if (trusted) {
      m_limit = std::max(m_limit, live.limit);
      m_freed = std::min(live.freed, m_base.copied);
    }
  } else if (ok) {
    // A journal whose header is damaged loses what it held: say so.
    if (mode == kReadWrite && HoldsAnything()) {
      Report("discarded an incomplete transaction of journal ");
    }
    uint64_t size = 0;
    if (mode == kCreateTruncate) ok = m_io->SetLength(m_db, 0);
    ok = ok && m_io->Size(m_db, &size);
    m_eof = m_safe = size;
    ok = ok && StartJournal(HighestMark() + 1);
    if (!ok) *reason = "cannot reset its journal";
  }
  // A killed transaction's bytes beyond the safe end belong to nobody.
  uint64_t size = 0;
  if (ok && m_io->Size(m_db, &size) && size > m_safe) ok = m_io->SetLength(m_db, m_safe);
  if (m_guarded) m_io->Unlock(m_db, kJournalByte, 1);
  if (!ok) {
    if (*reason == nullptr) *reason = "cannot replay its journal";
    return false;
  }
  WriteLive();
  // An open for update settles the journal as far as the readers allow.
  if (!Checkpoint(kAsReadersAllow, true)) {
    *reason = "cannot replay its journal";
    return false;
  }
  return true;
}

bool hdf_Journal::OpenReader(const char* name, const char** reason) {
  if (!OpenDatabase(name, O_RDONLY, reason)) return false;
  hdf_JournalIo::LockResult lock = m_io->Lock(m_db, hdf_JournalIo::kShared, kJournalByte, 1, true);
  m_guarded = lock == hdf_JournalIo::kLocked;
  if (!m_guarded) {
    aio_cerr.print("**ERROR hdf_Journal::Open: no file locks for ")
        .print(name)
        .print(": opened without a guard against other writers and readers\n");
  }
  // A reader makes the journal's first page when there is none, so that a
  // writer that comes later can tell it when its snapshot is overwritten.
  OpenJournal(m_guarded);
  bool ok = true;
  if (m_journal >= 0 && ReadBase(&m_base)) {
    Live live;
    if (ReadLive(&live) && live.base.salt == m_base.salt && live.base.copied >= m_base.copied) {
      m_base = live.base;
    }
    ok = ReadTransactions(!Writing());
  } else {
    // What a damaged journal held is lost; the writer that would have said
    // so is gone.
    if (HoldsAnything() && !Writing()) Report("discarded an incomplete transaction of journal ");
    uint64_t size = 0;
    ok = m_io->Size(m_db, &size);
    m_eof = m_safe = size;
  }
  m_copied = m_base.copied;
  m_seen = m_last;
  if (ok && m_guarded) {
    m_io->Lock(m_db, hdf_JournalIo::kShared, kSeenMarks + m_seen, 1, false);
    m_io->Lock(m_db, hdf_JournalIo::kShared, kCopiedMarks + m_copied, 1, false);
  }
  if (m_guarded) m_io->Unlock(m_db, kJournalByte, 1);
  m_transactions.clear();  // a reader needs only the overlay
  m_transactions.shrink_to_fit();
  if (!ok) *reason = "cannot read its journal";
  return ok;
}

// ------------------------------------------------------- header and state

bool hdf_Journal::ReadBase(Base* base) {
  if (m_journal < 0) return false;
  bool found = false;
  for (uint64_t at : kSlots) {
    unsigned char slot[kSlotBytes];
    if (!m_io->Read(m_journal, slot, sizeof slot, at)) continue;
    if (memcmp(slot, kBaseMagic, sizeof kBaseMagic) != 0 ||
        Crc(Crc(0, nullptr, 0), slot, kSlotBytes - 4) != Get32(slot + kSlotBytes - 4)) {
      continue;
    }
    uint64_t version = Get64(slot + 8);
    m_olderCopied = found ? std::min(m_olderCopied, Get64(slot + 24)) : Get64(slot + 24);
    if (found && version <= base->version) continue;
    base->version = version;
    base->salt = Get64(slot + 16);
    base->copied = Get64(slot + 24);
    base->next = Get64(slot + 32);
    base->size = Get64(slot + 40);
    base->crc = Get32(slot + 48);
    base->safe = Get64(slot + 52);
    found = true;
  }
  return found && base->next >= kPage && base->copied < kMarkRange;
}

bool hdf_Journal::WriteBase() {
  // The slot written last time stays as it is: a torn write of this one
  // leaves it, and nothing it needs is freed meanwhile (see Free).
  m_olderCopied = m_written;
  m_written = m_base.copied;
  ++m_base.version;
  std::vector<unsigned char> slot(kBaseMagic, kBaseMagic + sizeof kBaseMagic);
  Put64(slot, m_base.version);
  Put64(slot, m_base.salt);
  Put64(slot, m_base.copied);
  Put64(slot, m_base.next);
  Put64(slot, m_base.size);
  Put32(slot, m_base.crc);
  Put64(slot, m_base.safe);
  Put32(slot, Crc(Crc(0, nullptr, 0), slot.data(), slot.size()));
  return m_io->Write(m_journal, slot.data(), slot.size(), kSlots[m_base.version % 2]) &&
         (!m_durable || m_io->Sync(m_journal));
}

// The live state: salt, restarts, last, end, limit, freed, and the base
// (copied, next, its end of file, crc).
void hdf_Journal::WriteLive() {
  if (m_journal < 0) return;
  m_liveBehind = false;
  unsigned char live[kLiveBytes] = {};
  unsigned char* at = live;
  for (uint64_t value : {m_base.salt, m_restarts, m_last, m_end, m_limit, m_freed, m_base.copied,
                         m_base.next, m_base.size}) {
    at = StoreLittle<8>(at, value);
  }
  at = StoreLittle<4>(at, m_base.crc);
  at[0] = m_durable ? 1 : 0;
  at[1] = m_closed ? 1 : 0;
  StoreLittle<8>(live + 80, m_base.safe);
  StoreLittle<4>(live + kLiveBytes - 4, Crc(Crc(0, nullptr, 0), live, kLiveBytes - 4));
  m_io->Write(m_journal, live, kLiveBytes, kLiveAt);
}

bool hdf_Journal::ReadLive(Live* state) {
  unsigned char live[kLiveBytes];
  // A read may meet a write half done: the crc tells, and it is read again.
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (m_view != nullptr) {
      std::atomic_thread_fence(std::memory_order_acquire);
      memcpy(live, m_view + kLiveAt, sizeof live);
    } else if (m_journal < 0 || !m_io->Read(m_journal, live, sizeof live, kLiveAt)) {
      return false;
    }
    if (AllZero(live, sizeof live)) return false;
    if (Crc(Crc(0, nullptr, 0), live, kLiveBytes - 4) != Get32(live + kLiveBytes - 4)) continue;
    state->base.salt = Get64(live);
    state->restarts = Get64(live + 8);
    state->last = Get64(live + 16);
    state->limit = Get64(live + 32);
    state->freed = Get64(live + 40);
    state->base.copied = Get64(live + 48);
    state->base.next = Get64(live + 56);
    state->base.size = Get64(live + 64);
    state->base.crc = Get32(live + 72);
    state->durable = live[76] != 0;
    state->closed = live[77] != 0;
    state->base.safe = Get64(live + 80);
    return state->base.next >= kPage;
  }
  return false;
}

bool hdf_Journal::Settled() {
  Base base;
  if (!ReadBase(&base)) return !HoldsAnything();
  unsigned char header[kHeaderBytes];
  return m_io->Read(m_journal, header, sizeof header, base.next) && AllZero(header, sizeof header);
}

bool hdf_Journal::StartJournal(uint64_t firstNumber) {
  m_base.salt = NewSalt();
  m_base.copied = firstNumber - 1;
  m_base.next = kPage;
  m_base.size = m_base.safe = m_eof;
  m_base.crc = Seed(m_base.salt);
  m_last = m_limit = m_freed = m_base.copied;
  m_end = m_freedEnd = m_spilled = m_settled = kPage;
  m_recent.clear();
  m_chain = m_base.crc;
  m_transactions.clear();
  m_overlay.clear();
  // Nothing of an older journal stays behind the header; both slots say so.
  m_written = m_base.copied;
  return m_io->SetLength(m_journal, kPage) && WriteBase() && WriteBase();
}

// ------------------------------------------------------ reading the journal

bool hdf_Journal::ReadTransactions(bool report) {
  uint64_t size = 0;
  if (!m_io->Size(m_journal, &size)) return false;
  m_last = m_limit = m_freed = m_base.copied;
  m_end = m_freedEnd = m_spilled = m_settled = m_base.next;
  m_recent.clear();
  m_chain = m_base.crc;
  m_eof = m_base.size;
  m_safe = std::max(m_base.size, m_base.safe);
  std::vector<unsigned char> chunk;
  for (;;) {
    unsigned char header[kHeaderBytes] = {};
    if (m_end >= size) return true;
    if (!m_io->Read(m_journal, header, sizeof header, m_end)) return false;
    uint64_t length = Get64(header + kLengthField);
    bool intact = memcmp(header, kMagic, sizeof kMagic) == 0 && Get64(header + 8) == m_base.salt &&
                  Get64(header + 16) == m_last + 1 && length <= size - m_end &&
                  length >= kHeaderBytes + kCommitBytes + kTrailerBytes;
    unsigned char trailer[kTrailerBytes] = {};
    const uint64_t body = m_end + length - kTrailerBytes;
    uint64_t commit = 0;
    if (intact) {
      intact = m_io->Read(m_journal, trailer, sizeof trailer, body) &&
               Get64(trailer + 8) == m_last + 1 &&
               memcmp(trailer + 20, kEndMark, sizeof kEndMark) == 0;
      commit = Get64(trailer);
      intact = intact && commit >= m_end + kHeaderBytes && commit <= body - kCommitBytes &&
               (body - kCommitBytes - commit) % kExtentBytes == 0;
    }
    uint32_t crc = Crc(m_chain, header, kLengthField);
    for (uint64_t at = m_end + kHeaderBytes; intact && at < body + 16; at += chunk.size()) {
      chunk.resize(static_cast<size_t>(std::min<uint64_t>(kCopyChunk, body + 16 - at)));
      intact = m_io->Read(m_journal, chunk.data(), chunk.size(), at);
      crc = Crc(crc, chunk.data(), chunk.size());
    }
    intact = intact && crc == Get32(trailer + 16);
    Transaction transaction;
    uint64_t eof = 0, safe = 0;
    if (intact) {
      std::vector<unsigned char> record(static_cast<size_t>(body - commit));
      intact = m_io->Read(m_journal, record.data(), record.size(), commit);
      uint64_t count = Get64(&record[0]);
      eof = Get64(&record[8]);
      safe = Get64(&record[16]);
      intact = intact && count == (record.size() - kCommitBytes) / kExtentBytes &&
               eof <= kMaxAddress && safe <= kMaxAddress && eof <= safe;
      // Extents lie inside the data, inside the file, in order, apart.
      uint64_t previousEnd = 0;
      for (uint64_t i = 0; intact && i < count; ++i) {
        const unsigned char* p = &record[static_cast<size_t>(kCommitBytes + i * kExtentBytes)];
        uint64_t address = Get64(p), bytes = Get64(p + 8), position = Get64(p + 16);
        intact = bytes > 0 && address >= previousEnd && address <= safe &&
                 bytes <= safe - address &&
                 (position == 0 || (position >= m_end + kHeaderBytes && position <= commit &&
                                    bytes <= commit - position));
        previousEnd = address + bytes;
        transaction.extents.insert(transaction.extents.end(), {address, bytes, position});
      }
    }
    if (!intact) {
      // Zeros are where no transaction was written; anything else is one
      // that did not complete (or a writer's, still under way).
      if (report && !AllZero(header, sizeof header)) {
        Report("discarded an incomplete transaction of journal ");
      }
      return true;
    }
    transaction.number = m_last + 1;
    transaction.end = m_end + length;
    transaction.eof = eof;
    transaction.crc = crc;
    Visible(transaction, m_end);
    m_transactions.push_back(std::move(transaction));
    m_last = m_transactions.back().number;
    m_end = m_spilled = m_transactions.back().end;
    m_chain = crc;
    m_eof = eof;
    m_safe = std::max(m_safe, safe);
  }
}

// Puts a committed transaction's extents over what reads see.
void hdf_Journal::Visible(const Transaction& transaction, uint64_t start) {
  const std::vector<uint64_t>& e = transaction.extents;
  for (size_t i = 0; i < e.size(); i += 3) {
    bool zeros = e[i + 2] == 0;
    Place(&m_overlay, e[i], Extent{e[i] + e[i + 1], zeros ? start : e[i + 2], zeros});
  }
}

bool hdf_Journal::ReadJournal(uint64_t position, size_t size, void* bytes) {
  unsigned char* out = static_cast<unsigned char*>(bytes);
  if (position >= m_recentAt && position - m_recentAt <= m_recent.size() &&
      size <= m_recent.size() - (position - m_recentAt)) {
    memcpy(out, &m_recent[static_cast<size_t>(position - m_recentAt)], size);
    return true;
  }
  if (position < m_spilled) {
    size_t n = static_cast<size_t>(std::min<uint64_t>(size, m_spilled - position));
    if (!m_io->Read(m_journal, out, n, position)) return false;
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
  // Beyond the end of file a snapshot holds zeros, whatever a writer put there.
  size_t stored =
      address >= m_eof ? 0 : static_cast<size_t>(std::min<uint64_t>(size, m_eof - address));
  if (stored > 0 && !m_io->Read(m_db, bytes, stored, address)) return false;
  memset(bytes + stored, 0, size - stored);
  return true;
}

bool hdf_Journal::SnapshotIntact() {
  if (m_writable || !m_guarded || m_journal < 0) return true;
  Live live;
  if (!ReadLive(&live)) return true;  // no writer has been here
  return live.limit <= m_seen && live.freed <= m_copied;
}

bool hdf_Journal::Read(uint64_t address, size_t size, void* bytes) {
  if (m_failed && !m_writable) return false;
  if (address > kMaxAddress || size > kMaxAddress - address) return false;
  unsigned char* out = static_cast<unsigned char*>(bytes);
  const uint64_t end = address + size;
  auto it = m_overlay.upper_bound(address);
  if (it != m_overlay.begin() && std::prev(it)->second.end > address) --it;
  for (uint64_t at = address; at < end;) {
    if (it != m_overlay.end() && it->first <= at) {
      uint64_t stop = std::min(it->second.end, end);
      unsigned char* to = out + (at - address);
      if (it->second.zeros) {
        memset(to, 0, static_cast<size_t>(stop - at));
      } else if (!ReadJournal(it->second.position + (at - it->first),
                              static_cast<size_t>(stop - at), to)) {
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
  if (!SnapshotIntact()) {
    aio_cerr.print("**ERROR hdf_Journal::Read: the writer of ")
        .print(m_name.data())
        .print(" overwrote this snapshot: open it again\n");
    return Fail();
  }
  return true;
}

// ------------------------------------------------------------- writing

void hdf_Journal::Append(const void* bytes, size_t size) {
  const unsigned char* p = static_cast<const unsigned char*>(bytes);
  m_buffer.insert(m_buffer.end(), p, p + size);
  m_crc = Crc(m_crc, bytes, size);
}

void hdf_Journal::Begin() {
  std::vector<unsigned char> header(kMagic, kMagic + sizeof kMagic);
  Put64(header, m_base.salt);
  Put64(header, m_last + 1);
  m_crc = m_chain;
  Append(header.data(), header.size());
  m_buffer.resize(m_buffer.size() + 8, 0);  // the length, once committed
}

bool hdf_Journal::Spill() {
  if (m_buffer.empty()) return true;
  if (!m_io->Write(m_journal, m_buffer.data(), m_buffer.size(), m_spilled)) return false;
  m_spilled += m_buffer.size();
  m_buffer.clear();
  return true;
}

bool hdf_Journal::Write(uint64_t address, size_t size, const void* bytes) {
  if (!m_writable || m_failed || address > kMaxAddress || size > kMaxAddress - address) {
    return false;
  }
  const unsigned char* p = static_cast<const unsigned char*>(bytes);
  if (size > 0 && address < m_safe) {
    // Bytes some snapshot may hold go into the transaction.
    size_t below = static_cast<size_t>(std::min<uint64_t>(size, m_safe - address));
    bool ok = below >= kCompareFrom && below <= kBufferLimit && Unwritten(address, address + below)
                  ? WriteChanges(address, below, p)
                  : WriteExtent(address, below, p);
    if (!ok) return false;
    address += below;
    p += below;
    size -= below;
  }
  if (size == 0) return true;
  // Beyond the safe end nobody reads: straight into the file, once.
  if (!m_io->Write(m_db, p, size, address)) return Fail();
  m_direct = m_dirty = true;
  m_eof = std::max(m_eof, address + size);
  return true;
}

bool hdf_Journal::Unwritten(uint64_t address, uint64_t end) const {
  if (end > m_eof) return false;
  auto it = m_overlay.upper_bound(address);
  if (it != m_overlay.end() && it->first < end) return false;
  return it == m_overlay.begin() || std::prev(it)->second.end <= address;
}

bool hdf_Journal::WriteChanges(uint64_t address, size_t size, const unsigned char* bytes) {
  m_compare.resize(size);
  if (!m_io->Read(m_db, m_compare.data(), size, address)) return WriteExtent(address, size, bytes);
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
  if (m_spilled == m_end && m_buffer.empty()) Begin();
  uint64_t position = m_spilled + m_buffer.size();
  if (size >= kBufferLimit) {
    if (!Spill() || !m_io->Write(m_journal, bytes, size, m_spilled)) {
      return Fail();
    }
    m_crc = Crc(m_crc, bytes, size);
    m_spilled += size;
  } else {
    Append(bytes, size);
    if (m_buffer.size() >= kBufferLimit && !Spill()) {
      return Fail();
    }
  }
  Extent extent{address + size, position, false};
  Place(&m_overlay, address, extent);
  Place(&m_pending, address, extent);
  m_eof = std::max(m_eof, address + size);
  m_dirty = true;
  return true;
}

bool hdf_Journal::WriteZeros(uint64_t address, uint64_t end) {
  if (m_spilled == m_end && m_buffer.empty()) Begin();
  Extent extent{end, m_end, true};
  Place(&m_overlay, address, extent);
  Place(&m_pending, address, extent);
  return true;
}

void hdf_Journal::Place(Overlay* overlay, uint64_t address, const Extent& extent) {
  const uint64_t end = extent.end;
  auto it = overlay->upper_bound(address);
  if (it != overlay->begin() && std::prev(it)->second.end > address) --it;
  // Older bytes under [address, end) give way; what sticks out stays.
  while (it != overlay->end() && it->first < end) {
    uint64_t start = it->first;
    Extent old = it->second;
    it = overlay->erase(it);
    if (start < address) overlay->emplace(start, Extent{address, old.position, old.zeros});
    if (old.end > end) {
      uint64_t shift = old.zeros ? 0 : end - start;
      overlay->emplace(end, Extent{old.end, old.position + shift, old.zeros});
      break;
    }
  }
  it = overlay->lower_bound(address);
  if (it != overlay->begin() && !extent.zeros) {
    auto previous = std::prev(it);
    Extent& p = previous->second;
    if (!p.zeros && p.end == address &&
        p.position + (address - previous->first) == extent.position) {
      p.end = end;  // continues the previous write in both file and journal
      return;
    }
  }
  overlay->emplace_hint(it, address, extent);
}

bool hdf_Journal::Truncate(uint64_t eof) {
  if (eof == m_eof) return true;
  if (!m_writable || m_failed || eof > kMaxAddress) return false;
  if (eof < m_eof) {
    for (Overlay* overlay : {&m_overlay, &m_pending}) {
      auto it = overlay->lower_bound(eof);
      if (it != overlay->begin() && std::prev(it)->second.end > eof) {
        std::prev(it)->second.end = eof;
      }
      overlay->erase(it, overlay->end());
    }
    // Committed bytes the truncation took away read as zeros from now on;
    // the file's own bytes beyond the safe end go at once.
    if (eof < m_safe) WriteZeros(eof, m_safe);
    uint64_t size = 0;
    uint64_t keep = std::max(eof, m_safe);
    if (!m_io->Size(m_db, &size) || (size > keep && !m_io->SetLength(m_db, keep))) {
      return Fail();
    }
  }
  m_eof = eof;
  m_dirty = true;
  return true;
}

bool hdf_Journal::Commit() {
  if (m_failed) return false;
  if (!m_dirty) return true;
  if (m_spilled == m_end && m_buffer.empty()) Begin();
  const uint64_t number = m_last + 1;
  const uint64_t safe = std::max(m_safe, m_eof);
  Transaction transaction;
  transaction.number = number;
  // The commit record, all but the trailer's crc and end mark.
  std::vector<unsigned char> record(
      static_cast<size_t>(kCommitBytes + m_pending.size() * kExtentBytes + 16));
  unsigned char* at = StoreLittle<8>(record.data(), m_pending.size());
  at = StoreLittle<8>(at, m_eof);
  at = StoreLittle<8>(at, safe);
  transaction.extents.resize(m_pending.size() * 3);
  uint64_t* extent = transaction.extents.data();
  for (const auto& entry : m_pending) {
    extent[0] = entry.first;
    extent[1] = entry.second.end - entry.first;
    extent[2] = entry.second.zeros ? 0 : entry.second.position;
    for (int i = 0; i < 3; ++i) at = StoreLittle<8>(at, extent[i]);
    extent += 3;
  }
  const uint64_t commit = m_spilled + m_buffer.size();
  at = StoreLittle<8>(at, commit);
  StoreLittle<8>(at, number);
  Append(record.data(), record.size());
  record.clear();
  Put32(record, m_crc);
  record.insert(record.end(), kEndMark, kEndMark + sizeof kEndMark);
  m_buffer.insert(m_buffer.end(), record.begin(), record.end());
  const uint64_t end = m_spilled + m_buffer.size();
  // The length in the header completes the transaction: in the same write
  // when it is all in memory, else last.
  record.clear();
  Put64(record, end - m_end);
  // The file's new bytes are on the disk before the commit record that
  // makes them part of the database, and the record before anyone is told.
  bool written = !m_durable || !m_direct || m_io->Sync(m_db);
  if (written && m_spilled == m_end) {
    std::copy(record.begin(), record.end(), m_buffer.begin() + kLengthField);
    written = m_io->Write(m_journal, m_buffer.data(), m_buffer.size(), m_end);
  } else if (written) {
    written = m_io->Write(m_journal, m_buffer.data(), m_buffer.size(), m_spilled) &&
              m_io->Write(m_journal, record.data(), record.size(), m_end + kLengthField);
  }
  if (!written || (m_durable && !m_io->Sync(m_journal))) {
    return Fail();
  }
  transaction.end = end;
  transaction.eof = m_eof;
  transaction.crc = m_crc;
  m_transactions.push_back(std::move(transaction));
  m_last = number;
  // The buffer's bytes stay at hand until the next commit for the copy.
  m_recentAt = m_spilled;
  m_recent.swap(m_buffer);
  m_end = m_spilled = end;
  m_chain = m_crc;
  m_safe = safe;
  m_pending.clear();
  m_buffer.clear();
  if (m_buffer.capacity() > 4 * kBufferLimit) m_buffer.shrink_to_fit();
  m_dirty = m_direct = false;
  // Readers learn of the transaction from the checkpoint's write of
  // the live state, which follows at once.
  m_liveBehind = true;
  // Copied into the file at once as far as the readers allow, so that the
  // file alone is current while nobody reads; settled every megabyte.
  bool bound = m_end - m_freedEnd > kJournalBound;
  return Checkpoint(bound ? kOverwriteReaders : kWhenNoneOpening,
                    bound || m_end - m_settled >= kCheckpointBytes) ||
         Fail();
}

// ------------------------------------------------------------- checkpoints

bool hdf_Journal::Marked(uint64_t region, uint64_t below) {
  uint64_t at = 0;
  return below > 0 &&
         m_io->Test(m_db, hdf_JournalIo::kExclusive, region, below, &at) == hdf_JournalIo::kBusy;
}

uint64_t hdf_Journal::LowestMark(uint64_t region, uint64_t below) {
  // Each look finds some mark under the limit; the next looks under it.
  uint64_t at = 0;
  while (below > 0 &&
         m_io->Test(m_db, hdf_JournalIo::kExclusive, region, below, &at) == hdf_JournalIo::kBusy) {
    if (at < region || at - region >= below) break;
    below = at - region;
  }
  return below;
}

bool hdf_Journal::AnyMark() {
  return m_guarded && (Marked(kSeenMarks, kMarkRange) || Marked(kCopiedMarks, kMarkRange));
}

uint64_t hdf_Journal::HighestMark() {
  if (!m_guarded || !Marked(kSeenMarks, kMarkRange)) return 0;
  // The highest x with a mark at or above it.
  uint64_t low = 0, high = kMarkRange - 1;
  while (low < high) {
    uint64_t middle = low + (high - low + 1) / 2;
    uint64_t at = 0;
    if (m_io->Test(m_db, hdf_JournalIo::kExclusive, kSeenMarks + middle, kMarkRange - middle,
                   &at) == hdf_JournalIo::kBusy) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return low;
}

bool hdf_Journal::Checkpoint(Force force, bool settle) {
  if (!m_writable || m_failed || m_journal < 0) return !m_failed;
  // How far the readers allow, decided while none can be opening: readers
  // that open afterwards see at least this far. Usually there is no reader:
  // one lock over the journal's byte and every mark says so.
  const bool wait = force != kWhenNoneOpening;
  const bool asReadersAllow = force == kAsReadersAllow || force == kWhenNoneOpening;
  bool readers = m_guarded;
  if (m_guarded && m_io->Lock(m_db, hdf_JournalIo::kExclusive, kJournalByte,
                              kMarksEnd - kJournalByte, false) == hdf_JournalIo::kLocked) {
    readers = false;
  } else if (m_guarded && m_io->Lock(m_db, hdf_JournalIo::kExclusive, kJournalByte, 1, wait) ==
                              hdf_JournalIo::kBusy) {
    // A reader is opening: the copy waits for a later commit, and readers
    // learn of this one now (it is complete in the journal).
    if (m_liveBehind) WriteLive();
    return true;
  }
  uint64_t target = asReadersAllow && readers ? LowestMark(kSeenMarks, m_last) : m_last;
  target = std::max(target, m_base.copied);
  if (target > m_limit) {
    m_limit = target;
    m_liveBehind = true;
    // Snapshots the copy overwrites learn of it first, after their next read.
    if (!asReadersAllow) WriteLive();
  }
  // No reader opens meanwhile, and none of those open reads what the copy
  // changes: they learn of the transaction and of the copy at once.
  const bool copied = target <= m_base.copied || CopyThrough(target);
  if (copied && m_liveBehind) WriteLive();
  if (m_guarded) m_io->Unlock(m_db, kJournalByte, kMarksEnd - kJournalByte);
  if (!copied) return false;
  if (!settle) return true;

  // The file holds the copies before the header says so; then the journal
  // gives back what no reader reads there any more, or starts again.
  if ((m_durable && !m_io->Sync(m_db)) || !WriteBase()) {
    return Fail();
  }
  m_settled = m_end;
  if (m_guarded &&
      m_io->Lock(m_db, hdf_JournalIo::kExclusive, kJournalByte, 1, wait) == hdf_JournalIo::kBusy) {
    return true;  // freed or restarted at a later settlement
  }
  bool ok = true;
  if (m_base.copied == m_last && !AnyMark()) {
    ok = Restart();
  } else {
    uint64_t free = force == kOverwriteReaders || !m_guarded
                        ? m_base.copied
                        : LowestMark(kCopiedMarks, m_base.copied);
    if (free > m_freed) ok = Free(free);
  }
  if (m_guarded) m_io->Unlock(m_db, kJournalByte, 1);
  return ok;
}

bool hdf_Journal::CopyThrough(uint64_t number) {
  size_t count = 0;
  uint64_t start = m_base.next;
  for (const Transaction& t : m_transactions) {
    if (t.number > number) break;
    start = t.end;
    ++count;
  }
  // The newest bytes of each address among the transactions copied, as
  // address, length, position triples (0: zeros). One transaction's extents
  // are so already: in order and apart, as its writes left them.
  const std::vector<uint64_t>* extents = &m_transactions[0].extents;
  std::vector<uint64_t> merged;
  if (count > 1) {
    Overlay copy;
    for (size_t k = 0; k < count; ++k) {
      const std::vector<uint64_t>& e = m_transactions[k].extents;
      for (size_t i = 0; i < e.size(); i += 3) {
        bool zeros = e[i + 2] == 0;
        Place(&copy, e[i], Extent{e[i] + e[i + 1], zeros ? 0 : e[i + 2], zeros});
      }
    }
    for (const auto& entry : copy) {
      merged.insert(merged.end(), {entry.first, entry.second.end - entry.first,
                                   entry.second.zeros ? 0 : entry.second.position});
    }
    extents = &merged;
  }
  std::vector<unsigned char> chunk;
  for (size_t i = 0; i < extents->size(); i += 3) {
    const uint64_t address = (*extents)[i], length = (*extents)[i + 1];
    const uint64_t position = (*extents)[i + 2];
    for (uint64_t done = 0; done < length;) {
      const size_t n = static_cast<size_t>(std::min<uint64_t>(length - done, kCopyChunk));
      if (position == 0) {
        chunk.assign(n, 0);
      } else {
        chunk.resize(n);
        if (!ReadJournal(position + done, n, chunk.data())) return Fail();
      }
      if (!m_io->Write(m_db, chunk.data(), n, address + done)) return Fail();
      done += n;
    }
  }
  const Transaction& last = m_transactions[count - 1];
  m_copiedEnds.push_back({last.number, last.end});
  m_base.copied = last.number;
  m_base.next = start;
  m_base.crc = last.crc;
  m_base.size = last.eof;
  m_base.safe = m_safe;
  m_transactions.erase(m_transactions.begin(), m_transactions.begin() + count);
  // What reads found in the journal up to here is in the file now: all of
  // it, when every transaction is and none is under way.
  if (number == m_last && m_pending.empty()) {
    m_overlay.clear();
  } else {
    for (auto it = m_overlay.begin(); it != m_overlay.end();) {
      it = it->second.position < start ? m_overlay.erase(it) : std::next(it);
    }
  }
  m_liveBehind = true;  // the caller writes the live state
  return true;
}

bool hdf_Journal::Free(uint64_t number) {
  number = std::min(number, m_olderCopied);
  if (number <= m_freed) return true;
  uint64_t end = m_freedEnd;
  while (!m_copiedEnds.empty() && m_copiedEnds.front().first <= number) {
    end = m_copiedEnds.front().second;
    m_copiedEnds.pop_front();
  }
  m_freed = number;
  WriteLive();  // readers still reading there see it after their next read
  if (end > m_freedEnd) m_io->Punch(m_journal, m_freedEnd, end - m_freedEnd);
  if (end > m_recentAt) m_recent.clear();
  m_freedEnd = std::max(m_freedEnd, end);
  return true;
}

bool hdf_Journal::Restart() {
  // No reader is left: the file takes its final length and the journal
  // starts again, salted anew.
  uint64_t size = 0;
  if (!m_io->Size(m_db, &size) || (size != m_eof && !m_io->SetLength(m_db, m_eof)) ||
      (m_durable && !m_io->Sync(m_db))) {
    return Fail();
  }
  m_safe = m_eof;
  m_copiedEnds.clear();
  ++m_restarts;
  if (!StartJournal(m_last + 1)) {
    return Fail();
  }
  WriteLive();
  return true;
}

// ------------------------------------------------------------- closing

bool hdf_Journal::Close() {
  bool ok = true;
  if (m_writable && !m_failed && m_journal >= 0) {
    // Closing copies what the readers allow; what readers of an older
    // snapshot still read stays in the journal for the next writer to copy.
    ok = Commit() && Checkpoint(kAsReadersAllow, true);
    m_closed = true;
    WriteLive();
    if (ok && m_guarded) m_io->Lock(m_db, hdf_JournalIo::kExclusive, kJournalByte, 1, true);
    // A database closed with everything in the file and no reader left has
    // no journal beside it.
    if (ok && m_base.copied == m_last && !AnyMark() && m_io->Unlink(m_journalName.data()) &&
        m_durable) {
      m_io->SyncDirectory(m_journalName.data());
    }
  } else if (!m_writable && m_guarded && m_journal >= 0) {
    // The last reader of a database nobody writes takes away a journal that
    // holds nothing (the first page a reader made, or a writer left). An
    // exclusive lock needs a descriptor open for writing: the reader opens
    // the file again for the lock alone and writes nothing through it. Where
    // it may not, the journal stays for the next writer or reader.
    int lock = m_io->Open(m_name.data(), O_RDWR, 0);
    if (lock >= 0 &&
        m_io->Lock(lock, hdf_JournalIo::kExclusive, kJournalByte, 1, false) ==
            hdf_JournalIo::kLocked &&
        !Writing() && !AnyMark() && Settled()) {
      m_io->Unlink(m_journalName.data());
    }
    if (lock >= 0) m_io->Close(lock);
  }
  if (m_view != nullptr) m_io->Unmap(m_view, kPage);
  if (m_journal >= 0) m_io->Close(m_journal);
  if (m_db >= 0) m_io->Close(m_db);  // releases every lock
  m_view = nullptr;
  m_journal = m_db = -1;
  return ok;
}

// ------------------------------------------------------------- outside looks

bool hdf_Journal::Pending(const char* name) {
  if (name == nullptr) return false;
  hdf_Journal look;
  look.m_io = hdf_JournalIo::Current();
  look.m_journalName = JournalName(name);
  look.m_journal = look.m_io->Open(look.m_journalName.data(), O_RDONLY, 0);
  if (look.m_journal < 0) return false;
  bool pending;
  Live live;
  if (look.ReadBase(&look.m_base)) {
    // A writer that closed beside readers leaves their commits to the next.
    bool closed = look.ReadLive(&live) && live.closed && live.base.salt == look.m_base.salt;
    if (closed) look.m_base = live.base;
    look.ReadTransactions(false);
    unsigned char header[kHeaderBytes] = {};
    look.m_io->Read(look.m_journal, header, sizeof header, look.m_end);
    pending = (!look.m_transactions.empty() && !closed) || !AllZero(header, sizeof header);
  } else {
    pending = look.HoldsAnything();
  }
  look.m_io->Close(look.m_journal);
  look.m_journal = -1;
  return pending;
}

bool hdf_Journal::Watch(const char* name, uint64_t* mark, bool* writing) {
  hdf_JournalIo* io = hdf_JournalIo::Current();
  int db = io->Open(name, O_RDONLY, 0);
  if (db < 0) return false;
  uint64_t at = 0;
  *writing = io->Test(db, hdf_JournalIo::kShared, kWriterByte, 1, &at) == hdf_JournalIo::kBusy;
  struct stat info;
  *mark = fstat(db, &info) == 0 ? static_cast<uint64_t>(info.st_size) ^
                                      (static_cast<uint64_t>(info.st_mtim.tv_nsec) << 20) ^
                                      static_cast<uint64_t>(info.st_mtim.tv_sec)
                                : 0;
  hdf_Journal look;
  look.m_io = io;
  look.m_journal = io->Open(JournalName(name).data(), O_RDONLY, 0);
  Live live;
  if (look.m_journal >= 0 && look.ReadLive(&live)) {
    *mark = live.base.salt ^ (live.restarts << 40) ^ live.last;
  }
  if (look.m_journal >= 0) io->Close(look.m_journal);
  look.m_journal = -1;
  io->Close(db);
  return true;
}
