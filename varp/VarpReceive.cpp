// The receive path of virtual ARP: ARP that came inside VXLAN for this VTEP, one packet
// per readable notification of `vxlanArpRxPam`. After the frame checks
// (checkVxlanArpFrame) the VNI settles the VLAN, and the packet is answered here,
// handed on to the local switch (decapAndSendLocal), learnt, replicated to the other
// VTEPs when it is a reply for the virtual VTEP, or dropped; every drop is traced and,
// for most, counted.
#include <cstdio>

#include "frames/ArpPkt.h"
#include "frames/EthArpIpHdr.h"
#include "frames/EthHdr.h"
#include "frames/VxlanHdr.h"
#include "platform/trace/RingLog.h"
#include "varp/LocalSend.h"
#include "varp/VarpTrace.h"
#include "varp/VirtualArpSm.h"
#include "varp/VxlanArpFrame.h"

namespace Vxlan {

using Sm = VirtualArpSm::LumVtiStatusSm;

namespace {

constexpr uint32_t kInnerEthOffset = Wire::kVxlanHdrLen;
constexpr uint32_t kArpOffset = kInnerEthOffset + Wire::kEthHdrLen;
const Wire::EthAddr kZeroMac;

}  // namespace

void Sm::handleVxlanArpRxPamReadable() {
  if (!readsFrom(vxlanArpRxPam_.ptr(), " vxlanArpRxPam is NULL")) return;
  if (const Lum::Ptr<Wire::Pkt> pkt = vxlanArpRxPam_->rxPkt()) handleVxlanArpPkt(pkt);
}

void Sm::dropVxlanArp(VarpCounterId id, const char* why) {
  VTI_TRACE(2, why);
  RINGLOG(2, "VarpSm::handleVxlanArpPkt%s", why);
  varpCounterInc(id);
}

void Sm::handleVxlanArpPkt(const Lum::Ptr<Wire::Pkt>& pkt) {
  const uint32_t pktLen = pkt->bytes();
  VTI_TRACE(7, " len " << pktLen);
  const Lum::Ptr<const VtiStatus> vti = notifier();
  const VxlanArpFrame f = checkVxlanArpFrame(pkt->data(), pktLen, vti ? vti->udpPort() : 0);
  if (!f.ok) return dropVxlanArp(f.drop, f.why);
  uint8_t* vxlanHdr = pkt->data() + f.vxlanOffset;
  Bridging::VlanIdOrNone pktVlan(f.pktVlan);
  if (pktVlan.value() == 0) VTI_TRACE(7, " pkt vlan is 0");
  const VirtualArpSm::Inputs& in = owner_->inputs();
  const Lum::Ptr<const VniToVlanMap> map =
      in.vniToVlanMaps ? in.vniToVlanMaps->vtiVniToVlanMap(intfId_) : nullptr;
  if (!map) {
    VTI_TRACE(2, " No vni to vlan map for " << intfId_);
    return varpCounterInc(VarpCounterId::rxNoVlanForVni);
  }
  const Vni vni = Wire::hdrAt<Wire::VxlanHdr>(vxlanHdr)->vni();
  const Bridging::VlanIdOrNone vlanFromVni = map->vniToVlanMap(vni);
  if (pktVlan != vlanFromVni) {
    VTI_TRACE(7, " pktVlan " << pktVlan.value() << " is different from vlan mapped from vni "
                             << vni.value());
    pktVlan = vlanFromVni;
  }
  if (vlanFromVni.value() == 0) {
    VTI_TRACE(2, " vlan mapped from vni: " << vni.value() << " is 0, pktVlanId " << f.pktVlan);
    return varpCounterInc(VarpCounterId::rxNoVlanForVni);
  }
  const auto* inner = Wire::hdrAt<Wire::EthHdr>(vxlanHdr + kInnerEthOffset);
  const uint16_t innerType = inner->typeOrLen.value();
  if (innerType == Wire::kEthTypeDot1q) return decapAndSendLocal(pkt, vxlanHdr, pktVlan);
  if (innerType != Wire::kEthTypeArp) {
    return dropVxlanArp(VarpCounterId::rxInnerNotArp, " inner ethType is not an arp pkt");
  }
  const auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(vxlanHdr + kArpOffset);
  if (!arp->isEthernetIpv4())
    return dropVxlanArp(VarpCounterId::rxBadArpHeader, " invalid arp hdr");
  varpCounterInc(VarpCounterId::vxlanArpRx);
  handleVxlanGratArp(*arp, inner->dst, pktVlan);
  if (arp->op.value() == Wire::EthArpIpHdr::kOpReply) {
    return handleVxlanArpReplyPkt(pkt, f, pktVlan);
  }
  handleVxlanArpRequestPkt(pkt, f, pktVlan);
}

void Sm::decapAndSendLocal(const Lum::Ptr<Wire::Pkt>& pkt, uint8_t* vxlanHdr,
                           Bridging::VlanIdOrNone vlan) {
  const VirtualArpSm::Inputs& in = owner_->inputs();
  Vxlan::decapAndSendLocal({intfId_, in.vxHwStatusDir.ptr(), in.bridgingHwCapabilities.ptr(),
                            rawTxPam_.ptr(), in.vxAgentCounter.ptr()},
                           pkt, vxlanHdr, vlan);
}

namespace {

// The target is the VLAN interface's virtual router address: its own virtual address,
// or one of the shared router's (VrId 256) addresses on it.
bool isVirtualRouterAddr(const VirtualArpSm::Inputs& in, const Ip::IpIntfStatus& intf,
                         Wire::IpAddr target) {
  if (intf.activeVirtualAddrWithMask().address() == target) return true;
  return in.fhrpStatus && in.fhrpStatus->isSharedVirtualAddr(intf.intfId(), target);
}

}  // namespace

void Sm::handleVxlanArpRequestPkt(const Lum::Ptr<Wire::Pkt>& pkt, const VxlanArpFrame& f,
                                  Bridging::VlanIdOrNone vlan) {
  uint8_t* vxlanHdr = pkt->data() + f.vxlanOffset;
  auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(vxlanHdr + kArpOffset);
  const VirtualArpSm::Inputs& in = owner_->inputs();
  const Lum::Ptr<const VtiStatus> vti = notifier();
  const Wire::IpAddr outerDst = f.outerDst(pkt->data());
  const Vni vni = Wire::hdrAt<Wire::VxlanHdr>(vxlanHdr)->vni();
  VTI_TRACE(7, " vni: " << vni.value() << " vlan: " << vlan.value() << " dest IP: " << outerDst
                        << " target IP: " << arp->targetIp());
  if (arp->op.value() != Wire::EthArpIpHdr::kOpRequest) {
    return dropVxlanArp(VarpCounterId::rxBadArpHeader, " unexpected arp opcode");
  }
  const Lum::Ptr<const Ip::IpIntfStatus> intf =
      in.ipStatusDir
          ? in.ipStatusDir->ipIntfStatus(Wire::VlanIntfId::intfId(Bridging::VlanId(vlan.value())))
          : nullptr;
  if (!intf) return decapAndSendLocal(pkt, vxlanHdr, vlan);
  varpCounterInc(VarpCounterId::arpRequestOnSvi);
  const Wire::IpAddr target = arp->targetIp();
  const Wire::EthAddr bridgeMac =
      in.bridgingConfig ? in.bridgingConfig->bridgeMacAddr() : Wire::EthAddr();
  Wire::EthAddr targetMac;
  if (isVirtualRouterAddr(in, *intf, target)) {
    VTI_TRACE(6, " target ip matches varpIP");
    const Lum::Ptr<const VxlanStatus> vx =
        in.vxStatusDir ? in.vxStatusDir->vxlanStatus(intfId_) : nullptr;
    const bool vccTable = vx && vx->vccIpPortTableSize() > 0;
    const Wire::IpAddr varpVtep = vti ? vti->vArpVtepAddr() : Wire::IpAddr();
    if (varpVtep.value() == 0 && !vccTable) {
      targetMac = bridgeMac;
      VTI_TRACE(6, " varpVtep is not configured. target mac is set to router mac: " << targetMac);
    } else if (outerDst == varpVtep || vccTable) {
      targetMac = in.fhrpVarpMacStatus ? in.fhrpVarpMacStatus->varpVirtualMac() : Wire::EthAddr();
      VTI_TRACE(6, " dIP matches varpVtep address: "
                       << outerDst << " target mac is set to varp mac " << targetMac);
    } else {
      VTI_TRACE(6, " dIP: " << outerDst << " does not match varpVtep addr: " << varpVtep);
      return;
    }
  } else {
    VTI_TRACE(7, " svi addr: " << intf->activeAddrWithMask() << " target addr: " << target);
    if (intf->activeAddrWithMask().address() == target) {
      VTI_TRACE(6, " target ip matches primary ip " << intf->intfId());
      targetMac = bridgeMac;
    } else {
      // Named rather than bound: clang before 16 cannot capture a structured binding
      // in the lambda that builds the trace's text.
      for (const auto& entry : intf->activeSecondaryWithMask()) {
        const auto& secondary = entry.first;
        if (secondary.address() != target) continue;
        VTI_TRACE(6, " target ip matches secondary ip " << secondary);
        targetMac = bridgeMac;
        break;
      }
    }
  }
  owner_->checkAndRewriteVxlanArpRequest(pkt, vxlanHdr);
  const auto* inner = Wire::hdrAt<Wire::EthHdr>(vxlanHdr + kInnerEthOffset);
  if (targetMac == kZeroMac) {
    VTI_TRACE(7, " target ip address is not for this vtep ");
    return decapAndSendLocal(pkt, vxlanHdr, vlan);
  }
  updateArpCache(*arp, inner->dst, vlan);
  Lum::Ptr<Wire::Pkt> reply =
      Arp::makeArpPkt(inner->src, targetMac, Wire::EthArpIpHdr::kOpReply, targetMac,
                      arp->targetIp(), arp->senderHw, arp->senderIp());
  if (!reply) {
    VTI_TRACE(1, "Failed to make an ARP reply packet");
    return;
  }
  rewriteAndSendArpReplyPkt(reply, vlan, kArpHdrOffset, false);
}

void Sm::handleVxlanArpReplyPkt(const Lum::Ptr<Wire::Pkt>& pkt, const VxlanArpFrame& f,
                                Bridging::VlanIdOrNone vlan) {
  uint8_t* vxlanHdr = pkt->data() + f.vxlanOffset;
  varpCounterInc(VarpCounterId::arpReplyRx);
  const auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(vxlanHdr + kArpOffset);
  auto* inner = Wire::hdrAt<Wire::EthHdr>(vxlanHdr + kInnerEthOffset);
  const bool forUs = handleVxlanArpReply(*arp, inner->dst, vlan);
  VTI_TRACE(7, " arp reply for this switch? " << forUs);
  if (!forUs) return decapAndSendLocal(pkt, vxlanHdr, vlan);
  const VirtualArpSm::Inputs& in = owner_->inputs();
  const Lum::Ptr<const VtiStatus> vti = notifier();
  const Wire::IpAddr varpVtep = vti ? vti->vArpVtepAddr() : Wire::IpAddr();
  if (varpVtep.value() == 0 || f.outerDst(pkt->data()) != varpVtep) return;
  const Wire::EthAddr varpMac =
      in.fhrpVarpMacStatus ? in.fhrpVarpMacStatus->varpVirtualMac() : Wire::EthAddr();
  if (inner->dst != varpMac) return;
  VTI_TRACE(6, " arp reply destined to varp vtep");
  varpCounterInc(VarpCounterId::varpVtepReplyRx);
  inner->src = in.bridgingConfig ? in.bridgingConfig->bridgeMacAddr() : Wire::EthAddr();
  const Wire::IpAddr outerSrc = f.outerSrc(pkt->data());
  // The packet now begins at the inner frame.
  pkt->delSharedHeadData(f.vxlanOffset + kInnerEthOffset);
  sendArpReplyPkt(pkt, vlan, outerSrc, true);
}

}  // namespace Vxlan
