// Virtual ARP's machines in this process against the real kernel: the switch and its
// remote VTEPs of TestSupport::SwitchTopology (no agent host is started), with the
// machines' PAMs and neighbor writes opened in those namespaces; where the remote
// kernel's own ARP is the input, the forwarding-plane emulator traps it on the switch's
// underlay. Needs root.
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "frames/ArpPkt.h"
#include "platform/kernel/KernelNetworkInfoManager.h"
#include "platform/wire/NetlinkSocket.h"
#include "tests/netns/NamespaceSwitch.h"
#include "tests/netns/PacketSocket.h"
#include "tests/netns/SwitchTopology.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"
#include "varp/ArpReplyReplicationSm.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {
namespace {

using TestSupport::Frame;
using TestSupport::PacketSocket;

const Bridging::VlanIdOrNone kVlan(10);
const Wire::EthAddr kVarpMac(0x0000, 0x5e00, 0x0101);
const Wire::EthAddr kBridgeMac(0x0200, 0, 0xb0);

Wire::IpAddr ip(const std::string& text) {
  return Wire::IpAddr::fromString(text);
}

// One switch's virtual ARP: VTI Vxlan1 up with local (and virtual) VTEP `vtep`, VLAN 10
// on VNI 5010 flooding to `flood`; the PAMs opened in namespace `ns`, whose devices the
// machine follows; SVI Vlan10 (192.168.10.1/24, virtual .254) in VRF "blue", active in
// namespace `ns`, so that the machine opens its kernel view and its neighbor socket there.
struct Machine {
  Lum::Ptr<VtiStatusDir> vtis{new VtiStatusDir("vti")};
  Lum::Ptr<VniToVlanMaps> vniMaps{new VniToVlanMaps("vniMaps")};
  Lum::Ptr<VxlanHwStatusDir> hw{new VxlanHwStatusDir("hw")};
  Lum::Ptr<Bridging::Config> bridging{new Bridging::Config("bridging")};
  Lum::Ptr<Bridging::HwCapabilities> caps{new Bridging::HwCapabilities("caps")};
  Lum::Ptr<Ip::Status> ipStatus{new Ip::Status("ip")};
  Lum::Ptr<Routing::Fhrp::VirtualRouterMacStatus> varpMac{
      new Routing::Fhrp::VirtualRouterMacStatus("varpMac")};
  Lum::Ptr<Ip::AllVrfStatusLocal> vrfs{new Ip::AllVrfStatusLocal("vrfs")};
  Lum::Ptr<Mlag::Status> mlag{new Mlag::Status("mlag")};
  Lum::Ptr<Mlag::Config> mlagConfig{new Mlag::Config("mlagConfig")};
  Lum::Ptr<KernelNetworkInfo::Root> kernel{new KernelNetworkInfo::Root("kernel")};
  KernelNetworkInfo::Manager kernelWatch;
  Lum::Ptr<VxlanAgentCounter> counters{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<VirtualArpSm> sm;
  Lum::Ptr<VirtualArpSm::LumVtiStatusSm> vti;

  Machine(const std::string& ns, const std::string& vtep, const std::vector<std::string>& flood)
      : kernelWatch({}, kernel, Wire::NamespaceName(ns)) {
    Lum::Ptr<VtiStatus> status = vtis->vtiStatusIs(Wire::IntfId("Vxlan1"));
    status->localVtepAddrIs(ip(vtep));
    status->vArpVtepAddrIs(ip(vtep));
    status->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(5010));
    status->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    vniMaps->vtiVniToVlanMapIs(Wire::IntfId("Vxlan1"))->vniToVlanMapIs(Vni(5010), kVlan);
    Lum::Ptr<BumVtepList> list =
        hw->bumStatus()->bumVtepListIs(MacVlanPair(Wire::EthAddr(), Bridging::VlanId(10)));
    for (const std::string& a : flood) list->remoteVtepAddrIs(ip(a));
    hw->vxlanHwStatusIs(Wire::IntfId("Vxlan1"))->cpuSourcePortIdIs(HwPortId(17));
    bridging->bridgeMacAddrIs(kBridgeMac);
    caps->vxlanTxRawSupportedIs(true);
    varpMac->varpVirtualMacIs(kVarpMac);
    Lum::Ptr<Ip::IpIntfStatus> svi = ipStatus->ipIntfStatusIs(Wire::IntfId("Vlan10"));
    svi->vrfIs(L3::VrfName("blue"));
    svi->activeAddrWithMaskIs(Wire::IpAddrWithMask::fromString("192.168.10.1/24"));
    svi->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask::fromString("192.168.10.254/24"));
    VirtualArpSm::Inputs in;
    in.bridgingConfig = bridging;
    in.bridgingHwCapabilities = caps;
    in.ipStatusDir = ipStatus;
    in.fhrpVarpMacStatus = varpMac;
    in.vtiStatusDir = vtis;
    in.vniToVlanMaps = vniMaps;
    in.vxHwStatusDir = hw;
    in.vxBumStatus = hw->bumStatus();
    in.vxAgentCounter = counters;
    in.mlagStatus = mlag;
    in.mlagConfig = mlagConfig;
    in.kernelNetworkInfoRoot = kernel;
    Lum::Ptr<Ip::VrfStatusLocal> blue = vrfs->vrfIs(L3::VrfName("blue"));
    blue->networkNamespaceIs(Wire::NamespaceName(ns));
    blue->stateIs(Ip::VrfState::vrfActive);
    in.allVrfStatus = vrfs;
    sm = new VirtualArpSm(in);
    vti = sm->vtiStatusSm(Wire::IntfId("Vxlan1"));
    for (Wire::UdpPam* pam : {vti->udpPam(), vti->arpSyncUdpPam()}) {
      pam->netNsIs(Wire::NamespaceName(ns));
    }
  }
  ~Machine() { sm->doPrepareToDie(); }
  void operUpIs(bool up) {
    vtis->vtiStatus(Wire::IntfId("Vxlan1"))
        ->operStatusIs(up ? Interface::IntfOperStatus::intfOperUp
                          : Interface::IntfOperStatus::intfOperDown);
  }
  // MLAG with a peer link and `peer` as the peer's address, or `state` without one.
  void mlagIs(Mlag::MlagState state, const std::string& peer) {
    mlagConfig->peerAddressIs(ip(peer));
    mlag->peerLinkIntfIs(Wire::IntfId("Port-Channel10"));
    mlag->mlagStateIs(state);
  }
  Lum::Ptr<KernelNetworkInfo::Interface> vlan10() const {
    const Lum::Ptr<VrfInfo> info = sm->vrfInfo(L3::VrfName("blue"));
    return info ? info->kniRoot()->interfaceByName(Lum::String8("vlan10")) : nullptr;
  }
  uint32_t count(VarpCounterId id) const { return counters->varpCounter(id).count; }
};

