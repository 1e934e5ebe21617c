// TestSupport::SwitchTopology: a switch and its remote VTEPs in network namespaces of
// their own, for tests that run the agent host against the real kernel (as root).
//
//   TestSupport::SwitchTopology topo;          // namespaces and devices, or throws
//   topo.startHost();                          // vxrelay-host in the switch namespace
//   TestSupport::PacketSocket txraw(topo.switchNs(), topo.kTxRawPeer, ...);
//   ... traffic from topo.remoteNs(0) through its kernel device "vx0" ...
//   topo.counters();                           // the agent's counter tables
//
// What it builds (names carry the pid and a per-process number, so runs in parallel
// and leftovers of a killed run never collide; devices live only in these namespaces):
//
//   fabric ns:  bridge "br0" joining one veth end per VTEP
//   switch ns:  underlay veth end with the VTEP address (10.99.0.1/24);
//               "txraw" <-> "txraw-p" and "vxlan" <-> "vxlan-p", veth pairs whose
//               peers the test reads and writes
//   remote i:   underlay veth end 10.99.0.(2+i)/24; kernel VXLAN device "vx0"
//               (VNI, remote = the switch VTEP or a group, port 4789) with
//               192.168.10.(2+i)/24, or as a port of bridge "brh" beside host veth
//               "h0" <-> "h0-p" (remoteHosts)
//   IPv6 is off in every namespace, so no device sends traffic of its own accord.
//
// The host gets a state file made from the parameters (VTI "Vxlan1" up on the
// underlay device, the VLAN to VNI entry, the hardware port id), a control socket and
// its trace ring in a temporary folder. The destructor stops the host, deletes the
// namespaces (their devices go with them), the folder and the shared-memory counter
// table: everything it made, also when a test fails midway. It runs nothing in the
// host's own namespace but `ip netns add/del`.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "agent/CounterTableReader.h"
#include "platform/types/HwPortId.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

namespace TestSupport {

struct SwitchTopologyConfig {
  size_t remotes = 1;
  Bridging::VlanId vlan{10};
  Vxlan::Vni vni{5010};
  Vxlan::HwPortId portId{16};
  uint16_t udpPort = 4789;
  uint8_t ttl = 64;
  // Each remote's kernel VXLAN device is a port of a bridge "brh" with a host veth
  // "h0" whose peer "h0-p" the test reads: what a host behind that VTEP would get.
  bool remoteHosts = false;
  // A group (for example "239.1.1.1") that the remotes' kernel VXLAN devices join and
  // flood to, instead of sending to the switch's VTEP address.
  std::string remoteGroup;
  // The CPU that the host runs on (`taskset -c`), for benchmarks; -1 leaves it free.
  int hostCpu = -1;
  // A program (with its arguments) that runs the host, for benchmarks: valgrind, say.
  std::vector<std::string> hostWrapper;
  // How long the host may take to answer; a host under valgrind takes longer.
  std::chrono::seconds hostStartLimit{10};
};

class SwitchTopology {
 public:
  static constexpr const char* kTxRawDevice = "txraw";
  static constexpr const char* kTxRawPeer = "txraw-p";
  static constexpr const char* kVxlanDevice = "vxlan";
  static constexpr const char* kRemoteVxlanDevice = "vx0";
  static constexpr const char* kVtepAddr = "10.99.0.1";
  static constexpr const char* kVxlanPeer = "vxlan-p";
  static constexpr const char* kRemoteHostPeer = "h0-p";

  // Builds the namespaces and devices; on failure removes what it made and throws
  // Lum::Exception with the refused command and its output.
  explicit SwitchTopology(SwitchTopologyConfig config = {});
  ~SwitchTopology();
  SwitchTopology(const SwitchTopology&) = delete;
  SwitchTopology& operator=(const SwitchTopology&) = delete;

  const SwitchTopologyConfig& config() const { return config_; }
  const std::string& switchNs() const { return switchNs_; }
  const std::string& fabricNs() const { return fabricNs_; }
  const std::string& remoteNs(size_t i) const { return remoteNs_.at(i); }
  // Every namespace made, for checks that teardown left none.
  std::vector<std::string> namespaces() const;
  const std::string& underlayDevice() const { return switchUnderlay_; }
  const std::string& agentName() const { return agentName_; }
  const std::string& controlSocket() const { return controlSocket_; }
  std::string remoteVtepAddr(size_t i) const;
  // The underlay veth end of remote i, for frames written below its kernel VXLAN device.
  std::string remoteUnderlayDevice(size_t i) const;
  // The fabric's end of the switch's underlay veth: what is written there reaches the
  // switch without crossing the fabric bridge.
  std::string switchFabricEnd() const;
  // Makes the veth pair `device` <-> `device`-p in the switch namespace, both up: how
  // "txraw" and "vxlan" are made, and made again by tests that deleted one.
  void switchVethPairIs(const std::string& device) const;
  // Replaces the kernel VXLAN device of remote i by one with this VNI and destination
  // port (same name, addresses and remote), for traffic the switch is not set up for.
  void remoteVxlanDeviceIs(size_t i, Vxlan::Vni vni, uint16_t udpPort) const;

  // The state document the host starts from.
  nlohmann::json stateDocument() const;
  // Starts vxrelay-host in the switch namespace and waits (bounded) until its control
  // socket answers and its counter table exists; throws with the host's output when
  // it exits or does not come up in time.
  void startHost();
  bool hostRunning();
  // The host's process id (the program `ip netns exec` ran), -1 when not running.
  pid_t hostPid() const { return host_ ? host_->pid() : -1; }
  // SIGTERM, then SIGKILL when the host does not end in time.
  void stopHost();

  // Applies a state document through the control socket; the server's answer.
  nlohmann::json apply(const nlohmann::json& state);
  // The answer to the query `name` (as `vxrelayctl show` asks it).
  nlohmann::json query(const std::string& name);
  Vxlan::CounterTablesReading counters() const;

  // Runs `ip -n <netns> <args>`; throws Lum::Exception on failure.
  void ip(const std::string& netns, const std::string& args) const;
  // What the host wrote to stdout and stderr so far.
  std::string hostOutput() const;

 private:
  void build();
  void addRemoteVxlanDevice(size_t i, Vxlan::Vni vni, uint16_t udpPort) const;
  void addVtep(const std::string& netns, const std::string& device, const std::string& fabricEnd,
               const std::string& addr) const;
  void teardown() noexcept;

  SwitchTopologyConfig config_;
  std::string tag_;
  std::string switchNs_;
  std::string fabricNs_;
  std::vector<std::string> remoteNs_;
  std::vector<std::unique_ptr<ScopedNetns>> made_;
  std::string switchUnderlay_;
  std::string agentName_;
  std::optional<TempDir> dir_;
  std::string controlSocket_;
  std::optional<ChildProcess> host_;
};

}  // namespace TestSupport
