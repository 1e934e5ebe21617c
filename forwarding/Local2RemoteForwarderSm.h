// Vxlan::Local2RemoteForwarderSm: the local-to-remote direction. Per VXLAN tunnel
// interface a LumVtiStatusSm reads the frames that the forwarding plane hands to the
// agent on the device "vxlan" (two packet sockets: high and low priority), takes the
// user frame out of each, writes the outer IPv4, UDP and VXLAN headers in front of it
// in place and sends it by raw IPv4 socket to each remote VTEP that the flood lists,
// the learned hosts or the multicast group name for it. Frames flagged for ARP are
// also copied to the switch's ARP resolver.
//
// Use: build the manager with its Inputs; it follows the tunnel interface directory
// (one LumVtiStatusSm per VTI: vtiStatusSm(intfId)) and the VXLAN status directory (one
// VxStatusSm per VTI, which mirrors the controller's virtual IP and MAC tables into
// l2rVarpIpMacTableCol for the ARP code). A machine opens its six sockets while its
// interface is up and closes them when it goes down, is deleted, or "vxlan" goes away.
//
// The frame path runs inside the readable notifications of the local sockets, on the
// agent's one event loop, for at most a time budget per run (0.1 s high, 0.05 s low):
// a high-priority run that outruns its budget makes the low socket's next events
// serve the high socket until it is drained. A frame is read once into one buffer on
// the stack and encapsulated in place by L2R::encapFrame; a dropped frame leaves
// through one exit that traces and counts.
//
// The class family is spread over files by concern: Local2RemoteForwarderSm.cpp (the
// manager and the per-VTI lifecycle), L2RFrameLoop.cpp (the frame loop, its drop exit
// and the ARP resolver copy), L2RDestinations.cpp, L2RSockets.cpp, L2RArp.cpp,
// L2RAccessPorts.cpp and L2RVarpTables.cpp (VxStatusSm, in L2RVxStatusSm.h); the
// per-frame function is L2RFramePath.h.
#pragma once

#include <cstdint>

#include "agent/VxlanAgentCounter.h"
#include "forwarding/L2RFramePath.h"
#include "platform/core/Instance.h"
#include "platform/core/Reactor.h"
#include "platform/loop/FileDescriptor.h"
#include "platform/os/SysCalls.h"
#include "platform/status/StatusModel.h"
#include "platform/status/interface/KernelNetworkInfo.h"

namespace Vxlan {

class Local2RemoteForwarderSm : public VtiStatusDir::NotifieeConst {
 public:
  class LumVtiStatusSm;
  class VxStatusSm;

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

  // The name of the ARP inspection socket; the inspecting process sends to it, so it is
  // part of the switch's vocabulary and stays as it stands.
  static constexpr const char* kVxlanUnixDomainName = "VeltraVxlanArpInspect";

  // Reactors on the inputs that hold their entity for the per-VTI machines; the VTI
  // and VXLAN status directories are followed (the manager itself and LumVxStatusDir).
  template <class N>
  class Holder : public Lum::NestedReactor<Local2RemoteForwarderSm, N> {};
  class LumVxStatusDir
      : public Lum::NestedReactor<Local2RemoteForwarderSm, VxlanStatusDir::NotifieeConst> {
   public:
    void onVxlanStatus(const Wire::IntfId& id) override { s()->handleVxlanStatus(id); }
    void onVxlanStatus() override { s()->syncVxStatus(); }
    void onNotifier() override { s()->syncVxStatus(); }
  };

  // Builds one machine per status of each directory (none without a directory).
  explicit Local2RemoteForwarderSm(const Inputs& inputs);
  ~Local2RemoteForwarderSm() override;

  const Inputs& inputs() const { return inputs_; }
  const char* vxlanUnixDomainName() const { return kVxlanUnixDomainName; }
  VxlanAgentCounter* vxAgentCounter() const { return inputs_.vxAgentCounter.ptr(); }

  // Writes every id of the VXLAN counter table with count 0.
  void clearVxlanCounters() {
    if (inputs_.vxAgentCounter) inputs_.vxAgentCounter->vxlanCounterClearAll();
  }

  // The machines, one per VTI of the directory.
  Lum::Ptr<LumVtiStatusSm> vtiStatusSm(const Wire::IntfId& id) const;
  size_t vtiStatusSmSize() const;
  Lum::Ptr<LumVtiStatusSm> vtiStatusSmIs(const Lum::Ptr<const VtiStatus>& status);
  Lum::Ptr<LumVtiStatusSm> vtiStatusSmDel(const Wire::IntfId& id);
  // One mirror of the virtual IP and MAC tables per VXLAN status.
  Lum::Ptr<VxStatusSm> vxStatus(const Wire::IntfId& id) const;
  Lum::Ptr<VxStatusSm> vxStatusIs(const Lum::Ptr<const VxlanStatus>& status);
  Lum::Ptr<VxStatusSm> vxStatusDel(const Wire::IntfId& id);

  void onVtiStatus(const Wire::IntfId& id) override;
  void onVtiStatus() override { syncVtiStatusSm(); }

 protected:
  void onNotifier() override { syncVtiStatusSm(); }

 private:
  void syncVtiStatusSm();
  void handleVxlanStatus(const Wire::IntfId& id);
  void syncVxStatus();

  Inputs inputs_;
  Lum::Nested<Holder<VxlanHwStatusDir::NotifieeConst>> vxHwStatusDir_{this};
  Lum::Nested<Holder<BumStatus::NotifieeConst>> vxBumStatus_{this};
  Lum::Nested<Holder<Routing::Fhrp::VirtualRouterMacStatus::NotifieeConst>> fhrpVarpMacStatus_{
      this};
  Lum::Nested<Holder<KernelNetworkInfo::Root::NotifieeConst>> kernelNetInfoRoot_{this};
  Lum::Nested<Holder<Mlag::Status::NotifieeConst>> mlagStatus_{this};
  Lum::Nested<Holder<Bridging::Config::NotifieeConst>> bridgingConfig_{this};
  Lum::Nested<Holder<Interface::EthIntfStatusDir::NotifieeConst>> intfStatusDir_{this};
  Lum::Nested<Holder<VxlanController::VtepStatusDirV2::NotifieeConst>> vtepStatusDir_{this};
  Lum::Nested<LumVxStatusDir> vxStatusDir_{this};
  // Last, so that the machines go first and still find the inputs while they die.
  Lum::Collection<Local2RemoteForwarderSm, VxStatusSm, Wire::IntfId, Lum::Ptr<const VxlanStatus>>
      vxStatus_{this, "Vxlan::Local2RemoteForwarderSm::vxStatus", {"vxlanStatus"}};
  Lum::Collection<Local2RemoteForwarderSm, LumVtiStatusSm, Wire::IntfId, Lum::Ptr<const VtiStatus>>
      vtiStatusSm_{this, "Vxlan::Local2RemoteForwarderSm::vtiStatusSm", {"vtiStatus"}};
};

}  // namespace Vxlan

// The nested machines, complete wherever the manager is.
#include "forwarding/L2RVtiStatusSm.h"
#include "forwarding/L2RVxStatusSm.h"
