// ARP replies of virtual ARP, sent back through the overlay: behind a VXLAN header
// through the UDP PAM `udpPam`, to the VTEP that learnt the destination MAC or, one
// copy each, to the VLAN's flood list; replies to rewritten requests fanned out to
// every MAC on their pending list.
#include "forwarding/L2RVxStatusSm.h"
#include "frames/EthArpIpHdr.h"
#include "frames/EthHdr.h"
#include "frames/VxlanHdr.h"
#include "platform/trace/RingLog.h"
#include "varp/VarpTrace.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {

using Sm = VirtualArpSm::LumVtiStatusSm;

namespace {

// The answers of ipPortTableVarpMacLookup.
enum : int { kNoEntry = 0, kOtherMac = 1 };

}  // namespace

VniOrNone Sm::vniOfVlan(Bridging::VlanId vlan) const {
  const Lum::Ptr<const VtiStatus> vti = notifier();
  return vti ? vti->vlanToVniMap(vlan) : VniOrNone(kVniNone);
}

void Sm::rewriteAndSendArpReplyPkt(const Lum::Ptr<Wire::Pkt>& reply, Bridging::VlanIdOrNone vlanId,
                                   uint32_t arpHdrOffset, bool forceFlood) {
  const Bridging::VlanId vlan(vlanId.value());  // 1 to 4094, else the range exception
  const VniOrNone vni = vniOfVlan(vlan);
  auto* eth = Wire::hdrAt<Wire::EthHdr>(reply->data());
  auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(reply->data() + arpHdrOffset);
  VTI_TRACE(7, " target ip " << arp->targetIp() << " target mac " << arp->targetHw);
  const int found = ipPortTableVarpMacLookup(owner_->inputs().l2rVarpIpMacTableCol, vni,
                                             Wire::IpGenAddr(arp->targetIp()), arp->targetHw);
  if (found == kNoEntry) {
    VTI_TRACE(7, " HER arp reply");
    varpCounterInc(VarpCounterId::replyPlainPath);
    return sendArpReplyPkt(reply, vlanId, Wire::IpAddr(), forceFlood);
  }
  if (found == kOtherMac) {
    VTI_TRACE(5, " target Mac in arp reply not matching varpMac in LRStatus, discard arp reply");
    return varpCounterInc(VarpCounterId::arpDiscarded);
  }
  VTI_TRACE(7, " arp sender ip " << arp->senderIp());
  const VniIpPairV2 key{Vni(vni.value()), Wire::IpGenAddr(arp->senderIp())};
  const Lum::Ptr<ArpRewritePendingList> list = owner_->arpRewritePendingList(key);
  if (!list) {
    VTI_TRACE(5, " rewrite pending not found, discard arp reply");
    return varpCounterInc(VarpCounterId::arpDiscarded);
  }
  // Each copy leaves with its requester's MAC; the VXLAN header of a send is taken
  // back before the next one is written.
  // Named rather than bound (here and below): clang before 16 cannot capture a
  // structured binding in the lambda that builds a trace's text.
  for (const auto& entry : list->reqMacAddr()) {
    const Wire::EthAddr& mac = entry.first;
    VTI_TRACE(6, " rewrite target mac for arp reply " << mac << " " << vni.value());
    eth->dst = mac;
    arp->targetHw = mac;
    varpCounterInc(VarpCounterId::replyRewritten);
    sendArpReplyPkt(reply, vlanId, Wire::IpAddr(), false);
  }
  owner_->arpRewritePendingListDel(key);
}

