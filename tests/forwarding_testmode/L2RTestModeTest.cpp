// The local-to-remote machine of one VTI in test mode, on a system-call fake: packet,
// raw and Unix sockets are socket pairs, socket options and binds are recorded
// (options and requests fail on demand), and every sendto is captured. Frames are
// written into the peers of the local sockets; time stands still unless a test makes
// it move.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "forwarding/Local2RemoteForwarderSm.h"
#include "forwarding/PacketTrace.h"
#include "forwarding/TestMode.h"
#include "platform/loop/EventLoop.h"
#include "platform/os/TimeSource.h"
#include "tests/support/SocketPairs.h"
#include "tests/support/Throws.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

using Bytes = std::vector<uint8_t>;
using Id = VxlanCounterId;
using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;

Wire::IpAddr ip(const char* text) {
  return Wire::IpAddr::fromString(text);
}

// Every socket a pair (TestSupport::SocketPairs), on device "vxlan" (index 7).
struct FakeNet : TestSupport::SocketPairs {
  struct Sent {
    int fd;
    Bytes bytes;
    std::string to;  // dotted IPv4, or the Unix path
    socklen_t toLen;
  };
  struct Option {
    int fd, level, name, value;
  };

  FakeNet() { devices = {{"vxlan", 7}}; }
  int setsockopt(int fd, int level, int name, const void* v, socklen_t len) override {
    options.push_back({fd, level, name, len == sizeof(int) ? *static_cast<const int*>(v) : -1});
    return level == failOption.first && name == failOption.second ? (errno = EPERM, -1) : 0;
  }
  int ioctl(int fd, unsigned long request, void* arg) override {
    if (request == failRequest) return errno = EPERM, -1;
    return request == SIOCGIFINDEX ? SocketPairs::ioctl(fd, request, arg) : 0;
  }
  int bind(int fd, const sockaddr* a, socklen_t len) override {
    options.push_back({fd, -1, -1, 0});  // the bind's place among the options
    return SocketPairs::bind(fd, a, len);
  }
  Lum::SysResult sendto(int fd, const void* buf, size_t len, int, const sockaddr* to,
                        socklen_t toLen) override {
    std::string where;
    if (to->sa_family == AF_INET) {
      char text[INET_ADDRSTRLEN];
      ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(to)->sin_addr, text, sizeof text);
      where = text;
    } else {
      where = reinterpret_cast<const sockaddr_un*>(to)->sun_path;
    }
    const auto* p = static_cast<const uint8_t*>(buf);
    sent.push_back({fd, Bytes(p, p + len), where, toLen});
    const auto err = sendError.find(fd);
    if (err != sendError.end()) return {-1, err->second};
    return {static_cast<ssize_t>(len), 0};
  }

  // Each message as one sendto; stops at the first failure as the kernel does.
  int sendmmsg(int fd, mmsghdr* msgs, unsigned int count, int) override {
    for (unsigned i = 0; i < count; ++i) {
      const msghdr& m = msgs[i].msg_hdr;
      Bytes joined;
      for (size_t v = 0; v < m.msg_iovlen; ++v) {
        const auto* p = static_cast<const uint8_t*>(m.msg_iov[v].iov_base);
        joined.insert(joined.end(), p, p + m.msg_iov[v].iov_len);
      }
      const Lum::SysResult r = sendto(fd, joined.data(), joined.size(), 0,
                                      static_cast<const sockaddr*>(m.msg_name), m.msg_namelen);
      if (r.failed()) return i > 0 ? static_cast<int>(i) : (errno = r.err, -1);
      msgs[i].msg_len = static_cast<unsigned>(r.rc);
    }
    return static_cast<int>(count);
  }

  std::pair<int, int> failOption{-2, -2};
  unsigned long failRequest = 0;
  std::map<int, int> sendError;
  std::vector<Option> options;
  std::vector<Sent> sent;
};

