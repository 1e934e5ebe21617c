// The manager of the remote-to-local direction and the lifecycle of its per-VTI
// machines: construction, the status's attributes that open, close and rebuild the
// sockets, the hardware status entries that give the port id, and the end.
#include "forwarding/Remote2LocalForwarderSm.h"

#include "forwarding/ForwardingTrace.h"
#include "forwarding/TestMode.h"
#include "platform/core/Reconcile.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

// ---- The manager -------------------------------------------------------------

Remote2LocalForwarderSm::Remote2LocalForwarderSm(const Inputs& inputs) : inputs_(inputs) {
  vxHwStatusDirReactor_.is(inputs_.vxHwStatusDir);
  igmpConfigReactor_.is(inputs_.igmpConfig);
  vxBumStatusReactor_.is(inputs_.vxBumStatus);
  vniToVlanMapsReactor_.is(inputs_.vniToVlanMaps);
  kernelNetInfoRootReactor_.is(inputs_.kernelNetInfoRoot);
  mlagStatusReactor_.is(inputs_.mlagStatus);
  if (!inputs_.vtiStatusDir) return;
  // The catch-up of the new notifier builds the machines.
  notifierIs(inputs_.vtiStatusDir);
  isRegisteredNotifieeIs(true);
}

Remote2LocalForwarderSm::~Remote2LocalForwarderSm() = default;

Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> Remote2LocalForwarderSm::vtiStatusSm(
    const Wire::IntfId& id) const {
  return vtiStatusSm_(id);
}

size_t Remote2LocalForwarderSm::vtiStatusSmSize() const {
  return vtiStatusSm_.size();
}

Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> Remote2LocalForwarderSm::vtiStatusSmIs(
    const Lum::Ptr<const VtiStatus>& status) {
  return vtiStatusSm_.is(status);
}

Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> Remote2LocalForwarderSm::vtiStatusSmDel(
    const Wire::IntfId& id) {
  return vtiStatusSm_.del(id);
}

void Remote2LocalForwarderSm::vtiStatusSmDelAll() {
  vtiStatusSm_.delAll();
}

void Remote2LocalForwarderSm::onVtiStatus(const Wire::IntfId& id) {
  const Lum::Ptr<const VtiStatusDir> dir = notifier();
  Lum::reconcileKey(vtiStatusSm_, id, dir ? dir->vtiStatus(id) : nullptr);
}

void Remote2LocalForwarderSm::onVtiStatus() {
  syncVtiStatusSm();
}

void Remote2LocalForwarderSm::onNotifier() {
  syncVtiStatusSm();
}

void Remote2LocalForwarderSm::syncVtiStatusSm() {
  const Lum::Ptr<const VtiStatusDir> dir = notifier();
  if (!dir) return;
  Lum::reconcileAll(vtiStatusSm_, dir->vtiStatusIterator(),
                    [&dir](const Wire::IntfId& id) { return dir->vtiStatus(id); });
}

// ---- One hardware status entry ------------------------------------------------

