#include "platform/os/TimeSource.h"

#include <time.h>

#include "platform/core/Exception.h"
#include "platform/core/String8.h"

namespace Lum {

namespace {

// Null means the monotonic source; keeping the default out of this pointer means no
// static object has to be constructed before the first call to now().
TimeSource* current = nullptr;

TimeSource& monotonicTimeSource() {
  // Never destroyed: objects destroyed at exit may still read the time.
  static MonotonicTimeSource* source = new MonotonicTimeSource;
  return *source;
}

double monotonicNow() {
  timespec ts;
  // CLOCK_MONOTONIC cannot fail with a valid timespec pointer.
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// The monotonic clock through the tick counter, for deadlines only: each Deadline
// reads it once, which keeps its rate current.
TickClock& monotonicTicks() {
  static TickClock* clock = new TickClock(CLOCK_MONOTONIC);
  return *clock;
}

}  // namespace

double MonotonicTimeSource::now() const {
  return monotonicNow();
}

void ManualTimeSource::nowIs(double t) {
  // The negated comparison also refuses NaN.
  if (!(t >= now_)) {
    throwRangeException(format("manual time cannot go back from %.9f to %.9f", now_, t).view());
  }
  now_ = t;
}

void ManualTimeSource::advance(double dt) {
  if (!(dt >= 0.0)) throwRangeException(format("manual time advance %.9f < 0", dt).view());
  now_ += dt;
}

Deadline::Deadline(double seconds) {
  // A budget beyond a day, negative or not a number keeps to now().
  TickClock& clock = monotonicTicks();
  if (current == nullptr && clock.counts() && seconds >= 0.0 && seconds < 86400.0) {
    clock.ns();  // reads the clock only every few milliseconds, and so learns the rate
    if (const uint64_t nsPerTickQ32 = clock.nsPerTickQ32(); nsPerTickQ32 != 0) {
      const double ticks = seconds * 1e9 * 4294967296.0 / static_cast<double>(nsPerTickQ32);
      tickEnd_ = TickClock::ticks() + static_cast<uint64_t>(ticks);
      return;
    }
  }
  end_ = now() + seconds;
}

TimeSource& timeSource() {
  return current ? *current : monotonicTimeSource();
}

// The monotonic clock directly, without the source object's virtual call.
double now() {
  return current ? current->now() : monotonicNow();
}

ScopedTimeSource::ScopedTimeSource(TimeSource& source) : previous_(current) {
  current = &source;
}

ScopedTimeSource::~ScopedTimeSource() {
  current = previous_;
}

}  // namespace Lum
