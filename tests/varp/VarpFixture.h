// The fixture of the virtual ARP unit tests: the machine of VarpSetup, and what the
// tests read of it.
#pragma once

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <string>
#include <vector>

#include "frames/ArpPkt.h"
#include "tests/support/VxlanFrameBuilder.h"
#include "tests/varp/VarpSetup.h"

namespace Vxlan {

inline const Bridging::VlanIdOrNone kVlan(10);
inline const Wire::EthAddr kBroadcast(0xffff, 0xffff, 0xffff);

// A datagram as the forwarding plane hands ARP from the overlay up on "vxlan": the
// pseudo type 0x0040 and two bytes in front of the outer frame's type or tag, and a
// good IPv4 checksum.
inline std::vector<uint8_t> vxlanArpFrame(const TestSupport::VxlanFrameBuilder& b) {
  std::vector<uint8_t> f = b.build();
  f.insert(f.begin() + 12, {0x00, 0x40, 0x00, 0x00});
  uint8_t* ipHdr = f.data() + 18 + (b.tagged ? 4 : 0);
  uint32_t sum = 0;
  for (int i = 0; i < b.ipHdrWords * 4; i += 2) sum += ipHdr[i] << 8 | ipHdr[i + 1];
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  ipHdr[10] = static_cast<uint8_t>(~sum >> 8);
  ipHdr[11] = static_cast<uint8_t>(~sum);
  return f;
}

class VarpFixture : public ::testing::Test, protected VarpSetup {
 protected:
  VtiStatus& vtiStatus() { return *vtis_->vtiStatus(Wire::IntfId("Vxlan1")); }
  // A reply from `from` (10.1.1.1) to `to` at 10.1.1.5.
  static Lum::Ptr<Wire::Pkt> reply(Wire::EthAddr from, Wire::EthAddr to) {
    return Arp::makeArpPkt(to, from, 2, from, ip("10.1.1.1"), to, ip("10.1.1.5"));
  }
  // Where each datagram went, in order ("dev N" for a frame to a device).
  std::vector<std::string> destinations() const {
    std::vector<std::string> d;
    for (const auto& s : kernel_.sent) {
      char text[INET_ADDRSTRLEN];
      d.push_back(s.ifindex ? "dev " + std::to_string(s.ifindex)
                            : ::inet_ntop(AF_INET, &s.dstIp, text, sizeof text));
    }
    return d;
  }
  uint32_t count(VarpCounterId id) const { return counters_->varpCounter(id).count; }
};

}  // namespace Vxlan