// Runs the agent's loop until `done` holds, for at most a few seconds.
bool loopUntil(const std::function<bool()>& done,
               std::chrono::milliseconds bound = std::chrono::seconds(3)) {
  return TestSupport::eventually([&] { return Lum::eventLoop().runOnce(0.05), done(); }, bound);
}

std::string neighbor(const std::string& ns, const std::string& addr,
                     const std::string& dev = "vlan10") {
  return TestSupport::run("ip -n " + ns + " neigh show " + addr + " dev " + dev).second;
}

// The MAC that the neighbor table of `ns` holds for `addr` on `dev`, empty for none.
std::string lladdr(const std::string& ns, const std::string& addr, const std::string& dev) {
  const std::string entry = neighbor(ns, addr, dev);
  const size_t at = entry.find("lladdr ");
  return at == std::string::npos ? "" : entry.substr(at + 7, 17);
}

class VarpNetnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "network namespaces need root; CI runs these as root";
    TestSupport::SwitchTopologyConfig config;
    config.remotes = 3;
    topo_ = std::make_unique<TestSupport::SwitchTopology>(config);
    for (const std::string& ns : {topo_->switchNs(), topo_->remoteNs(0)}) {
      topo_->ip(ns, "link add vlan10 type veth peer name vlan10-p");
      topo_->ip(ns, "link set vlan10 up");
      topo_->ip(ns, "link set vlan10-p up");
      topo_->ip(ns, "addr add 10.1.1.1/24 dev vlan10");
    }
  }
  std::unique_ptr<TestSupport::SwitchTopology> topo_;
};

