// The tables of the local-to-remote machine: tunnel ports and the MLAG peer link by
// kernel index, as the frame path's filter reads them (the VTI stays down: no socket is
// opened), and the mirror of the controller's virtual IP and MAC tables with its lookup.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "forwarding/Local2RemoteForwarderSm.h"

namespace Vxlan {
namespace {

using Mode = Bridging::SwitchportMode;
const Wire::IntfId kVti("Vxlan1");
const Wire::IntfId kEt3("Ethernet3");

class L2RAccessPortsTest : public ::testing::Test {
 protected:
  void start() {
    dir_->vtiStatusIs(kVti);
    l2r_ = new Local2RemoteForwarderSm(Local2RemoteForwarderSm::Inputs{
        dir_, hw_, hw_->bumStatus(), {}, {}, kni_, mlag_, bridging_, intfs_, {}, {}, {}, {}, {}});
    ASSERT_TRUE(sm());
  }
  Lum::Ptr<Local2RemoteForwarderSm::LumVtiStatusSm> sm() const { return l2r_->vtiStatusSm(kVti); }

  void device(const char* name, uint32_t ifindex) {
    kni_->interfaceIs({Wire::IfIndex(ifindex), Lum::String8(name), 0, 0, {}, 0});
  }
  void mode(const Wire::IntfId& port, Mode m) {
    bridging_->switchIntfConfigIs(port)->switchportModeAndNativeVlanIs(
        Bridging::SwitchportModeAndNativeVlan(m, Bridging::VlanId(1)));
  }
  std::vector<uint32_t> tunnelIndexes() const { return sm()->dot1QTunnelIfIndex().keys(); }
  size_t pairs() const { return sm()->dot1QTunnelIntfToDevIfindex().size(); }
  Lum::Ptr<VtiStatusDir> dir_{new VtiStatusDir("vtiStatus")};
  Lum::Ptr<VxlanHwStatusDir> hw_{new VxlanHwStatusDir("vxHwStatus")};
  Lum::Ptr<KernelNetworkInfo::Root> kni_{new KernelNetworkInfo::Root("kni")};
  Lum::Ptr<Mlag::Status> mlag_{new Mlag::Status("mlag")};
  Lum::Ptr<Bridging::Config> bridging_{new Bridging::Config("bridging")};
  Lum::Ptr<Interface::EthIntfStatusDir> intfs_{new Interface::EthIntfStatusDir("intf")};
  Lum::Ptr<Local2RemoteForwarderSm> l2r_;
};

// Guards the life of a tunnel port: known before its device (index 0, not yet seen by
// the frame path), completed when the device appears, renamed with its status, and gone both when
// its mode changes and when its configuration is deleted. Sub-interfaces are never tracked. A port
// channel takes its bond's name.
TEST_F(L2RAccessPortsTest, TunnelPortFollowsModeStatusAndDevice) {
  intfs_->intfStatusIs(kEt3)->deviceNameIs("et3");
  mode(kEt3, Mode::switchportModeDot1qTunnel);
  start();
  EXPECT_EQ(sm()->dot1QTunnelIntfToDevIfindex(kEt3), DevIfindexPair("et3", 0));
  EXPECT_TRUE(pairs() == 1u && tunnelIndexes().empty());

  device("et3", 12);
  EXPECT_EQ(sm()->dot1QTunnelIntfToDevIfindex(kEt3), DevIfindexPair("et3", 12));
  EXPECT_EQ(tunnelIndexes(), std::vector<uint32_t>{12});

  device("et4", 14);
  intfs_->intfStatus(kEt3)->deviceNameIs("et4");
  EXPECT_EQ(tunnelIndexes(), std::vector<uint32_t>{14});

  mode(kEt3, Mode::switchportModeTrunk);
  EXPECT_TRUE(pairs() == 0u && tunnelIndexes().empty()) << "mode 1";

  mode(kEt3, Mode::switchportModeDot1qTunnel);
  EXPECT_EQ(tunnelIndexes(), std::vector<uint32_t>{14});
  bridging_->switchIntfConfigDel(kEt3);
  EXPECT_TRUE(pairs() == 0u && tunnelIndexes().empty()) << "a deleted configuration";

  const Wire::IntfId sub("Ethernet3.100");
  intfs_->intfStatusIs(sub)->deviceNameIs("et3.100");
  mode(sub, Mode::switchportModeDot1qTunnel);
  EXPECT_EQ(pairs(), 0u);

  // A port channel's device is its bond, named in the LAG status that the directory
  // makes for a port channel's id, here after the port is configured.
  const Wire::IntfId po("Port-Channel5");
  auto* lag = dynamic_cast<Interface::EthLagIntfStatus*>(intfs_->intfStatusIs(po).ptr());
  ASSERT_NE(lag, nullptr);
  device("po5", 20);
  mode(po, Mode::switchportModeDot1qTunnel);
  lag->lagDeviceNameIs("po5");
  EXPECT_EQ(sm()->dot1QTunnelIntfToDevIfindex(po), DevIfindexPair("po5", 20));
  EXPECT_EQ(tunnelIndexes(), std::vector<uint32_t>{20});
}

// Guards the peer link: its device's index reaches the frame path's filter only while
// MLAG is active; and both kinds of port follow their device when it is made anew
// under another index, the old one forgotten.
TEST_F(L2RAccessPortsTest, PeerLinkWhileMlagIsActiveAndDevicesMadeAnew) {
  const Wire::IntfId po("Port-Channel10");
  intfs_->intfStatusIs(po)->deviceNameIs("pl");
  intfs_->intfStatusIs(kEt3)->deviceNameIs("q1");
  mode(kEt3, Mode::switchportModeDot1qTunnel);
  device("pl", 30);
  device("q1", 12);
  mlag_->peerLinkIntfIs(po);
  start();
  EXPECT_EQ(sm()->encapFilter().peerLinkIfIndex, 0u) << "MLAG is not active";
  mlag_->mlagStateIs(Mlag::MlagState::mlagStatePrimary);
  EXPECT_EQ(sm()->encapFilter().peerLinkIfIndex, 30u);

  for (uint32_t old : {30u, 12u}) kni_->interfaceDel(Wire::IfIndex(old));
  device("pl", 31);
  device("q1", 13);
  const L2R::EncapFilter filter = sm()->encapFilter();
  EXPECT_EQ(filter.peerLinkIfIndex, 31u);
  EXPECT_EQ(filter.tunnelPorts->keys(), std::vector<uint32_t>{13});
  mlag_->mlagStateIs(Mlag::MlagState::mlagStateInactive);
  EXPECT_EQ(sm()->encapFilter().peerLinkIfIndex, 0u);
}

Wire::IpGenAddr addr(const char* text) {
  return Wire::IpGenAddr::fromString(text);
}
Wire::EthAddr mac(const char* text) {
  return Wire::EthAddr::fromString(text);
}

TEST(L2RVarpTablesTest, LookupTakesTheFirstTableWithTheVni) {
  Lum::Ptr<VarpIpMacTableCol> col = new VarpIpMacTableCol("col");
  const Lum::Ptr<const VarpIpMacTableCol> c = col;
  col->varpIpMacTableIs("a")->varpIpMacEntryIs(
      VarpIpMacEntry(addr("10.1.1.5"), VniOrNone(Vni(100)), mac("00:00:00:00:00:0a")));
  col->varpIpMacTableIs("b")->varpIpMacEntryIs(
      VarpIpMacEntry(addr("10.1.1.5"), VniOrNone(Vni(200)), mac("00:00:00:00:00:0b")));
  // VNI, address and MAC asked for, and the answer.
  const std::tuple<VniOrNone, const char*, const char*, int> cases[] = {
      {VniOrNone(Vni(200)), "10.1.1.5", "00:00:00:00:00:0b", 2},
      {VniOrNone(Vni(200)), "10.1.1.5", "00:00:00:00:00:0a", 1},  // another MAC
      {VniOrNone(Vni(300)), "10.1.1.5", "00:00:00:00:00:00", 0},
      {VniOrNone(Vni(0)), "10.1.1.5", "00:00:00:00:00:0a", 0},  // VNI 0 never matches
      // VNI none matches the default entry of a table without the address.
      {VniOrNone(), "10.9.9.9", "00:00:00:00:00:00", 2},
      {VniOrNone(), "10.9.9.9", "00:00:00:00:00:01", 1},
  };
  for (const auto& [vni, ip, m, expected] : cases) {
    EXPECT_EQ(ipPortTableVarpMacLookup(c, vni, addr(ip), mac(m)), expected) << ip << " " << m;
  }
}

// Guards the mirror: a table from before the start and one made after it, entries
// added and removed, and a gone VTI's tables emptied and removed (no stale hosts
// behind), another VTI's table of the same name kept.
TEST(L2RVarpTablesTest, TablesAndEntriesFollowTheControllerStatus) {
  Lum::Ptr<VxlanStatusDir> dir = new VxlanStatusDir("vxlan/status");
  Lum::Ptr<VarpIpMacTableCol> col = new VarpIpMacTableCol("col");
  const Lum::Ptr<VxlanStatus> vti = dir->vxlanStatusIs(Wire::IntfId("Vxlan1"));
  const Wire::IpGenAddrWithMask key(addr("10.1.1.1"), 32);
  vti->vccIpPortTableIs("early")->ipPortEntryIs(
      IpPortEntry(key, VniOrNone(Vni(100)), mac("00:00:00:00:00:01")));
  Local2RemoteForwarderSm::Inputs in;
  in.vxStatusDir = dir;
  in.l2rVarpIpMacTableCol = col;
  Lum::Ptr<Local2RemoteForwarderSm> l2r = new Local2RemoteForwarderSm(in);
  const Lum::Ptr<VarpIpMacTable> early = col->varpIpMacTable("early");
  ASSERT_TRUE(early);
  EXPECT_EQ(early->varpIpMacEntry(addr("10.1.1.1")).vni(), VniOrNone(Vni(100)));

  const Lum::Ptr<IpPortTable> late = vti->vccIpPortTableIs("late");
  late->ipPortEntryIs(IpPortEntry(key, VniOrNone(Vni(200)), mac("00:00:00:00:00:02")));
  ASSERT_TRUE(col->varpIpMacTable("late"));
  EXPECT_EQ(col->varpIpMacTable("late")->varpIpMacEntry(addr("10.1.1.1")).vni(),
            VniOrNone(Vni(200)));
  late->ipPortEntryDel(key);
  EXPECT_EQ(col->varpIpMacTable("late")->varpIpMacEntrySize(), 0u);

  dir->vxlanStatusIs(Wire::IntfId("Vxlan2"))->vccIpPortTableIs("late");
  dir->vxlanStatusDel(Wire::IntfId("Vxlan1"));
  EXPECT_FALSE(col->varpIpMacTable("early"));
  EXPECT_EQ(early->varpIpMacEntrySize(), 0u) << "the entries go with the table";
  EXPECT_TRUE(col->varpIpMacTable("late")) << "still Vxlan2's";
  dir->vxlanStatusDel(Wire::IntfId("Vxlan2"));
  EXPECT_EQ(col->varpIpMacTableSize(), 0u) << "a gone VTI leaves no stale hosts behind";
}

}  // namespace
}  // namespace Vxlan
