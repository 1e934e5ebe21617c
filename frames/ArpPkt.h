// Arp::makeArpPkt: a whole Ethernet frame carrying ARP for IPv4, in a new packet.
//
//   0      6      12     14                                          42
//   | dst  | src  | 0806 | ARP: 1, 0800, 6, 4, op, sha, spa, tha, tpa |
//
// The frame is 42 bytes, with no tag and no padding: it travels inside VXLAN or to a
// device that pads it. It sits at the end of the packet's storage, so the packet keeps
// all of its head room for the headers that go in front. None when the packet manager
// is at its limit.
#pragma once

#include <cstdint>

#include "platform/core/Ptr.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IpAddr.h"
#include "platform/wire/Pkt.h"

namespace Arp {

inline constexpr uint32_t kArpFrameBytes = 42;

Lum::Ptr<Wire::Pkt> makeArpPkt(Wire::EthAddr ethDst, Wire::EthAddr ethSrc, uint16_t op,
                               Wire::EthAddr senderMac, Wire::IpAddr senderIp,
                               Wire::EthAddr targetMac, Wire::IpAddr targetIp);

}  // namespace Arp
