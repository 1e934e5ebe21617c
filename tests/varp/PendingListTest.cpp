#include <gtest/gtest.h>

#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/os/TimeSource.h"
#include "tests/varp/VarpSetup.h"

namespace Vxlan {
namespace {

const Wire::IpAddr kHost = Wire::IpAddr::fromHostOrder(0x0a010105);
const Wire::IpAddr kGateway = Wire::IpAddr::fromHostOrder(0x0a010101);
const VniIpPairV2 kKey{Vni(100), Wire::IpGenAddr(kGateway)};

// The machine with a clock on the test's own time, the controller's table that knows
// host 10.1.1.5 in VNI 100 under MAC ...:0a, and a request in VXLAN to rewrite.
class PendingListTest : public ::testing::Test {
 protected:
  PendingListTest() {
    varpMacStatus_->varpVirtualMacIs(kVarpMac);
    tables_->varpIpMacTableIs("t")->varpIpMacEntryIs(
        VarpIpMacEntry(Wire::IpGenAddr(kHost), VniOrNone(Vni(100)), mac(0x0a)));
    VirtualArpSm::Inputs in;
    in.fhrpVarpMacStatus = varpMacStatus_;
    in.vxAgentCounter = counters_;
    in.clock = clock_;
    in.l2rVarpIpMacTableCol = tables_;
    sm_ = new VirtualArpSm(in);
  }
  ~PendingListTest() override { sm_->doPrepareToDie(); }

  // VXLAN header, inner Ethernet, ARP request from `sender` at 10.1.1.5 for 10.1.1.1.
  std::vector<uint8_t> request(Wire::EthAddr sender, uint32_t vni = 100) {
    std::vector<uint8_t> f = {0x08,         0, 0, 0, uint8_t(vni >> 16), uint8_t(vni >> 8),
                              uint8_t(vni), 0};
    const auto put = [&f](const auto& bytes) { f.insert(f.end(), bytes.begin(), bytes.end()); };
    put(std::vector<uint8_t>(6, 0xff));
    put(sender.bytes());
    put(std::vector<uint8_t>{0x08, 0x06, 0, 1, 0x08, 0, 6, 4, 0, 1});
    put(sender.bytes());
    put(std::vector<uint8_t>{10, 1, 1, 5, 0, 0, 0, 0, 0, 0, 10, 1, 1, 1});
    return f;
  }
  // Rewrites a request in place; the frame's inner source and ARP sender MACs after it.
  std::pair<Wire::EthAddr, Wire::EthAddr> rewrite(Wire::EthAddr sender) {
    std::vector<uint8_t> f = request(sender);
    sm_->checkAndRewriteVxlanArpRequest(nullptr, f.data());
    return {Wire::EthAddr::fromBytes(f.data() + 14), Wire::EthAddr::fromBytes(f.data() + 30)};
  }
  // Moves time to `t` and lets the loop run the reviews due by then.
  void at(double t) {
    time_.nowIs(t);
    loop_.runOnce(0);
  }
  double timeLeft() const { return sm_->arpRewritePendingList(kKey)->timeLeft(); }
  uint32_t count(VarpCounterId id) const { return counters_->varpCounter(id).count; }

  Lum::ManualTimeSource time_{100.0};
  Lum::ScopedTimeSource scope_{time_};
  Lum::EventLoop loop_;
  Lum::Ptr<Lum::Clock> clock_{new Lum::Clock("clock", loop_)};
  Lum::Ptr<Routing::Fhrp::VirtualRouterMacStatus> varpMacStatus_{
      new Routing::Fhrp::VirtualRouterMacStatus("varpMac")};
  Lum::Ptr<VarpIpMacTableCol> tables_{new VarpIpMacTableCol("tables")};
  Lum::Ptr<VxlanAgentCounter> counters_{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<VirtualArpSm> sm_;
};

// Only a sender the tables know under another MAC is rewritten and remembered; one
// under its own MAC or not in the tables is left as it came, list or no list.
TEST_F(PendingListTest, OnlyASenderKnownUnderAnotherMacIsRewritten) {
  EXPECT_EQ(rewrite(mac(0x0b)), std::make_pair(kVarpMac, kVarpMac));
  EXPECT_EQ(count(VarpCounterId::requestRewritten), 1u);
  ASSERT_TRUE(sm_->arpRewritePendingList(kKey));
  EXPECT_TRUE(sm_->arpRewritePendingList(kKey)->reqMacAddr(mac(0x0b)));
  EXPECT_EQ(sm_->clockReactor()->timeMin(), 101.0);

  EXPECT_EQ(rewrite(mac(0x0a)), std::make_pair(mac(0x0a), mac(0x0a)));
  EXPECT_EQ(count(VarpCounterId::arpDiscarded), 1u);
  tables_->varpIpMacTableDelAll();
  EXPECT_EQ(rewrite(mac(0x0c)), std::make_pair(mac(0x0c), mac(0x0c)));
  EXPECT_EQ(count(VarpCounterId::requestNoEntry), 1u);
  EXPECT_EQ(sm_->arpRewritePendingList(kKey)->reqMacAddrSize(), 1u);
}

// A list of 5 s reviewed every second survives four reviews and goes at the fifth;
// a later request adds its MAC (once) without extending the list; the review stops
// when the last list has gone.
TEST_F(PendingListTest, FiveReviewsForAFiveSecondList) {
  rewrite(mac(0x0b));
  at(101.0);
  EXPECT_EQ(timeLeft(), 4.0);
  rewrite(mac(0x0c));
  rewrite(mac(0x0c));
  EXPECT_EQ(sm_->arpRewritePendingList(kKey)->reqMacAddrSize(), 2u);
  EXPECT_EQ(timeLeft(), 4.0);
  for (double t : {102.0, 103.0, 104.0}) at(t);
  EXPECT_EQ(timeLeft(), 1.0);
  at(105.0);
  EXPECT_FALSE(sm_->arpRewritePendingList(kKey));
  EXPECT_EQ(count(VarpCounterId::pendingListAged), 1u);
  EXPECT_EQ(sm_->lastProcessTime(), 0.0);
  EXPECT_EQ(sm_->clockReactor()->timeMin(), Lum::Clock::kNever);
}

// Whole seconds since the last review: one that fires 0.5 ms early still counts its
// second, one that runs late subtracts every second it missed, and a list with no
// time left never ages while the review goes on.
TEST_F(PendingListTest, ReviewsCountTheSecondsThatPassed) {
  rewrite(mac(0x0b));
  at(101.0);
  time_.nowIs(101.9995);  // as a timer that fires a little early would
  sm_->runArpRewriteAging();
  EXPECT_EQ(timeLeft(), 3.0);
  at(104.5);
  EXPECT_EQ(timeLeft(), 1.0) << "a late review subtracts the seconds it missed";
  sm_->arpRewritePendingList(kKey)->timeLeftIs(0.0);
  at(106.0);
  at(107.0);
  EXPECT_TRUE(sm_->arpRewritePendingList(kKey));
  EXPECT_EQ(sm_->clockReactor()->timeMin(), 108.0);
}

}  // namespace
}  // namespace Vxlan
