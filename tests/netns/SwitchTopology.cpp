#include "tests/netns/SwitchTopology.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/core/Exception.h"
#include "platform/statehub/ControlClient.h"
#include "tests/support/Throws.h"

namespace TestSupport {
namespace {

constexpr size_t kMaxDeviceName = 15;  // IFNAMSIZ less the terminating zero
constexpr auto kHostStopLimit = std::chrono::seconds(5);
constexpr auto kPollStep = std::chrono::milliseconds(50);

std::string deviceName(const std::string& name) {
  if (name.size() > kMaxDeviceName) throw Lum::Exception("device name too long: " + name);
  return name;
}

}  // namespace

SwitchTopology::SwitchTopology(SwitchTopologyConfig config) : config_(config) {
  static std::atomic<unsigned> sequence{0};
  tag_ = std::to_string(::getpid()) + "-" + std::to_string(sequence++);
  switchNs_ = "vxs-" + tag_;
  fabricNs_ = "vxf-" + tag_;
  for (size_t i = 0; i < config_.remotes; ++i) {
    remoteNs_.push_back("vxr-" + tag_ + "-" + std::to_string(i));
  }
  switchUnderlay_ = deviceName("u" + tag_ + "s");
  agentName_ = "vxnt-" + tag_;
  try {
    build();
  } catch (...) {
    teardown();
    throw;
  }
}

SwitchTopology::~SwitchTopology() {
  teardown();
}

std::vector<std::string> SwitchTopology::namespaces() const {
  std::vector<std::string> all = {switchNs_, fabricNs_};
  all.insert(all.end(), remoteNs_.begin(), remoteNs_.end());
  return all;
}

std::string SwitchTopology::remoteVtepAddr(size_t i) const {
  return "10.99.0." + std::to_string(2 + i);
}

void SwitchTopology::ip(const std::string& netns, const std::string& args) const {
  runOrThrow("ip -n " + netns + " " + args);
}

void SwitchTopology::addVtep(const std::string& netns, const std::string& device,
                             const std::string& fabricEnd, const std::string& addr) const {
  ip(netns,
     "link add name " + device + " type veth peer name " + fabricEnd + " netns " + fabricNs_);
  ip(fabricNs_, "link set " + fabricEnd + " master br0 up");
  ip(netns, "addr add " + addr + "/24 dev " + device);
  ip(netns, "link set " + device + " up");
}

void SwitchTopology::build() {
  dir_.emplace("vxnt");
  controlSocket_ = dir_->file("ctl.sock");

  for (const std::string& ns : namespaces()) {
    made_.push_back(std::make_unique<ScopedNetns>(ns));
    // Without IPv6 the devices send no neighbour discovery or listener reports of
    // their own: what crosses the fabric is what a test sends, and counts are exact.
    runOrThrow("ip netns exec " + ns +
               " sysctl -qw net.ipv6.conf.default.disable_ipv6=1 net.ipv6.conf.all.disable_ipv6=1");
    ip(ns, "link set lo up");
  }
  // A bridge without spanning tree forwards as soon as a port is up; without snooping
  // it floods multicast to every VTEP, whoever has joined.
  ip(fabricNs_, "link add name br0 type bridge stp_state 0 mcast_snooping 0");
  ip(fabricNs_, "link set br0 up");

  addVtep(switchNs_, switchUnderlay_, switchFabricEnd(), kVtepAddr);
  for (const char* pair : {kTxRawDevice, kVxlanDevice}) switchVethPairIs(pair);

  for (size_t i = 0; i < config_.remotes; ++i) {
    const std::string& ns = remoteNs_[i];
    addVtep(ns, remoteUnderlayDevice(i), deviceName("f" + tag_ + "r" + std::to_string(i)),
            remoteVtepAddr(i));
    if (config_.remoteHosts) {
      ip(ns, "link add name brh type bridge stp_state 0");
      ip(ns, std::string("link add name h0 type veth peer name ") + kRemoteHostPeer);
      ip(ns, "link set h0 master brh up");
      ip(ns, std::string("link set ") + kRemoteHostPeer + " up");
      ip(ns, "link set brh up");
    }
    addRemoteVxlanDevice(i, config_.vni, config_.udpPort);
  }
}

void SwitchTopology::switchVethPairIs(const std::string& device) const {
  ip(switchNs_, "link add name " + device + " type veth peer name " + device + "-p");
  ip(switchNs_, "link set " + device + "-p up");
  ip(switchNs_, "link set " + device + " up");
}

std::string SwitchTopology::switchFabricEnd() const {
  return deviceName("f" + tag_ + "s");
}

std::string SwitchTopology::remoteUnderlayDevice(size_t i) const {
  return deviceName("u" + tag_ + "r" + std::to_string(i));
}

void SwitchTopology::addRemoteVxlanDevice(size_t i, Vxlan::Vni vni, uint16_t udpPort) const {
  const std::string& ns = remoteNs_.at(i);
  const std::string peer = config_.remoteGroup.empty() ? std::string(" remote ") + kVtepAddr
                                                       : " group " + config_.remoteGroup;
  ip(ns, std::string("link add name ") + kRemoteVxlanDevice + " type vxlan id " +
             std::to_string(vni.value()) + peer + " local " + remoteVtepAddr(i) + " dstport " +
             std::to_string(udpPort) + " dev " + remoteUnderlayDevice(i));
  if (config_.remoteHosts) {
    ip(ns, std::string("link set ") + kRemoteVxlanDevice + " master brh");
  } else {
    ip(ns, "addr add 192.168.10." + std::to_string(2 + i) + "/24 dev " + kRemoteVxlanDevice);
  }
  ip(ns, std::string("link set ") + kRemoteVxlanDevice + " up");
}

void SwitchTopology::remoteVxlanDeviceIs(size_t i, Vxlan::Vni vni, uint16_t udpPort) const {
  // The device lives in the remote's namespace, which teardown deletes: nothing to track.
  ip(remoteNs_.at(i), std::string("link del ") + kRemoteVxlanDevice);
  addRemoteVxlanDevice(i, vni, udpPort);
}

nlohmann::json SwitchTopology::stateDocument() const {
  using nlohmann::json;
  json doc = json::parse(R"({
      "interface/status/eth/vxlan": {"vtiStatus": {"Vxlan1": {
          "operStatus": 1, "srcIpIntf": "Loopback0", "floodMcastGrp": "0.0.0.0"}}},
      "vxlan/hardware/status": {"bumStatus": {"bumReplicationMode": 0}},
      "bridging/config": {"bridgeMacAddr": "00:1c:73:00:00:01"},
      "bridging/hwcapabilities": {"vxlanTxRawSupported": true},
      "mlag/status": {"mlagState": 0}})");
  // The parameters: the VTI's addresses, port, TTL and VLAN, the hardware port id and
  // every remote VTEP, in the hardware entry and in the VLAN's default flood list.
  json remotes = json::object();
  for (size_t i = 0; i < config_.remotes; ++i) remotes[remoteVtepAddr(i)] = true;
  const std::string vlan = std::to_string(config_.vlan.value());
  doc["interface/status/eth/vxlan"]["vtiStatus"]["Vxlan1"].update(
      {{"localVtepAddr", kVtepAddr},
       {"srcIntfKernelName", switchUnderlay_},
       {"udpPort", config_.udpPort},
       {"ttl", config_.ttl},
       {"vlanToVniMap", {{vlan, config_.vni.value()}}}});
  json& hw = doc["vxlan/hardware/status"];
  hw["vxlanHwStatus"]["Vxlan1"] = {{"portId", config_.portId.value()},
                                   {"cpuSourcePortId", config_.portId.value() + 1},
                                   {"remoteVtep", remotes}};
  hw["bumStatus"]["bumVtepList"]["00:00:00:00:00:00/" + vlan] = {{"remoteVtepAddr", remotes},
                                                                 {"listType", 0}};
  return doc;
}

