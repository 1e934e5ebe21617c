// Lum::TickClock: a system clock read through the processor's invariant time-stamp
// counter between reads of the clock itself, where there is such a counter. A clock
// read costs a few tens of instructions (more than a whole trace ring record), the
// counter a few; the trace ring stamps every record with one and the frame loops test
// their time budget after every frame with one.
//
// The clock is read again whenever 2^24 ticks (a few milliseconds) have passed since
// the last read, so a step of the clock shows within that time; the rate is taken from
// the ticks and nanoseconds since the first read, and until that baseline is long
// enough (2^26 ticks) every ns() reads the clock. Without an invariant counter (or off
// x86-64) every ns() reads the clock. One thread per clock object.
#pragma once

#include <time.h>

#include <cstdint>

namespace Lum {

class TickClock {
 public:
  explicit TickClock(clockid_t clock);

  // The clock's time in nanoseconds.
  uint64_t ns() {
    const uint64_t t = ticks();
    const uint64_t since = t - anchorTicks_;
    if (nsPerTickQ32_ == 0 || since > kReanchorTicks) [[unlikely]]
      return anchor(t);
    return anchorNs_ + ((since * nsPerTickQ32_) >> 32);
  }
  // Whether there is an invariant counter to read between clock reads.
  bool counts() const { return counter_; }
  // Nanoseconds per tick in 32.32 fixed point; 0 while the rate is not known.
  uint64_t nsPerTickQ32() const { return nsPerTickQ32_; }
  // Reads the clock itself.
  uint64_t readNs() const;

  static uint64_t ticks() {
#if defined(__x86_64__)
    return __builtin_ia32_rdtsc();
#else
    return 0;
#endif
  }

 private:
  static constexpr uint64_t kReanchorTicks = 1ull << 24;
  static constexpr uint64_t kBaselineTicks = 1ull << 26;

  static bool invariantCounter();
  // Reads the clock; takes the rate when the baseline is long enough.
  uint64_t anchor(uint64_t t);

  clockid_t clock_;
  bool counter_;
  uint64_t baseTicks_ = 0;
  uint64_t baseNs_ = 0;
  uint64_t anchorTicks_ = 0;
  uint64_t anchorNs_ = 0;
  uint64_t nsPerTickQ32_ = 0;  // 0: no rate yet (always without a counter)
};

}  // namespace Lum
