// Vxlan::VirtualArpSm: virtual ARP. Per VTI (LumVtiStatusSm, VarpVtiStatusSm.h) it
// classifies ARP that arrives inside VXLAN, answers for the switch's own and virtual
// addresses, hands the rest to the local switch, writes the kernel neighbor table and
// keeps the MLAG peer in step; per VRF (LumVrfStatusSm, VarpVrfStatusSm.h) it keeps the
// neighbor socket and kernel view of the VRF's namespace (VrfInfo). The manager here
// follows the VTIs, the VRFs and the kernel's "vxlan" device, keeps the pending lists
// of rewritten requests with their review on the clock, and clears the virtual ARP
// counter table when the command channel asks.
//
// The review. The first list arms the clock for one review interval (1 s) later; each
// review subtracts the whole seconds since the last one (the interval for the first,
// and a millisecond of grace so a review that fires a little early still counts a
// second) from every list's timeLeft, removes the lists whose time is up, and re-arms
// while any list is left. A list whose timeLeft is 0 never ages.
#pragma once

#include <map>

#include "agent/VxlanAgentCounter.h"
#include "platform/core/Collection.h"
#include "platform/core/Reactor.h"
#include "platform/kernel/KernelNetworkInfoManager.h"
#include "platform/loop/Clock.h"
#include "platform/status/StatusModel.h"
#include "platform/status/interface/KernelNetworkInfo.h"
#include "platform/wire/Pkt.h"
#include "varp/ArpRewritePendingList.h"
#include "varp/VrfInfo.h"

namespace Vxlan {

class VirtualArpSm : public Lum::ReactorBase {
 public:
  class LumVtiStatusSm;
  class LumVrfStatusSm;
  class LumClock : public Lum::NestedReactor<VirtualArpSm, Lum::Clock::NotifieeConst> {
   public:
    void onTime() override { s()->runArpRewriteAging(); }
  };
  // One machine per VTI and one per VRF, following their directories.
  class LumVtiStatusDir : public Lum::NestedReactor<VirtualArpSm, VtiStatusDir::NotifieeConst> {
   public:
    void onVtiStatus(const Wire::IntfId& id) override { s()->handleVtiStatus(id); }
    void onVtiStatus() override { s()->syncVtiStatusSm(); }
    void onNotifier() override { s()->syncVtiStatusSm(); }
  };
  class LumAllVrfStatus
      : public Lum::NestedReactor<VirtualArpSm, Ip::AllVrfStatusLocal::NotifieeConst> {
   public:
    void onVrf(const L3::VrfName& name) override { s()->handleVrf(name); }
    void onVrf() override { s()->syncVrfStatusSm(); }
    void onNotifier() override { s()->syncVrfStatusSm(); }
  };
  // The kernel's "vxlan": the receive PAMs follow it.
  class LumKernelNetworkInfoRoot
      : public Lum::NestedReactor<VirtualArpSm, KernelNetworkInfo::Root::NotifieeConst> {
   public:
    void onInterfaceByName(const Lum::String8& name) override { s()->handleKernelDevice(name); }
    void onNotifier() override { s()->handleKernelDevice(); }
  };

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

  // The device on which the forwarding plane hands up ARP from the overlay.
  static constexpr const char* kVxlanDevice = "vxlan";
  // How long a neighbor write waits for the kernel's answer.
  static constexpr int kNetlinkReplyWaitSeconds = 2;

  explicit VirtualArpSm(const Inputs& inputs);
  const Inputs& inputs() const { return inputs_; }
  bool initialized() const { return initialized_; }

  // Writes every id of the virtual ARP counter table with count 0.
  void clearVarpCounters() {
    if (inputs_.vxAgentCounter) inputs_.vxAgentCounter->varpCounterClearAll();
  }

  // The pending lists, by (VNI, target address).
  Lum::Ptr<ArpRewritePendingList> arpRewritePendingList(const VniIpPairV2& key) const;
  // Finds or creates; a second call with the same key changes nothing.
  Lum::Ptr<ArpRewritePendingList> arpRewritePendingListIs(const VniIpPairV2& key);
  void arpRewritePendingListDel(const VniIpPairV2& key) { pending_.erase(key); }
  void arpRewritePendingListDelAll() { pending_.clear(); }
  size_t arpRewritePendingListSize() const { return pending_.size(); }
  // Every list, for the operator's view (VarpShow).
  const std::map<VniIpPairV2, Lum::Ptr<ArpRewritePendingList>>& arpRewritePendingLists() const {
    return pending_;
  }

  double lastProcessTime() const { return lastProcessTime_; }
  double arpAgingReviewInterval() const { return arpAgingReviewInterval_; }
  double arpAgingTimeOut() const { return arpAgingTimeOut_; }
  double timeout() const { return timeout_; }
  LumClock* clockReactor() const { return clock_.get(); }

