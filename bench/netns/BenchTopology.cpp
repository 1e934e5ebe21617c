#include "bench/netns/BenchTopology.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "platform/core/Exception.h"
#include "platform/types/EthAddr.h"
#include "tests/netns/OverlayFrames.h"
#include "tests/support/Shell.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Bench {
namespace {

constexpr const char* kKernelVtep = "kvx";
constexpr const char* kKernelBridge = "kbr";
constexpr const char* kKernelPort = "kv";
constexpr const char* kKernelPortPeer = "kv-p";
constexpr const char* kKernelSink = "ks";
constexpr uint16_t kUserType = 0x88b5;  // local experimental: no stack answers it
constexpr uint16_t kHighPriority = 0x0041;
constexpr uint32_t kSwitchVtepIp = 0x0a630001;  // 10.99.0.1
constexpr uint32_t kRemoteVtepIp = 0x0a630002;  // 10.99.0.2

TestSupport::SwitchTopologyConfig configFor(Path path, int cpu, std::vector<std::string> wrapper) {
  TestSupport::SwitchTopologyConfig c;
  c.remotes = 1;
  c.remoteHosts = true;
  if (path == Path::vxrelay) c.hostCpu = cpu;
  if (!wrapper.empty()) c.hostStartLimit = std::chrono::seconds(90);
  c.hostWrapper = std::move(wrapper);
  return c;
}

// R2L frames go to this address: the kernel path's bridge knows it on its sink alone.
constexpr uint8_t kSinkMac[6] = {0x02, 0, 0, 0, 0x20, 0x01};
constexpr uint8_t kBroadcast[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// A frame of a type nobody answers to `dst`, `size` bytes from the MAC addresses on.
std::vector<uint8_t> userFrame(size_t size, const uint8_t (&dst)[6], uint8_t srcLast) {
  std::vector<uint8_t> f(dst, dst + 6);
  for (uint8_t b : {0x02, 0, 0, 0, 0x10}) f.push_back(b);
  f.push_back(srcLast);
  TestSupport::push16(f, kUserType);
  f.resize(size, 0xa5);
  return f;
}

void copyMac(const std::string& text, uint8_t* to) {
  const Wire::EthAddr mac = Wire::EthAddr::fromString(text);
  std::copy(mac.bytes().begin(), mac.bytes().end(), to);
}

nlohmann::json linkJson(const Port& port, const char* options) {
  const auto [status, out] =
      TestSupport::run("ip -n " + port.netns + " " + options + " -j link show dev " + port.device);
  if (status != 0) throw Lum::Exception("ip link show " + port.device + ": " + out);
  return nlohmann::json::parse(out).at(0);
}

// A task's time on a CPU so far (the first field of its schedstat, in nanoseconds).
double runSeconds(const std::string& task) {
  std::ifstream in(task + "/schedstat");
  uint64_t ns = 0;
  if (!(in >> ns)) throw Lum::Exception("cannot read " + task + "/schedstat");
  return static_cast<double>(ns) / 1e9;
}

}  // namespace

const char* name(Direction d) {
  return d == Direction::r2l ? "R2L" : "L2R";
}

const char* name(Path p) {
  return p == Path::vxrelay ? "vxrelay" : "kernel";
}

uint64_t rxPackets(const Port& port) {
  return linkJson(port, "-s").at("stats64").at("rx").at("packets").get<uint64_t>();
}

BenchTopology::BenchTopology(Path path, int pathCpu, int generatorCpu, Receive receive,
                             std::vector<std::string> hostWrapper)
    : path_(path), topo_(configFor(path, pathCpu, std::move(hostWrapper))) {
  // Should a step throw, topo_ (whole by now) removes everything on the way out.
  if (path_ == Path::kernel) addKernelVtep();
  if (path_ == Path::vxrelay) {
    // The agent's "txraw" as a sink, like the kernel path's "ks" (see steerTo).
    topo_.ip(topo_.switchNs(),
             std::string("link del ") + TestSupport::SwitchTopology::kTxRawDevice);
    addSink(TestSupport::SwitchTopology::kTxRawDevice);
  }
  // The remote VTEP's address resolved for good: no ARP exchange inside a measurement.
  topo_.ip(topo_.switchNs(), "neigh replace " + topo_.remoteVtepAddr(0) + " lladdr " +
                                 mac(topo_.remoteNs(0), topo_.remoteUnderlayDevice(0)) + " dev " +
                                 topo_.underlayDevice() + " nud permanent");
  // Where bridge netfilter is loaded (a container runtime loads it), a new namespace's
  // bridges pass every frame through the IP, IPv6 and ARP tables: work that the kernel
  // path would be charged with and that a plain bridge does not do.
  for (const std::string& ns : {topo_.switchNs(), topo_.fabricNs(), topo_.remoteNs(0)}) {
    TestSupport::runOrThrow("ip netns exec " + ns +
                            " sh -c 'for f in /proc/sys/net/bridge/bridge-nf-call-*; do "
                            "[ ! -e \"$f\" ] || echo 0 > \"$f\"; done'");
  }
  steerTo(pathCpu, generatorCpu, receive);
  if (path_ == Path::vxrelay) topo_.startHost();
}

void BenchTopology::addKernelVtep() {
  const std::string& ns = topo_.switchNs();
  const auto& c = topo_.config();
  // No learning: the remote is the default destination, as the agent's flood list has it.
  topo_.ip(ns, std::string("link add name ") + kKernelVtep + " type vxlan id " +
                   std::to_string(c.vni.value()) + " remote " + topo_.remoteVtepAddr(0) +
                   " local " + TestSupport::SwitchTopology::kVtepAddr + " dstport " +
                   std::to_string(c.udpPort) + " ttl " + std::to_string(c.ttl) + " dev " +
                   topo_.underlayDevice() + " nolearning");
  topo_.ip(ns, std::string("link add name ") + kKernelBridge + " type bridge stp_state 0");
  topo_.ip(ns,
           std::string("link add name ") + kKernelPort + " type veth peer name " + kKernelPortPeer);
  addSink(kKernelSink);
  for (const char* port : {kKernelVtep, kKernelPort, kKernelSink}) {
    topo_.ip(ns, std::string("link set ") + port + " master " + kKernelBridge + " up");
  }
  // The sink takes the R2L frames (addressed to it) and nothing flooded: L2R's
  // broadcasts go to "kvx" alone, as the agent's go to the remote alone.
  TestSupport::runOrThrow("bridge -n " + ns + " link set dev " + kKernelSink +
                          " flood off mcast_flood off bcast_flood off");
  std::ostringstream sinkMac;
  sinkMac << Wire::EthAddr::fromBytes(kSinkMac);
  TestSupport::runOrThrow("bridge -n " + ns + " fdb add " + sinkMac.str() + " dev " + kKernelSink +
                          " master static");
  topo_.ip(ns, std::string("link set ") + kKernelPortPeer + " up");
  topo_.ip(ns, std::string("link set ") + kKernelBridge + " up");
}

// An IFB device takes a frame handed to it for sending, counts it as received and
// frees it (it passes on only what a traffic-control rule redirected to it): a sink.
// No IPv6 on it, so that nothing of its own is counted, and no queue, as a veth has none.
void BenchTopology::addSink(const std::string& device) {
  const std::string& ns = topo_.switchNs();
  topo_.ip(ns, "link add name " + device + " type ifb");
  topo_.ip(ns, "link set " + device + " txqueuelen 0");
  TestSupport::runOrThrow("ip netns exec " + ns + " sysctl -qw net.ipv6.conf." + device +
                          ".disable_ipv6=1");
  topo_.ip(ns, "link set " + device + " up");
}

// Receive packet steering. A veth hands a frame to the receiving end's backlog on the
// CPU that sends it, and that CPU's softirq carries it on through every bridge, VXLAN
// device and veth behind, each hop queueing it in that same per-CPU backlog, unless a
// device steers it elsewhere. The split made here:
//
//   path CPU       the switch's work only: the switch's receiving devices (the underlay
//                  for R2L; "vxlan" or "kv" for L2R) steer there, and what the agent or
//                  the kernel sends on starts there.
//   generator CPU  the other machines: the generator, the fabric bridge (its ports steer
//                  here) and the remote VTEP's decapsulation.
//
// So the frames the switch sends on never wait in the backlog that the generator keeps
// full in an overload, which would drop them after all the switch's work was done;
// and the kernel path gets one CPU, as the agent does (its softirq work for the
// agent's sockets runs on the agent's CPU too).
//
// R2L ends in a sink on both paths ("txraw" for the agent, the bridge port "ks"
// for the kernel), which counts a frame as it is handed over and frees it: no far end
// to steer. A veth far end steered to the generator's CPU cost the agent an
// inter-processor interrupt per frame (a process's send runs the softirq that hands
// the frame over at once, one frame at a time, where the kernel's softirq hands over a
// batch per interrupt) and took the generator's CPU with it, a cost that only the
// emulation has: a switch's forwarding plane takes the agent's frames on no other CPU.
void BenchTopology::steerTo(int pathCpu, int generatorCpu, Receive receive) {
  const auto steer = [](const std::string& netns, const std::string& devices, int cpu) {
    char mask[16];  // a CPU mask in hex, as the file takes it
    std::snprintf(mask, sizeof mask, "%x", 1u << cpu);
    TestSupport::runOrThrow("ip netns exec " + netns + " sh -c 'for d in " + devices +
                            "; do echo " + mask +
                            " > /sys/class/net/$d/queues/rx-0/rps_cpus; done'");
  };
  const std::string& ns = topo_.switchNs();
  const std::string local =
      path_ == Path::vxrelay ? TestSupport::SwitchTopology::kVxlanDevice : kKernelPort;
  const std::string localPeer =
      path_ == Path::vxrelay ? TestSupport::SwitchTopology::kVxlanPeer : kKernelPortPeer;
  if (receive == Receive::napi) {
    pollOn({ns, topo_.underlayDevice()}, {topo_.fabricNs(), topo_.switchFabricEnd()}, pathCpu);
    pollOn({ns, local}, {ns, localPeer}, pathCpu);
  } else {
    steer(ns, topo_.underlayDevice() + " " + local, pathCpu);
  }
  // Every port of the fabric bridge.
  steer(topo_.fabricNs(), "$(ls /sys/class/net | grep -v -e lo -e br0)", generatorCpu);
}

// A NIC's way: the receiving veth takes frames into a ring of its own (256) and a
// polling thread of its own on `cpu` ("napi/<device>-<id>", threaded NAPI) carries
// them on, a batch at a time. When the path's CPU falls behind, the ring fills and the
// sender drops on its own CPU, before any work on the path's. The veth polls only with
// GRO on, and takes a sender's frame into the ring only when the sender does no TSO.
void BenchTopology::pollOn(const Port& device, const Port& peer, int cpu) {
  TestSupport::runOrThrow("ip netns exec " + peer.netns + " ethtool -K " + peer.device +
                          " tso off");
  TestSupport::runOrThrow("ip netns exec " + device.netns + " ethtool -K " + device.device +
                          " gro on");
  TestSupport::runOrThrow("ip netns exec " + device.netns + " sh -c 'echo 1 > /sys/class/net/" +
                          device.device + "/threaded'");
  // A thread's name is cut to 15 characters; each one found is moved to `cpu`.
  const std::string name = ("napi/" + device.device + "-").substr(0, 15);
  const auto [status, pids] =
      TestSupport::run("for p in /proc/[0-9]*; do case \"$(cat $p/comm 2>/dev/null)\" in '" + name +
                       "'*) taskset -p -c " + std::to_string(cpu) +
                       " ${p#/proc/} > /dev/null && echo ${p#/proc/};; "
                       "esac; done");
  if (status != 0 || pids.empty()) {
    throw Lum::Exception("no polling thread " + name + " to move to CPU " + std::to_string(cpu));
  }
  std::istringstream found(pids);
  for (pid_t pid; found >> pid;) pollers_.push_back(pid);
}

PathTimes BenchTopology::cpuTimes() const {
  PathTimes t;
  if (!pollers_.empty()) t.polling = 0.0;
  for (pid_t pid : pollers_) *t.polling += runSeconds("/proc/" + std::to_string(pid));
  if (topo_.hostPid() > 0) {
    for (const auto& task : std::filesystem::directory_iterator(
             "/proc/" + std::to_string(topo_.hostPid()) + "/task")) {
      t.agent += runSeconds(task.path().string());
    }
  }
  return t;
}

std::string BenchTopology::mac(const std::string& netns, const std::string& device) const {
  return linkJson({netns, device}, "").at("address").get<std::string>();
}

Port BenchTopology::input(Direction d) const {
  if (d == Direction::r2l) return {topo_.fabricNs(), topo_.switchFabricEnd()};
  return {topo_.switchNs(),
          path_ == Path::vxrelay ? TestSupport::SwitchTopology::kVxlanPeer : kKernelPortPeer};
}

Port BenchTopology::output(Direction d) const {
  if (d == Direction::l2r) return {topo_.remoteNs(0), TestSupport::SwitchTopology::kRemoteHostPeer};
  return {topo_.switchNs(),
          path_ == Path::vxrelay ? TestSupport::SwitchTopology::kTxRawDevice : kKernelSink};
}

std::vector<uint8_t> BenchTopology::frame(Direction d, size_t size) const {
  const auto& c = topo_.config();
  if (d == Direction::l2r) {
    const std::vector<uint8_t> user = userFrame(size, kBroadcast, 0x01);
    if (path_ == Path::kernel) return user;
    return TestSupport::localFrame(user, kHighPriority, 0, c.vlan.value());
  }
  TestSupport::VxlanFrameBuilder b;
  b.saddr = kRemoteVtepIp;
  b.daddr = kSwitchVtepIp;
  b.dport = c.udpPort;
  b.vni = c.vni.value();
  b.inner = userFrame(size, kSinkMac, 0x02);
  std::vector<uint8_t> f = b.build();
  // Addressed to the switch's underlay device, which the switch's kernel takes as its
  // own; it is written straight into the fabric's end of that veth, as if the remote's
  // datagram had crossed the fabric (the generator's CPU then spends nothing on the
  // fabric bridge and offers more).
  copyMac(mac(topo_.switchNs(), topo_.underlayDevice()), f.data());
  copyMac(mac(topo_.remoteNs(0), topo_.remoteUnderlayDevice(0)), f.data() + 6);
  // The kernel's IPv4 receive wants the total length and the header checksum right.
  const uint16_t ipLen = static_cast<uint16_t>(f.size() - 14);
  f[16] = static_cast<uint8_t>(ipLen >> 8);
  f[17] = static_cast<uint8_t>(ipLen);
  const uint16_t sum = TestSupport::inetChecksum(f, 14, 34);
  f[24] = static_cast<uint8_t>(sum >> 8);
  f[25] = static_cast<uint8_t>(sum);
  return f;
}

}  // namespace Bench
