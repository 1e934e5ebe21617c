// Time sources: where every timestamp of the agent comes from.
//
// Logic never reads a clock itself; it calls `Lum::now()`, seconds as a double on a
// monotonic scale (only differences mean something). The event loop arms and fires
// its timers against the same `Lum::now()`.
//
// In production the current source is the process's MonotonicTimeSource. A test puts
// a ManualTimeSource in place for a scope and moves time by hand:
//
//   Lum::ManualTimeSource clock(100.0);
//   Lum::ScopedTimeSource guard(clock);     // Lum::now() == 100.0 from here
//   clock.advance(2.5);                     // Lum::now() == 102.5
//   loop.runOnce(0);                        // fires the timers due by 102.5, no sleep
//
// Guarantees: a ScopedTimeSource restores the source that was current when it was
// built, so guards nest; a ManualTimeSource never goes backwards (asking it to throws
// RangeException), as code written against a monotonic clock may rely on that.
// The current source is process-wide: the agent runs on one thread.
#pragma once

#include <cstdint>

#include "platform/os/TickClock.h"

namespace Lum {

class TimeSource {
 public:
  virtual ~TimeSource() = default;
  // Seconds on a monotonic scale.
  virtual double now() const = 0;
};

// CLOCK_MONOTONIC: not moved by changes of the wall clock.
class MonotonicTimeSource : public TimeSource {
 public:
  double now() const override;
};

// A clock that moves only when told to.
class ManualTimeSource : public TimeSource {
 public:
  explicit ManualTimeSource(double start = 0.0) : now_(start) {}
  double now() const override { return now_; }
  // Jumps to `t`; throws RangeException if `t` is earlier than now().
  void nowIs(double t);
  // Moves forward by `dt` seconds; throws RangeException if `dt` is negative.
  void advance(double dt);

 private:
  double now_;
};

// The current source, and its time.
TimeSource& timeSource();
double now();

// The end of a time budget that starts now, on the current source. With the process's
// monotonic source and the tick counter's rate known, passed() reads the counter and
// compares (the frame loops ask after every frame); otherwise, and always under a
// test's source, it compares now() with the end.
class Deadline {
 public:
  explicit Deadline(double seconds);
  bool passed() const {
    if (tickEnd_ != 0) return TickClock::ticks() > tickEnd_;
    return now() > end_;
  }

 private:
  double end_ = 0.0;
  uint64_t tickEnd_ = 0;  // 0: compare now() with end_
};

// Makes `source` the current source for the guard's lifetime. Guards must end in the
// reverse order of their construction (they are scoped objects).
class ScopedTimeSource {
 public:
  explicit ScopedTimeSource(TimeSource& source);
  ~ScopedTimeSource();
  ScopedTimeSource(const ScopedTimeSource&) = delete;
  ScopedTimeSource& operator=(const ScopedTimeSource&) = delete;

 private:
  TimeSource* previous_;
};

}  // namespace Lum
