// ARP on the local-to-remote frame path: whether an ARP request is to be flooded to the
// remote VTEPs at all, and the rewrite of a flooded request's source MAC.
//
// A request for an address that this switch owns (a virtual router address of the
// VLAN's interface, or a primary or secondary address of any routed interface) is
// answered here and not flooded. A flooded request whose sender is a host behind the
// virtual VTEP carries the bridge MAC (the MLAG primary's when the peer is primary),
// so that remote peers learn a MAC of a switch and not the shared virtual one.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"
#include "forwarding/L2RVxStatusSm.h"
#include "frames/EthArpIpHdr.h"
#include "frames/EthHdr.h"
#include "platform/status/bridging/BridgingConfig.h"
#include "platform/status/ip/IpStatus.h"
#include "platform/status/mlag/MlagStatus.h"
#include "platform/status/routing/FhrpStatusV4.h"
#include "platform/status/routing/VirtualRouterMacStatus.h"

namespace Vxlan {

using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;

bool Sm::arpHERRequired(uint32_t vlan, uint32_t arpTargetIp) {
  // The frame path has checked the VLAN (1 to 4094) before it asks.
  const Wire::IntfId intf = Wire::VlanIntfId::intfId(Bridging::VlanId(static_cast<uint16_t>(vlan)));
  const Wire::IpAddr target = Wire::IpAddr::fromHostOrder(arpTargetIp);
  L2R_TRACE(8, "L2RSm::"
                   << "arpHERRequired"
                   << " Arp Target IP: " << target);
  if (!owner_) return true;
  const Local2RemoteForwarderSm::Inputs& in = owner_->inputs();
  if (in.fhrpStatus && in.fhrpStatus->isSharedVirtualAddr(intf, target)) return false;
  if (!in.ipStatusDir) return true;
  // Every routed interface, not only the VLAN's: an address of this switch is
  // answered by it whichever interface carries it.
  for (auto it = in.ipStatusDir->ipIntfStatusIterator(); it; ++it) {
    const Ip::IpIntfStatus& st = *it;
    if (st.activeAddrWithMask().address() == target) {
      L2R_TRACE(8, " SVI: " << it.key() << " matches the ARP request IP: " << target);
      return false;
    }
    // Named rather than bound: the trace's text is built in a lambda, and clang before
    // 16 cannot capture a structured binding.
    for (const auto& entry : st.activeSecondaryWithMask()) {
      const auto& addr = entry.first;
      if (entry.second && addr.address() == target) {
        L2R_TRACE(8, " SVI Ip: " << addr << " matches the ARP request IP: " << target);
        return false;
      }
    }
  }
  return true;
}

Wire::EthAddr Sm::workingBridgeMac() const {
  const Local2RemoteForwarderSm::Inputs& in = owner_->inputs();
  Wire::EthAddr bridgeMac =
      in.bridgingConfig ? in.bridgingConfig->bridgeMacAddr() : Wire::EthAddr();
  if (!in.mlagStatus || in.mlagStatus->mlagState() != Mlag::MlagState::mlagStateSecondary) {
    return bridgeMac;
  }
  // The peer is the primary: its bridge MAC answers for both switches.
  const Wire::EthAddr peerMac = in.mlagStatus->peerMacAddr();
  if (!peerMac.isZero()) {
    L2R_TRACE(0, "L2RSm( using primary's bridgeMac: " << peerMac << ")");
    return peerMac;
  }
  L2R_TRACE(0, "L2RSm( using local bridgeMac as there's no Primary's Mac"
                   << " address available: " << bridgeMac << ")");
  return bridgeMac;
}

bool Sm::checkAndRewriteNakedArpRequest(uint8_t* frame, uint32_t l2Offset, VniOrNone vni,
                                        bool count) {
  if (!owner_) return false;
  const Local2RemoteForwarderSm::Inputs& in = owner_->inputs();
  const Wire::EthAddr varpMac =
      in.fhrpVarpMacStatus ? in.fhrpVarpMacStatus->varpVirtualMac() : Wire::EthAddr();
  const Wire::EthAddr bridgeMac = workingBridgeMac();
  Wire::EthArpIpHdr* arp = Wire::hdrAt<Wire::EthArpIpHdr>(frame + l2Offset);
  const Wire::EthAddr senderMac = arp->senderHw;
  const Wire::IpAddr senderIp = arp->senderIp();
  L2R_TRACE(0, "L2RSm("
                   << " varpMac " << varpMac << " bridgeMac " << bridgeMac << " vni " << vni
                   << " sender ip " << senderIp << " l2 offset " << l2Offset << ")");
  const int found =
      ipPortTableVarpMacLookup(in.l2rVarpIpMacTableCol, vni, Wire::IpGenAddr(senderIp), senderMac);
  if (found == 0) {
    L2R_TRACE(0, "L2RSm("
                     << " unmodifed naked arp request "
                     << ")");
    if (count) vxlanCounterInc(VxlanCounterId::l2rNakedArpUnmodified, 1);
    return false;
  }
  L2R_TRACE(0, "L2RSm("
                   << " rewrite source mac in naked arp request " << varpMac << " to bridge mac "
                   << bridgeMac << ")");
  Wire::hdrAt<Wire::EthHdr>(frame)->src = bridgeMac;
  arp->senderHw = bridgeMac;
  if (count) vxlanCounterInc(VxlanCounterId::l2rNakedArpRewritten, 1);
  return true;
}

bool Sm::inspectedSenderAllowed(const msghdr& m) {
  static const uid_t self = ::geteuid();
  auto* msg = const_cast<msghdr*>(&m);  // CMSG_NXTHDR takes them writable; nothing is written
  for (cmsghdr* c = CMSG_FIRSTHDR(msg); c; c = CMSG_NXTHDR(msg, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_CREDENTIALS) continue;
    ucred cred;
    std::memcpy(&cred, CMSG_DATA(c), sizeof cred);
    if (cred.uid == 0 || cred.uid == self) return true;
    L2R_TRACE(0, "() refused a frame on the arp inspect socket from uid " << cred.uid);
    vxlanCounterInc(VxlanCounterId::l2rReadErrors, 1);
    return false;
  }
  // No credentials: the socket lacks SO_PASSCRED, and nothing can be told.
  L2R_TRACE(0, "() refused a frame on the arp inspect socket without credentials");
  vxlanCounterInc(VxlanCounterId::l2rReadErrors, 1);
  return false;
}

Lum::SysResult Sm::readInspected(int32_t sock, uint8_t* buf, size_t len) {
  for (;;) {
    iovec iov{buf, len};
    alignas(cmsghdr) uint8_t creds[CMSG_SPACE(sizeof(ucred))];
    msghdr m{};
    m.msg_iov = &iov;
    m.msg_iovlen = 1;
    m.msg_control = creds;
    m.msg_controllen = sizeof creds;
    const ssize_t n = Lum::sysCalls().recvmsg(sock, &m, MSG_DONTWAIT);
    if (n < 0) return {-1, errno};
    if (inspectedSenderAllowed(m)) return {n, 0};
  }
}

}  // namespace Vxlan
