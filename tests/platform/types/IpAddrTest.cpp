#include "platform/types/IpAddr.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>
#include <set>
#include <string>
#include <unordered_set>

#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using namespace std::string_literals;
using ValueTest::rangeText;
using ValueTest::textOf;
using Wire::Ip6Addr;
using Wire::IpAddr;
using Wire::IpAddrWithMask;
using Wire::IpGenAddr;
using Wire::IpGenAddrWithMask;

// Guards the byte-order contract: value() is the word as it sits in a received header,
// and host order is only what hostOrder()/fromHostOrder() deal in.
TEST(IpAddrTest, NetworkOrderMatchesHeaderWord) {
  // IPv4 header with source 10.1.2.3 at offset 12.
  const uint8_t header[20] = {0x45, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 1, 2, 3};
  uint32_t headerWord;
  std::memcpy(&headerWord, header + 12, 4);
  const IpAddr a = IpAddr::fromString("10.1.2.3");
  EXPECT_EQ(a.value(), headerWord);
  EXPECT_EQ(a.hostOrder(), 0x0a010203u);
  EXPECT_EQ(IpAddr::fromNetworkOrder(headerWord), a);
  EXPECT_EQ(IpAddr::fromHostOrder(0x0a010203), a);
  EXPECT_EQ(IpAddr::fromBytes(std::span<const uint8_t, 4>(header + 12, 4)), a);
  EXPECT_EQ(a.bytes(), (std::array<uint8_t, 4>{10, 1, 2, 3}));
}

// Guards the class-D test at its edges and numeric ordering (a raw compare of the
// network-order word would put 9.255.255.255 after 10.0.0.0 on little-endian hosts).
TEST(IpAddrTest, MulticastAndOrdering) {
  EXPECT_TRUE(IpAddr::fromString("224.0.0.1").isMulticast());
  EXPECT_TRUE(IpAddr::fromString("239.255.255.255").isMulticast());
  EXPECT_FALSE(IpAddr::fromString("223.255.255.255").isMulticast());
  EXPECT_FALSE(IpAddr::fromString("240.0.0.0").isMulticast());
  EXPECT_TRUE(IpAddr().isZero());
  EXPECT_TRUE(Ip6Addr::fromString("ff02::1").isMulticast());

  EXPECT_LT(IpAddr::fromString("9.255.255.255"), IpAddr::fromString("10.0.0.0"));
  EXPECT_LT(IpAddr::fromString("10.0.0.9"), IpAddr::fromString("10.0.0.10"));
  std::set<IpGenAddr> ordered{IpGenAddr::fromString("::1"), IpGenAddr::fromString("10.0.0.1"),
                              IpGenAddr()};
  EXPECT_TRUE(ordered.begin()->isUnset());
  EXPECT_TRUE(std::next(ordered.begin())->isV4());
}

// Guards the text forms: round trips of every type, and strict rejection (including a
// NUL that would cut the text short for the C parser) naming the type and text.
TEST(IpAddrTest, TextForms) {
  for (const char* t : {"10.1.2.3", "0.0.0.0", "255.255.255.255"}) {
    EXPECT_EQ(textOf(IpAddr::fromString(t)), t);
  }
  EXPECT_EQ(textOf(Ip6Addr::fromString("fe80::1")), "fe80::1");
  for (const char* t : {"10.1.2.3", "2001:db8::5", ""}) {
    EXPECT_EQ(textOf(IpGenAddr::fromString(t)), t);
  }
  for (std::string bad : {""s, "10.1.2"s, "10.1.2.256"s, "010.1.2.3"s, " 10.1.2.3"s, "fe80::1"s}) {
    EXPECT_EQ(rangeText([&] { IpAddr::fromString(bad); }),
              "IpAddr: malformed text \"" + bad + "\"");
  }
  EXPECT_EQ(rangeText([] { IpAddr::fromString("10.1.2.3\0junk"s); }),
            "IpAddr: malformed text \"10.1.2.3\\x00junk\"");
  EXPECT_EQ(rangeText([] { Ip6Addr::fromString("fe80::1::2"); }),
            "Ip6Addr: malformed text \"fe80::1::2\"");
  EXPECT_EQ(rangeText([] { IpGenAddr::fromString("10.1.2.3:"); }),
            "IpGenAddr: malformed text \"10.1.2.3:\"");
}

