// The MLAG sync of virtual ARP: entries learnt here, told to the MLAG peer.
#include "varp/VirtualArpSm.h"

namespace Vxlan {

void VirtualArpSm::LumVtiStatusSm::syncArpEntryToPeer(Bridging::VlanIdOrNone,
                                                      const Wire::EthArpIpHdr&,
                                                      const Lum::Ptr<Wire::Pkt>&) {
  // The sync channel (a UDP PAM on port 51023) is not built yet: nothing is sent.
}

}  // namespace Vxlan
