// The MLAG sync of virtual ARP: each entry learnt here is told to the MLAG peer in a
// small UDP message (Vxlan::ArpSyncMsg), which may carry a whole ARP reply frame that
// the peer then sends on as if it had received the reply itself.
#include <cstdio>
#include <cstring>

#include "platform/trace/RingLog.h"
#include "platform/wire/ArpNeighbor.h"
#include "varp/ArpSyncMsg.h"
#include "varp/VarpTrace.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {

using Sm = VirtualArpSm::LumVtiStatusSm;

void Sm::syncArpEntryToPeer(Bridging::VlanIdOrNone vlan, const Wire::EthArpIpHdr& arp,
                            const Lum::Ptr<Wire::Pkt>& pkt) {
  if (!arpSyncUdpPam_ || arpSyncUdpPam_->mode() != kSyncMode) return;
  VTI_TRACE(6, " syncing to mlag peer: " << arp.senderIp());
  ArpSyncMsg head{};
  head.type.valueIs(pkt ? ArpSyncMsg::arpReplyPktType : ArpSyncMsg::arpInfoType);
  const uint32_t len = kArpSyncMsgBytes + (pkt ? pkt->bytes() : 0);
  head.len.valueIs(static_cast<uint16_t>(len));
  head.vlanId.valueIs(vlan.value());
  head.macAddr = arp.senderHw;
  head.ipAddrIs(Wire::IpGenAddr(arp.senderIp()));
  VTI_TRACE(7, " arp sync msg: type:" << head.type.value() << " len: " << len
                                      << " vlan: " << vlan.value() << " ip: " << arp.senderIp()
                                      << " mac: " << arp.senderHw);
  Lum::Ptr<Wire::Pkt> msg = Wire::globalPktManager().newPkt();
  if (!msg) return;
  msg->newSharedHeadData(len);
  std::memcpy(msg->data(), &head, sizeof head);
  if (pkt) {
    // The frame's entries in order, behind the head.
    uint8_t* at = msg->data() + kArpSyncMsgBytes;
    for (int i = 0; i < pkt->iovCount(); ++i) {
      std::memcpy(at, pkt->iov()[i].iov_base, pkt->iov()[i].iov_len);
      at += pkt->iov()[i].iov_len;
    }
    varpCounterInc(VarpCounterId::arpSyncReplyCopied);
  }
  arpSyncUdpPam_->sendPkt(msg);
  varpCounterInc(VarpCounterId::arpSyncMsgSent);
}

void Sm::handleArpSyncUdpPamReadable() {
  if (!readsFrom(arpSyncUdpPam_.ptr(), " arpSyncUdpPam is NULL")) return;
  const Lum::Ptr<Wire::Pkt> pkt = arpSyncUdpPam_->rxPkt();
  if (!pkt) return;
  handleArpSyncMsg(pkt);
}

void Sm::handleArpSyncMsg(const Lum::Ptr<Wire::Pkt>& pkt) {
  const uint32_t got = pkt->bytes();
  if (checkArpSyncMsg(pkt->data(), got) != ArpSyncMsgCheck::ok) {
    VTI_TRACE(1, " arp sync msg of " << got << " bytes is too short");
    RINGLOG(1, " arp sync msg of %u bytes is too short", got);
    return varpCounterInc(VarpCounterId::arpSyncFailed);
  }
  const auto* msg = reinterpret_cast<const ArpSyncMsg*>(pkt->data());
  const Bridging::VlanIdOrNone vlan(msg->vlanId.value());  // above 4094: the range exception
  const uint16_t type = msg->type.value();
  if (type != ArpSyncMsg::arpInfoType && type != ArpSyncMsg::arpReplyPktType) {
    VTI_TRACE(1, " msgType " << type << " is not as expected");
    return;
  }
  const VirtualArpSm::Inputs& in = owner_->inputs();
  if (vlan.value() == 0 || !in.ipStatusDir ||
      !in.ipStatusDir->ipIntfStatus(Wire::VlanIntfId::intfId(Bridging::VlanId(vlan.value())))) {
    VTI_TRACE(1, " ipIntfStatus for vlan " << vlan.value() << " is missing");
    return varpCounterInc(VarpCounterId::arpSyncFailed);
  }
  const NeighborTarget target = neighborTarget(vlan, VarpCounterId::arpSyncFailed);
  if (!target.intf) return;
  const Wire::IpGenAddr ip = msg->ipAddr();
  const Wire::EthAddr mac = msg->macAddr;
  const int rc = ip.isV4() ? Arp::ipNeighAdd(target.info->netlinkSocket(),
                                             static_cast<int>(target.intf->ifindex().value()),
                                             ip.v4(), mac, Arp::kNeighReachable)
                           : -EAFNOSUPPORT;
  if (type == ArpSyncMsg::arpReplyPktType) {
    Lum::Ptr<Wire::Pkt> frame = Wire::globalPktManager().newPkt();
    if (frame) {
      VTI_TRACE(6, " Processed synced ARP reply pkt for " << ip << " with " << mac << " and vlanId "
                                                          << vlan.value());
      frame->newSharedHeadData(got - kArpSyncMsgBytes);
      std::memcpy(frame->data(), pkt->data() + kArpSyncMsgBytes, got - kArpSyncMsgBytes);
      rewriteAndSendArpReplyPkt(frame, vlan, kArpHdrOffset, false);
      varpCounterInc(VarpCounterId::arpSyncReplyProcessed);
    }
  }
  if (rc == 0) {
    VTI_TRACE(6, " Neighbor add for " << ip << " with " << mac);
    varpCounterInc(VarpCounterId::arpSyncNeighborAdded);
  } else {
    VTI_TRACE(1, " Neighbor add for " << ip << " failed with " << std::strerror(-rc));
    varpCounterInc(VarpCounterId::arpSyncFailed);
  }
}

}  // namespace Vxlan
