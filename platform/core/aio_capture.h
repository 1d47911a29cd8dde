// aio_Capture: what is printed on an aio_ostream, collected for a while.
//
// While a capture lives, the stream's flushed bytes go into it instead of
// where they went before; its end hands the stream back to exactly that
// sink (the file descriptor, or the capture it replaced), so captures nest
// and the outer one keeps collecting once an inner one ends. They must end
// in the reverse order of their start, as scopes do.
//
// The Python module (Messages), the ddb tool and the tests each collect the
// library's messages this way. The class is written inline here so that it
// adds nothing to the library's exported interface.
#ifndef DDB_PLATFORM_CORE_AIO_CAPTURE_H_
#define DDB_PLATFORM_CORE_AIO_CAPTURE_H_

#include <string>

#include "platform/core/aio_ostream.h"

class aio_Capture {
 public:
  explicit aio_Capture(aio_ostream& stream = aio_cerr)
      : m_stream(stream), m_previous(stream.Sink()), m_previousContext(stream.SinkContext()) {
    m_stream.SetSink(&aio_Capture::Collect, this);  // what is pending goes where it went
  }
  ~aio_Capture() { m_stream.SetSink(m_previous, m_previousContext); }
  aio_Capture(const aio_Capture&) = delete;
  aio_Capture& operator=(const aio_Capture&) = delete;

  // Everything printed since construction or the last Take().
  const std::string& Text() {
    m_stream.flush();
    return m_text;
  }
  // Returns the text and starts afresh.
  std::string Take() {
    m_stream.flush();
    std::string text;
    text.swap(m_text);
    return text;
  }

 private:
  static void Collect(void* self, const char* bytes, int count) {
    static_cast<aio_Capture*>(self)->m_text.append(bytes, static_cast<size_t>(count));
  }

  aio_ostream& m_stream;
  aio_SinkFunction m_previous;
  void* m_previousContext;
  std::string m_text;
};

#endif  // DDB_PLATFORM_CORE_AIO_CAPTURE_H_
