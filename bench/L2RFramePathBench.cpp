// Cost per frame of the local-to-remote path without its system calls: L2R::encapFrame
// (checks, VNI lookup, flow hash, the MAC move and the outer header written in place)
// and the destination written once per remote VTEP, for user frames of 64, 512 and
// 1500 bytes, sent to one VTEP and to a flood list of eight.
//
// One iteration is one frame, so the "Time" column is nanoseconds per frame.
//
// Each iteration first puts back the 24 bytes of MAC addresses and local header that
// the previous run moved (a fixed copy, whatever the frame size), since the work is in
// place.
//
// The binary counts every allocation (it replaces operator new): the counter
// "allocs/frame" must read 0, and a run that allocates on the path is reported as
// an error.
#include <benchmark/benchmark.h>

#include "bench/CountingAllocator.h"

#include <cstring>
#include <vector>

#include "forwarding/L2RFramePath.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

void BM_L2REncapFrame(benchmark::State& state) {
  L2R::VlanToVniTable table;
  table.is(Bridging::VlanId(10), VniOrNone(Vni(5010)));
  const L2R::VniByVlan vnis(table);
  L2R::EncapFilter filter;
  filter.vlanToVni = &vnis;
  filter.localVtep = Wire::IpAddr::fromString("10.99.0.1");

  // An IPv4 UDP user frame of the given size, in the local form.
  std::vector<uint8_t> user = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2,  0, 0,    0, 0,  2,
                               0x08, 0x00, 0x45, 0,    0,    0,    0,  0, 0x40, 0, 64, 17,
                               0,    0,    10,   1,    1,    1,    10, 1, 1,    2};
  user.resize(static_cast<size_t>(state.range(0)), 0x5a);
  const std::vector<uint8_t> frame = TestSupport::localFrame(user, 0x0041, 0, 10);
  std::vector<Wire::IpAddr> vteps;
  for (int i = 0; i < state.range(1); ++i) {
    vteps.push_back(Wire::IpAddr::fromHostOrder(0x0a630002u + static_cast<uint32_t>(i)));
  }
  L2R::FrameBuffer buf;
  std::memcpy(buf.read, frame.data(), frame.size());
  const uint32_t len = static_cast<uint32_t>(frame.size());
  const uint64_t before = Bench::allocationCount();

  for (auto _ : state) {
    std::memcpy(buf.read, frame.data(), 24);
    const L2R::Encap e = L2R::encapFrame(buf, len, filter);
    if (!e.forwarded()) {
      state.SkipWithError("frame rejected");
      break;
    }
    for (const Wire::IpAddr& v : vteps) {
      L2R::destinationIs(buf.bytes() + e.offset, v);
      benchmark::DoNotOptimize(buf.bytes());
    }
    benchmark::DoNotOptimize(e);
    benchmark::ClobberMemory();
  }

  Bench::reportAllocations(state, before);
}
BENCHMARK(BM_L2REncapFrame)
    ->ArgsProduct({{64, 512, 1500}, {1, 8}})
    ->ArgNames({"bytes", "vteps"})
    ->Unit(benchmark::kNanosecond);

}  // namespace
}  // namespace Vxlan

BENCHMARK_MAIN();
