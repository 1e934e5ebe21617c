#include "platform/types/EthAddr.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/core/Exception.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Wire::EthAddr;

// Guards the byte/word mapping: the word constructor takes bytes 2i, 2i+1 big-endian,
// and a header pointer reads in wire order.
TEST(EthAddrTest, WordsAndBytes) {
  EthAddr a = EthAddr::fromString("00:1c:73:aa:bb:cc");
  EXPECT_EQ(EthAddr(0x001c, 0x73aa, 0xbbcc), a);

  const uint8_t frame[] = {0xee, 0x00, 0x1c, 0x73, 0xaa, 0xbb, 0xcc};
  EXPECT_EQ(EthAddr::fromBytes(frame + 1), a);
  EXPECT_LT(EthAddr(0x0000, 0x0000, 0xffff), EthAddr(0x0001, 0x0000, 0x0000));
}

// Guards the group-bit test (0x01, not the locally-administered 0x02) and that only
// all-ones is broadcast.
TEST(EthAddrTest, Classification) {
  EXPECT_TRUE(EthAddr::fromString("01:00:5e:00:00:01").isMulticast());
  EXPECT_FALSE(EthAddr::fromString("02:00:00:00:00:01").isMulticast());
  EthAddr broadcast = EthAddr::fromString("ff:ff:ff:ff:ff:ff");
  EXPECT_TRUE(broadcast.isBroadcast() && broadcast.isMulticast());
  EXPECT_FALSE(EthAddr::fromString("ff:ff:ff:ff:ff:fe").isBroadcast());
}

// Guards the text forms: canonical output, the accepted input variants, and that
// short, long, mixed or non-hex texts are refused with the type and text named.
TEST(EthAddrTest, TextForms) {
  EthAddr a = EthAddr::fromString("00:1c:73:aa:bb:cc");
  EXPECT_EQ(ValueTest::textOf(a), "00:1c:73:aa:bb:cc");
  for (const char* same : {"001C.73AA.BBCC", "0:1c:73:aa:bb:cc", "1c.73aa.bbcc"}) {
    EXPECT_EQ(EthAddr::fromString(same), a) << same;
  }
  for (const char* bad :
       {"", "00:1c:73:aa:bb", "00:1c:73:aa:bb:cc:dd", "00:1c:73:aa:bb:", "001:c:73:aa:bb:cc",
        "00:1c:73:aa:bb:cg", "001c.73aa", "001c.73aa.bbccd", "00-1c-73-aa-bb-cc"}) {
    EXPECT_THROW(EthAddr::fromString(bad), Lum::RangeException) << bad;
  }
}

}  // namespace
