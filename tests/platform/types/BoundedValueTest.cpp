#include "platform/types/BoundedValue.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/types/NamespaceName.h"
#include "platform/types/NetInt.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"
#include "platform/types/VrfName.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using ValueTest::EqualityMixes;
using ValueTest::rangeText;
using Vxlan::Vni;
using Vxlan::VniOrNone;
using Wire::NamespaceName;
using Wire::NetU16;
using Wire::NetU32;

// Guards strong typing: none of these may compile, or a VLAN, a VNI and a plain
// integer could be swapped silently.
static_assert(!std::is_convertible_v<int, VlanId>);
static_assert(!std::is_constructible_v<Vni, VlanId>);
static_assert(!std::is_constructible_v<VlanId, VlanIdOrNone>);
static_assert(!std::is_constructible_v<VlanId, char>);
static_assert(!EqualityMixes<VlanId, VlanIdOrNone>);
static_assert(!EqualityMixes<Vni, int>);
static_assert(!std::is_convertible_v<const char*, VrfName>);
static_assert(!EqualityMixes<VrfName, NamespaceName>);

// Guards byte-order safety: a host integer must never slip into or out of a wire
// field without fromHost()/value(). (Their layout at any offset and their byte order:
// each frame header's size and alignment assertions, and the frame paths' tests, which
// read and write them at unaligned offsets byte for byte.)
static_assert(!std::is_convertible_v<uint16_t, NetU16>);
static_assert(!std::is_convertible_v<NetU16, uint16_t>);
static_assert(!std::is_constructible_v<uint32_t, NetU32>);
static_assert(!EqualityMixes<NetU16, uint16_t>);
static_assert(!EqualityMixes<NetU16, NetU32>);

// Guards the limits at both edges, also that wide or negative integers are checked
// before narrowing; and the OrNone conversions, which must refuse to invent a VLAN or
// VNI out of "none". (That an absent map entry reads as "none": the frame paths'
// unknown-VNI and unknown-VLAN drops.)
TEST(BoundedValueTest, LimitsAndNone) {
  EXPECT_EQ(VlanId(1).value(), 1);
  EXPECT_EQ(VlanId(4094).value(), 4094);
  EXPECT_EQ(rangeText([] { VlanId(0); }), "VlanId::value < 1 or > 4094 not allowed");
  for (int bad : {4095, 65536 + 1, -1}) EXPECT_THROW((void)VlanId(bad), Lum::RangeException) << bad;
  EXPECT_TRUE(VlanIdOrNone(0).isNone());
  EXPECT_THROW(VlanIdOrNone(4095), Lum::RangeException);
  EXPECT_EQ(Vni(0xffffff).value(), 0xffffffu);
  EXPECT_THROW(Vni(0x1000000), Lum::RangeException);
  EXPECT_TRUE(VniOrNone(16777216).isNone() && VniOrNone(0).hasValue());
  for (int bad : {16777217, -1}) EXPECT_THROW((void)VniOrNone(bad), Lum::RangeException) << bad;
  EXPECT_EQ(VrfName(std::string(100, 'v')).size(), 100u);
  EXPECT_THROW(VrfName(Lum::String8(std::string(101, 'v'))), Lum::RangeException);
  EXPECT_THROW(NamespaceName(std::string(151, 'n')), Lum::RangeException);

  EXPECT_EQ(VniOrNone(Vni(0)).vni(), Vni(0));
  EXPECT_THROW(VlanIdOrNone().vlanId(), Lum::RangeException);
  EXPECT_THROW(VniOrNone().vni(), Lum::RangeException);
}

// Guards parsing (round trips are the value_text fuzz target's): anything but plain
// digits is malformed and names the type and text, and huge numbers report the limit
// instead of wrapping.
TEST(BoundedValueTest, StrictParsing) {
  for (const char* bad : {"", "+1", "-1", " 1", "1 ", "0x10", "12a"}) {
    EXPECT_EQ(rangeText([&] { VlanId::fromString(bad); }),
              std::string("VlanId: malformed text \"") + bad + "\"");
  }
  // 2^64 + 10: a wrapping parser would read VLAN 10.
  EXPECT_THROW(VlanId::fromString("18446744073709551626"), Lum::RangeException);
}

}  // namespace
