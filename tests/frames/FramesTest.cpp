#include <gtest/gtest.h>

#include <vector>

#include "frames/Decap.h"
#include "frames/VxlanHdr.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

using TestSupport::VxlanFrameBuilder;

// Guards the VXLAN flag rule: only bit 0x08 matters; reserved bits are ignored. (The
// VNI's byte order: the outer header of the local-to-remote frame path's test.)
TEST(VxlanHdrTest, OnlyTheVniFlagCounts) {
  Wire::VxlanHdr h{};
  for (auto [flags, valid] :
       {std::pair<uint8_t, bool>{0x08, true}, {0xff, true}, {0x00, false}, {0xf7, false}}) {
    h.flags = flags;
    EXPECT_EQ(h.flagsVniValid(), valid) << int(flags);
  }
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
