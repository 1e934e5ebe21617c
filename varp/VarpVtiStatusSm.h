// Vxlan::VirtualArpSm::LumVtiStatusSm: virtual ARP for one VXLAN tunnel interface.
//
// It answers and learns from ARP that arrives inside VXLAN for this VTEP, through
// four PAMs made when it is built: `vxlanArpRxPam` on "vxlan" (ARP from the overlay),
// `rawTxPam` (frames for the local switch), `udpPam` "vxlanArpTxPam" (replies into the
// overlay) and `arpSyncUdpPam` "vxlanArpSyncPam" (the MLAG peer, port 51023). By file:
// the lifecycle of the PAMs with the VTI's and the MLAG state (VarpVtiStatusSm.cpp),
// the receive path (VarpReceive.cpp), the ARP cache (VarpArpCache.cpp: which replies
// are for this switch, gratuitous ARP, the neighbor write into the VRF's kernel table
// of the VLAN interface), the replies (VarpReply.cpp) and the MLAG sync (VarpSync.cpp).
#pragma once

#include "frames/EthArpIpHdr.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"
#include "platform/types/VlanId.h"
#include "platform/wire/EthDevPam.h"
#include "platform/wire/RawTxPam.h"
#include "platform/wire/UdpPam.h"
#include "varp/VirtualArpSm.h"
#include "varp/VxlanArpFrame.h"

namespace Vxlan {

class VirtualArpSm::LumVtiStatusSm : public VtiStatus::NotifieeConst {
 public:
  // The MLAG state moves the sync channel.
  class LumMlagStatus : public Lum::NestedReactor<LumVtiStatusSm, Mlag::Status::NotifieeConst> {
   public:
    void onMlagState() override { s()->handleMlagStatus(); }
    void onPeerLinkIntf() override { s()->handleMlagStatus(); }
    void onNotifier() override { s()->handleMlagStatus(); }
  };
  // A packet waits on a PAM.
  class LumVxlanArpRxPam : public Lum::NestedReactor<LumVtiStatusSm, Wire::Pam::NotifieeConst> {
   public:
    void onReadableCount() override { s()->handleVxlanArpRxPamReadable(); }
  };
  class LumArpSyncUdpPam : public Lum::NestedReactor<LumVtiStatusSm, Wire::Pam::NotifieeConst> {
   public:
    void onReadableCount() override { s()->handleArpSyncUdpPamReadable(); }
  };

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
  // Tells the MLAG peer of an entry (and hands it `pkt`, a reply frame, when given),
  // while the sync channel is in its MLAG mode (3).
  void syncArpEntryToPeer(Bridging::VlanIdOrNone vlan, const Wire::EthArpIpHdr& arp,
                          const Lum::Ptr<Wire::Pkt>& pkt);
  // One message from the peer: its entry written here, its reply frame sent on.
  void handleArpSyncUdpPamReadable();
  void handleArpSyncMsg(const Lum::Ptr<Wire::Pkt>& pkt);

  // Replies. `reply` starts with its Ethernet header and has its ARP header at
  // `arpHdrOffset`: a reply to a rewritten request goes to each MAC that asked, any
  // other through sendArpReplyPkt.
  void rewriteAndSendArpReplyPkt(const Lum::Ptr<Wire::Pkt>& reply, Bridging::VlanIdOrNone vlanId,
                                 uint32_t arpHdrOffset, bool forceFlood);
  // Puts the VXLAN header of the VLAN's VNI in front of the frame and sends it to the
  // VTEP behind its destination MAC, or floods it to the VLAN's list less this switch's
  // addresses and `srcIpAddr`.
  // The packet is left as it came, for the next send of the same frame.
  void sendArpReplyPkt(const Lum::Ptr<Wire::Pkt>& pkt, Bridging::VlanIdOrNone vlanIdIn,
                       Wire::IpAddr srcIpAddr, bool flood);
  // The source address of a reply from `srcMac`, set on udpPam: the virtual VTEP's for
  // the virtual MAC, else the local VTEP's; 0 when the virtual MAC has no VTEP here.
  Wire::IpAddr udpPamTxSrcIpAddrIs(Wire::EthAddr srcMac);

