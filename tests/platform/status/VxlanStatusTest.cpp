#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/core/Exception.h"
#include "platform/status/vxlan/VarpIpMacTable.h"
#include "platform/status/vxlan/VtiStatusDir.h"
#include "platform/status/vxlan/VxlanHwStatus.h"
#include "platform/status/vxlan/VxlanStatus.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace Vxlan {
namespace {

using Lum::GenericRef;
using Lum::Ptr;
using ValueTest::rangeText;
using ValueTest::textOf;
using Wire::EthAddr;
using Wire::IpAddr;
using Wire::IpGenAddr;

// Builds a type by name, as the state database builds what it mounts; empty when the
// type is unknown.
Ptr<Lum::Entity> buildByName(const char* type, const char* name) {
  const Lum::TypeInfo* t = Lum::TypeRegistry::type(type);
  return t ? t->construct({{"name", name}}) : Ptr<Lum::Entity>();
}

// Records "<key>" for keyed and "*" for whole-collection notifications.
struct Log {
  std::vector<std::string> calls;
  template <class K>
  void add(const K& key) {
    calls.push_back(textOf(key));
  }
};

// Guards the key of flood lists: the all-zero MAC of a VLAN is a real key and must
// differ from "no pair", the text form must read back, and each malformed part must
// be refused with a text that names it.
TEST(MacVlanPairTest, KeyAndTextForm) {
  const MacVlanPair vlan1Default(EthAddr(), Bridging::VlanId(1));
  EXPECT_NE(vlan1Default, MacVlanPair());
  EXPECT_NE(std::hash<MacVlanPair>()(vlan1Default), std::hash<MacVlanPair>()(MacVlanPair()));
  EXPECT_EQ(textOf(vlan1Default), "00:00:00:00:00:00/1");
  EXPECT_EQ(textOf(MacVlanPair()), "");
  EXPECT_EQ(MacVlanPair::fromString(""), MacVlanPair());
  EXPECT_THROW(MacVlanPair().vlanId(), Lum::RangeException);

  const MacVlanPair p = MacVlanPair::fromString("00:11:22:33:44:55/10");
  EXPECT_EQ(p.mac(), EthAddr(0x0011, 0x2233, 0x4455));
  EXPECT_EQ(p.vlanId(), Bridging::VlanId(10));
  EXPECT_EQ(MacVlanPair::fromString(textOf(p)), p);
  EXPECT_EQ(MacVlanPair::fromString("0011.2233.4455/10"), p);
  // MAC first, then VLAN: the order of the text.
  EXPECT_LT(MacVlanPair(EthAddr(0, 0, 1), Bridging::VlanId(20)), p);
  EXPECT_LT(p, MacVlanPair(p.mac(), Bridging::VlanId(11)));

  EXPECT_EQ(rangeText([] { MacVlanPair::fromString("00:11:22:33:44:55"); }),
            "MacVlanPair: malformed text \"00:11:22:33:44:55\"");
  EXPECT_EQ(rangeText([] { MacVlanPair::fromString("00:11:22:33:44:55/1/2"); }),
            "MacVlanPair: malformed text \"00:11:22:33:44:55/1/2\"");
  EXPECT_EQ(rangeText([] { MacVlanPair::fromString("00:11:22:33:44:55/x"); }),
            "MacVlanPair: malformed text \"00:11:22:33:44:55/x\"");
  EXPECT_EQ(rangeText([] { MacVlanPair::fromString("00:11:22:33:44/10"); }),
            "EthAddr: malformed text \"00:11:22:33:44\"");
  EXPECT_EQ(rangeText([] { MacVlanPair::fromString("00:11:22:33:44:55/4095"); }),
            "VlanId::value < 1 or > 4094 not allowed");
}

// Guards the text forms of the two address entries, which the generic interface
// writes: round trip, the default entry, and a wrong count of fields or a bad field.
TEST(AddressEntryTest, TextForms) {
  const IpPortEntry port(Wire::IpGenAddrWithMask::fromString("10.1.1.5/32"), VniOrNone(5000),
                         EthAddr::fromString("00:11:22:33:44:55"));
  EXPECT_EQ(textOf(port), "10.1.1.5/32,5000,00:11:22:33:44:55");
  EXPECT_EQ(IpPortEntry::fromString(textOf(port)), port);
  EXPECT_EQ(IpPortEntry::fromString(textOf(IpPortEntry())), IpPortEntry());
  EXPECT_TRUE(IpPortEntry().vni().isNone());

  const VarpIpMacEntry varp(IpGenAddr::fromString("fe80::1"), VniOrNone(7),
                            EthAddr::fromString("00:11:22:33:44:55"));
  EXPECT_EQ(VarpIpMacEntry::fromString(textOf(varp)), varp);
  EXPECT_EQ(rangeText([] { VarpIpMacEntry::fromString("10.0.0.1,5000"); }),
            "VarpIpMacEntry: malformed text \"10.0.0.1,5000\"");
  EXPECT_EQ(rangeText([] { IpPortEntry::fromString("10.0.0.1/32,1,00:11:22:33:44:55,"); }),
            "IpPortEntry: malformed text \"10.0.0.1/32,1,00:11:22:33:44:55,\"");
  EXPECT_EQ(rangeText([] { VarpIpMacEntry::fromString("10.0.0.1,16777217,00:11:22:33:44:55"); }),
            "VniOrNone::value < 0 or > 16777216 not allowed");
}

struct VtiDirWatch : VtiStatusDir::NotifieeConst, Log {
  void onVtiStatus(const Wire::IntfId& id) override { add(id); }
  void onValue() override { add("value"); }
};

// Guards the directory of VTIs: built by type name as the state database does,
// elements created and reached by key text with their inherited attributes, one
// keyed notification per real addition or removal, and no element for an empty id.
TEST(VtiStatusDirTest, GenericRoundTripAndNotifications) {
  Ptr<Lum::Entity> built = buildByName("Vxlan::VtiStatusDir", "vxlan");
  Ptr<VtiStatusDir> dir(dynamic_cast<VtiStatusDir*>(built.ptr()));
  ASSERT_TRUE(dir);
  Ptr<VtiDirWatch> watch(new VtiDirWatch);
  watch->notifierIs(dir);
  watch->isRegisteredNotifieeIs(true);

  GenericRef ref{built};
  ref.attributeIs("value", "7");
  EXPECT_EQ(dir->value(), 7u);
  ref.entryIs("vtiStatus", "Vxlan1", "");
  ref.entryIs("vtiStatus", "Vxlan1", "");
  std::optional<GenericRef> vti = ref.element("vtiStatus", "Vxlan1");
  ASSERT_TRUE(vti);
  vti->attributeIs("udpPort", "4790");
  vti->attributeIs("operStatus", "1");
  Ptr<VtiStatus> status = dir->vtiStatus(Wire::IntfId("Vxlan1"));
  EXPECT_EQ(status->udpPort(), 4790);
  EXPECT_EQ(status->operStatus(), Interface::IntfOperStatus::intfOperUp);
  EXPECT_EQ(status->fullName(), "vxlan/Vxlan1");
  EXPECT_EQ(dir->vtiStatusIs(Wire::IntfId("Vxlan1")), status);

  EXPECT_THROW(ref.entryIs("vtiStatus", "", ""), Lum::RangeException);
  ref.entryDel("vtiStatus", "Vxlan1");
  ref.entryDel("vtiStatus", "Vxlan1");
  EXPECT_FALSE(dir->vtiStatus(Wire::IntfId("Vxlan1")));
  EXPECT_EQ(status->parent(), nullptr);
  EXPECT_EQ(watch->calls, (std::vector<std::string>{"value", "Vxlan1", "Vxlan1"}));
}

struct IpPortWatch : IpPortTable::NotifieeConst, Log {
  void onIpPortEntry(const Wire::IpGenAddrWithMask& a) override { add(a); }
};

// Guards the virtual-address tables: reached from the directory down by text, an
// absent address reads as the default entry, and neither a key that differs from
// the entry's address nor an entry without address is stored.
TEST(VxlanStatusDirTest, TablesOfVirtualAddresses) {
  Ptr<VxlanStatusDir> dir(new VxlanStatusDir("status"));
  GenericRef ref{Ptr<Lum::Entity>(dir)};
  ref.entryIs("vxlanStatus", "Vxlan1", "");
  ref.element("vxlanStatus", "Vxlan1")->entryIs("vccIpPortTable", "tenantA", "");
  Ptr<VxlanStatus> status = dir->vxlanStatus(Wire::IntfId("Vxlan1"));
  EXPECT_EQ(status->vccIpPortTableSize(), 1u);
  Ptr<IpPortTable> table = status->vccIpPortTable("tenantA");
  ASSERT_TRUE(table);
  Ptr<IpPortWatch> watch(new IpPortWatch);
  watch->notifierIs(table);
  watch->isRegisteredNotifieeIs(true);

  GenericRef tableRef = *ref.element("vxlanStatus", "Vxlan1")->element("vccIpPortTable", "tenantA");
  tableRef.entryIs("ipPortEntry", "10.1.1.5/32", "10.1.1.5/32,5000,00:11:22:33:44:55");
  const auto key = Wire::IpGenAddrWithMask::fromString("10.1.1.5/32");
  EXPECT_EQ(table->ipPortEntry(key).vni(), VniOrNone(5000));
  EXPECT_EQ(tableRef.entry("ipPortEntry", "10.1.1.5/32"), "10.1.1.5/32,5000,00:11:22:33:44:55");
  EXPECT_EQ(table->ipPortEntry(Wire::IpGenAddrWithMask::fromString("10.1.1.6/32")), IpPortEntry());

  EXPECT_THROW(tableRef.entryIs("ipPortEntry", "10.1.1.6/32", "10.1.1.5/32,1,00:00:00:00:00:01"),
               Lum::RangeException);
  EXPECT_THROW(table->ipPortEntryIs(IpPortEntry()), Lum::RangeException);
  tableRef.entryDel("ipPortEntry", "10.1.1.5/32");
  EXPECT_EQ(table->ipPortEntry(key), IpPortEntry());
  EXPECT_EQ(watch->calls, (std::vector<std::string>{"10.1.1.5/32", "10.1.1.5/32"}));
}

struct BumWatch : BumStatus::NotifieeConst, Log {
  void onBumMcastGrp(Bridging::VlanId v) override { add(v); }
  void onBumMcastGrp() override { add("*"); }
  void onBumVtepList(const MacVlanPair& p) override { add(p); }
  void onBumReplicationMode() override { add("mode"); }
};

// Guards the hardware directory: its two owned children are reachable and named
// under it, and outlive it unlinked; port ids start unknown; the default flood list
// of VLAN 1 (all-zero MAC) can be created; a whole-map delete notifies once.
TEST(VxlanHwStatusDirTest, ChildrenListsAndDefaults) {
  Ptr<VxlanHwStatusDir> dir(new VxlanHwStatusDir("hw"));
  Ptr<BumStatus> bum;
  Ptr<FdbStatus> fdb;
  {
    GenericRef ref{Ptr<Lum::Entity>(dir)};
    ref.entryIs("vxlanHwStatus", "Vxlan1", "");
    GenericRef hw = *ref.element("vxlanHwStatus", "Vxlan1");
    EXPECT_EQ(hw.attribute("portId"), "65535");
    EXPECT_EQ(hw.attribute("cpuSourcePortId"), "65535");
    hw.attributeIs("portId", "498");
    hw.entryIs("remoteVtep", "10.0.0.2", "");
    Ptr<VxlanHwStatus> status = dir->vxlanHwStatus(Wire::IntfId("Vxlan1"));
    EXPECT_EQ(status->portId(), HwPortId(498));
    EXPECT_TRUE(status->remoteVtep(IpAddr::fromString("10.0.0.2")));

    bum = dir->bumStatus();
    EXPECT_EQ(bum->fullName(), "hw/bumStatus");
    Ptr<BumWatch> watch(new BumWatch);
    watch->notifierIs(bum);
    watch->isRegisteredNotifieeIs(true);
    GenericRef bumRef = *ref.child("bumStatus");
    bumRef.attributeIs("bumReplicationMode", "1");
    bumRef.entryIs("bumMcastGrp", "10", "239.1.1.1");
    bumRef.entryIs("bumMcastGrp", "20", "239.1.1.2");
    EXPECT_EQ(bum->bumMcastGrp(Bridging::VlanId(10)), IpAddr::fromString("239.1.1.1"));
    bum->bumMcastGrpDelAll();
    bum->bumMcastGrpDelAll();
    EXPECT_TRUE(bum->bumMcastGrp(Bridging::VlanId(10)).isZero());

    bumRef.entryIs("bumVtepList", "00:00:00:00:00:00/1", "");
    GenericRef list = *bumRef.element("bumVtepList", "00:00:00:00:00:00/1");
    list.attributeIs("listType", "1");
    list.entryIs("remoteVtepAddr", "10.0.0.9", "");
    list.entryIs("remoteVtepAddr", "10.0.0.10", "");
    Ptr<BumVtepList> l = bum->bumVtepList(MacVlanPair(EthAddr(), Bridging::VlanId(1)));
    EXPECT_TRUE(l->isSendToAny());
    EXPECT_EQ(l->remoteVtepAddrSize(), 2u);
    EXPECT_EQ(list.keys("remoteVtepAddr"), (std::vector<std::string>{"10.0.0.9", "10.0.0.10"}));
    EXPECT_THROW(bumRef.entryIs("bumVtepList", "", ""), Lum::RangeException);
    EXPECT_EQ(watch->calls,
              (std::vector<std::string>{"mode", "10", "20", "*", "00:00:00:00:00:00/1"}));

    ref.child("fdbStatus")->entryIs("learnedHost", "00:11:22:33:44:55/10", "");
    ref.child("fdbStatus")
        ->element("learnedHost", "00:11:22:33:44:55/10")
        ->attributeIs("remoteVtepAddr", "10.0.0.3");
    fdb = dir->fdbStatus();
    EXPECT_EQ(fdb->learnedHost(MacVlanPair::fromString("00:11:22:33:44:55/10"))->remoteVtepAddr(),
              IpAddr::fromString("10.0.0.3"));
  }
  dir = nullptr;
  EXPECT_EQ(fdb->parent(), nullptr);
  EXPECT_EQ(bum->fullName(), "bumStatus");
}

struct VarpWatch : VarpIpMacTable::NotifieeConst, Log {
  void onVarpIpMacEntry(const IpGenAddr& a) override { add(a); }
  void onVarpIpMacEntry() override { add("*"); }
};

// Guards the agent's mirror of virtual hosts: a replaced entry notifies, an equal
// one does not; absent addresses read as the default entry with no VNI; emptying a
// table notifies once; tables iterate in name order.
TEST(VarpIpMacTableTest, EntriesAndTables) {
  Ptr<VarpIpMacTableCol> col(new VarpIpMacTableCol("OverlayRelayAgentCol"));
  Ptr<VarpIpMacTable> b = col->varpIpMacTableIs("b");
  Ptr<VarpIpMacTable> a = col->varpIpMacTableIs("a");
  EXPECT_EQ(col->varpIpMacTableIterator().key(), Lum::String8("a"));
  Ptr<VarpWatch> watch(new VarpWatch);
  watch->notifierIs(a);
  watch->isRegisteredNotifieeIs(true);

  const IpGenAddr ip = IpGenAddr::fromString("10.1.1.5");
  const VarpIpMacEntry entry(ip, VniOrNone(5000), EthAddr(0, 0, 1));
  a->varpIpMacEntryIs(entry);
  a->varpIpMacEntryIs(entry);
  a->varpIpMacEntryIs(VarpIpMacEntry(ip, VniOrNone(5000), EthAddr(0, 0, 2)));
  EXPECT_EQ(a->varpIpMacEntry(ip).mac(), EthAddr(0, 0, 2));
  EXPECT_TRUE(a->varpIpMacEntry(IpGenAddr::fromString("10.1.1.6")).vni().isNone());
  EXPECT_THROW(a->varpIpMacEntryIs(VarpIpMacEntry()), Lum::RangeException);

  GenericRef aRef = *GenericRef(Ptr<Lum::Entity>(col)).element("varpIpMacTable", "a");
  aRef.entryIs("varpIpMacEntry", "10.1.1.7", "10.1.1.7,5000,00:00:00:00:00:03");
  EXPECT_THROW(aRef.entryIs("varpIpMacEntry", "10.1.1.8", "10.1.1.7,5000,00:00:00:00:00:03"),
               Lum::RangeException);
  a->varpIpMacEntryDelAll();
  a->varpIpMacEntryDelAll();
  EXPECT_TRUE(a->varpIpMacEntry().empty());
  EXPECT_EQ(watch->calls, (std::vector<std::string>{"10.1.1.5", "10.1.1.5", "10.1.1.7", "*"}));
}

}  // namespace
}  // namespace Vxlan
