#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/core/Exception.h"
#include "platform/status/mlag/MlagConfig.h"
#include "platform/status/mlag/MlagStatus.h"
#include "platform/status/vxlan/VtepStatusV2.h"

namespace {

using Lum::GenericRef;
using Lum::Ptr;
using Wire::IpAddr;

// Builds a type by name, as the state database builds what it mounts; empty when the
// type is unknown.
Ptr<Lum::Entity> buildByName(const char* type, const char* name) {
  const Lum::TypeInfo* t = Lum::TypeRegistry::type(type);
  return t ? t->construct({{"name", name}}) : Ptr<Lum::Entity>();
}

struct BfdWatch : VxlanController::VtepStatusV2::NotifieeConst {
  std::vector<IpAddr> peers;
  void onBfdPeerStatus(IpAddr p) override { peers.push_back(p); }
};

// Guards the BFD records used to pick a send-to-any VTEP: a new record is neither
// up nor taken for written, state 2 is up, records are reached by the VTI's name and
// the peer's address as text, and each added or removed peer notifies.
TEST(VtepStatusV2Test, BfdPeersByText) {
  Ptr<Lum::Entity> built = buildByName("VxlanController::VtepStatusDirV2", "vtepStatusDir");
  ASSERT_TRUE(built);
  GenericRef ref{built};
  ref.entryIs("vtepStatusV2", "Vxlan1", "");
  auto* dir = dynamic_cast<VxlanController::VtepStatusDirV2*>(built.ptr());
  ASSERT_NE(dir, nullptr);
  Ptr<VxlanController::VtepStatusV2> vtep = dir->vtepStatusV2("Vxlan1");
  ASSERT_TRUE(vtep);
  Ptr<BfdWatch> watch(new BfdWatch);
  watch->notifierIs(vtep);
  watch->isRegisteredNotifieeIs(true);

  GenericRef vtepRef = *ref.element("vtepStatusV2", "Vxlan1");
  vtepRef.entryIs("bfdPeerStatus", "10.0.0.2", "");
  Ptr<VxlanController::BfdPeerStatusV2> peer = vtep->bfdPeerStatus(IpAddr::fromString("10.0.0.2"));
  ASSERT_TRUE(peer);
  EXPECT_TRUE(peer->isDefault());
  EXPECT_FALSE(peer->isUp());
  vtepRef.element("bfdPeerStatus", "10.0.0.2")->attributeIs("state", "2");
  EXPECT_TRUE(peer->isUp());
  EXPECT_FALSE(peer->isDefault());
  EXPECT_EQ(vtep->bfdPeerStatusSize(), 1u);
  EXPECT_THROW(vtepRef.entryIs("bfdPeerStatus", "0.0.0.0", ""), Lum::RangeException);
  vtepRef.entryDel("bfdPeerStatus", "10.0.0.2");
  EXPECT_EQ(vtep->bfdPeerStatusSize(), 0u);
  EXPECT_EQ(watch->peers, (std::vector<IpAddr>{peer->peer(), peer->peer()}));
}

struct MlagWatch : Mlag::Status::NotifieeConst {
  std::vector<std::string> calls;
  void onMlagState() override { calls.push_back("state"); }
  void onPeerLinkIntf() override { calls.push_back("peerLink"); }
  void onPeerMacAddr() override { calls.push_back("peerMac"); }
};

// Guards the MLAG entities: states are written and read as numbers, including ones
// without a name, only 3 and 4 count as active, and each change notifies once.
TEST(MlagStatusTest, StateByNumberAndNotifications) {
  Ptr<Lum::Entity> built = buildByName("Mlag::Status", "status");
  Ptr<Mlag::Status> status(dynamic_cast<Mlag::Status*>(built.ptr()));
  ASSERT_TRUE(status);
  Ptr<MlagWatch> watch(new MlagWatch);
  watch->notifierIs(status);
  watch->isRegisteredNotifieeIs(true);

  GenericRef ref{built};
  ref.attributeIs("mlagState", "4");
  ref.attributeIs("mlagState", "4");
  EXPECT_EQ(status->mlagState(), Mlag::MlagState::mlagStateSecondary);
  EXPECT_TRUE(Mlag::isMlagActive(status->mlagState()));
  ref.attributeIs("mlagState", "2");
  EXPECT_EQ(ref.attribute("mlagState"), "2");
  EXPECT_FALSE(Mlag::isMlagActive(status->mlagState()));
  EXPECT_TRUE(Mlag::isMlagActive(Mlag::MlagState::mlagStatePrimary));
  EXPECT_FALSE(Mlag::isMlagActive(Mlag::MlagState::mlagStateInactive));
  ref.attributeIs("peerLinkIntf", "Port-Channel10");
  ref.attributeIs("peerMacAddr", "00:1c:73:00:00:01");
  EXPECT_EQ(status->peerLinkIntf(), Wire::IntfId("Port-Channel10"));
  EXPECT_THROW(ref.attributeIs("peerMacAddr", "00:1c:73"), Lum::RangeException);
  EXPECT_EQ(watch->calls, (std::vector<std::string>{"state", "state", "peerLink", "peerMac"}));

  Ptr<Lum::Entity> config = buildByName("Mlag::Config", "config");
  ASSERT_TRUE(config);
  GenericRef(config).attributeIs("peerAddress", "192.168.0.2");
  EXPECT_EQ(dynamic_cast<Mlag::Config&>(*config).peerAddress(), IpAddr::fromString("192.168.0.2"));
}

// Guards the registrations the state database relies on: every type is known under
// its full name with its base, and the mounted ones build by name and report their
// own type.
TEST(StatusTypesTest, RegisteredAndMountable) {
  for (const char* name :
       {"Vxlan::VxlanStatus", "Vxlan::IpPortTable", "Vxlan::VxlanHwStatus", "Vxlan::BumStatus",
        "Vxlan::BumVtepList", "Vxlan::FdbStatus", "Vxlan::LearnedHost", "Vxlan::VarpIpMacTableCol",
        "Vxlan::VarpIpMacTable", "VxlanController::VtepStatusV2",
        "VxlanController::BfdPeerStatusV2"}) {
    const Lum::TypeInfo* type = Lum::TypeRegistry::type(name);
    ASSERT_NE(type, nullptr) << name;
    EXPECT_EQ(type->base(), &Lum::Entity::kType) << name;
  }
  for (const char* name :
       {"Vxlan::VtiStatusDir", "Vxlan::VxlanStatusDir", "Vxlan::VxlanHwStatusDir",
        "VxlanController::VtepStatusDirV2", "Mlag::Status", "Mlag::Config"}) {
    const Lum::TypeInfo* type = Lum::TypeRegistry::type(name);
    ASSERT_NE(type, nullptr) << name;
    Ptr<Lum::Entity> e = type->construct({{"name", "mounted"}});
    EXPECT_EQ(&e->fwkType(), type) << name;
    EXPECT_EQ(e->name(), Lum::Name("mounted"));
  }
}

}  // namespace
