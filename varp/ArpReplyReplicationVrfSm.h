// Vxlan::ArpReplyReplicationVrfSm: ARP reply replication in one live VRF. It keeps one
// filter machine (LumIpIntfStatus, ArpReplyIpIntfStatus.h) per IP interface of the VRF
// and tells them all when the virtual router MAC changes. Its PAMs open in the VRF's
// namespace `netNs`.
#pragma once

#include "agent/VxlanAgentCounter.h"
#include "platform/core/Collection.h"
#include "platform/core/Reactor.h"
#include "platform/loop/Clock.h"
#include "platform/status/StatusModel.h"
#include "platform/types/NamespaceName.h"

namespace Vxlan {

class VirtualArpSm;

class ArpReplyReplicationVrfSm : public Lum::ReactorBase {
 public:
  class LumIpIntfStatus;
  class LumVrfIpIntfStatus
      : public Lum::NestedReactor<ArpReplyReplicationVrfSm, Ip::VrfIpIntfStatus::NotifieeConst> {
   public:
    void onIpIntfStatus(const Wire::IntfId& id) override { s()->handleIpIntfStatus(id); }
    void onIpIntfStatus() override { s()->syncIpIntfStatus(); }
  };
  class LumFhrpVarpMacStatus
      : public Lum::NestedReactor<ArpReplyReplicationVrfSm,
                                  Routing::Fhrp::VirtualRouterMacStatus::NotifieeConst> {
   public:
    void onVarpVirtualMac() override { s()->handleVarpMac(); }
  };
  // Passes the clock on to the interfaces' machines.
  class LumClock : public Lum::NestedReactor<ArpReplyReplicationVrfSm, Lum::Clock::NotifieeConst> {
  };

  ArpReplyReplicationVrfSm(const L3::VrfName& vrfName, const Wire::NamespaceName& netNs,
                           const Lum::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus,
                           const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMac,
                           VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
                           const Lum::Ptr<const Mlag::Status>& mlagStatus,
                           const Lum::Ptr<const Lum::Clock>& clock);

  const L3::VrfName& vrfName() const { return vrfName_; }
  const Wire::NamespaceName& netNs() const { return netNs_; }
  const Lum::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus() const { return vrfIpIntfStatus_; }
  Wire::EthAddr varpVirtualMac() const;
  VirtualArpSm* virtualArpSm() const { return virtualArpSm_; }
  VxlanAgentCounter* vxAgentCounter() const { return counter_.ptr(); }
  const Lum::Ptr<const Mlag::Status>& mlagStatus() const { return mlagStatus_; }
  Lum::Ptr<const Lum::Clock> clock() const { return clock_ ? clock_->notifier() : nullptr; }
  bool initialized() const { return initialized_; }

  Lum::Ptr<LumIpIntfStatus> ipIntfStatus(const Wire::IntfId& id) const;
  Lum::Ptr<LumIpIntfStatus> ipIntfStatusIs(const Lum::Ptr<const Ip::IpIntfStatus>& status);
  void ipIntfStatusDel(const Wire::IntfId& id);
  size_t ipIntfStatusSize() const;
  auto ipIntfStatusIterator() const { return ipIntfStatus_.iterator(); }

  // The virtual MAC changed: every interface looks at its filter again.
  void handleVarpMac();
  void doPrepareToDie() override;

 private:
  void handleInitialized();
  void handleIpIntfStatus(const Wire::IntfId& id);
  void syncIpIntfStatus();

  L3::VrfName vrfName_;
  Wire::NamespaceName netNs_;
  Lum::Ptr<const Ip::VrfIpIntfStatus> vrfIpIntfStatus_;
  Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> varpMacStatus_;
  VirtualArpSm* virtualArpSm_;
  Lum::Ptr<VxlanAgentCounter> counter_;
  Lum::Ptr<const Mlag::Status> mlagStatus_;
  bool initialized_ = false;
  Lum::Nested<LumVrfIpIntfStatus> vrfIpIntfStatusReactor_{this};
  Lum::Nested<LumFhrpVarpMacStatus> varpMacReactor_{this};
  Lum::Nested<LumClock> clock_{this};
  // Last, so that the interfaces' machines go first.
  Lum::Collection<ArpReplyReplicationVrfSm, LumIpIntfStatus, Wire::IntfId,
                  Lum::Ptr<const Ip::IpIntfStatus>>
      ipIntfStatus_{this, "Vxlan::ArpReplyReplicationVrfSm::ipIntfStatus", {"ipIntfStatus"}};
};

Lum::Ptr<ArpReplyReplicationVrfSm> arpReplyReplicationVrfSmFactory(
    const L3::VrfName& vrfName, const Wire::NamespaceName& netNs,
    const Lum::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus,
    const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMac,
    VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
    const Lum::Ptr<const Mlag::Status>& mlagStatus, const Lum::Ptr<const Lum::Clock>& clock);

}  // namespace Vxlan

// The nested machine, complete wherever the VRF's machine is.
#include "varp/ArpReplyIpIntfStatus.h"
