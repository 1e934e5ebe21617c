#include "varp/LocalSend.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/support/VxlanFrameBuilder.h"
#include "tests/varp/VarpKernel.h"

namespace Vxlan {
namespace {

const Wire::IntfId kVti("Vxlan1");

class LocalSendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kernel_.devices = {{"txraw", 7}, {"fabric", 8}};
    pam_->enabledIs(true);
  }

  // The received packet as the virtual ARP side holds it: head at the outer header.
  Lum::Ptr<Wire::Pkt> received() {
    datagram_ = builder_.build();
    Lum::Ptr<Wire::Pkt> pkt = Wire::globalPktManager().newPkt();
    pkt->newSharedHeadData(static_cast<uint32_t>(datagram_.size()));
    std::memcpy(pkt->data(), datagram_.data(), datagram_.size());
    return pkt;
  }
  void send(bool txRaw) {
    caps_->vxlanTxRawSupportedIs(txRaw);
    Lum::Ptr<Wire::Pkt> pkt = received();
    decapAndSendLocal({kVti, hw_.ptr(), caps_.ptr(), pam_.ptr(), counters_.ptr()}, pkt,
                      pkt->data() + builder_.vxlanOffset(), Bridging::VlanIdOrNone(20));
  }
  uint32_t count(VarpCounterId id) const { return counters_->varpCounter(id).count; }

  TestSupport::VarpKernel kernel_;
  Lum::ScopedSysCalls guard_{kernel_};
  TestSupport::VxlanFrameBuilder builder_;
  std::vector<uint8_t> datagram_;
  Lum::Ptr<VxlanHwStatusDir> hw_{new VxlanHwStatusDir("hw")};
  Lum::Ptr<Bridging::HwCapabilities> caps_{new Bridging::HwCapabilities("caps")};
  Lum::Ptr<Wire::RawTxPam> pam_{new Wire::RawTxPam(Lum::Name("RawTxPam"))};
  Lum::Ptr<VxlanAgentCounter> counters_{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
};

// "txraw": the inner MACs, the 8-byte header with the VLAN and the CPU port, then the
// inner frame from its type on; "fabric": the received packet byte for byte, whatever
// the port.
TEST_F(LocalSendTest, BothFormsLeaveOnTheirDevice) {
  hw_->vxlanHwStatusIs(kVti)->cpuSourcePortIdIs(HwPortId(0x0102));
  send(true);
  ASSERT_EQ(kernel_.sent.size(), 1u);
  const std::vector<uint8_t>& inner = builder_.inner;
  std::vector<uint8_t> want(inner.begin(), inner.begin() + 12);
  want.insert(want.end(), {0x00, 0x08, 0x00, 20, 0x01, 0x02, 0x00, 0x00});
  want.insert(want.end(), inner.begin() + 12, inner.end());
  EXPECT_EQ(kernel_.sent[0].ifindex, 7);
  EXPECT_EQ(kernel_.sent[0].bytes, want);

  hw_->vxlanHwStatusDel(kVti);
  send(false);
  ASSERT_EQ(kernel_.sent.size(), 2u);
  EXPECT_EQ(kernel_.sent[1].ifindex, 8);
  EXPECT_EQ(kernel_.sent[1].bytes, datagram_);
  EXPECT_EQ(count(VarpCounterId::decapTxRawHdr), 1u);
  EXPECT_EQ(count(VarpCounterId::decapFabricHdr), 1u);
  EXPECT_EQ(count(VarpCounterId::decapTxPkts), 2u);
}

// Nothing leaves when the "txraw" form has no port, when the device has gone or when
// the kernel refuses the send; each is counted where operators look for it.
TEST_F(LocalSendTest, FailuresAreCountedAndNothingLeaves) {
  send(true);
  EXPECT_EQ(count(VarpCounterId::decapTxRawHdr), 1u);
  EXPECT_EQ(count(VarpCounterId::decapPrependErrors), 1u);

  kernel_.devices.erase("fabric");
  send(false);
  kernel_.devices["fabric"] = 8;
  kernel_.sendErrno = ENOBUFS;
  send(false);
  EXPECT_TRUE(kernel_.sent.empty());
  EXPECT_EQ(count(VarpCounterId::decapTxErrors), 2u);
  EXPECT_EQ(count(VarpCounterId::decapTxPkts), 0u);
  EXPECT_EQ(pam_->txErrors(), 1u);
}

}  // namespace
}  // namespace Vxlan
