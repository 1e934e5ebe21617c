// Access-port tracking of the local-to-remote machine: which kernel index is the MLAG
// peer link (its frames are dropped) and which belong to ports in dot1q-tunnel mode
// (their frames keep the customer's tag), from the bridging configuration, the
// interface statuses and the kernel's devices; and the device "vxlan", which the
// local sockets follow.
//
// The maps change only here, on the agent's one event loop, between frame runs: the
// frame path never sees half an update.
#include <vector>

#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"
#include "platform/core/Reconcile.h"

namespace Vxlan {

namespace {

// The device the forwarding plane hands frames to the agent on: the forwarding
// plane's vocabulary, and it stays as it stands.
constexpr const char* kVxlanDevice = "vxlan";

uint32_t ifindexOf(const KernelNetworkInfo::Root* root, const Lum::String8& name) {
  const Lum::Ptr<KernelNetworkInfo::Interface> k = root ? root->interfaceByName(name) : nullptr;
  return k ? k->ifindex().value() : 0;
}

}  // namespace

using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;

// ---- One port's switchport settings ---------------------------------------------

Sm::LumIntfConfig::LumIntfConfig(const Lum::Ptr<const Bridging::SwitchIntfConfig>& config,
                                 LumVtiStatusSm* owner)
    : owner_(owner), intfId_(owner ? owner->intfId() : Wire::IntfId()), port_(config->intfId()) {
  notifierIs(config);
  isRegisteredNotifieeIs(true);
  handleInitialized();
}

void Sm::LumIntfConfig::handleInitialized() {
  if (!owner_ || !owner_->initialized()) return;
  L2R_TRACE(8, " intfConfig " << port_ << " initialized: " << initialized_);
  initialized_ = true;
  handleDot1QTunnelConfig();
}

bool Sm::LumIntfConfig::deviceNameOf(const Interface::EthIntfStatus& status,
                                     Lum::String8& name) const {
  if (!Wire::PortChannelIntfId::isPortChannelIntfId(port_)) {
    name = status.deviceName();
    return true;
  }
  const auto* lag = dynamic_cast<const Interface::EthLagIntfStatus*>(&status);
  if (!lag) return false;
  name = lag->lagDeviceName();
  return true;
}

void Sm::LumIntfConfig::handleDot1QTunnelConfig() {
  L2R_TRACE(8, " intfConfig " << port_ << " initialized: " << initialized_);
  if (!initialized_ || !owner_) return;
  if (Wire::SubIntfId::isSubIntfId(port_)) {
    L2R_TRACE(8, "Interface " << port_ << " is a subintf");
    return;
  }
  const Bridging::SwitchIntfConfig* config = notifier().ptr();
  const Bridging::SwitchportMode mode =
      config ? config->switchportMode() : Bridging::SwitchportMode::switchportModeAccess;
  L2R_TRACE(8, " switchportMode: " << mode);
  const Interface::EthIntfStatusDir* dir = owner_->intfStatusDir();
  const Lum::Ptr<Interface::EthIntfStatus> status = dir ? dir->intfStatus(port_) : nullptr;
  if (!status) {
    L2R_TRACE(8, " no interface status");
    return;
  }
  // The old pair goes first: the device or its index may be another now.
  if (!!owner_->dot1QTunnelIntfToDevIfindex(port_)) cleanup();
  if (mode == Bridging::SwitchportMode::switchportModeDot1qTunnel) {
    Lum::String8 devname;
    if (!deviceNameOf(*status, devname)) {
      // The status model promises a LAG status for a port channel; without one the
      // port's device is unknown and the port is left out.
      L2R_TRACE(0, " port channel " << port_ << " has no LAG status");
      return;
    }
    L2R_TRACE(8, " deviceName: " << port_ << " is devname: " << devname);
    const uint32_t ifindex = ifindexOf(owner_->kernelNetworkInfoRoot(), devname);
    owner_->dot1QTunnelIntfToDevIfindexIs(port_, DevIfindexPair(devname, ifindex));
    if (ifindex != 0) owner_->dot1QTunnelIfIndexIs(ifindex, true);
  }
  L2R_TRACE(8, " total dot1q intfs: " << owner_->dot1QTunnelIntfToDevIfindex().size()
                                      << " DevIfindex(" << port_
                                      << "): " << owner_->dot1QTunnelIntfToDevIfindex(port_));
}

void Sm::LumIntfConfig::cleanup() {
  if (!owner_) return;
  const DevIfindexPair pair = owner_->dot1QTunnelIntfToDevIfindex(port_);
  if (!pair) return;
  if (pair.ifindex() != 0) owner_->dot1QTunnelIfIndexDel(pair.ifindex());
  owner_->dot1QTunnelIntfToDevIfindexDel(port_);
}

// ---- One interface's device name ------------------------------------------------

Sm::LumIntfStatus::LumIntfStatus(const Lum::Ptr<const Interface::EthIntfStatus>& status,
                                 LumVtiStatusSm* owner)
    : owner_(owner), intfId_(owner ? owner->intfId() : Wire::IntfId()), port_(status->intfId()) {
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  if (const auto* lag = dynamic_cast<const Interface::EthLagIntfStatus*>(status.ptr())) {
    lagName_.is(Lum::Ptr<const Interface::EthLagIntfStatus>(lag));
  }
}

void Sm::LumIntfStatus::handleDevName() {
  L2R_TRACE(8, "() intf: " << port_);
  if (!owner_) return;
  if (const Lum::Ptr<LumIntfConfig> config = owner_->intfConfig(port_)) {
    config->handleDot1QTunnelConfig();
  }
}

// ---- The machine's side: ports, interfaces, the peer link, the kernel -------------

void Sm::handleSwitchIntfConfig(const Wire::IntfId& port) {
  const Bridging::Config* config = bridgingConfig_ ? bridgingConfig_->notifier().ptr() : nullptr;
  Lum::reconcileKey(intfConfig_, port, config ? config->switchIntfConfig(port) : nullptr);
}

void Sm::syncIntfConfig() {
  const Bridging::Config* config = bridgingConfig_ ? bridgingConfig_->notifier().ptr() : nullptr;
  if (!config) return;
  Lum::reconcileAll(intfConfig_, config->switchIntfConfigIterator(),
                    [config](const Wire::IntfId& port) { return config->switchIntfConfig(port); });
}

void Sm::handleIntfStatus(const Wire::IntfId& intf) {
  const Interface::EthIntfStatusDir* dir = intfStatusDir();
  Lum::reconcileKey(intfStatus_, intf, dir ? dir->intfStatus(intf) : nullptr);
  const Mlag::Status* mlag = mlagStatus();
  if (mlag && mlag->peerLinkIntf() == intf) handlePeerLinkIntf();
}

void Sm::syncIntfStatus() {
  const Interface::EthIntfStatusDir* dir = intfStatusDir();
  if (!dir) return;
  Lum::reconcileAll(intfStatus_, dir->intfStatusIterator(),
                    [dir](const Wire::IntfId& intf) { return dir->intfStatus(intf); });
  handlePeerLinkIntf();
}

void Sm::handlePeerLinkIntf() {
  const Mlag::Status* mlag = mlagStatus();
  const Interface::EthIntfStatusDir* dir = intfStatusDir();
  const Wire::IntfId peerLink = mlag ? mlag->peerLinkIntf() : Wire::IntfId();
  const Lum::Ptr<const Interface::EthIntfStatus> status =
      dir && !peerLink.empty() ? dir->intfStatus(peerLink) : nullptr;
  if (status) {
    peerLinkIntf_.is(status);
  } else {
    peerLinkIntf_.del();
  }
  handleMlagStateOrPeerLinkIntf();
}

void Sm::handleMlagStateOrPeerLinkIntf() {
  L2R_TRACE(8, "() initialized: " << initialized_);
  if (!initialized_) return;
  const Mlag::Status* mlag = mlagStatus();
  const Interface::EthIntfStatus* peer = peerLinkIntf();
  L2R_TRACE(8, "mlag state: " << (mlag ? mlag->mlagState() : Mlag::MlagState::mlagStateDisabled)
                              << " peer link:" << (mlag ? mlag->peerLinkIntf() : Wire::IntfId()));
  if (mlag && Mlag::isMlagActive(mlag->mlagState()) && peer && !peer->deviceName().empty()) {
    L2R_TRACE(8, "mlag active with peerLinkIntf: " << peer->deviceName());
    const uint32_t ifindex = ifindexOf(kernelNetworkInfoRoot(), peer->deviceName());
    if (ifindex != 0) {
      L2R_TRACE(8, "mlag active with peer ifindex " << ifindex);
    } else {
      L2R_TRACE(8, "mlag active but no peer ifindex");
    }
    peerLinkIfIndexIs(ifindex);
    return;
  }
  L2R_TRACE(8, "mlag not active or no peer link intf");
  peerLinkIfIndexIs(0);
}

void Sm::handleKernelDevice(const Lum::String8& name) {
  const uint32_t ifindex = ifindexOf(kernelNetworkInfoRoot(), name);
  L2R_TRACE(8, "() name:" << name << " ifindex:" << ifindex);
  if (name.view() == kVxlanDevice) {
    // The sockets of a machine still being built are opened at the end of
    // handleInitialized, with the device's state of that moment.
    if (initialized_) {
      doDisconnectSockets();
      if (ifindex != 0) doConnectSockets();
    }
  } else if (const Interface::EthIntfStatus* peer = peerLinkIntf();
             peer && peer->deviceName() == name) {
    handleMlagStateOrPeerLinkIntf();
  }
  // The tunnel ports on this device look their index up again (a device made anew
  // has a new one). Collected first: each port's pair is written again on the way.
  std::vector<Wire::IntfId> ports;
  for (const auto& [port, pair] : dot1QTunnelIntfToDevIfindex_) {
    if (pair.devname() == name) ports.push_back(port);
  }
  for (const Wire::IntfId& port : ports) {
    if (const Lum::Ptr<LumIntfConfig> config = intfConfig_(port)) config->handleDot1QTunnelConfig();
  }
}

void Sm::handleKernelDevice() {
  L2R_TRACE(8, "()");
  const KernelNetworkInfo::Root* root = kernelNetworkInfoRoot();
  if (!root) return;
  for (auto it = root->interfaceByNameIterator(); it; ++it) handleKernelDevice(it.key());
  // A "vxlan" gone while its change was folded into this one: its sockets, bound to a
  // device that no longer exists, close.
  if (!root->interfaceByName(kVxlanDevice)) handleKernelDevice(Lum::String8(kVxlanDevice));
}

}  // namespace Vxlan