  // The receive path: one packet of `vxlanArpRxPam` per readable notification.
  void handleVxlanArpRxPamReadable();
  void handleVxlanArpPkt(const Lum::Ptr<Wire::Pkt>& pkt);
  // Hands the packet (head at the outer Ethernet header) on to the local switch.
  void decapAndSendLocal(const Lum::Ptr<Wire::Pkt>& pkt, uint8_t* vxlanHdr,
                         Bridging::VlanIdOrNone vlan);

  Wire::RawTxPam* rawTxPam() const { return rawTxPam_.ptr(); }
  Wire::UdpPam* udpPam() const { return udpPam_.ptr(); }
  Wire::EthDevPam* vxlanArpRxPam() const { return vxlanArpRxPam_.ptr(); }
  Wire::UdpPam* arpSyncUdpPam() const { return arpSyncUdpPam_.ptr(); }

  // The lifecycle: the PAMs follow the VTI's operational state, the sync channel the
  // MLAG state.
  void onOperStatus() override { handleOperStatus(); }
  void onUdpPort() override { handleUdpPort(); }
  void handleOperStatus();
  void handleMlagStatus();
  // Opens or closes the receive PAM; a "vxlan" device that has gone is waited for.
  void vxlanArpRxPamEnabledIs(bool enable);
  bool operUp() const;
  void doPrepareToDie() override;
  // Adds 1 to a counter of the virtual ARP table.
  void varpCounterInc(VarpCounterId id) const {
    if (owner_) owner_->varpCounterInc(id);
  }

  // The PAMs' names and the sync port are the switch's vocabulary.
  static constexpr const char* kUdpPamName = "vxlanArpTxPam";
  static constexpr const char* kArpSyncPamName = "vxlanArpSyncPam";
  static constexpr const char* kRawTxPamName = "RawTxPam";
  static constexpr uint8_t kReplyMode = 1;
  static constexpr uint8_t kSyncMode = 3;
  static constexpr uint32_t kArpHdrOffset = 14;

 private:
  void handleInitialized();
  // Where a neighbor of `vlan` is written: its VRF's information and the VLAN's kernel
  // device there. Either missing is traced and counted as `failed` (intf empty then).
  struct NeighborTarget {
    Lum::Ptr<VrfInfo> info;
    Lum::Ptr<KernelNetworkInfo::Interface> intf;
  };
  NeighborTarget neighborTarget(Bridging::VlanIdOrNone vlan, VarpCounterId failed);
  // Whether a packet waiting on `pam` is to be read now: the PAM is there (else the
  // words `missing` are traced), the machine initialized and the VTI up.
  bool readsFrom(const Wire::Pam* pam, const char* missing) const;
  void handleVxlanArpRequestPkt(const Lum::Ptr<Wire::Pkt>& pkt, const VxlanArpFrame& f,
                                Bridging::VlanIdOrNone vlan);
  void handleVxlanArpReplyPkt(const Lum::Ptr<Wire::Pkt>& pkt, const VxlanArpFrame& f,
                              Bridging::VlanIdOrNone vlan);
  void dropVxlanArp(VarpCounterId id, const char* why);
  // The destination port of replies: the VTI's, 4789 when it has none.
  void handleUdpPort();
  VniOrNone vniOfVlan(Bridging::VlanId vlan) const;

  VirtualArpSm* owner_;
  Wire::IntfId intfId_;
  bool initialized_ = false;
  Lum::Ptr<Wire::RawTxPam> rawTxPam_;
  Lum::Ptr<Wire::UdpPam> udpPam_;
  Lum::Ptr<Wire::EthDevPam> vxlanArpRxPam_;
  Lum::Ptr<Wire::UdpPam> arpSyncUdpPam_;
  Lum::Nested<LumVxlanArpRxPam> vxlanArpRxPamReactor_{this};
  Lum::Nested<LumArpSyncUdpPam> arpSyncUdpPamReactor_{this};
  Lum::Nested<LumMlagStatus> mlagStatus_{this};
};

}  // namespace Vxlan
