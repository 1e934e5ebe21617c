#include "platform/core/Exception.h"

#include <gtest/gtest.h>

#include "platform/core/String8.h"

namespace Lum {
namespace {

// Formatting must not truncate texts longer than the stack buffer.
TEST(ExceptionTest, FormatHandlesLongOutput) {
  EXPECT_EQ(format("%s-%d", "vti", 7), String8("vti-7"));
  std::string longText(1000, 'a');
  EXPECT_EQ(format("%s!", longText.c_str()).size(), 1001u);
}

}  // namespace
}  // namespace Lum
