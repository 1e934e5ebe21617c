// Cost per frame of the remote-to-local path without its system calls: the checks
// of checkRawFrame, the VNI lookup and the in-place rewrite into the "txraw" form,
// for inner frames of 64, 512 and 1500 bytes, with tracing off.
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

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "forwarding/Remote2LocalForwarderSm.h"
#include "frames/Decap.h"
#include "frames/VxlanHdr.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

void BM_R2LCheckAndRewrite(benchmark::State& state) {
  Lum::Ptr<VtiStatus> status(new VtiStatus(Wire::IntfId("Vxlan1")));
  status->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
  Lum::Ptr<VniToVlanMaps> maps(new VniToVlanMaps("vniToVlanMaps"));
  Lum::Ptr<VxlanAgentCounter> counter(
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>()));
  Lum::Ptr<Remote2LocalForwarderSm> parent(
      new Remote2LocalForwarderSm(Remote2LocalForwarderSm::inputs(maps, counter)));
  Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> sm(
      new Remote2LocalForwarderSm::LumVtiStatusSm(nullptr, status, parent.ptr()));
  maps->vtiVniToVlanMap(status->intfId())->vniToVlanMapIs(Vni(5000), Bridging::VlanIdOrNone(10));
  const VniToVlanMap* map = sm->vniToVlanForVti()->notifier().ptr();

  TestSupport::VxlanFrameBuilder b;
  b.inner = TestSupport::VxlanFrameBuilder::defaultInner(static_cast<size_t>(state.range(0)) - 14);
  const std::vector<uint8_t> frame = b.build();
  std::vector<uint8_t> buf = frame;
  const size_t restore = b.vxlanOffset() + 20;
  const uint64_t before = Bench::allocationCount();

  for (auto _ : state) {
    std::memcpy(buf.data(), frame.data(), restore);
    int32_t offset = 0;
    if (!sm->checkRawFrame(buf.data(), static_cast<uint32_t>(buf.size()), offset)) {
      state.SkipWithError("frame rejected");
      break;
    }
    const auto* vxlan = Wire::hdrAt<Wire::VxlanHdr>(buf.data() + offset);
    const Bridging::VlanIdOrNone vlan = map->vniToVlanMap(Vni(vxlan->vniValue()));
    decapInPlaceForTxRaw(buf.data() + offset, vlan.vlanId(), HwPortId(0x0102));
    benchmark::DoNotOptimize(buf.data());
    benchmark::ClobberMemory();
  }

  const uint64_t allocs = Bench::allocationCount() - before;
  state.counters["allocs/frame"] =
      benchmark::Counter(static_cast<double>(allocs), benchmark::Counter::kAvgIterations);
  state.SetItemsProcessed(state.iterations());
  if (allocs != 0) state.SkipWithError("the frame path allocated");
}
BENCHMARK(BM_R2LCheckAndRewrite)->Arg(64)->Arg(512)->Arg(1500)->Unit(benchmark::kNanosecond);

}  // namespace
}  // namespace Vxlan

BENCHMARK_MAIN();
