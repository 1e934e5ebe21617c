#include "forwarding/VtiShow.h"

#include "platform/core/TypeRegistry.h"

#include "forwarding/TestMode.h"

namespace Vxlan::VtiShow {

using nlohmann::json;

namespace {

// The devices the machines open their sockets on (R2LSockets.cpp, L2RSockets.cpp): the
// forwarding plane's vocabulary, and they stay as they stand.
constexpr const char* kTxRaw = "txraw";
constexpr const char* kVxlanDevice = "vxlan";

Lum::Ptr<KernelNetworkInfo::Interface> deviceOf(const KernelNetworkInfo::Root* kernel,
                                                std::string_view name) {
  return kernel && !name.empty() ? kernel->interfaceByName(Lum::String8(name)) : nullptr;
}

// The source device a socket is bound to: named, and in the kernel's view.
void sourceDeviceReasons(const VtiStatus& status, const KernelNetworkInfo::Root* kernel,
                         std::vector<std::string>& why) {
  const std::string_view src = status.srcIntfKernelName().view();
  if (src.empty()) {
    why.emplace_back("no source interface device");
  } else if (!deviceOf(kernel, src)) {
    why.push_back("waiting for device " + std::string(src));
  }
}

void basicReasons(const VtiStatus& status, std::vector<std::string>& why) {
  if (status.operStatus() != Interface::IntfOperStatus::intfOperUp) why.emplace_back("VTI is down");
  if (status.localVtepAddr().isZero()) why.emplace_back("local VTEP address is 0.0.0.0");
}

// How a direction whose sockets are open takes frames in: from receive rings, in
// batches of reads where the kernel refused a ring, or a read per frame.
std::string reads(bool socketsOpen, bool batch, bool rings) {
  if (!socketsOpen) return "";
  return !batch ? "read" : rings ? "ring" : "recvmmsg";
}

json direction(std::vector<std::string> reasons, bool socketsOpen, json sockets,
               std::string reads) {
  if (reasons.empty() && !socketsOpen) reasons.emplace_back("sockets not open");
  return {{"forwarding", reasons.empty()},
          {"sockets", std::move(sockets)},
          {"reads", std::move(reads)},
          {"reasons", reasons}};
}

json device(const KernelNetworkInfo::Root* kernel, std::string_view name, const char* use) {
  const Lum::Ptr<KernelNetworkInfo::Interface> intf = deviceOf(kernel, name);
  return {{"name", name},
          {"use", use},
          {"exists", static_cast<bool>(intf)},
          {"ifindex", intf ? intf->ifindex().value() : 0}};
}

json remoteToLocal(const VtiStatus& status, const Remote2LocalForwarderSm::LumVtiStatusSm* sm,
                   const KernelNetworkInfo::Root* kernel) {
  if (!sm) return direction({"no remote-to-local machine"}, false, json::object(), "");
  const json sockets = {{"remote", sm->remoteSock() != -1},
                        {"local", sm->localSock() != -1},
                        {"portSink", sm->portSink() != -1},
                        {"ingressDrop", sm->ingressDrop() != -1}};
  std::vector<std::string> why = remoteToLocalReasons(status, kernel);
  // The machine closes both sockets when the source device is missing and looks again
  // only when the VTI or "txraw" changes, not when that device comes.
  if (why.empty() && sm->remoteSock() == -1) {
    why.emplace_back("sockets closed; they open again when the VTI or the device txraw changes");
  }
  const bool open = sm->remoteSock() != -1 && sm->localSock() != -1;
  return direction(std::move(why), open, sockets,
                   reads(open, sm->batchMode(), sm->hasReceiveRing()));
}

json localToRemote(const VtiStatus& status, const Local2RemoteForwarderSm::LumVtiStatusSm* sm) {
  if (!sm) return direction({"no local-to-remote machine"}, false, json::object(), "");
  const json sockets = {
      {"localHi", sm->localSockHi() != -1},   {"localLo", sm->localSockLo() != -1},
      {"remoteHi", sm->remoteSockHi() != -1}, {"remoteLo", sm->remoteSockLo() != -1},
      {"arp", sm->arpSock() != -1},           {"arpInspect", sm->arpInspectSock() != -1}};
  const bool open = sm->localSockHi() != -1 && sm->localSockLo() != -1 &&
                    sm->remoteSockHi() != -1 && sm->remoteSockLo() != -1;
  return direction(localToRemoteReasons(status, sm->kernelNetworkInfoRoot(), sm->floodMcastGrp()),
                   open, sockets, reads(open, sm->batchMode(), sm->hasReceiveRings()));
}

json vniToVlan(const Remote2LocalForwarderSm::LumVtiStatusSm* sm) {
  json out = json::array();
  const VniToVlanMap* map = sm ? sm->vniToVlanMap() : nullptr;
  if (!map) return out;
  for (const auto& [vni, vlan] : map->vniToVlanMap()) {
    out.push_back({{"vni", vni.value()}, {"vlan", vlan.isNone() ? json() : json(vlan.value())}});
  }
  return out;
}

json floodLists(const BumStatus* bum) {
  json out = json::array();
  if (!bum) return out;
  for (auto it = bum->bumVtepListIterator(); it; ++it) {
    json vteps = json::array();
    for (const auto& [addr, member] : it->remoteVtepAddr()) vteps.push_back(Lum::toText(addr));
    out.push_back({{"mac", Lum::toText(it.key().mac())},
                   {"vlan", it.key().vlanId().value()},
                   {"sendToAny", it->isSendToAny()},
                   {"vteps", vteps}});
  }
  return out;
}

json learnedHosts(const FdbStatus* fdb) {
  json out = json::array();
  if (!fdb) return out;
  for (auto it = fdb->learnedHostIterator(); it; ++it) {
    out.push_back({{"mac", Lum::toText(it.key().mac())},
                   {"vlan", it.key().vlanId().value()},
                   {"vtep", Lum::toText(it->remoteVtepAddr())}});
  }
  return out;
}

// The groups joined for the VTI: what the agent wrote into the IGMP configuration of
// its source IP interface.
json multicast(const VtiStatus& status, const Remote2LocalForwarderSm* r2l,
               const Remote2LocalForwarderSm::LumVtiStatusSm* sm) {
  json joined = json::array();
  const Routing::Igmp::Application::Config* igmp = r2l ? r2l->igmpConfig().ptr() : nullptr;
  if (igmp && !status.srcIpIntf().empty()) {
    if (const auto entry = igmp->intfConfig(Wire::IntfId(status.srcIpIntf().stringValue()))) {
      for (const auto& [sg, on] : entry->group()) joined.push_back(Lum::toText(sg.group()));
    }
  }
  const Wire::IpAddr flood = sm ? sm->floodMcastGrp() : Wire::IpAddr();
  return {{"floodGroup", flood.isZero() ? json() : json(Lum::toText(flood))}, {"joined", joined}};
}

json vti(const VtiStatus& status, const Remote2LocalForwarderSm* r2l,
         const Local2RemoteForwarderSm* l2r) {
  const Wire::IntfId& id = status.intfId();
  const auto r2lSm = r2l ? r2l->vtiStatusSm(id) : nullptr;
  const auto l2rSm = l2r ? l2r->vtiStatusSm(id) : nullptr;
  const KernelNetworkInfo::Root* kernel =
      r2l ? r2l->kernelNetInfoRoot().ptr() : (l2rSm ? l2rSm->kernelNetworkInfoRoot() : nullptr);
  json devices = json::array();
  if (!status.srcIntfKernelName().empty()) {
    devices.push_back(device(kernel, status.srcIntfKernelName().view(), "underlay"));
  }
  devices.push_back(device(kernel, kTxRaw, "toForwardingPlane"));
  devices.push_back(device(kernel, kVxlanDevice, "fromForwardingPlane"));
  const BumStatus* bum = l2rSm ? l2rSm->bumStatus() : nullptr;
  return {{"name", id.view()},
          {"operUp", status.operStatus() == Interface::IntfOperStatus::intfOperUp},
          {"localVtepAddr", Lum::toText(status.localVtepAddr())},
          {"srcIpIntf", status.srcIpIntf().view()},
          {"udpPort", status.udpPort()},
          {"controllerClientMode", status.controllerClientMode()},
          {"devices", devices},
          {"remoteToLocal", remoteToLocal(status, r2lSm.ptr(), kernel)},
          {"localToRemote", localToRemote(status, l2rSm.ptr())},
          {"vniToVlan", vniToVlan(r2lSm.ptr())},
          {"replicationMode", bum ? bum->bumReplicationMode() : 0},
          {"floodLists", floodLists(bum)},
          {"learnedHosts", learnedHosts(l2rSm ? l2rSm->fdbStatus() : nullptr)},
          {"multicast", multicast(status, r2l, r2lSm.ptr())}};
}

}  // namespace

std::vector<std::string> remoteToLocalReasons(const VtiStatus& status,
                                              const KernelNetworkInfo::Root* kernel) {
  std::vector<std::string> why;
  basicReasons(status, why);
  // In the test mode the direction exchanges frames over Unix sockets: no device.
  if (R2L_TEST) return why;
  // A missing source device closes both sockets; a missing "txraw" leaves them deaf.
  sourceDeviceReasons(status, kernel, why);
  if (!deviceOf(kernel, kTxRaw)) why.push_back(std::string("waiting for device ") + kTxRaw);
  return why;
}

std::vector<std::string> localToRemoteReasons(const VtiStatus& status,
                                              const KernelNetworkInfo::Root* kernel,
                                              Wire::IpAddr floodGroup) {
  std::vector<std::string> why;
  basicReasons(status, why);
  if (!deviceOf(kernel, kVxlanDevice)) {
    why.push_back(std::string("waiting for device ") + kVxlanDevice);
  }
  // Multicast is enabled on the source device, and a refusal closes the remote sockets.
  if (!floodGroup.isZero() && !status.controllerClientMode()) {
    sourceDeviceReasons(status, kernel, why);
  }
  return why;
}

json interfaces(const Remote2LocalForwarderSm* r2l, const Local2RemoteForwarderSm* l2r,
                const json& args) {
  const VtiStatusDir* dir = r2l   ? r2l->vtiStatusDir().ptr()
                            : l2r ? l2r->inputs().vtiStatusDir.ptr()
                                  : nullptr;
  json vtis = json::array();
  const std::string name = args.value("name", std::string());
  if (!name.empty()) {
    const Lum::Ptr<VtiStatus> status = dir ? dir->vtiStatus(Wire::IntfId(name)) : nullptr;
    if (!status) throw Lum::Exception("no VTI " + name);
    vtis.push_back(vti(*status, r2l, l2r));
  } else if (dir) {
    for (auto it = dir->vtiStatusIterator(); it; ++it) vtis.push_back(vti(*it, r2l, l2r));
  }
  return {{"frameMode", frameModeName(FRAME_MODE)}, {"vtis", vtis}};
}

}  // namespace Vxlan::VtiShow
