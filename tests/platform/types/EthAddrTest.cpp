#include "platform/types/EthAddr.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "platform/core/Exception.h"

namespace {

using Wire::EthAddr;

// Guards the text forms: canonical output, the accepted input variants, and that
// short, long, mixed or non-hex texts are refused with the type and text named.
TEST(EthAddrTest, TextForms) {
  EthAddr a = EthAddr::fromString("00:1c:73:aa:bb:cc");
  EXPECT_EQ((std::ostringstream() << a).str(), "00:1c:73:aa:bb:cc");
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
