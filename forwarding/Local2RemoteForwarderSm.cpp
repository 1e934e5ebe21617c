// The manager of the local-to-remote direction and the lifecycle of its per-VTI
// machines: construction, the status's attributes that open and close the sockets,
// the flood group, and the end. The kernel's devices ("vxlan" among them) are
// followed in L2RAccessPorts.cpp.
#include "forwarding/Local2RemoteForwarderSm.h"

#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"
#include "forwarding/L2RVxStatusSm.h"
#include "forwarding/TestMode.h"
#include "platform/core/Reconcile.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

// ---- The manager -------------------------------------------------------------

Local2RemoteForwarderSm::Local2RemoteForwarderSm(const Inputs& inputs) : inputs_(inputs) {
  vxHwStatusDir_.is(inputs_.vxHwStatusDir);
  vxBumStatus_.is(inputs_.vxBumStatus);
  fhrpVarpMacStatus_.is(inputs_.fhrpVarpMacStatus);
  kernelNetInfoRoot_.is(inputs_.kernelNetInfoRoot);
  mlagStatus_.is(inputs_.mlagStatus);
  bridgingConfig_.is(inputs_.bridgingConfig);
  intfStatusDir_.is(inputs_.intfStatusDir);
  vtepStatusDir_.is(inputs_.vtepStatusDirV2);
  if (inputs_.vtiStatusDir) {
    // The catch-up of the new notifier builds the machines.
    notifierIs(inputs_.vtiStatusDir);
    isRegisteredNotifieeIs(true);
  }
  // The same for the VXLAN status directory, through its reactor.
  vxStatusDir_.is(inputs_.vxStatusDir);
}

Local2RemoteForwarderSm::~Local2RemoteForwarderSm() = default;

Lum::Ptr<Local2RemoteForwarderSm::LumVtiStatusSm> Local2RemoteForwarderSm::vtiStatusSm(
    const Wire::IntfId& id) const {
  return vtiStatusSm_(id);
}

size_t Local2RemoteForwarderSm::vtiStatusSmSize() const {
  return vtiStatusSm_.size();
}

Lum::Ptr<Local2RemoteForwarderSm::LumVtiStatusSm> Local2RemoteForwarderSm::vtiStatusSmIs(
    const Lum::Ptr<const VtiStatus>& status) {
  return vtiStatusSm_.is(status);
}

Lum::Ptr<Local2RemoteForwarderSm::LumVtiStatusSm> Local2RemoteForwarderSm::vtiStatusSmDel(
    const Wire::IntfId& id) {
  return vtiStatusSm_.del(id);
}

Lum::Ptr<Local2RemoteForwarderSm::VxStatusSm> Local2RemoteForwarderSm::vxStatus(
    const Wire::IntfId& id) const {
  return vxStatus_(id);
}

Lum::Ptr<Local2RemoteForwarderSm::VxStatusSm> Local2RemoteForwarderSm::vxStatusIs(
    const Lum::Ptr<const VxlanStatus>& status) {
  return vxStatus_.is(status);
}

Lum::Ptr<Local2RemoteForwarderSm::VxStatusSm> Local2RemoteForwarderSm::vxStatusDel(
    const Wire::IntfId& id) {
  return vxStatus_.del(id);
}

void Local2RemoteForwarderSm::onVtiStatus(const Wire::IntfId& id) {
  const Lum::Ptr<const VtiStatusDir> dir = notifier();
  Lum::reconcileKey(vtiStatusSm_, id, dir ? dir->vtiStatus(id) : nullptr);
}

void Local2RemoteForwarderSm::syncVtiStatusSm() {
  const Lum::Ptr<const VtiStatusDir> dir = notifier();
  if (!dir) return;
  Lum::reconcileAll(vtiStatusSm_, dir->vtiStatusIterator(),
                    [&dir](const Wire::IntfId& id) { return dir->vtiStatus(id); });
}

void Local2RemoteForwarderSm::handleVxlanStatus(const Wire::IntfId& id) {
  const VxlanStatusDir* dir = vxStatusDir_ ? vxStatusDir_->notifier().ptr() : nullptr;
  Lum::reconcileKey(vxStatus_, id, dir ? dir->vxlanStatus(id) : nullptr);
}

void Local2RemoteForwarderSm::syncVxStatus() {
  const VxlanStatusDir* dir = vxStatusDir_ ? vxStatusDir_->notifier().ptr() : nullptr;
  if (!dir) return;
  Lum::reconcileAll(vxStatus_, dir->vxlanStatusIterator(),
                    [dir](const Wire::IntfId& id) { return dir->vxlanStatus(id); });
}

// ---- Construction and the lifecycle -------------------------------------------

using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;

Sm::LumVtiStatusSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                   const Lum::Ptr<const VtiStatus>& status, Local2RemoteForwarderSm* owner)
    : owner_(owner),
      counters_(owner ? owner->vxAgentCounter() : nullptr),
      intfId_(status->intfId()) {
  lumFwkActivityIs(activity);
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  vniByVlan_.is(status->vlanToVniMap());
  if (FRAME_MODE != FrameMode::single) batchModeIs(true);
  handleInitialized();
}

