// ARP on the local-to-remote path, and the packet trace against the same machine: the
// counter it names is the one the frame loop moves.
#include "tests/forwarding_testmode/L2RTestModeFixture.h"

namespace Vxlan {
namespace {

// A suite name of its own: one suite name cannot span two fixtures of two files.
using L2RArpAndTraceTest = L2RTestModeTest;

// The switch's own addresses are answered here, whichever interface carries them: a
// shared virtual router address flagged true, a primary or a secondary address; a
// request for one is dropped and counted. A
// flooded request from a host behind the virtual VTEP leaves with the bridge MAC in
// both places; one from any other host is left as it is. Each is counted.
TEST_F(L2RArpAndTraceTest, ArpRequestsForOwnAddressesStayAndVirtualHostsGetTheBridgeMac) {
  Local2RemoteForwarderSm::Inputs in = owner_->inputs();
  in.fhrpStatus = new Routing::Fhrp::StatusV4("fhrp");
  const auto vlan10 = in.fhrpStatus->intfStatusIs(Wire::IntfId("Vlan10"));
  const auto vr = vlan10->vrStatusIs(Routing::Fhrp::kSharedVirtualRouterVrId);
  vr->ipAddrsIs(ip("10.0.0.254"), true);
  vr->ipAddrsIs(ip("10.0.0.253"), false);
  vlan10->vrStatusIs(Routing::Fhrp::VrId(7))->ipAddrsIs(ip("10.0.0.252"), true);
  Lum::Ptr<Ip::Status> ipStatus = new Ip::Status("ip");
  ipStatus->ipIntfStatusIs(Wire::IntfId("Vlan20"))
      ->activeAddrWithMaskIs(Wire::IpAddrWithMask(ip("10.0.20.1"), 24));
  ipStatus->ipIntfStatusIs(Wire::IntfId("Vlan30"))
      ->activeSecondaryWithMaskIs(Wire::IpAddrWithMask(ip("10.0.30.5"), 24));
  in.ipStatusDir = ipStatus;
  const auto own = Wire::EthAddr::fromString("02:00:00:00:0b:01");
  const auto peer = Wire::EthAddr::fromString("02:00:00:00:0b:02");
  Lum::Ptr<Bridging::Config> bridging = new Bridging::Config("bridging");
  bridging->bridgeMacAddrIs(own);
  in.bridgingConfig = bridging;
  Lum::Ptr<Mlag::Status> mlag = new Mlag::Status("mlag");
  in.mlagStatus = mlag;
  in.l2rVarpIpMacTableCol = new VarpIpMacTableCol("tables");
  const auto host = Wire::IpGenAddr(ip("10.0.0.7"));
  in.l2rVarpIpMacTableCol->varpIpMacTableIs(Lum::String8("t"))
      ->varpIpMacEntryIs(host, VarpIpMacEntry(host, VniOrNone(Vni(5010)), Wire::EthAddr()));
  rebuild(in);

  // Target, VLAN, flooded: the VLAN's virtual router address, another VLAN's, one
  // flagged false, another virtual router's, an SVI address of another VLAN, a
  // secondary one, and no address of this switch.
  const std::tuple<const char*, uint32_t, bool> asks[] = {
      {"10.0.0.254", 10, false}, {"10.0.0.254", 11, true}, {"10.0.0.253", 10, true},
      {"10.0.0.252", 10, true},  {"10.0.20.1", 10, false}, {"10.0.30.5", 10, false},
      {"10.0.20.2", 10, true}};
  for (const auto& [target, vlan, flooded] : asks) {
    EXPECT_EQ(sm_->arpHERRequired(vlan, ip(target).hostOrder()), flooded) << target << " " << vlan;
  }
  // Such a request read on "vxlan" stays here, counted.
  Bytes request = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0,
                   0x77, 0x08, 0x06, 0,    1,    0x08, 0, 6, 4, 0, 1};
  request.resize(request.size() + 16, 0);  // sender MAC and address, target MAC
  request.insert(request.end(), {10, 0, 20, 1});
  const Bytes local = TestSupport::localFrame(request, 0x0041, 0, 10);
  ASSERT_EQ(::send(net_.peer(sm_->localSockHi()), local.data(), local.size(), 0),
            ssize_t(local.size()));
  sm_->handleFileDescriptorHi();
  EXPECT_EQ(count(Id::l2rArpHerDrops), 1u);

