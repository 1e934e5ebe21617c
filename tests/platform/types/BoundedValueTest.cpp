#include "platform/types/BoundedValue.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unordered_set>

#include "platform/types/NamespaceName.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"
#include "platform/types/VrId.h"
#include "platform/types/VrfName.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using Routing::Fhrp::VrId;
using ValueTest::EqualityMixes;
using ValueTest::rangeText;
using ValueTest::textOf;
using Vxlan::Vni;
using Vxlan::VniOrNone;
using Wire::NamespaceName;

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

// Guards the limits at both edges and the exact texts callers and logs match on, also
// that wide or negative integers are checked before narrowing; and the OrNone
// conversions, which must refuse to invent a VLAN or VNI out of "none". (That an absent
// map entry reads as "none": the frame paths' unknown-VNI and unknown-VLAN drops.)
TEST(BoundedValueTest, LimitsDefaultsAndMessages) {
  const std::string kVlan = "VlanId::value < 1 or > 4094 not allowed";
  EXPECT_EQ(VlanId(1).value(), 1);
  EXPECT_EQ(VlanId(4094).value(), 4094);
  EXPECT_EQ(rangeText([] { VlanId(0); }), kVlan);
  EXPECT_EQ(rangeText([] { VlanId(4095); }), kVlan);
  EXPECT_EQ(rangeText([] { VlanId(65536 + 1); }), kVlan);
  EXPECT_EQ(rangeText([] { VlanId(-1); }), kVlan);

  EXPECT_TRUE(VlanIdOrNone(0).isNone());
  EXPECT_EQ(VlanIdOrNone(4094).value(), 4094);
  EXPECT_EQ(rangeText([] { VlanIdOrNone(4095); }), "VlanIdOrNone::value > 4094 not allowed");

  EXPECT_EQ(Vni(0xffffff).value(), 0xffffffu);
  EXPECT_EQ(rangeText([] { Vni(0x1000000); }), "Vni::value < Vni::min or > Vni::max not allowed");

  EXPECT_TRUE(VniOrNone(16777216).isNone());
  EXPECT_TRUE(VniOrNone(0).hasValue());
  const std::string kVniOrNone = "VniOrNone::value < 0 or > 16777216 not allowed";
  EXPECT_EQ(rangeText([] { VniOrNone(16777217); }), kVniOrNone);
  EXPECT_EQ(rangeText([] { VniOrNone(-1); }), kVniOrNone);

  EXPECT_EQ(VrId(256).value(), 256);
  EXPECT_EQ(rangeText([] { VrId(257); }), "VrId::value < VrId::min or > VrId::max not allowed");

  EXPECT_EQ(VrfName(std::string(100, 'v')).size(), 100u);
  EXPECT_EQ(rangeText([] { VrfName(std::string(101, 'v')); }), "VrfName::bytes > 100 not allowed");
  EXPECT_EQ(rangeText([] { VrfName(Lum::String8(std::string(101, 'v'))); }),
            "VrfName::bytes > 100 not allowed");
  EXPECT_EQ(NamespaceName(std::string(150, 'n')).size(), 150u);
  EXPECT_EQ(rangeText([] { NamespaceName::fromString(std::string(151, 'n')); }),
            "NamespaceName::bytes > 150 not allowed");

  EXPECT_EQ(VlanIdOrNone(VlanId(10)).vlanId(), VlanId(10));
  EXPECT_EQ(VniOrNone(Vni(0)).vni(), Vni(0));
  EXPECT_EQ(rangeText([] { VlanIdOrNone().vlanId(); }), "VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(rangeText([] { VniOrNone().vni(); }),
            "Vni::value < Vni::min or > Vni::max not allowed");
}

// Guards parsing: the text form reads back, anything but plain digits is malformed
// and names the type and text, and huge numbers report the limit instead of wrapping.
TEST(BoundedValueTest, TextForms) {
  for (VlanId v : {VlanId(1), VlanId(4094)}) EXPECT_EQ(VlanId::fromString(textOf(v)), v);
  EXPECT_EQ(VniOrNone::fromString(textOf(VniOrNone())), VniOrNone());
  EXPECT_EQ(Vni::fromString("16777215"), Vni(0xffffff));
  EXPECT_EQ(VrfName::fromString(textOf(VrfName("blue"))), VrfName("blue"));

  for (const char* bad : {"", "+1", "-1", " 1", "1 ", "0x10", "12a"}) {
    EXPECT_EQ(rangeText([&] { VlanId::fromString(bad); }),
              std::string("VlanId: malformed text \"") + bad + "\"");
  }
  EXPECT_EQ(rangeText([] { VrId::fromString("257"); }),
            "VrId::value < VrId::min or > VrId::max not allowed");
  // 2^64 + 10: a wrapping parser would read VLAN 10.
  EXPECT_EQ(rangeText([] { VlanId::fromString("18446744073709551626"); }),
            "VlanId::value < 1 or > 4094 not allowed");
}

// Guards ordering and hashing by number (not text: "10" sorts before "9").
TEST(BoundedValueTest, OrderingAndHash) {
  std::set<VlanId> ordered{VlanId(10), VlanId(9)};
  EXPECT_EQ(*ordered.begin(), VlanId(9));
  EXPECT_LT(Vni(9), Vni(10));
  std::unordered_set<VniOrNone> vnis{VniOrNone(Vni(5)), VniOrNone()};
  EXPECT_EQ(vnis.count(VniOrNone(5)), 1u);
  EXPECT_EQ(vnis.count(VniOrNone(6)), 0u);
  std::unordered_set<VrfName> names{VrfName("red")};
  EXPECT_EQ(names.count(VrfName::fromString("red")), 1u);
}

}  // namespace
