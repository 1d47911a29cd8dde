#include "platform/service/QELSimAssert.h"

#include <cstdlib>

#include "platform/core/aio_ostream.h"

void QELSimAssert::ReportValidationFailure(const char* condition, const char* file, int line) {
  aio_cerr.print("**ERROR QELSimAssert: ").print(condition).print(" failed at ").print(file);
  aio_cerr.put(':').print_int(line).put('\n').flush();
  std::abort();
}