// A flooded reply reaches, in VXLAN, the kernel VXLAN devices of the VLAN's list but
// not the one left out (the VTEP the request came from).
TEST_F(VarpNetnsTest, AFloodedReplyReachesEveryVtepButTheExcludedOne) {
  Machine sw(topo_->switchNs(), TestSupport::SwitchTopology::kVtepAddr,
             {topo_->remoteVtepAddr(0), topo_->remoteVtepAddr(1), topo_->remoteVtepAddr(2)});
  std::vector<std::unique_ptr<PacketSocket>> vteps;
  for (size_t i = 0; i < 3; ++i) {
    vteps.push_back(
        std::make_unique<PacketSocket>(topo_->remoteNs(i), "vx0", PacketSocket::Mode::capture));
  }
  const Wire::EthAddr host(0x0200, 0, 0x05);
  Lum::Ptr<Wire::Pkt> reply =
      Arp::makeArpPkt(host, kBridgeMac, 2, kBridgeMac, ip("10.1.1.1"), host, ip("10.1.1.5"));
  const Frame frame(reply->data(), reply->data() + reply->bytes());
  sw.vti->sendArpReplyPkt(reply, kVlan, ip(topo_->remoteVtepAddr(2)), true);
  const auto same = [&frame](const Frame& f) { return f == frame; };
  EXPECT_TRUE(vteps[0]->receive(same, std::chrono::seconds(3)));
  EXPECT_TRUE(vteps[1]->receive(same, std::chrono::seconds(3)));
  EXPECT_FALSE(vteps[2]->receive(same, std::chrono::milliseconds(500)));
  EXPECT_EQ(sw.count(VarpCounterId::arpReplyFloodTx), 2u);
}

// What one switch learns lands in the neighbor table of vlan10 in its VRF's namespace
// and, told over UDP 51023, in its MLAG peer's; while MLAG is inactive nothing is told.
TEST_F(VarpNetnsTest, LearntEntriesReachTheVrfsTableAndTheMlagPeers) {
  Machine sw(topo_->switchNs(), TestSupport::SwitchTopology::kVtepAddr, {});
  Machine peer(topo_->remoteNs(0), topo_->remoteVtepAddr(0), {});
  sw.mlagIs(Mlag::MlagState::mlagStatePrimary, topo_->remoteVtepAddr(0));
  peer.mlagIs(Mlag::MlagState::mlagStateSecondary, TestSupport::SwitchTopology::kVtepAddr);
  ASSERT_TRUE(loopUntil([&] { return sw.vlan10() && peer.vlan10(); }));

  const auto learn = [&sw](uint8_t host) {
    Wire::EthArpIpHdr arp{};
    arp.senderHw = Wire::EthAddr(0x0200, 0, host);
    arp.senderIpIs(ip("10.1.1." + std::to_string(host)));
    arp.targetIpIs(arp.senderIp());
    sw.vti->handleVxlanGratArp(arp, Wire::EthAddr(0xffff, 0xffff, 0xffff), kVlan);
  };
  learn(7);
  EXPECT_EQ(lladdr(topo_->switchNs(), "10.1.1.7", "vlan10"), "02:00:00:00:00:07");
  ASSERT_TRUE(loopUntil([&] { return peer.count(VarpCounterId::arpSyncNeighborAdded) == 1; }));
  EXPECT_NE(neighbor(topo_->remoteNs(0), "10.1.1.7").find("lladdr 02:00:00:00:00:07 REACHABLE"),
            std::string::npos)
      << neighbor(topo_->remoteNs(0), "10.1.1.7");

  sw.mlagIs(Mlag::MlagState::mlagStateInactive, topo_->remoteVtepAddr(0));
  learn(8);
  EXPECT_EQ(lladdr(topo_->switchNs(), "10.1.1.8", "vlan10"), "02:00:00:00:00:08");
  EXPECT_FALSE(loopUntil([&] { return !neighbor(topo_->remoteNs(0), "10.1.1.8").empty(); },
                         std::chrono::milliseconds(500)));
  EXPECT_EQ(sw.count(VarpCounterId::arpSyncMsgSent), 1u);
  EXPECT_EQ(peer.count(VarpCounterId::arpSyncNeighborAdded), 1u);
}

