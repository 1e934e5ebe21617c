// The remote-to-local manager's machine on a full set of inputs: its sockets through
// the VTI's life, its VNI table and its multicast memberships.
#include "R2LManagerFixture.h"

namespace Vxlan {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
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
  EXPECT_EQ(sys_.boundIndex, (std::map<int, int>{{sm()->remoteSock(), 3}, {sm()->localSock(), 7}}));
  EXPECT_EQ(sys_.openProtocols, std::set<int>{0});
  EXPECT_EQ(sys_.boundProtocol,
            (std::map<int, int>{{sm()->remoteSock(), ETH_P_ALL}, {sm()->localSock(), ETH_P_ALL}}));
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

class R2LVniMapTest : public R2LManagerFixture {
 protected:
  VlanIdOrNone vlanOf(uint32_t vni) const {
    return maps_->vtiVniToVlanMap(kVti)->vniToVlanMap(Vni(vni));
  }
  size_t entries() const { return maps_->vtiVniToVlanMap(kVti)->vniToVlanMap().size(); }
};

// Guards the inversion against the cases where VLAN events and the reverse table
// disagree: the later of two VLANs on one VNI wins and its removal leaves the VNI
// without a VLAN; a moved VLAN stays under its old VNI too; removing a VLAN with no
// reverse entry removes nothing else.
TEST_F(R2LVniMapTest, FollowsVlanEvents) {
  Lum::Ptr<VtiStatus> s = vti(false);
  start();
  s->vlanToVniMapIs(VlanId(10), VniOrNone(5000));
  s->vlanToVniMapIs(VlanId(11), VniOrNone(5000));
  EXPECT_EQ(vlanOf(5000), VlanIdOrNone(11));
  s->vlanToVniMapDel(VlanId(11));
  EXPECT_EQ(entries(), 0u);

  s->vlanToVniMapIs(VlanId(20), VniOrNone(6000));
  s->vlanToVniMapIs(VlanId(20), VniOrNone(6001));
  EXPECT_EQ(vlanOf(6000), VlanIdOrNone(20));

  s->vlanToVniMapIs(VlanId(30), VniOrNone(7000));
  maps_->vtiVniToVlanMap(kVti)->vniToVlanMapDel(Vni(7000));
  s->vlanToVniMapDel(VlanId(30));
  EXPECT_EQ(entries(), 2u);
}

// Guards the rebuild on start: stale reverse entries go, the status map is inverted,
// and the table entry is created when missing.
TEST_F(R2LVniMapTest, RebuiltOnStart) {
  maps_->vtiVniToVlanMapIs(kVti)->vniToVlanMapIs(Vni(9999), VlanIdOrNone(99));
  Lum::Ptr<VtiStatus> s = vti(false);
  s->vlanToVniMapIs(VlanId(10), VniOrNone(5010));
  s->vlanToVniMapIs(VlanId(20), VniOrNone(5020));
  start();
  EXPECT_EQ(entries(), 2u);
  EXPECT_TRUE(vlanOf(9999).isNone());
  // A moved VLAN's old VNI is dropped by the next rebuild.
  s->vlanToVniMapIs(VlanId(10), VniOrNone(5011));
  sm()->handleVlanToVniMap();
  EXPECT_TRUE(vlanOf(5010).isNone());
  EXPECT_EQ(vlanOf(5011), VlanIdOrNone(10));
}

class R2LMembershipTest : public R2LManagerFixture {
 protected:
  void SetUp() override {
    bum_->bumReplicationModeIs(2);
    s_ = startWithVti(true);
  }
  Lum::Ptr<VtiStatus> s_;
};

// Guards the join rule of a decapsulation group: value true, multicast only,
// replication mode 2 or 3, not the MLAG secondary, interface up; each failing
// condition leaves.
TEST_F(R2LMembershipTest, DecapGroupJoinRule) {
  s_->mcastGrpDecapIs(ip("10.1.1.1"), true);
  s_->mcastGrpDecapIs(ip("239.1.1.9"), false);  // listed with false: not joined
  EXPECT_FALSE(igmp_->intfConfig(kSrc));

  s_->mcastGrpDecapIs(ip("239.1.1.1"), true);
  EXPECT_TRUE(joined("239.1.1.1"));
  mlag_->mlagStateIs(Mlag::MlagState::mlagStateSecondary);
  EXPECT_FALSE(joined("239.1.1.1"));
  mlag_->mlagStateIs(Mlag::MlagState::mlagStateDisabled);
  EXPECT_TRUE(joined("239.1.1.1"));

  for (uint32_t mode : {0u, 1u}) {
    bum_->bumReplicationModeIs(3);
    EXPECT_TRUE(joined("239.1.1.1"));
    bum_->bumReplicationModeIs(mode);
    EXPECT_FALSE(joined("239.1.1.1")) << "mode " << mode;
  }
  bum_->bumReplicationModeIs(2);
  s_->operStatusIs(Interface::IntfOperStatus::intfOperDown);
  EXPECT_FALSE(joined("239.1.1.1"));
}

// Guards the flood group: joined with the socket, with the decapsulation groups
// joined again in the same rebuild, never left by the decapsulation sweep, and a
// changed first entry rebuilds the remote socket only when up.
TEST_F(R2LMembershipTest, FloodGroup) {
  s_->mcastGrpDecapIs(ip("239.1.1.1"), true);
  bum_->bumMcastGrpIs(VlanId(10), ip("239.0.0.10"));
  EXPECT_TRUE(joined("239.0.0.10") && joined("239.1.1.1"));
  s_->mcastGrpDecapDel(ip("239.1.1.1"));
  sm()->handleMcastGrpDecap();
  EXPECT_FALSE(joined("239.1.1.1"));
  EXPECT_TRUE(joined("239.0.0.10"));

  // Another VLAN's entry is not the first: the group stays and nothing reopens.
  sys_.opened = 0;
  bum_->bumMcastGrpIs(VlanId(20), ip("239.0.0.20"));
  EXPECT_EQ(sm()->floodMcastGrp(), ip("239.0.0.10"));
  EXPECT_EQ(sys_.opened, 0);

  s_->operStatusIs(Interface::IntfOperStatus::intfOperDown);
  bum_->bumMcastGrpIs(VlanId(10), ip("239.0.0.11"));
  EXPECT_EQ(sm()->floodMcastGrp(), ip("239.0.0.11"));
  EXPECT_EQ(sys_.openCount(), 0u);

  // In controller mode the flood group is not joined.
  s_->controllerClientModeIs(true);
  s_->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  EXPECT_FALSE(igmp_->intfConfig(kSrc));
}

// Guards the PIM mode: set by the first join, kept as it is by later ones, removed
// with the last group of the interface and not before.
TEST_F(R2LMembershipTest, LastGroupTakesThePimMode) {
  s_->mcastGrpDecapIs(ip("239.1.1.1"), true);
  EXPECT_EQ(pimMode(), Routing::Pim::Mode::pimModeSparse);
  pim_->intfModeIs(Lum::Name("Loopback1"), Routing::Pim::Mode::pimModeNone);
  s_->mcastGrpDecapIs(ip("239.1.1.2"), true);
  EXPECT_EQ(pim_->intfMode().find(Lum::Name("Loopback1")),
            std::optional(Routing::Pim::Mode::pimModeNone));
  pim_->intfModeIs(Lum::Name("Loopback1"), Routing::Pim::Mode::pimModeSparse);

  s_->mcastGrpDecapDel(ip("239.1.1.1"));
  EXPECT_EQ(pimMode(), Routing::Pim::Mode::pimModeSparse);
  s_->mcastGrpDecapDel(ip("239.1.1.2"));
  EXPECT_FALSE(igmp_->intfConfig(kSrc));
  EXPECT_TRUE(pim_->intfMode().empty());
}

}  // namespace
}  // namespace Vxlan
