#include "platform/os/PacketRxRing.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cerrno>

#include "platform/core/Exception.h"

namespace Lum {

namespace {

// The kernel gives each block a power of two of pages, so a block is one: 128 KiB,
// or the slot's size rounded up to a power of two when a slot is larger. The slots
// that do not fill a block waste what is left of it (for 10 KiB slots, 32 bytes).
size_t blockBytesFor(uint32_t slotBytes) {
  return std::max<size_t>(size_t{128} << 10, std::bit_ceil(size_t{slotBytes}));
}

}  // namespace

PacketRxRing::PacketRxRing(SysCalls& sys, int fd, uint32_t slotBytes, uint32_t slots,
                           uint32_t headroom)
    : sys_(sys),
      fd_(fd),
      slotBytes_((slotBytes + TPACKET_ALIGNMENT - 1) & ~(TPACKET_ALIGNMENT - 1)) {
  blockBytes_ = blockBytesFor(slotBytes_);
  slotsPerBlock_ = static_cast<uint32_t>(blockBytes_ / slotBytes_);
  const uint32_t blocks = (slots + slotsPerBlock_ - 1) / slotsPerBlock_;
  slots_ = blocks * slotsPerBlock_;

  const int version = TPACKET_V2;
  if (sys_.setsockopt(fd_, SOL_PACKET, PACKET_VERSION, &version, sizeof version) < 0) {
    throw ErrnoException(errno, "PACKET_VERSION");
  }
  const unsigned reserve = reserveFor(headroom);
  if (reserve != 0 &&
      sys_.setsockopt(fd_, SOL_PACKET, PACKET_RESERVE, &reserve, sizeof reserve) < 0) {
    throw ErrnoException(errno, "PACKET_RESERVE");
  }
  tpacket_req req{};
  req.tp_block_size = static_cast<unsigned>(blockBytes_);
  req.tp_block_nr = blocks;
  req.tp_frame_size = slotBytes_;
  req.tp_frame_nr = slots_;
  if (sys_.setsockopt(fd_, SOL_PACKET, PACKET_RX_RING, &req, sizeof req) < 0) {
    throw ErrnoException(errno, "PACKET_RX_RING");
  }
  mapBytes_ = blockBytes_ * blocks;
  void* map = sys_.mmap(nullptr, mapBytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
  if (map == MAP_FAILED) {
    const int err = errno;
    // A ring without its mapping would take frames that nobody can read.
    tpacket_req none{};
    sys_.setsockopt(fd_, SOL_PACKET, PACKET_RX_RING, &none, sizeof none);
    throw ErrnoException(err, "mmap");
  }
  map_ = static_cast<uint8_t*>(map);
  next_ = cursorAt(0);
}

PacketRxRing::~PacketRxRing() {
  sys_.munmap(map_, mapBytes_);
}

void PacketRxRing::releaseRead() {
  if (read_ == 0) return;
  Cursor c = cursorAt(next_.index >= read_ ? next_.index - read_ : next_.index + slots_ - read_);
  for (; read_ > 0; --read_, step(c)) {
    __atomic_store_n(statusOf(c.slot), TP_STATUS_KERNEL, __ATOMIC_RELEASE);
  }
}

uint32_t PacketRxRing::takeDrops() {
  if (!losing_) return 0;
  losing_ = false;
  tpacket_stats st{};
  socklen_t len = sizeof st;
  if (sys_.getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &st, &len) < 0) return 0;
  return st.tp_drops;
}

}  // namespace Lum
