#include "agent/VxlanAgentCounter.h"

#include <gtest/gtest.h>

namespace Vxlan {
namespace {

// A storage whose reads fail as a damaged shared table would, for a given id. It gives
// no direct slots, so every add takes the checked way of read, add and store.
struct DamagedStorage : MemoryCounterStorage {
  Slots slots() override { return {}; }
  uint16_t badId = 0xffff;
  std::string lastMessage;
  uint64_t vxlanCount(uint16_t id) const override {
    if (id == badId) throw Memtab::CorruptionDetectedException("bad checksum");
    return MemoryCounterStorage::vxlanCount(id);
  }
  uint32_t varpCount(uint16_t id) const override {
    if (id == badId) throw Memtab::CorruptionDetectedException("bad magic");
    return MemoryCounterStorage::varpCount(id);
  }
  void corruptionDetected(const std::string& m) override {
    lastMessage = m;
    MemoryCounterStorage::corruptionDetected(m);
  }
};

class VxlanAgentCounterTest : public ::testing::Test {
 protected:
  DamagedStorage* s = new DamagedStorage;  // owned by the table
  Lum::Ptr<VxlanAgentCounter> table{
      new VxlanAgentCounter("counter", std::unique_ptr<CounterStorage>(s))};
};

// Guards the widths: the 64-bit table must carry over 32 bits, the 32-bit one wrap.
TEST_F(VxlanAgentCounterTest, AddCarriesInSixtyFourBits) {
  table->vxlanCounterIs({VxlanCounterId::r2lRxBytes, 0xffffffffu});
  table->vxlanCounterAdd(VxlanCounterId::r2lRxBytes, 1);
  EXPECT_EQ(table->vxlanCounter(VxlanCounterId::r2lRxBytes).count, 0x100000000ull);
  table->varpCounterIs({VarpCounterId::vxlanArpRx, 0xffffffffu});
  table->varpCounterAdd(VarpCounterId::vxlanArpRx);
  EXPECT_EQ(table->varpCounter(VarpCounterId::vxlanArpRx).count, 0u);
}

// Guards the damaged-read path: reported with its message, sum restarts at zero,
// and no exception reaches the caller.
TEST_F(VxlanAgentCounterTest, DamagedReadIsReportedAndRestartsFromZero) {
  s->vxlanCountIs(uint16_t(VxlanCounterId::r2lRxFrames), 500);
  s->badId = uint16_t(VxlanCounterId::r2lRxFrames);
  EXPECT_NO_THROW(table->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 3));
  s->badId = 0xffff;
  EXPECT_EQ(table->vxlanCounter(VxlanCounterId::r2lRxFrames).count, 3u);
  EXPECT_EQ(s->lastMessage, "bad checksum");
  s->badId = uint16_t(VarpCounterId::vxlanArpRx);
  table->varpCounterAdd(VarpCounterId::vxlanArpRx);
  EXPECT_EQ(s->corruptions(), 2u);
  EXPECT_EQ(s->lastMessage, "bad magic");
}

}  // namespace
}  // namespace Vxlan
