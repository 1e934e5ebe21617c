// The services that tests replace: system calls and time.
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cerrno>
#include <cmath>

#include "platform/core/Exception.h"
#include "platform/os/SysCalls.h"
#include "platform/os/TimeSource.h"

namespace Lum {
namespace {

struct BindInUse : SysCalls {
  int bind(int, const sockaddr*, socklen_t) override { return errno = EADDRINUSE, -1; }
};

struct WriteFailsOnce : SysCalls {
  bool failed = false;
  SysResult write(int fd, const void* buf, size_t len) override {
    if (failed) return SysCalls::write(fd, buf, len);
    failed = true;
    return {-1, ENETDOWN};
  }
};

// Guards against a fake's failure not reaching code that goes through Lum::sysCalls(),
// against a fake breaking the calls it does not override (they must reach the kernel),
// and against nested guards not restoring the service that was current before them.
TEST(SysCallsTest, ScopedFakesFailWhatTheyOverrideAndRestore) {
  SysCalls* const real = &sysCalls();
  const int udp = sysCalls().socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(udp, 0);
  sockaddr_in loopback{};
  loopback.sin_family = AF_INET;
  loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto* addr = reinterpret_cast<const sockaddr*>(&loopback);
  {
    BindInUse outer;
    ScopedSysCalls outerGuard(outer);
    errno = 0;
    EXPECT_EQ(sysCalls().bind(udp, addr, sizeof loopback), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    {
      WriteFailsOnce inner;
      ScopedSysCalls innerGuard(inner);
      int fds[2];
      ASSERT_EQ(sysCalls().socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
      EXPECT_EQ(sysCalls().write(fds[0], "ab", 2).err, ENETDOWN);
      EXPECT_EQ(sysCalls().write(fds[0], "ab", 2).rc, 2);
      char buf[2];
      EXPECT_EQ(sysCalls().read(fds[1], buf, sizeof buf).rc, 2);
      // The real service takes errno at the call.
      const SysResult empty = sysCalls().recv(fds[1], buf, sizeof buf, MSG_DONTWAIT);
      EXPECT_EQ(empty.rc, -1);
      EXPECT_EQ(empty.err, EAGAIN);
      EXPECT_EQ(sysCalls().close(fds[0]) + sysCalls().close(fds[1]), 0);
    }
    EXPECT_EQ(&sysCalls(), &outer);
  }
  EXPECT_EQ(&sysCalls(), real);
  EXPECT_EQ(sysCalls().bind(udp, addr, sizeof loopback), 0);
  EXPECT_EQ(sysCalls().close(udp), 0);
}

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
