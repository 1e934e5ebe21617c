#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/varp/VarpFixture.h"
#include "varp/ArpSyncMsg.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {
namespace {

using ReplySyncTest = VarpFixture;

// A reply goes to the VTEP that learnt its destination, behind a VXLAN header of the
// VLAN's VNI from the local VTEP; a destination learnt behind one of this switch's own
// addresses is flooded, never to those addresses nor to the VTEP it came from.
TEST_F(ReplySyncTest, UnicastToTheLearntVtepElseFloodLessOwnAddresses) {
  hw_->fdbStatus()
      ->learnedHostIs(MacVlanPair(mac(5), Bridging::VlanId(10)))
      ->remoteVtepAddrIs(ip("10.0.0.3"));
  hw_->fdbStatus()
      ->learnedHostIs(MacVlanPair(mac(6), Bridging::VlanId(10)))
      ->remoteVtepAddrIs(ip("10.0.0.100"));
  Lum::Ptr<Wire::Pkt> one = reply(mac(1), mac(5));
  const std::vector<uint8_t> frame(one->data(), one->data() + one->bytes());
  vti_->sendArpReplyPkt(one, kVlan, Wire::IpAddr(), false);
  ASSERT_EQ(destinations(), std::vector<std::string>{"10.0.0.3"});
  const TestSupport::VarpKernel::Sent& s = kernel_.sent[0];
  EXPECT_EQ(s.dstPort, 4789);
  EXPECT_EQ(s.srcIp, ip("10.0.0.1").value());
  std::vector<uint8_t> want = {0x08, 0, 0, 0, 0x00, 0x13, 0x92, 0};
  want.insert(want.end(), frame.begin(), frame.end());
  EXPECT_EQ(s.bytes, want);

  vti_->sendArpReplyPkt(reply(mac(1), mac(6)), kVlan, ip("10.0.0.2"), false);
  EXPECT_EQ(destinations(), (std::vector<std::string>{"10.0.0.3", "10.0.0.3", "10.0.0.4"}));
  EXPECT_EQ(count(VarpCounterId::arpReplyUnicastTx), 1u);
  EXPECT_EQ(count(VarpCounterId::arpReplyFloodTx), 2u);
}

// A reply to a rewritten request goes once to each MAC that asked, each copy with its
// own destination and ARP target MAC behind one VXLAN header; the list goes with it,
// so a second reply is discarded. A reply from the virtual MAC without a virtual VTEP
// here or a controller's table has no source address.
TEST_F(ReplySyncTest, RewrittenRequestsAreAnsweredToEachMacThatAsked) {
  tables_->varpIpMacTableIs("t")->varpIpMacEntryIs(
      VarpIpMacEntry(Wire::IpGenAddr(ip("10.1.1.5")), VniOrNone(5010), kVarpMac));
  Lum::Ptr<ArpRewritePendingList> list =
      sm_->arpRewritePendingListIs({Vni(5010), Wire::IpGenAddr(ip("10.1.1.1"))});
  for (uint8_t m : {0x0a, 0x0b, 0x0c}) list->reqMacAddrIs(mac(m));
  vti_->rewriteAndSendArpReplyPkt(reply(mac(1), kVarpMac), kVlan, 14, false);
  ASSERT_EQ(kernel_.sent.size(), 9u) << "three copies, each flooded to three VTEPs";
  for (size_t i = 0; i < 9; i += 3) {
    const std::vector<uint8_t>& b = kernel_.sent[i].bytes;
    ASSERT_EQ(b.size(), 8u + Arp::kArpFrameBytes);
    const Wire::EthAddr asked = mac(static_cast<uint8_t>(0x0a + i / 3));
    EXPECT_EQ(Wire::EthAddr::fromBytes(b.data() + 8), asked);
    EXPECT_EQ(Wire::EthAddr::fromBytes(b.data() + 8 + 14 + 18), asked);
  }
  EXPECT_EQ(count(VarpCounterId::replyRewritten), 3u);
  EXPECT_FALSE(sm_->arpRewritePendingList({Vni(5010), Wire::IpGenAddr(ip("10.1.1.1"))}));
  vti_->rewriteAndSendArpReplyPkt(reply(mac(1), kVarpMac), kVlan, 14, false);
  EXPECT_EQ(count(VarpCounterId::arpDiscarded), 1u);

  vtiStatus().vArpVtepAddrIs(Wire::IpAddr());
  vti_->sendArpReplyPkt(reply(kVarpMac, mac(5)), kVlan, Wire::IpAddr(), true);
  EXPECT_EQ(count(VarpCounterId::txNoSourceAddr), 1u);
  EXPECT_EQ(kernel_.sent.size(), 9u);
}

// The message to the peer: 32 bytes for an entry, the reply frame unchanged behind
// them for a reply; nothing unless the channel is in its MLAG mode.
TEST_F(ReplySyncTest, SyncMessagesCarryTheEntryAndTheFrame) {
  Wire::EthArpIpHdr arp{};
  arp.senderHw = mac(7);
  arp.senderIpIs(ip("10.1.1.7"));
  vti_->syncArpEntryToPeer(kVlan, arp, nullptr);
  Lum::Ptr<Wire::Pkt> frame = reply(mac(7), mac(1));
  frame->newSharedHeadData(18);  // a 60-byte frame
  std::memset(frame->data(), 0x5a, 18);
  vti_->syncArpEntryToPeer(kVlan, arp, frame);
  ASSERT_EQ(kernel_.sent.size(), 2u);
  const std::vector<uint8_t>& info = kernel_.sent[0].bytes;
  ASSERT_EQ(info.size(), 32u);
  EXPECT_EQ(std::vector<uint8_t>(info.begin(), info.begin() + 12),
            (std::vector<uint8_t>{0, 0, 0, 32, 0, 10, 2, 0, 0, 0, 0, 7}));
  EXPECT_EQ(reinterpret_cast<const ArpSyncMsg*>(info.data())->ipAddr(),
            Wire::IpGenAddr(ip("10.1.1.7")));
  const std::vector<uint8_t>& carried = kernel_.sent[1].bytes;
  ASSERT_EQ(carried.size(), 92u);
  EXPECT_EQ(carried[1], 1);
  EXPECT_EQ(carried[3], 92);
  EXPECT_EQ(std::vector<uint8_t>(carried.begin() + 32, carried.end()),
            std::vector<uint8_t>(frame->data(), frame->data() + 60));
  EXPECT_EQ(kernel_.sent[1].dstPort, ArpSyncMsg::kPort);
  EXPECT_EQ(count(VarpCounterId::arpSyncMsgSent), 2u);
  EXPECT_EQ(count(VarpCounterId::arpSyncReplyCopied), 1u);

  // A neighbor write that fails is counted, and the peer is told all the same.
  kernel_.answer = EINVAL;
  vti_->updateArpCache(arp, kVarpMac, kVlan);
  EXPECT_EQ(count(VarpCounterId::arpCacheUpdateFailed), 1u);
  EXPECT_EQ(destinations(), (std::vector<std::string>(3, "10.0.0.50")));

  vti_->arpSyncUdpPam()->modeIs(0);
  vti_->syncArpEntryToPeer(kVlan, arp, nullptr);
  EXPECT_EQ(kernel_.sent.size(), 3u);
}

// The receiver writes the peer's entry and sends a carried reply on; it refuses a
// message too short for its head or its frame, and one for a VLAN without an IP
// interface, with counter 6 and nothing written; an unknown type moves no counter; a
// failed write still lets the frame go.
TEST_F(ReplySyncTest, TheReceiverAppliesWhatItCanAndCountsTheRest) {
  const auto message = [](uint16_t type, uint16_t vlan, uint32_t frameBytes) {
    Lum::Ptr<Wire::Pkt> p = Wire::globalPktManager().newPkt();
    p->newSharedHeadData(kArpSyncMsgBytes + frameBytes);
    std::memset(p->data(), 0, p->bytes());
    auto* m = reinterpret_cast<ArpSyncMsg*>(p->data());
    m->type.valueIs(type);
    m->len.valueIs(static_cast<uint16_t>(p->bytes()));
    m->vlanId.valueIs(vlan);
    m->macAddr = mac(7);
    m->ipAddrIs(Wire::IpGenAddr(ip("10.1.1.7")));
    return p;
  };
  vti_->handleArpSyncMsg(message(0, 10, 0));
  ASSERT_EQ(kernel_.writes.size(), 1u);
  EXPECT_EQ(kernel_.writes[0].ifindex, 31);
  EXPECT_EQ(kernel_.writes[0].mac, mac(7));
  EXPECT_EQ(count(VarpCounterId::arpSyncNeighborAdded), 1u);

  Lum::Ptr<Wire::Pkt> shortHead = message(0, 10, 0);
  shortHead->delSharedHeadData(1);
  vti_->handleArpSyncMsg(shortHead);
  vti_->handleArpSyncMsg(message(1, 10, 41));
  vti_->handleArpSyncMsg(message(1, 20, 42));
  EXPECT_EQ(count(VarpCounterId::arpSyncFailed), 3u);
  vti_->handleArpSyncMsg(message(2, 10, 0));
  EXPECT_EQ(count(VarpCounterId::arpSyncFailed), 3u);
  EXPECT_EQ(kernel_.writes.size(), 1u);
  EXPECT_TRUE(kernel_.sent.empty());

  kernel_.answer = EINVAL;
  vti_->handleArpSyncMsg(message(1, 10, 42));
  EXPECT_EQ(count(VarpCounterId::arpSyncReplyProcessed), 1u);
  EXPECT_EQ(count(VarpCounterId::arpSyncFailed), 4u);
  EXPECT_EQ(kernel_.sent.size(), 3u) << "the carried reply flooded to .2, .3 and .4";
}

}  // namespace
}  // namespace Vxlan
