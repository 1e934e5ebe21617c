// The rules of single status entities and of their composite texts, and the generic
// interface to entity collections; what every attribute shares is walked in
// StatusRegistryTest.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/status/StatusModel.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Lum::GenericRef;
using Lum::Ptr;
using ValueTest::rangeText;
using Wire::EthAddr;
using Wire::IntfId;
using Wire::IpAddr;

// The text of the range exception that reading `text` as a T raises.
template <class T>
std::string refusal(const std::string& text) {
  return rangeText([&] { T::fromString(text); });
}

// Guards the composite texts that state documents write as keys and values: the
// no-pair key is not the all-zero MAC of a VLAN (the default flood list), unnamed
// switchport modes pass (a newer configuration is carried), half a source-group pair
// is not "any source", and a malformed text names the part that is wrong.
TEST(StatusRulesTest, CompositeTextForms) {
  EXPECT_NE(Vxlan::MacVlanPair(EthAddr(), Bridging::VlanId(1)), Vxlan::MacVlanPair());
  EXPECT_EQ(Bridging::SwitchportModeAndNativeVlan::fromString("9,1").mode(),
            static_cast<Bridging::SwitchportMode>(9));
  EXPECT_TRUE(Routing::Igmp::SourceGroup::fromString("0.0.0.0,239.1.2.3").isAnySource());
  using Pair = Vxlan::MacVlanPair;
  EXPECT_EQ(refusal<Pair>("00:11:22:33:44:55"),
            "MacVlanPair: malformed text \"00:11:22:33:44:55\"");
  EXPECT_EQ(refusal<Pair>("00:11:22:33:44/10"), "EthAddr: malformed text \"00:11:22:33:44\"");
  EXPECT_EQ(refusal<Pair>("00:11:22:33:44:55/4095"), "VlanId::value < 1 or > 4094 not allowed");
  EXPECT_THROW(Vxlan::VarpIpMacEntry::fromString("10.0.0.1,5000"), Lum::RangeException);
  EXPECT_THROW(Bridging::SwitchportModeAndNativeVlan::fromString("4294967296,1"),
               Lum::RangeException);
  EXPECT_THROW(Routing::Igmp::SourceGroup::fromString("0.0.0.0,"), Lum::RangeException);
}

// Guards the two tables keyed by the entry's own address: an entry without address
// would read back as absent, and a key other than the address would store it where
// no lookup finds it; the check of a document refuses both, as the write does.
TEST(StatusRulesTest, EntriesKeyedByTheirOwnAddress) {
  Ptr<Vxlan::IpPortTable> table(new Vxlan::IpPortTable("tenantA"));
  GenericRef ref{Ptr<Lum::Entity>(table)};
  const Lum::TextAccess& acc = table->fwkType().attribute("ipPortEntry")->access;
  EXPECT_EQ(rangeText([&] { acc.checkEntry("10.1.1.6/32", "10.1.1.5/32,5000,00:11:22:33:44:55"); }),
            "IpPortTable: key 10.1.1.6/32 differs from the entry's address 10.1.1.5/32");
  EXPECT_THROW(table->ipPortEntryIs(Vxlan::IpPortEntry()), Lum::RangeException);
  ref.entryIs("ipPortEntry", "10.1.1.5/32", "10.1.1.5/32,5000,00:11:22:33:44:55");
  EXPECT_EQ(table->ipPortEntry(Wire::IpGenAddrWithMask::fromString("10.1.1.5/32")).vni(),
            Vxlan::VniOrNone(5000));
  EXPECT_EQ(table->ipPortEntry(Wire::IpGenAddrWithMask::fromString("10.1.1.6/32")),
            Vxlan::IpPortEntry());

  Vxlan::VarpIpMacTable varp("a");
  EXPECT_THROW(varp.varpIpMacEntryIs(Vxlan::VarpIpMacEntry()), Lum::RangeException);
  EXPECT_THROW(varp.fwkType()
                   .attribute("varpIpMacEntry")
                   ->access.checkEntry("10.1.1.8", "10.1.1.7,5000,00:00:00:00:00:03"),
               Lum::RangeException);
}

// Guards the hardware directory's owned entities (named under it, and unlinked when
// readers hold them longer than it) and the one whole notification of a delete-all.
// (The shared virtual router lookup: the ARP case of the local-to-remote test mode.)
TEST(StatusRulesTest, OwnedEntitiesAndDeleteAll) {
  Ptr<Vxlan::VxlanHwStatusDir> dir(new Vxlan::VxlanHwStatusDir("hw"));
  Ptr<Vxlan::BumStatus> bum = dir->bumStatus();
  EXPECT_EQ(bum->fullName(), "hw/bumStatus");
  std::vector<int> seen;
  Ptr<Lum::ReactorBase> w = bum->fwkType().watch(*bum, [&](int id) { seen.push_back(id); });
  bum->bumMcastGrpIs(Bridging::VlanId(10), IpAddr::fromString("239.1.1.1"));
  bum->bumMcastGrpIs(Bridging::VlanId(20), IpAddr::fromString("239.1.1.2"));
  bum->bumMcastGrpDelAll();
  bum->bumMcastGrpDelAll();
  EXPECT_EQ(seen.size(), 3u);
  dir = nullptr;
  EXPECT_EQ(bum->parent(), nullptr);
}

// Guards what the status registry walk does not reach: an element created by key text
// is reached for further writes, a map attribute is no plain value, and nothing is
// written through a const reference, nor below it (elements and their maps).
TEST(GenericCollectionTest, EntityCollectionsByText) {
  Ptr<Vxlan::VniToVlanMaps> maps(new Vxlan::VniToVlanMaps("vniToVlanMaps"));
  GenericRef ref{Ptr<Lum::Entity>(maps)};
  EXPECT_FALSE(ref.element("vtiVniToVlanMap", "Vxlan1"));
  ref.entryIs("vtiVniToVlanMap", "Vxlan1", "");
  std::optional<GenericRef> map = ref.element("vtiVniToVlanMap", "Vxlan1");
  ASSERT_TRUE(map);
  map->entryIs("vniToVlanMap", "5000", "10");
  EXPECT_EQ(maps->vtiVniToVlanMap(Wire::IntfId("Vxlan1"))->vniToVlanMap(Vxlan::Vni(5000)),
            Bridging::VlanIdOrNone(10));
  GenericRef constRef{Ptr<const Lum::Entity>(maps)};
  EXPECT_THROW(constRef.entryIs("vtiVniToVlanMap", "Vxlan2", ""), Lum::Exception);
  EXPECT_THROW(constRef.element("vtiVniToVlanMap", "Vxlan1")->entryDel("vniToVlanMap", "5000"),
               Lum::Exception);
  EXPECT_EQ(constRef.element("vtiVniToVlanMap", "Vxlan1")->entry("vniToVlanMap", "5000"), "10");
  EXPECT_THROW(map->attribute("vniToVlanMap"), Lum::RangeException) << "a map is not a value";
}

}  // namespace
