// Cost of one trace ring record as the frame paths write them: a short string (the
// interface) and one or two numbers, into an open ring file.
//
// The binary counts every allocation (it replaces operator new): the counter
// "allocs/record" must read 0.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "bench/CountingAllocator.h"

#include <string>

#include "platform/trace/RingLog.h"

namespace {

void BM_RingLogRecord(benchmark::State& state) {
  const uint32_t sizes[RingLog::kLevels] = {0, 0, 0, 0, 0, 0, 0, 1024, 0, 0};
  const std::string name = "/tmp/vxrelay-bench-" + std::to_string(::getpid()) + ".rl";
  RingLog::initialize(name.c_str(), sizes, nullptr, RingLog::kRemoveAtShutdown);
  const char* intf = "Vxlan1";
  uint32_t len = 64;
  const uint64_t before = Bench::allocationCount();
  for (auto _ : state) {
    if (state.range(0) == 0) {
      RINGLOG(7, "R2LSm(%s)::handleFileDescriptor() read %u bytes", intf, len);
    } else {
      RINGLOG(7, "read %u bytes", len);
    }
    benchmark::DoNotOptimize(++len);
  }
  const uint64_t allocs = Bench::allocationCount() - before;
  state.counters["allocs/record"] =
      benchmark::Counter(static_cast<double>(allocs), benchmark::Counter::kAvgIterations);
  RingLog::shutdown();
}
BENCHMARK(BM_RingLogRecord)->Arg(0)->Arg(1)->ArgName("numbersOnly");

}  // namespace

BENCHMARK_MAIN();
