// Vxlan::VirtualArpSm::LumVtiStatusSm: virtual ARP for one VXLAN tunnel interface.
//
// It answers and learns from ARP that arrives inside VXLAN for this VTEP. What exists
// so far: the ARP cache (VarpArpCache.cpp): which replies are for this switch,
// gratuitous ARP, and the neighbor write into the VRF's kernel table of the VLAN
// interface. The receive path, the replies and the MLAG sync are still to come.
#pragma once

#include "frames/EthArpIpHdr.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"
#include "platform/types/VlanId.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {

class VirtualArpSm::LumVtiStatusSm : public VtiStatus::NotifieeConst {
 public:
  LumVtiStatusSm(const Lum::Ptr<const VtiStatus>& status, VirtualArpSm* owner);
  static Wire::IntfId lumKeyOf(const Lum::Ptr<const VtiStatus>& s) { return s->intfId(); }

  const Wire::IntfId& intfId() const { return intfId_; }
  VirtualArpSm* virtualArpSm() const { return owner_; }
  void parentIs(VirtualArpSm* owner) { owner_ = owner; }
  bool initialized() const { return initialized_; }

  // The ARP cache. `arp` is the ARP header inside a received frame, `dstMac` that
  // frame's inner destination, `vlan` its VLAN (not 0).
  // True when the reply is addressed to this switch (then it is learnt).
  bool handleVxlanArpReply(const Wire::EthArpIpHdr& arp, Wire::EthAddr dstMac,
                           Bridging::VlanIdOrNone vlan);
  // A broadcast whose sender asks for its own address is learnt.
  void handleVxlanGratArp(const Wire::EthArpIpHdr& arp, Wire::EthAddr dstMac,
                          Bridging::VlanIdOrNone vlan);
  // Writes the sender into the neighbor table of the VLAN's interface in its VRF, and
  // tells the MLAG peer of what it learnt where the peer needs it.
  void updateArpCache(const Wire::EthArpIpHdr& arp, Wire::EthAddr dstMac,
                      Bridging::VlanIdOrNone vlan);
  // Tells the MLAG peer of an entry (and hands it `pkt`, a reply frame, when given).
  // Only while the sync channel is up; until then it sends nothing.
  void syncArpEntryToPeer(Bridging::VlanIdOrNone vlan, const Wire::EthArpIpHdr& arp,
                          const Lum::Ptr<Wire::Pkt>& pkt);

  void doPrepareToDie() override { initialized_ = false; }

 private:
  void count(VarpCounterId id) const {
    if (owner_) owner_->count(id);
  }

  VirtualArpSm* owner_;
  Wire::IntfId intfId_;
  bool initialized_ = false;
};

}  // namespace Vxlan
