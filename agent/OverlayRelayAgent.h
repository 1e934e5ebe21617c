// Vxlan::OverlayRelayAgent::OverlayRelayAgent: the agent object that the agent host
// builds by name.
//
// It holds no forwarding logic. doInit() raises the descriptor limit, switches the
// activity manager to epoll, opens the trace ring and declares every piece of shared
// state the system reads or writes as one group of seventeen mounts. When the group
// has mounted, doMountsComplete() fetches the entities, mounts the counter table in
// shared memory, creates the local entities ("kni", "vniToVlanMaps",
// "OverlayRelayAgentCol") and builds, in this order, the local-to-remote forwarder,
// the remote-to-local forwarder, virtual ARP, the command channel and last the kernel
// interface watcher, so that every state machine exists before the first kernel
// interface is entered. doCleanup() deletes the working state machines; the
// destructor deletes the rest.
#pragma once

#include <sys/resource.h>

#include "agent/VxlanAgentCounter.h"
#include "forwarding/Local2RemoteForwarderSm.h"
#include "forwarding/Remote2LocalForwarderSm.h"
#include "platform/core/Dir.h"
#include "platform/core/Instance.h"
#include "platform/kernel/KernelNetworkInfoManager.h"
#include "platform/statehub/AgentBase.h"
#include "platform/statehub/AgentCommand.h"
#include "platform/status/StatusModel.h"
#include "platform/status/interface/KernelNetworkInfo.h"
#include "varp/ArpReplyReplicationSm.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan::OverlayRelayAgent {

class OverlayRelayAgent : public AgentBase::CAgent {
 public:
  // The command callback of the type "vxlan": clears the counter tables.
  class VxCliCallback : public Agent::AgentCommandCallback {
   public:
    VxCliCallback(const Lum::String8& commandType, OverlayRelayAgent* agent);
    OverlayRelayAgent* vxAgent() const { return vxAgent_; }
    void handleCommand(uint32_t socket, const Lum::String8& command) override;

   private:
    OverlayRelayAgent* vxAgent_;
  };

  // Attribute ids, in declaration order.
  enum : int {
    kIpStatusDir = CAgent::kAttrEnd,
    kFhrpStatus,
    kFhrpVarpMacStatus,
    kVtiStatusDir,
    kVxHwStatusDir,
    kKernelNetworkInfoRoot,
    kKernelNetworkInfoManager,
    kMlagConfig,
    kMlagStatus,
    kBridgingConfig,
    kIntfStatusDir,
    kVxAgentCounter,
    kVniToVlanMaps,
    kVtepStatusDirV2,
    kBridgingHwCapabilities,
    kAllVrfStatus,
    kVxStatusDir,
    kIgmpConfig,
    kPimConfig,
    kVirtualArpSm,
    kArpReplyReplicationSm,
    kLocal2RemoteForwarderSm,
    kRemote2LocalForwarderSm,
    kCliRequestDir,
    kCliRequestStatus,
    kCliRequestDirSm,
    kVxCliCallback,
    kL2rVarpIpMacTableCol,
    kMountsComplete,
    kAttrEnd
  };
  static constexpr rlim_t kFileLimit = 5120;

  explicit OverlayRelayAgent(const Lum::Name& name);
  ~OverlayRelayAgent() override;

  void doInit() override;
  void doMountsComplete(Statehub::MountStatus status, Statehub::EntityManager& em) override;
  void doCleanup();

  // References fetched from the state database.
  const Lum::Ptr<const Ip::Status>& ipStatusDir() const { return ipStatusDir_; }
  const Lum::Ptr<Routing::Fhrp::StatusV4>& fhrpStatus() const { return fhrpStatus_; }
  const Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& fhrpVarpMacStatus() const {
    return fhrpVarpMacStatus_;
  }
  const Lum::Ptr<VtiStatusDir>& vtiStatusDir() const { return vtiStatusDir_; }
  const Lum::Ptr<VxlanHwStatusDir>& vxHwStatusDir() const { return vxHwStatusDir_; }
  const Lum::Ptr<const Mlag::Config>& mlagConfig() const { return mlagConfig_; }
  const Lum::Ptr<const Mlag::Status>& mlagStatus() const { return mlagStatus_; }
  const Lum::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  const Lum::Ptr<const Interface::EthIntfStatusDir>& intfStatusDir() const {
    return intfStatusDir_;
  }
  const Lum::Ptr<VxlanAgentCounter>& vxAgentCounter() const { return vxAgentCounter_; }
  const Lum::Ptr<VxlanController::VtepStatusDirV2>& vtepStatusDirV2() const {
    return vtepStatusDirV2_;
  }
  const Lum::Ptr<const Bridging::HwCapabilities>& bridgingHwCapabilities() const {
    return bridgingHwCapabilities_;
  }
  const Lum::Ptr<const Ip::AllVrfStatusLocal>& allVrfStatus() const { return allVrfStatus_; }
  const Lum::Ptr<VxlanStatusDir>& vxStatusDir() const { return vxStatusDir_; }
  const Lum::Ptr<Routing::Igmp::Application::Config>& igmpConfig() const { return igmpConfig_; }
  const Lum::Ptr<Routing::Pim::Application::Config>& pimConfig() const { return pimConfig_; }
  const Lum::Ptr<Lum::Dir>& cliRequestDir() const { return cliRequestDir_; }
  const Lum::Ptr<Agent::AgentCommandRequestStatus>& cliRequestStatus() const {
    return cliRequestStatus_;
  }
  bool mountsComplete() const { return mountsComplete_; }
  void mountsCompleteIs(bool v) { mountsComplete_ = v; }

