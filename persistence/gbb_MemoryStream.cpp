#include "persistence/gbb_MemoryStream.h"

#include <cstring>

#include "platform/core/mem.h"
#include "platform/service/QELSimIDExternal.h"

namespace {

constexpr bool HostIsBigEndian() {
  return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
}

constexpr int kHeaderSize = 4;

// Strings up to this length are cut at their NUL on the stack.
constexpr int kScratchOnStack = 256;

// An identifier of the reader's context with the minor parts the form gives back.
QELSimCollectionID IdFromForm(int context, const QELSimIDExternal& form, QELSimCollectionID*) {
  return QELSimCollectionID(context, form.CollectionIDMinor());
}
QELSimCSetID IdFromForm(int context, const QELSimIDExternal& form, QELSimCSetID*) {
  return QELSimCSetID(context, form.CollectionIDMinor(), form.CSetIDMinor());
}
QELSimDistributionID IdFromForm(int context, const QELSimIDExternal& form, QELSimDistributionID*) {
  return QELSimDistributionID(context, form.DistributionIDMinor());
}
QELSimDSetID IdFromForm(int context, const QELSimIDExternal& form, QELSimDSetID*) {
  return QELSimDSetID(context, form.DSetIDMinor());
}

}  // namespace

gbb_MemoryStream::gbb_MemoryStream(QELSimContextID context)
    : m_context(context),
      m_buffer(),
      m_position(kHeaderSize),
      m_swap(HostIsBigEndian()),
      m_status(ErrorNone),
      m_limit(0) {
  Write(kHeaderSize);
}

gbb_MemoryStream::gbb_MemoryStream(Buffer buffer, QELSimContextID context)
    : m_context(context),
      m_buffer(buffer),
      m_position(0),
      m_swap(HostIsBigEndian()),
      m_status(ErrorNone),
      m_limit(m_buffer.count()) {
  int header = 0;
  if (!Read(header)) return;  // fewer than 4 bytes: overrun
  // Taken as it is: a header below 4 lets the first read fail, not this.
  m_limit = header;
}

gbb_MemoryStream::Buffer gbb_MemoryStream::GetBuffer() {
  WriteSize();
  Buffer out(static_cast<Buffer::gbb_AutoArrayMoveSrc>(m_buffer));
  Write(kHeaderSize);  // skipped while a failure stands, by design
  m_status = ErrorNone;
  m_position = kHeaderSize;
  return out;
}

void gbb_MemoryStream::Write(bool value) {
  Write(static_cast<unsigned char>(value ? 1 : 0));
}

void gbb_MemoryStream::Write(double value) {
  static_assert(sizeof(double) == 8, "doubles are stored as binary64");
  WriteWord(&value, sizeof value);
}

void gbb_MemoryStream::Write(const ada_string& value) {
  int n = value.byteCount();
  Write(n);
  WriteBytes(value.cStr(), n);
}

void gbb_MemoryStream::Write(QELSimCollectionID id) {
  WriteId(id);
}
void gbb_MemoryStream::Write(QELSimCSetID id) {
  WriteId(id);
}
void gbb_MemoryStream::Write(QELSimDistributionID id) {
  WriteId(id);
}
void gbb_MemoryStream::Write(QELSimDSetID id) {
  WriteId(id);
}

template <class Id>
void gbb_MemoryStream::WriteId(const Id& id) {
  if (m_status != ErrorNone) return;
  // A missing identifier carries no context worth checking.
  if (id.IsValid() && id.ContextNumber() != m_context.Number()) {
    m_status = ErrorForeignID;
    return;
  }
  QELSimIDExternal form(id);
  Write(form.Length());
  WriteBytes(form.Bytes(), form.Length());
}

bool gbb_MemoryStream::Read(bool& value) {
  unsigned char byte;
  if (!ReadBytes(&byte, 1)) return false;
  value = byte != 0;
  return true;
}

bool gbb_MemoryStream::Read(double& value) {
  return ReadWord(&value, sizeof value);
}

bool gbb_MemoryStream::Read(ada_string& value) {
  int n = 0;
  if (!Read(n)) return false;
  if (n < 0 || n > Remaining()) {
    m_status = ErrorOverrun;
    return false;
  }
  const char* text = reinterpret_cast<const char*>(m_buffer.data() + m_position);
  m_position += n;
  if (std::memchr(text, 0, static_cast<size_t>(n)) != nullptr) {
    // A stored NUL ends the string; the bytes are already terminated there.
    ada_string(text).swap(value);
    return true;
  }
  char onStack[kScratchOnStack + 1];
  char* scratch = n <= kScratchOnStack
                      ? onStack
                      : static_cast<char*>(mem_OperatorNewThrowBuiltin(static_cast<size_t>(n) + 1));
  std::memcpy(scratch, text, static_cast<size_t>(n));
  scratch[n] = '\0';
  ada_string(scratch).swap(value);
  if (scratch != onStack) mem_Free(scratch);
  return true;
}

bool gbb_MemoryStream::Read(QELSimCollectionID& id) {
  return ReadId(id);
}
bool gbb_MemoryStream::Read(QELSimCSetID& id) {
  return ReadId(id);
}
bool gbb_MemoryStream::Read(QELSimDistributionID& id) {
  return ReadId(id);
}
bool gbb_MemoryStream::Read(QELSimDSetID& id) {
  return ReadId(id);
}

template <class Id>
bool gbb_MemoryStream::ReadId(Id& id) {
  QELSimIDExternal form;
  if (!ReadExternal(form)) return false;
  id = IdFromForm(m_context.Number(), form, static_cast<Id*>(nullptr));
  return true;
}

bool gbb_MemoryStream::ReadExternal(QELSimIDExternal& form) {
  int length = 0;
  if (!Read(length)) return false;
  if (length > QELSimIDExternal::kMaxLength) {
    m_status = ErrorForeignID;
    return false;
  }
  if (!ReadBytes(form.Bytes(), length)) return false;
  form.SetLength(length);
  return true;
}

void gbb_MemoryStream::WriteSwapped(const void* value, int size) {
  unsigned char reversed[8];
  const unsigned char* in = static_cast<const unsigned char*>(value);
  for (int i = 0; i < size; ++i) reversed[i] = in[size - 1 - i];
  WriteBytes(reversed, size);
}

bool gbb_MemoryStream::ReadSwapped(void* value, int size) {
  unsigned char bytes[8];
  if (!ReadBytes(bytes, size)) return false;
  unsigned char* out = static_cast<unsigned char*>(value);
  for (int i = 0; i < size; ++i) out[i] = bytes[size - 1 - i];
  return true;
}

void gbb_MemoryStream::WriteSize() {
  if (m_buffer.count() < kHeaderSize) return;
  int size = m_buffer.count();
  unsigned char bytes[4];
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<unsigned char>(static_cast<unsigned>(size) >> (8 * i));
  std::memcpy(m_buffer.data(), bytes, 4);
}
