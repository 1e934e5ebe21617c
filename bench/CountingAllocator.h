// Replaces the global operator new of a benchmark binary so that a benchmark can show
// that the code it measures allocates nothing: read allocationCount() before and after
// the timed loop. Include it in exactly one file of a binary.
#pragma once

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace Bench {
inline std::atomic<uint64_t> allocations{0};
inline uint64_t allocationCount() {
  return allocations.load(std::memory_order_relaxed);
}
// After the timed loop: the counter "allocs/frame" (which must read 0) and the items
// processed; a run that allocated is reported as an error.
inline void reportAllocations(benchmark::State& state, uint64_t before) {
  const uint64_t allocs = allocationCount() - before;
  state.counters["allocs/frame"] =
      benchmark::Counter(static_cast<double>(allocs), benchmark::Counter::kAvgIterations);
  state.SetItemsProcessed(state.iterations());
  if (allocs != 0) state.SkipWithError("the frame path allocated");
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
