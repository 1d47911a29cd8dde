// The suite's error stream: aio_ostream and the process-wide aio_cerr.
//
// Output is collected in a fixed buffer inside the object and written to the
// file descriptor when a line ends, when the buffer fills, or on flush(), so
// a message is never lost if the process aborts right after printing it.
// The stream is constant-initialised: no constructor runs when the library
// is loaded. The bytes may be diverted to a sink (aio_Capture collects them).
#ifndef DDB_PLATFORM_CORE_AIO_OSTREAM_H_
#define DDB_PLATFORM_CORE_AIO_OSTREAM_H_

#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"

// Receives flushed bytes instead of the file descriptor (see SetSink).
typedef void (*aio_SinkFunction)(void* context, const char* bytes, int count);

class DDB_API aio_ostream {
 public:
  constexpr explicit aio_ostream(int fd)
      : m_fd(fd), m_length(0), m_sink(nullptr), m_sinkContext(nullptr), m_buffer{} {}
  aio_ostream(const aio_ostream&) = delete;
  aio_ostream& operator=(const aio_ostream&) = delete;

  // A NUL-terminated text; null prints nothing.
  aio_ostream& print(const char* text);
  // A signed decimal number.
  aio_ostream& print_int(int value);
  aio_ostream& put(char c);
  // Makes everything printed so far visible.
  aio_ostream& flush();

  // Diverts output to sink (flushing what is pending first); null restores the fd.
  void SetSink(aio_SinkFunction sink, void* context);
  // The sink output goes to now (null: the fd), for handing it back later.
  aio_SinkFunction Sink() const { return m_sink; }
  void* SinkContext() const { return m_sinkContext; }

 private:
  void Append(const char* bytes, int count);
  void WriteOut(const char* bytes, int count);

  int m_fd;
  int m_length;
  aio_SinkFunction m_sink;
  void* m_sinkContext;
  char m_buffer[4096];
};

DDB_API extern aio_ostream aio_cerr;

DDB_API aio_ostream& operator<<(aio_ostream& stream, const cow_String& text);

#endif  // DDB_PLATFORM_CORE_AIO_OSTREAM_H_
