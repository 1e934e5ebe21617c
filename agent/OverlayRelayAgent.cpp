#include "agent/OverlayRelayAgent.h"

#include <sys/resource.h>

#include <cstdlib>
#include <string>

#include "agent/SharedMemoryCounterStorage.h"
#include "forwarding/PacketTrace.h"
#include "forwarding/VtiShow.h"
#include "platform/loop/ActivityManager.h"
#include "platform/memtab/MemtabMount.h"
#include "platform/os/SysCalls.h"
#include "platform/statehub/Cell.h"
#include "platform/trace/RingLog.h"
#include "platform/trace/Trace.h"
#include "varp/VarpShow.h"

namespace Vxlan::OverlayRelayAgent {

namespace {

Lum::TraceFacility& trace = Lum::traceFacility("OverlayRelayAgent");
// Created at load on behalf of the shared-memory tables.
[[maybe_unused]] Lum::TraceFacility& memtabTrace = Lum::traceFacility("RootPathBase::Lum");

struct MountRow {
  const char* mode;
  const char* type;
  const char* path;
  bool inCell;     // the path follows the agent's cellPath
  bool cellMount;  // the path is the cell's own mount path of `path`
};

// The shared state of the agent, mounted as one group in this order.
constexpr MountRow kMounts[] = {
    {"w", "Vxlan::VtiStatusDir", "interface/status/eth/vxlan", false, false},
    {"r", "Interface::EthIntfStatusDir", "interface/status/eth/intf", false, false},
    {"r", "Ip::Status", "ip/status", false, false},
    {"r", "Bridging::Config", "bridging/config/", false, false},
    {"r", "Vxlan::VxlanHwStatusDir", "vxlan/hardware/status", false, false},
    {"wc", "Vxlan::VxlanStatusDir", "vxlan/status", false, false},
    {"wc", "VxlanController::VtepStatusDirV2", "vxlan/version2/vtepStatusDir", false, false},
    {"r", "Routing::Fhrp::StatusV4", "routing/fhrp/status", false, false},
    {"r", "Routing::Fhrp::VirtualRouterMacStatus", "routing/fhrp/vrMacStatus", false, false},
    {"wc", "Routing::Igmp::Application::Config", "routing/igmp/application/config/vxlan", false,
     false},
    {"wc", "Routing::Pim::Application::Config", "routing/pim/application/config/vxlan", false,
     false},
    {"ri", "Lum::Dir", "/agent/commandRequest/config/vxlan", true, false},
    {"wi", "Agent::AgentCommandRequestStatus", "/agent/commandRequest/status/vxlan", true, false},
    {"r", "Mlag::Config", "mlag/config", false, false},
    {"r", "Mlag::Status", "mlag/status", false, false},
    {"r", "Bridging::HwCapabilities", "bridging/hwcapabilities", false, false},
    {"r", "Ip::AllVrfStatusLocal", "ip/vrf/status/local", false, true},
};
static_assert(std::size(kMounts) == 17);

}  // namespace

// kType registers in AgentTypeTable.cpp, in the order of the library's type table.

OverlayRelayAgent::OverlayRelayAgent(const Lum::Name& name)
    : CAgent(name),
      virtualArpSm_(nullptr),
      arpReplyReplicationSm_(nullptr),
      local2RemoteForwarderSm_(nullptr),
      remote2LocalForwarderSm_(nullptr),
      cliRequestDirSm_(nullptr) {}

OverlayRelayAgent::~OverlayRelayAgent() {
  // A host that never ran doCleanup must not keep a question about a gone agent.
  forgetQueries();
  kernelNetworkInfoRoot_.del();
  kernelNetworkInfoManager_.del();
  vniToVlanMaps_.del();
  virtualArpSm_.del();
  arpReplyReplicationSm_.del();
  local2RemoteForwarderSm_.del();
  remote2LocalForwarderSm_.del();
  cliRequestDirSm_.del();
  vxCliCallback_.del();
  l2rVarpIpMacTableCol_.del();
}

void OverlayRelayAgent::doInit() {
  // Before anything opens a descriptor.
  const rlimit limit{kFileLimit, kFileLimit};
  (void)Lum::sysCalls().setrlimit(RLIMIT_NOFILE, &limit);
  Lum::ActivityFacility::activityManagerConfig().useEpollIs(true);

  if (std::getenv("RINGLOG_DISABLE") == nullptr) {
    std::string file(name().view());
    if (std::getenv("RINGLOGDIR") == nullptr) file += "-%d";
    file += ".rl";
    const uint32_t sizes[RingLog::kLevels] = {32, 32, 32, 32, 32, 32, 32, 32, 32, 32};
    RingLog::initialize(file.c_str(), sizes, nullptr, 0);
  }
  LUM_TRACE(trace, 8, "OverlayRelayAgent::doInit()");
  RINGLOG(8, "doInit");

  Lum::Ptr<Statehub::MountGroup> group = entityManager()->getMountGroup(this);
  for (const MountRow& row : kMounts) {
    std::string path = row.path;
    if (row.inCell) path = std::string(cellPath().view()) + path;
    if (row.cellMount) path = Cell::mountpath(row.path);
    group->doMount(row.mode, row.type, path);
  }
  group->doClose(false, "", 0.0);
}

template <class T>
Lum::Ptr<T> OverlayRelayAgent::fetch(Statehub::EntityManager& em, std::string_view path) {
  return Lum::ptrCast<T>(em.getEntity(path));
}

void OverlayRelayAgent::doMountsComplete(Statehub::MountStatus status,
                                         Statehub::EntityManager& em) {
  LUM_TRACE(trace, 8, "OverlayRelayAgent::doMountsComplete()");
  RINGLOG(8, "doMountsComplete");
  if (status != Statehub::mountSuccess_) {
    LUM_TRACE(trace, 0, "mountStatus == Statehub::mountSuccess_ failed in OverlayRelayAgent:118");
    RINGLOG(0, "mountStatus == Statehub::mountSuccess_ failed in OverlayRelayAgent:%d", 118);
    throw Lum::Exception("mountStatus == Statehub::mountSuccess_ (OverlayRelayAgent:118)");
  }
  mountsCompleteIs(true);

  {
    LumMemtab::Mount counterMount(name());
    counterMount.doMount(kCounterTablePath, "Vxlan::VxlanAgentCounter", counterMountInfo());
    vxAgentCounter_ = Lum::ptrCast<VxlanAgentCounter>(counterMount.getEntity(kCounterTablePath));
  }

  vtiStatusDir_ = fetch<VtiStatusDir>(em, "interface/status/eth/vxlan");
  ipStatusDir_ = fetch<const Ip::Status>(em, "ip/status");
  bridgingConfig_ = fetch<const Bridging::Config>(em, "bridging/config");
  bridgingHwCapabilities_ = fetch<const Bridging::HwCapabilities>(em, "bridging/hwcapabilities");
  vxHwStatusDir_ = fetch<VxlanHwStatusDir>(em, "vxlan/hardware/status");
  fhrpStatus_ = fetch<Routing::Fhrp::StatusV4>(em, "routing/fhrp/status");
  fhrpVarpMacStatus_ =
      fetch<const Routing::Fhrp::VirtualRouterMacStatus>(em, "routing/fhrp/vrMacStatus");
  intfStatusDir_ = fetch<const Interface::EthIntfStatusDir>(em, "interface/status/eth/intf");

  kernelNetworkInfoRoot_.is("kni");
  vniToVlanMaps_.is("vniToVlanMaps");

  vxStatusDir_ = fetch<VxlanStatusDir>(em, "vxlan/status");
  vtepStatusDirV2_ = fetch<VxlanController::VtepStatusDirV2>(em, "vxlan/version2/vtepStatusDir");
  mlagConfig_ = fetch<const Mlag::Config>(em, "mlag/config");
  mlagStatus_ = fetch<const Mlag::Status>(em, "mlag/status");

  l2rVarpIpMacTableCol_.is("OverlayRelayAgentCol");

  const Lum::Ptr<const BumStatus> bumStatus =
      vxHwStatusDir_ ? Lum::Ptr<const BumStatus>(vxHwStatusDir_->bumStatus()) : nullptr;
  local2RemoteForwarderSm_.is(Local2RemoteForwarderSm::Inputs{
      vtiStatusDir_, vxHwStatusDir_, bumStatus, fhrpStatus_, fhrpVarpMacStatus_,
      kernelNetworkInfoRoot_.ptr(), mlagStatus_, bridgingConfig_, intfStatusDir_, vxAgentCounter_,
      vtepStatusDirV2_, vxStatusDir_, ipStatusDir_, l2rVarpIpMacTableCol_.ptr()});

  igmpConfig_ =
      fetch<Routing::Igmp::Application::Config>(em, "routing/igmp/application/config/vxlan");
  pimConfig_ = fetch<Routing::Pim::Application::Config>(em, "routing/pim/application/config/vxlan");

  remote2LocalForwarderSm_.is(Remote2LocalForwarderSm::Inputs{
      vtiStatusDir_, vxHwStatusDir_, igmpConfig_, pimConfig_, bumStatus, vniToVlanMaps_.ptr(),
      kernelNetworkInfoRoot_.ptr(), vxAgentCounter_, mlagStatus_});

  allVrfStatus_ = fetch<const Ip::AllVrfStatusLocal>(em, Cell::path("ip/vrf/status/local"));

  // The watcher does not exist yet: virtual ARP must not lean on it at construction.
  virtualArpSm_.is(VirtualArpSm::Inputs{
      bridgingConfig_, ipStatusDir_, fhrpStatus_, fhrpVarpMacStatus_, vtiStatusDir_, vxHwStatusDir_,
      vniToVlanMaps_.ptr(), mlagConfig_, mlagStatus_, kernelNetworkInfoRoot_.ptr(),
      kernelNetworkInfoManager_.ptr(), bumStatus, vxAgentCounter_, bridgingHwCapabilities_,
      allVrfStatus_, vxStatusDir_, Lum::activityManager().config().clock(),
      l2rVarpIpMacTableCol_.ptr()});
  arpReplyReplicationSm_.is(ipStatusDir_, fhrpVarpMacStatus_, virtualArpSm_.get(), vxAgentCounter_,
                            allVrfStatus_, mlagStatus_,
                            Lum::Ptr<const Lum::Clock>(Lum::activityManager().config().clock()));

  const std::string cell(cellPath().view());
  cliRequestDir_ = fetch<Lum::Dir>(em, cell + "/agent/commandRequest/config/vxlan");
  cliRequestStatus_ =
      fetch<Agent::AgentCommandRequestStatus>(em, cell + "/agent/commandRequest/status/vxlan");
  if (cliRequestDir_) {
    cliRequestDirSm_.is(nullptr, cliRequestDir_);
    cliRequestDirSm_->statusIs(cliRequestStatus_);
  }
  vxCliCallback_.is("vxlan", this);
  if (cliRequestDirSm_) cliRequestDirSm_->agentCommandCallbackIs(vxCliCallback_.ptr());

  // Last: the forwarders and virtual ARP exist before the first interface is entered.
  kernelNetworkInfoRoot_.is("kni");
  kernelNetworkInfoManager_.is(nullptr, kernelNetworkInfoRoot_.ptr(), Wire::NamespaceName(""));

  registerQueries(em);
}

void OverlayRelayAgent::registerQueries(Statehub::EntityManager& em) {
  // Answered from the machines as they are (vxrelayctl show).
  em.queryIs("interfaces", [this](const nlohmann::json& args) {
    return VtiShow::interfaces(remote2LocalForwarderSm(), local2RemoteForwarderSm(), args);
  });
  em.queryIs("arp", [this](const nlohmann::json&) {
    return VarpShow::arp(virtualArpSm(), arpReplyReplicationSm());
  });
  // What a frame would meet (vxrelayctl trace packet).
  em.queryIs("packet", [this](const nlohmann::json& args) {
    return PacketTrace::answer({remote2LocalForwarderSm(), local2RemoteForwarderSm()}, args);
  });
}

void OverlayRelayAgent::forgetQueries() {
  if (!entityManager()) return;
  for (const char* name : {"interfaces", "arp", "packet"}) entityManager()->queryDel(name);
}

void OverlayRelayAgent::doCleanup() {
  LUM_TRACE(trace, 8, "OverlayRelayAgent::doCleanup()");
  RINGLOG(8, "doCleanup");
  // First: the answers read the machines that go next.
  forgetQueries();
  local2RemoteForwarderSm_.del();
  remote2LocalForwarderSm_.del();
  virtualArpSm_.del();
  arpReplyReplicationSm_.del();
}

OverlayRelayAgent::VxCliCallback::VxCliCallback(const Lum::String8& commandType,
                                                OverlayRelayAgent* agent)
    : AgentCommandCallback("", commandType), vxAgent_(agent) {}

void OverlayRelayAgent::VxCliCallback::handleCommand(uint32_t socket, const Lum::String8& command) {
  LUM_TRACE(trace, 0,
            "handleCommand"
                << "()"
                << "Socket:" << socket << ", Command:" << command);
  RINGLOG(0, "handleCommand() Socket:%u, Command:%s", socket, command.charPtr());
  // After doCleanup the machines are gone: the command has nothing to act on.
  if (command == Lum::String8("clear vxlan counters software")) {
    if (Local2RemoteForwarderSm* l2r = vxAgent_->local2RemoteForwarderSm()) {
      l2r->clearVxlanCounters();
    }
  } else if (command == Lum::String8("clearVarpCtr")) {
    if (VirtualArpSm* varp = vxAgent_->virtualArpSm()) varp->clearVarpCounters();
  }
}

}  // namespace Vxlan::OverlayRelayAgent

Lum::Ptr<Vxlan::OverlayRelayAgent::OverlayRelayAgent> overlayRelayAgentFactory(
    const Lum::Name& name) {
  return Lum::validPtr(Lum::Ptr<Vxlan::OverlayRelayAgent::OverlayRelayAgent>(
      new Vxlan::OverlayRelayAgent::OverlayRelayAgent(name)));
}
