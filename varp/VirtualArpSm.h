// Vxlan::VirtualArpSm: virtual ARP. Per VTI and per VRF it will classify ARP that
// arrives inside VXLAN, answer for the switch's own and virtual addresses, write the
// kernel neighbor table and keep the MLAG peer in step.
//
// What exists so far is the machine with its inputs and the clearing of the virtual
// ARP counter table that the command channel asks of it; the per-VTI and per-VRF
// machines are still to come.
#pragma once

#include "agent/VxlanAgentCounter.h"
#include "platform/kernel/KernelNetworkInfoManager.h"
#include "platform/loop/Clock.h"
#include "platform/status/StatusModel.h"
#include "platform/status/interface/KernelNetworkInfo.h"

namespace Vxlan {

class VirtualArpSm : public Lum::VFPtrInterface {
 public:
  // The constructor's inputs, in order. The kernel watcher may be empty at
  // construction: the agent builds it last.
  struct Inputs {
    Lum::Ptr<const Bridging::Config> bridgingConfig;
    Lum::Ptr<const Ip::Status> ipStatusDir;
    Lum::Ptr<Routing::Fhrp::StatusV4> fhrpStatus;
    Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVarpMacStatus;
    Lum::Ptr<VtiStatusDir> vtiStatusDir;
    Lum::Ptr<VxlanHwStatusDir> vxHwStatusDir;
    Lum::Ptr<VniToVlanMaps> vniToVlanMaps;
    Lum::Ptr<const Mlag::Config> mlagConfig;
    Lum::Ptr<const Mlag::Status> mlagStatus;
    Lum::Ptr<KernelNetworkInfo::Root> kernelNetworkInfoRoot;
    Lum::Ptr<KernelNetworkInfo::Manager> kernelNetworkInfoManager;
    Lum::Ptr<const BumStatus> vxBumStatus;
    Lum::Ptr<VxlanAgentCounter> vxAgentCounter;
    Lum::Ptr<const Bridging::HwCapabilities> bridgingHwCapabilities;
    Lum::Ptr<const Ip::AllVrfStatusLocal> allVrfStatus;
    Lum::Ptr<VxlanStatusDir> vxStatusDir;
    Lum::Ptr<Lum::Clock> clock;
    Lum::Ptr<VarpIpMacTableCol> l2rVarpIpMacTableCol;
    bool operator==(const Inputs&) const = default;
  };

  explicit VirtualArpSm(const Inputs& inputs) : inputs_(inputs) {}
  const Inputs& inputs() const { return inputs_; }

  // Writes every id of the virtual ARP counter table with count 0.
  void clearVarpCounters() {
    if (inputs_.vxAgentCounter) inputs_.vxAgentCounter->varpCounterClearAll();
  }

 private:
  Inputs inputs_;
};

}  // namespace Vxlan
