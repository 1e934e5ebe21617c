#include "platform/core/Exception.h"

#include <gtest/gtest.h>

#include "platform/core/String8.h"

namespace Lum {
namespace {

// Guards the report path: an exception must know whether an Expect scope covered it,
// and scopes must unwind in order.
TEST(ExceptionTest, ExpectScopesNestAndUnwind) {
  EXPECT_FALSE(Exception("x", ExceptionId::deviceMissing).expected());
  {
    Expect outer(29);
    {
      Expect inner(ExceptionId::range);
      EXPECT_TRUE(Exception("x", ExceptionId::deviceMissing).expected());
      EXPECT_TRUE(RangeException("x").expected());
    }
    EXPECT_FALSE(RangeException("x").expected());
  }
  EXPECT_FALSE(Exception("x", ExceptionId::deviceMissing).expected());
}

// Formatting must not truncate texts longer than the stack buffer.
TEST(ExceptionTest, FormatHandlesLongOutput) {
  EXPECT_EQ(format("%s-%d", "vti", 7), String8("vti-7"));
  std::string longText(1000, 'a');
  EXPECT_EQ(format("%s!", longText.c_str()).size(), 1001u);
}

}  // namespace
}  // namespace Lum
