// The library's type table: every type that libvxrelay.so registers with the
// framework, in the one order the host and the operator's tools see them in.
//
// They register from this one translation unit because static initialisers across
// files run in an order the language leaves open; inside one file they run top to
// bottom. Types that later parts of the agent add take their place in this list
// (the virtual ARP machines and messages before VirtualArpSm, ARP reply replication
// after it, the local-to-remote machines before Local2RemoteForwarderSm).
//
// The agent is an entity: its attributes are reachable through the generic interface,
// references as the path of the entity they point at. The state machines are not:
// their inputs and collections are known by name and id only.
#include "agent/OverlayRelayAgent.h"
#include "platform/core/TypeRegistry.h"

namespace Vxlan {

namespace {

using Agent = OverlayRelayAgent::OverlayRelayAgent;

[[maybe_unused]] const Lum::TypeInfo& vxCliCallbackType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::OverlayRelayAgent::OverlayRelayAgent::VxCliCallback")
        .attributeNames({"vxAgent"}));

template <auto Get>
Lum::TextAccess ref() {
  return Lum::entityRefAttr<Get>();
}

Lum::TypeInfo agentType() {
  return Lum::TypeInfo("Vxlan::OverlayRelayAgent::OverlayRelayAgent", "Lum::Entity")
      .attribute("ipStatusDir", Agent::kIpStatusDir, ref<&Agent::ipStatusDir>())
      .attribute("fhrpStatus", Agent::kFhrpStatus, ref<&Agent::fhrpStatus>())
      .attribute("fhrpVarpMacStatus", Agent::kFhrpVarpMacStatus, ref<&Agent::fhrpVarpMacStatus>())
      .attribute("vtiStatusDir", Agent::kVtiStatusDir, ref<&Agent::vtiStatusDir>())
      .attribute("vxHwStatusDir", Agent::kVxHwStatusDir, ref<&Agent::vxHwStatusDir>())
      .attribute("kernelNetworkInfoRoot", Agent::kKernelNetworkInfoRoot,
                 ref<&Agent::kernelNetworkInfoRoot>())
      .attribute("kernelNetworkInfoManager", Agent::kKernelNetworkInfoManager)
      .attribute("mlagConfig", Agent::kMlagConfig, ref<&Agent::mlagConfig>())
      .attribute("mlagStatus", Agent::kMlagStatus, ref<&Agent::mlagStatus>())
      .attribute("bridgingConfig", Agent::kBridgingConfig, ref<&Agent::bridgingConfig>())
      .attribute("intfStatusDir", Agent::kIntfStatusDir, ref<&Agent::intfStatusDir>())
      .attribute("vxAgentCounter", Agent::kVxAgentCounter, ref<&Agent::vxAgentCounter>())
      .attribute("vniToVlanMaps", Agent::kVniToVlanMaps, ref<&Agent::vniToVlanMaps>())
      .attribute("vtepStatusDirV2", Agent::kVtepStatusDirV2, ref<&Agent::vtepStatusDirV2>())
      .attribute("bridgingHwCapabilities", Agent::kBridgingHwCapabilities,
                 ref<&Agent::bridgingHwCapabilities>())
      .attribute("allVrfStatus", Agent::kAllVrfStatus, ref<&Agent::allVrfStatus>())
      .attribute("vxStatusDir", Agent::kVxStatusDir, ref<&Agent::vxStatusDir>())
      .attribute("igmpConfig", Agent::kIgmpConfig, ref<&Agent::igmpConfig>())
      .attribute("pimConfig", Agent::kPimConfig, ref<&Agent::pimConfig>())
      .attribute("virtualArpSm", Agent::kVirtualArpSm)
      .attribute("arpReplyReplicationSm", Agent::kArpReplyReplicationSm)
      .attribute("local2RemoteForwarderSm", Agent::kLocal2RemoteForwarderSm)
      .attribute("remote2LocalForwarderSm", Agent::kRemote2LocalForwarderSm)
      .attribute("cliRequestDir", Agent::kCliRequestDir, ref<&Agent::cliRequestDir>())
      .attribute("cliRequestStatus", Agent::kCliRequestStatus, ref<&Agent::cliRequestStatus>())
      .attribute("cliRequestDirSm", Agent::kCliRequestDirSm)
      .attribute("vxCliCallback", Agent::kVxCliCallback)
      .attribute("l2rVarpIpMacTableCol", Agent::kL2rVarpIpMacTableCol,
                 ref<&Agent::l2rVarpIpMacTableCol>())
      .attribute("mountsComplete", Agent::kMountsComplete, Lum::textAttr<&Agent::mountsComplete>())
      .operation("doCleanup", [](Lum::Entity& e) { static_cast<Agent&>(e).doCleanup(); })
      .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
        return overlayRelayAgentFactory(Lum::Name(a[0].second));
      });
}

}  // namespace

const Lum::TypeInfo& OverlayRelayAgent::OverlayRelayAgent::kType =
    Lum::TypeRegistry::add(agentType());

namespace {

// Virtual ARP's machines and messages, and ARP reply replication's per-interface and
// per-VRF state machines, before VirtualArpSm itself.
[[maybe_unused]] const Lum::TypeInfo& varpVtiStatusSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VirtualArpSm::LumVtiStatusSm")
        .attributeNames({"intfId", "virtualArpSm", "rawTxPam", "udpPam", "vxlanArpRxPam",
                         "arpSyncUdpPam", "mlagStatus", "initialized"}));

