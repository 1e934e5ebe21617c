#include "platform/types/IntfId.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/core/Exception.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Bridging::VlanId;
using ValueTest::rangeText;
using Wire::IntfId;
using Wire::PortChannelIntfId;
using Wire::SubIntfId;
using Wire::VlanIntfId;

// Guards what IntfId itself accepts: blanks or control bytes are refused by every way
// of building one.
TEST(IntfIdTest, RefusedNames) {
  for (const char* bad : {"Ethernet 1", " Vlan10", "Vlan10\n", "Et\x7f"}) {
    EXPECT_THROW(IntfId::fromString(bad), Lum::RangeException) << bad;
    EXPECT_THROW(IntfId(Lum::String8(bad)), Lum::RangeException) << bad;
  }
  EXPECT_EQ(rangeText([] { IntfId("Ethernet\t1"); }), "IntfId: malformed text \"Ethernet\\x091\"");
}

// Guards the abbreviation table, including Vlan/Vxlan not being confused and names
// without a number after the prefix staying whole.
TEST(IntfIdTest, ShortName) {
  const std::pair<const char*, const char*> cases[] = {
      {"Ethernet1", "Et1"},   {"Ethernet1.100", "Et1.100"}, {"Ethernet3/1", "Et3/1"},
      {"Vlan10", "Vl10"},     {"Port-Channel5", "Po5"},     {"Vxlan1", "Vx1"},
      {"Management1", "Ma1"}, {"Loopback0", "Lo0"},         {"Tunnel5", "Tunnel5"},
      {"Vlan", "Vlan"},       {"EthernetX", "EthernetX"},   {"", ""}};
  for (auto [full, brief] : cases) EXPECT_EQ(IntfId(full).shortName(), Lum::String8(brief)) << full;
}

// Guards strict VLAN interface parsing at the VLAN limits and against near misses,
// and the round trip with intfId().
TEST(IntfIdTest, VlanIntfId) {
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan4094")), VlanId(4094));
  EXPECT_EQ(VlanIntfId::intfId(VlanId(10)), IntfId("Vlan10"));
  for (const char* notVlan : {"Vlan", "Vlan0", "Vlan4095", "Vlan1x", "Vlan010", "Vlan-1", "vlan10",
                              "Vxlan10", "Vlan10.1", "Vlan99999999999999999999", ""}) {
    EXPECT_FALSE(VlanIntfId::isVlanIntfId(IntfId(notVlan))) << notVlan;
  }
  EXPECT_THROW(VlanIntfId::vlanId(IntfId("Vlan4095")), Lum::RangeException);
}

// Guards port-channel and sub-interface recognition: whole-name matches only, a
// sub-interface is not its parent's kind, and its parent must be a real port name.
TEST(IntfIdTest, PortChannelAndSubIntf) {
  EXPECT_TRUE(PortChannelIntfId::isPortChannelIntfId(IntfId("Port-Channel5")));
  for (const char* no : {"Port-Channel5.100", "Port-Channel", "Port-Channel0", "Port-Channel05"}) {
    EXPECT_FALSE(PortChannelIntfId::isPortChannelIntfId(IntfId(no))) << no;
  }
  for (const char* yes : {"Ethernet1.100", "Ethernet3/1.7", "Port-Channel5.100"}) {
    EXPECT_TRUE(SubIntfId::isSubIntfId(IntfId(yes))) << yes;
  }
  for (const char* no : {"Ethernet1.", "Ethernet1", "Ethernet1.0", "Ethernet1.01", "Ethernet1.1.2",
                         "Vlan10.5", "Ethernet.5", "Ethernet1/.5", "Ethernet0.5", ".5"}) {
    EXPECT_FALSE(SubIntfId::isSubIntfId(IntfId(no))) << no;
  }
}

}  // namespace
