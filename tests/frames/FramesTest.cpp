#include <gtest/gtest.h>

#include <vector>

#include "frames/Decap.h"
#include "frames/VxlanHdr.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

using TestSupport::VxlanFrameBuilder;

// Guards the VXLAN flag rule (only bit 0x08 matters; reserved bits are ignored) and the
// VNI's byte order in the header.
TEST(VxlanHdrTest, OnlyTheVniFlagCountsAndTheVniIsBigEndian) {
  Wire::VxlanHdr h{};
  for (auto [flags, valid] :
       {std::pair<uint8_t, bool>{0x08, true}, {0xff, true}, {0x00, false}, {0xf7, false}}) {
    h.flags = flags;
    EXPECT_EQ(h.flagsVniValid(), valid) << int(flags);
  }
  h.vniIs(Vni(0xabcdef));
  EXPECT_EQ(h.vniBytes[0], 0xab);
  EXPECT_EQ(h.vni(), Vni(0xabcdef));
}

// Guards the prepend checks and their order: an unknown port fails first, then too
// little room. (Both forms byte for byte: the virtual ARP local send test.)
TEST(DecapTest, PrependForTxRawChecks) {
  VxlanFrameBuilder b;
  std::vector<uint8_t> f = b.build();
  uint8_t* inner = f.data() + b.vxlanOffset() + 8;
  const Bridging::VlanIdOrNone vlan(20);
  EXPECT_EQ(prependDecapHdrForTxRaw(inner, 0, f.data(), nullptr, 0, HwPortId::unknown(), vlan), -1);
  EXPECT_EQ(prependDecapHdrForTxRaw(inner, 0, inner - 7, nullptr, 0, HwPortId(5), vlan), -1);
  EXPECT_EQ(prependDecapHdrForTxRaw(inner, 0, inner - 8, nullptr, 0, HwPortId(5), vlan), 8);
}

}  // namespace
}  // namespace Vxlan
