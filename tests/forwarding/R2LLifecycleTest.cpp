#include "R2LManagerFixture.h"

namespace Vxlan {
namespace {

using Interface::IntfOperStatus;

class R2LLifecycleTest : public R2LManagerFixture {};

// Guards the socket pair against the interface's state: nothing before up, both
// bound to the right devices when up (opened once, at the end of construction; opened
// with protocol 0 and given ETH_P_ALL at bind, so that they never listen to every
// interface), both closed with the configuration cleared when down.
TEST_F(R2LLifecycleTest, SocketsFollowOperStatus) {
  Lum::Ptr<VtiStatus> s = startWithVti(false);
  EXPECT_EQ(sys_.opened, 0);
  s->operStatusIs(IntfOperStatus::intfOperUp);
  EXPECT_EQ(sys_.openCount(), 2u);
  EXPECT_EQ(sys_.boundIndex[sm()->remoteSock()], 3);
  EXPECT_EQ(sys_.boundIndex[sm()->localSock()], 7);
  EXPECT_EQ(sys_.openProtocols, std::set<int>{0});
  EXPECT_EQ(sys_.boundProtocol[sm()->remoteSock()], ETH_P_ALL);
  EXPECT_EQ(sys_.boundProtocol[sm()->localSock()], ETH_P_ALL);
  EXPECT_TRUE(remoteWatched());

  igmp_->intfConfigIs(Wire::IntfId("Loopback9"));
  s->operStatusIs(IntfOperStatus::intfOperDown);
  EXPECT_EQ(sys_.openCount(), 0u);
  EXPECT_EQ(sm()->fileDescriptor()->notifier()->descriptor(), -1);
  EXPECT_FALSE(igmp_->intfConfigIterator());

  // Up at creation: one pair, not one per reactor that came along in construction.
  dir_->vtiStatusDel(kVti);
  sys_.opened = 0;
  vti(true);
  EXPECT_EQ(sys_.opened, 2);
  EXPECT_EQ(sys_.openCount(), 2u);
}

// Guards which attribute rebuilds what: port, source interface and VTEP address the
// remote socket only (an address of 0.0.0.0 leaves it closed), controller mode both.
TEST_F(R2LLifecycleTest, AttributeChangesRebuildTheRightSockets) {
  Lum::Ptr<VtiStatus> s = startWithVti(true);
  const int local = sm()->localSock();
  auto rebuilt = [&](auto change) {
    sys_.opened = 0;
    change();
    return sys_.opened;
  };
  EXPECT_EQ(rebuilt([&] { s->udpPortIs(8472); }), 1);
  EXPECT_EQ(rebuilt([&] { s->srcIpIntfIs(Wire::IntfId("Loopback2")); }), 1);
  EXPECT_EQ(rebuilt([&] { s->localVtepAddrIs(Wire::IpAddr()); }), 0);
  EXPECT_EQ(sm()->remoteSock(), -1);
  EXPECT_EQ(sm()->localSock(), local);
  EXPECT_TRUE(sys_.isOpen(local));
  EXPECT_EQ(rebuilt([&] { s->localVtepAddrIs(ip("10.0.0.2")); }), 1);
  EXPECT_TRUE(sys_.isOpen(sm()->remoteSock()));
  EXPECT_EQ(rebuilt([&] { s->controllerClientModeIs(true); }), 2);
  EXPECT_EQ(sys_.openCount(), 2u);
  // A 16-byte device name has no room for the terminating zero: refused, not cut by
  // the kernel to the name of another device. A usable name then completes the pair.
  sys_.devices["abcdefghijklmno"] = 5;
  s->srcIntfKernelNameIs(Lum::String8("abcdefghijklmnop"));
  EXPECT_EQ(sys_.openCount(), 0u);
  EXPECT_EQ(rebuilt([&] { s->srcIntfKernelNameIs(Lum::String8("lo1")); }), 2);
  EXPECT_TRUE(remoteWatched());
  // A source device the kernel does not know closes both.
  sys_.devices.erase("lo1");
  EXPECT_EQ(rebuilt([&] { s->udpPortIs(4789); }), 1);
  EXPECT_EQ(sys_.openCount(), 0u);
  EXPECT_EQ(sm()->localSock(), -1);

  // Down: a port change closes what is already closed and opens nothing.
  s->operStatusIs(IntfOperStatus::intfOperDown);
  EXPECT_EQ(rebuilt([&] { s->udpPortIs(8472); }), 0);
  // Down, the controller mode still clears the implicit configuration.
  igmp_->intfConfigIs(kSrc);
  s->controllerClientModeIs(false);
  EXPECT_FALSE(igmp_->intfConfigIterator());
}

// Guards portId and the end of a VTI: the hardware entry's portId is followed (another
// VTI's entry neither gives nor takes it; without one it is unknown: the frame test's
// glort 0xFFFF); deletion closes the sockets, removes the configuration, resets portId
// and drops the hardware machines, but leaves the VTI's VNI table.
TEST_F(R2LLifecycleTest, DeletingTheVtiCleansUp) {
  hw_->vxlanHwStatusIs(kVti)->portIdIs(HwPortId(0x21));
  bum_->bumMcastGrpIs(Bridging::VlanId(10), ip("239.1.1.1"));
  startWithVti(true);
  Lum::Ptr<Sm> machine = sm();
  hw_->vxlanHwStatus(kVti)->portIdIs(HwPortId(0x22));
  hw_->vxlanHwStatusIs(Wire::IntfId("Vxlan2"))->portIdIs(HwPortId(77));
  EXPECT_EQ(machine->portId(), HwPortId(0x22));
  hw_->vxlanHwStatusDel(Wire::IntfId("Vxlan2"));
  EXPECT_EQ(machine->portId(), HwPortId(0x22));
  ASSERT_TRUE(joined("239.1.1.1"));

  dir_->vtiStatusDel(kVti);
  EXPECT_FALSE(sm());
  EXPECT_EQ(sys_.openCount(), 0u);
  EXPECT_FALSE(igmp_->intfConfigIterator());
  EXPECT_TRUE(pim_->intfMode().empty());
  EXPECT_TRUE(machine->portId().isUnknown());
  EXPECT_EQ(machine->vxHwStatusSmSize(), 0u);
  EXPECT_TRUE(maps_->vtiVniToVlanMap(kVti));
}

// Guards the "txraw" device: absent, the local socket is still made (index 0, one error
// counted); its arrival reopens both sockets, another device changes nothing; its
// departure closes both and clears the configuration. (A remote socket rebuilt without
// "txraw" left unwatched, or the loop spins on it: the namespace test, which measures
// it.) And a pair left closed by the order of a document's attributes: up before the
// device name, the name completes it.
TEST_F(R2LLifecycleTest, TxRawDeviceAndAttributeOrderMakeThePair) {
  sys_.devices.erase("txraw");
  Lum::Ptr<VtiStatus> s = vti(true);
  start();
  EXPECT_EQ(count(VxlanCounterId::r2lSocketErrors), 1u);
  EXPECT_EQ(sys_.boundIndex[sm()->localSock()], 0);
  sys_.devices["txraw"] = 7;
  txrawIs(true);
  EXPECT_EQ(sys_.boundIndex[sm()->localSock()], 7);
  sys_.opened = 0;
  kni_->interfaceIs(
      KernelNetworkInfo::InterfaceState{Wire::IfIndex(9), Lum::String8("et9"), 0, 0, {}, 1500});
  EXPECT_EQ(sys_.opened, 0);

  igmp_->intfConfigIs(kSrc);
  txrawIs(false);
  EXPECT_EQ(sys_.openCount(), 0u);
  EXPECT_FALSE(igmp_->intfConfigIterator());

  dir_->vtiStatusDel(kVti);
  s = dir_->vtiStatusIs(kVti);
  s->operStatusIs(IntfOperStatus::intfOperUp);
  s->localVtepAddrIs(ip("10.0.0.1"));
  EXPECT_EQ(sys_.openCount(), 0u);
  s->srcIntfKernelNameIs(Lum::String8("lo1"));
  EXPECT_TRUE(remoteWatched());
}

// Guards the catch-up of each reactor on a new notifier: a new status rebuilds the
// VNI table and follows its state; a new BUM status brings its flood group; a new
// MLAG status its membership rule.
TEST_F(R2LLifecycleTest, NewNotifierCatchesUp) {
  bum_->bumReplicationModeIs(2);
  startWithVti(false);

  Lum::Ptr<VtiStatus> other = new VtiStatus(kVti);
  other->srcIpIntfIs(kSrc);
  other->srcIntfKernelNameIs(Lum::String8("lo1"));
  other->localVtepAddrIs(ip("10.0.0.1"));
  other->operStatusIs(IntfOperStatus::intfOperUp);
  other->vlanToVniMapIs(Bridging::VlanId(20), VniOrNone(6020));
  other->mcastGrpDecapIs(ip("239.2.2.2"), true);
  sm()->notifierIs(other);
  EXPECT_EQ(sm()->vniToVlanForVti()->notifier()->vniToVlanMap(Vni(6020)),
            Bridging::VlanIdOrNone(20));
  EXPECT_EQ(sys_.openCount(), 2u);
  EXPECT_TRUE(joined("239.2.2.2"));

  Lum::Ptr<BumStatus> bum2 = new BumStatus("bum2");
  bum2->bumReplicationModeIs(2);
  bum2->bumMcastGrpIs(Bridging::VlanId(10), ip("239.9.9.9"));
  sm()->vxBumStatusIs(bum2);
  EXPECT_EQ(sm()->floodMcastGrp(), ip("239.9.9.9"));
  EXPECT_TRUE(joined("239.9.9.9"));

  Lum::Ptr<Mlag::Status> mlag2 = new Mlag::Status("mlag2");
  mlag2->mlagStateIs(Mlag::MlagState::mlagStateSecondary);
  sm()->mlagStatusIs(mlag2);
  EXPECT_FALSE(joined("239.2.2.2"));
  EXPECT_TRUE(joined("239.9.9.9"));
}

}  // namespace
}  // namespace Vxlan
