// ARP reply replication on the virtual ARP machine of the unit tests: which VRFs get a
// machine and when, the filter's expression and its installation on the ARP PAM of
// "vlan10" (the programs the kernel is given, in order), and the receive checks with
// what each reply becomes.
#include <gtest/gtest.h>

#include <linux/filter.h>

#include "frames/ArpPkt.h"
#include "platform/os/TimeSource.h"
#include "tests/support/Throws.h"
#include "tests/varp/VarpFixture.h"
#include "varp/ArpReplyReplicationSm.h"

namespace Vxlan {
namespace {

using Intf = ArpReplyReplicationVrfSm::LumIpIntfStatus;
using Mlag::MlagState;

// The kernel of VarpKernel that also keeps the length of every filter attached.
struct FilterKernel : TestSupport::VarpKernel {
  std::vector<unsigned> attached;
  int setsockopt(int, int level, int name, const void* value, socklen_t) override {
    if (level == SOL_SOCKET && name == SO_ATTACH_FILTER) {
      attached.push_back(static_cast<const sock_fprog*>(value)->len);
    }
    return 0;
  }
};

TEST(ArpReplyBpfExpressionTest, TwoFormsAndNoCaptureWithoutAddressOrMac) {
  const Wire::IpAddr vip = ip("10.1.1.254");
  EXPECT_EQ(arpReplyBpfExpression(vip, kVarpMac, MlagState::mlagStateInactive, kBridgeMac),
            "arp and ether dst host 00:00:5e:00:01:01");
  EXPECT_EQ(arpReplyBpfExpression(vip, kVarpMac, MlagState::mlagStatePrimary, kBridgeMac),
            "arp and ( ether dst host 00:00:5e:00:01:01 or ether dst host 02:00:00:00:00:b0)");
  EXPECT_EQ(arpReplyBpfExpression(Wire::IpAddr(), kVarpMac, MlagState::mlagStateDisabled, {}), "");
  EXPECT_EQ(arpReplyBpfExpression(vip, Wire::EthAddr(), MlagState::mlagStateDisabled, {}), "");
}

class ReplicationTest : public VarpFixture {
 protected:
  ReplicationTest() {
    filter_.devices = {{"txraw", 7}, {"vlan10", 31}};
    intfs_ = ipStatus_->vrfIpIntfStatusIs(Ip::Status::defaultVrf());
    vlan10_ = intfs_->ipIntfStatusIs(Wire::IntfId("Vlan10"));
    vlan10_->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask::fromString("10.1.1.254/24"));
    rep_ = arpReplyReplicationSmFactory(ipStatus_, varpMac_, sm_.ptr(), counters_, vrfs_, mlag_,
                                        clock_);
  }
  ~ReplicationTest() override { rep_->doPrepareToDie(); }
  Lum::Ptr<Intf> vlan10() const {
    const auto vrf = rep_->arpReplyReplicationVrfSm(Ip::Status::defaultVrf());
    return vrf ? vrf->ipIntfStatus(Wire::IntfId("Vlan10")) : nullptr;
  }
  void at(double t) {
    time_.nowIs(t);
    loop_.runOnce(0);
  }

