// Lum::PacketRxRing: the memory-mapped receive ring of a packet socket
// (PACKET_RX_RING, TPACKET_V2), read one frame at a time without a system call.
//
// Layout: `slots` slots of `slotBytes` each, packed into blocks of whole pages, which
// the kernel fills in ring order. Each slot starts with a tpacket2_hdr; the kernel sets
// its tp_status to TP_STATUS_USER once a frame is in the slot, whose bytes start tp_mac
// bytes into it. The reader takes slots in the same order (next()) and hands them back
// in that order (releaseRead()) by writing TP_STATUS_KERNEL, so the kernel never meets
// a slot it cannot fill while a later one is free. A frame stays where it is until it
// is handed back: it may be rewritten in place and written out from the ring.
//
// Version 2 rather than 3: each frame is the reader's as soon as it is written.
// Version 3 hands over whole blocks, and in light traffic only when a block timer of
// some milliseconds retires a block, which would delay every frame at low rates.
//
// When the ring is full the kernel drops the frame and marks the next frame it writes
// with TP_STATUS_LOSING; takeDrops() then reads (and so resets) the socket's
// PACKET_STATISTICS, and costs a system call only after frames were lost.
//
// Set it up before the socket is bound, so that no frame waits in the socket's own
// queue where the ring reader never looks.
#pragma once

#include <linux/if_packet.h>

#include <cstddef>
#include <cstdint>

#include "platform/os/SysCalls.h"

namespace Lum {

class PacketRxRing {
 public:
  struct Frame {
    uint8_t* data;
    uint32_t len;      // bytes in the slot: the frame, cut to the slot if it was longer
    uint32_t wireLen;  // the frame's own length
  };

  // The slot that holds a frame of `frameBytes` behind the ring's header and address
  // and `headroom` free bytes.
  static constexpr uint32_t slotBytesFor(uint32_t frameBytes, uint32_t headroom = 0) {
    return (TPACKET_ALIGN(TPACKET2_HDRLEN + 16) + reserveFor(headroom) + frameBytes + 15) & ~15u;
  }
  // PACKET_RESERVE for at least `headroom` free bytes between the address the kernel
  // writes and the frame: without one there are 14 (the frame's header is placed so
  // that the network header is aligned).
  static constexpr uint32_t reserveFor(uint32_t headroom) {
    return headroom <= kFreeBytes ? 0 : (headroom - kFreeBytes + 15) & ~15u;
  }

  // Asks for TPACKET_V2, the room in front of each frame, the ring and its mapping on
  // packet socket `fd`. Throws Lum::ErrnoException naming the step that failed
  // ("PACKET_VERSION", "PACKET_RESERVE", "PACKET_RX_RING", "mmap"); the socket is left
  // without a ring then. `slotBytes` from slotBytesFor with the same `headroom`.
  PacketRxRing(SysCalls& sys, int fd, uint32_t slotBytes, uint32_t slots, uint32_t headroom = 0);
  ~PacketRxRing();
  PacketRxRing(const PacketRxRing&) = delete;
  PacketRxRing& operator=(const PacketRxRing&) = delete;

  // The frame in the next slot that is the reader's, moving past it; false when the
  // kernel has not written one there yet: the ring is drained.
  bool next(Frame& f) {
    const uint32_t status = __atomic_load_n(statusOf(next_.slot), __ATOMIC_ACQUIRE);
    if ((status & kUser) == 0 || read_ == slots_) return false;
    losing_ |= (status & kLosing) != 0;
    f = frameIn(next_.slot);
    step(next_);
    ++read_;
    return true;
  }
  // Whether a frame is waiting, without moving past it.
  bool ready() const {
    return read_ < slots_ && (__atomic_load_n(statusOf(next_.slot), __ATOMIC_ACQUIRE) & kUser) != 0;
  }
  // Hands every slot taken by next() back to the kernel, oldest first.
  void releaseRead();
  // Frames read and not yet handed back.
  uint32_t held() const { return read_; }

  // Frames the kernel dropped because the ring was full, since the last call; 0
  // without a system call unless a frame came marked as following a loss.
  uint32_t takeDrops();

  uint32_t slots() const { return slots_; }
  uint32_t slotBytes() const { return slotBytes_; }

 private:
  static constexpr uint32_t kUser = 1;    // TP_STATUS_USER
  static constexpr uint32_t kLosing = 4;  // TP_STATUS_LOSING
  // Between the end of the address (TPACKET2_HDRLEN) and the frame of a raw socket.
  static constexpr uint32_t kFreeBytes = TPACKET_ALIGN(TPACKET2_HDRLEN + 16) - 14 - TPACKET2_HDRLEN;

  // A slot in ring order: its index, its address and how many slots follow it in its
  // block, so that stepping to the next one needs no division (cursorAt() divides).
  struct Cursor {
    uint32_t index;
    uint8_t* slot;
    uint32_t blockLeft;
  };
  Cursor cursorAt(uint32_t i) const {
    return {i, map_ + (i / slotsPerBlock_) * blockBytes_ + (i % slotsPerBlock_) * slotBytes_,
            slotsPerBlock_ - 1 - i % slotsPerBlock_};
  }
  void step(Cursor& c) const {
    if (++c.index == slots_) {
      c = cursorAt(0);
    } else if (c.blockLeft > 0) {
      c.slot += slotBytes_;
      --c.blockLeft;
    } else {
      c.slot += blockBytes_ - size_t{slotsPerBlock_ - 1} * slotBytes_;
      c.blockLeft = slotsPerBlock_ - 1;
    }
  }
  static uint32_t* statusOf(uint8_t* slot) {
    return &reinterpret_cast<tpacket2_hdr*>(slot)->tp_status;
  }
  static Frame frameIn(uint8_t* slot) {
    const auto* h = reinterpret_cast<const tpacket2_hdr*>(slot);
    return {slot + h->tp_mac, h->tp_snaplen, h->tp_len};
  }

  SysCalls& sys_;
  int fd_;
  uint32_t slotBytes_;
  uint32_t slots_;
  uint32_t slotsPerBlock_ = 1;
  size_t blockBytes_ = 0;
  uint8_t* map_ = nullptr;
  size_t mapBytes_ = 0;
  Cursor next_{};      // the slot next() looks at
  uint32_t read_ = 0;  // slots taken and not handed back; they end just before next_
  bool losing_ = false;
};

}  // namespace Lum