void Sm::handleInitialized() {
  L2R_TRACE(8, "()");
  RINGLOG(8, "L2RSm(%s)::handleInitialized()", intfId_.stringValue().view());
  if (owner_) {
    const Inputs& in = owner_->inputs();
    if (in.vtiStatusDir) notifierIs(in.vtiStatusDir->vtiStatusIs(intfId_));
    const Lum::Ptr<FdbStatus> fdb = in.vxHwStatusDir ? in.vxHwStatusDir->fdbStatus() : nullptr;
    if (!fdb) Lum::throwRangeException("null ValidPtr");
    vxHwStatus_.is(in.vxHwStatusDir);
    vxFdbStatus_.is(fdb);
    vxBumStatus_.is(in.vxBumStatus);
    kernelNetworkInfoRoot_.is(in.kernelNetInfoRoot);
    mlagStatus_.is(in.mlagStatus);
    bridgingConfig_.is(in.bridgingConfig);
    intfStatusDir_.is(in.intfStatusDir);
    vxStatusDir_.is(in.vxStatusDir);
  }
  initializedIs(true);
  if (owner_) owner_->clearVxlanCounters();
  handleBumMcastGrp();
  // A socket that cannot be opened now (no privilege, a device missing) must not undo
  // the machine: it stays, with the sockets closed, for the next event to repair. An
  // exception here would leave the constructor and with it the whole start.
  try {
    handleOperStatus();
  } catch (const Lum::ErrnoException& e) {
    L2R_TRACE(1, "() sockets not opened: " << e.what());
    RINGLOG(1, "L2RSm(%s)::handleInitialized sockets not opened: %s", intfId_.stringValue().view(),
            e.what());
  }
  // The peer link's reactor (the interface statuses were not there when the MLAG
  // status was attached), then the tunnel ports, last.
  handlePeerLinkIntf();
  for (auto it = intfConfig_.iterator(); it; ++it) it->handleInitialized();
}

bool Sm::operUp() const {
  const VtiStatus* s = status();
  return s && s->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

void Sm::handleOperStatus() {
  const bool mode = status() && status()->controllerClientMode();
  if (operUp()) {
    L2R_TRACE(8, "() UP Controller Mode:" << mode);
    doConnectSockets();
  } else {
    L2R_TRACE(8, "() DOWN Controller Mode:" << mode);
    doDisconnectSockets();
  }
}

void Sm::handleControllerMode() {
  const bool mode = status() && status()->controllerClientMode();
  if (operUp()) {
    L2R_TRACE(8, "() Oper UP, Controller Mode:" << mode);
    // The remote sockets are made anew: multicast depends on the mode.
    doDisconnectSockets();
    doConnectSockets();
  } else {
    L2R_TRACE(8, "() Oper DOWN, Controller Mode:" << mode);
    doDisconnectSockets();
  }
}

void Sm::handleLocalVtepAddr() {
  const Wire::IpAddr vtep = status() ? status()->localVtepAddr() : Wire::IpAddr();
  L2R_TRACE(8, "() localVtepAddr:" << vtep);
  remoteSockHiIs(closeAndCheck(remoteSockHi_));
  remoteSockLoIs(closeAndCheck(remoteSockLo_));
  // Without an address the remote sockets stay closed and the frame path says so.
  if (operUp() && !vtep.isZero()) createRemoteSocket();
}

void Sm::handleBumMcastGrp() {
  L2R_TRACE(8, "()");
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  if (!bum) return;
  for (const Bridging::VlanId vlan : bum->bumMcastGrp().keys()) handleBumMcastGrp(vlan);
}

void Sm::handleBumMcastGrp(Bridging::VlanId vlanId) {
  L2R_TRACE(8, "() vlan:" << vlanId);
  const Wire::IpAddr prev = floodMcastGrp_;
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  // One flood group per VTI: the first of the map, whichever VLAN it is for.
  if (bum && !bum->bumMcastGrp().empty()) {
    L2R_TRACE(8, "Multicast enabled ");
    floodMcastGrpIs(bum->bumMcastGrp().begin()->second);
  } else {
    L2R_TRACE(8, "Multicast disabled ");
    floodMcastGrpIs(Wire::IpAddr());
  }
  L2R_TRACE(8,
            "(), vlanId " << vlanId << " Mcast Group Prev:" << prev << " New:" << floodMcastGrp_);
  if (floodMcastGrp_ != prev && operUp()) createRemoteSocket();
}

void Sm::doPrepareToDie() {
  L2R_TRACE(8, "() remote: " << remoteSockHi_ << "/" << remoteSockLo_ << " local:" << localSockHi_
                             << "/" << localSockLo_ << " arp:" << arpSock_
                             << " arpInspect:" << arpInspectSock_);
  doDisconnectSockets();
}

}  // namespace Vxlan
