#include "agent/SharedMemoryCounterStorage.h"

#include <atomic>

#include "platform/trace/Trace.h"

namespace Vxlan {

namespace {
Lum::TraceFacility& traceLum = Lum::traceFacility("RootPathBase::Lum");
}  // namespace

LumMemtab::MountInfo counterMountInfo() {
  LumMemtab::MountInfo info;
  info.collectionInfoIs(kVxlanCounterCollection, kVxlanCounterIds);
  info.collectionInfoIs(kVarpCounterCollection, kVarpCounterIds);
  return info;
}

SharedMemoryCounterStorage::SharedMemoryCounterStorage(std::shared_ptr<LumMemtab::Table> table)
    : table_(std::move(table)),
      vxlan_(table_->slots<uint64_t>(kVxlanCounterCollection)),
      varp_(table_->slots<uint32_t>(kVarpCounterCollection)) {}

// Slots are loaded and stored atomically (relaxed) because readers in other processes
// load them while the agent writes; on the agent's targets these are plain moves.

uint64_t SharedMemoryCounterStorage::vxlanCount(uint16_t id) const {
  table_->checkSeal();
  return id < vxlan_.size() ? std::atomic_ref(vxlan_[id]).load(std::memory_order_relaxed) : 0;
}

void SharedMemoryCounterStorage::vxlanCountIs(uint16_t id, uint64_t count) {
  if (id < vxlan_.size()) std::atomic_ref(vxlan_[id]).store(count, std::memory_order_relaxed);
}

uint32_t SharedMemoryCounterStorage::varpCount(uint16_t id) const {
  table_->checkSeal();
  return id < varp_.size() ? std::atomic_ref(varp_[id]).load(std::memory_order_relaxed) : 0;
}

void SharedMemoryCounterStorage::varpCountIs(uint16_t id, uint32_t count) {
  if (id < varp_.size()) std::atomic_ref(varp_[id]).store(count, std::memory_order_relaxed);
}

CounterStorage::Slots SharedMemoryCounterStorage::slots() {
  // A table laid out for fewer ids than this program knows gives no direct slots.
  if (vxlan_.size() < kVxlanCounterIds || varp_.size() < kVarpCounterIds) return {};
  return {vxlan_.data(), varp_.data(), table_->seal()};
}

void SharedMemoryCounterStorage::corruptionDetected(const std::string& message) {
  ++corruptions_;
  lastCorruption_ = message;
  LUM_TRACE(traceLum, 0,
            "SharedMemoryCounterStorage(" << table_->objectName() << ")::corruptionDetected() "
                                          << message << "; header written again");
  table_->headerRewrite();
}

}  // namespace Vxlan