void Sm::sendArpReplyPkt(const Lum::Ptr<Wire::Pkt>& pkt, Bridging::VlanIdOrNone vlanIdIn,
                         Wire::IpAddr srcIpAddr, bool flood) {
  VTI_TRACE(7, " vlanIdIn " << vlanIdIn.value() << " flood " << flood);
  if (vlanIdIn.value() == 0) Lum::throwRangeException("vlanIdIn != 0");
  const Bridging::VlanId vlan(vlanIdIn.value());
  const VirtualArpSm::Inputs& in = owner_->inputs();
  const Lum::Ptr<const VtiStatus> vti = notifier();
  const Wire::IpAddr localVtep = vti ? vti->localVtepAddr() : Wire::IpAddr();
  const Wire::IpAddr varpVtep = vti ? vti->vArpVtepAddr() : Wire::IpAddr();
  const Wire::EthAddr dstMac = Wire::hdrAt<Wire::EthHdr>(pkt->data())->dst;
  Wire::IpAddr remoteVtep;
  if (!flood && in.vxHwStatusDir && in.vxHwStatusDir->fdbStatus()) {
    const Lum::Ptr<LearnedHost> host =
        in.vxHwStatusDir->fdbStatus()->learnedHost(MacVlanPair(dstMac, vlan));
    const Wire::IpAddr learnt = host ? host->remoteVtepAddr() : Wire::IpAddr();
    VTI_TRACE(7, " mac lookup " << dstMac << " => " << learnt);
    if (learnt.value() != 0 && learnt != varpVtep && learnt != localVtep) {
      VTI_TRACE(7, " FDB lookup for mac " << dstMac << ", remoteVtep: " << learnt);
      remoteVtep = learnt;
    }
  }
  const Wire::EthAddr srcMac = Wire::hdrAt<Wire::EthHdr>(pkt->data())->src;
  // The VXLAN header goes in front for the sends and comes off again on every way
  // out: callers send the same frame again (per requester, per VTI).
  pkt->newSharedHeadData(Wire::kVxlanHdrLen);
  struct TakeBack {
    Wire::Pkt& pkt;
    ~TakeBack() { pkt.delSharedHeadData(Wire::kVxlanHdrLen); }
  } takeBack{*pkt};
  auto* vxlan = Wire::hdrAt<Wire::VxlanHdr>(pkt->data());
  *vxlan = Wire::VxlanHdr{};
  vxlan->flagsVniValidIs(true);
  const VniOrNone vni = vniOfVlan(vlan);
  if (vni.value() == kVniNone) {
    VTI_TRACE(5, " vni for vlan " << vlan.value() << " does not exist");
    return;
  }
  vxlan->vniIs(Vni(vni.value()));
  const Wire::IpAddr srcIp = udpPamTxSrcIpAddrIs(srcMac);
  if (srcIp.value() == 0) return varpCounterInc(VarpCounterId::txNoSourceAddr);
  if (remoteVtep.value() != 0) {
    udpPam_->txDstIpAddrIs(remoteVtep);
    VTI_TRACE(6, " send reply to " << remoteVtep);
    udpPam_->sendPkt(pkt);
    return varpCounterInc(VarpCounterId::arpReplyUnicastTx);
  }
  const Lum::Ptr<const BumVtepList> list =
      in.vxBumStatus ? in.vxBumStatus->bumVtepList(MacVlanPair(Wire::EthAddr(), vlan)) : nullptr;
  if (!list) {
    VTI_TRACE(5, " vtep list for bumMacDefault is NULL");
    return varpCounterInc(VarpCounterId::txNoFloodList);
  }
  for (const auto& entry : list->remoteVtepAddr()) {
    const auto& vtep = entry.first;
    if (vtep == localVtep || vtep == varpVtep || vtep == srcIpAddr) continue;
    udpPam_->txSrcIpAddrIs(srcIp);
    udpPam_->txDstIpAddrIs(vtep);
    udpPam_->sendPkt(pkt);
    varpCounterInc(VarpCounterId::arpReplyFloodTx);
    VTI_TRACE(6, " HER to " << vtep);
  }
}

Wire::IpAddr Sm::udpPamTxSrcIpAddrIs(Wire::EthAddr srcMac) {
  const VirtualArpSm::Inputs& in = owner_->inputs();
  const Lum::Ptr<const VtiStatus> vti = notifier();
  const Wire::IpAddr localVtep = vti ? vti->localVtepAddr() : Wire::IpAddr();
  const Wire::IpAddr varpVtep = vti ? vti->vArpVtepAddr() : Wire::IpAddr();
  const Lum::Ptr<const VxlanStatus> vx =
      in.vxStatusDir ? in.vxStatusDir->vxlanStatus(intfId_) : nullptr;
  const bool vccTable = vx && vx->vccIpPortTableSize() > 0;
  const Wire::EthAddr varpMac =
      in.fhrpVarpMacStatus ? in.fhrpVarpMacStatus->varpVirtualMac() : Wire::EthAddr();
  Wire::IpAddr src = localVtep;
  if (srcMac == varpMac) {
    if (varpVtep.value() != 0) {
      src = varpVtep;
    } else if (!vccTable) {
      VTI_TRACE(5, " src mac of arpReply is varpMac, but varpVtep is not configured");
      return Wire::IpAddr();
    }
  }
  if (udpPam_) udpPam_->txSrcIpAddrIs(src);
  return src;
}

}  // namespace Vxlan