  FilterKernel filter_;
  Lum::ScopedSysCalls filterGuard_{filter_};
  Lum::ManualTimeSource time_{100.0};
  Lum::ScopedTimeSource timeGuard_{time_};
  Lum::EventLoop loop_;
  Lum::Ptr<Lum::Clock> clock_{new Lum::Clock("clock", loop_)};
  Lum::Ptr<Ip::AllVrfStatusLocal> vrfs_{new Ip::AllVrfStatusLocal("vrfs")};
  Lum::Ptr<Ip::VrfIpIntfStatus> intfs_;
  Lum::Ptr<Ip::IpIntfStatus> vlan10_;
  Lum::Ptr<ArpReplyReplicationSm> rep_;
};

// A VRF has its machine while it is active and the IP agent lists its interfaces,
// whichever comes first; "default" needs only the list.
TEST_F(ReplicationTest, VrfMachinesFollowStateAndInterfacesInEitherOrder) {
  EXPECT_TRUE(rep_->arpReplyReplicationVrfSm(Ip::Status::defaultVrf()));
  const L3::VrfName red("red"), blue("blue");
  ipStatus_->vrfIpIntfStatusIs(red);  // interfaces first
  EXPECT_FALSE(rep_->arpReplyReplicationVrfSm(red));
  Lum::Ptr<Ip::VrfStatusLocal> redVrf = vrfs_->vrfIs(red);
  redVrf->networkNamespaceIs(Wire::NamespaceName("ns-red"));
  EXPECT_FALSE(rep_->arpReplyReplicationVrfSm(red)) << "not active yet";
  redVrf->stateIs(Ip::VrfState::vrfActive);
  ASSERT_TRUE(rep_->arpReplyReplicationVrfSm(red));
  EXPECT_EQ(rep_->arpReplyReplicationVrfSm(red)->netNs(), Wire::NamespaceName("ns-red"));
  Lum::Ptr<Ip::VrfStatusLocal> blueVrf = vrfs_->vrfIs(blue);  // state first
  blueVrf->networkNamespaceIs(Wire::NamespaceName("ns-blue"));
  blueVrf->stateIs(Ip::VrfState::vrfActive);
  EXPECT_FALSE(rep_->arpReplyReplicationVrfSm(blue));
  ipStatus_->vrfIpIntfStatusIs(blue);
  EXPECT_TRUE(rep_->arpReplyReplicationVrfSm(blue));
  redVrf->stateIs(Ip::VrfState::vrfInactive);
  EXPECT_FALSE(rep_->arpReplyReplicationVrfSm(red));
  ipStatus_->vrfIpIntfStatusDel(blue);
  EXPECT_FALSE(rep_->arpReplyReplicationVrfSm(blue));
  // The machine's parameters are fixed: another namespace is refused, as is no VRF.
  using TestSupport::thrownText;
  EXPECT_EQ(thrownText<Lum::RangeException>([&] {
              rep_->arpReplyReplicationVrfSmIs(Ip::Status::defaultVrf(),
                                               Wire::NamespaceName("other"), intfs_, varpMac_,
                                               sm_.ptr(), counters_, mlag_, clock_);
            }),
            "Reinstantiating the pointer interface where constructor parameter attribute _netNs "
            "has a different value of other");
  EXPECT_EQ(thrownText<Lum::RangeException>([&] { rep_->vrfStatusSmIs(nullptr); }),
            "null _vrfStatusSm parameter to mutator for Vxlan::ArpReplyReplicationSm::vrfStatusSm "
            "not allowed\"");
  EXPECT_EQ(thrownText<Lum::RangeException>([&] {
              rep_->arpReplyReplicationVrfSm(Ip::Status::defaultVrf())->ipIntfStatusIs(nullptr);
            }),
            "null _ipIntfStatus parameter to mutator for "
            "Vxlan::ArpReplyReplicationVrfSm::ipIntfStatus not allowed\"");
}

// The first install takes the compiled program at once; an unchanged expression does
// nothing; a change of MLAG state puts stop-all in first; the virtual address going
// takes the capture away.
TEST_F(ReplicationTest, FilterIsInstalledChangedAndTakenAway) {
  ASSERT_TRUE(vlan10() && vlan10()->bpfInstalled());
  EXPECT_EQ(vlan10()->bpfExpression(), "arp and ether dst host 00:00:5e:00:01:01");
  EXPECT_TRUE(vlan10()->arpReplyRxPam()->enabled());
  ASSERT_EQ(filter_.attached.size(), 1u);
  const unsigned shortForm = filter_.attached[0];
  varpMac_->varpVirtualMacIs(kVarpMac);
  mlag_->mlagStateIs(MlagState::mlagStateInactive);
  EXPECT_EQ(filter_.attached.size(), 1u) << "nothing changed";
  mlag_->mlagStateIs(MlagState::mlagStatePrimary);
  ASSERT_EQ(filter_.attached.size(), 3u);
  EXPECT_EQ(filter_.attached[1], 1u) << "stop-all";
  EXPECT_GT(filter_.attached[2], shortForm);
  vlan10_->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask());
  EXPECT_EQ(filter_.attached.back(), 1u);
  EXPECT_FALSE(vlan10()->arpReplyRxPam()->enabled() || vlan10()->bpfInstalled());
  // Without the virtual MAC there is nothing to capture either.
  vlan10_->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask::fromString("10.1.1.254/24"));
  EXPECT_TRUE(vlan10()->bpfInstalled());
  varpMac_->varpVirtualMacIs(Wire::EthAddr());
  EXPECT_TRUE(vlan10()->bpfExpression().empty());
}

// An expression that does not compile leaves the interface without capture until the
// next change; a device that is missing is tried again on the clock.
TEST_F(ReplicationTest, CompileFailureWaitsForAChangeAndAMissingDeviceIsRetried) {
  const Lum::Ptr<Intf> intf = vlan10();
  intf->bpfExpressionIs("arp and ether dst host not-a-mac");
  intf->addRemoveBpfFilter();
  EXPECT_EQ(filter_.attached.size(), 2u) << "stop-all only";
  mlag_->mlagStateIs(MlagState::mlagStateSecondary);
  EXPECT_EQ(filter_.attached.size(), 4u);
  EXPECT_TRUE(intf->bpfInstalled());

  vlan10_->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask());
  filter_.devices.erase("vlan10");
  vlan10_->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask::fromString("10.1.1.254/24"));
  EXPECT_FALSE(intf->bpfInstalled());
  EXPECT_FALSE(intf->bpfExpression().empty());
  EXPECT_EQ(intf->clockReactor()->timeMin(), 101.0);
  at(101.0);
  EXPECT_FALSE(intf->bpfInstalled()) << "still missing";
  filter_.devices["vlan10"] = 31;
  at(102.0);
  EXPECT_TRUE(intf->bpfInstalled());
  EXPECT_TRUE(intf->arpReplyRxPam()->enabled());
}

