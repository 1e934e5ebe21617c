#include <gtest/gtest.h>

#include <vector>

#include "platform/loop/Clock.h"
#include "platform/loop/EventLoop.h"
#include "platform/os/TimeSource.h"

namespace Lum {
namespace {

struct Wakeups : Clock::NotifieeConst {
  std::vector<double> at;
  void onTime() override { at.push_back(now()); }
};

class ClockTest : public ::testing::Test {
 protected:
  ManualTimeSource time_{100.0};
  ScopedTimeSource scope_{time_};
  EventLoop loop_;
  Ptr<Clock> clock_{new Clock("clock", loop_)};
  Ptr<Wakeups> r_{new Wakeups};
  void SetUp() override {
    r_->notifierIs(clock_);
    r_->isRegisteredNotifieeIs(true);
  }
};

// Guards the wake-up the virtual ARP aging relies on: not before its moment, once, the
// request cleared by onTime; and the zombie rule: a reactor marked for deletion is not
// woken.
TEST_F(ClockTest, WakesOnceAtItsMomentAndZombiesSleep) {
  r_->timeMinIs(105.0);
  time_.advance(2.0);
  loop_.runOnce(0);
  EXPECT_TRUE(r_->at.empty()) << "fired before its time";
  time_.advance(3.0);
  loop_.runOnce(0);
  loop_.runOnce(0);
  EXPECT_EQ(r_->at, std::vector<double>{105.0});
  EXPECT_EQ(r_->timeMin(), Clock::kNever);

  r_->timeMinIs(106.0);
  r_->lumDoZombieReactors(true);
  time_.advance(5.0);
  loop_.runOnce(0);
  EXPECT_EQ(r_->at, std::vector<double>{105.0}) << "a zombie was woken";
}

}  // namespace
}  // namespace Lum
