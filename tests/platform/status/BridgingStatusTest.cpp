#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "StatusTestHelpers.h"
#include "platform/status/bridging/BridgingConfig.h"
#include "platform/status/bridging/BridgingHwCapabilities.h"
#include "platform/status/interface/EthIntfStatusDir.h"
#include "platform/types/SwitchportModeAndNativeVlan.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Bridging::SwitchportMode;
using Bridging::SwitchportModeAndNativeVlan;
using Bridging::VlanId;
using StatusTest::mounted;
using StatusTest::watching;
using Wire::IntfId;

// Guards the text of a port's mode and native VLAN: it reads back as the same value,
// unnamed modes survive, and a bad VLAN or shape is refused with the right text.
TEST(BridgingStatusTest, SwitchportModeAndNativeVlanText) {
  const SwitchportModeAndNativeVlan tunnel(SwitchportMode::switchportModeDot1qTunnel, VlanId(10));
  EXPECT_EQ(ValueTest::textOf(tunnel), "2,10");
  EXPECT_EQ(SwitchportModeAndNativeVlan::fromString("2,10"), tunnel);
  EXPECT_TRUE(tunnel.isDot1qTunnel());
  EXPECT_EQ(SwitchportModeAndNativeVlan::fromString("9,1").mode(), static_cast<SwitchportMode>(9));
  EXPECT_EQ(ValueTest::rangeText([] { SwitchportModeAndNativeVlan::fromString("2,4095"); }),
            "VlanId::value < 1 or > 4094 not allowed");
  for (const char* bad : {"2", "2,", ",10", "x,10", "2,10,1", "4294967296,1"}) {
    EXPECT_EQ(ValueTest::rangeText([&] { SwitchportModeAndNativeVlan::fromString(bad); }),
              std::string("SwitchportModeAndNativeVlan: malformed text \"") + bad + "\"");
  }
}

struct PortWatch : Bridging::SwitchIntfConfig::NotifieeConst {
  int changes = 0;
  void onSwitchportModeAndNativeVlan() override { ++changes; }
};

struct ConfigWatch : Bridging::Config::NotifieeConst {
  std::vector<std::string> ports;
  void onSwitchIntfConfig(const IntfId& id) override { ports.push_back(std::string(id.view())); }
};

// Guards the switchport configuration as tunnel tracking reads it: ports come and go
// by text with one notification each, mode and VLAN change in one notification, and
// the bridge MAC and the transmit capability are reachable by text.
TEST(BridgingStatusTest, ConfigAndCapabilitiesByText) {
  auto config = mounted<Bridging::Config>("Bridging::Config");
  ASSERT_TRUE(config);
  auto cw = watching<ConfigWatch>(config);
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(config)};
  ref.entryIs("switchIntfConfig", "Ethernet1", "");
  auto port = config->switchIntfConfig(IntfId("Ethernet1"));
  ASSERT_TRUE(port);
  EXPECT_EQ(port->switchportMode(), SwitchportMode::switchportModeAccess);
  auto pw = watching<PortWatch>(port);
  ref.element("switchIntfConfig", "Ethernet1")->attributeIs("switchportModeAndNativeVlan", "2,20");
  EXPECT_EQ(port->switchportMode(), SwitchportMode::switchportModeDot1qTunnel);
  EXPECT_EQ(port->nativeVlan(), VlanId(20));
  EXPECT_EQ(pw->changes, 1);
  ref.entryDel("switchIntfConfig", "Ethernet1");
  EXPECT_EQ(cw->ports, (std::vector<std::string>{"Ethernet1", "Ethernet1"}));

  ref.attributeIs("bridgeMacAddr", "00:1c:73:01:02:03");
  EXPECT_EQ(config->bridgeMacAddr(), Wire::EthAddr(0x001c, 0x7301, 0x0203));

  auto caps = mounted<Bridging::HwCapabilities>("Bridging::HwCapabilities");
  ASSERT_TRUE(caps);
  EXPECT_FALSE(caps->vxlanTxRawSupported());
  Lum::GenericRef{Lum::Ptr<Lum::Entity>(caps)}.attributeIs("vxlanTxRawSupported", "true");
  EXPECT_TRUE(caps->vxlanTxRawSupported());
}

struct EthWatch : Interface::EthIntfStatus::NotifieeConst {
  int deviceNames = 0;
  void onDeviceName() override { ++deviceNames; }
};

// Guards the Ethernet status directory: its elements are Ethernet statuses whose base
// attributes are reachable by text, and a notifiee of the derived type still hears
// the base's device name, which tunnel tracking watches.
TEST(BridgingStatusTest, EthIntfStatusDirByText) {
  auto dir = mounted<Interface::EthIntfStatusDir>("Interface::EthIntfStatusDir");
  ASSERT_TRUE(dir);
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(dir)};
  ref.entryIs("intfStatus", "Ethernet3", "");
  auto eth = dir->intfStatus(IntfId("Ethernet3"));
  ASSERT_TRUE(eth);
  EXPECT_EQ(eth->fwkType().fullName(), "Interface::EthIntfStatus");
  auto watch = watching<EthWatch>(eth);
  std::optional<Lum::GenericRef> elem = ref.element("intfStatus", "Ethernet3");
  elem->attributeIs("deviceName", "et3");
  elem->attributeIs("operStatus", "1");
  EXPECT_EQ(eth->deviceName(), Lum::String8("et3"));
  EXPECT_EQ(eth->operStatus(), Interface::IntfOperStatus::intfOperUp);
  EXPECT_EQ(watch->deviceNames, 1);
  EXPECT_EQ(ref.keys("intfStatus"), (std::vector<std::string>{"Ethernet3"}));
}

}  // namespace
