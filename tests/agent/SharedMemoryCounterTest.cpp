#include <gtest/gtest.h>

#include <sstream>

#include "agent/CounterTableReader.h"
#include "agent/SharedMemoryCounterStorage.h"
#include "agent/VxlanAgentCounter.h"
#include "platform/memtab/MemtabLayout.h"
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

// Guards the whole chain of the running agent: the mount gives a counter table over
// shared memory whose adds reach a read-only reader, and the counts outlive the
// mapping. (A reader in another process, the names and sizes: HostEndToEnd's counter
// test.)
TEST(SharedMemoryCounterTest, MountedCountsAreSharedAndOutliveTheMount) {
  const std::string agent = uniqueAgentName("shared");
  SharedObjectGuard guard(LumMemtab::Mount::objectName(agent, kCounterTablePath));
  {
    MountedCounters m(agent);
    ASSERT_TRUE(m.counter);
    m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 2);
    m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 3);
    m.counter->varpCounterAdd(VarpCounterId::vxlanArpRx);
    const CounterTablesReading r = CounterTableReader(agent).counts();
    EXPECT_EQ(r.count(VxlanCounterId::r2lRxFrames), 5u);
    EXPECT_EQ(r.count(VarpCounterId::vxlanArpRx), 1u);
  }
  MountedCounters again(agent);
  EXPECT_EQ(again.counter->vxlanCounter(VxlanCounterId::r2lRxFrames).count, 5u);
  EXPECT_EQ(again.counter->varpCounter(VarpCounterId::vxlanArpRx).count, 1u);
}

// Guards the damaged-header path on the agent side: the add reports the damage once
// (counted, traced), restarts its slot from zero and repairs the header, so the reader
// that refused the table reads it again.
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
  m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 3);
  Lum::coverageStreamIs(nullptr);
  EXPECT_EQ(m.storage().corruptions(), 1u);
  EXPECT_NE(trace.str().find("bad magic"), std::string::npos) << trace.str();
  EXPECT_EQ(reader.counts().count(VxlanCounterId::r2lRxFrames), 3u);
  m.counter->vxlanCounterAdd(VxlanCounterId::r2lRxFrames, 1);
  EXPECT_EQ(m.storage().corruptions(), 1u);

  m.counter->varpCounterAdd(VarpCounterId::arpDiscarded);
  flipByte(guard.name(), offsetof(LumMemtab::TableHeader, headerChecksum) + 2, 1);
  EXPECT_THROW(CounterTableReader{agent}, Memtab::CorruptionDetectedException);
  m.counter->varpCounterAdd(VarpCounterId::arpDiscarded);
  EXPECT_EQ(m.storage().corruptions(), 2u);
  EXPECT_NE(m.storage().lastCorruption().find("header checksum"), std::string::npos);
  const CounterTablesReading r = reader.counts();
  EXPECT_EQ(r.count(VarpCounterId::arpDiscarded), 1u);
  EXPECT_EQ(r.count(VxlanCounterId::r2lRxFrames), 4u);
}

// Guards against counts of an earlier table of another geometry being read under the
// wrong ids: such a table is zeroed at mount; a reader refuses a table that is missing.
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
  MountedCounters m(agent);
  const CounterTablesReading r = CounterTableReader(agent).counts();
  EXPECT_EQ(r.vxlan.size(), kVxlanCounterIds);
  EXPECT_EQ(r.count(VxlanCounterId::l2rRxFrames), 0u);
  EXPECT_EQ(r.count(VarpCounterId::arpCacheUpdated), 0u);
}

}  // namespace
}  // namespace Vxlan
