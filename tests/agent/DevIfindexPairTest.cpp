// Vxlan::DevIfindexPair: the none value, and the record text form both ways. (Its order
// is the defaulted comparison of its members.)
#include <gtest/gtest.h>

#include <string>

#include "agent/DevIfindexPair.h"
#include "platform/core/Exception.h"
#include "platform/types/ValueStrep.h"
#include "tests/support/Throws.h"

namespace Vxlan {
namespace {

DevIfindexPair read(const std::string& text) {
  DevIfindexPair v;
  Lum::strepToValue(Lum::String8(text), v);
  return v;
}

// Guards the none value; the text form written and read back equal (quotes and backslashes in the
// name, the largest index), read in any order with blanks, a missing attribute at its default; and
// each fault in its words.
TEST(DevIfindexPairTest, OrderAndTextFormBothWays) {
  EXPECT_TRUE(!DevIfindexPair() && !!DevIfindexPair("", 3) && !!DevIfindexPair("et1", 0));

  const DevIfindexPair v("et3 'x'\\", 4294967295u);
  EXPECT_EQ(valueToStrep(v).str(),
            "Value('Vxlan::DevIfindexPair', ** {'devname': 'et3 \\'x\\'\\\\', "
            "'ifindex': 4294967295})");
  EXPECT_EQ(read(valueToStrep(v).str()), v);
  EXPECT_EQ(read(" Value ( 'Vxlan::DevIfindexPair' , ** { 'ifindex' : 7 , 'devname' : 'et9' } ) "),
            DevIfindexPair("et9", 7));
  EXPECT_EQ(read("Value('Vxlan::DevIfindexPair', ** {'ifindex': 8})"), DevIfindexPair("", 8));

  const std::string head = "Value('Vxlan::DevIfindexPair', ** {";
  // Junk whose fault text is longer than the formatter's stack buffer, and kept whole.
  const std::string junk = head + "'ifindex': 1}) " + std::string(300, 'x');
  const std::pair<std::string, std::string> faults[] = {
      {head + "'devname': 'et1'", "premature end of value type DevIfindexPair"},
      {junk, "junk at column 50 deserializing " + junk},
      {head + "'mtu': 1})", "DevIfindexPair has no such attribute: mtu"},
      {head + "'ifindex': 4294967296})",
       "attribute ifindex: value 4294967296 out of range (at most 4294967295)"},
  };
  for (const auto& [text, fault] : faults) {
    EXPECT_EQ(TestSupport::thrownText<Lum::RangeException>([&] { read(text); }), fault);
  }
}

}  // namespace
}  // namespace Vxlan
