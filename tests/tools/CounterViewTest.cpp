// The counter view of vxrelayctl: packets and bytes of one counter on one row, zero
// rows left out unless all are asked for, unused ids never shown, and what moved with
// its rate against an earlier reading.
#include <gtest/gtest.h>

#include "tools/ctl/CounterView.h"

namespace Ctl {
namespace {

using Vxlan::CounterTablesReading;

CounterTablesReading reading(uint64_t rxFrames, uint64_t rxBytes, uint32_t cacheUpdated) {
  CounterTablesReading r;
  for (uint16_t i = 0; i < Vxlan::kVxlanCounterIds; ++i) {
    const auto id = static_cast<Vxlan::VxlanCounterId>(i);
    r.vxlan.push_back({id, Vxlan::vxlanCounterName(i), 0});
  }
  for (uint16_t i = 0; i < Vxlan::kVarpCounterIds; ++i) {
    r.varp.push_back({static_cast<Vxlan::VarpCounterId>(i), Vxlan::varpCounterName(i), 0});
  }
  r.vxlan[1].count = rxFrames;  // l2rRxFrames
  r.vxlan[0].count = rxBytes;   // l2rRxBytes
  r.vxlan[27].count = 3;        // r2lBadLength
  r.varp[0].count = cacheUpdated;
  return r;
}

TEST(CounterViewTest, PacketsAndBytesSideBySideAndOnlyWhatMoved) {
  const CounterTablesReading before = reading(10, 1000, 1), now = reading(30, 4000, 1);
  EXPECT_EQ(counterView(now, false),
            "vxlan counters                      packets            bytes\n"
            "  l2rRx                                  30             4000\n"
            "  r2lBadLength                            3\n"
            "varp counters                       packets\n"
            "  arpCacheUpdated                         1\n");
  const std::string all = counterView(now, true);
  EXPECT_NE(all.find("  l2rRxHi                                 0                0\n"),
            std::string::npos);
  EXPECT_EQ(all.find("\n" + std::string(28, ' ')), std::string::npos) << "a row without a name";
  EXPECT_EQ(counterView(now, false, Since{&before, 2.0}),
            "vxlan counters                      packets            bytes   (per second)\n"
            "  l2rRx                                  20             3000   (10.0, 1500.0)\n"
            "varp counters                       packets   (per second)\n");
}

}  // namespace
}  // namespace Ctl
