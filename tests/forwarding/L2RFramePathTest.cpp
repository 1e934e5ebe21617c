// The per-frame work of the local-to-remote direction: the checks and what each names,
// the tag flags, the outer header byte for byte with its flow-derived source port, the
// outer source address and the ARP request hook.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <vector>

#include "forwarding/L2RFramePath.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan::L2R {
namespace {

using Bytes = std::vector<uint8_t>;
using TestSupport::localFrame;
using TestSupport::push16;
using TestSupport::push32;

// The source-port expectations below are written as bytes on a little-endian host.
static_assert(std::endian::native == std::endian::little);

// dst 02:00:00:00:00:01, src 02:00:00:00:00:02, then `type` and `rest`.
Bytes userFrame(uint16_t type, const Bytes& rest = {}) {
  Bytes f = {0x02, 0, 0, 0, 0, 0x01, 0x02, 0, 0, 0, 0, 0x02};
  push16(f, type);
  f.insert(f.end(), rest.begin(), rest.end());
  return f;
}

// IPv4 10.1.1.1 -> 10.1.1.2 with `proto`, header length `words`, ports 0x1234 -> 0x5678.
Bytes ipv4(uint8_t proto, uint8_t words = 5) {
  Bytes r = {static_cast<uint8_t>(0x40 | words), 0, 0, 0, 0, 0, 0x40, 0, 64, proto, 0, 0};
  push32(r, 0x0a010101);
  push32(r, 0x0a010102);
  for (int i = 5; i < words; ++i) push32(r, 0x01000000);  // options the hash must skip
  push16(r, {0x1234, 0x5678});
  r.resize(r.size() + 16);
  return userFrame(0x0800, r);
}

class L2RFramePathTest : public ::testing::Test {
 protected:
  L2RFramePathTest() {
    vlanToVni_.is(Bridging::VlanId(10), VniOrNone(Vni(5010)));
    vlanToVni_.is(Bridging::VlanId(4094), VniOrNone(Vni(0xabcdef)));
    vniByVlan_.is(vlanToVni_);
    filter_.vlanToVni = &vniByVlan_;
    filter_.tunnelPorts = &tunnelPorts_;
    filter_.localVtep = Wire::IpAddr::fromString("10.99.0.1");
    filter_.ttl = 17;
    filter_.udpPort = 4789;
  }

  Encap run(const Bytes& local) {
    std::memcpy(buf_.read, local.data(), std::min<size_t>(local.size(), sizeof buf_.read));
    return encapFrame(buf_, static_cast<uint32_t>(local.size()), filter_);
  }
  Bytes packet(const Encap& e) const {
    const uint8_t* p = const_cast<FrameBuffer&>(buf_).bytes() + e.offset;
    return Bytes(p, p + e.length);
  }
  Bytes user(const Encap& e) const {
    const Bytes p = packet(e);
    return Bytes(p.begin() + kOuterHdrLen, p.end());
  }
  Bytes sport(const Encap& e) const {
    const Bytes p = packet(e);
    return Bytes(p.begin() + 20, p.begin() + 22);
  }

