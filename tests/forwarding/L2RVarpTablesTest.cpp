// The mirror of the controller's virtual IP and MAC tables and its lookup.
#include <gtest/gtest.h>

#include <tuple>

#include "forwarding/Local2RemoteForwarderSm.h"

namespace Vxlan {
namespace {

Wire::IpGenAddr addr(const char* text) {
  return Wire::IpGenAddr::fromString(text);
}
Wire::EthAddr mac(const char* text) {
  return Wire::EthAddr::fromString(text);
}

TEST(L2RVarpTablesTest, LookupTakesTheFirstTableWithTheVni) {
  Lum::Ptr<VarpIpMacTableCol> col = new VarpIpMacTableCol("col");
  const Lum::Ptr<const VarpIpMacTableCol> c = col;
  col->varpIpMacTableIs("a")->varpIpMacEntryIs(
      VarpIpMacEntry(addr("10.1.1.5"), VniOrNone(Vni(100)), mac("00:00:00:00:00:0a")));
  col->varpIpMacTableIs("b")->varpIpMacEntryIs(
      VarpIpMacEntry(addr("10.1.1.5"), VniOrNone(Vni(200)), mac("00:00:00:00:00:0b")));
  // VNI, address and MAC asked for, and the answer.
  const std::tuple<VniOrNone, const char*, const char*, int> cases[] = {
      {VniOrNone(Vni(200)), "10.1.1.5", "00:00:00:00:00:0b", 2},
      {VniOrNone(Vni(200)), "10.1.1.5", "00:00:00:00:00:0a", 1},  // another MAC
      {VniOrNone(Vni(300)), "10.1.1.5", "00:00:00:00:00:00", 0},
      {VniOrNone(Vni(0)), "10.1.1.5", "00:00:00:00:00:0a", 0},  // VNI 0 never matches
      // VNI none matches the default entry of a table without the address.
      {VniOrNone(), "10.9.9.9", "00:00:00:00:00:00", 2},
      {VniOrNone(), "10.9.9.9", "00:00:00:00:00:01", 1},
  };
  for (const auto& [vni, ip, m, expected] : cases) {
    EXPECT_EQ(ipPortTableVarpMacLookup(c, vni, addr(ip), mac(m)), expected) << ip << " " << m;
  }
}

// Guards the mirror: a table from before the start and one made after it, entries
// added and removed, and a gone VTI's tables emptied and removed (no stale hosts
// behind), another VTI's table of the same name kept.
TEST(L2RVarpTablesTest, TablesAndEntriesFollowTheControllerStatus) {
  Lum::Ptr<VxlanStatusDir> dir = new VxlanStatusDir("vxlan/status");
  Lum::Ptr<VarpIpMacTableCol> col = new VarpIpMacTableCol("col");
  const Lum::Ptr<VxlanStatus> vti = dir->vxlanStatusIs(Wire::IntfId("Vxlan1"));
  const Wire::IpGenAddrWithMask key(addr("10.1.1.1"), 32);
  vti->vccIpPortTableIs("early")->ipPortEntryIs(
      IpPortEntry(key, VniOrNone(Vni(100)), mac("00:00:00:00:00:01")));
  Local2RemoteForwarderSm::Inputs in;
  in.vxStatusDir = dir;
  in.l2rVarpIpMacTableCol = col;
  Lum::Ptr<Local2RemoteForwarderSm> l2r = new Local2RemoteForwarderSm(in);
  const Lum::Ptr<VarpIpMacTable> early = col->varpIpMacTable("early");
  ASSERT_TRUE(early);
  EXPECT_EQ(early->varpIpMacEntry(addr("10.1.1.1")).vni(), VniOrNone(Vni(100)));

  const Lum::Ptr<IpPortTable> late = vti->vccIpPortTableIs("late");
  late->ipPortEntryIs(IpPortEntry(key, VniOrNone(Vni(200)), mac("00:00:00:00:00:02")));
  ASSERT_TRUE(col->varpIpMacTable("late"));
  EXPECT_EQ(col->varpIpMacTable("late")->varpIpMacEntry(addr("10.1.1.1")).vni(),
            VniOrNone(Vni(200)));
  late->ipPortEntryDel(key);
  EXPECT_EQ(col->varpIpMacTable("late")->varpIpMacEntrySize(), 0u);

  dir->vxlanStatusIs(Wire::IntfId("Vxlan2"))->vccIpPortTableIs("late");
  dir->vxlanStatusDel(Wire::IntfId("Vxlan1"));
  EXPECT_FALSE(col->varpIpMacTable("early"));
  EXPECT_EQ(early->varpIpMacEntrySize(), 0u) << "the entries go with the table";
  EXPECT_TRUE(col->varpIpMacTable("late")) << "still Vxlan2's";
  dir->vxlanStatusDel(Wire::IntfId("Vxlan2"));
  EXPECT_EQ(col->varpIpMacTableSize(), 0u) << "a gone VTI leaves no stale hosts behind";
}

}  // namespace
}  // namespace Vxlan
