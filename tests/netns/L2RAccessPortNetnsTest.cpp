// Access ports of the local-to-remote direction against the real kernel: a dot1q-tunnel
// port and the MLAG peer link are told by the kernel index of their devices (veth pairs
// in the switch namespace) that local frames carry. Tagged frames are written with a
// packet socket (no VLAN devices needed) and read as VXLAN datagrams on the remote's
// underlay. Needs root; skipped without it.
#include <net/if.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "agent/VxlanCounterId.h"
#include "tests/netns/NamespaceSwitch.h"
#include "tests/netns/OverlayFrames.h"
#include "tests/netns/PacketSocket.h"
#include "tests/netns/TopologyTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace TestSupport {
namespace {

using Id = Vxlan::VxlanCounterId;

class L2RAccessPortNetnsTest : public TopologyTest {
 protected:
  bool apply(const char* doc) {
    return topo().apply(nlohmann::json::parse(doc)).value("ok", false);
  }
  uint32_t ifindex(const std::string& device) {
    NamespaceSwitch in(topo().switchNs());
    return ::if_nametoindex(device.c_str());
  }
  // A frame with the customer's tag (VLAN 30) and `mark`, in the local form from index
  // `src`, flagged (0x2000) for the trunk's tag removal.
  void sendFrom(uint32_t src, uint32_t mark) {
    Frame f = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0x30, 1, 0x81, 0, 0, 30, 0x88, 0xb5};
    push32(f, mark);
    f.resize(64, 0x5a);
    PacketSocket(topo().switchNs(), SwitchTopology::kVxlanPeer, PacketSocket::Mode::sendOnly)
        .send(localFrame(f, 0x0041, 0x2000, topo().config().vlan.value(), src));
  }
  // Sends fresh frames from `src` until remote 0 gets one (a change may still be on its
  // way), at most for `limit`; the user frame, or empty.
  Frame forwardedFrom(uint32_t src, std::chrono::milliseconds limit = kSettleLimit) {
    Frame got;
    eventually(
        [&] {
          PacketSocket underlay(topo().remoteNs(0), topo().remoteUnderlayDevice(0),
                                PacketSocket::Mode::capture);
          const uint32_t mark = 0xa5000000 | ++mark_;
          sendFrom(src, mark);
          const uint8_t m[] = {0xa5, uint8_t(mark >> 16), uint8_t(mark >> 8), uint8_t(mark)};
          const auto datagram = underlay.receive(
              [&m](const Frame& g) {
                return g.size() > 50 && g[23] == 17 &&
                       std::search(g.begin() + 50, g.end(), m, m + 4) != g.end();
              },
              kQuietWait);
          if (datagram) got.assign(datagram->begin() + 50, datagram->end());
          return datagram.has_value();
        },
        limit);
    return got;
  }
  // 0x8100 with the tag kept, 0x88b5 without, 0 for no frame.
  uint16_t typeFrom(uint32_t src) {
    const Frame f = forwardedFrom(src);
    return f.size() > 14 ? get16(f, 12) : 0;
  }

  uint32_t mark_ = 0;
};

// Guards both kinds of access port end to end: a tunnel port's frame keeps its tag and
// is counted, also after its device is made anew (a new index, the old one forgotten);
// the peer link's frames are dropped and counted only while MLAG is active.
TEST_F(L2RAccessPortNetnsTest, TunnelPortAndPeerLinkByKernelIndex) {
  for (const char* device : {"q1", "pl"}) topo().switchVethPairIs(device);
  const uint32_t first = ifindex("q1"), peer = ifindex("pl");
  ASSERT_EQ(typeFrom(first), 0x88b5) << "not a tunnel port yet: the tag goes";
  ASSERT_TRUE(apply(R"({
      "interface/status/eth/intf": {"intfStatus": {"Ethernet3": {"deviceName": "q1"},
                                                   "Port-Channel10": {"deviceName": "pl"}}},
      "bridging/config": {"switchIntfConfig": {
          "Ethernet3": {"switchportModeAndNativeVlan": "2,10"}}}})"));
  ASSERT_TRUE(eventually([&] { return typeFrom(first) == 0x8100; }, kSettleLimit));
  EXPECT_GT(count(Id::l2rDot1qTunnelFrames), 0u);

  topo().ip(topo().switchNs(), "link del q1");
  topo().switchVethPairIs("q1");
  const uint32_t second = ifindex("q1");
  ASSERT_NE(second, first);
  EXPECT_TRUE(eventually([&] { return typeFrom(second) == 0x8100; }, kSettleLimit));
  EXPECT_EQ(typeFrom(first), 0x88b5) << "the old index is still a tunnel port";

  ASSERT_FALSE(forwardedFrom(peer).empty());
  ASSERT_TRUE(apply(R"({"mlag/status": {"mlagState": 3, "peerLinkIntf": "Port-Channel10"}})"));
  const uint64_t before = count(Id::l2rPeerLinkDrops);
  EXPECT_TRUE(eventually(
      [&] {
        sendFrom(peer, ++mark_);
        return count(Id::l2rPeerLinkDrops) > before;
      },
      kSettleLimit));
  EXPECT_TRUE(forwardedFrom(peer, kQuietWait * 2).empty()) << "a frame of the peer link went out";
  ASSERT_TRUE(apply(R"({"mlag/status": {"mlagState": 1}})"));
  EXPECT_FALSE(forwardedFrom(peer).empty()) << "still dropped with MLAG inactive";
}

}  // namespace
}  // namespace TestSupport
