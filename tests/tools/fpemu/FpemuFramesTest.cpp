// The emulator's per-frame work without sockets: each port mode's VLAN and flags and
// the local form the agent reads (compared with the test builder's bytes, not the
// emulator's own), the "txraw" path and its drops, the ARP trap, and its configuration.
// (Learning and flooding across ports and the agent, and a tag the kernel took into its
// metadata put back: the demo's namespace test, through real ports; a frame never back
// to its port and every frame counted once: the emulator's fuzz target.)
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <algorithm>
#include <stdexcept>

#include "tests/support/VxlanFrameBuilder.h"
#include "tools/fpemu/FpConfig.h"
#include "tools/fpemu/FpSwitch.h"

namespace Fpemu {
namespace {

using Bytes = std::vector<uint8_t>;
using TestSupport::push16;

// A frame from `src` (last byte) to `dst` (ff: broadcast), with an optional 802.1Q tag.
Bytes frame(uint8_t dst, uint8_t src, int tagVlan = -1) {
  Bytes f;
  for (int i = 0; i < 12; ++i) f.push_back(i == 0 || i == 6 ? 0x02 : 0);
  f[5] = dst;
  f[11] = src;
  if (dst == 0xff) std::fill(f.begin(), f.begin() + 6, 0xff);
  if (tagVlan >= 0) {
    push16(f, 0x8100);
    push16(f, static_cast<uint16_t>(0xa000 | tagVlan));  // priority 5 rides along
  }
  push16(f, 0x0800);
  for (uint8_t i = 0; i < 30; ++i) f.push_back(i);
  return f;
}

Bytes untagged(const Bytes& f) {
  Bytes u(f.begin(), f.begin() + 12);
  u.insert(u.end(), f.begin() + 16, f.end());
  return u;
}

std::vector<PortConfig> ports() {
  return {{"h0", PortMode::access, {10}},
          {"h1", PortMode::access, {10}},
          {"t0", PortMode::trunk, {10, 20}},
          {"q0", PortMode::dot1qTunnel, {30}}};
}

TEST(FpemuFramesTest, EachPortModeGivesItsVlanFlagsAndLocalForm) {
  const std::vector<PortConfig> p = ports();
  struct Case {
    size_t port;
    Bytes f;
    Drop drop;
    uint16_t vlan;
    uint16_t flags;
    bool innerUntagged;
  } cases[] = {
      {0, frame(1, 2), Drop::none, 10, 0, false},
      {0, frame(1, 2, 0), Drop::none, 10, 0x4000, true},  // priority tag
      {0, frame(1, 2, 10), Drop::none, 10, 0x4000, true},
      {0, frame(1, 2, 20), Drop::vlanNotAllowed, 0, 0, false},
      {2, frame(1, 2, 20), Drop::none, 20, 0x2000, true},
      {2, frame(1, 2, 30), Drop::vlanNotAllowed, 0, 0, false},
      {2, frame(1, 2), Drop::vlanNotAllowed, 0, 0, false},
      {3, frame(1, 2, 77), Drop::none, 30, 0x1000, false},  // the customer's tag stays
      {0, Bytes(13, 0x02), Drop::runt, 0, 0, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "port " << c.port << ", " << c.f.size() << " bytes");
    const Ingress in = classify(p[c.port], c.f);
    ASSERT_EQ(in.drop, c.drop);
    if (c.drop != Drop::none) continue;
    EXPECT_EQ(in.vlan, c.vlan);
    EXPECT_EQ(in.flags, c.flags);
    Bytes local;
    localFrameOf(c.f, in, 1234, local);
    EXPECT_EQ(local, TestSupport::localFrame(c.f, 0x0041, c.flags, c.vlan, 1234));
    Bytes inner;
    innerOf(c.f, in, inner);
    EXPECT_EQ(inner, c.innerUntagged ? untagged(c.f) : c.f);
  }
}

TEST(FpemuFramesTest, TxRawFramesAreCheckedAndDeliveredByVlan) {
  FpSwitch sw(ports());
  const Bytes inner = frame(0xff, 0xc0);
  using TestSupport::txRawFrame;
  const Decision& d = sw.fromTxRaw(txRawFrame(inner, Bridging::VlanId(20), Vxlan::HwPortId(16)));
  EXPECT_EQ(d.vlan, 20);
  EXPECT_EQ(d.inner, inner);
  EXPECT_EQ(d.ports, std::vector<int>{2});

  EXPECT_EQ(sw.fromTxRaw(txRawFrame(inner, Bridging::VlanId(99), Vxlan::HwPortId(16))).drop,
            Drop::txRawUnknownVlan);
  Bytes wrongTag = txRawFrame(inner, Bridging::VlanId(10), Vxlan::HwPortId(16));
  wrongTag[13] = 0x00;
  EXPECT_EQ(sw.fromTxRaw(wrongTag).drop, Drop::txRawBadHeader);
  // Never back to the agent: a destination learnt from "txraw" is dropped.
  EXPECT_EQ(
      sw.fromTxRaw(txRawFrame(frame(0xc0, 0xc1), Bridging::VlanId(20), Vxlan::HwPortId(16))).drop,
      Drop::txRawToRemote);
  EXPECT_EQ(sw.counters()[Counter::dropTxRawBadHeader], 1u);
}

// The trap: ARP inside VXLAN for the VTEP goes to the agent behind the pseudo type
// 0x0040 and two bytes, the datagram unchanged behind them; other datagrams do not.
// With the trap on, ARP that the agent's decapsulation writes on its port id is dropped,
// and ARP on another port id (virtual ARP's hand-over) is delivered.
TEST(FpemuFramesTest, ArpForTheVtepIsTrappedAndItsSoftwareCopyDropped) {
  TestSupport::VxlanFrameBuilder b;
  b.inner = frame(0xff, 0xc0);
  b.inner[12] = 0x08;
  b.inner[13] = 0x06;
  const uint32_t vtep = htonl(b.daddr);
  Bytes out;
  const Bytes datagram = b.build();
  ASSERT_TRUE(overlayArpTrapped(datagram, vtep, b.dport, out));
  Bytes want(datagram.begin(), datagram.begin() + 12);
  want.insert(want.end(), {0x00, 0x40, 0x00, 0x00});
  want.insert(want.end(), datagram.begin() + 12, datagram.end());
  EXPECT_EQ(out, want);
  EXPECT_FALSE(overlayArpTrapped(datagram, vtep + 1, b.dport, out));
  EXPECT_FALSE(overlayArpTrapped(datagram, vtep, b.dport + 1, out));
  b.inner = frame(0xff, 0xc0);
  EXPECT_FALSE(overlayArpTrapped(b.build(), vtep, b.dport, out)) << "not ARP inside";

  FpSwitch sw(ports());
  sw.trappedArpPortIs(16);
  Bytes arp = frame(0xff, 0xc0);
  arp[12] = 0x08;
  arp[13] = 0x06;
  using TestSupport::txRawFrame;
  EXPECT_EQ(sw.fromTxRaw(txRawFrame(arp, Bridging::VlanId(20), Vxlan::HwPortId(16))).drop,
            Drop::txRawTrappedArp);
  EXPECT_EQ(sw.fromTxRaw(txRawFrame(arp, Bridging::VlanId(20), Vxlan::HwPortId(17))).drop,
            Drop::none);

  // What the agent hands back on "fabric" (the trapped datagram, or a plain one) is
  // decapsulated into the VLAN of its VNI.
  sw.vniMapIs({{b.vni, 20}});
  b.inner = arp;
  ASSERT_TRUE(overlayArpTrapped(b.build(), vtep, b.dport, out));
  for (const Bytes& packet : {out, b.build()}) {
    const Decision& d = sw.fromFabric(packet);
    EXPECT_EQ(d.vlan, 20);
    EXPECT_EQ(d.inner, arp);
    EXPECT_EQ(d.ports, std::vector<int>{2});
  }
  out.resize(out.size() - arp.size() + 13);
  EXPECT_EQ(sw.fromFabric(out).drop, Drop::fabricBadPacket) << "inner frame cut short";
  b.vni += 1;
  EXPECT_EQ(sw.fromFabric(b.build()).drop, Drop::fabricUnknownVni);
  EXPECT_EQ(sw.counters()[Counter::fabricRxFrames], 4u);
}

// The demo's ports are given as "name:mode:vlans" and as a JSON file; what the
// emulator cannot run is refused before it starts.
TEST(FpemuFramesTest, PortsAndFilesAreReadAndRefused) {
  EXPECT_EQ(portOf("trunk1:trunk:10,20").vlans, (std::vector<uint16_t>{10, 20}));
  for (const char* bad : {"h0:access", "h0:hybrid:10", "h0:access:4095", "h0:access:1x"}) {
    EXPECT_THROW(portOf(bad), std::invalid_argument) << bad;
  }
  std::map<uint32_t, uint16_t> vnis;
  vniMapEntryOf("16777215:10", vnis);
  EXPECT_EQ(vnis.at(16777215), 10);
  for (const char* bad : {"5010", "0:10", "16777216:10", "5010:4095", "5010x:10"}) {
    EXPECT_THROW(vniMapEntryOf(bad, vnis), std::invalid_argument) << bad;
  }
  EmulatorConfig c = configOf(nlohmann::json::parse(
      R"({"vxlan": "vx-p", "ports": [{"name": "q", "mode": "dot1q-tunnel", "vlans": [30]}]})"));
  EXPECT_EQ(c.ports[0].mode, PortMode::dot1qTunnel);
  c.ports.push_back(portOf("q:access:10"));
  EXPECT_THROW(check(c), std::invalid_argument) << "a port named twice";
  c.ports.back() = portOf("h:access:10,20");
  EXPECT_THROW(check(c), std::invalid_argument) << "two VLANs on an access port";
}

}  // namespace
}  // namespace Fpemu
