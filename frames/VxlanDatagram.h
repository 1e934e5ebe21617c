// Offsets inside a VXLAN datagram as read from a packet socket, Ethernet header
// included. T is the length of one 802.1Q tag (4 when bytes 12 and 13 are 0x81 0x00,
// else 0); H the IPv4 header length with its options.
//
//   0          14+T     14+T+H   22+T+H   30+T+H
//   | Ethernet | IPv4   | UDP    | VXLAN  | inner Ethernet frame
#pragma once

#include <cstdint>

#include "frames/EthHdr.h"
#include "frames/Ipv4Hdr.h"
#include "frames/VxlanHdr.h"

namespace Vxlan {

struct VxlanDatagram {
  // Ethernet, the smallest IPv4 header and UDP.
  static constexpr uint32_t kMinIpUdpLen =
      Wire::kEthHdrLen + sizeof(Wire::Ipv4Hdr) + sizeof(Wire::UdpHdr);
  // A VXLAN header and an inner Ethernet header: what must follow the VXLAN offset.
  static constexpr uint32_t kVxlanAndInnerEthLen = Wire::kVxlanHdrLen + Wire::kEthHdrLen;
  static_assert(kMinIpUdpLen == 42 && kVxlanAndInnerEthLen == 22);

  // T: 4 when the frame carries one tag. Needs 14 bytes.
  static uint32_t tagLen(const uint8_t* frame) {
    return Wire::hdrAt<Wire::EthHdr>(frame)->tagged() ? Wire::kDot1qTagLen : 0;
  }
  // The Ethernet type behind the tag, if any. Needs 14 + T bytes.
  static uint16_t ethType(const uint8_t* frame, uint32_t tag) {
    return Wire::hdrAt<Wire::NetU16>(frame + Wire::kEthMacBytes + tag)->value();
  }
  static const Wire::Ipv4Hdr* ip(const uint8_t* frame, uint32_t tag) {
    return Wire::hdrAt<Wire::Ipv4Hdr>(frame + Wire::kEthHdrLen + tag);
  }
  static const Wire::UdpHdr* udp(const uint8_t* frame, uint32_t tag, uint32_t ipLen) {
    return Wire::hdrAt<Wire::UdpHdr>(frame + Wire::kEthHdrLen + tag + ipLen);
  }
  // Where the VXLAN header starts: 22 + T + H.
  static uint32_t vxlanOffset(uint32_t tag, uint32_t ipLen) {
    return Wire::kEthHdrLen + tag + ipLen + sizeof(Wire::UdpHdr);
  }
};

}  // namespace Vxlan
