#include "varp/VarpShow.h"

#include "platform/core/TypeRegistry.h"

namespace Vxlan::VarpShow {

using nlohmann::json;

namespace {

json pendingLists(const VirtualArpSm& varp) {
  json out = json::array();
  for (const auto& [key, list] : varp.arpRewritePendingLists()) {
    json macs = json::array();
    for (const auto& [mac, member] : list->reqMacAddr()) macs.push_back(Lum::toText(mac));
    out.push_back({{"vni", key.vni.value()},
                   {"ip", Lum::toText(key.ip)},
                   {"timeLeft", list->timeLeft()},
                   {"macs", macs}});
  }
  return out;
}

// The VRF's namespace as the IP agent publishes it; the default VRF's is the agent's own.
std::string namespaceOf(const VirtualArpSm& varp, const L3::VrfName& vrf) {
  const Ip::AllVrfStatusLocal* all = varp.inputs().allVrfStatus.ptr();
  const auto status = all ? all->vrf(vrf) : nullptr;
  return status ? std::string(status->networkNamespace().view()) : std::string();
}

json vrfs(const VirtualArpSm& varp) {
  json out = json::array();
  for (const auto& [name, info] : varp.vrfInfos()) {
    out.push_back({{"name", name.view()},
                   {"namespace", namespaceOf(varp, name)},
                   {"netlinkOpen", info->netlinkSocket() >= 0}});
  }
  return out;
}

json mlagSync(const VirtualArpSm& varp) {
  const Mlag::Status* mlag = varp.inputs().mlagStatus.ptr();
  const Mlag::Config* config = varp.inputs().mlagConfig.ptr();
  json vtis = json::array();
  for (auto it = varp.vtiStatusSmIterator(); it; ++it) {
    const Wire::UdpPam* pam = it->arpSyncUdpPam();
    if (!pam) continue;
    vtis.push_back(
        {{"name", it.key().view()},
         {"syncing", pam->mode() == VirtualArpSm::LumVtiStatusSm::kSyncMode},
         {"socketOpen", pam->fileDesc() >= 0},
         {"local", {{"port", pam->rxPortLocal()}}},
         {"peer", {{"address", Lum::toText(pam->txDstIpAddr())}, {"port", pam->txPort()}}}});
  }
  return {{"mlagState", mlag ? static_cast<uint32_t>(mlag->mlagState()) : 0},
          {"active", mlag && Mlag::isMlagActive(mlag->mlagState())},
          {"peerLinkIntf", mlag ? std::string(mlag->peerLinkIntf().view()) : std::string()},
          {"peerAddress", config ? Lum::toText(config->peerAddress()) : std::string("0.0.0.0")},
          {"vtis", vtis}};
}

json replication(const ArpReplyReplicationSm& replication) {
  json out = json::array();
  for (auto vrf = replication.arpReplyReplicationVrfSmIterator(); vrf; ++vrf) {
    json intfs = json::array();
    for (auto intf = vrf->ipIntfStatusIterator(); intf; ++intf) {
      intfs.push_back({{"name", intf.key().view()}, {"filterInstalled", intf->bpfInstalled()}});
    }
    out.push_back({{"vrf", vrf.key().view()},
                   {"namespace", std::string(vrf->netNs().view())},
                   {"interfaces", intfs}});
  }
  return out;
}

}  // namespace

json arp(const VirtualArpSm* varp, const ArpReplyReplicationSm* replication) {
  json out = {{"pendingLists", json::array()},
              {"vrfs", json::array()},
              {"mlagSync", json::object()},
              {"replication", json::array()}};
  if (varp) {
    out["pendingLists"] = pendingLists(*varp);
    out["vrfs"] = vrfs(*varp);
    out["mlagSync"] = mlagSync(*varp);
  }
  if (replication) out["replication"] = VarpShow::replication(*replication);
  return out;
}

}  // namespace Vxlan::VarpShow
