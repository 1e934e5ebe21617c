// The agent's counter tables: in shared memory behind the mount, with damage and
// another geometry; and the widths of both ways of adding.
#include <gtest/gtest.h>

#include <sstream>

#include "agent/CounterTableReader.h"
#include "agent/SharedMemoryCounterStorage.h"
#include "agent/VxlanAgentCounter.h"
#include "platform/memtab/MemtabMount.h"
#include "platform/trace/Trace.h"
#include "tests/support/SharedObjects.h"

namespace Vxlan {
namespace {

using TestSupport::flipByte;
using TestSupport::SharedObjectGuard;
using TestSupport::uniqueAgentName;

// The agent's mount of its counter table.
struct MountedCounters {
  explicit MountedCounters(const std::string& agent,
                           const LumMemtab::MountInfo& info = counterMountInfo())
      : mount(agent) {
    mount.doMount(kCounterTablePath, "Vxlan::VxlanAgentCounter", info);
    counter = Lum::ptrCast<VxlanAgentCounter>(mount.getEntity(kCounterTablePath));
  }
  SharedMemoryCounterStorage& storage() const {
    return dynamic_cast<SharedMemoryCounterStorage&>(counter->storage());
  }
  LumMemtab::Mount mount;
  Lum::Ptr<VxlanAgentCounter> counter;
};

// Guards the damaged-header path on the agent side: the add reports the damage once
// (counted, traced), restarts its slot from zero and repairs the header, so the reader
// that refused the table reads it again. (Each damaged field refused: the table
// layout's own test.)
TEST(SharedMemoryCounterTest, DamagedHeaderIsReportedOnceAndRepaired) {
  const std::string agent = uniqueAgentName("damage");
  SharedObjectGuard guard(LumMemtab::Mount::objectName(agent, kCounterTablePath));
  MountedCounters m(agent);
  CounterTableReader reader(agent);
  m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 500);

  flipByte(guard.name(), 1, 0x20);
  EXPECT_THROW(reader.counts(), Memtab::CorruptionDetectedException);
  std::ostringstream trace;
  Lum::coverageStreamIs(&trace);
  {
    // A frame loop's run checks the seal as it starts: its adds find the damage too.
    const VxlanAgentCounter::Run run(m.counter.ptr());
    m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 3);
  }
  Lum::coverageStreamIs(nullptr);
  EXPECT_EQ(m.storage().corruptions(), 1u);
  EXPECT_NE(trace.str().find("bad magic"), std::string::npos) << trace.str();
  EXPECT_EQ(reader.counts().count(VxlanCounterId::r2lRxFrames), 3u);
  m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 1);
  EXPECT_EQ(m.storage().corruptions(), 1u);
}

// Guards against counts of an earlier table of another geometry being read under the
// wrong ids: such a table is zeroed at mount; a reader refuses a table that is missing;
// the counts of the current geometry outlive the mount. (A reader in another process:
// HostEndToEnd's counter test.)
TEST(SharedMemoryCounterTest, TableOfAnotherGeometryIsZeroedAtMount) {
  const std::string agent = uniqueAgentName("geometry");
  SharedObjectGuard guard(LumMemtab::Mount::objectName(agent, kCounterTablePath));
  EXPECT_THROW(CounterTableReader{agent}, Lum::ErrnoException);
  {
    LumMemtab::MountInfo older = counterMountInfo();
    older.collectionInfoIs(kVxlanCounterCollection, 40);
    MountedCounters m(agent, older);
    m.counter->vxlanCounterAdd(VxlanCounterId::l2rRxFrames, 9);
    m.counter->varpCounterAdd(VarpCounterId::arpCacheUpdated);
    m.counter->vxlanCounterAdd(VxlanCounterId::l2rArpHerDrops, 1);  // beyond the table
    EXPECT_EQ(m.counter->vxlanCounter(VxlanCounterId::l2rArpHerDrops).count, 0u);
  }
  {
    MountedCounters m(agent);
    const CounterTablesReading r = CounterTableReader(agent).counts();
    EXPECT_EQ(r.vxlan.size(), kVxlanCounterIds);
    EXPECT_EQ(r.count(VxlanCounterId::l2rRxFrames), 0u);
    EXPECT_EQ(r.count(VarpCounterId::arpCacheUpdated), 0u);
    m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 5);
  }
  EXPECT_EQ(MountedCounters(agent).counter->vxlanCounter(VxlanCounterId::r2lRxFrames).count, 5u)
      << "the counts did not outlive the mount";
}

// A storage without slots: every add takes the checked way of read, add and store, the
// way a damaged shared table's adds go.
struct CheckedStorage : MemoryCounterStorage {
  Slots slots() override { return {}; }
};

// Guards the widths on both ways of adding: the 64-bit table must carry over 32 bits,
// the 32-bit one wrap.
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