Remote2LocalForwarderSm::LumVtiStatusSm::LumVxHwStatusSm::LumVxHwStatusSm(
    const Lum::Ptr<const VxlanHwStatus>& status, LumVtiStatusSm* owner)
    : lumVtiStatusSm_(owner) {
  notifierIs(status);
  isRegisteredNotifieeIs(true);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::LumVxHwStatusSm::handlePortId() {
  if (!lumVtiStatusSm_ || !notifier()) return;
  LUM_TRACE(R2L::trace, 8,
            "R2LSm(" << lumVtiStatusSm_->intfId() << ")::handlePortId portId:"
                     << notifier()->portId() << " lumVtiStatusSm():" << lumVtiStatusSm_);
  // Another VTI's entry carries another VTI's port.
  if (notifier()->intfId() != lumVtiStatusSm_->intfId()) return;
  lumVtiStatusSm_->portIdIs(notifier()->portId());
}

// ---- Construction and the lifecycle -------------------------------------------

Remote2LocalForwarderSm::LumVtiStatusSm::LumVtiStatusSm(
    const Lum::Ptr<Lum::ActivityConfig>& activity, const Lum::Ptr<const VtiStatus>& status,
    Remote2LocalForwarderSm* parent)
    : parent_(parent),
      counters_(parent ? parent->vxAgentCounter() : nullptr),
      intfId_(status->intfId()) {
  lumFwkActivityIs(activity);
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  if (parent_ && parent_->vxHwStatusDir()) syncVxHwStatusSm(parent_->vxHwStatusDir().ptr());
  if (FRAME_MODE != FrameMode::single) batchModeIs(true);
  handleInitialized();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleInitialized() {
  R2L_TRACE(8, "()");
  RINGLOG(8, "R2LSm(%s)::handleInitialized()", intfId_.stringValue().view());
  if (parent_ && parent_->vtiStatusDir()) {
    notifierIs(parent_->vtiStatusDir()->vtiStatusIs(intfId_));
  }
  if (parent_) {
    vxHwStatusDirIs(parent_->vxHwStatusDir());
    vxBumStatusIs(parent_->vxBumStatus());
    kernelNetworkInfoRootIs(parent_->kernelNetInfoRoot());
    mlagStatusIs(parent_->mlagStatus());
  }
  if (parent_ && parent_->vniToVlanMaps()) {
    Lum::Ptr<VniToVlanMap> map = parent_->vniToVlanMaps()->vtiVniToVlanMap(intfId_);
    if (!map) {
      R2L_TRACE(8, " set vtiVniToVlanMap with intf Id " << intfId_);
      map = parent_->vniToVlanMaps()->vtiVniToVlanMapIs(intfId_);
    }
    vniToVlanForVtiIs(map);
  }
  initializedIs(true);
  handleBumMcastGrp();
  handleVlanToVniMap();
  // A socket that cannot be opened now (no privilege, a device missing) must not undo
  // the machine: it stays, with the sockets closed, for the next event to repair. An
  // exception here would leave the constructor and with it the whole start.
  try {
    handleOperStatus();
  } catch (const Lum::ErrnoException& e) {
    R2L_TRACE(1, "() sockets not opened: " << e.what());
    RINGLOG(1, "R2LSm(%s)::handleInitialized sockets not opened: %s", intfId_.stringValue().view(),
            e.what());
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::onNotifier() {
  // Before the end of handleInitialized there is nothing to catch up on: it does the
  // same work itself, once everything is in place.
  if (!initialized_) return;
  handleVlanToVniMap();
  handleOperStatus();
  handleControllerMode();
  handleLocalVtepAddr();
  handleSrcIpIntf();
  handleUdpPort();
  handleBumMcastGrp();
  handleMcastGrpDecap();
}

bool Remote2LocalForwarderSm::LumVtiStatusSm::operUp() const {
  const Lum::Ptr<const VtiStatus> status = notifier();
  return status && status->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

Routing::Igmp::Application::Config* Remote2LocalForwarderSm::LumVtiStatusSm::igmpConfig() const {
  return parent_ ? parent_->igmpConfig().ptr() : nullptr;
}

Routing::Pim::Application::Config* Remote2LocalForwarderSm::LumVtiStatusSm::pimConfig() const {
  return parent_ ? parent_->pimConfig().ptr() : nullptr;
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleOperStatus() {
  if (operUp()) {
    R2L_TRACE(8, "() UP");
    doConnectSockets();
  } else {
    R2L_TRACE(8, "() DOWN");
    doDisconnectSockets();
  }
  handleMcastGrpDecap();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleControllerMode() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  const bool mode = status && status->controllerClientMode();
  if (operUp()) {
    R2L_TRACE(8, "() Oper UP, Controller Mode:" << mode);
    doDisconnectSockets();
    doConnectSockets();
  } else {
    R2L_TRACE(8, "() Oper DOWN, Controller Mode:" << mode);
    doDisconnectSockets();
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleUdpPort() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  R2L_TRACE(8, "() udpPort:" << (status ? status->udpPort() : 0));
  rebuildRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleSrcIpIntf() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  R2L_TRACE(8, "() srcIpIntf:" << (status ? status->srcIpIntf() : Wire::IntfId()));
  rebuildRemoteSocket();
}

// The device the remote socket is bound to: a document may name it after the
// interface has gone up, and then it is what completes the pair.
void Remote2LocalForwarderSm::LumVtiStatusSm::handleSrcIntfKernelName() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  R2L_TRACE(8, "() srcIntfKernelName:" << (status ? status->srcIntfKernelName() : Lum::String8()));
  rebuildRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleLocalVtepAddr() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  const Wire::IpAddr vtep = status ? status->localVtepAddr() : Wire::IpAddr();
  R2L_TRACE(8, "() localVtepAddr:" << vtep);
  // Without an address there is nothing to receive for.
  if (vtep.isZero()) {
    closeRemoteSocket();
  } else {
    rebuildRemoteSocket();
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVxlanHwStatus(const Wire::IntfId& id) {
  R2L_TRACE(8, " name:" << id);
  const VxlanHwStatusDir* dir = vxHwStatusDir_ ? vxHwStatusDir_->notifier().ptr() : nullptr;
  const Lum::Ptr<const VxlanHwStatus> hw = dir ? dir->vxlanHwStatus(id) : nullptr;
  // The port id is the own entry's only: another VTI's entry, coming or going, must
  // not change what this VTI's frames carry.
  if (id == intfId_) portIdIs(hw ? hw->portId() : HwPortId::unknown());
  Lum::reconcileKey(vxHwStatusSm_, id, hw);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVxlanHwStatus() {
  R2L_TRACE(8, "()");
  handleVxlanHwStatus(intfId_);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVxlanHwStatusAll() {
  syncVxHwStatusSm(vxHwStatusDir_ ? vxHwStatusDir_->notifier().ptr() : nullptr);
  handleVxlanHwStatus();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::syncVxHwStatusSm(const VxlanHwStatusDir* dir) {
  if (!dir) return;
  Lum::reconcileAll(vxHwStatusSm_, dir->vxlanHwStatusIterator(),
                    [dir](const Wire::IntfId& id) { return dir->vxlanHwStatus(id); });
}

void Remote2LocalForwarderSm::LumVtiStatusSm::doPrepareToDie() {
  R2L_TRACE(8, "() remote:" << remoteSock_ << " local:" << localSock_);
  doDisconnectSockets();
  portIdIs(HwPortId::unknown());
  vxHwStatusSmDel(intfId_);
}

}  // namespace Vxlan