  VlanToVniTable vlanToVni_;
  VniByVlan vniByVlan_;
  IfIndexTable tunnelPorts_;
  EncapFilter filter_;
  FrameBuffer buf_;
};

// Each check at its bounds, with the detail the trace names: length 24 to 9999 (24: an
// empty user frame behind the MACs), the two types, VLANs 1 to 4094 with a VNI, and the
// peer link by its index (index 0 is no port, not the missing peer link).
TEST_F(L2RFramePathTest, ChecksDropWithWhatTheTraceNames) {
  const Bytes ok = localFrame(userFrame(0x0800), 0x0041, 0, 10);
  const auto sized = [&](size_t n) {
    Bytes f = ok;
    f.resize(n);
    return f;
  };
  const auto tagged = [](uint16_t type, uint32_t vlan, uint32_t src = 0) {
    return localFrame(userFrame(0x0800), type, 0, vlan, src);
  };
  const struct {
    Bytes f;
    Drop drop;
    uint32_t detail;
    uint32_t peerLink = 7;
  } cases[] = {
      // clang-format off
      {sized(24), Drop::none, 0},              {sized(23), Drop::badLength, 23},
      {sized(9999), Drop::none, 0},            {sized(10000), Drop::badLength, 10000},
      {tagged(0x33, 10), Drop::none, 0},       {tagged(0x42, 10), Drop::badType, 0x42},
      {tagged(0x41, 0), Drop::badVlan, 0},     {tagged(0x41, 4095), Drop::badVlan, 4095},
      {tagged(0x41, 0x10000a), Drop::badVlan, 0x10000a},
      {tagged(0x41, 4094), Drop::none, 0},     {tagged(0x41, 20), Drop::noVni, 20},
      {tagged(0x41, 10, 7), Drop::peerLink, 7}, {tagged(0x41, 10, 8), Drop::none, 0},
      {tagged(0x41, 10, 0), Drop::none, 0, 0},
      // clang-format on
  };
  for (const auto& c : cases) {
    filter_.peerLinkIfIndex = c.peerLink;
    const Encap e = run(c.f);
    EXPECT_EQ(e.drop, c.drop) << c.f.size() << " " << c.detail;
    EXPECT_EQ(e.detail, c.detail) << "0 when forwarded";
  }
}

TEST_F(L2RFramePathTest, TagFlagsStripWhatTheyNameAndTunnelPortsKeepTheirTag) {
  // Two tags, VLAN 10 outside and 20 inside, then IPv4.
  Bytes rest;
  push16(rest, {0x000a, 0x8100, 0x0014, 0x0800});
  rest.resize(rest.size() + 20, 0xee);
  const Bytes twoTags = userFrame(0x8100, rest);
  const Bytes oneTag(twoTags.begin() + 4, twoTags.end());  // offsets shift, MACs equal
  const Bytes noTag(twoTags.begin() + 8, twoTags.end());
  auto withMacs = [&](Bytes f) {
    std::copy(twoTags.begin(), twoTags.begin() + 12, f.begin());
    return f;
  };
  struct Case {
    uint16_t flags;
    uint32_t srcIfIndex;
    Bytes expected;
    bool tunnel;
  } cases[] = {
      {0x0000, 0, twoTags, false},          {0x4000, 0, withMacs(oneTag), false},
      {0x2000, 0, withMacs(oneTag), false}, {0x6000, 0, withMacs(noTag), false},
      {0x7000, 0, withMacs(oneTag), true},  // dot1q flag: only the first tag goes
      {0x2000, 9, twoTags, true},           // a tunnel port by its index keeps its tag
  };
  tunnelPorts_.is(9, true);
  for (const Case& c : cases) {
    const Encap e = run(localFrame(twoTags, 0x0041, c.flags, 10, c.srcIfIndex));
    ASSERT_TRUE(e.forwarded());
    EXPECT_EQ(user(e), c.expected) << std::hex << c.flags;
    EXPECT_EQ(e.tunnelPort, c.tunnel) << std::hex << c.flags;
  }
}

// The source port: the raw bytes of address and port words XORed, then the MAC words
// as numbers (stored as they stand; 0x0003 here): addresses {0a 01}^{01 01}^{0a 01}^
// {01 02} = {00 03}, ports {12 34}^{56 78} = {44 4c}, so {47 4f}.
TEST_F(L2RFramePathTest, OuterHeaderIsWrittenInFrontOfTheUserFrame) {
  const Bytes u = ipv4(17);
  const Encap e = run(localFrame(u, 0x0041, 0, 10));
  ASSERT_TRUE(e.forwarded());
  destinationIs(const_cast<uint8_t*>(buf_.bytes() + e.offset),
                Wire::IpAddr::fromString("10.99.0.7"));
  const uint16_t udpLen = static_cast<uint16_t>(u.size() + 16);
  const Bytes p = packet(e);
  const auto lenHi = static_cast<uint8_t>(udpLen >> 8), lenLo = static_cast<uint8_t>(udpLen);
  const Bytes expected = {0x45,  0,     0, 0, 0,    0,  0x40, 0, 17,   17,   0,    0,
                          10,    99,    0, 1, 10,   99, 0,    7, 0x47, 0x4f, 0x12, 0xb5,
                          lenHi, lenLo, 0, 0, 0x08, 0,  0,    0, 0x00, 0x13, 0x92, 0};
  EXPECT_EQ(Bytes(p.begin(), p.begin() + 36), expected);
  EXPECT_EQ(user(e), u);
  EXPECT_EQ(e.length, u.size() + 36);
}

TEST_F(L2RFramePathTest, VirtualVtepAddressOnlyForTheVirtualMac) {
  filter_.vArpVtep = Wire::IpAddr::fromString("10.99.0.100");
  auto source = [&](const Bytes& u) {
    const Bytes p = packet(run(localFrame(u, 0x0041, 0, 10)));
    return Bytes(p.begin() + 12, p.begin() + 16);
  };
  Bytes fromVirtual = ipv4(17);
  std::copy_n(Bytes{0x00, 0x1c, 0x73, 0, 0, 0x99}.begin(), 6, fromVirtual.begin() + 6);
  EXPECT_EQ(source(fromVirtual), (Bytes{10, 99, 0, 1})) << "no virtual MAC configured";
  filter_.varpVirtualMac = Wire::EthAddr::fromString("00:1c:73:00:00:99");
  EXPECT_EQ(source(fromVirtual), (Bytes{10, 99, 0, 100}));
  EXPECT_EQ(source(ipv4(17)), (Bytes{10, 99, 0, 1}));
  filter_.vArpVtep = Wire::IpAddr();
  EXPECT_EQ(source(fromVirtual), (Bytes{10, 99, 0, 1}));
}

struct RecordingHook : ArpRequestHook {
  bool herRequired(uint32_t vlan, uint32_t targetIp) override {
    asked.push_back({vlan, targetIp});
    return targetIp != 0x0a000009;
  }
  void rewriteNakedRequest(uint8_t* frame, uint32_t l2Offset, VniOrNone vni) override {
    offsets.push_back(l2Offset);
    vnis.push_back(vni.value());
    frame[11] = 0x77;  // a new source MAC, which the source port must see
  }
  std::vector<std::pair<uint32_t, uint32_t>> asked;
  std::vector<uint32_t> offsets;
  std::vector<uint32_t> vnis;
};

Bytes arp(uint16_t op, uint32_t target, bool tagged) {
  Bytes r;
  if (tagged) push16(r, {0x000a, 0x0806});
  push16(r, {0x0001, 0x0800, 0x0604, op});
  r.resize(r.size() + 16);  // sender MAC and IP, target MAC
  push32(r, target);
  return userFrame(tagged ? 0x8100 : 0x0806, r);
}

TEST_F(L2RFramePathTest, ArpRequestsAreOfferedToTheHookBeforeTheHeaderIsBuilt) {
  RecordingHook hook;
  filter_.arp = &hook;
  // MAC words: 0x0201 (dst) ^ 0x0277 (the rewritten src) = 0x0076.
  EXPECT_EQ(sport(run(localFrame(arp(1, 0x0a000005, false), 0x0041, 0, 10))), (Bytes{0x76, 0x00}))
      << "the source port is taken from the rewritten source MAC";
  EXPECT_EQ(run(localFrame(arp(1, 0x0a000009, false), 0x0041, 0, 10)).drop, Drop::arpNotRequired);
  EXPECT_TRUE(run(localFrame(arp(1, 0x0a000005, true), 0x0041, 0, 10)).forwarded());
  EXPECT_TRUE(run(localFrame(arp(2, 0x0a000009, false), 0x0041, 0, 10)).forwarded())
      << "a reply is never asked about";
  using Ask = std::pair<uint32_t, uint32_t>;
  EXPECT_EQ(hook.asked, (std::vector<Ask>{{10, 0x0a000005}, {10, 0x0a000009}, {10, 0x0a000005}}));
  EXPECT_EQ(hook.offsets, (std::vector<uint32_t>{14, 18}));
  EXPECT_EQ(hook.vnis, (std::vector<uint32_t>{5010, 5010}));
}

}  // namespace
}  // namespace Vxlan::L2R
