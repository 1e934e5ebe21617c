#include "frames/ArpPkt.h"

#include <gtest/gtest.h>

#include <vector>

namespace Arp {
namespace {

// The reply frame byte for byte: Ethernet, type 0x0806, the fixed ARP prefix for
// Ethernet and IPv4, the opcode, then sender and target pairs; and it leaves all of
// the packet's head room free for the headers put in front later.
TEST(ArpPktTest, ReplyFrameByteForByte) {
  const auto mac = [](uint8_t last) { return Wire::EthAddr(0x0200, 0x0000, last); };
  Lum::Ptr<Wire::Pkt> pkt =
      makeArpPkt(mac(1), mac(2), 2, mac(3), Wire::IpAddr::fromHostOrder(0x0a000001), mac(4),
                 Wire::IpAddr::fromHostOrder(0xc0a80a02));
  ASSERT_TRUE(pkt);
  const std::vector<uint8_t> want = {2, 0, 0,    0,    0, 1, 2,   0,   0,  0,
                                     0, 2, 0x08, 0x06,                          // Ethernet
                                     0, 1, 0x08, 0x00, 6, 4, 0,   2,            // ARP prefix, reply
                                     2, 0, 0,    0,    0, 3, 10,  0,   0,  1,   // sender
                                     2, 0, 0,    0,    0, 4, 192, 168, 10, 2};  // target
  EXPECT_EQ(std::vector<uint8_t>(pkt->data(), pkt->data() + pkt->bytes()), want);
  EXPECT_EQ(pkt->headRoom(), Wire::Pkt::kStorageBytes - kArpFrameBytes);
}

}  // namespace
}  // namespace Arp