// A frame from "vlan10" (tags skipped, at most two), as the filter hands it over.
std::vector<uint8_t> frameOf(uint16_t op, Wire::EthAddr target, int tags) {
  Lum::Ptr<Wire::Pkt> arp =
      Arp::makeArpPkt(target, mac(0x07), op, mac(0x07), ip("10.1.1.7"), target, ip("10.1.1.254"));
  std::vector<uint8_t> f(arp->data(), arp->data() + arp->bytes());
  for (int i = 0; i < tags; ++i) f.insert(f.begin() + 12, {0x81, 0x00, 0x00, 0x0a});
  return f;
}

Lum::Ptr<Wire::Pkt> pktOf(const std::vector<uint8_t>& bytes) {
  Lum::Ptr<Wire::Pkt> pkt = Wire::globalPktManager().newPkt();
  pkt->newSharedHeadData(static_cast<uint32_t>(bytes.size()));
  std::copy(bytes.begin(), bytes.end(), pkt->data());
  return pkt;
}

// The checks in their order with their counters; a good reply goes to the MLAG peer
// and into the overlay, or into the ARP cache when it is for the bridge MAC; each VTI
// that is up gets it, one that is down nothing.
TEST_F(ReplicationTest, RepliesAreCheckedAndHandedToEachVtiThatIsUp) {
  const Lum::Ptr<Intf> intf = vlan10();
  const std::vector<uint8_t> reply = frameOf(2, kVarpMac, 0);
  struct Case {
    std::vector<uint8_t> frame;
    VarpCounterId counter;
  };
  std::vector<Case> bad = {
      {std::vector<uint8_t>(reply.begin(), reply.begin() + 13), VarpCounterId::rxTooShort},
      {std::vector<uint8_t>(reply.begin(), reply.begin() + 14), VarpCounterId::rxBadArpHeader},
      {frameOf(2, kVarpMac, 3), VarpCounterId::rxBadType},
      {frameOf(1, kVarpMac, 0), VarpCounterId::rxNotArpReply}};
  for (const Case& c : bad) intf->handleArpReplyPkt(pktOf(c.frame));
  for (const Case& c : bad) EXPECT_EQ(count(c.counter), 1u) << static_cast<int>(c.counter);
  EXPECT_TRUE(filter_.sent.empty());

  const auto toPeer = [this] {
    return std::count_if(filter_.sent.begin(), filter_.sent.end(),
                         [](const auto& s) { return s.dstPort == 51023; });
  };
  intf->handleArpReplyPkt(pktOf(frameOf(2, kVarpMac, 2)));
  EXPECT_EQ(toPeer(), 1);
  EXPECT_EQ(filter_.sent.size(), 4u) << "the peer, and the flood list's three VTEPs";
  intf->handleArpReplyPkt(pktOf(frameOf(2, kBridgeMac, 0)));
  EXPECT_EQ(toPeer(), 2);
  ASSERT_EQ(filter_.writes.size(), 1u);
  EXPECT_EQ(filter_.writes[0].mac, mac(0x07));
  EXPECT_EQ(count(VarpCounterId::replicatedReplyRx), 2u);

  Lum::Ptr<VtiStatus> second = vtis_->vtiStatusIs(Wire::IntfId("Vxlan2"));
  second->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  sm_->vtiStatusSm(Wire::IntfId("Vxlan2"))->arpSyncUdpPam()->txDstIpAddrIs(ip("10.0.0.50"));
  sm_->vtiStatusSm(Wire::IntfId("Vxlan2"))->arpSyncUdpPam()->modeIs(3);
  intf->handleArpReplyPkt(pktOf(reply));
  EXPECT_EQ(toPeer(), 4) << "told once per VTI";
  for (const char* id : {"Vxlan1", "Vxlan2"}) {
    vtis_->vtiStatus(Wire::IntfId(id))->operStatusIs(Interface::IntfOperStatus::intfOperDown);
  }
  const size_t before = filter_.sent.size();
  intf->handleArpReplyPkt(pktOf(reply));
  EXPECT_EQ(filter_.sent.size(), before);
}

}  // namespace
}  // namespace Vxlan
