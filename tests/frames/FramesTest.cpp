#include <gtest/gtest.h>

#include <vector>

#include "frames/Decap.h"
#include "frames/VxlanDatagram.h"
#include "frames/VxlanOuterHdr.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

using TestSupport::VxlanFrameBuilder;

// Guards the offsets: IP options and an outer tag both move the VXLAN header, and
// the addresses read in network order compare with IpAddr words.
TEST(VxlanDatagramTest, OffsetsFollowTagAndIpOptions) {
  for (bool tagged : {false, true}) {
    for (uint8_t words : {5, 7}) {
      VxlanFrameBuilder b;
      b.tagged = tagged;
      b.ipHdrWords = words;
      std::vector<uint8_t> f = b.build();
      uint32_t tag = VxlanDatagram::tagLen(f.data());
      EXPECT_EQ(tag, tagged ? 4u : 0u);
      EXPECT_EQ(VxlanDatagram::ethType(f.data(), tag), 0x0800);
      const Wire::Ipv4Hdr* ip = VxlanDatagram::ip(f.data(), tag);
      EXPECT_EQ(ip->headerLen(), words * 4u);
      EXPECT_EQ(ip->saddr(), Wire::IpAddr::fromHostOrder(0x0a000002));
      EXPECT_EQ(ip->daddr(), Wire::IpAddr::fromString("10.0.0.1"));
      EXPECT_EQ(VxlanDatagram::udp(f.data(), tag, ip->headerLen())->dstPort.value(), 4789);
      uint32_t off = VxlanDatagram::vxlanOffset(tag, ip->headerLen());
      EXPECT_EQ(off, b.vxlanOffset());
      EXPECT_EQ(Wire::hdrAt<Wire::VxlanHdr>(f.data() + off)->vniValue(), 5000u);
    }
  }
}

// Guards the VXLAN flag rule: only bit 0x08 matters; reserved bytes are ignored.
TEST(VxlanHdrTest, OnlyTheVniFlagCounts) {
  Wire::VxlanHdr h{};
  for (uint8_t flags : {0x08, 0xff}) {
    h.flags = flags;
    EXPECT_TRUE(h.flagsVniValid()) << int(flags);
  }
  for (uint8_t flags : {0x00, 0xf7}) {
    h.flags = flags;
    EXPECT_FALSE(h.flagsVniValid()) << int(flags);
  }
  h.flags = 0xf7;
  h.flagsVniValidIs(true);
  EXPECT_EQ(h.flags, 0xff);
  h.reserved1[0] = 0xaa;
  h.vniIs(Vni(0xabcdef));
  EXPECT_EQ(h.vniBytes[0], 0xab);
  EXPECT_EQ(h.vniBytes[2], 0xef);
  EXPECT_EQ(h.vni(), Vni(0xabcdef));
}

// Guards the "txraw" form: tag bytes 0x00 0x08, VLAN and glort in network order, the
// frame 8 bytes longer than the inner frame with the inner bytes from 12 on intact.
TEST(DecapTest, InPlaceTxRawForm) {
  VxlanFrameBuilder b;
  b.tagged = true;
  std::vector<uint8_t> f = b.build();
  const size_t off = b.vxlanOffset();
  decapInPlaceForTxRaw(f.data() + off, Bridging::VlanId(10), HwPortId(0x1234));
  const uint8_t* out = f.data() + off;
  const size_t outLen = f.size() - off;
  EXPECT_EQ(std::vector<uint8_t>(out, out + outLen),
            TestSupport::txRawFrame(b.inner, Bridging::VlanId(10), HwPortId(0x1234)));
}

// Guards the prepend checks and their order: an unknown port fails first, then too
// little room; success gives the same bytes as the in-place form.
TEST(DecapTest, PrependForTxRawChecks) {
  VxlanFrameBuilder b;
  std::vector<uint8_t> f = b.build();
  uint8_t* inner = f.data() + b.vxlanOffset() + 8;
  const Bridging::VlanIdOrNone vlan(20);
  EXPECT_EQ(prependDecapHdrForTxRaw(inner, 0, f.data(), nullptr, 0, HwPortId::unknown(), vlan), -1);
  EXPECT_EQ(prependDecapHdrForTxRaw(inner, 0, inner - 7, nullptr, 0, HwPortId(5), vlan), -1);
  std::vector<uint8_t> expect = f;
  decapInPlaceForTxRaw(expect.data() + b.vxlanOffset(), Bridging::VlanId(20), HwPortId(5));
  EXPECT_EQ(prependDecapHdrForTxRaw(inner, 0, inner - 8, nullptr, 0, HwPortId(5), vlan), 8);
  EXPECT_EQ(f, expect);
}

// Guards the "fabric" form: the received packet goes out byte for byte.
TEST(DecapTest, PrependForFabricKeepsThePacket) {
  VxlanFrameBuilder b;
  std::vector<uint8_t> f = b.build();
  const std::vector<uint8_t> received = f;
  uint8_t* inner = f.data() + b.vxlanOffset() + 8;
  const uint32_t hdrLen = static_cast<uint32_t>(inner - f.data());
  EXPECT_EQ(prependDecapHdrForFabric(inner, 0, f.data(), f.data(), hdrLen, HwPortId::unknown(),
                                     Bridging::VlanIdOrNone(3)),
            static_cast<int32_t>(hdrLen));
  EXPECT_EQ(f, received);
  EXPECT_EQ(prependDecapHdrForFabric(inner, 0, f.data() + 1, f.data(), hdrLen, HwPortId::unknown(),
                                     Bridging::VlanIdOrNone(3)),
            -1);
}

}  // namespace
}  // namespace Vxlan
