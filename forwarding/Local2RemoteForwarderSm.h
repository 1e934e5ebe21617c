// Vxlan::Local2RemoteForwarderSm: the local-to-remote direction. Per VXLAN tunnel
// interface it will take frames from the forwarding plane, choose their remote VTEPs,
// encapsulate and send them.
//
// What exists so far is the manager with its inputs and the clearing of the VXLAN
// counter table that the command channel asks of it; the per-VTI machines and the
// frame path are still to come.
#pragma once

#include "agent/VxlanAgentCounter.h"
#include "platform/status/StatusModel.h"
#include "platform/status/interface/KernelNetworkInfo.h"

namespace Vxlan {

class Local2RemoteForwarderSm : public Lum::VFPtrInterface {
 public:
  // The constructor's inputs, in order.
  struct Inputs {
    Lum::Ptr<VtiStatusDir> vtiStatusDir;
    Lum::Ptr<VxlanHwStatusDir> vxHwStatusDir;
    Lum::Ptr<const BumStatus> vxBumStatus;
    Lum::Ptr<Routing::Fhrp::StatusV4> fhrpStatus;
    Lum::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVarpMacStatus;
    Lum::Ptr<const KernelNetworkInfo::Root> kernelNetInfoRoot;
    Lum::Ptr<const Mlag::Status> mlagStatus;
    Lum::Ptr<const Bridging::Config> bridgingConfig;
    Lum::Ptr<const Interface::EthIntfStatusDir> intfStatusDir;
    Lum::Ptr<VxlanAgentCounter> vxAgentCounter;
    Lum::Ptr<VxlanController::VtepStatusDirV2> vtepStatusDirV2;
    Lum::Ptr<VxlanStatusDir> vxStatusDir;
    Lum::Ptr<const Ip::Status> ipStatusDir;
    Lum::Ptr<VarpIpMacTableCol> l2rVarpIpMacTableCol;
    bool operator==(const Inputs&) const = default;
  };

  explicit Local2RemoteForwarderSm(const Inputs& inputs) : inputs_(inputs) {}
  const Inputs& inputs() const { return inputs_; }

  // Writes every id of the VXLAN counter table with count 0.
  void clearVxlanCounters() {
    if (inputs_.vxAgentCounter) inputs_.vxAgentCounter->vxlanCounterClearAll();
  }

 private:
  Inputs inputs_;
};

}  // namespace Vxlan
