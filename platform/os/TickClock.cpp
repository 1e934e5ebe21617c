#include "platform/os/TickClock.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace Lum {

TickClock::TickClock(clockid_t clock) : clock_(clock), counter_(invariantCounter()) {}

uint64_t TickClock::readNs() const {
  timespec ts{};
  ::clock_gettime(clock_, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

bool TickClock::invariantCounter() {
#if defined(__x86_64__)
  unsigned a = 0, b = 0, c = 0, d = 0;
  return __get_cpuid(0x80000007, &a, &b, &c, &d) && (d & (1u << 8)) != 0;
#else
  return false;
#endif
}

uint64_t TickClock::anchor(uint64_t t) {
  const uint64_t now = readNs();
  if (!counter_) return now;
  if (baseTicks_ == 0) {
    baseTicks_ = t;
    baseNs_ = now;
  } else if (t - baseTicks_ > kBaselineTicks && now > baseNs_) {
    // Nanoseconds per tick in 32.32 fixed point (the baseline grows with every anchor);
    // ticks between anchors stay near 2^24, so the product in ns() stays far below 2^64.
    const auto scaled = static_cast<unsigned __int128>(now - baseNs_) << 32;
    nsPerTickQ32_ = static_cast<uint64_t>(scaled / (t - baseTicks_));
  }
  anchorTicks_ = t;
  anchorNs_ = now;
  return now;
}

}  // namespace Lum
