// Test helper: collects what the library prints on aio_cerr.
//
// While a CaptureErr lives, aio_cerr writes into it instead of fd 2; Text()
// flushes the stream first, so it holds every byte printed so far.
#ifndef DDB_TESTS_SUPPORT_CAPTURE_H_
#define DDB_TESTS_SUPPORT_CAPTURE_H_

#include <string>

class CaptureErr {
 public:
  CaptureErr();
  ~CaptureErr();
  CaptureErr(const CaptureErr&) = delete;
  CaptureErr& operator=(const CaptureErr&) = delete;

  // Everything printed since construction or the last Take().
  const std::string& Text();
  // Returns the text and starts afresh.
  std::string Take();

 private:
  static void Sink(void* self, const char* bytes, int count);
  std::string m_text;
};

#endif  // DDB_TESTS_SUPPORT_CAPTURE_H_
