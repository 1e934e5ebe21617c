// The local-to-remote machine of one VTI in test mode, on a system-call fake: packet,
// raw and Unix sockets are socket pairs, socket options and binds are recorded
// (options and requests fail on demand), and every sendto is captured. Frames are
// written into the peers of the local sockets; time stands still unless a test makes
// it move.
#include "tests/forwarding_testmode/L2RTestModeFixture.h"

namespace Vxlan {
namespace {

// Guards the options whose loss goes unnoticed until traffic suffers: the type filter
// before the bind (or frames of every type are read in between), the two priorities,
// and multicast from the VTEP's address with a flood group but not in controller client
// mode. A failing step
// throws with its name; a refused interface flag closes both remote sockets instead.
TEST_F(L2RTestModeTest, SocketOptionsAndTheirFailures) {
  ASSERT_TRUE(L2R_TEST);
  for (int s : {sm_->localSockHi(), sm_->localSockLo()}) {
    std::vector<int> names;  // in the order set, -1 for the bind
    for (const auto& x : net_.options) {
      if (x.fd == s) names.push_back(x.name);
    }
    ASSERT_GE(names.size(), 2u);
    EXPECT_EQ(names.back(), -1) << "the bind comes after the type filter";
    EXPECT_EQ(names[names.size() - 2], SO_ATTACH_FILTER);
    EXPECT_EQ(net_.boundIndex[s], 7);
  }
  EXPECT_EQ(optionValue(sm_->remoteSockHi(), SOL_SOCKET, SO_PRIORITY), 0);
  EXPECT_EQ(optionValue(sm_->remoteSockLo(), SOL_SOCKET, SO_PRIORITY), 2);
  bum().bumMcastGrpIs(Bridging::VlanId(10), ip("239.1.1.1"));
  EXPECT_EQ(optionValue(sm_->remoteSockLo(), IPPROTO_IP, IP_MULTICAST_LOOP), 1);
  EXPECT_EQ(optionValue(sm_->remoteSockLo(), IPPROTO_IP, IP_MULTICAST_IF),
            static_cast<int>(ip("10.99.0.1").value()))
      << "the group is not sent to from the VTEP's address";
  net_.options.clear();  // descriptor numbers come back with the new sockets
  status_->controllerClientModeIs(true);
  EXPECT_EQ(optionValue(sm_->remoteSockLo(), IPPROTO_IP, IP_MULTICAST_IF), -999);

  net_.failOption = {SOL_SOCKET, SO_SNDBUFFORCE};
  const std::string text =
      TestSupport::thrownText<Lum::ErrnoException>([&] { sm_->createRemoteSocket(); });
  EXPECT_NE(text.find("SO_SNDBUF"), std::string::npos) << text;
  net_.failOption = {-2, -2};
  status_->controllerClientModeIs(false);
  net_.failRequest = SIOCSIFFLAGS;
  sm_->createRemoteSocket();
  EXPECT_EQ(sm_->remoteSockHi(), -1);
  EXPECT_EQ(sm_->remoteSockLo(), -1);

  // No "vxlan": the local sockets stay open, bound deaf with index 0.
  net_.devices.clear();
  sm_->createLocalSocket();
  EXPECT_EQ(net_.boundIndex[sm_->localSockHi()], 0);
}

TEST_F(L2RTestModeTest, DestinationsFollowListsLearnedHostsAndGroups) {
  const Lum::Ptr<LearnedHost> host = hw_->fdbStatus()->learnedHostIs(
      MacVlanPair(Wire::EthAddr::fromString("02:00:00:00:00:09"), Bridging::VlanId(10)));
  host->remoteVtepAddrIs(ip("10.99.0.9"));
  floodList("00:00:00:00:00:00", {"10.99.0.2", "10.99.0.3"});
  floodList("01:00:5e:00:00:01", {});  // exists but empty: the search goes on
  floodList("01:00:00:00:00:00", {"10.99.0.4"});
  floodList("01:00:5e:00:00:02", {"10.99.0.5"});
  struct Case {
    const char* dst;
    std::vector<std::string> to;
  } headEnd[] = {{"ff:ff:ff:ff:ff:ff", {"10.99.0.4"}},
                 {"01:00:5e:00:00:02", {"10.99.0.5"}},
                 {"01:00:5e:00:00:01", {"10.99.0.4"}},
                 {"02:00:00:00:00:09", {"10.99.0.9"}},
                 {"02:00:00:00:00:0a", {"10.99.0.2", "10.99.0.3"}}};
  for (const Case& c : headEnd) {
    net_.sent.clear();
    forward(c.dst);
    EXPECT_EQ(vtepsReached(), c.to) << c.dst;
  }

  bum().bumReplicationModeIs(BumStatus::kMulticastReplication);
  net_.sent.clear();
  const uint64_t none = count(Id::l2rNoDestination);
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_TRUE(vtepsReached().empty()) << "no group for the VLAN: the lists do not count";
  EXPECT_EQ(count(Id::l2rNoDestination), none + 1);
  bum().bumMcastGrpIs(Bridging::VlanId(10), ip("239.1.1.1"));
  forward("ff:ff:ff:ff:ff:ff");
  forward("02:00:00:00:00:09");
  forward("02:00:00:00:00:0a");
  EXPECT_EQ(vtepsReached(), (std::vector<std::string>{"239.1.1.1", "10.99.0.9", "239.1.1.1"}));
}

TEST_F(L2RTestModeTest, SendToAnyTakesTheFirstVtepWhoseBfdIsUp) {
  status_->vArpVtepAddrIs(ip("10.99.0.100"));
  floodList("00:00:00:00:00:00", {"10.99.0.1", "10.99.0.100", "10.99.0.3", "10.99.0.4"}, 1);
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_TRUE(vtepsReached().empty()) << "no BFD status for the VTI";

  const Lum::Ptr<VxlanController::VtepStatusV2> vti = vteps_->vtepStatusV2Is(Lum::Name("Vxlan1"));
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_EQ(vtepsReached(), std::vector<std::string>{"10.99.0.3"}) << "no BFD: any, own skipped";
  EXPECT_EQ(count(Id::l2rNoBfdConfigured), 1u);

  vti->bfdPeerStatusIs(ip("10.99.0.3"));  // a record at its defaults counts as none
  vti->bfdPeerStatusIs(ip("10.99.0.4"))->stateIs(VxlanController::BfdPeerStatusV2::kStateUp);
  net_.sent.clear();
  forward("ff:ff:ff:ff:ff:ff");
  vti->bfdPeerStatus(ip("10.99.0.4"))->stateIs(1);
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_EQ(vtepsReached(), std::vector<std::string>{"10.99.0.4"});
  EXPECT_EQ(count(Id::l2rNoBfdVtepUp), 1u);
}

TEST_F(L2RTestModeTest, OwnAddressesAreSkippedAndFailedSendsCostOneDestination) {
  status_->vArpVtepAddrIs(ip("10.99.0.100"));
  floodList("00:00:00:00:00:00", {"10.99.0.1", "10.99.0.2", "10.99.0.100", "10.99.0.3"});
  net_.sendError[sm_->remoteSockHi()] = ENOBUFS;
  forward("ff:ff:ff:ff:ff:ff");
  net_.sendError = {{sm_->remoteSockLo(), ENOBUFS}};
  forward("ff:ff:ff:ff:ff:ff", false);
  net_.sendError = {{sm_->remoteSockLo(), EPERM}};
  forward("ff:ff:ff:ff:ff:ff", false);
  EXPECT_EQ(count(Id::l2rSendNoBufHi), 2u);
  EXPECT_EQ(count(Id::l2rSendNoBufLo), 2u);
  EXPECT_EQ(count(Id::l2rSendErrors), 2u);
  EXPECT_EQ(vtepsReached().size(), 6u) << "each failure tries the next, own ones skipped";
  net_.sendError.clear();
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_EQ(count(Id::l2rTxBytes), 2u * (40 + 14 + 36));
}

TEST_F(L2RTestModeTest, ArpFlaggedFramesReachTheResolverOncePerDestination) {
  floodList("00:00:00:00:00:00", {"10.99.0.2", "10.99.0.3"});
  net_.sendError[sm_->arpSock()] = ECONNREFUSED;
  forward("ff:ff:ff:ff:ff:ff", true, 0x8000);
  std::vector<FakeNet::Sent> msgs;
  for (const auto& s : net_.sent) {
    if (s.fd == sm_->arpSock()) msgs.push_back(s);
  }
  ASSERT_EQ(msgs.size(), 2u);
  EXPECT_EQ(count(Id::l2rArpResolverSendErrors), 2u);
  EXPECT_EQ(count(Id::l2rTxFrames), 2u) << "a resolver failure costs only its message";
  for (size_t i = 0; i < msgs.size(); ++i) {
    const Bytes& m = msgs[i].bytes;
    EXPECT_EQ(msgs[i].to, "./VxlanL2RSM-arp-" + std::to_string(::getpid()));
    EXPECT_EQ(msgs[i].toLen, 110u);
    ASSERT_EQ(m.size(), 146u);
    EXPECT_EQ(Bytes(m.begin(), m.begin() + 32),
              (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x2b, 0,    10,
                     0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0,    0x08, 0x00}));
    // The packet from its IPv4 header on (90 bytes), with its own destination, then zero.
    EXPECT_EQ(m[32 + 19], i == 0 ? 2 : 3);
    EXPECT_EQ(Bytes(m.begin() + 32 + 90, m.end()), Bytes(146 - 32 - 90, 0));
  }
}

// Guards the lifecycle on the VTI's status (the "vxlan" device going and coming: the
// namespace test): down closes everything and a group then opens nothing; up opens;
// without a VTEP address the remote sockets close and frames wait unread.
TEST_F(L2RTestModeTest, LifecycleFollowsStatusAndGroup) {
  floodList("00:00:00:00:00:00", {"10.99.0.2"});
  status_->operStatusIs(Interface::IntfOperStatus::intfOperDown);
  EXPECT_EQ(sm_->localSockHi(), -1);
  EXPECT_EQ(sm_->arpInspectSock(), -1);
  bum().bumMcastGrpIs(Bridging::VlanId(10), ip("239.1.1.1"));
  EXPECT_EQ(sm_->remoteSockHi(), -1) << "a group while down opens nothing";
  status_->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  EXPECT_EQ(sm_->fileDescriptorHi()->descriptor(), sm_->localSockHi());
  bum().bumMcastGrpDel(Bridging::VlanId(10));
  EXPECT_TRUE(sm_->floodMcastGrp().isZero()) << "the last group gone through its VLAN";

  status_->localVtepAddrIs(Wire::IpAddr());
  EXPECT_EQ(sm_->remoteSockHi(), -1);
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_EQ(count(Id::l2rRxFrames), 0u) << "no remote socket: the frame waits unread";
  status_->localVtepAddrIs(ip("10.99.0.1"));
  sm_->handleFileDescriptorHi();
  EXPECT_EQ(vtepsReached(), std::vector<std::string>{"10.99.0.2"});

  // The VLAN's VNI goes and comes back between frames: each frame sees the map as it is.
  status_->vlanToVniMapDel(Bridging::VlanId(10));
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_EQ(count(Id::l2rNoVni), 1u);
  status_->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(Vni(5010)));
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_EQ(vtepsReached().size(), 2u);
}

