// The remote-to-local direction of the agent host against the real kernel: a remote's
// kernel VXLAN device reaches "txraw", and the machine follows its inputs (its own
// datagrams, the "txraw" device going and coming, the VTI going down and up, a new UDP
// port) and never spins on a socket it cannot serve. Needs root; skipped without it.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

#include "agent/VxlanCounterId.h"
#include "tests/netns/NamespaceSwitch.h"
#include "tests/netns/OverlayFrames.h"
#include "tests/netns/PacketSocket.h"
#include "tests/netns/SwitchTopology.h"
#include "tests/netns/TopologyTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace TestSupport {
namespace {

using Vxlan::VxlanCounterId;

constexpr uint32_t kSwitchVtepIp = 0x0a630001;  // 10.99.0.1
constexpr uint32_t kRemoteVtepIp = 0x0a630002;  // 10.99.0.2
constexpr uint16_t kOtherUdpPort = 4790;

// CPU time (user and system) a process has used so far, in seconds, from
// /proc/<pid>/stat: fields 14 and 15, counted after the command name in parentheses.
double cpuSeconds(pid_t pid) {
  const std::string text = fileText("/proc/" + std::to_string(pid) + "/stat");
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string skip;
  for (int i = 3; i < 14; ++i) fields >> skip;
  unsigned long long utime = 0, stime = 0;
  fields >> utime >> stime;
  return static_cast<double>(utime + stime) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// The IPv4 datagrams the kernel of `netns` has taken in so far: Ip InReceives, the
// fourth field of the "Ip:" line of values in /proc/net/snmp.
uint64_t ipInReceives(const std::string& netns) {
  return std::stoull(
      run("ip netns exec " + netns + " awk '/^Ip: [0-9]/ {print $4}' /proc/net/snmp").second);
}

// Tag 0x0008 behind the MAC addresses: what the agent writes, never the kernel.
bool isTxRawForm(const Frame& f) {
  return f.size() > 14 && f[12] == 0x00 && f[13] == 0x08;
}

class R2LNetnsTest : public TopologyTest {
 protected:
  // In the filtered mode the kernel drops what the agent would filter, uncounted.
  static bool filteredInKernel() { return frameMode() == "filtered"; }
  void expectFilteredCounted(uint64_t before) const {
    if (!filteredInKernel()) {
      EXPECT_GT(countAbove(VxlanCounterId::r2lFilteredFrames, before), before);
    }
  }
  // What a host behind remote 0 sends; the agent forwards it whatever it holds.
  static Frame overlayFrame() { return VxlanFrameBuilder::defaultInner(46); }
  Frame expectedTxRaw() const {
    return txRawFrame(overlayFrame(), topo_->config().vlan, topo_->config().portId);
  }
  // The overlay frame through the kernel VXLAN device of remote 0.
  void sendOverlayFrame() {
    PacketSocket(topo_->remoteNs(0), SwitchTopology::kRemoteVxlanDevice,
                 PacketSocket::Mode::sendOnly)
        .send(overlayFrame());
  }
  // A VXLAN datagram carrying the overlay frame, written below remote 0's kernel device.
  void sendDatagram(uint32_t saddr) {
    VxlanFrameBuilder b;
    b.saddr = saddr;
    b.daddr = kSwitchVtepIp;
    b.dport = topo_->config().udpPort;
    b.vni = topo_->config().vni.value();
    b.inner = overlayFrame();
    Frame f = b.build();
    std::fill(f.begin(), f.begin() + 6, 0xff);  // broadcast: no neighbour needed
    // A bridge that checks IPv4 headers drops one without its length and checksum.
    const uint16_t ipLen = static_cast<uint16_t>(f.size() - 14);
    f[16] = static_cast<uint8_t>(ipLen >> 8);
    f[17] = static_cast<uint8_t>(ipLen);
    const uint16_t sum = inetChecksum(f, 14, 34);
    f[24] = static_cast<uint8_t>(sum >> 8);
    f[25] = static_cast<uint8_t>(sum);
    PacketSocket(topo_->remoteNs(0), topo_->remoteUnderlayDevice(0), PacketSocket::Mode::sendOnly)
        .send(f);
  }
  // Sends until a frame in the txraw form reaches the peer (the agent may still be
  // taking a change in); that frame, or empty when none came in time.
  template <typename Send>
  std::optional<Frame> forwardedWithin(Send send, std::chrono::milliseconds limit) {
    PacketSocket peer(topo_->switchNs(), SwitchTopology::kTxRawPeer, PacketSocket::Mode::capture);
    std::optional<Frame> got;
    eventually([&] { return send(), (got = peer.receive(isTxRawForm, kQuietWait)).has_value(); },
               limit);
    return got;
  }
  // Sends once with the peer open: whether nothing in the txraw form came in kQuietWait.
  template <typename Send>
  bool nothingForwarded(Send send) {
    PacketSocket peer(topo_->switchNs(), SwitchTopology::kTxRawPeer, PacketSocket::Mode::capture);
    send();
    return !peer.receive(isTxRawForm, kQuietWait).has_value();
  }
};

// Guards the path end to end and the source filter, in the kernel's filter too: a
// datagram from a remote reaches the txraw peer in the txraw form, VLAN and glort; the
// same one from the switch's own VTEP address is filtered. (A VNI without a VLAN, and
// the counters of each outcome: the frame loop's drop table.)
TEST_F(R2LNetnsTest, OwnVtepIsFilteredInTheKernelOrCounted) {
  // The hand-built datagram is well formed: from the remote it goes through.
  const auto got = forwardedWithin([&] { sendDatagram(kRemoteVtepIp); }, kFrameWait);
  ASSERT_TRUE(got.has_value()) << "the hand-built datagram was not forwarded";
  EXPECT_EQ(*got, expectedTxRaw());
  expectReadsAsTheFrameMode("remoteToLocal");

  const uint64_t filtered = count(VxlanCounterId::r2lFilteredFrames);
  EXPECT_TRUE(nothingForwarded([&] { sendDatagram(kSwitchVtepIp); }));
  expectFilteredCounted(filtered);
}

// Guards the kernel device watch: "txraw" gone must stop the writes, and "txraw" made
// again (a new device with a new index) must get a new socket, not the stale one.
TEST_F(R2LNetnsTest, TxRawDeletedAndRecreatedResumesForwarding) {
  ASSERT_TRUE(forwardedWithin([&] { sendOverlayFrame(); }, kFrameWait).has_value());

  topo().ip(topo().switchNs(), std::string("link del ") + SwitchTopology::kTxRawDevice);
  const uint64_t tx = count(VxlanCounterId::r2lTxFrames);
  sendOverlayFrame();
  std::this_thread::sleep_for(kQuietWait);  // a bounded window in which nothing may go out
  EXPECT_EQ(count(VxlanCounterId::r2lTxFrames), tx);

  topo().switchVethPairIs(SwitchTopology::kTxRawDevice);
  EXPECT_TRUE(forwardedWithin([&] { sendOverlayFrame(); }, kSettleLimit))
      << "nothing reached the new txraw peer";
}

// Guards the UDP port being followed into the kernel: after a change the old port is
// filtered and the new one forwarded. (The VTI's state: the lifecycle unit test.)
TEST_F(R2LNetnsTest, UdpPortIsFollowed) {
  const auto overlay = [&] { sendOverlayFrame(); };
  ASSERT_TRUE(forwardedWithin(overlay, kFrameWait).has_value());
  ASSERT_TRUE(applyVti({{"udpPort", kOtherUdpPort}}).value("ok", false));
  ASSERT_TRUE(eventually([&] { return nothingForwarded(overlay); }, kSettleLimit))
      << "the old port is still forwarded";
  const uint64_t filtered = count(VxlanCounterId::r2lFilteredFrames);
  EXPECT_TRUE(nothingForwarded(overlay));
  expectFilteredCounted(filtered);
  topo().remoteVxlanDeviceIs(0, topo().config().vni, kOtherUdpPort);
  EXPECT_TRUE(forwardedWithin(overlay, kSettleLimit)) << "the new port is not forwarded";
}

// Guards against the busy loop of a remote socket that cannot be served: with "txraw"
// gone (local socket closed) a new UDP port reopens the remote socket; a datagram then
// waits on it and its device goes down (a pending socket error). The host must stay
// nearly idle: a readable watch left on would call the frame loop, which cannot take
// the datagram, on every pass of the loop.
TEST_F(R2LNetnsTest, RemoteSocketWithoutLocalSocketDoesNotSpin) {
  ASSERT_TRUE(forwardedWithin([&] { sendOverlayFrame(); }, kFrameWait).has_value());
  topo().ip(topo().switchNs(), std::string("link del ") + SwitchTopology::kTxRawDevice);
  std::this_thread::sleep_for(kQuietWait);  // the kernel watcher reports the device gone
  ASSERT_TRUE(applyVti({{"udpPort", kOtherUdpPort}}).value("ok", false));
  topo().remoteVxlanDeviceIs(0, topo().config().vni, kOtherUdpPort);
  sendOverlayFrame();
  std::this_thread::sleep_for(kQuietWait);
  topo().ip(topo().switchNs(), "link set " + topo().underlayDevice() + " down");

  constexpr double kWindow = 2.0;
  const double before = cpuSeconds(topo().hostPid());
  std::this_thread::sleep_for(std::chrono::duration<double>(kWindow));
  const double used = cpuSeconds(topo().hostPid()) - before;
  EXPECT_LT(used, 0.2 * kWindow) << "the host used " << used << " s of CPU in " << kWindow << " s";
  EXPECT_TRUE(topo().hostRunning()) << topo().hostOutput();
}

// Guards the VXLAN port while the agent runs: the forwarded datagrams are dropped at
// the underlay's ingress once the remote socket has them, so the kernel's IP input sees
// none and answers none with an ICMP port unreachable; once the agent is gone (the
// drop goes with the process) it sees them all and answers. Before Linux 6.6 (no tcx)
// the input sees them while the agent runs too, and the port sink keeps it silent.
TEST_F(R2LNetnsTest, ForwardedDatagramsNeitherReachNorAnswerTheKernel) {
  ASSERT_TRUE(forwardedWithin([&] { sendOverlayFrame(); }, kFrameWait).has_value());
  constexpr uint64_t kFrames = 20;
  const auto portUnreachable = [](const Frame& f) {
    return f.size() > 35 && get16(f, 12) == 0x0800 && f[23] == 1 && f[34] == 3 && f[35] == 3;
  };
  // The datagrams the kernel took in of kFrames sent, and whether it answered one.
  const auto kernelSees = [&] {
    PacketSocket underlay(topo().remoteNs(0), topo().remoteUnderlayDevice(0),
                          PacketSocket::Mode::capture);
    const uint64_t before = ipInReceives(topo().switchNs());
    for (uint64_t i = 0; i < kFrames; ++i) sendOverlayFrame();
    const bool answered = underlay.receive(portUnreachable, kQuietWait).has_value();
    std::this_thread::sleep_for(kQuietWait / 5);
    return std::pair{ipInReceives(topo().switchNs()) - before, answered};
  };
  const uint64_t written = count(VxlanCounterId::r2lTxFrames);
  const auto [running, answeredRunning] = kernelSees();
  EXPECT_EQ(running < kFrames, kernelAtLeast(6, 6)) << "the kernel took in " << running;
  EXPECT_FALSE(answeredRunning);
  EXPECT_EQ(count(VxlanCounterId::r2lTxFrames) - written, kFrames);
  topo().stopHost();
  const auto [stopped, answeredStopped] = kernelSees();
  EXPECT_GE(stopped, kFrames) << "the check would not see the datagrams: " << stopped;
  EXPECT_TRUE(answeredStopped) << "the check would not see an answer";
}

// Another endpoint on this host holding the VXLAN port (the agent's sink cannot bind)
// keeps its datagrams: the agent forwards its copies and drops nothing at the device.
TEST_F(R2LNetnsTest, AnotherEndpointOnThePortKeepsItsDatagrams) {
  // Made in the switch's namespace: the switch lasts to the end of the statement.
  const int other = (NamespaceSwitch(topo().switchNs()), ::socket(AF_INET, SOCK_DGRAM, 0));
  const sockaddr_in addr{AF_INET, htons(kOtherUdpPort), {htonl(kSwitchVtepIp)}, {}};
  ASSERT_EQ(::bind(other, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_TRUE(applyVti({{"udpPort", kOtherUdpPort}}).value("ok", false));
  topo().remoteVxlanDeviceIs(0, topo().config().vni, kOtherUdpPort);
  EXPECT_TRUE(forwardedWithin([&] { sendOverlayFrame(); }, kSettleLimit).has_value());
  EXPECT_GE(::recv(other, nullptr, 0, MSG_DONTWAIT | MSG_TRUNC), 0) << "it got nothing";
  ::close(other);
}

}  // namespace
}  // namespace TestSupport