// The remote kernel's own ARP, trapped on the switch's underlay by the emulator: the
// SVI's address is answered with the bridge MAC and the virtual router's with the
// virtual MAC (what the remote's neighbor table shows), the remote host is learnt on
// vlan10, and a request for a local host goes on through "txraw" (or "fabric" when
// the forwarding plane cannot take "txraw"). Answers stop while the VTI is down and
// resume when it is up again and when "vxlan" is made again. Every ARP read is one of
// the outcomes counted. The VRF keeps its kernel view and neighbor socket through its
// state events and loses them with its entry.
TEST_F(VarpNetnsTest, TheRemoteKernelsArpFollowsTheVtiTheDeviceAndTheVrf) {
  const std::string remote = topo_->remoteNs(0);
  const std::string remoteVtep = topo_->remoteVtepAddr(0);
  topo_->switchVethPairIs("ha");
  topo_->switchVethPairIs("fabric");
  TestSupport::NamespaceSwitch inSwitch(topo_->switchNs());
  Machine sw(topo_->switchNs(), TestSupport::SwitchTopology::kVtepAddr, {remoteVtep});
  TestSupport::TempDir dir("vxr-varp");
  std::unique_ptr<TestSupport::ChildProcess> emulator;
  const auto startEmulator = [&] {
    emulator.reset();
    emulator = std::make_unique<TestSupport::ChildProcess>(
        std::vector<std::string>{
            "ip", "netns", "exec", topo_->switchNs(), std::string(VXRELAY_BIN) + "/vxrelay-fpemu",
            "--port", "ha:access:10", "--vxlan", "vxlan-p", "--txraw", "txraw-p", "--underlay",
            topo_->underlayDevice(), "--vtep", TestSupport::SwitchTopology::kVtepAddr, "--fabric",
            "fabric-p", "--vni", "5010:10"},
        dir.file("fpemu.log"));
    ASSERT_TRUE(TestSupport::eventually(
        [&] { return emulator->output().find("ports,") != std::string::npos; },
        std::chrono::seconds(5)))
        << emulator->output();
  };
  startEmulator();
  // The MAC the remote learns for `addr` from its ARP (ping's), while the loop runs.
  const auto resolve = [&](const std::string& addr, std::chrono::milliseconds bound) {
    TestSupport::run("ip -n " + remote + " neigh flush dev vx0");
    TestSupport::ChildProcess ping(
        {"ip", "netns", "exec", remote, "ping", "-c", "3", "-i", "0.3", "-W", "1", addr},
        "/dev/null");
    std::string mac;
    loopUntil([&] { return !(mac = lladdr(remote, addr, "vx0")).empty(); }, bound);
    return mac;
  };
  constexpr auto kAnswer = std::chrono::seconds(3);
  EXPECT_EQ(resolve("192.168.10.1", kAnswer), "02:00:00:00:00:b0");
  EXPECT_EQ(resolve("192.168.10.254", kAnswer), "00:00:5e:00:01:01");
  const std::string remoteMac =
      TestSupport::run("ip -n " + remote + " -br link show vx0 | awk '{print $3}'").second;
  EXPECT_EQ(lladdr(topo_->switchNs(), "192.168.10.2", "vlan10") + "\n", remoteMac);

  // A request for a host behind the switch's port "ha" reaches it as the remote sent it.
  const auto handedOn = [&](uint8_t host) {
    TestSupport::PacketSocket capture(topo_->switchNs(), "ha-p",
                                      TestSupport::PacketSocket::Mode::capture);
    const auto forHost = [host](const Frame& f) {
      return f.size() == 42 && f[12] == 0x08 && f[13] == 0x06 && f[38] == 192 && f[41] == host;
    };
    resolve("192.168.10." + std::to_string(host), std::chrono::milliseconds(300));
    return loopUntil(
        [&] { return capture.receive(forHost, std::chrono::milliseconds(20)).has_value(); });
  };
  EXPECT_TRUE(handedOn(5));
  sw.caps->vxlanTxRawSupportedIs(false);
  EXPECT_TRUE(handedOn(6));
  sw.caps->vxlanTxRawSupportedIs(true);

  sw.operUpIs(false);
  EXPECT_EQ(resolve("192.168.10.1", std::chrono::milliseconds(1500)), "");
  sw.operUpIs(true);
  EXPECT_EQ(resolve("192.168.10.1", kAnswer), "02:00:00:00:00:b0");
  topo_->ip(topo_->switchNs(), "link del vxlan");
  ASSERT_TRUE(loopUntil([&] { return !sw.kernel->interfaceByName(Lum::String8("vxlan")); }));
  topo_->switchVethPairIs("vxlan");
  startEmulator();  // its end of the old pair went with it
  EXPECT_EQ(resolve("192.168.10.1", kAnswer), "02:00:00:00:00:b0");

  // Each ARP read was answered (one reply each: the flood list holds only the asking
  // VTEP) or handed on.
  EXPECT_GT(sw.count(VarpCounterId::vxlanArpRx), 0u);
  EXPECT_EQ(sw.count(VarpCounterId::vxlanArpRx),
            sw.count(VarpCounterId::arpReplyFloodTx) + sw.count(VarpCounterId::decapTxPkts));
  EXPECT_EQ(sw.count(VarpCounterId::decapTxRawHdr) + sw.count(VarpCounterId::decapFabricHdr),
            sw.count(VarpCounterId::decapTxPkts));
  EXPECT_GT(sw.count(VarpCounterId::decapFabricHdr), 0u);

  // The VRF's state events keep its kernel view and socket (a second active event
  // opens no second one); they go with the VRF.
  const Lum::Ptr<VrfInfo> info = sw.sm->vrfInfo(L3::VrfName("blue"));
  for (Ip::VrfState state : {Ip::VrfState::vrfInactive, Ip::VrfState::vrfActive}) {
    sw.vrfs->vrfIs(L3::VrfName("blue"))->stateIs(state);
    EXPECT_EQ(sw.sm->vrfInfo(L3::VrfName("blue")), info);
  }
  sw.vrfs->vrfDel(L3::VrfName("blue"));
  EXPECT_FALSE(sw.sm->vrfInfo(L3::VrfName("blue")));
}

