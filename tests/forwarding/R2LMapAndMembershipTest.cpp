#include "R2LManagerFixture.h"

namespace Vxlan {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;

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
