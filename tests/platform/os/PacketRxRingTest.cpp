// The receive ring against a kernel played by the test: the fake maps plain memory and
// writes frames into its slots the way the kernel does.
#include "platform/os/PacketRxRing.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/core/Exception.h"
#include "tests/support/Throws.h"

namespace Lum {
namespace {

struct FakeRingKernel : SysCalls {
  tpacket_req req{};
  uint8_t* map = nullptr;
  bool failMmap = false;
  bool ringRemoved = false;
  uint32_t drops = 0;
  int statsCalls = 0;

  ~FakeRingKernel() override { std::free(map); }
  int setsockopt(int, int, int name, const void* value, socklen_t) override {
    if (name == PACKET_RX_RING) {
      std::memcpy(&req, value, sizeof req);
      ringRemoved = req.tp_block_nr == 0;
    }
    return 0;
  }
  void* mmap(void*, size_t len, int, int, int, off_t) override {
    if (failMmap) return errno = ENOMEM, MAP_FAILED;
    EXPECT_EQ(len, size_t{req.tp_block_size} * req.tp_block_nr);
    map = static_cast<uint8_t*>(std::aligned_alloc(4096, len));
    std::memset(map, 0, len);
    return map;
  }
  int munmap(void* addr, size_t) override { return addr == map ? 0 : (errno = EINVAL, -1); }
  int getsockopt(int, int, int name, void* value, socklen_t*) override {
    EXPECT_EQ(name, PACKET_STATISTICS);
    ++statsCalls;
    tpacket_stats st{drops + 10, drops};
    std::memcpy(value, &st, sizeof st);
    drops = 0;
    return 0;
  }

  tpacket2_hdr* slot(uint32_t i) const {
    const uint32_t perBlock = req.tp_block_size / req.tp_frame_size;
    return reinterpret_cast<tpacket2_hdr*>(map + (i / perBlock) * req.tp_block_size +
                                           (i % perBlock) * req.tp_frame_size);
  }
  // A frame of `len` bytes of `fill` in slot `i`, handed to the reader.
  void put(uint32_t i, uint8_t fill, uint32_t len, uint32_t extraStatus = 0) {
    tpacket2_hdr* h = slot(i);
    ASSERT_EQ(h->tp_status, TP_STATUS_KERNEL) << "the kernel wrote into a slot it does not own";
    h->tp_mac = 66;
    h->tp_len = len + 1;
    h->tp_snaplen = len;
    std::memset(reinterpret_cast<uint8_t*>(h) + h->tp_mac, fill, len);
    h->tp_status = TP_STATUS_USER | extraStatus;
  }
};

std::string take(PacketRxRing& ring) {
  PacketRxRing::Frame f;
  if (!ring.next(f)) return "-";
  EXPECT_EQ(f.wireLen, f.len + 1);
  return std::string(reinterpret_cast<const char*>(f.data), f.len);
}
// The frames the ring hands out until a slot is not ready (at most eight).
std::string takeAll(PacketRxRing& ring) {
  std::string all, f;
  for (int i = 0; i < 8 && (f = take(ring)) != "-"; ++i) all += f;
  return all;
}

// Guards the order the kernel relies on: frames come out in slot order across blocks
// and around the end, a slot the kernel has not filled (or that the reader still
// holds) ends the reading, and only the slots read go back, oldest first.
TEST(PacketRxRingTest, FramesComeInOrderAndGoBackOldestFirst) {
  FakeRingKernel kernel;
  PacketRxRing ring(kernel, 3, 64 << 10, 3);  // two 64 KiB slots to each 128 KiB block
  ASSERT_EQ(kernel.req.tp_frame_nr, 4u);

  kernel.put(0, 'a', 2), kernel.put(1, 'b', 3), kernel.put(2, 'c', 1);
  EXPECT_EQ(takeAll(ring), "aabbbc");
  ring.releaseRead();
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(kernel.slot(i)->tp_status, TP_STATUS_KERNEL);

  kernel.put(3, 'd', 1), kernel.put(0, 'e', 1);
  EXPECT_TRUE(ring.ready());
  EXPECT_EQ(take(ring), "d");
  ring.releaseRead();
  EXPECT_EQ(kernel.slot(3)->tp_status, TP_STATUS_KERNEL);
  EXPECT_EQ(kernel.slot(0)->tp_status, TP_STATUS_USER) << "a slot not read went back";

  // All four slots held: the fifth look meets the first held slot, not a new frame.
  kernel.put(1, 'f', 1), kernel.put(2, 'g', 1), kernel.put(3, 'h', 1);
  EXPECT_EQ(takeAll(ring), "efgh");
  ring.releaseRead();
  for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(kernel.slot(i)->tp_status, TP_STATUS_KERNEL);
}

TEST(PacketRxRingTest, DropsAreAskedForOnlyAfterAFrameMarkedLosing) {
  FakeRingKernel kernel;
  PacketRxRing ring(kernel, 3, 2048, 64);
  kernel.drops = 7;
  kernel.put(0, 'a', 1);
  take(ring);
  EXPECT_EQ(ring.takeDrops(), 0u);
  EXPECT_EQ(kernel.statsCalls, 0);

  kernel.put(1, 'b', 1, TP_STATUS_LOSING);
  take(ring);
  EXPECT_EQ(ring.takeDrops(), 7u);
  EXPECT_EQ(ring.takeDrops(), 0u);
  EXPECT_EQ(kernel.statsCalls, 1);
}

TEST(PacketRxRingTest, AFailedMappingIsNamedAndRemovesTheRing) {
  FakeRingKernel kernel;
  kernel.failMmap = true;
  const auto e = TestSupport::thrown<ErrnoException>([&] { PacketRxRing(kernel, 3, 2048, 64); });
  EXPECT_TRUE(e && e->step() == "mmap");
  EXPECT_TRUE(kernel.ringRemoved);
}

}  // namespace
}  // namespace Lum
