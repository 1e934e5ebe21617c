// Cost per frame of the remote-to-local path without its system calls: R2L::decapFrame,
// the function the frame loop runs on every frame (checks, VNI lookup and the in-place
// rewrite into the "txraw" form), for inner frames of 64, 512 and 1500 bytes.
//
// One iteration is one frame, so the "Time" column is nanoseconds per frame.
//
// Each iteration first puts back the outer headers that the previous rewrite changed
// (a fixed 70-byte copy, whatever the frame size), since the rewrite is in place.
//
// The binary counts every allocation (it replaces operator new): the counter
// "allocs/frame" must read 0, and a run that allocates on the path is reported as
// an error.
#include <benchmark/benchmark.h>

#include "bench/CountingAllocator.h"

#include <cstring>
#include <vector>

#include "forwarding/R2LFramePath.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

void BM_R2LDecapFrame(benchmark::State& state) {
  R2L::VniToVlanTable table;
  table.is(Vni(5000), Bridging::VlanIdOrNone(10));
  R2L::FrameFilter filter;
  filter.localVtep = Wire::IpAddr::fromString("10.0.0.1");
  filter.udpPort = 4789;
  filter.portId = HwPortId(0x0102);
  filter.vniToVlan = &table;

  TestSupport::VxlanFrameBuilder b;
  b.inner = TestSupport::VxlanFrameBuilder::defaultInner(static_cast<size_t>(state.range(0)) - 14);
  const std::vector<uint8_t> frame = b.build();
  std::vector<uint8_t> buf = frame;
  const size_t restore = b.vxlanOffset() + 20;
  const uint64_t before = Bench::allocationCount();

  for (auto _ : state) {
    std::memcpy(buf.data(), frame.data(), restore);
    const R2L::Decap d = R2L::decapFrame(buf.data(), static_cast<uint32_t>(buf.size()), filter);
    if (!d.forwarded()) {
      state.SkipWithError("frame rejected");
      break;
    }
    benchmark::DoNotOptimize(d);
    benchmark::DoNotOptimize(buf.data());
    benchmark::ClobberMemory();
  }

  Bench::reportAllocations(state, before);
}
BENCHMARK(BM_R2LDecapFrame)->Arg(64)->Arg(512)->Arg(1500)->Unit(benchmark::kNanosecond);

}  // namespace
}  // namespace Vxlan

BENCHMARK_MAIN();
