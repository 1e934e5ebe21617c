#include <gtest/gtest.h>

#include <chrono>

#include "platform/os/TimeSource.h"

namespace {

using Steady = std::chrono::steady_clock;

double secondsSince(Steady::time_point t) {
  return std::chrono::duration<double>(Steady::now() - t).count();
}

// On the process's clock a deadline ends when its budget is spent, neither sooner nor
// much later, both before the tick counter's rate is known and once it is (budgets
// made over a quarter of a second teach it the rate where there is such a counter).
TEST(DeadlineTest, EndsWhenItsBudgetIsSpent) {
  for (int round = 0; round < 2; ++round) {
    const Steady::time_point start = Steady::now();
    const Lum::Deadline deadline(0.02);
    EXPECT_FALSE(deadline.passed());
    while (!deadline.passed() && secondsSince(start) < 5.0) {
    }
    const double took = secondsSince(start);
    EXPECT_GE(took, 0.02) << "round " << round;
    EXPECT_LT(took, 1.0) << "round " << round;
    for (const Steady::time_point t = Steady::now(); secondsSince(t) < 0.25;) Lum::Deadline(0.0);
  }
}

// Under a test's source only that source's time counts.
TEST(DeadlineTest, FollowsTheCurrentSource) {
  Lum::ManualTimeSource clock(10.0);
  const Lum::ScopedTimeSource guard(clock);
  const Lum::Deadline deadline(1.0);
  clock.advance(1.0);
  EXPECT_FALSE(deadline.passed());
  clock.advance(1e-6);
  EXPECT_TRUE(deadline.passed());
}

}  // namespace
