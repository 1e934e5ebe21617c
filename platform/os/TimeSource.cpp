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

TimeSource& timeSource() {
  return current ? *current : monotonicTimeSource();
}

// The frame loops read it after every frame: the monotonic clock directly, without the
// source object's virtual call.
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
