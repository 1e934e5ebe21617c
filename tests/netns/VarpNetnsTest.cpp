// Virtual ARP's machines in this process against the real kernel: the switch and its
// remote VTEPs of TestSupport::SwitchTopology (no agent host is started), with the
// machines' PAMs and neighbor writes opened in those namespaces. Needs root.
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "frames/ArpPkt.h"
#include "platform/wire/NetlinkSocket.h"
#include "tests/netns/PacketSocket.h"
#include "tests/netns/SwitchTopology.h"
#include "tests/support/ChildProcess.h"
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

// One switch's virtual ARP: VTI Vxlan1 up with local VTEP `vtep`, VLAN 10 on VNI 5010
// flooding to `flood`; the PAMs opened in namespace `ns`; VLAN 10's interface in VRF
// "blue", active in namespace `ns`, so that the machine opens its kernel view and its
// neighbor socket there.
struct Machine {
  Lum::Ptr<VtiStatusDir> vtis{new VtiStatusDir("vti")};
  Lum::Ptr<VxlanHwStatusDir> hw{new VxlanHwStatusDir("hw")};
  Lum::Ptr<Ip::Status> ipStatus{new Ip::Status("ip")};
  Lum::Ptr<Routing::Fhrp::VirtualRouterMacStatus> varpMac{
      new Routing::Fhrp::VirtualRouterMacStatus("varpMac")};
  Lum::Ptr<Ip::AllVrfStatusLocal> vrfs{new Ip::AllVrfStatusLocal("vrfs")};
  Lum::Ptr<VxlanAgentCounter> counters{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<VirtualArpSm> sm;
  Lum::Ptr<VirtualArpSm::LumVtiStatusSm> vti;

  Machine(const std::string& ns, const std::string& vtep, const std::vector<std::string>& flood) {
    Lum::Ptr<VtiStatus> status = vtis->vtiStatusIs(Wire::IntfId("Vxlan1"));
    status->localVtepAddrIs(ip(vtep));
    status->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(5010));
    status->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    Lum::Ptr<BumVtepList> list =
        hw->bumStatus()->bumVtepListIs(MacVlanPair(Wire::EthAddr(), Bridging::VlanId(10)));
    for (const std::string& a : flood) list->remoteVtepAddrIs(ip(a));
    varpMac->varpVirtualMacIs(kVarpMac);
    ipStatus->ipIntfStatusIs(Wire::IntfId("Vlan10"))->vrfIs(L3::VrfName("blue"));
    VirtualArpSm::Inputs in;
    in.ipStatusDir = ipStatus;
    in.fhrpVarpMacStatus = varpMac;
    in.vtiStatusDir = vtis;
    in.vxHwStatusDir = hw;
    in.vxBumStatus = hw->bumStatus();
    in.vxAgentCounter = counters;
    Lum::Ptr<Ip::VrfStatusLocal> blue = vrfs->vrfIs(L3::VrfName("blue"));
    blue->networkNamespaceIs(Wire::NamespaceName(ns));
    blue->stateIs(Ip::VrfState::vrfActive);
    in.allVrfStatus = vrfs;
    sm = new VirtualArpSm(in);
    vti = sm->vtiStatusSm(Wire::IntfId("Vxlan1"));
    for (Wire::UdpPam* pam : {vti->udpPam(), vti->arpSyncUdpPam()}) {
      pam->netNsIs(Wire::NamespaceName(ns));
    }
    vti->udpPam()->modeIs(1);
  }
  ~Machine() { sm->doPrepareToDie(); }
  Lum::Ptr<KernelNetworkInfo::Interface> vlan10() const {
    const Lum::Ptr<VrfInfo> info = sm->vrfInfo(L3::VrfName("blue"));
    return info ? info->kniRoot()->interfaceByName(Lum::String8("vlan10")) : nullptr;
  }
  uint32_t count(VarpCounterId id) const { return counters->varpCounter(id).count; }
};

// Runs the agent's loop until `done` holds, for at most a few seconds.
bool loopUntil(const std::function<bool()>& done) {
  return TestSupport::eventually([&] { return Lum::eventLoop().runOnce(0.05), done(); },
                                 std::chrono::seconds(3));
}

std::string neighbor(const std::string& ns, const char* addr) {
  return TestSupport::run("ip -n " + ns + " neigh show " + addr + " dev vlan10").second;
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
// and, told over UDP 51023, in its MLAG peer's.
TEST_F(VarpNetnsTest, LearntEntriesReachTheVrfsTableAndThePeers) {
  Machine sw(topo_->switchNs(), TestSupport::SwitchTopology::kVtepAddr, {});
  Machine peer(topo_->remoteNs(0), topo_->remoteVtepAddr(0), {});
  sw.vti->arpSyncUdpPam()->txDstIpAddrIs(ip(topo_->remoteVtepAddr(0)));
  sw.vti->arpSyncUdpPam()->modeIs(3);
  peer.vti->arpSyncUdpPam()->modeIs(3);
  ASSERT_TRUE(loopUntil([&] { return sw.vlan10() && peer.vlan10(); }));

  Wire::EthArpIpHdr arp{};
  arp.senderHw = Wire::EthAddr(0x0200, 0, 0x07);
  arp.senderIpIs(ip("10.1.1.7"));
  arp.targetIpIs(ip("10.1.1.7"));
  sw.vti->handleVxlanGratArp(arp, Wire::EthAddr(0xffff, 0xffff, 0xffff), kVlan);
  EXPECT_NE(neighbor(topo_->switchNs(), "10.1.1.7").find("lladdr 02:00:00:00:00:07 REACHABLE"),
            std::string::npos)
      << neighbor(topo_->switchNs(), "10.1.1.7");
  ASSERT_TRUE(loopUntil([&] { return peer.count(VarpCounterId::arpSyncNeighborAdded) == 1; }));
  EXPECT_NE(neighbor(topo_->remoteNs(0), "10.1.1.7").find("lladdr 02:00:00:00:00:07 REACHABLE"),
            std::string::npos)
      << neighbor(topo_->remoteNs(0), "10.1.1.7");
  EXPECT_EQ(sw.count(VarpCounterId::arpSyncMsgSent), 1u);
  // The VRF goes, and its socket and kernel view with it.
  sw.vrfs->vrfDel(L3::VrfName("blue"));
  EXPECT_FALSE(sw.sm->vrfInfo(L3::VrfName("blue")));
}

}  // namespace
}  // namespace Vxlan
