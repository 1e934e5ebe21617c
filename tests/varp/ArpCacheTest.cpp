#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <vector>

#include "tests/varp/VarpFixture.h"

namespace Vxlan {
namespace {

using ArpCacheTest = VarpFixture;

// An ARP header from `sender` at 10.0.0.5 asking for `target`.
Wire::EthArpIpHdr arp(Wire::EthAddr sender, uint32_t senderIp = 0x0a000005,
                      uint32_t target = 0x0a000001) {
  Wire::EthArpIpHdr h{};
  h.senderHw = sender;
  h.senderIpIs(Wire::IpAddr::fromHostOrder(senderIp));
  h.targetIpIs(Wire::IpAddr::fromHostOrder(target));
  return h;
}
const Wire::EthAddr kPeerMac = mac(0xb1);

// A reply is for this switch when it goes to the peer's, the bridge or the virtual
// MAC, and only then learnt; a broadcast is learnt only when gratuitous.
TEST_F(ArpCacheTest, RepliesToThisSwitchAndGratuitousArpAreLearnt) {
  mlag_->peerMacAddrIs(kPeerMac);
  const Bridging::VlanIdOrNone vlan(10);
  EXPECT_TRUE(vti_->handleVxlanArpReply(arp(mac(1)), kPeerMac, vlan));
  EXPECT_FALSE(vti_->handleVxlanArpReply(arp(mac(2)), mac(0x77), vlan));
  EXPECT_FALSE(vti_->handleVxlanArpReply(arp(mac(2)), kBroadcast, vlan));
  vti_->handleVxlanGratArp(arp(mac(3), 0x0a000007, 0x0a000007), kBroadcast, vlan);
  vti_->handleVxlanGratArp(arp(mac(4)), kBroadcast, vlan);
  vti_->handleVxlanGratArp(arp(mac(4), 0x0a000007, 0x0a000007), kVarpMac, vlan);
  ASSERT_EQ(kernel_.writes.size(), 2u);
  EXPECT_EQ(kernel_.writes[0].ifindex, 31);
  EXPECT_EQ(kernel_.writes[0].ip, ip("10.0.0.5").value());
  EXPECT_EQ(kernel_.writes[0].mac, mac(1));
  EXPECT_EQ(kernel_.writes[1].mac, mac(3));
  EXPECT_EQ(count(VarpCounterId::arpCacheUpdated), 2u);
}

// The switch's own and the virtual MAC are never learnt, nor a multicast or zero
// sender; none of these is counted.
TEST_F(ArpCacheTest, OwnAndInvalidSendersAreNeverLearnt) {
  const Bridging::VlanIdOrNone vlan(10);
  for (const Wire::EthArpIpHdr& h :
       {arp(kVarpMac), arp(kBridgeMac), arp(Wire::EthAddr(0x0100, 0x5e00, 0x0001)),
        arp(Wire::EthAddr()), arp(mac(1), 0xe0000001), arp(mac(1), 0)}) {
    vti_->updateArpCache(h, kVarpMac, vlan);
  }
  EXPECT_TRUE(kernel_.writes.empty());
  EXPECT_EQ(count(VarpCounterId::arpCacheUpdateFailed), 0u);
}

// The VLAN interface's VRF decides the table: its own socket and kernel view; a VRF
// not known yet or a device missing in it is counted. (A write the kernel refuses: the
// sync test, where the peer is told all the same.)
TEST_F(ArpCacheTest, TheVlansVrfDecidesTheTableAndFailuresAreCounted) {
  ipStatus_->ipIntfStatusIs(Wire::IntfId("Vlan20"))->vrfIs(L3::VrfName("red"));
  const Bridging::VlanIdOrNone vlan20(20);
  vti_->updateArpCache(arp(mac(1)), kVarpMac, vlan20);
  EXPECT_EQ(count(VarpCounterId::arpCacheUpdateFailed), 1u) << "no VRF information";

  Lum::Ptr<KernelNetworkInfo::Root> red(new KernelNetworkInfo::Root("red"));
  const int redSocket = ::dup(0);
  sm_->vrfInfoIs(L3::VrfName("red"), red, nullptr, redSocket);
  vti_->updateArpCache(arp(mac(1)), kVarpMac, vlan20);
  EXPECT_EQ(count(VarpCounterId::arpCacheUpdateFailed), 2u) << "no vlan20 in the VRF";

  red->interfaceIs(device(5, "vlan20"));
  vti_->updateArpCache(arp(mac(1)), kVarpMac, vlan20);
  ASSERT_EQ(kernel_.writes.size(), 1u);
  EXPECT_EQ(kernel_.writes[0].fd, redSocket);
  EXPECT_EQ(kernel_.writes[0].ifindex, 5);
  EXPECT_EQ(count(VarpCounterId::arpCacheUpdated), 1u);
}

}  // namespace
}  // namespace Vxlan
