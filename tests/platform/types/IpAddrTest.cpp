#include "platform/types/IpAddr.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using namespace std::string_literals;
using ValueTest::rangeText;
using Wire::Ip6Addr;
using Wire::IpAddr;
using Wire::IpAddrWithMask;
using Wire::IpGenAddr;
using Wire::IpGenAddrWithMask;

// Guards the class-D test at its edges and numeric ordering (a raw compare of the
// network-order word would put 9.255.255.255 after 10.0.0.0 on little-endian hosts).
// (Byte order against a received header: the frame paths' tests.)
TEST(IpAddrTest, MulticastAndOrdering) {
  EXPECT_TRUE(IpAddr::fromString("224.0.0.1").isMulticast());
  EXPECT_TRUE(IpAddr::fromString("239.255.255.255").isMulticast());
  EXPECT_FALSE(IpAddr::fromString("223.255.255.255").isMulticast());
  EXPECT_FALSE(IpAddr::fromString("240.0.0.0").isMulticast());
  EXPECT_LT(IpAddr::fromString("9.255.255.255"), IpAddr::fromString("10.0.0.0"));
}

// Guards strict parsing (round trips are the value_text fuzz target's): near misses and
// a NUL that would cut the text short for the C parser are refused, naming type and text.
TEST(IpAddrTest, MalformedTextsAreRefused) {
  for (std::string bad : {""s, "10.1.2"s, "10.1.2.256"s, "010.1.2.3"s, " 10.1.2.3"s, "fe80::1"s}) {
    EXPECT_THROW(IpAddr::fromString(bad), Lum::RangeException) << bad;
  }
  EXPECT_EQ(rangeText([] { IpAddr::fromString("10.1.2.3\0junk"s); }),
            "IpAddr: malformed text \"10.1.2.3\\x00junk\"");
  EXPECT_THROW(Ip6Addr::fromString("fe80::1::2"), Lum::RangeException);
  EXPECT_THROW(IpGenAddr::fromString("10.1.2.3:"), Lum::RangeException);
}

// Guards the IpGenAddr contents (IPv4 bytes leading and the rest zero, which equality
// and ordering compare whole) and that v4() refuses another family instead of
// reinterpreting bytes.
TEST(IpAddrTest, GenAddrLayoutAndFamilies) {
  EXPECT_EQ(IpGenAddr(IpAddr::fromString("10.1.2.3")).bytes(),
            (std::array<uint8_t, 16>{10, 1, 2, 3}));
  EXPECT_THROW(IpGenAddr::fromString("ff02::2").v4(), Lum::RangeException);
  EXPECT_NE(IpGenAddr(IpAddr()), IpGenAddr());  // 0.0.0.0 is an address, not unset
}

// Guards prefix lengths as state documents give them: limits per family, and a
// mandatory, numeric length in the text form.
TEST(IpAddrTest, Masks) {
  EXPECT_EQ(rangeText([] { IpAddrWithMask::fromString("10.0.0.1/33"); }),
            "IpAddrWithMask::maskLen < 0 or > 32 not allowed");
  for (const char* bad : {"10.0.0.1", "10.0.0.1/", "10.0.0.1/2x", "/24", "10.0.0.1/-1"}) {
    EXPECT_THROW(IpAddrWithMask::fromString(bad), Lum::RangeException) << bad;
  }
  for (const char* bad : {"fe80::1/129", "10.0.0.1/33", "/0"}) {
    EXPECT_THROW(IpGenAddrWithMask::fromString(bad), Lum::RangeException) << bad;
  }
}

}  // namespace