// Guards the IpGenAddr contents (the family, IPv4 bytes leading and the rest zero, which
// equality and ordering compare whole) and that the accessors refuse the wrong family
// instead of reinterpreting bytes.
TEST(IpAddrTest, GenAddrLayoutAndFamilies) {
  const IpGenAddr v4(IpAddr::fromString("10.1.2.3"));
  EXPECT_EQ(v4.family(), AF_INET);
  EXPECT_EQ(v4.bytes(), (std::array<uint8_t, 16>{10, 1, 2, 3}));
  EXPECT_EQ(v4.v4(), IpAddr::fromString("10.1.2.3"));
  EXPECT_EQ(v4.maxMaskLen(), 32u);

  IpGenAddr v6 = IpGenAddr::fromString("ff02::2");
  EXPECT_TRUE(v6.isV6() && v6.isMulticast());
  EXPECT_EQ(rangeText([&] { v6.v4(); }), "IpGenAddr: \"ff02::2\" is not IPv4");
  EXPECT_EQ(rangeText([] { IpGenAddr().v6(); }), "IpGenAddr: \"\" is not IPv6");
  EXPECT_NE(IpGenAddr(IpAddr()), IpGenAddr());  // 0.0.0.0 is an address, not unset

  std::unordered_set<IpGenAddr> set{v4, v6};
  EXPECT_EQ(set.count(IpGenAddr::fromString("10.1.2.3")), 1u);
}

// Guards prefix lengths: limits per family with their texts, host bits kept, and a
// mandatory, numeric length in the text form.
TEST(IpAddrTest, Masks) {
  IpAddrWithMask m = IpAddrWithMask::fromString("10.0.0.1/24");
  EXPECT_EQ(m.address(), IpAddr::fromString("10.0.0.1"));
  EXPECT_EQ(m.maskLen(), 24);
  EXPECT_EQ(textOf(m), "10.0.0.1/24");
  EXPECT_EQ(IpAddrWithMask::fromString("0.0.0.0/0").maskLen(), 0);
  const std::string kV4Limit = "IpAddrWithMask::maskLen < 0 or > 32 not allowed";
  EXPECT_EQ(rangeText([] { IpAddrWithMask::fromString("10.0.0.1/33"); }), kV4Limit);
  EXPECT_EQ(rangeText([] { IpAddrWithMask(IpAddr(), -1); }), kV4Limit);
  for (const char* bad : {"10.0.0.1", "10.0.0.1/", "10.0.0.1/2x", "/24", "10.0.0.1/-1"}) {
    EXPECT_EQ(rangeText([&] { IpAddrWithMask::fromString(bad); }),
              "IpAddrWithMask: malformed text \""s + bad + "\"");
  }

  for (const char* t : {"fe80::1/64", "2001:db8::/128", "10.0.0.1/32", ""}) {
    EXPECT_EQ(textOf(IpGenAddrWithMask::fromString(t)), t);
  }
  EXPECT_EQ(rangeText([] { IpGenAddrWithMask::fromString("fe80::1/129"); }),
            "IpGenAddrWithMask::maskLen < 0 or > 128 not allowed for IPv6");
  EXPECT_EQ(rangeText([] { IpGenAddrWithMask::fromString("10.0.0.1/33"); }),
            "IpGenAddrWithMask::maskLen < 0 or > 32 not allowed for IPv4");
  EXPECT_EQ(rangeText([] { IpGenAddrWithMask(IpGenAddr(), 1); }),
            "IpGenAddrWithMask::maskLen != 0 not allowed for an unset address");
  EXPECT_EQ(rangeText([] { IpGenAddrWithMask::fromString("/0"); }),
            "IpGenAddrWithMask: malformed text \"/0\"");
}

}  // namespace
