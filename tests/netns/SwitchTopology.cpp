#include "tests/netns/SwitchTopology.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/core/Exception.h"
#include "platform/statehub/ControlClient.h"

extern char** environ;

namespace TestSupport {
namespace {

constexpr size_t kMaxDeviceName = 15;  // IFNAMSIZ less the terminating zero
constexpr auto kHostStartLimit = std::chrono::seconds(10);
constexpr auto kHostStopLimit = std::chrono::seconds(5);
constexpr auto kPollStep = std::chrono::milliseconds(50);

// Runs a command through the shell; its exit status and what it printed.
std::pair<int, std::string> run(const std::string& command) {
  std::string out;
  FILE* p = ::popen((command + " 2>&1").c_str(), "r");
  if (!p) return {-1, "popen failed"};
  char buf[512];
  while (size_t n = std::fread(buf, 1, sizeof buf, p)) out.append(buf, n);
  const int status = ::pclose(p);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

void runOrThrow(const std::string& command) {
  auto [status, out] = run(command);
  if (status != 0) throw Lum::Exception("`" + command + "` failed: " + out);
}

std::string deviceName(const std::string& name) {
  if (name.size() > kMaxDeviceName) throw Lum::Exception("device name too long: " + name);
  return name;
}

}  // namespace

std::vector<std::string> listNetworkNamespaces() {
  auto [status, out] = run("ip netns list");
  if (status != 0) throw Lum::Exception("`ip netns list` failed: " + out);
  std::vector<std::string> names;
  std::istringstream lines(out);
  // Lines read "name" or "name (id: 3)".
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find(' '));
    if (!name.empty()) names.push_back(name);
  }
  return names;
}

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

std::string SwitchTopology::remoteOverlayAddr(size_t i) const {
  return "192.168.10." + std::to_string(2 + i);
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
  char dir[] = "/tmp/vxnt-XXXXXX";
  if (!::mkdtemp(dir)) throw Lum::ErrnoException(errno, "mkdtemp");
  dir_ = dir;
  controlSocket_ = dir_ + "/ctl.sock";

  for (const std::string& ns : namespaces()) {
    runOrThrow("ip netns add " + ns);
    made_.push_back(ns);
    // Without IPv6 the devices send no neighbour discovery or listener reports of
    // their own: what crosses the fabric is what a test sends, and counts are exact.
    runOrThrow("ip netns exec " + ns +
               " sysctl -qw net.ipv6.conf.default.disable_ipv6=1 net.ipv6.conf.all.disable_ipv6=1");
    ip(ns, "link set lo up");
  }
  // A bridge without spanning tree forwards as soon as a port is up.
  ip(fabricNs_, "link add name br0 type bridge stp_state 0");
  ip(fabricNs_, "link set br0 up");

  addVtep(switchNs_, switchUnderlay_, deviceName("f" + tag_ + "s"), kVtepAddr);
  for (const char* pair : {kTxRawDevice, kVxlanDevice}) {
    const std::string peer = std::string(pair) + "-p";
    ip(switchNs_, "link add name " + std::string(pair) + " type veth peer name " + peer);
    ip(switchNs_, "link set " + peer + " up");
    ip(switchNs_, std::string("link set ") + pair + " up");
  }

  for (size_t i = 0; i < config_.remotes; ++i) {
    const std::string& ns = remoteNs_[i];
    addVtep(ns, remoteUnderlayDevice(i), deviceName("f" + tag_ + "r" + std::to_string(i)),
            remoteVtepAddr(i));
    addRemoteVxlanDevice(i, config_.vni, config_.udpPort);
  }
}

std::string SwitchTopology::remoteUnderlayDevice(size_t i) const {
  return deviceName("u" + tag_ + "r" + std::to_string(i));
}

void SwitchTopology::addRemoteVxlanDevice(size_t i, Vxlan::Vni vni, uint16_t udpPort) const {
  const std::string& ns = remoteNs_.at(i);
  ip(ns, std::string("link add name ") + kRemoteVxlanDevice + " type vxlan id " +
             std::to_string(vni.value()) + " remote " + kVtepAddr + " local " + remoteVtepAddr(i) +
             " dstport " + std::to_string(udpPort) + " dev " + remoteUnderlayDevice(i));
  ip(ns, "addr add " + remoteOverlayAddr(i) + "/24 dev " + kRemoteVxlanDevice);
  ip(ns, std::string("link set ") + kRemoteVxlanDevice + " up");
}

void SwitchTopology::remoteVxlanDeviceIs(size_t i, Vxlan::Vni vni, uint16_t udpPort) const {
  // The device lives in the remote's namespace, which teardown deletes: nothing to track.
  ip(remoteNs_.at(i), std::string("link del ") + kRemoteVxlanDevice);
  addRemoteVxlanDevice(i, vni, udpPort);
}

