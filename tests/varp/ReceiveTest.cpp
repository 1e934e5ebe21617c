#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/varp/VarpFixture.h"
#include "varp/VxlanArpFrame.h"

namespace Vxlan {
namespace {

using TestSupport::VxlanFrameBuilder;

// An ARP frame: Ethernet from `src` to `dst`, then ARP `op` from `sender` at
// `senderIp` for `target`.
std::vector<uint8_t> arpInner(Wire::EthAddr dst, Wire::EthAddr src, uint16_t op,
                              const char* senderIp, const char* target,
                              Wire::EthAddr sender = mac(5)) {
  Lum::Ptr<Wire::Pkt> p =
      Arp::makeArpPkt(dst, src, op, sender, ip(senderIp), Wire::EthAddr(), ip(target));
  return std::vector<uint8_t>(p->data(), p->data() + p->bytes());
}

// The frame checks in their order, each with its counter; every read stays inside
// the frame, IP options included, and a tag naming VLAN 4095 is the value type's error.
TEST(VxlanArpFrameTest, ChecksInOrderWithTheirCounters) {
  VxlanFrameBuilder good;
  good.vni = 5010;
  good.inner = arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.1");
  const auto check = [](std::vector<uint8_t> f) {
    return checkVxlanArpFrame(f.data(), f.size(), 4789);
  };
  // The good frame changed by `change`, then `cut` bytes short at the end.
  const auto with = [&good](auto change, size_t cut = 0) {
    VxlanFrameBuilder b = good;
    change(b);
    std::vector<uint8_t> f = vxlanArpFrame(b);
    f.resize(f.size() - cut);
    return f;
  };
  const auto same = [](VxlanFrameBuilder&) {};
  const std::vector<uint8_t> frame = vxlanArpFrame(good);
  EXPECT_TRUE(check(frame).ok);
  EXPECT_EQ(check(frame).vxlanOffset, 18u + 20 + 8);
  std::vector<uint8_t> badType = frame, badSum = frame;
  badType[13] = 0x41;
  badSum[18 + 8] ^= 1;  // the TTL, under the checksum
  using Id = VarpCounterId;
  const std::pair<std::vector<uint8_t>, Id> cases[] = {
      {{frame.begin(), frame.begin() + 13}, Id::rxTooShort},
      {{frame.begin(), frame.begin() + 17}, Id::rxTooShort},
      {with(same, 1), Id::rxTooShort},
      {badType, Id::rxBadType},
      {with([](auto& b) { b.ethType = 0x86dd; }), Id::rxNotIp},
      {badSum, Id::rxBadIpChecksum},
      {with([](auto& b) { b.dport = 4790; }), Id::rxNotVxlan},
      {with([](auto& b) { b.vxlanFlags = 0; }), Id::rxVniNotValid},
      // Options push the rest back: the same bytes, 8 short at the end.
      {with([](auto& b) { b.ipHdrWords = 7; }, 8), Id::rxTooShort},
  };
  for (const auto& [f, id] : cases) {
    const VxlanArpFrame got = check(f);
    EXPECT_FALSE(got.ok) << f.size();
    EXPECT_EQ(got.drop, id) << f.size() << got.why;
  }
  const auto tagged = [&](uint16_t vlan) {
    return with([vlan](auto& b) { b.tagged = true, b.outerVlan = vlan; });
  };
  EXPECT_THROW(check(tagged(4095)), Lum::RangeException);
  EXPECT_EQ(check(tagged(30)).pktVlan, 30);
}

class ReceiveTest : public VarpFixture {
 protected:
  // Hands a datagram of VNI `vni` to the receive path as its PAM would.
  void receive(const std::vector<uint8_t>& inner, uint32_t vni = 5010, bool tagged = false,
               const char* outerDst = "10.0.0.1") {
    VxlanFrameBuilder b;
    b.vni = vni;
    b.tagged = tagged;
    b.outerVlan = 10;
    b.saddr = ip("10.0.0.3").hostOrder();
    b.daddr = ip(outerDst).hostOrder();
    b.inner = inner;
    const std::vector<uint8_t> f = vxlanArpFrame(b);
    Lum::Ptr<Wire::Pkt> pkt = Wire::globalPktManager().newPkt();
    pkt->newSharedHeadData(static_cast<uint32_t>(f.size()));
    std::memcpy(pkt->data(), f.data(), f.size());
    vti_->handleVxlanArpPkt(pkt);
  }
  const std::vector<uint8_t>& last() const { return kernel_.sent.back().bytes; }
};

// A request for the SVI's address is answered with the bridge MAC, in VXLAN, and its
// sender learnt; one for another host goes to the local switch on "txraw", as VLAN 20
// when its VNI says so whatever its tag; a tagged inner frame goes there unread.
TEST_F(ReceiveTest, RequestsAreAnsweredHereOrHandedToTheSwitch) {
  receive(arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.1"));
  // The learnt entry goes to the MLAG peer (.50) first.
  ASSERT_EQ(destinations(),
            (std::vector<std::string>{"10.0.0.50", "10.0.0.2", "10.0.0.3", "10.0.0.4"}));
  const Lum::Ptr<Wire::Pkt> want =
      Arp::makeArpPkt(mac(5), kBridgeMac, 2, kBridgeMac, ip("10.1.1.1"), mac(5), ip("10.1.1.5"));
  EXPECT_EQ(std::vector<uint8_t>(last().begin() + 8, last().end()),
            std::vector<uint8_t>(want->data(), want->data() + want->bytes()));
  EXPECT_EQ(kernel_.writes.size(), 1u) << "the asking host is learnt";
  EXPECT_EQ(count(VarpCounterId::arpRequestOnSvi), 1u);

  kernel_.sent.clear();
  receive(arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.9"), 5020, true);
  ASSERT_EQ(destinations(), std::vector<std::string>{"dev 7"});
  EXPECT_EQ(last()[12], 0x00);
  EXPECT_EQ(last()[13], 0x08);  // the "txraw" header, VLAN 20 and port 0x21
  EXPECT_EQ(last()[15], 20);
  EXPECT_EQ(last()[17], 0x21);

  std::vector<uint8_t> tagged = arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.1");
  tagged.insert(tagged.begin() + 12, {0x81, 0x00, 0x00, 0x0a});
  receive(tagged);
  EXPECT_EQ(destinations().back(), "dev 7");
  EXPECT_EQ(count(VarpCounterId::vxlanArpRx), 2u) << "a tagged inner frame is not examined";
  receive(arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.1"), 5030);
  EXPECT_EQ(count(VarpCounterId::rxNoVlanForVni), 1u);
}

// The virtual router address is answered with the virtual MAC when the request came
// to the virtual VTEP (or a controller's table is in use), not at all when it came to
// another address, and with the bridge MAC when no virtual VTEP is in use.
TEST_F(ReceiveTest, TheVirtualRouterAddressFollowsTheVirtualVtep) {
  ipStatus_->ipIntfStatus(Wire::IntfId("Vlan10"))
      ->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask::fromString("10.1.1.254/24"));
  const auto senderMacOfLastAnswer = [this] {
    return Wire::EthAddr::fromBytes(last().data() + 8 + 22);
  };
  receive(arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.254"), 5010, false, "10.0.0.100");
  EXPECT_EQ(senderMacOfLastAnswer(), kVarpMac);
  const size_t sent = kernel_.sent.size();
  receive(arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.254"), 5010, false, "10.0.0.1");
  EXPECT_EQ(kernel_.sent.size(), sent) << "dropped without a word to anyone";
  vtiStatus().vArpVtepAddrIs(Wire::IpAddr());
  receive(arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.254"));
  EXPECT_EQ(senderMacOfLastAnswer(), kBridgeMac);
  // A controller's table in use answers with the virtual MAC whatever the destination.
  vxStatus_->vxlanStatusIs(Wire::IntfId("Vxlan1"))->vccIpPortTableIs(Lum::String8("t"));
  receive(arpInner(kBroadcast, mac(5), 1, "10.1.1.5", "10.1.1.254"));
  EXPECT_EQ(senderMacOfLastAnswer(), kVarpMac);
}

// A reply for this switch is learnt and, sent to the virtual VTEP's virtual MAC,
// replicated to the other VTEPs less the one it came from; one for somebody else goes
// to the local switch.
TEST_F(ReceiveTest, RepliesAreLearntReplicatedOrHandedOn) {
  receive(arpInner(kVarpMac, mac(5), 2, "10.1.1.5", "10.1.1.254"), 5010, false, "10.0.0.100");
  EXPECT_EQ(kernel_.writes.size(), 1u);
  EXPECT_EQ(count(VarpCounterId::varpVtepReplyRx), 1u);
  EXPECT_EQ(destinations(), (std::vector<std::string>{"10.0.0.50", "10.0.0.2", "10.0.0.4"}));
  EXPECT_EQ(Wire::EthAddr::fromBytes(last().data() + 8 + 6), kBridgeMac) << "new source MAC";
  receive(arpInner(mac(9), mac(5), 2, "10.1.1.5", "10.1.1.9"));
  EXPECT_EQ(destinations().back(), "dev 7");
  EXPECT_EQ(count(VarpCounterId::arpReplyRx), 2u);
}

}  // namespace
}  // namespace Vxlan
