// gbb_MemoryStream: the byte stream that carries an object's simple-typed
// members to and from its "#simpleTypeMembers" dataset.
//
// The bytes are a file format, fixed in every detail:
//
//   header      int32, the total byte count, its own 4 bytes included
//   int         4 bytes, two's complement
//   double      8 bytes, IEEE 754 binary64
//   bool        1 byte, 1 or 0 (any non-zero byte reads as true)
//   string      int32 byte count n, then the n bytes, no terminator
//   identifier  int32 length L (at most 64), then the L bytes of its
//               QELSimIDExternal form
//   tag         1 byte, Shape * 16 + Base
//
// Every multi-byte number is little-endian on every host; a big-endian host
// reverses the bytes as it goes (the swap flag).
//
// A stream either writes (it starts with a placeholder header that GetBuffer
// fills in) or reads (it takes a finished buffer over and reads up to the
// length its header records, never past the end of the bytes it was given).
// Errors are sticky: once Status() is non-zero every read and write does
// nothing, readers leave their output untouched, and the stream prints
// nothing; its callers report the status.
//
// The typed Write/Read members, WriteTag and the tag check Read(Shape, Base)
// are the toolkit of the member-record layer (gbb_MemberRecords.h), which is
// what every schema class's save and load goes through.
#ifndef DDB_PERSISTENCE_GBB_MEMORYSTREAM_H_
#define DDB_PERSISTENCE_GBB_MEMORYSTREAM_H_

#include <cstring>

#include "containers/ada_string.h"
#include "persistence/gbb_AutoArray.h"
#include "platform/core/ddb_export.h"
#include "platform/service/QELSimIDs.h"

class QELSimIDExternal;

class DDB_API gbb_MemoryStream {
 public:
  typedef gbb_AutoArray<unsigned char, gbb_MemoryStream> Buffer;

  enum Shape { ShapeScalar = 0, ShapeMapString = 3, ShapeMapInt = 4 };
  enum Base {
    BaseInt = 3,
    BaseDouble = 6,
    BaseString = 7,
    BaseCollectionID = 8,
    BaseCSetID = 9,
    BaseDistributionID = 10
  };
  enum Error { ErrorNone = 0, ErrorTagMismatch = 1, ErrorOverrun = 2, ErrorForeignID = 3 };

  // Writing: identifiers must belong to `context`.
  explicit gbb_MemoryStream(QELSimContextID context);
  // Reading: takes the bytes over (an array passed in is left empty);
  // identifiers read back are given `context`.
  gbb_MemoryStream(Buffer buffer, QELSimContextID context);
  gbb_MemoryStream(const gbb_MemoryStream&) = delete;
  gbb_MemoryStream& operator=(const gbb_MemoryStream&) = delete;

  // Records the byte count in the header and hands the bytes out; the stream
  // then starts afresh as a writing stream with status 0. A stream whose
  // status was set still hands out what it holds, but restarts with no bytes
  // at all (its placeholder is skipped while the old status stands).
  Buffer GetBuffer();

  void Write(bool value);
  void Write(unsigned char value) { WriteBytes(&value, 1); }
  void Write(int value) { WriteWord(&value, sizeof value); }
  void Write(double value);
  void Write(const ada_string& value);
  // An identifier that is valid and of another context sets ErrorForeignID.
  void Write(QELSimCollectionID id);
  void Write(QELSimCSetID id);
  void Write(QELSimDistributionID id);
  void Write(QELSimDSetID id);
  void WriteTag(Shape shape, Base base) { Write(static_cast<unsigned char>(shape * 16 + base)); }

  // Each returns true when the value was read; on failure the output keeps
  // its value and Status() says why.
  bool Read(bool& value);
  bool Read(unsigned char& value) { return ReadBytes(&value, 1); }
  bool Read(int& value) { return ReadWord(&value, sizeof value); }
  bool Read(double& value);
  // Stops at the first NUL byte of the stored text.
  bool Read(ada_string& value);
  bool Read(QELSimCollectionID& id);
  bool Read(QELSimCSetID& id);
  bool Read(QELSimDistributionID& id);
  bool Read(QELSimDSetID& id);
  // Reads a tag byte; ErrorTagMismatch when it is not shape * 16 + base.
  bool Read(Shape shape, Base base) {
    unsigned char tag;
    if (!ReadBytes(&tag, 1)) return false;
    if (tag == shape * 16 + base) return true;
    m_status = ErrorTagMismatch;
    return false;
  }

  int Status() const { return m_status; }
  // Sets `error` unless a failure already stands: the first one sticks.
  void Fail(Error error) {
    if (m_status == ErrorNone) m_status = error;
  }
  int Position() const { return m_position; }
  // The length the header records (a reading stream) or 0 (a writing one).
  int Limit() const { return m_limit; }
  bool AtEnd() const { return m_position == m_limit; }
  // Bytes a reader can still take: up to the limit and within the buffer.
  int Remaining() const {
    int end = m_limit < m_buffer.count() ? m_limit : m_buffer.count();
    return end > m_position ? end - m_position : 0;
  }
  QELSimContextID Context() const { return m_context; }

 private:
  // The byte-level primitives are inline: every value passes through them.
  void WriteBytes(const void* bytes, int count) {
    if (m_status == ErrorNone)
      m_buffer.appendRange(static_cast<const unsigned char*>(bytes), count);
  }
  bool ReadBytes(void* bytes, int count) {
    if (m_status != ErrorNone) return false;
    // The header may claim more than the buffer holds: never read past either.
    if (count < 0 || count > Remaining()) {
      m_status = ErrorOverrun;
      return false;
    }
    std::memcpy(bytes, m_buffer.data() + m_position, static_cast<size_t>(count));
    m_position += count;
    return true;
  }
  // Numbers little-endian on every host.
  void WriteWord(const void* value, int size) {
    if (m_swap) {
      WriteSwapped(value, size);
    } else {
      WriteBytes(value, size);
    }
  }
  bool ReadWord(void* value, int size) {
    if (m_swap) return ReadSwapped(value, size);
    return ReadBytes(value, size);
  }
  void WriteSwapped(const void* value, int size);
  bool ReadSwapped(void* value, int size);
  void WriteSize();
  template <class Id>
  void WriteId(const Id& id);
  template <class Id>
  bool ReadId(Id& id);
  // The external form; false (status set) when it cannot be read.
  bool ReadExternal(QELSimIDExternal& form);

  QELSimContextID m_context;
  Buffer m_buffer;
  int m_position;
  bool m_swap;
  int m_status;
  int m_limit;
};

#endif  // DDB_PERSISTENCE_GBB_MEMORYSTREAM_H_
