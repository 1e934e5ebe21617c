#include <gtest/gtest.h>

#include "platform/status/vxlan/VniToVlanMaps.h"
#include "platform/status/vxlan/VtiStatus.h"

namespace Vxlan {
namespace {

struct VlanWatch : VtiStatus::NotifieeConst {
  std::vector<int> vlans;
  void onVlanToVniMap(Bridging::VlanId v) override { vlans.push_back(v.value()); }
};

// Guards the generic interface over collections, which the state files and the
// control socket use: writes by text reach the entity and its reactors, bad text is
// refused before anything changes, and a const reference writes nothing.
TEST(GenericCollectionTest, MapsByText) {
  Lum::Ptr<VtiStatus> vti(new VtiStatus(Wire::IntfId("Vxlan1")));
  Lum::Ptr<VlanWatch> watch(new VlanWatch);
  watch->notifierIs(vti);
  watch->isRegisteredNotifieeIs(true);
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(vti)};
  ref.entryIs("vlanToVniMap", "10", "5010");
  ref.entryIs("vlanToVniMap", "20", "5020");
  EXPECT_EQ(vti->vlanToVniMap(Bridging::VlanId(10)), VniOrNone(5010));
  EXPECT_EQ(ref.keys("vlanToVniMap"), (std::vector<std::string>{"10", "20"}));
  EXPECT_EQ(ref.entry("vlanToVniMap", "20"), "5020");
  EXPECT_EQ(watch->vlans, (std::vector<int>{10, 20}));

  EXPECT_THROW(ref.entryIs("vlanToVniMap", "4095", "1"), Lum::RangeException);
  EXPECT_THROW(ref.entryIs("vlanToVniMap", "30", "16777217"), Lum::RangeException);
  EXPECT_EQ(vti->vlanToVniMap().size(), 2u);

  ref.entryIs("mcastGrpDecap", "239.0.0.1", "true");
  EXPECT_TRUE(vti->mcastGrpDecap(Wire::IpAddr::fromString("239.0.0.1")));
  ref.entryDel("vlanToVniMap", "10");
  EXPECT_EQ(watch->vlans.back(), 10);
  EXPECT_TRUE(vti->vlanToVniMap(Bridging::VlanId(10)).isNone());

  Lum::GenericRef constRef{Lum::Ptr<const Lum::Entity>(vti)};
  EXPECT_THROW(constRef.entryDel("vlanToVniMap", "20"), Lum::Exception);
  EXPECT_EQ(constRef.entry("vlanToVniMap", "20"), "5020");
  EXPECT_THROW(ref.attribute("vlanToVniMap"), Lum::RangeException) << "a map is not a value";
}

// Guards elements of entity collections: created by key text, reached for further
// writes, and read-only through a const parent.
TEST(GenericCollectionTest, EntityCollectionsByText) {
  Lum::Ptr<VniToVlanMaps> maps(new VniToVlanMaps("vniToVlanMaps"));
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(maps)};
  EXPECT_FALSE(ref.element("vtiVniToVlanMap", "Vxlan1"));
  ref.entryIs("vtiVniToVlanMap", "Vxlan1", "");
  std::optional<Lum::GenericRef> map = ref.element("vtiVniToVlanMap", "Vxlan1");
  ASSERT_TRUE(map);
  map->entryIs("vniToVlanMap", "5000", "10");
  EXPECT_EQ(maps->vtiVniToVlanMap(Wire::IntfId("Vxlan1"))->vniToVlanMap(Vni(5000)),
            Bridging::VlanIdOrNone(10));
  const Lum::AttributeInfo* attr = maps->fwkType().attribute("vtiVniToVlanMap");
  EXPECT_EQ(attr->access.elementType()->fullName(), "Vxlan::VniToVlanMap");
  EXPECT_THROW(attr->access.checkKey("Vxlan 1"), Lum::RangeException);
  Lum::GenericRef constRef{Lum::Ptr<const Lum::Entity>(maps)};
  EXPECT_TRUE(constRef.element("vtiVniToVlanMap", "Vxlan1")->isConst());
  EXPECT_THROW(constRef.element("vtiVniToVlanMap", "Vxlan1")->entryDel("vniToVlanMap", "5000"),
               Lum::Exception);
}

}  // namespace
}  // namespace Vxlan
