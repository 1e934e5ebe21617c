// Access-port tracking of the local-to-remote machine: tunnel ports by kernel index.
// The VTI stays down: no socket is opened. (The MLAG peer link, its index only while
// MLAG is active: the namespace test of access ports.)
#include <gtest/gtest.h>

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
// the frame path), completed when the device appears (and made again under another
// index: the namespace test), renamed with its status, and gone both when its mode
// changes and when its configuration is deleted. Sub-interfaces are never tracked.
// A port channel takes its bond's name.
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

}  // namespace
}  // namespace Vxlan
