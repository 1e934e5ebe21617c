// Replaces the global operator new of a benchmark binary so that a benchmark can show
// that the code it measures allocates nothing: read allocationCount() before and after
// the timed loop. Include it in exactly one file of a binary.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace Bench {
inline std::atomic<uint64_t> allocations{0};
inline uint64_t allocationCount() {
  return allocations.load(std::memory_order_relaxed);
}
}  // namespace Bench

void* operator new(size_t n) {
  Bench::allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, size_t) noexcept {
  std::free(p);
}
