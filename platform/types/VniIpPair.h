// Vxlan::VniIpPairV2: a VNI and an address, the key of virtual ARP's pending lists
// (the VNI a request came in on and the address it asked for). Ordered by VNI, then
// address; the text form is "<vni>/<address>".
#pragma once

#include <compare>
#include <ostream>

#include "platform/types/IpAddr.h"
#include "platform/types/Vni.h"

namespace Vxlan {

struct VniIpPairV2 {
  Vni vni;
  Wire::IpGenAddr ip;

  friend bool operator==(const VniIpPairV2&, const VniIpPairV2&) = default;
  friend std::strong_ordering operator<=>(const VniIpPairV2& a, const VniIpPairV2& b) {
    if (auto c = a.vni.value() <=> b.vni.value(); c != 0) return c;
    return a.ip <=> b.ip;
  }
  friend std::ostream& operator<<(std::ostream& os, const VniIpPairV2& k) {
    return os << k.vni.value() << '/' << k.ip;
  }
};

}  // namespace Vxlan