  // An ARP request behind an 802.1Q tag, from `sender`; its two sender MACs after the check.
  const auto rewrite = [&](const char* sender) {
    Bytes f = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0, 0x77, 0x81, 0, 0, 10,
               0x08, 0x06, 0,    1,    0x08, 0,    6, 4, 0, 1, 2, 0,    0,    0, 0, 0x77};
    const auto s = ip(sender).bytes();
    f.insert(f.end(), s.begin(), s.end());
    f.resize(f.size() + 10, 0);
    sm_->checkAndRewriteNakedArpRequest(f.data(), 18, VniOrNone(Vni(5010)));
    return std::pair{Wire::EthAddr::fromBytes(f.data() + 6),
                     Wire::EthAddr::fromBytes(f.data() + 18 + 8)};
  };
  const auto untouched = Wire::EthAddr::fromString("02:00:00:00:00:77");
  EXPECT_EQ(rewrite("10.0.0.8"), std::pair(untouched, untouched));
  EXPECT_EQ(count(Id::l2rNakedArpUnmodified), 1u);
  mlag->mlagStateIs(Mlag::MlagState::mlagStatePrimary);
  mlag->peerMacAddrIs(peer);
  EXPECT_EQ(rewrite("10.0.0.7"), std::pair(own, own)) << "this switch is the primary";
  mlag->mlagStateIs(Mlag::MlagState::mlagStateSecondary);
  EXPECT_EQ(rewrite("10.0.0.7"), std::pair(peer, peer)) << "the peer is the primary";
  mlag->peerMacAddrIs(Wire::EthAddr());
  EXPECT_EQ(rewrite("10.0.0.7"), std::pair(own, own)) << "the primary's MAC is not known";
  EXPECT_EQ(count(Id::l2rNakedArpRewritten), 3u);
}

// Guards the packet trace against drifting from this direction's frame loop: for a sent
// frame and each drop one frame can meet, the trace names the counter that the loop
// moves for the same frame (beside the receive, forward and send counters; none for a
// foreign type), moves none and sends nothing itself, and the packets the loop sends
// are the trace's output, in order.
TEST_F(L2RArpAndTraceTest, PacketTraceNamesTheCounterTheLoopMoves) {
  Local2RemoteForwarderSm::Inputs in = owner_->inputs();
  Lum::Ptr<Ip::Status> ipStatus = new Ip::Status("ip");
  ipStatus->ipIntfStatusIs(Wire::IntfId("Vlan20"))
      ->activeAddrWithMaskIs(Wire::IpAddrWithMask(ip("10.0.20.1"), 24));
  in.ipStatusDir = ipStatus;
  rebuild(in);
  floodList("00:00:00:00:00:00", {"10.99.0.2", "10.99.0.3"});
  status_->vlanToVniMapIs(Bridging::VlanId(20), VniOrNone(Vni(5020)));  // and no list
  sm_->peerLinkIfIndexIs(9);
  Bytes user = {2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2, 0x08, 0x00};
  user.resize(60, 0x33);
  // An ARP request for 10.0.20.1: an address of this switch.
  Bytes arp = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0,
               2,    0x08, 0x06, 0,    1,    8,    0, 6, 4, 0, 1};
  arp.insert(arp.end(), {2, 0, 0, 0, 0, 2, 10, 0, 0, 7, 0, 0, 0, 0, 0, 0, 10, 0, 20, 1});
  const auto local = [](const Bytes& f, uint16_t type, uint32_t vlan, uint32_t port = 0) {
    return TestSupport::localFrame(f, type, 0, vlan, port);
  };
  const Bytes good = local(user, 0x0041, 10);
  const std::pair<Bytes, const char*> cases[] = {
      {good, "none"},
      {Bytes(good.begin(), good.begin() + 23), "badLength"},
      {local(user, 0x0800, 10), "badType"},
      {local(user, 0x0041, 4095), "badVlan"},
      {local(user, 0x0041, 30), "noVni"},
      {local(user, 0x0041, 10, 9), "peerLink"},
      {local(arp, 0x0041, 10), "arpNotRequired"},
      {local(user, 0x0041, 20), "noDestination"},
  };
  const std::set<Id> beside = {Id::l2rRxFrames,    Id::l2rRxBytes,  Id::l2rRxHiFrames,
                               Id::l2rRxHiBytes,   Id::l2rTxFrames, Id::l2rTxBytes,
                               Id::l2rForwardBytes};
  for (const auto& [frame, reason] : cases) {
    SCOPED_TRACE(reason);
    const std::vector<uint64_t> before = counts();
    const nlohmann::json a = PacketTrace::localToRemote(*sm_, frame);
    EXPECT_EQ(counts(), before);
    EXPECT_TRUE(net_.sent.empty());
    ASSERT_EQ(::send(net_.peer(sm_->localSockHi()), frame.data(), frame.size(), 0),
              ssize_t(frame.size()));
    sm_->handleFileDescriptorHi();
    std::vector<std::string> loop;
    const std::vector<uint64_t> after = counts();
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) {
      if (after[i] != before[i] && !beside.contains(Id(i))) loop.emplace_back(vxlanCounterName(i));
    }
    EXPECT_EQ(a["reason"], reason);
    EXPECT_EQ(loop, a["counter"].is_null() ? std::vector<std::string>{}
                                           : std::vector<std::string>{a["counter"]});
    ASSERT_EQ(net_.sent.size(), a["output"].size());
    for (size_t i = 0; i < net_.sent.size(); ++i) {
      EXPECT_EQ(a["output"][i]["to"], net_.sent[i].to);
      EXPECT_EQ(a["output"][i]["hex"], TestSupport::hexOf(net_.sent[i].bytes));
    }
    net_.sent.clear();
  }
}

}  // namespace
}  // namespace Vxlan
