// The local-to-remote direction of the agent host against the real kernel: frames
// written in the local form into the peer of the switch's "vxlan" device leave as
// VXLAN datagrams that Linux kernel VXLAN devices in the remote namespaces take and
// deliver to a host veth behind a bridge; the datagrams themselves are read on a
// remote's underlay. (Access ports by kernel index: the unit test of access ports.)
// Needs root; skipped without it.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/VxlanCounterId.h"
#include "platform/types/EthAddr.h"
#include "tests/netns/NamespaceSwitch.h"
#include "tests/netns/PacketSocket.h"
#include "tests/netns/TopologyTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace TestSupport {
namespace {

using Id = Vxlan::VxlanCounterId;

constexpr uint16_t kHigh = 0x0041;
constexpr uint16_t kLow = 0x0033;
constexpr uint8_t kTtl = 33;

// A user frame of a type no host stack answers, marked with `mark` so that each test
// frame is told apart from every other.
Frame userFrame(const char* dst, uint32_t mark) {
  const auto d = Wire::EthAddr::fromString(dst).bytes();
  Frame f = {d[0], d[1], d[2], d[3], d[4], d[5], 0x02, 0x00, 0x00, 0x00, 0x10, 0x01};
  push16(f, 0x88b5);
  push32(f, mark);
  f.resize(60, 0xa5);
  return f;
}

class L2RNetnsTest : public TopologyTest {
 protected:
  SwitchTopologyConfig topologyConfig() const override {
    SwitchTopologyConfig c;
    c.remotes = 2;
    c.remoteHosts = true;
    c.ttl = kTtl;
    return c;
  }

  void sendLocal(const Frame& user, uint16_t type = kHigh, uint16_t flags = 0, uint32_t src = 0) {
    PacketSocket(topo_->switchNs(), SwitchTopology::kVxlanPeer, PacketSocket::Mode::sendOnly)
        .send(localFrame(user, type, flags, topo_->config().vlan.value(), src));
  }
  // Writes fresh frames for `dst` until the host behind remote `first` gets one (the
  // agent may still be opening its sockets or taking a change in); then which remotes
  // got the last frame. Empty when remote `first` got none within `limit`.
  std::vector<bool> deliveries(const char* dst, size_t first,
                               std::chrono::milliseconds limit = kSettleLimit,
                               uint16_t type = kHigh) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
      std::vector<std::unique_ptr<PacketSocket>> hosts;
      for (size_t i = 0; i < topo_->config().remotes; ++i) {
        hosts.push_back(std::make_unique<PacketSocket>(
            topo_->remoteNs(i), SwitchTopology::kRemoteHostPeer, PacketSocket::Mode::capture));
      }
      const Frame f = userFrame(dst, ++mark_);
      sendLocal(f, type);
      const auto same = [&f](const Frame& got) { return got == f; };
      if (!hosts[first]->receive(same, kQuietWait)) continue;
      std::vector<bool> got(hosts.size());
      for (size_t i = 0; i < hosts.size(); ++i) {
        got[i] = i == first || hosts[i]->receive(same, kQuietWait).has_value();
      }
      return got;
    }
    return {};
  }
  // Whether remote 0's host gets `user` when a child process that takes user `uid`
  // sends it in the local form to the ARP inspection socket.
  bool inspectedReachesRemote(const Frame& user, uid_t uid) {
    PacketSocket host(topo_->remoteNs(0), SwitchTopology::kRemoteHostPeer,
                      PacketSocket::Mode::capture);
    const Frame local = localFrame(user, kHigh, 0, topo_->config().vlan.value());
    {
      NamespaceSwitch in(topo_->switchNs());
      const pid_t child = ::fork();
      if (child == 0) {
        if (::setresuid(uid, uid, uid) != 0) ::_exit(1);
        const int sock = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof addr.sun_path, "%c%s", 0, "VeltraVxlanArpInspect");
        ::_exit(::sendto(sock, local.data(), local.size(), 0,
                         reinterpret_cast<const sockaddr*>(&addr),
                         sizeof addr) == ssize_t(local.size())
                    ? 0
                    : 1);
      }
      int status = -1;
      ::waitpid(child, &status, 0);
      EXPECT_EQ(status, 0) << "the child could not send as uid " << uid;
    }
    return host.receive([&user](const Frame& got) { return got == user; }, kQuietWait).has_value();
  }

  uint32_t mark_ = 0;
};

