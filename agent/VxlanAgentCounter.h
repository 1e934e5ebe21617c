// Vxlan::VxlanAgentCounter: the two tables of event counters that every frame path
// adds to, and that other programs of the switch read.
//
// The entity holds the collections "vxlanCounter" (42 unsigned 64-bit counts) and
// "varpCounter" (39 unsigned 32-bit counts), keyed by id. Where the counts live is the
// business of a CounterStorage: plain memory here and in tests, a shared-memory
// table for the running agent (SharedMemoryCounterStorage, built when a
// LumMemtab::Mount mounts a table of this type through kTableType). A read may find
// the storage damaged; the add operations then report it through corruptionDetected()
// and go on from zero, so a frame path never sees an exception.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "agent/VxlanCounterId.h"
#include "platform/core/Entity.h"
#include "platform/memtab/Memtab.h"
#include "platform/memtab/MemtabTable.h"

namespace LumMemtab {
struct TableType;
}  // namespace LumMemtab

namespace Vxlan {

struct VxlanCounter {
  VxlanCounterId id{};
  uint64_t count = 0;
  bool operator==(const VxlanCounter&) const = default;
};

struct VarpCounter {
  VarpCounterId id{};
  uint32_t count = 0;
  bool operator==(const VarpCounter&) const = default;
};

// Where the counts are kept. Reads may throw Memtab::CorruptionDetectedException.
class CounterStorage {
 public:
  virtual ~CounterStorage() = default;
  virtual uint64_t vxlanCount(uint16_t id) const = 0;
  virtual void vxlanCountIs(uint16_t id, uint64_t count) = 0;
  virtual uint32_t varpCount(uint16_t id) const = 0;
  virtual void varpCountIs(uint16_t id, uint32_t count) = 0;
  // Told the message of a corruption found by a read; what it does is the storage's.
  virtual void corruptionDetected(const std::string& message) = 0;

  // Where the adds may write directly: every id of both tables as a slot, and the seal
  // that must hold for the slots to be written. A storage that gives none (null
  // slots) is added to through the reads and writes above.
  struct Slots {
    uint64_t* vxlan = nullptr;
    uint32_t* varp = nullptr;
    LumMemtab::Seal seal;
  };
  virtual Slots slots() { return {}; }
};

class MemoryCounterStorage : public CounterStorage {
 public:
  uint64_t vxlanCount(uint16_t id) const override { return id < kVxlanCounterIds ? vxlan_[id] : 0; }
  void vxlanCountIs(uint16_t id, uint64_t count) override {
    if (id < kVxlanCounterIds) vxlan_[id] = count;
  }
  uint32_t varpCount(uint16_t id) const override { return id < kVarpCounterIds ? varp_[id] : 0; }
  void varpCountIs(uint16_t id, uint32_t count) override {
    if (id < kVarpCounterIds) varp_[id] = count;
  }
  void corruptionDetected(const std::string&) override { ++corruptions_; }
  unsigned corruptions() const { return corruptions_; }
  // Plain memory has no header to damage: a seal of two words that always hold.
  Slots slots() override { return {vxlan_, varp_, {sealWords_, 0, 0}}; }

 private:
  uint64_t sealWords_[2] = {};
  uint64_t vxlan_[kVxlanCounterIds] = {};
  uint32_t varp_[kVarpCounterIds] = {};
  unsigned corruptions_ = 0;
};

class VxlanAgentCounter : public Lum::Entity {
 public:
  enum : int { kVxlanCounter = Entity::kAttrEnd, kVarpCounter, kAttrEnd };

  VxlanAgentCounter(const Lum::Name& name, std::unique_ptr<CounterStorage> storage);

  // The element for an id; a missing one reads as count 0. May throw
  // Memtab::CorruptionDetectedException.
  VxlanCounter vxlanCounter(VxlanCounterId id) const;
  void vxlanCounterIs(const VxlanCounter& c) {
    storage_->vxlanCountIs(static_cast<uint16_t>(c.id), c.count);
  }
  VarpCounter varpCounter(VarpCounterId id) const;
  void varpCounterIs(const VarpCounter& c) {
    storage_->varpCountIs(static_cast<uint16_t>(c.id), c.count);
  }

  // Read, add, store. A damaged read is reported and the sum starts from zero. The
  // 64-bit counts carry over 32 bits; the 32-bit ones wrap.
  //
  // Inline, as the frame paths call them for every frame: while the storage's seal
  // holds, an add is the seal's two compares and a load, add and store of the slot
  // (relaxed atomics: readers in other processes load the slots meanwhile). A broken
  // seal, or a storage without slots, takes the checked way of read, add and store.
  // Inside a Run the seal was checked when the run started.
  void vxlanCounterAdd(VxlanCounterId id, uint32_t n) {
    const auto i = static_cast<uint16_t>(id);
    uint64_t* const slots = runVxlan_ ? runVxlan_ : sealedVxlan();
    if (!slots || i >= kVxlanCounterIds) [[unlikely]]
      return vxlanCounterAddChecked(id, n);
    std::atomic_ref<uint64_t> slot(slots[i]);
    slot.store(slot.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
  }
  void varpCounterAdd(VarpCounterId id) {
    const auto i = static_cast<uint16_t>(id);
    if (!slots_.varp || i >= kVarpCounterIds || !slots_.seal.holds()) [[unlikely]] {
      return varpCounterAddChecked(id);
    }
    std::atomic_ref<uint32_t> slot(slots_.varp[i]);
    slot.store(slot.load(std::memory_order_relaxed) + 1u, std::memory_order_relaxed);
  }
  // A run of adds, such as a frame loop's pass over the frames waiting: the seal is
  // checked once when the run starts, and while it holds the adds of the run are a
  // load, add and store of their slot. A damage done during the run is found by the
  // first add after it. Runs may nest; the outermost one checks.
  class Run {
   public:
    explicit Run(VxlanAgentCounter* c) : c_(c) {
      if (c_ != nullptr && c_->runDepth_++ == 0) c_->runVxlan_ = c_->sealedVxlan();
    }
    ~Run() {
      if (c_ != nullptr && --c_->runDepth_ == 0) c_->runVxlan_ = nullptr;
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

   private:
    VxlanAgentCounter* c_;
  };

  // Every id of a table written with count 0.
  void vxlanCounterClearAll();
  void varpCounterClearAll();

  CounterStorage& storage() const { return *storage_; }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;
  // The shared-table form: 8-byte "vxlanCounter" and 4-byte "varpCounter" elements, the
  // entity built over a SharedMemoryCounterStorage.
  static const LumMemtab::TableType& kTableType;

 private:
  // The slots while the seal holds, else null.
  uint64_t* sealedVxlan() const {
    return slots_.vxlan && slots_.seal.holds() ? slots_.vxlan : nullptr;
  }
  [[gnu::noinline]] void vxlanCounterAddChecked(VxlanCounterId id, uint32_t n);
  [[gnu::noinline]] void varpCounterAddChecked(VarpCounterId id);

  std::unique_ptr<CounterStorage> storage_;
  CounterStorage::Slots slots_;
  uint64_t* runVxlan_ = nullptr;  // the slots, while a run whose seal held lasts
  int runDepth_ = 0;
};

}  // namespace Vxlan
