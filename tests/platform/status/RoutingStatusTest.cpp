#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "StatusTestHelpers.h"
#include "platform/status/routing/FhrpStatusV4.h"
#include "platform/status/routing/IgmpApplicationConfig.h"
#include "platform/status/routing/PimApplicationConfig.h"
#include "platform/status/routing/VirtualRouterMacStatus.h"
#include "platform/types/SourceGroup.h"
#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Routing::Igmp::SourceGroup;
using StatusTest::mounted;
using StatusTest::watching;
using Wire::IntfId;
using Wire::IpAddr;

// Guards the text key of IGMP memberships: what the state files write must read back
// as the same membership, and half a pair must not pass as "any source".
TEST(RoutingStatusTest, SourceGroupText) {
  const SourceGroup sg = SourceGroup::anySource(IpAddr::fromString("239.1.2.3"));
  EXPECT_EQ(ValueTest::textOf(sg), "0.0.0.0,239.1.2.3");
  EXPECT_EQ(SourceGroup::fromString("0.0.0.0,239.1.2.3"), sg);
  EXPECT_TRUE(sg.isAnySource());
  const SourceGroup ssm = SourceGroup::fromString("10.0.0.1,232.0.0.1");
  EXPECT_EQ(ssm.source(), IpAddr::fromString("10.0.0.1"));
  EXPECT_LT(sg, ssm) << "any source sorts first";
  for (const char* bad : {"239.1.2.3", ",239.1.2.3", "0.0.0.0,", "1.1.1.1,2.2.2.2,3.3.3.3"}) {
    EXPECT_EQ(ValueTest::rangeText([&] { SourceGroup::fromString(bad); }),
              std::string("SourceGroup: malformed text \"") + bad + "\"");
  }
}

struct FhrpWatch : Routing::Fhrp::VirtualRouterStatusV4::NotifieeConst {
  std::vector<std::string> addrs;
  void onIpAddrs(IpAddr a) override { addrs.push_back(ValueTest::textOf(a)); }
};

// Guards the three-level virtual router status: each level is reachable by text as
// the state database fills it, the shared-router lookup finds only flagged addresses
// of router 256 on that interface, and VrId 0 is refused as an empty key.
TEST(RoutingStatusTest, FhrpStatusThroughGenericInterface) {
  auto status = mounted<Routing::Fhrp::StatusV4>("Routing::Fhrp::StatusV4");
  ASSERT_TRUE(status);
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(status)};
  ref.entryIs("intfStatus", "Vlan10", "");
  std::optional<Lum::GenericRef> intf = ref.element("intfStatus", "Vlan10");
  ASSERT_TRUE(intf);
  intf->entryIs("vrStatus", "256", "");
  intf->entryIs("vrStatus", "7", "");
  EXPECT_EQ(intf->keys("vrStatus"), (std::vector<std::string>{"7", "256"}));
  EXPECT_THROW(intf->entryIs("vrStatus", "0", ""), Lum::RangeException);

  auto vr = status->intfStatus(IntfId("Vlan10"))->vrStatus(Routing::Fhrp::kSharedVirtualRouterVrId);
  ASSERT_TRUE(vr);
  EXPECT_EQ(vr->fullName(), "mnt/Vlan10/256");
  auto watch = watching<FhrpWatch>(vr);
  intf->element("vrStatus", "256")->entryIs("ipAddrs", "10.0.0.254", "true");
  intf->element("vrStatus", "256")->entryIs("ipAddrs", "10.0.0.253", "false");
  intf->element("vrStatus", "7")->entryIs("ipAddrs", "10.0.0.252", "true");
  EXPECT_EQ(watch->addrs, (std::vector<std::string>{"10.0.0.254", "10.0.0.253"}));

  EXPECT_TRUE(status->isSharedVirtualAddr(IntfId("Vlan10"), IpAddr::fromString("10.0.0.254")));
  EXPECT_FALSE(status->isSharedVirtualAddr(IntfId("Vlan10"), IpAddr::fromString("10.0.0.253")));
  EXPECT_FALSE(status->isSharedVirtualAddr(IntfId("Vlan10"), IpAddr::fromString("10.0.0.252")));
  EXPECT_FALSE(status->isSharedVirtualAddr(IntfId("Vlan20"), IpAddr::fromString("10.0.0.254")));

  auto mac =
      mounted<Routing::Fhrp::VirtualRouterMacStatus>("Routing::Fhrp::VirtualRouterMacStatus");
  ASSERT_TRUE(mac);
  Lum::GenericRef macRef{Lum::Ptr<Lum::Entity>(mac)};
  EXPECT_TRUE(mac->varpVirtualMac().isZero());
  macRef.attributeIs("varpVirtualMac", "00:1c:73:00:00:99");
  EXPECT_EQ(mac->varpVirtualMac(), Wire::EthAddr(0x001c, 0x7300, 0x0099));
}

