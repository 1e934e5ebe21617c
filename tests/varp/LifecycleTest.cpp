#include <gtest/gtest.h>

#include "tests/varp/VarpFixture.h"

namespace Vxlan {
namespace {

class LifecycleTest : public VarpFixture {
 protected:
  void vxlanDeviceIs(bool present) {
    if (present) {
      kernel_.devices["vxlan"] = 9;
      kni_->interfaceIs(device(9, "vxlan"));
    } else {
      kernel_.devices.erase("vxlan");
      kni_->interfaceDel(Wire::IfIndex(9));
    }
  }
  void operIs(bool up) {
    vtiStatus().operStatusIs(up ? Interface::IntfOperStatus::intfOperUp
                                : Interface::IntfOperStatus::intfOperDown);
  }
  bool pamsOpen() const {
    return vti_->vxlanArpRxPam()->enabled() && vti_->rawTxPam()->enabled() &&
           vti_->udpPam()->mode() == 1;
  }
};

// The PAMs open while the VTI is up and close when it goes down; the receive PAM
// waits for "vxlan" when it is missing, opens when it comes back while the VTI is up,
// and not while the VTI is down.
TEST_F(LifecycleTest, PamsFollowTheVtiAndTheVxlanDevice) {
  EXPECT_FALSE(vti_->vxlanArpRxPam()->enabled()) << "no vxlan device yet";
  vxlanDeviceIs(true);
  EXPECT_TRUE(pamsOpen());
  operIs(false);
  EXPECT_FALSE(vti_->vxlanArpRxPam()->enabled() || vti_->rawTxPam()->enabled());
  EXPECT_EQ(vti_->udpPam()->mode(), 0);
  operIs(true);
  EXPECT_TRUE(pamsOpen());
  vxlanDeviceIs(false);
  EXPECT_FALSE(vti_->vxlanArpRxPam()->enabled());
  vxlanDeviceIs(true);
  EXPECT_TRUE(vti_->vxlanArpRxPam()->enabled());
  operIs(false);
  vxlanDeviceIs(false);
  vxlanDeviceIs(true);
  EXPECT_FALSE(vti_->vxlanArpRxPam()->enabled());
  // Replies go to the VTI's UDP port, 4789 when it has none.
  vtiStatus().udpPortIs(4790);
  EXPECT_EQ(vti_->udpPam()->txPort(), 4790);
  vtiStatus().udpPortIs(0);
  EXPECT_EQ(vti_->udpPam()->txPort(), 4789);
  vtis_->vtiStatusDel(Wire::IntfId("Vxlan1"));
  EXPECT_FALSE(sm_->vtiStatusSm(Wire::IntfId("Vxlan1")));
}

// The sync channel is up, to the peer's address, while MLAG is active with a peer link.
TEST_F(LifecycleTest, SyncChannelFollowsTheMlagState) {
  mlagConfig_->peerAddressIs(ip("10.0.0.60"));
  mlag_->peerLinkIntfIs(Wire::IntfId("Port-Channel10"));
  mlag_->mlagStateIs(Mlag::MlagState::mlagStateSecondary);
  EXPECT_EQ(vti_->arpSyncUdpPam()->mode(), 3);
  EXPECT_EQ(vti_->arpSyncUdpPam()->txDstIpAddr(), ip("10.0.0.60"));
  mlag_->peerLinkIntfIs(Wire::IntfId());
  EXPECT_EQ(vti_->arpSyncUdpPam()->mode(), 0);
  mlag_->peerLinkIntfIs(Wire::IntfId("Port-Channel10"));
  mlag_->mlagStateIs(Mlag::MlagState::mlagStateInactive);
  EXPECT_EQ(vti_->arpSyncUdpPam()->mode(), 0);
}

}  // namespace
}  // namespace Vxlan
