#include <gtest/gtest.h>

#include "platform/status/vxlan/VniToVlanMaps.h"

namespace Vxlan {
namespace {

// Guards what the status registry walk does not reach: an element created by key text
// is reached for further writes, a map attribute is no plain value, and everything
// below a const parent stays read-only (elements and their maps).
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
  EXPECT_EQ(constRef.element("vtiVniToVlanMap", "Vxlan1")->entry("vniToVlanMap", "5000"), "10");
  EXPECT_THROW(map->attribute("vniToVlanMap"), Lum::RangeException) << "a map is not a value";
}

}  // namespace
}  // namespace Vxlan