struct IgmpWatch : Routing::Igmp::Application::Config::NotifieeConst {
  std::vector<std::string> events;
  void onIntfConfig(const IntfId& id) override { events.push_back(std::string(id.view())); }
  void onIntfConfig() override { events.push_back("*"); }
};

struct GroupWatch : Routing::Igmp::Application::IntfConfig::NotifieeConst {
  std::vector<std::string> groups;
  void onGroup(SourceGroup sg) override { groups.push_back(ValueTest::textOf(sg)); }
};

// Guards the join and leave sequence the agent writes: finding an existing interface
// entry keeps its groups and does not notify again, group changes notify per
// membership, and clearing everything is one whole-collection notification.
TEST(RoutingStatusTest, IgmpMembershipsAndNotifications) {
  using Routing::Igmp::Application::Config;
  auto config = mounted<Config>("Routing::Igmp::Application::Config");
  ASSERT_TRUE(config);
  auto watch = watching<IgmpWatch>(config);

  const IntfId intf("Vlan10");
  const SourceGroup g1 = SourceGroup::anySource(IpAddr::fromString("239.0.0.1"));
  const SourceGroup g2 = SourceGroup::anySource(IpAddr::fromString("239.0.0.2"));
  auto entry = config->intfConfigIs(intf);
  auto groups = watching<GroupWatch>(entry);
  entry->groupIs(g1, true);
  EXPECT_EQ(config->intfConfigIs(intf), entry);
  config->intfConfigIs(intf)->groupIs(g2, true);
  entry->groupIs(g2, true);  // unchanged: no notification
  EXPECT_EQ(groups->groups, (std::vector<std::string>{"0.0.0.0,239.0.0.1", "0.0.0.0,239.0.0.2"}));
  EXPECT_EQ(watch->events, (std::vector<std::string>{"Vlan10"}));

  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(config)};
  EXPECT_EQ(ref.element("intfConfig", "Vlan10")->keys("group"),
            (std::vector<std::string>{"0.0.0.0,239.0.0.1", "0.0.0.0,239.0.0.2"}));
  ref.element("intfConfig", "Vlan10")->entryDel("group", "0.0.0.0,239.0.0.1");
  EXPECT_FALSE(entry->group(g1));
  EXPECT_TRUE(entry->group(g2));

  config->intfConfigIs(IntfId("Vlan20"));
  config->intfConfigDelAll();
  EXPECT_EQ(watch->events, (std::vector<std::string>{"Vlan10", "Vlan20", "*"}));
  EXPECT_FALSE(config->intfConfig(intf));
  config->intfConfigDelAll();
  EXPECT_EQ(watch->events.size(), 3u) << "clearing an empty configuration notifies nothing";
}

struct PimWatch : Routing::Pim::Application::Config::NotifieeConst {
  std::vector<std::string> events;
  void onIntfMode(const Lum::Name& n) override { events.push_back(std::string(n.view())); }
  void onIntfMode() override { events.push_back("*"); }
};

// Guards the PIM mode map: a missing interface reads as no mode (the agent tests
// presence before it writes), modes travel as numbers, and clearing notifies once.
TEST(RoutingStatusTest, PimModesAndNotifications) {
  using Routing::Pim::Mode;
  auto config = mounted<Routing::Pim::Application::Config>("Routing::Pim::Application::Config");
  ASSERT_TRUE(config);
  auto watch = watching<PimWatch>(config);
  EXPECT_EQ(config->intfMode("Vlan10"), Mode::pimModeNone);
  config->intfModeIs("Vlan10", Mode::pimModeSparse);
  config->intfModeIs("Vlan10", Mode::pimModeSparse);  // unchanged: no notification
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(config)};
  EXPECT_EQ(ref.entry("intfMode", "Vlan10"), "1");
  ref.entryIs("intfMode", "Vlan20", "1");
  EXPECT_EQ(config->intfMode("Vlan20"), Mode::pimModeSparse);
  config->intfModeDel("Vlan10");
  config->intfModeDelAll();
  EXPECT_EQ(watch->events, (std::vector<std::string>{"Vlan10", "Vlan20", "Vlan10", "*"}));
  EXPECT_TRUE(config->intfMode().empty());
}

}  // namespace
