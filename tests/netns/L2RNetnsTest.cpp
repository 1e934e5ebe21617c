// The local-to-remote direction of the agent host against the real kernel: frames
// written in the local form into the peer of the switch's "vxlan" device leave as
// VXLAN datagrams that Linux kernel VXLAN devices in the remote namespaces take and
// deliver to a host veth behind a bridge; frames of access ports are read as datagrams
// on a remote's underlay. Needs root; skipped without it.
#include <gtest/gtest.h>
#include <net/if.h>
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
#include "tests/netns/OverlayFrames.h"
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
  // Whether remote 0's host gets `user`, written in the local form (or, with
  // `inspected`, sent to the ARP inspection socket in the same form).
  bool reachesRemote(const Frame& user, bool inspected = false, int uid = -1) {
    PacketSocket host(topo_->remoteNs(0), SwitchTopology::kRemoteHostPeer,
                      PacketSocket::Mode::capture);
    if (inspected) {
      inspect(localFrame(user, kHigh, 0, topo_->config().vlan.value()), uid);
    } else {
      sendLocal(user);
    }
    return host.receive([&user](const Frame& got) { return got == user; }, kQuietWait).has_value();
  }
  // Sends `local` to the ARP inspection socket, as user `uid` when it is not -1 (from
  // a child process that takes that user).
  void inspect(const Frame& local, int uid = -1) {
    NamespaceSwitch in(topo_->switchNs());
    const auto send = [&local] {
      const int sock = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      sockaddr_un addr{};
      addr.sun_family = AF_UNIX;
      std::snprintf(addr.sun_path, sizeof addr.sun_path, "%c%s", 0, "VeltraVxlanArpInspect");
      const ssize_t n = ::sendto(sock, local.data(), local.size(), 0,
                                 reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
      ::close(sock);
      return n == ssize_t(local.size());
    };
    if (uid < 0) {
      ASSERT_TRUE(send());
      return;
    }
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(::setresuid(uid, uid, uid) == 0 && send() ? 0 : 1);
    int status = -1;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(status, 0) << "the child could not send as uid " << uid;
  }

  // Sends fresh frames with a customer's tag (VLAN 30), flagged (0x2000) for the
  // trunk's tag removal, from kernel index `src` until one reaches remote 0's underlay
  // (a change may still be on its way); the type behind its MACs there: 0x8100 with the
  // tag kept, 0x88b5 without, 0 when none came within `limit`.
  uint16_t typeFrom(uint32_t src, std::chrono::milliseconds limit = kSettleLimit) {
    uint16_t type = 0;
    eventually(
        [&] {
          PacketSocket underlay(topo_->remoteNs(0), topo_->remoteUnderlayDevice(0),
                                PacketSocket::Mode::capture);
          Frame f = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0x30, 1, 0x81, 0, 0, 30};
          push16(f, 0x88b5);
          push32(f, 0xa5000000 | ++mark_);
          f.resize(64, 0x5a);
          sendLocal(f, kHigh, 0x2000, src);
          const auto datagram = underlay.receive(
              [&f](const Frame& g) {
                return g.size() > 50 && g[23] == 17 &&
                       std::search(g.begin() + 50, g.end(), f.begin() + 18, f.begin() + 22) !=
                           g.end();
              },
              kQuietWait);
          if (datagram) type = get16(*datagram, 50 + 12);
          return datagram.has_value();
        },
        limit);
    return type;
  }
  uint32_t ifindex(const std::string& device) {
    NamespaceSwitch in(topo_->switchNs());
    return ::if_nametoindex(device.c_str());
  }

  uint32_t mark_ = 0;
};

const std::vector<bool> kBoth = {true, true};

// Guards the path end to end on both priorities: a broadcast reaches both remotes'
// hosts unchanged, each type field is read by its own socket only, and the datagrams
// carry the VTI's TTL and don't-fragment through the kernel (the rest of the outer
// header byte for byte: the frame path's test).
TEST_F(L2RNetnsTest, BroadcastReachesEveryRemoteWithTheVtisHeader) {
  ASSERT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 0), kBoth);
  ASSERT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 1, kSettleLimit, kLow), kBoth);

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

  // Every frame read is forwarded or counted as a drop, and each forwarded broadcast
  // reached both VTEPs.
  uint64_t accounted = 0;
  for (Id id : {Id::l2rForwardFrames, Id::l2rBadLength, Id::l2rBadVlan, Id::l2rNoVni,
                Id::l2rPeerLinkDrops, Id::l2rNoDestination, Id::l2rArpHerDrops}) {
    accounted += count(id);
  }
  EXPECT_EQ(count(Id::l2rRxFrames), accounted);
  EXPECT_EQ(count(Id::l2rTxFrames), 2 * count(Id::l2rForwardFrames));
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
  EXPECT_TRUE(reachesRemote(userFrame("ff:ff:ff:ff:ff:ff", ++mark_), true));
  EXPECT_EQ(count(Id::l2rRxLoFrames), low + 1);
  // The name is open to every process of the namespace; other users' frames are refused.
  const uint64_t errors = count(Id::l2rReadErrors);
  EXPECT_FALSE(reachesRemote(userFrame("ff:ff:ff:ff:ff:ff", ++mark_), true, 65534));
  EXPECT_EQ(count(Id::l2rReadErrors), errors + 1);
  EXPECT_EQ(count(Id::l2rRxLoFrames), low + 1);
}