[[maybe_unused]] const Lum::TypeInfo& varpVrfStatusSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VirtualArpSm::LumVrfStatusSm")
        .attributeNames({"vrfName", "vrfStatus", "virtualArpSm", "initialized"}));

[[maybe_unused]] const Lum::TypeInfo& arpReplyIpIntfStatusType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::ArpReplyReplicationVrfSm::LumIpIntfStatus")
        .attributeNames({"ipIntfStatus", "arpReplyReplicationVrfSm", "bpfExpression",
                         "bpfInstalled", "bpfInstallRetryInterval", "initialized", "mlagStatus",
                         "clock", "arpReplyRxPam"}));

[[maybe_unused]] const Lum::TypeInfo& arpReplyVrfStatusSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::ArpReplyReplicationSm::LumVrfStatusSm")
        .attributeNames({"vrfStatus", "arpReplyReplicationSm", "initialized"}));

[[maybe_unused]] const Lum::TypeInfo& arpSyncMsgType =
    Lum::TypeRegistry::add(Lum::TypeInfo("Vxlan::ArpSyncMsg")
                               .attributeNames({"type", "len", "vlanId", "macAddr", "ipAddr"}));

[[maybe_unused]] const Lum::TypeInfo& arpSyncMsgWrapperType =
    Lum::TypeRegistry::add(Lum::TypeInfo("Vxlan::ArpSyncMsgWrapper")
                               .attributeNames({"pkt", "offset", "arpPktLen", "arpSyncMsg"}));

[[maybe_unused]] const Lum::TypeInfo& vrfInfoType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VrfInfo")
        .attributeNames({"vrfName", "kniRoot", "kniManager", "netlinkSocket", "ts"}));

// The pending list is an entity with its own attribute table, registered from its
// file; its place in the table is kept here.
[[maybe_unused]] const bool arpRewritePendingListPlace =
    (Lum::TypeRegistry::placeIs("Vxlan::ArpRewritePendingList"), true);

[[maybe_unused]] const Lum::TypeInfo& virtualArpSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VirtualArpSm")
        .attributeNames({"bridgingConfig", "ipStatus", "fhrpStatus", "fhrpVarpMacStatus",
                         "vtiStatusDir", "vxHwStatusDir", "vniToVlanMaps", "mlagConfig",
                         "mlagStatus", "kernelNetworkInfoRoot", "kernelNetworkInfoManager",
                         "vxBumStatus", "vxAgentCounter", "bridgingHwCapabilities", "allVrfStatus",
                         "vxStatusDir", "clock", "l2rVarpIpMacTableCol"}));

[[maybe_unused]] const Lum::TypeInfo& arpReplyReplicationVrfSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::ArpReplyReplicationVrfSm")
        .attributeNames({"vrfName", "netNs", "vrfIpIntfStatus", "fhrpVarpMacStatus", "virtualArpSm",
                         "vxAgentCounter", "mlagStatus", "clock", "initialized", "ipIntfStatus"}));

[[maybe_unused]] const Lum::TypeInfo& arpReplyReplicationSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::ArpReplyReplicationSm")
        .attributeNames({"ipStatus", "fhrpVarpMacStatus", "virtualArpSm", "vxAgentCounter",
                         "allVrfStatus", "mlagStatus", "clock", "initialized",
                         "arpReplyReplicationVrfSm", "vrfStatusSm"}));

// The local-to-remote direction's machines and its one value type of its own, before
// the direction's manager.
[[maybe_unused]] const Lum::TypeInfo& ipPortTableSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::Local2RemoteForwarderSm::VxStatusSm::IpPortTableSm")
        .attributeNames({"ipPortTable", "vxStatusSm"}));

[[maybe_unused]] const Lum::TypeInfo& l2rVtiStatusSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::Local2RemoteForwarderSm::LumVtiStatusSm")
        .attributeNames({"vtiStatus", "local2RemoteForwarderSm", "initialized"}));

[[maybe_unused]] const Lum::TypeInfo& vxStatusSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::Local2RemoteForwarderSm::VxStatusSm")
        .attributeNames({"vxStatus", "local2RemoteForwarderSm", "initialized", "ipPortTable"}));

[[maybe_unused]] const Lum::TypeInfo& devIfindexPairType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::DevIfindexPair").attributeNames({"devname", "ifindex"}));

[[maybe_unused]] const Lum::TypeInfo& local2RemoteForwarderSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::Local2RemoteForwarderSm")
        .attributeNames({"vtiStatusDir", "vxHwStatusDir", "vxBumStatus", "fhrpStatus",
                         "fhrpVarpMacStatus", "kernelNetInfoRoot", "mlagStatus", "bridgingConfig",
                         "intfStatusDir", "vxAgentCounter", "vtepStatusDir", "vxStatusDir",
                         "ipStatus", "l2rVarpIpMacTableCol", "vxlanUnixDomainName", "vtiStatusSm",
                         "vxStatus"}));

[[maybe_unused]] const Lum::TypeInfo& remote2LocalForwarderSmType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::Remote2LocalForwarderSm")
        .attributeNames({"vtiStatusDir", "vxHwStatusDir", "igmpConfig", "pimConfig", "vxBumStatus",
                         "vniToVlanMaps", "kernelNetInfoRoot", "vxAgentCounter", "mlagStatus",
                         "vtiStatusSm"}));

}  // namespace

}  // namespace Vxlan
