// The ARP cache of virtual ARP: what of the ARP that arrives inside VXLAN goes into
// the kernel's neighbor tables, and what of it the MLAG peer is told.
#include <cstring>

#include "platform/trace/RingLog.h"
#include "platform/wire/ArpNeighbor.h"
#include "varp/VarpTrace.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {

namespace {

const Wire::EthAddr kBroadcast(0xffff, 0xffff, 0xffff);

}  // namespace

using Sm = VirtualArpSm::LumVtiStatusSm;

Sm::NeighborTarget Sm::neighborTarget(Bridging::VlanIdOrNone vlan, VarpCounterId failed) {
  const L3::VrfName vrf = owner_->getVrfNameFromVlanId(vlan);
  NeighborTarget t;
  t.info = owner_->vrfInfo(vrf);
  if (!t.info) {
    VTI_TRACE(1, " vrf info missing for " << vrf);
    varpCounterInc(failed);
    return t;
  }
  char name[16];
  std::snprintf(name, sizeof name, "vlan%u", static_cast<unsigned>(vlan.value()));
  t.intf = owner_->getKernelIntfInVrf(vrf, Lum::String8(name));
  if (!t.intf) {
    VTI_TRACE(1, " kernelIntf for " << name << " is missing in vrf " << vrf);
    varpCounterInc(failed);
  }
  return t;
}

bool Sm::handleVxlanArpReply(const Wire::EthArpIpHdr& arp, Wire::EthAddr dstMac,
                             Bridging::VlanIdOrNone vlan) {
  const VirtualArpSm::Inputs& in = owner_->inputs();
  const bool forUs = (in.mlagStatus && dstMac == in.mlagStatus->peerMacAddr()) ||
                     (in.bridgingConfig && dstMac == in.bridgingConfig->bridgeMacAddr()) ||
                     (in.fhrpVarpMacStatus && dstMac == in.fhrpVarpMacStatus->varpVirtualMac());
  if (!forUs) {
    VTI_TRACE(6, " dst mac " << dstMac << " is not for this switch ");
    return false;
  }
  updateArpCache(arp, dstMac, vlan);
  return true;
}

void Sm::handleVxlanGratArp(const Wire::EthArpIpHdr& arp, Wire::EthAddr dstMac,
                            Bridging::VlanIdOrNone vlan) {
  if (dstMac != kBroadcast || arp.senderIp() != arp.targetIp()) return;
  VTI_TRACE(6, " grat arp for " << arp.senderIp() << " " << arp.senderHw);
  updateArpCache(arp, dstMac, vlan);
}

void Sm::updateArpCache(const Wire::EthArpIpHdr& arp, Wire::EthAddr dstMac,
                        Bridging::VlanIdOrNone vlan) {
  const VirtualArpSm::Inputs& in = owner_->inputs();
  const NeighborTarget target = neighborTarget(vlan, VarpCounterId::arpCacheUpdateFailed);
  if (!target.intf) return;
  const Wire::EthAddr senderMac = arp.senderHw;
  const Wire::IpAddr senderIp = arp.senderIp();
  const Wire::EthAddr bridgeMac =
      in.bridgingConfig ? in.bridgingConfig->bridgeMacAddr() : Wire::EthAddr();
  const Wire::EthAddr varpMac =
      in.fhrpVarpMacStatus ? in.fhrpVarpMacStatus->varpVirtualMac() : Wire::EthAddr();
  if (senderMac == bridgeMac || senderMac == varpMac) {
    VTI_TRACE(6, " Discarding arp for local addr " << senderIp << "-" << senderMac);
    return;
  }
  if (senderMac.isZero() || senderMac.isMulticast() || senderIp.value() == 0 ||
      senderIp.isMulticast()) {
    VTI_TRACE(1, " Invalid source mac/ip addr" << senderIp << "-" << senderMac);
    return;
  }
  VTI_TRACE(6, " adding neighbor " << senderIp << " with " << senderMac << " for "
                                   << target.intf->ifindex().value());
  const int rc = Arp::ipNeighAdd(target.info->netlinkSocket(),
                                 static_cast<int>(target.intf->ifindex().value()), senderIp,
                                 senderMac, Arp::kNeighReachable);
  if (rc == 0) {
    varpCounterInc(VarpCounterId::arpCacheUpdated);
  } else {
    VTI_TRACE(1, " Neighbor add for " << senderMac << " failed with " << std::strerror(-rc));
    RINGLOG(1, " Neighbor add failed with %d", -rc);
    varpCounterInc(VarpCounterId::arpCacheUpdateFailed);
  }
  const Lum::Ptr<const VtiStatus> vti = notifier();
  const bool l3Mode = vti && vti->controllerClientL3Mode();
  const Wire::EthAddr peerMac = in.mlagStatus ? in.mlagStatus->peerMacAddr() : Wire::EthAddr();
  if (dstMac == varpMac || dstMac == kBroadcast ||
      (l3Mode && (dstMac == peerMac || dstMac == bridgeMac))) {
    syncArpEntryToPeer(vlan, arp, nullptr);
  }
}

}  // namespace Vxlan
