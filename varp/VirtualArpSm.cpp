#include "varp/VirtualArpSm.h"

#include <cmath>
#include <limits>

#include "forwarding/L2RVxStatusSm.h"
#include "frames/EthArpIpHdr.h"
#include "frames/EthHdr.h"
#include "frames/VxlanHdr.h"
#include "platform/core/Reconcile.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/RingLog.h"
#include "platform/wire/NetlinkSocket.h"
#include "varp/VarpSettings.h"
#include "varp/VarpTrace.h"

#define VARPSM_TRACE(level, message) \
  LUM_TRACE(::Vxlan::varpTrace, level, "VirtualArpSm::" << LUM_TRACE_FUNCTION << message)

namespace Vxlan {

namespace {

// Where the inner Ethernet header and its ARP lie behind the VXLAN header.
constexpr uint32_t kInnerEthOffset = Wire::kVxlanHdrLen;
constexpr uint32_t kArpOffset = kInnerEthOffset + Wire::kEthHdrLen;

// The answers of ipPortTableVarpMacLookup.
enum : int { kNoEntry = 0, kOtherMac = 1, kSameMac = 2 };

}  // namespace

VirtualArpSm::VirtualArpSm(const Inputs& inputs) : inputs_(inputs) {
  if (inputs_.clock) clock_.is(Lum::Ptr<const Lum::Clock>(inputs_.clock));
  // The reactors' first look at their notifiers builds one machine per VTI and VRF.
  vtiStatusDir_.is(Lum::Ptr<const VtiStatusDir>(inputs_.vtiStatusDir));
  allVrfStatus_.is(inputs_.allVrfStatus);
  handleInitialized();
  kernelNetworkInfoRoot_.is(Lum::Ptr<const KernelNetworkInfo::Root>(inputs_.kernelNetworkInfoRoot));
}

void VirtualArpSm::handleVtiStatus(const Wire::IntfId& id) {
  const VtiStatusDir* dir = inputs_.vtiStatusDir.ptr();
  Lum::reconcileKey(vtiStatusSm_, id, dir ? dir->vtiStatus(id) : nullptr);
}

void VirtualArpSm::syncVtiStatusSm() {
  if (const Lum::Ptr<VtiStatusDir>& dir = inputs_.vtiStatusDir) {
    Lum::reconcileAll(vtiStatusSm_, dir->vtiStatusIterator(),
                      [&dir](const Wire::IntfId& id) { return dir->vtiStatus(id); });
  }
}

void VirtualArpSm::handleVrf(const L3::VrfName& name) {
  const Ip::AllVrfStatusLocal* all = inputs_.allVrfStatus.ptr();
  Lum::reconcileKey(vrfStatusSm_, name, all ? all->vrf(name) : nullptr);
}

void VirtualArpSm::syncVrfStatusSm() {
  if (const Lum::Ptr<const Ip::AllVrfStatusLocal>& all = inputs_.allVrfStatus) {
    Lum::reconcileAll(vrfStatusSm_, all->vrfIterator(),
                      [&all](const L3::VrfName& name) { return all->vrf(name); });
  }
}

Lum::Ptr<VirtualArpSm::LumVrfStatusSm> VirtualArpSm::vrfStatusSm(const L3::VrfName& name) const {
  return vrfStatusSm_(name);
}

void VirtualArpSm::handleKernelDevice() {
  handleKernelDevice(Lum::String8(kVxlanDevice));
}

void VirtualArpSm::handleKernelDevice(const Lum::String8& name) {
  const KernelNetworkInfo::Root* root = inputs_.kernelNetworkInfoRoot.ptr();
  const Lum::Ptr<KernelNetworkInfo::Interface> intf = root ? root->interfaceByName(name) : nullptr;
  VARPSM_TRACE(7, " " << name << (intf ? " created" : " deleted"));
  if (name.view() != kVxlanDevice) return;
  if (intf) {
    VARPSM_TRACE(5, " dev " << name << " created. ifindex: " << intf->ifindex().value()
                            << " flags:" << intf->flags());
  } else {
    VARPSM_TRACE(5, " dev: " << name << " deleted");
  }
  for (auto it = vtiStatusSm_.iterator(); it; ++it) {
    if (!intf) {
      it->vxlanArpRxPamEnabledIs(false);
    } else if (it->operUp()) {
      it->vxlanArpRxPamEnabledIs(true);
    }
  }
}

void VirtualArpSm::handleInitialized() {
  initialized_ = true;
  // The default VRF's table is written through a socket in the agent's own namespace
  // and read through the agent's own kernel watcher.
  int sock = -1;
  try {
    Wire::createNetlinkSocket(sock, 0, "default", kNetlinkReplyWaitSeconds, true);
  } catch (const Lum::ErrnoException& e) {
    // Without it every neighbor write fails and is counted; the rest of the agent runs.
    VARPSM_TRACE(0, " no neighbor socket: " << e.what());
  }
  vrfInfoIs(Ip::Status::defaultVrf(), inputs_.kernelNetworkInfoRoot,
            inputs_.kernelNetworkInfoManager, sock);
}

void VirtualArpSm::doPrepareToDie() {
  vtiStatusSm_.delAll();
  vrfStatusSm_.delAll();
  arpRewritePendingListDelAll();
  vrfInfoDelAll();
  initialized_ = false;
}

Lum::Ptr<VirtualArpSm::LumVtiStatusSm> VirtualArpSm::vtiStatusSm(const Wire::IntfId& id) const {
  return vtiStatusSm_(id);
}

Lum::Ptr<VirtualArpSm::LumVtiStatusSm> VirtualArpSm::vtiStatusSmIs(
    const Lum::Ptr<const VtiStatus>& status) {
  return vtiStatusSm_.is(status);
}

void VirtualArpSm::vtiStatusSmDel(const Wire::IntfId& id) {
  vtiStatusSm_.del(id);
}

size_t VirtualArpSm::vtiStatusSmSize() const {
  return vtiStatusSm_.size();
}

Lum::Ptr<VrfInfo> VirtualArpSm::vrfInfo(const L3::VrfName& name) const {
  auto it = vrfInfo_.find(name);
  return it == vrfInfo_.end() ? nullptr : it->second;
}

Lum::Ptr<VrfInfo> VirtualArpSm::vrfInfoIs(const L3::VrfName& name,
                                          const Lum::Ptr<KernelNetworkInfo::Root>& root,
                                          const Lum::Ptr<KernelNetworkInfo::Manager>& manager,
                                          int netlinkSocket) {
  Lum::Ptr<VrfInfo>& info = vrfInfo_[name];
  info = new VrfInfo(name, root, manager, netlinkSocket);
  return info;
}

L3::VrfName VirtualArpSm::getVrfNameFromVlanId(Bridging::VlanIdOrNone vlan) const {
  if (vlan.value() == 0) Lum::throwRangeException("!!vlanId");
  L3::VrfName vrf = Ip::Status::defaultVrf();
  if (inputs_.ipStatusDir) {
    const Lum::Ptr<const Ip::IpIntfStatus> intf =
        inputs_.ipStatusDir->ipIntfStatus(Wire::VlanIntfId::intfId(Bridging::VlanId(vlan.value())));
    if (intf && !intf->vrf().empty()) vrf = intf->vrf();
  }
  VARPSM_TRACE(7, " vlan " << vlan.value() << " --> vrf " << vrf);
  return vrf;
}

Lum::Ptr<KernelNetworkInfo::Interface> VirtualArpSm::getKernelIntfInVrf(
    const L3::VrfName& vrf, const Lum::String8& devName) const {
  VARPSM_TRACE(7, " vrf " << vrf << " dev " << devName);
  const Lum::Ptr<VrfInfo> info = vrfInfo(vrf);
  if (!info || !info->kniRoot()) return nullptr;
  return info->kniRoot()->interfaceByName(devName);
}

Lum::Ptr<ArpRewritePendingList> VirtualArpSm::arpRewritePendingList(const VniIpPairV2& key) const {
  auto it = pending_.find(key);
  return it == pending_.end() ? nullptr : it->second;
}

Lum::Ptr<ArpRewritePendingList> VirtualArpSm::arpRewritePendingListIs(const VniIpPairV2& key) {
  Lum::Ptr<ArpRewritePendingList>& list = pending_[key];
  if (!list) list = new ArpRewritePendingList(key);
  return list;
}

void VirtualArpSm::checkAndRewriteVxlanArpRequest(const Lum::Ptr<Wire::Pkt>&, uint8_t* vxlanHdr) {
  auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(vxlanHdr + kArpOffset);
  if (arp->op.value() != Wire::EthArpIpHdr::kOpRequest) {
    Lum::throwRangeException("arpHdr->opcode() == Wire::arpRequest_");
  }
  const Vni vni = Wire::hdrAt<Wire::VxlanHdr>(vxlanHdr)->vni();
  const Wire::EthAddr sender = arp->senderHw;
  VARPSM_TRACE(7, " vni " << vni.value() << " ip " << arp->senderIp());
  const int found = ipPortTableVarpMacLookup(inputs_.l2rVarpIpMacTableCol, VniOrNone(vni.value()),
                                             Wire::IpGenAddr(arp->senderIp()), sender);
  if (found == kSameMac) {
    VARPSM_TRACE(5,
                 "Vxlan arp request discard since sender mac should NOT be matching varp Mac "
                 "in vcc LR status");
    varpCounterInc(VarpCounterId::arpDiscarded);
    return;
  }
  if (found == kNoEntry) {
    varpCounterInc(VarpCounterId::requestNoEntry);
    VARPSM_TRACE(7, "Vxlan arp request packet src mac unmodified");
    return;
  }
  const VniIpPairV2 key{vni, Wire::IpGenAddr(arp->targetIp())};
  const Wire::EthAddr varpMac =
      inputs_.fhrpVarpMacStatus ? inputs_.fhrpVarpMacStatus->varpVirtualMac() : Wire::EthAddr();
  Lum::Ptr<ArpRewritePendingList> list = arpRewritePendingList(key);
  if (!list) {
    VARPSM_TRACE(6, " create arp rewrite pending list for target ip "
                        << key.ip << " and srcMac of: " << sender);
    list = arpRewritePendingListIs(key);
    if (PENDING_LIST_TIMELEFT) {
      VARPSM_TRACE(6, "Setting timeLeft for test: " << *PENDING_LIST_TIMELEFT);
      list->timeLeftIs(static_cast<double>(*PENDING_LIST_TIMELEFT));
    }
  }
  list->reqMacAddrIs(sender);
  VARPSM_TRACE(6, "Added MAC Addr: " << sender << " to the pending list from ARP header");
  doScheduleReview();
  Wire::hdrAt<Wire::EthHdr>(vxlanHdr + kInnerEthOffset)->src = varpMac;
  arp->senderHw = varpMac;
  varpCounterInc(VarpCounterId::requestRewritten);
  VARPSM_TRACE(6, "Vxlan arp request packet modified with ARP hdr smac "
                      << varpMac << " and eth hdr src mac as: " << varpMac);
}

void VirtualArpSm::doScheduleReview() {
  if (pending_.empty() || !clock_) return;
  const double now = Lum::now();
  const double timeMin = clock_->timeMin();
  if (timeMin <= std::numeric_limits<double>::max() && now - timeMin <= arpAgingReviewInterval_) {
    return;
  }
  clock_->timeMinIs(now + arpAgingReviewInterval_);
  VARPSM_TRACE(7, " arp rewrite review scheduled at " << now + arpAgingReviewInterval_ << " delay "
                                                      << arpAgingReviewInterval_);
}

void VirtualArpSm::runArpRewriteAging() {
  const double now = Lum::now();
  const double interval = arpAgingReviewInterval_;
  // Whole seconds; the millisecond lets a review that fires a little early count the
  // second it was meant for.
  const auto elapsed = static_cast<unsigned>(
      lastProcessTime_ == 0.0 ? interval : std::floor(now - lastProcessTime_ + 0.001));
  if (!initialized_) {
    VARPSM_TRACE(7, " yet to initialize, returning");
    return;
  }
  for (auto it = pending_.begin(); it != pending_.end();) {
    ArpRewritePendingList& list = *it->second;
    if (list.timeLeft() == 0.0) {
      ++it;
    } else if (list.timeLeft() > elapsed) {
      list.timeLeftDec(elapsed);
      ++it;
    } else {
      VARPSM_TRACE(6, "Aging out arp rewrite pending list " << it->first);
      it = pending_.erase(it);
      varpCounterInc(VarpCounterId::pendingListAged);
    }
  }
  if (pending_.empty()) {
    lastProcessTime_ = 0.0;
    return;
  }
  if (clock_) clock_->timeMinIs(now + interval);
  lastProcessTime_ = now;
}

}  // namespace Vxlan
