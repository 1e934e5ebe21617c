#include "platform/os/TimeSource.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/core/Exception.h"

namespace Lum {
namespace {

// Guards against a guard leaking its source past its scope or restoring the wrong one
// when guards nest, and against a manual clock moving backwards (or to NaN), which code
// written against a monotonic clock may not survive.
TEST(TimeSourceTest, ScopedSourcesNestAndManualTimeOnlyMovesOn) {
  ManualTimeSource outer(10.0), inner(20.0);
  {
    ScopedTimeSource outerGuard(outer);
    {
      ScopedTimeSource innerGuard(inner);
      inner.advance(1.5);
      EXPECT_EQ(now(), 21.5);
    }
    EXPECT_EQ(now(), 10.0);
  }
  EXPECT_NE(dynamic_cast<MonotonicTimeSource*>(&timeSource()), nullptr);

  EXPECT_THROW(outer.advance(-1.0), RangeException);
  EXPECT_THROW(outer.nowIs(9.0), RangeException);
  EXPECT_THROW(outer.nowIs(NAN), RangeException);
  outer.nowIs(12.0);
  EXPECT_EQ(outer.now(), 12.0);
}

}  // namespace
}  // namespace Lum
