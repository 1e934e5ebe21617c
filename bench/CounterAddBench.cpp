// Cost of one counter add on the shared-memory counter table: alone (the seal check,
// one relaxed load and one relaxed store) and as the frame loops make them, inside a
// VxlanAgentCounter::Run that checked the seal once (the load and store). Compared
// with the plain-memory storage that the frame-path benchmark uses.
//
// The binary counts every allocation (it replaces operator new): the counter
// "allocs/add" must read 0, and a run whose add allocates is reported as an error.
#include <benchmark/benchmark.h>

#include <sys/mman.h>
#include <unistd.h>
#include "bench/CountingAllocator.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "agent/SharedMemoryCounterStorage.h"
#include "agent/VxlanAgentCounter.h"
#include "platform/memtab/MemtabMount.h"

namespace Vxlan {
namespace {

void runAdds(benchmark::State& state, VxlanAgentCounter& counter) {
  const VxlanAgentCounter::Run run(state.range(0) != 0 ? &counter : nullptr);
  const uint64_t before = Bench::allocationCount();
  for (auto _ : state) {
    counter.vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 1);
    benchmark::ClobberMemory();
  }
  const uint64_t allocs = Bench::allocationCount() - before;
  state.counters["allocs/add"] =
      benchmark::Counter(static_cast<double>(allocs), benchmark::Counter::kAvgIterations);
  if (allocs != 0) state.SkipWithError("the add allocated");
}

void BM_CounterAddSharedMemory(benchmark::State& state) {
  const std::string agent = "bench" + std::to_string(::getpid());
  const std::string object = LumMemtab::Mount::objectName(agent, kCounterTablePath);
  {
    LumMemtab::Mount mount(agent);
    mount.doMount(kCounterTablePath, "Vxlan::VxlanAgentCounter", counterMountInfo());
    auto counter = Lum::ptrCast<VxlanAgentCounter>(mount.getEntity(kCounterTablePath));
    runAdds(state, *counter);
  }
  ::shm_unlink(object.c_str());
}
BENCHMARK(BM_CounterAddSharedMemory)
    ->ArgName("inRun")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kNanosecond);

void BM_CounterAddMemory(benchmark::State& state) {
  Lum::Ptr<VxlanAgentCounter> counter(
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>()));
  runAdds(state, *counter);
}
BENCHMARK(BM_CounterAddMemory)->ArgName("inRun")->Arg(0)->Arg(1)->Unit(benchmark::kNanosecond);

}  // namespace
}  // namespace Vxlan

BENCHMARK_MAIN();
