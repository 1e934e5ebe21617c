#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/loop/Clock.h"
#include "platform/loop/EventLoop.h"
#include "platform/loop/FileDescriptor.h"
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

struct Reader : FileDescriptor::NotifieeConst {
  size_t perCall = 1;
  std::string got;
  int calls = 0;
  void onReadableCount() override {
    ++calls;
    char buf[64];
    ssize_t n = ::read(notifier()->descriptor(), buf, perCall);
    if (n > 0) got.append(buf, static_cast<size_t>(n));
  }
};

class DescriptorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0);
    fd_->descriptorIs(fds_[0]);
    fd_->nonBlockingIs(true);
    fd_->notifyOnReadableIs(true);
    reader_->notifierIs(fd_);
    reader_->isRegisteredNotifieeIs(true);
  }
  void TearDown() override {
    fd_->descriptorIs(-1);
    ::close(fds_[0]);
    ::close(fds_[1]);
  }
  int fds_[2] = {-1, -1};
  EventLoop loop_;
  Ptr<FileDescriptor> fd_{new FileDescriptor("rx", loop_)};
  Ptr<Reader> reader_{new Reader};
};

// Guards delivery through the entity, and so the loop's level-triggered delivery under
// it: a reactor that leaves data is called again on the next pass and not at all once
// drained; one whose notifier stops watching (the loop's registration removed) is not
// called. Queued reactions on a real loop are guarded by the control server's apply
// test, a handler that throws by the event loop's.
TEST_F(DescriptorTest, LevelTriggeredUntilDrainedOrOff) {
  EXPECT_NE(::fcntl(fds_[0], F_GETFL) & O_NONBLOCK, 0) << "nonBlockingIs must set O_NONBLOCK";
  ASSERT_EQ(::write(fds_[1], "abc", 3), 3);
  for (int i = 0; i < 5; ++i) loop_.runOnce(0);
  EXPECT_EQ(reader_->got, "abc");
  EXPECT_EQ(reader_->calls, 3);
  EXPECT_EQ(fd_->readableCount(), 3u);

  fd_->notifyOnReadableIs(false);
  ASSERT_EQ(::write(fds_[1], "xy", 2), 2);
  loop_.runOnce(0);
  EXPECT_EQ(reader_->calls, 3);
  fd_->notifyOnReadableIs(true);
  reader_->perCall = 64;
  loop_.runOnce(0);
  EXPECT_EQ(reader_->got, "abcxy");
}

}  // namespace
}  // namespace Lum
