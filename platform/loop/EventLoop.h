// The event loop: the one thread of the agent and everything it reacts to.
//
// Every reaction (a readable descriptor, an expired timer, a piece of deferred work)
// runs on one epoll loop, to its end, before the next one starts. Nothing here knows
// about entities or notifiees; the framework builds those on these plain interfaces.
//
// Use:
//   struct Rx : Lum::ReadableHandler {
//     void onReadable(int fd) override { /* read what is there */ }
//     std::string_view facility() const override { return "Rx"; }
//   };
//   Rx rx;
//   loop.readableHandlerIs(fd, &rx);            // level-triggered EPOLLIN
//   ...
//   loop.readableHandlerDel(fd);                // before closing fd
//
//   struct Tick : Lum::TimerHandler { void onTimer() override; };
//   Tick tick;
//   Lum::EventLoop::Timer timer(tick, loop);    // the owner keeps the timer
//   timer.arm(Lum::now() + 1.0);                // absolute time on Lum::now()'s scale
//
//   loop.defer([] { /* after the current reaction */ });
//   loop.run();                                 // until loop.stop()
//
// One pass (runOnce) waits for I/O at most the given time, then calls, in this order:
// the handlers of the ready descriptors, the timers due at that moment in time order,
// and the deferred work queued so far in the order it was queued.
//
// Guarantees:
// - Level-triggered: a handler that leaves data unread is called again on the next
//   pass; one that drained its descriptor is not.
// - Changes during a pass are safe. Each registration carries a generation number in
//   its epoll data; an event is delivered only if the descriptor's current
//   registration still has that generation. So a registration removed or replaced
//   during a pass is never called afterwards, even for an event the same epoll_wait
//   already returned, and a descriptor number closed and reused does not reach the
//   handler of the old descriptor. Destroying a ReadableHandler removes all of its
//   registrations, so a handler may also destroy other handlers during a pass.
// - Timers fire in the order of their expiry times (equal times: in arming order). A
//   timer disarmed or destroyed before it fires never fires. A handler may re-arm its
//   timer; a timer armed during the timer phase of a pass fires on a later pass at the
//   earliest, so a timer re-armed at "now" cannot hold the loop in one pass.
// - Deferred work queued during the I/O or timer phase runs at the end of that same
//   pass; work queued by deferred work runs on the next pass (which then does not
//   block), so a chain of deferrals cannot starve I/O.
// - A callback that throws (Lum::Exception, any std::exception, anything) ends only
//   that reaction: the loop reports the handler's facility and the text to the
//   exception reporter and goes on with the next event. Nothing escapes run() or
//   runOnce() from a callback.
// - stop() is async-signal-safe: it sets an atomic flag and writes to an eventfd that
//   the loop watches, so a signal handler can end run() even while it is blocked.
//
// Timers use the epoll_wait timeout, not a timerfd: the loop reads time only through
// Lum::now(), so an injected ManualTimeSource drives the timers and tests fire them
// with `advance(); runOnce(0)` without sleeping, which a timerfd following the kernel
// clock would not allow; arming is also a map insertion instead of a system call,
// which matters for timers re-armed on every reaction. The price is epoll_wait's
// millisecond resolution: the wait is rounded up, so the loop never wakes before a
// timer is due (no spinning), and timers fire up to a millisecond late.
//
// Descriptors should be removed with readableHandlerDel before they are closed. If the
// owner closes first, the kernel drops the descriptor from the epoll set by itself
// (unless the descriptor was duplicated), and the stale registration is replaced when
// the number is registered again.
//
// Callbacks of a loop must not call runOnce()/run() of that same loop (it throws).
#pragma once

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace Lum {

class EventLoop;

// The process-wide loop, constructed on first use and never destroyed (handlers and
// timers held by static objects may outlive any order of destruction at exit).
EventLoop& eventLoop();

// Called when a registered descriptor is readable (or has an error or a hang-up, which
// a read reports).
class ReadableHandler {
 public:
  ReadableHandler() = default;
  // A copy is a new handler, registered nowhere.
  ReadableHandler(const ReadableHandler&) {}
  ReadableHandler& operator=(const ReadableHandler&) { return *this; }
  // Removes every registration of this handler, in every loop.
  virtual ~ReadableHandler();

  virtual void onReadable(int fd) = 0;
  // Names the handler when an exception it threw is reported.
  virtual std::string_view facility() const { return "ReadableHandler"; }

 private:
  friend class EventLoop;
  struct Registration {
    EventLoop* loop;
    int fd;
  };
  void forget(EventLoop* loop, int fd);

  std::vector<Registration> registrations_;
};

class TimerHandler {
 public:
  virtual ~TimerHandler() = default;
  virtual void onTimer() = 0;
  // Names the handler when an exception it threw is reported.
  virtual std::string_view facility() const { return "TimerHandler"; }
};

class EventLoop {
 public:
  using ExceptionReporter = std::function<void(std::string_view facility, std::string_view text)>;
  static constexpr std::string_view kDeferFacility = "EventLoop.defer";

  // A one-shot timer owned by its user. The handler must outlive the timer (or the
  // timer must be disarmed before the handler goes). A timer may outlive its loop: it
  // is disarmed when the loop is destroyed and arming it afterwards throws.
  class Timer {
   public:
    explicit Timer(TimerHandler& handler, EventLoop& loop = eventLoop());
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    // Arms (or re-arms) the timer to fire once `when` (on Lum::now()'s scale) has come.
    // A time already past fires on the next pass. Throws RangeException for NaN.
    void arm(double when);
    void disarm();
    bool armed() const { return armed_; }
    // The time of the last arm().
    double when() const { return when_; }

   private:
    friend class EventLoop;

    EventLoop* loop_;
    TimerHandler* handler_;
    double when_ = 0.0;
    uint64_t sequence_ = 0;  // arming order; with when_, the key in the loop's timer map
    bool armed_ = false;
    // Every timer of a loop, armed or not, so that the loop can detach them all.
    Timer* prev_ = nullptr;
    Timer* next_ = nullptr;
  };

  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Calls `handler` whenever `fd` is readable, replacing any handler `fd` had; null
  // removes the registration. Throws ErrnoException when epoll refuses the descriptor.
  void readableHandlerIs(int fd, ReadableHandler* handler);
  // Removes the registration of `fd`, if any.
  void readableHandlerDel(int fd) noexcept;
  ReadableHandler* readableHandler(int fd) const;

  // Queues `work` to run after the current reaction (see the guide above). `facility`
  // names it in an exception report and must refer to storage that outlives the work
  // (a literal).
  void defer(std::function<void()> work, std::string_view facility = kDeferFacility);

  // Runs passes until stop(). A stop() made while the loop was not running ends the
  // next run() after its first pass.
  void run();
  // One pass. Waits at most `maxWaitSeconds` for I/O (0 polls, a negative value waits
  // without limit), never past the earliest armed timer and not at all while deferred
  // work is queued. Returns the number of callbacks that ran.
  size_t runOnce(double maxWaitSeconds);
  // Ends run() after the current pass. Async-signal-safe and callable from another
  // thread (an atomic flag and an eventfd write); preserves errno.
  void stop() noexcept;

  // Where exceptions thrown by callbacks are reported; an empty function restores the
  // default, one line on stderr.
  void exceptionReporterIs(ExceptionReporter reporter);

 private:
  friend class ReadableHandler;
  static constexpr size_t kMaxEvents = 64;
  using TimerKey = std::pair<double, uint64_t>;  // expiry, arming order

  struct Registration {
    ReadableHandler* handler = nullptr;
    uint32_t generation = 0;  // never 0 while handler is set; 0 marks the wake-up eventfd
  };
  struct Deferred {
    std::function<void()> work;
    std::string_view facility;
  };

  uint32_t nextGeneration();
  void dropRegistration(int fd, const ReadableHandler* handler) noexcept;
  int waitMillis(double maxWaitSeconds) const;
  size_t dispatchReadable(int count);
  size_t fireTimers();
  size_t runDeferred();
  void drainWakeFd() noexcept;
  template <typename Call, typename FacilityOf>
  void callGuarded(Call&& call, FacilityOf&& facilityOf) noexcept;
  void report(std::string_view facility, std::string_view text) noexcept;

  int epollFd_ = -1;
  int wakeFd_ = -1;
  std::vector<Registration> registrations_;  // indexed by descriptor
  uint32_t lastGeneration_ = 0;
  std::map<TimerKey, Timer*> armedTimers_;
  uint64_t lastArmSequence_ = 0;
  Timer* timers_ = nullptr;  // head of the list of every timer of this loop
  std::deque<Deferred> deferred_;
  std::atomic<bool> stopRequested_{false};
  bool dispatching_ = false;
  ExceptionReporter reporter_;
  std::array<epoll_event, kMaxEvents> events_;
};

// Lum::Timer, the short name of a loop timer.
using Timer = EventLoop::Timer;

}  // namespace Lum
