// Destination selection of the local-to-remote machine: the learned host, the flood
// lists by (MAC, VLAN), the VLAN's multicast group, and the one VTEP of a send-to-any
// list chosen by BFD state.
#include "forwarding/DropTables.h"
#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"

namespace Vxlan {

namespace {

using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;

// The keys of the lists for all unknown multicast and for all flooded traffic of a
// VLAN (bumMacDefault).
constexpr Wire::EthAddr kUnknownMcastMac(0x0100, 0x0000, 0x0000);
constexpr Wire::EthAddr kBumMacDefault;

Lum::Ptr<const BumVtepList> nonEmpty(Lum::Ptr<const BumVtepList> list) {
  return list && list->remoteVtepAddrSize() > 0 ? list : nullptr;
}

}  // namespace

const BumVtepList* Sm::getRemoteVtepAddr(const Wire::EthAddr& dst, uint32_t vlan,
                                         uint32_t& hostIp) {
  const Destinations& d = destinationsOf(dst, vlan);
  hostIp = d.hostIp;
  if (!d.sendToAny) return d.list.ptr();
  if (d.sendToAnyMiss != L2R::kNoCounter) vxlanCounterInc(VxlanCounterId(d.sendToAnyMiss), 1);
  L2R_TRACE(7, " list type is sendToAny, sending to  " << Wire::IpAddr::fromHostOrder(hostIp));
  return nullptr;
}

const Sm::Destinations& Sm::chooseAndKeep(const Wire::EthAddr& dst, uint32_t vlan) const {
  return keptDestinations_.keep(choose(dst, vlan), dst, vlan);
}

Sm::Destinations Sm::choose(const Wire::EthAddr& dst, uint32_t vlan) const {
  Destinations d;
  d.list = getHostIPOrVtepList(dst, vlan, d.hostIp, &d.how);
  if (!d.list || !d.list->isSendToAny()) return d;
  d.hostIp = getVtepSendToAny(d.list, d.sendToAnyMiss);
  d.list = nullptr;
  d.sendToAny = true;
  d.how = "send-to-any list: the first VTEP whose BFD session is up";
  return d;
}

Lum::Ptr<const BumVtepList> Sm::getHostIPOrVtepList(const Wire::EthAddr& dst, uint32_t vlan,
                                                    uint32_t& hostIp, const char** how) const {
  const char* unused;
  const char*& said = how ? *how : unused;
  said = "no flood list and no learned host";
  L2R_TRACE(8, "() ControllerClient:" << (status() && status()->controllerClientMode()));
  hostIp = 0;
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  if (!bum || vlan == 0 || vlan > Bridging::VlanId::kMax) return nullptr;
  const Bridging::VlanId vlanId(static_cast<uint16_t>(vlan));
  const FdbStatus* fdb = vxFdbStatus_ ? vxFdbStatus_->notifier().ptr() : nullptr;
  const auto learned = [&]() -> uint32_t {
    if (!fdb) return 0;
    const Lum::Ptr<LearnedHost> host = fdb->learnedHost(MacVlanPair(dst, vlanId));
    return host ? host->remoteVtepAddr().hostOrder() : 0;
  };

  if (bum->bumReplicationMode() == BumStatus::kMulticastReplication) {
    if (!dst.isMulticast() && !dst.isBroadcast()) {
      hostIp = learned();
      said = "the learned host's VTEP";
      if (hostIp != 0) return nullptr;
    }
    // The lists are not consulted in this mode: the group, or nothing.
    hostIp = bum->bumMcastGrp(vlanId).hostOrder();
    said = "multicast replication: the VLAN's group";
    return nullptr;
  }

  said = "the flood list of the destination MAC";
  if (dst.isMulticast()) {
    if (auto l = nonEmpty(bum->bumVtepList(MacVlanPair(dst, vlanId)))) return l;
    said = "the flood list of unknown multicast";
    if (auto l = nonEmpty(bum->bumVtepList(MacVlanPair(kUnknownMcastMac, vlanId)))) return l;
  } else if (dst.isBroadcast()) {
    if (auto l = nonEmpty(bum->bumVtepList(MacVlanPair(dst, vlanId)))) return l;
  } else {
    hostIp = learned();
    said = "the learned host's VTEP";
    if (hostIp != 0) return nullptr;
  }
  said = "the VLAN's default flood list";
  return bum->bumVtepList(MacVlanPair(kBumMacDefault, vlanId));
}

uint32_t Sm::getVtepSendToAny(const Lum::Ptr<const BumVtepList>& vteps, uint32_t& miss) const {
  L2R_TRACE(8, "() vteps:" << (vteps ? vteps->remoteVtepAddrSize() : 0));
  miss = L2R::kNoCounter;
  const VxlanController::VtepStatusDirV2* dir =
      owner_ ? owner_->inputs().vtepStatusDirV2.ptr() : nullptr;
  const Lum::Ptr<VxlanController::VtepStatusV2> vti =
      dir ? dir->vtepStatusV2(Lum::Name(intfId_.stringValue())) : nullptr;
  if (!vti || !vteps) return 0;
  const VtiStatus* s = status();
  for (const auto& [addr, member] : vteps->remoteVtepAddr()) {
    if (s && (addr == s->localVtepAddr() || addr == s->vArpVtepAddr())) continue;
    if (vti->bfdPeerStatusSize() == 0) {
      L2R_TRACE(9, "Send to any without bfd configured");
      miss = L2R::id(VxlanCounterId::l2rNoBfdConfigured);
      return addr.hostOrder();
    }
    const Lum::Ptr<VxlanController::BfdPeerStatusV2> peer = vti->bfdPeerStatus(addr);
    if (peer && !peer->isDefault() && peer->isUp()) return addr.hostOrder();
  }
  L2R_TRACE(9, "Send to any without any vteps with bfd up");
  miss = L2R::id(VxlanCounterId::l2rNoBfdVtepUp);
  return 0;
}

}  // namespace Vxlan
