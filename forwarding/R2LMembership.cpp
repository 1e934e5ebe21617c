// Multicast membership of LumVtiStatusSm. The agent does not join groups on its raw
// socket: it writes implicit IGMP group entries and a PIM mode for the source IP
// interface, which the routing agents carry out. Two sets of groups are joined: the
// flood group (the first entry of the BUM status) and the decapsulation groups of the
// status whose value is true.
#include "forwarding/ForwardingTrace.h"
#include "forwarding/Remote2LocalForwarderSm.h"

namespace Vxlan {

namespace {

// The replication modes in which decapsulation groups are joined.
bool joinsDecapGroups(uint32_t bumReplicationMode) {
  return bumReplicationMode == 2 || bumReplicationMode == 3;
}

// A decapsulation group is joined only with the value true: a document may name a
// group with false to keep it listed but not joined.
bool decapGroupWanted(const VtiStatus& status, Wire::IpAddr group) {
  return status.mcastGrpDecap().find(group) == std::optional<bool>(true);
}

}  // namespace

void Remote2LocalForwarderSm::LumVtiStatusSm::joinMcastGroup(Wire::IpAddr group) {
  R2L_TRACE(8, "() group:" << group);
  if (!group.isMulticast()) return;
  const Lum::Ptr<const VtiStatus> status = notifier();
  auto* igmp = igmpConfig();
  // No interface to join on: an empty id is no key of the configuration.
  if (!status || !igmp || status->srcIpIntf().empty()) return;
  const Lum::String8 text = status->srcIpIntf().stringValue();
  const Wire::IntfId intf(text);
  igmp->intfConfigIs(intf)->groupIs(Routing::Igmp::SourceGroup(Wire::IpAddr(), group), true);
  auto* pim = pimConfig();
  if (pim && !pim->intfMode().contains(Lum::Name(text))) {
    pim->intfModeIs(Lum::Name(text), Routing::Pim::Mode::pimModeSparse);
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::leaveMcastGroup(Wire::IpAddr group) {
  R2L_TRACE(8, "() group:" << group);
  if (!group.isMulticast()) return;
  const Lum::Ptr<const VtiStatus> status = notifier();
  auto* igmp = igmpConfig();
  if (!status || !igmp) return;
  const Lum::String8 text = status->srcIpIntf().stringValue();
  const Wire::IntfId intf(text);
  const Lum::Ptr<Routing::Igmp::Application::IntfConfig> entry = igmp->intfConfig(intf);
  if (!entry) return;
  entry->groupDel(Routing::Igmp::SourceGroup(Wire::IpAddr(), group));
  if (!entry->group().empty()) return;
  igmp->intfConfigDel(intf);
  if (auto* pim = pimConfig()) pim->intfModeDel(Lum::Name(text));
}

void Remote2LocalForwarderSm::LumVtiStatusSm::doRejoinMcastGroups() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  const bool ctrlClntMode = status && status->controllerClientMode();
  // A rebuild drops every membership for an instant and writes them anew: the flood
  // group and, in the same step, the decapsulation groups, which would otherwise stay
  // left until the next MLAG or status event.
  if (auto* igmp = igmpConfig()) igmp->intfConfigDelAll();
  if (!floodMcastGrp_.isZero() && !ctrlClntMode) {
    R2L_TRACE(8, " join multicast group " << floodMcastGrp_);
    joinMcastGroup(floodMcastGrp_);
  } else {
    R2L_TRACE(8, " not joining any multicast group ");
    if (auto* pim = pimConfig()) pim->intfModeDelAll();
  }
  handleMcastGrpDecap();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleMcastGrpDecap(Wire::IpAddr group) {
  R2L_TRACE(8, "() group:" << group);
  if (!initialized_) return;
  const Lum::Ptr<const VtiStatus> status = notifier();
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  const Mlag::Status* mlag = mlagStatus_ ? mlagStatus_->notifier().ptr() : nullptr;
  const Mlag::MlagState mlagState = mlag ? mlag->mlagState() : Mlag::MlagState::mlagStateDisabled;
  // Of an MLAG pair only the primary joins.
  const bool member =
      status && decapGroupWanted(*status, group) && bum &&
      joinsDecapGroups(bum->bumReplicationMode()) &&
      (!Mlag::isMlagActive(mlagState) || mlagState == Mlag::MlagState::mlagStatePrimary) &&
      operUp();
  if (member) {
    joinMcastGroup(group);
  } else {
    leaveMcastGroup(group);
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleMcastGrpDecap() {
  R2L_TRACE(8, "()");
  const Lum::Ptr<const VtiStatus> status = notifier();
  if (!status) return;
  // Groups deleted from the status are named by no event: find them in what we wrote.
  if (auto* igmp = igmpConfig()) {
    const Wire::IntfId intf(status->srcIpIntf().stringValue());
    if (const auto entry = igmp->intfConfig(intf)) {
      for (const Routing::Igmp::SourceGroup& sg : entry->group().keys()) {
        const Wire::IpAddr g = sg.group();
        if (decapGroupWanted(*status, g) || g == floodMcastGrp_) continue;
        leaveMcastGroup(g);
      }
    }
  }
  for (Wire::IpAddr g : status->mcastGrpDecap().keys()) handleMcastGrpDecap(g);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleBumMcastGrp(Bridging::VlanId vlan) {
  const Wire::IpAddr prev = floodMcastGrp_;
  R2L_TRACE(8, "() vlan " << vlan);
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  // One flood group serves the interface: the first entry's, whatever the VLAN.
  if (bum && !bum->bumMcastGrp().empty()) {
    R2L_TRACE(8, " Multicast enabled ");
    floodMcastGrpIs(bum->bumMcastGrp().begin()->second);
  } else {
    R2L_TRACE(8, " Multicast disabled ");
    floodMcastGrpIs(Wire::IpAddr());
  }
  R2L_TRACE(8, "(), vlanId " << vlan << " Mcast Group Prev:" << prev << " New:" << floodMcastGrp_);
  if (floodMcastGrp_ != prev && operUp()) createRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleBumMcastGrp() {
  R2L_TRACE(8, "()");
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  if (!bum) return;
  for (Bridging::VlanId vlan : bum->bumMcastGrp().keys()) handleBumMcastGrp(vlan);
}

}  // namespace Vxlan
