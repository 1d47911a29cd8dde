#include "platform/core/aio_ostream.h"

#include <unistd.h>
#include <cerrno>
#include <cstring>

aio_ostream aio_cerr(2);

aio_ostream& aio_ostream::print(const char* text) {
  if (text != nullptr) Append(text, static_cast<int>(std::strlen(text)));
  return *this;
}

aio_ostream& aio_ostream::print_int(int value) {
  char digits[16];
  int n = 0;
  // Work on the negative side so that INT_MIN needs no special case.
  int v = value < 0 ? value : -value;
  do {
    digits[n++] = static_cast<char>('0' - v % 10);
    v /= 10;
  } while (v != 0);
  char out[17];
  int k = 0;
  if (value < 0) out[k++] = '-';
  while (n > 0) out[k++] = digits[--n];
  Append(out, k);
  return *this;
}

aio_ostream& aio_ostream::put(char c) {
  Append(&c, 1);
  return *this;
}

aio_ostream& aio_ostream::flush() {
  if (m_length > 0) {
    int n = m_length;
    m_length = 0;
    WriteOut(m_buffer, n);
  }
  return *this;
}

void aio_ostream::SetSink(aio_SinkFunction sink, void* context) {
  flush();
  m_sink = sink;
  m_sinkContext = context;
}

void aio_ostream::Append(const char* bytes, int count) {
  bool lineEnd = std::memchr(bytes, '\n', static_cast<size_t>(count)) != nullptr;
  if (m_length + count > static_cast<int>(sizeof m_buffer)) {
    flush();
    if (count > static_cast<int>(sizeof m_buffer)) {
      WriteOut(bytes, count);
      return;
    }
  }
  std::memcpy(m_buffer + m_length, bytes, static_cast<size_t>(count));
  m_length += count;
  if (lineEnd) flush();
}

void aio_ostream::WriteOut(const char* bytes, int count) {
  if (m_sink != nullptr) {
    m_sink(m_sinkContext, bytes, count);
    return;
  }
  while (count > 0) {
    ssize_t w = ::write(m_fd, bytes, static_cast<size_t>(count));
    if (w < 0) {
      if (errno == EINTR) continue;
      return;  // nowhere left to report a failing error stream
    }
    bytes += w;
    count -= static_cast<int>(w);
  }
}

aio_ostream& operator<<(aio_ostream& stream, const cow_String& text) {
  return stream.print(text.c_str());
}
