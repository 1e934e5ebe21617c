#include "agent/VxlanAgentCounter.h"

#include <gtest/gtest.h>

namespace Vxlan {
namespace {

// A storage without slots: every add takes the checked way of read, add and store, the
// way a damaged shared table's adds go.
struct CheckedStorage : MemoryCounterStorage {
  Slots slots() override { return {}; }
};

// Guards the widths on both ways of adding: the 64-bit table must carry over 32 bits,
// the 32-bit one wrap. (A damaged table's read, reported and restarted from zero: the
// shared-memory counter test.)
TEST(VxlanAgentCounterTest, AddCarriesInSixtyFourBits) {
  for (bool checked : {false, true}) {
    SCOPED_TRACE(checked ? "checked" : "slots");
    std::unique_ptr<CounterStorage> storage(checked ? new CheckedStorage
                                                    : new MemoryCounterStorage);
    Lum::Ptr<VxlanAgentCounter> table(new VxlanAgentCounter("counter", std::move(storage)));
    table->vxlanCounterIs({VxlanCounterId::r2lRxBytes, 0xffffffffu});
    table->vxlanCounterAdd(VxlanCounterId::r2lRxBytes, 1);
    EXPECT_EQ(table->vxlanCounter(VxlanCounterId::r2lRxBytes).count, 0x100000000ull);
    table->varpCounterIs({VarpCounterId::vxlanArpRx, 0xffffffffu});
    table->varpCounterAdd(VarpCounterId::vxlanArpRx);
    EXPECT_EQ(table->varpCounter(VarpCounterId::vxlanArpRx).count, 0u);
  }
}

}  // namespace
}  // namespace Vxlan