// Batch mode keeps the per-frame semantics: the same packets to the same VTEPs, the
// same resolver messages and counters as one at a time; a failed send costs its
// destination only; the budget ends a batch between frames, the rest of the high
// burst follows in deferred runs before any low frame. (The one-frame loop shares the
// priority and budget bookkeeping; only its clock check is its own.)
TEST_F(L2RTestModeTest, BatchModeKeepsPerFrameSemantics) {
  floodList("00:00:00:00:00:00", {"10.99.0.2", "10.99.0.3"});
  const auto runMix = [&] {
    net_.sent.clear();
    const std::vector<uint64_t> before = counts();
    write("ff:ff:ff:ff:ff:ff");
    write("ff:ff:ff:ff:ff:ff", true, 0x8000);
    write("02:00:00:00:00:0c", true, 0, 0);  // 26 bytes: forwarded
    write("ff:ff:ff:ff:ff:ff", false);
    sm_->handleFileDescriptorHi();
    sm_->handleFileDescriptorLo();
    // In order per socket: packets to VTEPs, and resolver messages.
    std::vector<std::pair<std::string, Bytes>> packets;
    for (int resolver : {0, 1}) {
      for (const auto& x : net_.sent) {
        if ((x.fd == sm_->arpSock()) == resolver) packets.emplace_back(x.to, x.bytes);
      }
    }
    std::vector<uint64_t> moved = counts();
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) moved[i] -= before[i];
    return std::pair{packets, moved};
  };
  const auto single = runMix();
  sm_->batchModeIs(true);
  EXPECT_EQ(runMix(), single);
  EXPECT_EQ(single.first.size(), 10u) << "four frames to two VTEPs and two resolver messages";

  net_.sendError[sm_->remoteSockHi()] = ENOBUFS;
  forward("ff:ff:ff:ff:ff:ff");
  EXPECT_EQ(count(Id::l2rSendNoBufHi), 2u) << "each destination's failure on its own";
  net_.sendError.clear();

  // Each clock read 6 ms later: the 10 ms budget of test mode ends a run after its
  // second forwarded frame.
  struct Stepping : Lum::TimeSource {
    mutable double t = 500.0;
    double now() const override { return t += 0.006; }
  } stepping;
  Lum::ScopedTimeSource steps(stepping);
  net_.sent.clear();
  for (int i = 0; i < 5; ++i) write("ff:ff:ff:ff:ff:ff");
  write("ff:ff:ff:ff:ff:ff", false);
  sm_->handleFileDescriptorHi();
  EXPECT_EQ(vtepsReached().size(), 4u) << "the budget ends the batch after two frames";
  // The loop runs the deferred high runs, and the low socket's readable event (its
  // descriptor is watched) once the high socket is drained.
  for (int pass = 0; pass < 5; ++pass) Lum::eventLoop().runOnce(0);
  std::vector<int> socketOrder;
  for (const auto& x : net_.sent) socketOrder.push_back(x.fd);
  std::vector<int> expected(10, sm_->remoteSockHi());
  expected.insert(expected.end(), 2, sm_->remoteSockLo());
  EXPECT_EQ(socketOrder, expected) << "the whole high burst, then the low frame";
}

}  // namespace
}  // namespace Vxlan
