// The error stream and the reference-counted string of the platform core.
#include <gtest/gtest.h>

#include <climits>

#include "platform/core/aio_ostream.h"
#include "platform/core/cow_String.h"
#include "support/capture.h"

namespace {

TEST(AioOstream, ChainsTextNumbersCharactersAndStrings) {
  CaptureErr err;
  aio_cerr.print("a ").print_int(0).put(' ').print_int(-17).put(' ').print_int(INT_MIN);
  aio_cerr.put(' ').print_int(INT_MAX).put(' ') << cow_String("cow");
  aio_cerr.print(nullptr);
  EXPECT_EQ(err.Text(), "a 0 -17 -2147483648 2147483647 cow");
}

TEST(AioOstream, LongOutputPassesThroughWhole) {
  CaptureErr err;
  std::string big(10000, 'x');
  aio_cerr.print("<").print(big.c_str()).print(">\n");
  EXPECT_EQ(err.Text(), "<" + big + ">\n");
}

TEST(AioOstream, WritesToFileDescriptorTwo) {
  testing::internal::CaptureStderr();
  aio_cerr.print("to stderr ").print_int(42).flush();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "to stderr 42");
}

TEST(CowString, CopiesShareAndCompareByContent) {
  cow_String none;
  EXPECT_FALSE(none.HasBuffer());
  EXPECT_STREQ(none.c_str(), "");
  cow_String empty("");
  EXPECT_TRUE(empty.HasBuffer());
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(none, empty);

  gbb_String a("file.sim");
  gbb_String b = a;
  EXPECT_EQ(a.c_str(), b.c_str());  // shared buffer
  EXPECT_EQ(a.length(), 8);
  b = cow_String("other");
  EXPECT_STREQ(a.c_str(), "file.sim");
  EXPECT_NE(a, b);
  EXPECT_EQ(cow_String("ab\0c", 4).length(), 4);
}

}  // namespace