class L2RTestModeTest : public ::testing::Test {
 protected:
  L2RTestModeTest() {
    status_->localVtepAddrIs(ip("10.99.0.1"));
    status_->srcIntfKernelNameIs("under0");
    status_->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(Vni(5010)));
    status_->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    Local2RemoteForwarderSm::Inputs in;
    in.vxHwStatusDir = hw_;
    in.vxBumStatus = hw_->bumStatus();
    in.vxAgentCounter = counter_;
    in.vtepStatusDirV2 = vteps_;
    rebuild(in);
  }
  ~L2RTestModeTest() override { sm_->doDisconnectSockets(); }

  // A new machine (and owner) on `in`, in the one-frame loop; batch mode has a case of
  // its own.
  void rebuild(const Local2RemoteForwarderSm::Inputs& in) {
    if (sm_) sm_->doDisconnectSockets();
    sm_ = nullptr;
    owner_ = new Local2RemoteForwarderSm(in);
    sm_ = new Sm(nullptr, status_, owner_.ptr());
    sm_->batchModeIs(false);
  }

  BumStatus& bum() { return *hw_->bumStatus(); }
  void floodList(const char* mac, std::vector<const char*> vteps, uint32_t type = 0) {
    const Lum::Ptr<BumVtepList> l =
        bum().bumVtepListIs(MacVlanPair(Wire::EthAddr::fromString(mac), Bridging::VlanId(10)));
    for (const char* v : vteps) l->remoteVtepAddrIs(ip(v));
    l->listTypeIs(type);
  }
  // Writes a local frame for `dst` into the high (or low) socket and runs its handler.
  void forward(const char* dst, bool high = true, uint16_t flags = 0) {
    write(dst, high, flags);
    high ? sm_->handleFileDescriptorHi() : sm_->handleFileDescriptorLo();
  }
  void write(const char* dst, bool high = true, uint16_t flags = 0, size_t pad = 40) {
    const auto d = Wire::EthAddr::fromString(dst).bytes();
    Bytes user(d.begin(), d.end());
    user.insert(user.end(), {0x02, 0, 0, 0, 0, 0x02, 0x08, 0x00});  // source, IPv4
    user.resize(user.size() + pad, 0x33);
    const Bytes f = TestSupport::localFrame(user, high ? 0x0041 : 0x0033, flags, 10);
    const int peer = net_.peer(high ? sm_->localSockHi() : sm_->localSockLo());
    ASSERT_EQ(::send(peer, f.data(), f.size(), 0), ssize_t(f.size()));
  }
  // The VTEPs that packets went to, in order (resolver messages left out).
  std::vector<std::string> vtepsReached() const {
    std::vector<std::string> to;
    for (const auto& s : net_.sent) {
      if (s.fd == sm_->remoteSockHi() || s.fd == sm_->remoteSockLo()) to.push_back(s.to);
    }
    return to;
  }
  uint64_t count(Id id) const { return counter_->storage().vxlanCount(static_cast<uint16_t>(id)); }
  std::vector<uint64_t> counts() const {
    std::vector<uint64_t> c;
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) c.push_back(count(Id(i)));
    return c;
  }
  int optionValue(int fd, int level, int name) const {
    for (const auto& x : net_.options) {
      if (x.fd == fd && x.level == level && x.name == name) return x.value;
    }
    return -999;
  }

  Lum::ManualTimeSource clock_{100.0};
  Lum::ScopedTimeSource clockGuard_{clock_};
  FakeNet net_;
  Lum::ScopedSysCalls netGuard_{net_};
  Lum::Ptr<VtiStatus> status_{new VtiStatus(Wire::IntfId("Vxlan1"))};
  Lum::Ptr<VxlanHwStatusDir> hw_{new VxlanHwStatusDir("hw")};
  Lum::Ptr<VxlanController::VtepStatusDirV2> vteps_{new VxlanController::VtepStatusDirV2("v2")};
  Lum::Ptr<VxlanAgentCounter> counter_{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<Local2RemoteForwarderSm> owner_;
  Lum::Ptr<Sm> sm_;
};

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

// The switch's own addresses are answered here, whichever interface carries them: a
// shared virtual router address flagged true, a primary or a secondary address; a
// request for one is dropped and counted. A
// flooded request from a host behind the virtual VTEP leaves with the bridge MAC in
// both places; one from any other host is left as it is. Each is counted.
TEST_F(L2RTestModeTest, ArpRequestsForOwnAddressesStayAndVirtualHostsGetTheBridgeMac) {
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
TEST_F(L2RTestModeTest, PacketTraceNamesTheCounterTheLoopMoves) {
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
