// The frame checks of ARP that the forwarding plane hands up from the overlay: a VXLAN
// datagram for this VTEP whose inner frame is ARP, delivered on "vxlan" behind the
// pseudo Ethernet type 0x0040 (the switch's value, as it stands):
//
//   0     6     12     14    16     18        20     (22)        l2Len
//   | dst | src | 0040 | --  | type | (tci    | type | (tci type)) | IPv4 | UDP | VXLAN |
//                                                                  | inner Ethernet | ARP |
//
// checkVxlanArpFrame is the per-packet check, a pure function (no I/O, no clock, no
// trace) that the handler, and the fuzz target, call. It rewrites offset 12 to 0x8100,
// so that the frame reads as an ordinary tagged frame from there on, reads no byte at
// or behind `len`, and says where the headers are or which check refused the frame.
#pragma once

#include <cstdint>
#include <cstring>

#include "agent/VxlanCounterId.h"
#include "platform/types/IpAddr.h"

namespace Vxlan {

struct VxlanArpFrame {
  bool ok = false;
  // When refused: the counter of the check, and its words for the trace.
  VarpCounterId drop{};
  const char* why = "";
  // When accepted: the first tag's VLAN (0: untagged), and where the outer IPv4 header
  // and the VXLAN header are.
  uint16_t pktVlan = 0;
  uint32_t ipOffset = 0;
  uint32_t vxlanOffset = 0;

  Wire::IpAddr outerSrc(const uint8_t* frame) const { return addrAt(frame + ipOffset + 12); }
  Wire::IpAddr outerDst(const uint8_t* frame) const { return addrAt(frame + ipOffset + 16); }

 private:
  static Wire::IpAddr addrAt(const uint8_t* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    return Wire::IpAddr::fromNetworkOrder(w);
  }
};

inline constexpr uint16_t kVxlanArpType = 0x0040;
// IPv4 (20) + UDP (8) + VXLAN (8) + Ethernet (14) + ARP (28).
inline constexpr uint32_t kVxlanArpMinBehindL2 = 78;

// `udpPort` is the VTI's. A first tag naming VLAN 4095 raises the VLAN value type's
// range exception, as the value type refuses it.
VxlanArpFrame checkVxlanArpFrame(uint8_t* frame, uint32_t len, uint16_t udpPort);

}  // namespace Vxlan