nlohmann::json SwitchTopology::stateDocument() const {
  using nlohmann::json;
  json remotes = json::object();
  for (size_t i = 0; i < config_.remotes; ++i) remotes[remoteVtepAddr(i)] = true;
  const std::string vlan = std::to_string(config_.vlan.value());
  return {
      {"interface/status/eth/vxlan",
       {{"vtiStatus",
         {{"Vxlan1",
           {{"operStatus", 1},
            {"localVtepAddr", kVtepAddr},
            {"srcIpIntf", "Loopback0"},
            {"srcIntfKernelName", switchUnderlay_},
            {"udpPort", config_.udpPort},
            {"ttl", 64},
            {"floodMcastGrp", "0.0.0.0"},
            {"vlanToVniMap", {{vlan, config_.vni.value()}}}}}}}}},
      {"vxlan/hardware/status",
       {{"vxlanHwStatus",
         {{"Vxlan1",
           {{"portId", config_.portId.value()},
            {"cpuSourcePortId", config_.portId.value() + 1},
            {"remoteVtep", remotes}}}}},
        {"bumStatus",
         {{"bumReplicationMode", 0},
          {"bumVtepList",
           {{"00:00:00:00:00:00/" + vlan, {{"remoteVtepAddr", remotes}, {"listType", 0}}}}}}}}},
      {"bridging/config", {{"bridgeMacAddr", "00:1c:73:00:00:01"}}},
      {"bridging/hwcapabilities", {{"vxlanTxRawSupported", true}}},
      {"mlag/status", {{"mlagState", 0}}},
  };
}

void SwitchTopology::startHost() {
  if (host_ > 0) throw Lum::Exception("the host runs already");
  const std::string stateFile = dir_ + "/state.json";
  std::ofstream(stateFile) << stateDocument().dump(2) << "\n";
  const std::string log = dir_ + "/host.log";

  std::vector<std::string> args = {"ip",
                                   "netns",
                                   "exec",
                                   switchNs_,
                                   VXRELAY_HOST_PROGRAM,
                                   "--library",
                                   VXRELAY_AGENT_LIBRARY,
                                   "--state",
                                   stateFile,
                                   "--control",
                                   controlSocket_,
                                   "--name",
                                   agentName_};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  // The trace ring goes into the folder that teardown removes.
  std::vector<std::string> env = {"RINGLOGDIR=" + dir_};
  for (char** e = environ; *e; ++e) {
    if (std::string_view(*e).starts_with("RINGLOGDIR=")) continue;
    env.emplace_back(*e);
  }
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  // `ip netns exec` enters the namespace and execs the host: the pid is the host's.
  const int rc = ::posix_spawnp(&host_, "ip", &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    host_ = -1;
    throw Lum::ErrnoException(rc, "posix_spawnp ip netns exec");
  }

  const auto deadline = std::chrono::steady_clock::now() + kHostStartLimit;
  bool answering = false;
  for (;;) {
    if (!hostRunning()) throw Lum::Exception("vxrelay-host exited: " + hostOutput());
    if (!answering && std::filesystem::exists(controlSocket_)) {
      try {
        Statehub::ControlClient(controlSocket_)
            .request({{"op", "get"}, {"path", "mlag/status"}}, 1.0);
        answering = true;
      } catch (const std::exception&) {
      }
    }
    if (answering) {
      // The agent mounts its counter table once its state mounts are complete.
      try {
        (void)counters();
        return;
      } catch (const std::exception&) {
      }
    }
    if (std::chrono::steady_clock::now() > deadline) {
      throw Lum::Exception(std::string("vxrelay-host did not come up in time (") +
                           (answering ? "no counter table" : "no control socket") +
                           "): " + hostOutput());
    }
    std::this_thread::sleep_for(kPollStep);
  }
}

bool SwitchTopology::hostRunning() {
  if (host_ <= 0) return false;
  int status = 0;
  if (::waitpid(host_, &status, WNOHANG) == host_) {
    host_ = -1;
    return false;
  }
  return true;
}

void SwitchTopology::stopHost() {
  if (!hostRunning()) return;
  ::kill(host_, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + kHostStopLimit;
  while (hostRunning()) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(host_, SIGKILL);
      ::waitpid(host_, nullptr, 0);
      host_ = -1;
      return;
    }
    std::this_thread::sleep_for(kPollStep);
  }
}

nlohmann::json SwitchTopology::apply(const nlohmann::json& state) {
  return Statehub::ControlClient(controlSocket_).request({{"op", "apply"}, {"state", state}});
}

Vxlan::CounterTablesReading SwitchTopology::counters() const {
  return Vxlan::CounterTableReader(agentName_).counts();
}

std::string SwitchTopology::hostOutput() const {
  std::ifstream in(dir_ + "/host.log");
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void SwitchTopology::teardown() noexcept {
  stopHost();
  // Deleting a namespace deletes its devices, and a veth pair goes with either end.
  for (auto ns = made_.rbegin(); ns != made_.rend(); ++ns) run("ip netns del " + *ns);
  made_.clear();
  std::error_code ec;
  std::filesystem::remove("/dev/shm/vxrelay-" + agentName_ + "-vxlan-counter", ec);
  if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
}

}  // namespace TestSupport
