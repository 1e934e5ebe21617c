#include "varp/ArpReplyReplicationVrfSm.h"

#include "platform/core/Reconcile.h"
#include "varp/VarpTrace.h"

namespace Vxlan {

#define VRFSM_TRACE(level, message) \
  LUM_TRACE(                        \
      ::Vxlan::varpTrace, level,    \
      "ArpReplyReplicationVrfSm::" << LUM_TRACE_FUNCTION << " vrfName " << vrfName_ << message)

ArpReplyReplicationVrfSm::ArpReplyReplicationVrfSm(
    const L3::VrfName& vrfName, const Wire::NamespaceName& netNs,
    const Lum::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus,
    const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMac,
    VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
    const Lum::Ptr<const Mlag::Status>& mlagStatus, const Lum::Ptr<const Lum::Clock>& clock)
    : vrfName_(vrfName),
      netNs_(netNs),
      vrfIpIntfStatus_(vrfIpIntfStatus),
      varpMacStatus_(varpMac),
      virtualArpSm_(virtualArpSm),
      counter_(counter),
      mlagStatus_(mlagStatus) {
  vrfIpIntfStatusReactor_.is(vrfIpIntfStatus_);
  varpMacReactor_.is(varpMacStatus_);
  clock_.is(clock);
  if (vrfIpIntfStatus_) {
    for (auto it = vrfIpIntfStatus_->ipIntfStatusIterator(); it; ++it) ipIntfStatusIs(it.ptr());
  }
  handleInitialized();
}

void ArpReplyReplicationVrfSm::handleInitialized() {
  VRFSM_TRACE(8, "");
  if (initialized_) return;
  initialized_ = true;
  // The machines built before this moment waited for it.
  for (auto it = ipIntfStatus_.iterator(); it; ++it) it->handleInitialized();
}

Wire::EthAddr ArpReplyReplicationVrfSm::varpVirtualMac() const {
  return varpMacStatus_ ? varpMacStatus_->varpVirtualMac() : Wire::EthAddr();
}

Lum::Ptr<ArpReplyReplicationVrfSm::LumIpIntfStatus> ArpReplyReplicationVrfSm::ipIntfStatus(
    const Wire::IntfId& id) const {
  return ipIntfStatus_(id);
}

Lum::Ptr<ArpReplyReplicationVrfSm::LumIpIntfStatus> ArpReplyReplicationVrfSm::ipIntfStatusIs(
    const Lum::Ptr<const Ip::IpIntfStatus>& status) {
  return ipIntfStatus_.is(status);
}

void ArpReplyReplicationVrfSm::ipIntfStatusDel(const Wire::IntfId& id) {
  ipIntfStatus_.del(id);
}

size_t ArpReplyReplicationVrfSm::ipIntfStatusSize() const {
  return ipIntfStatus_.size();
}

void ArpReplyReplicationVrfSm::handleIpIntfStatus(const Wire::IntfId& id) {
  Lum::reconcileKey(ipIntfStatus_, id,
                    vrfIpIntfStatus_ ? vrfIpIntfStatus_->ipIntfStatus(id) : nullptr);
}

void ArpReplyReplicationVrfSm::syncIpIntfStatus() {
  if (!vrfIpIntfStatus_) return ipIntfStatus_.delAll();
  Lum::reconcileAll(ipIntfStatus_, vrfIpIntfStatus_->ipIntfStatusIterator(),
                    [this](const Wire::IntfId& id) { return vrfIpIntfStatus_->ipIntfStatus(id); });
}

void ArpReplyReplicationVrfSm::handleVarpMac() {
  VRFSM_TRACE(8, " varpMac " << varpVirtualMac());
  if (!initialized_) return;
  for (auto it = ipIntfStatus_.iterator(); it; ++it) it->handleActiveVirtualAddrMask();
}

void ArpReplyReplicationVrfSm::doPrepareToDie() {
  ipIntfStatus_.delAll();
  initialized_ = false;
}

Lum::Ptr<ArpReplyReplicationVrfSm> arpReplyReplicationVrfSmFactory(
    const L3::VrfName& vrfName, const Wire::NamespaceName& netNs,
    const Lum::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus,
    const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMac,
    VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
    const Lum::Ptr<const Mlag::Status>& mlagStatus, const Lum::Ptr<const Lum::Clock>& clock) {
  return Lum::validPtr(Lum::Ptr<ArpReplyReplicationVrfSm>(new ArpReplyReplicationVrfSm(
      vrfName, netNs, vrfIpIntfStatus, varpMac, virtualArpSm, counter, mlagStatus, clock)));
}

}  // namespace Vxlan