const std::vector<bool> kBoth = {true, true};

// Guards the path end to end on both priorities: a broadcast reaches both remotes'
// hosts unchanged, each type field is read by its own socket only, and the datagrams
// carry the VTI's TTL and don't-fragment through the kernel (the rest of the outer
// header byte for byte: the frame path's test; every frame read counted as one outcome:
// each drop's case there, and the demo test's counters in agreement).
TEST_F(L2RNetnsTest, BroadcastReachesEveryRemoteWithTheVtisHeader) {
  ASSERT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 0), kBoth);
  ASSERT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 1, kSettleLimit, kLow), kBoth);
  expectReadsAsTheFrameMode("localToRemote");

  const uint64_t hi = count(Id::l2rRxHiFrames);
  const uint64_t lo = count(Id::l2rRxLoFrames);
  PacketSocket underlay(topo().remoteNs(0), topo().remoteUnderlayDevice(0),
                        PacketSocket::Mode::capture);
  const Frame f = userFrame("ff:ff:ff:ff:ff:ff", 0xfeed);
  sendLocal(f, kHigh);
  sendLocal(f, kLow);
  sendLocal(f, 0x0800);  // an ordinary frame on "vxlan" is no local frame at all
  const auto datagram = underlay.receive(
      [&f](const Frame& g) {
        return g.size() == 14 + 36 + f.size() && g[23] == 17 &&
               std::equal(f.begin(), f.end(), g.begin() + 50);
      },
      kFrameWait);
  ASSERT_TRUE(datagram.has_value());
  const Frame& d = *datagram;
  EXPECT_EQ(d[14 + 8], kTtl);
  EXPECT_EQ(d[14 + 6] & 0x40, 0x40) << "don't fragment";
  EXPECT_EQ(countAbove(Id::l2rRxLoFrames, lo), lo + 1);
  std::this_thread::sleep_for(kQuietWait);
  EXPECT_EQ(count(Id::l2rRxHiFrames), hi + 1);
  EXPECT_EQ(count(Id::l2rRxLoFrames), lo + 1);
}

// Guards the kernel's device going: "vxlan" deleted and made again (a new device, a
// new index) gets new sockets. (The VTI's state: the test-mode lifecycle case.)
TEST_F(L2RNetnsTest, VxlanDeviceMadeAgainGetsNewSockets) {
  ASSERT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 0), kBoth);
  topo().ip(topo().switchNs(), std::string("link del ") + SwitchTopology::kVxlanDevice);
  std::this_thread::sleep_for(kQuietWait);
  EXPECT_TRUE(topo().hostRunning()) << topo().hostOutput();
  topo().switchVethPairIs(SwitchTopology::kVxlanDevice);
  EXPECT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 0), kBoth) << "nothing after vxlan came back";
}

// Guards the ARP inspection socket end to end: a frame sent to it leaves as a
// low-priority frame does, unless its sender is another user than the agent's or root.
// (A request for an own address, kept here and counted: the test-mode ARP case.)
TEST_F(L2RNetnsTest, InspectedFramesLeaveOnTheLowSocketFromTheAgentsUserOnly) {
  ASSERT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 0), kBoth);
  const uint64_t low = count(Id::l2rRxLoFrames);
  EXPECT_TRUE(inspectedReachesRemote(userFrame("ff:ff:ff:ff:ff:ff", ++mark_), 0));
  EXPECT_EQ(count(Id::l2rRxLoFrames), low + 1);
  // The name is open to every process of the namespace; other users' frames are refused.
  const uint64_t errors = count(Id::l2rReadErrors);
  EXPECT_FALSE(inspectedReachesRemote(userFrame("ff:ff:ff:ff:ff:ff", ++mark_), 65534));
  EXPECT_EQ(count(Id::l2rReadErrors), errors + 1);
  EXPECT_EQ(count(Id::l2rRxLoFrames), low + 1);
}

}  // namespace
}  // namespace TestSupport