// Guards both kinds of access port end to end, told by the kernel index of their
// devices (veth pairs in the switch namespace): a tunnel port's frame keeps its tag and
// is counted, also after its device is made anew (a new index, the old one forgotten);
// the peer link's frames are dropped and counted only while MLAG is active.
TEST_F(L2RNetnsTest, TunnelPortAndPeerLinkByKernelIndex) {
  for (const char* device : {"q1", "pl"}) topo().switchVethPairIs(device);
  const uint32_t first = ifindex("q1"), peer = ifindex("pl");
  ASSERT_EQ(typeFrom(first), 0x88b5) << "not a tunnel port yet: the tag goes";
  ASSERT_TRUE(topo()
                  .apply(nlohmann::json::parse(R"({
      "interface/status/eth/intf": {"intfStatus": {"Ethernet3": {"deviceName": "q1"},
                                                   "Port-Channel10": {"deviceName": "pl"}}},
      "bridging/config": {"switchIntfConfig": {
          "Ethernet3": {"switchportModeAndNativeVlan": "2,10"}}}})"))
                  .value("ok", false));
  ASSERT_TRUE(eventually([&] { return typeFrom(first) == 0x8100; }, kSettleLimit));
  EXPECT_GT(count(Id::l2rDot1qTunnelFrames), 0u);

  topo().ip(topo().switchNs(), "link del q1");
  topo().switchVethPairIs("q1");
  const uint32_t second = ifindex("q1");
  ASSERT_NE(second, first);
  EXPECT_TRUE(eventually([&] { return typeFrom(second) == 0x8100; }, kSettleLimit));
  EXPECT_EQ(typeFrom(first), 0x88b5) << "the old index is still a tunnel port";

  ASSERT_NE(typeFrom(peer), 0);
  const auto mlag = [&](const char* doc) {
    return topo().apply({{"mlag/status", nlohmann::json::parse(doc)}}).value("ok", false);
  };
  ASSERT_TRUE(mlag(R"({"mlagState": 3, "peerLinkIntf": "Port-Channel10"})"));
  const uint64_t before = count(Id::l2rPeerLinkDrops);
  EXPECT_TRUE(eventually([&] { return typeFrom(peer, kQuietWait) == 0; }, kSettleLimit))
      << "frames of the peer link still go out";
  EXPECT_GT(count(Id::l2rPeerLinkDrops), before);
  ASSERT_TRUE(mlag(R"({"mlagState": 1})"));
  EXPECT_NE(typeFrom(peer), 0) << "still dropped with MLAG inactive";
}

class L2RMulticastNetnsTest : public L2RNetnsTest {
 protected:
  SwitchTopologyConfig topologyConfig() const override {
    SwitchTopologyConfig c = L2RNetnsTest::topologyConfig();
    c.remotes = 1;
    c.remoteGroup = "239.1.1.1";
    return c;
  }
};

// Guards multicast replication: the frame goes to the VLAN's group, which a kernel
// VXLAN device that joined it receives.
TEST_F(L2RMulticastNetnsTest, MulticastModeSendsToTheVlansGroup) {
  ASSERT_TRUE(
      topo()
          .apply({{"vxlan/hardware/status",
                   {{"bumStatus",
                     {{"bumReplicationMode", 1}, {"bumMcastGrp", {{"10", "239.1.1.1"}}}}}}}})
          .value("ok", false));
  PacketSocket underlay(topo().remoteNs(0), topo().remoteUnderlayDevice(0),
                        PacketSocket::Mode::capture);
  ASSERT_EQ(deliveries("ff:ff:ff:ff:ff:ff", 0), (std::vector<bool>{true}));
  const auto toGroup = underlay.receive(
      [](const Frame& g) { return g.size() > 34 && g[23] == 17 && get16(g, 30) == 0xef01; },
      kFrameWait);
  ASSERT_TRUE(toGroup.has_value()) << "no datagram to 239.1.1.1";
}

}  // namespace
}  // namespace TestSupport
