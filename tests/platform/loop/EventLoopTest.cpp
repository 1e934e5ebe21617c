#include "platform/loop/EventLoop.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/core/Exception.h"
#include "platform/loop/Clock.h"
#include "platform/os/TimeSource.h"

namespace Lum {
namespace {

using Log = std::vector<std::string>;

// A connected stream socket pair: the loop watches `in`, the test writes to `out`.
struct SocketPair {
  int fds[2] = {-1, -1};
  const int& in = fds[0];
  SocketPair(std::string_view data = "") {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds), 0);
    EXPECT_EQ(::write(fds[1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
  }
  ~SocketPair() { ::close(fds[0]), ::close(fds[1]); }
};

void drain(int fd) {
  char buf[256];
  while (::read(fd, buf, sizeof buf) > 0) {
  }
}

struct Handler : ReadableHandler {
  std::function<void(int)> on = drain;
  std::string name = "handler";
  int calls = 0;
  void onReadable(int fd) override { ++calls, on(fd); }
  std::string_view facility() const override { return name; }
};

struct Tick : TimerHandler {
  Tick(std::string n, Log& l) : name(std::move(n)), log(l) {}
  std::string name;
  Log& log;
  std::function<void()> also = [] {};
  void onTimer() override { log.push_back(name), also(); }
  std::string_view facility() const override { return name; }
};

// Each test has its loop and a clock that moves only when the test says so.
class EventLoopTest : public ::testing::Test {
 protected:
  ManualTimeSource clock{100.0};
  ScopedTimeSource guard{clock};
  EventLoop loop;
};

// Guards against delivering an event of the current epoll_wait batch to a registration
// that an earlier handler of the batch removed, or whose handler it destroyed.
TEST_F(EventLoopTest, RegistrationRemovedDuringPassIsNotCalled) {
  SocketPair a("x"), b("x");
  Handler ha, hb;
  ha.on = [&](int) { loop.readableHandlerDel(b.in); };
  hb.on = [&](int) { loop.readableHandlerDel(a.in); };
  loop.readableHandlerIs(a.in, &ha);
  loop.readableHandlerIs(b.in, &hb);
  EXPECT_EQ(loop.runOnce(0), 1u);

  auto hc = std::make_unique<Handler>(), hd = std::make_unique<Handler>();
  hc->on = [&](int) { hd.reset(); };
  hd->on = [&](int) { hc.reset(); };
  loop.readableHandlerIs(a.in, hc.get());
  loop.readableHandlerIs(b.in, hd.get());
  EXPECT_EQ(loop.runOnce(0), 1u);
  ASSERT_NE(hc == nullptr, hd == nullptr);
  EXPECT_EQ(loop.readableHandler(hc ? b.in : a.in), nullptr);
}

// Guards against a closed descriptor's pending event, or its stale registration, reaching
// the old handler once the number is reused, and against failing to register the reused
// number when the owner closed without readableHandlerDel.
TEST_F(EventLoopTest, ReusedDescriptorNumberDoesNotReachOldHandler) {
  SocketPair trigger("t");
  auto victim = std::make_unique<SocketPair>("v");
  const int oldFd = victim->in;
  Handler closer, old, fresh;
  std::unique_ptr<SocketPair> reuse;
  closer.on = [&](int fd) {
    drain(fd);
    victim.reset();  // closed without readableHandlerDel
    reuse = std::make_unique<SocketPair>("n");
    EXPECT_EQ(reuse->in, oldFd);
    loop.readableHandlerIs(reuse->in, &fresh);
  };
  // Registered in this order so that epoll reports the closer first: the old
  // descriptor's event is then still pending in the batch when it is closed.
  loop.readableHandlerIs(trigger.in, &closer);
  loop.readableHandlerIs(oldFd, &old);
  EXPECT_EQ(loop.runOnce(0), 1u);
  EXPECT_EQ(loop.runOnce(0), 1u);
  EXPECT_EQ(old.calls, 0);
  EXPECT_EQ(fresh.calls, 1);
}

// Guards against timers firing early, out of expiry order, after being disarmed or
// destroyed (here by an earlier timer of the same pass); against losing a re-arm made by
// the handler; and against a re-arm at a past time firing again in the same pass.
TEST_F(EventLoopTest, TimersFireInOrderWhenDueAndMayRearm) {
  Log log;
  Tick a("a", log), b("b", log), c("c", log), d("d", log), e("e", log);
  Timer ta(a, loop), tb(b, loop), tc(c, loop), td(d, loop);
  auto te = std::make_unique<Timer>(e, loop);
  a.also = [&] { te.reset(); };
  c.also = [&] { tc.arm(tc.when() + 1.0); };
  tc.arm(103.0), ta.arm(101.0), tb.arm(102.0), td.arm(102.5), te->arm(101.5);
  td.disarm();

  clock.advance(0.5);
  EXPECT_EQ(loop.runOnce(0), 0u);
  clock.advance(10.0);  // c is behind by several periods: one firing per pass
  EXPECT_EQ(loop.runOnce(0), 3u);
  EXPECT_EQ(loop.runOnce(0), 1u);
  EXPECT_EQ(log, (Log{"a", "b", "c", "c"}));
  EXPECT_FALSE(ta.armed());
  EXPECT_EQ(tc.when(), 105.0);
}

// Guards against deferred work running inside the reaction that queued it or out of
// order, and against work queued by deferred work running in the same pass (a chain of
// deferrals would starve I/O) or waiting for unrelated I/O (runOnce(-1) would block).
TEST_F(EventLoopTest, DeferredWorkRunsAfterTheReactionsInOrder) {
  Log log;
  auto logger = [&](std::string s) { return [&log, s] { log.push_back(s); }; };
  SocketPair p("x");
  Handler h;
  h.on = [&](int fd) { drain(fd), loop.defer(logger("queued by io")), log.push_back("io"); };
  loop.readableHandlerIs(p.in, &h);
  Tick tick("timer", log);
  Timer timer(tick, loop);
  timer.arm(0.0);
  loop.defer([&] { log.push_back("first"), loop.defer(logger("chained")); });
  loop.defer(logger("second"));

  ASSERT_EQ(loop.runOnce(0), 5u);  // else "chained" already ran and runOnce(-1) would block
  EXPECT_EQ(log, (Log{"io", "timer", "first", "second", "queued by io"}));
  EXPECT_EQ(loop.runOnce(-1), 1u);
  EXPECT_EQ(log.back(), "chained");
}

// Guards against an exception escaping the loop or ending the pass: each must be
// reported with its thrower's facility and text, and the next callback must still run.
TEST_F(EventLoopTest, ExceptionsAreReportedAndThePassGoesOn) {
  Log reports;
  loop.exceptionReporterIs([&](std::string_view facility, std::string_view text) {
    reports.push_back(std::string(facility) + "|" + std::string(text));
  });
  SocketPair a("x"), b("x");
  Handler thrower, next;
  thrower.name = "alpha";
  thrower.on = [](int fd) { drain(fd), throw Exception("boom"); };
  loop.readableHandlerIs(a.in, &thrower);
  loop.readableHandlerIs(b.in, &next);
  Log log;
  Tick tick("beta", log);
  tick.also = [] { throw std::runtime_error("late"); };
  Timer timer(tick, loop);
  timer.arm(0.0);
  loop.defer([] { throw 42; });

  EXPECT_EQ(loop.runOnce(0), 4u);  // an escaping exception fails the test here
  EXPECT_EQ(next.calls, 1);
  EXPECT_EQ(reports, (Log{"alpha|boom", "beta|late", "EventLoop.defer|unknown exception"}));
}

struct Wakeups : Clock::NotifieeConst {
  std::vector<double> at;
  void onTime() override { at.push_back(now()); }
};

// Guards the clock's wake-up, which the virtual ARP aging relies on: not before its
// moment, once, the request cleared by onTime; and the zombie rule: a reactor marked
// for deletion is not woken.
TEST_F(EventLoopTest, ClockWakesOnceAtItsMomentAndZombiesSleep) {
  Ptr<Wakeups> r(new Wakeups);
  r->notifierIs(new Clock("clock", loop));
  r->isRegisteredNotifieeIs(true);
  r->timeMinIs(105.0);
  clock.advance(2.0);
  loop.runOnce(0);
  EXPECT_TRUE(r->at.empty()) << "fired before its time";
  clock.advance(3.0);
  loop.runOnce(0);
  loop.runOnce(0);
  EXPECT_EQ(r->at, std::vector<double>{105.0});
  EXPECT_EQ(r->timeMin(), Clock::kNever);

  r->timeMinIs(106.0);
  r->lumDoZombieReactors(true);
  clock.advance(5.0);
  loop.runOnce(0);
  EXPECT_EQ(r->at, std::vector<double>{105.0}) << "a zombie was woken";
}

}  // namespace
}  // namespace Lum
