// ARP on the local-to-remote frame path: whether an ARP request is to be flooded to the
// remote VTEPs, and the rewrite of a flooded request's source MAC.
//
// For now every request is flooded unchanged. The answers that depend on the switch's
// own addresses (SVI and virtual router addresses are not flooded; a request for a
// host behind the virtual VTEP carries the bridge MAC) take the place of these two
// bodies, and nothing else on the frame path changes with them.
#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"

namespace Vxlan {

bool Local2RemoteForwarderSm::LumVtiStatusSm::arpHERRequired(uint32_t vlan, uint32_t arpTargetIp) {
  L2R_TRACE(8, " vlan " << vlan << " Arp Target IP: " << Wire::IpAddr::fromHostOrder(arpTargetIp));
  return true;
}

void Local2RemoteForwarderSm::LumVtiStatusSm::checkAndRewriteNakedArpRequest(uint8_t* frame,
                                                                             uint32_t l2Offset,
                                                                             VniOrNone vni) {
  (void)frame;
  L2R_TRACE(8, " l2 offset " << l2Offset << " vni " << vni << " unmodified");
}

}  // namespace Vxlan