  // Owned objects.
  KernelNetworkInfo::Root* kernelNetworkInfoRoot() const { return kernelNetworkInfoRoot_.get(); }
  KernelNetworkInfo::Manager* kernelNetworkInfoManager() const {
    return kernelNetworkInfoManager_.get();
  }
  VniToVlanMaps* vniToVlanMaps() const { return vniToVlanMaps_.get(); }
  VirtualArpSm* virtualArpSm() const { return virtualArpSm_.get(); }
  ArpReplyReplicationSm* arpReplyReplicationSm() const { return arpReplyReplicationSm_.get(); }
  Local2RemoteForwarderSm* local2RemoteForwarderSm() const {
    return local2RemoteForwarderSm_.get();
  }
  Remote2LocalForwarderSm* remote2LocalForwarderSm() const {
    return remote2LocalForwarderSm_.get();
  }
  Agent::AgentCommandRequestDirSm* cliRequestDirSm() const { return cliRequestDirSm_.get(); }
  VxCliCallback* vxCliCallback() const { return vxCliCallback_.get(); }
  VarpIpMacTableCol* l2rVarpIpMacTableCol() const { return l2rVarpIpMacTableCol_.get(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  template <class T>
  Lum::Ptr<T> fetch(Statehub::EntityManager& em, std::string_view path);
  // The operator's questions (show, trace packet) registered with the entity manager.
  void registerQueries(Statehub::EntityManager& em);
  void forgetQueries();

  Lum::Ptr<const Ip::Status> ipStatusDir_;
  Lum::Ptr<Routing::Fhrp::StatusV4> fhrpStatus_;
  Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVarpMacStatus_;
  Lum::Ptr<VtiStatusDir> vtiStatusDir_;
  Lum::Ptr<VxlanHwStatusDir> vxHwStatusDir_;
  Lum::Instance<KernelNetworkInfo::Root, Lum::Name> kernelNetworkInfoRoot_;
  Lum::Instance<KernelNetworkInfo::Manager, Lum::Ptr<Lum::ActivityConfig>,
                Lum::Ptr<KernelNetworkInfo::Root>, Wire::NamespaceName>
      kernelNetworkInfoManager_;
  Lum::Ptr<const Mlag::Config> mlagConfig_;
  Lum::Ptr<const Mlag::Status> mlagStatus_;
  Lum::Ptr<const Bridging::Config> bridgingConfig_;
  Lum::Ptr<const Interface::EthIntfStatusDir> intfStatusDir_;
  Lum::Ptr<VxlanAgentCounter> vxAgentCounter_;
  Lum::Instance<VniToVlanMaps, Lum::Name> vniToVlanMaps_;
  Lum::Ptr<VxlanController::VtepStatusDirV2> vtepStatusDirV2_;
  Lum::Ptr<const Bridging::HwCapabilities> bridgingHwCapabilities_;
  Lum::Ptr<const Ip::AllVrfStatusLocal> allVrfStatus_;
  Lum::Ptr<VxlanStatusDir> vxStatusDir_;
  Lum::Ptr<Routing::Igmp::Application::Config> igmpConfig_;
  Lum::Ptr<Routing::Pim::Application::Config> pimConfig_;
  Lum::Instance<VirtualArpSm, VirtualArpSm::Inputs> virtualArpSm_;
  Lum::Instance<ArpReplyReplicationSm, Lum::Ptr<const Ip::Status>,
                Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>, VirtualArpSm*,
                Lum::Ptr<VxlanAgentCounter>, Lum::Ptr<const Ip::AllVrfStatusLocal>,
                Lum::Ptr<const Mlag::Status>, Lum::Ptr<const Lum::Clock>>
      arpReplyReplicationSm_;
  Lum::Instance<Local2RemoteForwarderSm, Local2RemoteForwarderSm::Inputs> local2RemoteForwarderSm_;
  Lum::Instance<Remote2LocalForwarderSm, Remote2LocalForwarderSm::Inputs> remote2LocalForwarderSm_;
  Lum::Ptr<Lum::Dir> cliRequestDir_;
  Lum::Ptr<Agent::AgentCommandRequestStatus> cliRequestStatus_;
  Lum::Instance<Agent::AgentCommandRequestDirSm, Lum::Ptr<Lum::ActivityConfig>, Lum::Ptr<Lum::Dir>>
      cliRequestDirSm_;
  Lum::Instance<VxCliCallback, Lum::String8, OverlayRelayAgent*> vxCliCallback_;
  Lum::Instance<VarpIpMacTableCol, Lum::Name> l2rVarpIpMacTableCol_;
  bool mountsComplete_ = false;
};

}  // namespace Vxlan::OverlayRelayAgent

// The factory that the host finds the agent by.
Lum::Ptr<Vxlan::OverlayRelayAgent::OverlayRelayAgent> overlayRelayAgentFactory(
    const Lum::Name& name);
