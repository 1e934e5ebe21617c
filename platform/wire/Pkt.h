// Wire::Pkt: the packet object of the virtual ARP side, received from and handed to
// the packet access modules (PAMs).
//
// Layout. A packet describes its bytes with a table of two iovec entries: entry 0 is
// private to the packet (a header of its own, unused today), entry 1 always shows the
// data of the packet's shared buffer. `firstIoVec_` is the first entry in use;
// kMaxIovecs means none is. The shared buffer is one block of storage whose packet
// bytes run from `data_` for `dataBytes_`; the bytes between the start of the storage
// and `data_` are head room:
//
//   buffer_                data_                        data_ + dataBytes_   buffer_ + size_
//   |------ head room ------|======== packet bytes ========|------- tail -------|
//
// Prepending a header (newSharedHeadData) moves `data_` back into the head room and
// dropping one (delSharedHeadData) moves it forward; the end of the data stays where it
// is and no payload byte moves. A new packet is all head room up to the end of the
// storage, and is filled by taking head room for its whole length, so it can still be
// given a VXLAN header in front later.
//
// Invariant after every operation: `data_` and `data_ + dataBytes_` both lie within
// [buffer_, buffer_ + size_]. The operations take sizes only from the caller, who has
// just found the header inside the packet; breaking the invariant is a contract fault
// and raises a range exception rather than touching memory outside the storage.
//
// Packets come from a Manager, which caps how many exist at once (newPkt gives none
// beyond the cap) and keeps a few freed buffers for reuse, so a steady flow of ARP
// allocates nothing. Lum::Ptr owns a packet; the logic never frees one itself. A
// manager outlives its packets: the process-wide one is never destroyed.
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/core/Ptr.h"

namespace Wire {

class Pkt : public Lum::VFPtrInterface {
 public:
  class Manager;

  struct SharedBuffer {
    std::unique_ptr<uint8_t[]> storage_;
    uint8_t* buffer_ = nullptr;
    uint32_t size_ = 0;
    uint8_t* data_ = nullptr;
    uint32_t dataBytes_ = 0;
  };

  static constexpr uint8_t kMaxIovecs = 2;
  // The storage of every packet: the largest local frame (9999 bytes) with room in
  // front for the VXLAN header of a reply, rounded up.
  static constexpr uint32_t kStorageBytes = 10240;

  // The packet's first byte and its length over the entries in use.
  uint8_t* data() const { return firstIoVec_ < kMaxIovecs ? base(firstIoVec_) : nullptr; }
  uint32_t bytes() const;
  bool empty() const { return firstIoVec_ == kMaxIovecs; }
  // The entries in use, for scatter-gather sends.
  const iovec* iov() const { return &iov_[firstIoVec_]; }
  int iovCount() const { return kMaxIovecs - firstIoVec_; }

  const SharedBuffer* sharedBuffer() const { return sharedBuffer_.get(); }
  // Bytes in front of the data that a header may take.
  uint32_t headRoom() const;

  // Extends the packet forward by `bytes` (not initialised) / shrinks it from the front.
  void newSharedHeadData(uint32_t bytes);
  void delSharedHeadData(uint32_t bytes);
  // Shows the shared buffer's data in entry 1.
  void updateSharedIovec();

 private:
  friend class Manager;
  Pkt(Manager* manager, std::unique_ptr<SharedBuffer> shared);
  ~Pkt() override;
  uint8_t* base(int i) const { return static_cast<uint8_t*>(iov_[i].iov_base); }

  iovec iov_[kMaxIovecs] = {};
  uint8_t firstIoVec_ = kMaxIovecs;
  std::unique_ptr<SharedBuffer> sharedBuffer_;
  Manager* manager_;
};

class Pkt::Manager {
 public:
  // At most `limit` packets exist at once.
  explicit Manager(uint32_t limit = kDefaultLimit) : limit_(limit) {}
  // Every packet it made must be gone by then.
  ~Manager() = default;
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  // A packet with no data and all of its storage as head room, or none when `limit`
  // packets exist already.
  Lum::Ptr<Pkt> newPkt();

  uint32_t limit() const { return limit_; }
  // A lower limit takes effect for new packets; those that exist stay.
  void limitIs(uint32_t limit) { limit_ = limit; }
  uint32_t packets() const { return packets_; }
  // newPkt calls refused at the limit.
  uint64_t refused() const { return refused_; }

  static constexpr uint32_t kDefaultLimit = 10000;
  // Freed storage kept for reuse; beyond this it goes back to the allocator.
  static constexpr size_t kSpareBuffers = 64;

 private:
  friend class Pkt;
  void release(std::unique_ptr<SharedBuffer> shared);

  uint32_t limit_;
  uint32_t packets_ = 0;
  uint64_t refused_ = 0;
  std::vector<std::unique_ptr<SharedBuffer>> spare_;
};

// The process-wide manager.
Pkt::Manager& globalPktManager();

}  // namespace Wire
