#include "agent/VxlanAgentCounter.h"

#include "agent/SharedMemoryCounterStorage.h"
#include "platform/memtab/MemtabMount.h"

namespace Vxlan {

namespace {
// The count that `read` gives, or zero when the storage is found damaged. The
// result is returned from each branch rather than assigned over a default: g++ 12 at
// -O2 lost such a default on the exception edge of a devirtualised call.
template <class Read>
auto readOrZero(Read read, CounterStorage& storage) -> decltype(read()) {
  try {
    return read();
  } catch (const Memtab::CorruptionDetectedException& e) {
    storage.corruptionDetected(e.what());
    return 0;
  }
}
}  // namespace

const Lum::TypeInfo& VxlanAgentCounter::kType =
    Lum::TypeRegistry::add(Lum::TypeInfo("Vxlan::VxlanAgentCounter", "Lum::Entity")
                               .attribute("vxlanCounter", kVxlanCounter)
                               .attribute("varpCounter", kVarpCounter));

// Registered here rather than beside the storage so that any program that links the
// entity can also mount it: this file is always linked with the entity.
const LumMemtab::TableType& VxlanAgentCounter::kTableType = LumMemtab::TableTypes::add(
    {"Vxlan::VxlanAgentCounter",
     {{std::string(kVxlanCounterCollection), sizeof(uint64_t)},
      {std::string(kVarpCounterCollection), sizeof(uint32_t)}},
     [](const Lum::Name& name, std::shared_ptr<LumMemtab::Table> table) -> Lum::Ptr<Lum::Entity> {
       return new VxlanAgentCounter(name,
                                    std::make_unique<SharedMemoryCounterStorage>(std::move(table)));
     }});

VxlanAgentCounter::VxlanAgentCounter(const Lum::Name& name, std::unique_ptr<CounterStorage> storage)
    : Entity(name), storage_(std::move(storage)) {
  if (!storage_) Lum::throwRangeException("null ValidPtr");
  slots_ = storage_->slots();
}

VxlanCounter VxlanAgentCounter::vxlanCounter(VxlanCounterId id) const {
  return {id, storage_->vxlanCount(static_cast<uint16_t>(id))};
}

VarpCounter VxlanAgentCounter::varpCounter(VarpCounterId id) const {
  return {id, storage_->varpCount(static_cast<uint16_t>(id))};
}

void VxlanAgentCounter::vxlanCounterAddChecked(VxlanCounterId id, uint32_t n) {
  vxlanCounterIs({id, readOrZero([&] { return vxlanCounter(id).count; }, *storage_) + n});
}

void VxlanAgentCounter::varpCounterAddChecked(VarpCounterId id) {
  varpCounterIs({id, readOrZero([&] { return varpCounter(id).count; }, *storage_) + 1u});
}

void VxlanAgentCounter::vxlanCounterClearAll() {
  for (uint16_t i = 0; i < kVxlanCounterIds; ++i) vxlanCounterIs({VxlanCounterId(i), 0});
}

void VxlanAgentCounter::varpCounterClearAll() {
  for (uint16_t i = 0; i < kVarpCounterIds; ++i) varpCounterIs({VarpCounterId(i), 0});
}

}  // namespace Vxlan