void SwitchTopology::startHost() {
  if (host_) throw Lum::Exception("the host runs already");
  const std::string stateFile = dir_->file("state.json");
  std::ofstream(stateFile) << stateDocument().dump(2) << "\n";
  // `ip netns exec` enters the namespace and execs the host (through `taskset`, which
  // execs it in turn): the pid is the host's. The trace ring goes into the folder that
  // teardown removes.
  std::vector<std::string> argv = {"ip", "netns", "exec", switchNs_};
  if (config_.hostCpu >= 0) {
    argv.insert(argv.end(), {"taskset", "-c", std::to_string(config_.hostCpu)});
  }
  argv.insert(argv.end(), config_.hostWrapper.begin(), config_.hostWrapper.end());
  argv.insert(argv.end(), {VXRELAY_HOST_PROGRAM, "--library", VXRELAY_AGENT_LIBRARY, "--state",
                           stateFile, "--control", controlSocket_, "--name", agentName_});
  host_.emplace(argv, dir_->file("host.log"),
                std::vector<std::string>{"RINGLOGDIR=" + dir_->file("")});

  const auto deadline = std::chrono::steady_clock::now() + config_.hostStartLimit;
  bool answering = false;
  for (;;) {
    if (!hostRunning()) throw Lum::Exception("vxrelay-host exited: " + hostOutput());
    if (!answering && std::filesystem::exists(controlSocket_)) {
      answering = !thrown<std::exception>([&] {
        Statehub::ControlClient(controlSocket_)
            .request({{"op", "get"}, {"path", "mlag/status"}}, 1.0);
      });
    }
    // The agent mounts its counter table once its state mounts are complete.
    if (answering && !thrown<std::exception>([&] { (void)counters(); })) return;
    if (std::chrono::steady_clock::now() > deadline) {
      throw Lum::Exception(std::string("vxrelay-host did not come up in time (") +
                           (answering ? "no counter table" : "no control socket") +
                           "): " + hostOutput());
    }
    std::this_thread::sleep_for(kPollStep);
  }
}

bool SwitchTopology::hostRunning() {
  return host_ && host_->running();
}

void SwitchTopology::stopHost() {
  if (host_) host_->stop(kHostStopLimit);
  host_.reset();
}

nlohmann::json SwitchTopology::apply(const nlohmann::json& state) {
  return Statehub::ControlClient(controlSocket_).request({{"op", "apply"}, {"state", state}});
}

nlohmann::json SwitchTopology::query(const std::string& name) {
  return Statehub::ControlClient(controlSocket_)
      .request({{"op", "query"}, {"name", name}, {"args", nlohmann::json::object()}})
      .at("answer");
}

Vxlan::CounterTablesReading SwitchTopology::counters() const {
  return Vxlan::CounterTableReader(agentName_).counts();
}

std::string SwitchTopology::hostOutput() const {
  return host_ ? host_->output() : std::string();
}

void SwitchTopology::teardown() noexcept {
  stopHost();
  // Deleting a namespace deletes its devices, and a veth pair goes with either end.
  while (!made_.empty()) made_.pop_back();
  std::error_code ec;
  std::filesystem::remove("/dev/shm/vxrelay-" + agentName_ + "-vxlan-counter", ec);
  dir_.reset();
}

}  // namespace TestSupport
