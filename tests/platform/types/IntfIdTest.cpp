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

// Guards port-channel and sub-interface recognition: whole-name matches only, a
// sub-interface is not its parent's kind, and its parent must be a real port name; and
// the VLAN interface of a VLAN.
TEST(IntfIdTest, PortChannelSubIntfAndVlanIntf) {
  EXPECT_EQ(VlanIntfId::intfId(VlanId(10)), IntfId("Vlan10"));
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
