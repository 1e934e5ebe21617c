// Vxlan::SharedMemoryCounterStorage: the counts of a VxlanAgentCounter kept in a
// shared-memory table, where other programs of the switch read them and where they
// outlive a stop of the agent.
//
// The agent does not build it itself; it mounts the table and takes the entity:
//
//   LumMemtab::Mount mount(agentName);
//   mount.doMount(kCounterTablePath, "Vxlan::VxlanAgentCounter", counterMountInfo());
//   auto counter = Lum::ptrCast<VxlanAgentCounter>(mount.getEntity(kCounterTablePath));
//
// Every read first checks the table's seal (LumMemtab::Table::checkSeal) and throws
// Memtab::CorruptionDetectedException when the header was damaged. The adds of
// VxlanAgentCounter hand that to corruptionDetected(), which counts it, keeps the
// message, traces one line and writes the header again: the agent owns the table, so
// one damage makes one report instead of one per frame, and readers find a sound
// header again. Ids beyond a table read as 0 and are not written, as in
// MemoryCounterStorage.
//
// Cost on the frame path: the adds test the seal inline (two loads, two compares) and
// load, add and store the slot directly (slots()); a read through vxlanCount is the
// seal check, a bounds check and one relaxed atomic load. No allocation and no system
// call, unless a damage is found.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "agent/VxlanAgentCounter.h"
#include "platform/memtab/MemtabMount.h"
#include "platform/memtab/MemtabTable.h"

namespace Vxlan {

// Where the agent mounts its counter table: object "/vxrelay-<agentName>-vxlan-counter".
inline constexpr std::string_view kCounterTablePath = "vxlan/counter";
inline constexpr std::string_view kVxlanCounterCollection = "vxlanCounter";
inline constexpr std::string_view kVarpCounterCollection = "varpCounter";

// The collections of the counter table as the agent mounts it: every id of each table.
LumMemtab::MountInfo counterMountInfo();

class SharedMemoryCounterStorage : public CounterStorage {
 public:
  // Throws Lum::RangeException unless `table` has the collections "vxlanCounter" of
  // 8-byte and "varpCounter" of 4-byte elements.
  explicit SharedMemoryCounterStorage(std::shared_ptr<LumMemtab::Table> table);

  uint64_t vxlanCount(uint16_t id) const override;
  void vxlanCountIs(uint16_t id, uint64_t count) override;
  uint32_t varpCount(uint16_t id) const override;
  void varpCountIs(uint16_t id, uint32_t count) override;
  void corruptionDetected(const std::string& message) override;
  // Both collections hold every id (the mount asks for no fewer), so the adds may
  // write the slots directly while the table's seal holds.
  Slots slots() override;

  // How many damages were reported, and the message of the last one.
  uint64_t corruptions() const { return corruptions_; }
  const std::string& lastCorruption() const { return lastCorruption_; }
  const LumMemtab::Table& table() const { return *table_; }

 private:
  std::shared_ptr<LumMemtab::Table> table_;
  std::span<uint64_t> vxlan_;
  std::span<uint32_t> varp_;
  uint64_t corruptions_ = 0;
  std::string lastCorruption_;
};

}  // namespace Vxlan