  // One machine per VTI of the directory.
  Lum::Ptr<LumVtiStatusSm> vtiStatusSm(const Wire::IntfId& id) const;
  Lum::Ptr<LumVtiStatusSm> vtiStatusSmIs(const Lum::Ptr<const VtiStatus>& status);
  void vtiStatusSmDel(const Wire::IntfId& id);
  size_t vtiStatusSmSize() const;
  auto vtiStatusSmIterator() const { return vtiStatusSm_.iterator(); }
  // One machine per VRF of the IP agent's directory.
  Lum::Ptr<LumVrfStatusSm> vrfStatusSm(const L3::VrfName& name) const;
  // The kernel device `name` came or went; only "vxlan" matters here.
  void handleKernelDevice(const Lum::String8& name);
  void handleKernelDevice();

  // What is kept per VRF, by name; "default" from the start.
  Lum::Ptr<VrfInfo> vrfInfo(const L3::VrfName& name) const;
  Lum::Ptr<VrfInfo> vrfInfoIs(const L3::VrfName& name,
                              const Lum::Ptr<KernelNetworkInfo::Root>& root,
                              const Lum::Ptr<KernelNetworkInfo::Manager>& manager,
                              int netlinkSocket);
  void vrfInfoDel(const L3::VrfName& name) { vrfInfo_.erase(name); }
  void vrfInfoDelAll() { vrfInfo_.clear(); }
  const std::map<L3::VrfName, Lum::Ptr<VrfInfo>>& vrfInfos() const { return vrfInfo_; }
  // The VRF of the VLAN's IP interface ("Vlan<id>"), "default" when it has none.
  L3::VrfName getVrfNameFromVlanId(Bridging::VlanIdOrNone vlan) const;
  // The kernel's device `devName` in the VRF's namespace, or none.
  Lum::Ptr<KernelNetworkInfo::Interface> getKernelIntfInVrf(const L3::VrfName& vrf,
                                                            const Lum::String8& devName) const;

  // A request (opcode 1) in VXLAN, `vxlanHdr` pointing at its VXLAN header with the
  // inner Ethernet header and ARP behind it: when the controller's tables know its
  // sender under another MAC, the sender MAC goes on the pending list of (VNI, target)
  // and the frame's inner source and ARP sender MACs become the virtual router MAC.
  void checkAndRewriteVxlanArpRequest(const Lum::Ptr<Wire::Pkt>& pkt, uint8_t* vxlanHdr);
  // Arms the review unless it is armed already or has only just run.
  void doScheduleReview();
  // The review: the clock's reaction.
  void runArpRewriteAging();

  // At deletion: the machines, the lists (and with them any review) and the VRFs'
  // sockets go.
  void doPrepareToDie() override;

 private:
  void handleInitialized();
  void handleVtiStatus(const Wire::IntfId& id);
  void syncVtiStatusSm();
  void handleVrf(const L3::VrfName& name);
  void syncVrfStatusSm();
  void varpCounterInc(VarpCounterId id) const {
    if (inputs_.vxAgentCounter) inputs_.vxAgentCounter->varpCounterAdd(id);
  }

  Inputs inputs_;
  double timeout_ = 50.0;
  double lastProcessTime_ = 0.0;
  double arpAgingReviewInterval_ = 1.0;
  double arpAgingTimeOut_ = ArpRewritePendingList::kDefaultTimeLeft;
  bool initialized_ = false;
  std::map<VniIpPairV2, Lum::Ptr<ArpRewritePendingList>> pending_;
  std::map<L3::VrfName, Lum::Ptr<VrfInfo>> vrfInfo_;
  Lum::Nested<LumClock> clock_{this};
  Lum::Nested<LumVtiStatusDir> vtiStatusDir_{this};
  Lum::Nested<LumAllVrfStatus> allVrfStatus_{this};
  Lum::Nested<LumKernelNetworkInfoRoot> kernelNetworkInfoRoot_{this};
  // Last, so that the machines go first and still find the rest while they die.
  Lum::Collection<VirtualArpSm, LumVrfStatusSm, L3::VrfName, Lum::Ptr<const Ip::VrfStatusLocal>>
      vrfStatusSm_{this, "Vxlan::VirtualArpSm::vrfStatusSm", {"vrfStatus"}};
  Lum::Collection<VirtualArpSm, LumVtiStatusSm, Wire::IntfId, Lum::Ptr<const VtiStatus>>
      vtiStatusSm_{this, "Vxlan::VirtualArpSm::vtiStatusSm", {"vtiStatus"}};
};

// Builds the machine from its inputs, in their order (how the agent makes it).
inline Lum::Ptr<VirtualArpSm> virtualArpSmFactory(const VirtualArpSm::Inputs& inputs) {
  return Lum::validPtr(Lum::Ptr<VirtualArpSm>(new VirtualArpSm(inputs)));
}

}  // namespace Vxlan

// The nested machine, complete wherever the manager is.
#include "varp/VarpVrfStatusSm.h"
#include "varp/VarpVtiStatusSm.h"
