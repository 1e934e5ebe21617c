// The 36 bytes that the local-to-remote direction writes in front of an inner frame;
// the raw socket adds the Ethernet header.
//
//   0        20    28      36
//   | IPv4   | UDP | VXLAN | inner frame
#pragma once

#include "frames/Ipv4Hdr.h"
#include "frames/VxlanHdr.h"

namespace Vxlan {

struct VxlanOuterHdr {
  Wire::Ipv4Hdr ip;
  Wire::UdpHdr udp;
  Wire::VxlanHdr vxlan;
};
static_assert(sizeof(VxlanOuterHdr) == 36 && alignof(VxlanOuterHdr) == 1);
static_assert(offsetof(VxlanOuterHdr, udp) == 20 && offsetof(VxlanOuterHdr, vxlan) == 28);

}  // namespace Vxlan
