#include "varp/ArpReplyReplicationSm.h"

#include "platform/core/Reconcile.h"
#include "platform/trace/RingLog.h"
#include "varp/VarpTrace.h"

namespace Vxlan {

#define REP_TRACE(level, message) \
  LUM_TRACE(::Vxlan::varpTrace, level, "ArpReplyReplicationSm::" << LUM_TRACE_FUNCTION << message)

ArpReplyReplicationSm::ArpReplyReplicationSm(
    const Lum::Ptr<const Ip::Status>& ipStatus,
    const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMacStatus,
    VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
    const Lum::Ptr<const Ip::AllVrfStatusLocal>& allVrfStatus,
    const Lum::Ptr<const Mlag::Status>& mlagStatus, const Lum::Ptr<const Lum::Clock>& clock)
    : ipStatus_(ipStatus),
      varpMacStatus_(varpMacStatus),
      virtualArpSm_(virtualArpSm),
      counter_(counter),
      allVrfStatus_(allVrfStatus),
      mlagStatus_(mlagStatus) {
  ipStatusReactor_.is(ipStatus_);
  allVrfStatusReactor_.is(allVrfStatus_);
  clock_.is(clock);
  if (allVrfStatus_) {
    for (auto it = allVrfStatus_->vrfIterator(); it; ++it) vrfStatusSmIs(it.ptr());
  }
  handleInitialized();
}

void ArpReplyReplicationSm::handleInitialized() {
  if (initialized_) return;
  initialized_ = true;
  for (auto it = vrfStatusSm_.iterator(); it; ++it) it->handleInitialized();
  handleVrfIpIntfStatus();
}

Lum::Ptr<ArpReplyReplicationSm::LumVrfStatusSm> ArpReplyReplicationSm::vrfStatusSm(
    const L3::VrfName& name) const {
  return vrfStatusSm_(name);
}

Lum::Ptr<ArpReplyReplicationSm::LumVrfStatusSm> ArpReplyReplicationSm::vrfStatusSmIs(
    const Lum::Ptr<const Ip::VrfStatusLocal>& vrf) {
  return vrfStatusSm_.is(vrf);
}

void ArpReplyReplicationSm::vrfStatusSmDel(const L3::VrfName& name) {
  vrfStatusSm_.del(name);
}

void ArpReplyReplicationSm::handleVrf(const L3::VrfName& name) {
  Lum::reconcileKey(vrfStatusSm_, name, allVrfStatus_ ? allVrfStatus_->vrf(name) : nullptr);
}

void ArpReplyReplicationSm::syncVrfStatusSm() {
  if (!allVrfStatus_) return vrfStatusSm_.delAll();
  Lum::reconcileAll(vrfStatusSm_, allVrfStatus_->vrfIterator(),
                    [this](const L3::VrfName& name) { return allVrfStatus_->vrf(name); });
}

void ArpReplyReplicationSm::handleVrfIpIntfStatus() {
  REP_TRACE(8, "");
  if (!initialized_ || !ipStatus_) return;
  for (auto it = ipStatus_->vrfIpIntfStatusIterator(); it; ++it) handleVrfIpIntfStatus(it.key());
}

void ArpReplyReplicationSm::handleVrfIpIntfStatus(const L3::VrfName& name) {
  REP_TRACE(8, " vrfName " << name);
  if (!initialized_) return;
  if (ipStatus_ && ipStatus_->vrfIpIntfStatus(name)) {
    doCreateVrfSm(name);
  } else {
    doDeleteVrfSm(name);
  }
}

void ArpReplyReplicationSm::doCreateVrfSm(const L3::VrfName& name) {
  REP_TRACE(8, " vrfName " << name);
  if (!initialized_) return;
  const Lum::Ptr<const Ip::VrfIpIntfStatus> intfs =
      ipStatus_ ? ipStatus_->vrfIpIntfStatus(name) : nullptr;
  Wire::NamespaceName ns = Wire::DEFAULT_NS;
  if (name != Ip::Status::defaultVrf()) {
    const Lum::Ptr<LumVrfStatusSm> sm = vrfStatusSm(name);
    const Lum::Ptr<const Ip::VrfStatusLocal> vrf = sm ? sm->notifier() : nullptr;
    // A VRF without a namespace while active is not taken: its next change may bring one.
    if (!vrf || vrf->state() != Ip::VrfState::vrfActive || !intfs ||
        vrf->networkNamespace().empty()) {
      return;
    }
    ns = vrf->networkNamespace();
  }
  if (!intfs) return;
  // A live VRF may be told twice (state and namespace, or a later interface event);
  // a machine in another namespace is made again there.
  if (const Lum::Ptr<ArpReplyReplicationVrfSm> present = vrfSm_(name)) {
    if (present->netNs() == ns && present->vrfIpIntfStatus() == intfs) return;
    vrfSm_.del(name);
  }
  REP_TRACE(7, " creating vrf SM " << name << " netns " << ns);
  RINGLOG(7, "doCreateVrfSm creating vrf SM %s netns %s", name.value().charPtr(),
          ns.value().charPtr());
  arpReplyReplicationVrfSmIs(name, ns, intfs, varpMacStatus_, virtualArpSm_, counter_, mlagStatus_,
                             clock_ ? clock_->notifier() : nullptr);
}

void ArpReplyReplicationSm::doDeleteVrfSm(const L3::VrfName& name) {
  REP_TRACE(8, " vrfName " << name);
  if (!initialized_) return;
  RINGLOG(8, "doDeleteVrfSm %s", name.value().charPtr());
  vrfSm_.del(name);
}

void ArpReplyReplicationSm::doPrepareToDie() {
  vrfSm_.delAll();
  vrfStatusSm_.delAll();
  initialized_ = false;
}

using VrfStatusSm = ArpReplyReplicationSm::LumVrfStatusSm;

VrfStatusSm::LumVrfStatusSm(const Lum::Ptr<const Ip::VrfStatusLocal>& vrf,
                            ArpReplyReplicationSm* owner)
    : owner_(owner), vrfName_(vrf->vrf()) {
  if (owner_) lumFwkActivityIs(owner_->lumFwkActivity());
  notifierIs(vrf);
  isRegisteredNotifieeIs(true);
  handleInitialized();
}

void VrfStatusSm::handleInitialized() {
  if (initialized_ || !owner_ || !owner_->initialized()) return;
  initialized_ = true;
  handleVrfStatus();
}

void VrfStatusSm::handleVrfStatus() {
  LUM_TRACE(varpTrace, 8,
            "ArpReplyReplicationSm::LumVrfStatusSm::handleVrfStatus vrfName " << vrfName_);
  const Lum::Ptr<const Ip::VrfStatusLocal> vrf = notifier();
  if (!initialized_ || !owner_ || !vrf) return;
  if (vrf->state() == Ip::VrfState::vrfActive) {
    owner_->doCreateVrfSm(vrfName_);
  } else {
    owner_->doDeleteVrfSm(vrfName_);
  }
}

void VrfStatusSm::doPrepareToDie() {
  LUM_TRACE(varpTrace, 8,
            "ArpReplyReplicationSm::LumVrfStatusSm::doPrepareToDie vrfName " << vrfName_);
  if (initialized_ && owner_) owner_->doDeleteVrfSm(vrfName_);
  initialized_ = false;
}

Lum::Ptr<ArpReplyReplicationSm> arpReplyReplicationSmFactory(
    const Lum::Ptr<const Ip::Status>& ipStatus,
    const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMacStatus,
    VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
    const Lum::Ptr<const Ip::AllVrfStatusLocal>& allVrfStatus,
    const Lum::Ptr<const Mlag::Status>& mlagStatus, const Lum::Ptr<const Lum::Clock>& clock) {
  return Lum::validPtr(Lum::Ptr<ArpReplyReplicationSm>(new ArpReplyReplicationSm(
      ipStatus, varpMacStatus, virtualArpSm, counter, allVrfStatus, mlagStatus, clock)));
}

}  // namespace Vxlan