// ARP reply replication in VRF "blue" (the switch's namespace): "vlan10", made only
// after its virtual address is set, gets its filter on the clock's retry; a reply to
// the virtual MAC sent on it reaches the remote kernel's VTEP in VXLAN, one to another
// MAC never reaches the PAM, and under an active MLAG state one to the bridge MAC ends
// in the neighbor table. The VRF leaving the active state takes the filter away.
TEST_F(VarpNetnsTest, RepliesOnARoutedVlanAreReplicatedThroughTheFilter) {
  topo_->ip(topo_->switchNs(), "link del vlan10");
  Machine sw(topo_->switchNs(), TestSupport::SwitchTopology::kVtepAddr, {topo_->remoteVtepAddr(0)});
  const L3::VrfName blue("blue");
  sw.ipStatus->vrfIpIntfStatusIs(blue)
      ->ipIntfStatusIs(Wire::IntfId("Vlan10"))
      ->activeVirtualAddrWithMaskIs(Wire::IpAddrWithMask::fromString("10.1.1.254/24"));
  Lum::Ptr<ArpReplyReplicationSm> rep =
      arpReplyReplicationSmFactory(sw.ipStatus, sw.varpMac, sw.sm.ptr(), sw.counters, sw.vrfs,
                                   sw.mlag, Lum::Ptr<const Lum::Clock>(new Lum::Clock("clock")));
  ASSERT_TRUE(rep->arpReplyReplicationVrfSm(blue));
  const auto intf = rep->arpReplyReplicationVrfSm(blue)->ipIntfStatus(Wire::IntfId("Vlan10"));
  ASSERT_TRUE(intf);
  EXPECT_FALSE(intf->bpfInstalled()) << "no vlan10 yet";
  topo_->switchVethPairIs("vlan10");
  ASSERT_TRUE(loopUntil([&] { return intf->bpfInstalled(); }));
  const Lum::Ptr<Wire::EthDevPam> pam = intf->arpReplyRxPam();

  PacketSocket vlan(topo_->switchNs(), "vlan10-p", PacketSocket::Mode::sendOnly);
  const auto replyTo = [](Wire::EthAddr target) {
    const Wire::EthAddr host(0x0200, 0, 0x07);
    Lum::Ptr<Wire::Pkt> p =
        Arp::makeArpPkt(target, host, 2, host, ip("10.1.1.7"), target, ip("10.1.1.254"));
    return Frame(p->data(), p->data() + p->bytes());
  };
  PacketSocket vtep(topo_->remoteNs(0), "vx0", PacketSocket::Mode::capture);
  const Frame toVarp = replyTo(kVarpMac);
  vlan.send(toVarp);
  EXPECT_TRUE(loopUntil([&] {
    return vtep.receive([&](const Frame& f) { return f == toVarp; }, std::chrono::milliseconds(20))
        .has_value();
  }));
  const uint64_t readable = pam->readableCount();
  const uint32_t replicated = sw.count(VarpCounterId::replicatedReplyRx);
  EXPECT_EQ(replicated, 1u);
  vlan.send(replyTo(Wire::EthAddr(0x0200, 0, 0x99)));
  loopUntil([] { return false; }, std::chrono::milliseconds(300));
  EXPECT_EQ(pam->readableCount(), readable) << "the filter let another MAC through";
  EXPECT_EQ(sw.count(VarpCounterId::replicatedReplyRx), replicated);

  sw.mlagIs(Mlag::MlagState::mlagStatePrimary, topo_->remoteVtepAddr(0));
  ASSERT_TRUE(loopUntil([&] { return sw.vlan10() != nullptr; }));
  vlan.send(replyTo(kBridgeMac));
  EXPECT_TRUE(loopUntil(
      [&] { return lladdr(topo_->switchNs(), "10.1.1.7", "vlan10") == "02:00:00:00:00:07"; }));

  sw.vrfs->vrfIs(blue)->stateIs(Ip::VrfState::vrfInactive);
  EXPECT_FALSE(rep->arpReplyReplicationVrfSm(blue));
  EXPECT_FALSE(pam->enabled());
  rep->doPrepareToDie();
}

}  // namespace
}  // namespace Vxlan
