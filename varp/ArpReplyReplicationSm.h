// Vxlan::ArpReplyReplicationSm: ARP reply replication, one per agent. It follows the
// VRFs and their IP interfaces and keeps one ArpReplyReplicationVrfSm per live VRF:
// a VRF is live while its state is active (always for "default") and the IP agent has
// its interfaces under `vrfIpIntfStatus`. Either condition has its own notification,
// so each event tests both; a VRF that is not ready yet waits for the later event.
//
// The per-VRF machine (ArpReplyReplicationVrfSm.h) keeps one filter machine per IP
// interface (ArpReplyIpIntfStatus.h): ARP replies for the virtual router MAC that
// reach a routed VLAN interface are caught by a classic socket filter in the VRF's
// namespace and handed to virtual ARP (ArpReplyReceive.cpp).
#pragma once

#include "agent/VxlanAgentCounter.h"
#include "platform/core/Collection.h"
#include "platform/core/Instance.h"
#include "platform/core/Reactor.h"
#include "platform/loop/Clock.h"
#include "platform/status/StatusModel.h"
#include "varp/ArpReplyReplicationVrfSm.h"

namespace Vxlan {

class VirtualArpSm;

class ArpReplyReplicationSm : public Lum::ReactorBase {
 public:
  class LumVrfStatusSm;
  class LumIpStatus : public Lum::NestedReactor<ArpReplyReplicationSm, Ip::Status::NotifieeConst> {
   public:
    void onVrfIpIntfStatus(const L3::VrfName& name) override { s()->handleVrfIpIntfStatus(name); }
    void onVrfIpIntfStatus() override { s()->handleVrfIpIntfStatus(); }
  };
  class LumAllVrfStatus
      : public Lum::NestedReactor<ArpReplyReplicationSm, Ip::AllVrfStatusLocal::NotifieeConst> {
   public:
    void onVrf(const L3::VrfName& name) override { s()->handleVrf(name); }
    void onVrf() override { s()->syncVrfStatusSm(); }
  };
  // Holds the clock for the levels below.
  class LumClock : public Lum::NestedReactor<ArpReplyReplicationSm, Lum::Clock::NotifieeConst> {};

  ArpReplyReplicationSm(const Lum::Ptr<const Ip::Status>& ipStatus,
                        const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMacStatus,
                        VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
                        const Lum::Ptr<const Ip::AllVrfStatusLocal>& allVrfStatus,
                        const Lum::Ptr<const Mlag::Status>& mlagStatus,
                        const Lum::Ptr<const Lum::Clock>& clock);

  bool initialized() const { return initialized_; }
  Lum::Ptr<ArpReplyReplicationVrfSm> arpReplyReplicationVrfSm(const L3::VrfName& name) const {
    return vrfSm_(name);
  }
  size_t arpReplyReplicationVrfSmSize() const { return vrfSm_.size(); }
  auto arpReplyReplicationVrfSmIterator() const { return vrfSm_.iterator(); }
  // The VRF's machine; one that exists with other parameters is a range exception.
  Lum::Ptr<ArpReplyReplicationVrfSm> arpReplyReplicationVrfSmIs(
      const L3::VrfName& name, const Wire::NamespaceName& ns,
      const Lum::Ptr<const Ip::VrfIpIntfStatus>& intfs,
      const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMacStatus,
      VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
      const Lum::Ptr<const Mlag::Status>& mlagStatus, const Lum::Ptr<const Lum::Clock>& clock) {
    return vrfSm_.is(name, ns, intfs, varpMacStatus, virtualArpSm, counter, mlagStatus, clock);
  }
  Lum::Ptr<LumVrfStatusSm> vrfStatusSm(const L3::VrfName& name) const;
  Lum::Ptr<LumVrfStatusSm> vrfStatusSmIs(const Lum::Ptr<const Ip::VrfStatusLocal>& vrf);
  void vrfStatusSmDel(const L3::VrfName& name);

  // Creates the VRF's machine when the VRF is live (see above), or deletes it.
  void handleVrfIpIntfStatus(const L3::VrfName& name);
  void handleVrfIpIntfStatus();
  void doCreateVrfSm(const L3::VrfName& name);
  void doDeleteVrfSm(const L3::VrfName& name);
  void doPrepareToDie() override;

 private:
  void handleInitialized();
  void handleVrf(const L3::VrfName& name);
  void syncVrfStatusSm();

  Lum::Ptr<const Ip::Status> ipStatus_;
  Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> varpMacStatus_;
  VirtualArpSm* virtualArpSm_;
  Lum::Ptr<VxlanAgentCounter> counter_;
  Lum::Ptr<const Ip::AllVrfStatusLocal> allVrfStatus_;
  Lum::Ptr<const Mlag::Status> mlagStatus_;
  bool initialized_ = false;
  Lum::Nested<LumIpStatus> ipStatusReactor_{this};
  Lum::Nested<LumAllVrfStatus> allVrfStatusReactor_{this};
  Lum::Nested<LumClock> clock_{this};
  // Last, so that the machines go first.
  Lum::Collection<ArpReplyReplicationSm, ArpReplyReplicationVrfSm, L3::VrfName, L3::VrfName,
                  Wire::NamespaceName, Lum::Ptr<const Ip::VrfIpIntfStatus>,
                  Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>, VirtualArpSm*,
                  Lum::Ptr<VxlanAgentCounter>, Lum::Ptr<const Mlag::Status>,
                  Lum::Ptr<const Lum::Clock>>
      vrfSm_{this,
             "Vxlan::ArpReplyReplicationSm::arpReplyReplicationVrfSm",
             {"vrfName", "netNs", "vrfIpIntfStatus", "fhrpVarpMacStatus", "virtualArpSm",
              "vxAgentCounter", "mlagStatus", "clock"}};
  Lum::Collection<ArpReplyReplicationSm, LumVrfStatusSm, L3::VrfName,
                  Lum::Ptr<const Ip::VrfStatusLocal>>
      vrfStatusSm_{this, "Vxlan::ArpReplyReplicationSm::vrfStatusSm", {"vrfStatusSm"}};
};

// The per-VRF state follower: the VRF's state creates or deletes its machine.
class ArpReplyReplicationSm::LumVrfStatusSm : public Ip::VrfStatusLocal::NotifieeConst {
 public:
  LumVrfStatusSm(const Lum::Ptr<const Ip::VrfStatusLocal>& vrf, ArpReplyReplicationSm* owner);
  static L3::VrfName lumKeyOf(const Lum::Ptr<const Ip::VrfStatusLocal>& v) { return v->vrf(); }
  void parentIs(ArpReplyReplicationSm* owner) { owner_ = owner; }
  bool initialized() const { return initialized_; }

  void handleInitialized();
  void onState() override { handleVrfStatus(); }
  void onNetworkNamespace() override { handleVrfStatus(); }
  void doPrepareToDie() override;

 private:
  void handleVrfStatus();

  ArpReplyReplicationSm* owner_;
  L3::VrfName vrfName_;
  bool initialized_ = false;
};

// Builds the machine from its parameters, in their order (how the agent makes it).
Lum::Ptr<ArpReplyReplicationSm> arpReplyReplicationSmFactory(
    const Lum::Ptr<const Ip::Status>& ipStatus,
    const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& varpMacStatus,
    VirtualArpSm* virtualArpSm, const Lum::Ptr<VxlanAgentCounter>& counter,
    const Lum::Ptr<const Ip::AllVrfStatusLocal>& allVrfStatus,
    const Lum::Ptr<const Mlag::Status>& mlagStatus, const Lum::Ptr<const Lum::Clock>& clock);

}  // namespace Vxlan
