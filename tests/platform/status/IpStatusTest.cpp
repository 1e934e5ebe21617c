#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "StatusTestHelpers.h"
#include "platform/status/ip/AllVrfStatusLocal.h"
#include "platform/status/ip/IpStatus.h"

namespace {

using StatusTest::mounted;
using StatusTest::watching;
using Wire::IntfId;
using Wire::IpAddrWithMask;

struct IpIntfWatch : Ip::IpIntfStatus::NotifieeConst {
  std::vector<std::string> events;
  void onActiveSecondaryWithMask(const IpAddrWithMask& a) override {
    std::ostringstream os;
    os << a;
    events.push_back(os.str());
  }
  void onActiveVirtualAddrWithMask() override { events.push_back("virtual"); }
};

struct VrfIntfWatch : Ip::Status::NotifieeConst {
  std::vector<std::string> vrfs;
  void onVrfIpIntfStatus(const L3::VrfName& v) override { vrfs.push_back(std::string(v.view())); }
};

// Guards the IP status as the state database fills it: interfaces by text in both
// the flat and the per-VRF collection (distinct entities), secondary addresses as a
// set with per-address notifications, and the virtual address as a plain value.
TEST(IpStatusTest, InterfacesAndAddressesByText) {
  auto status = mounted<Ip::Status>("Ip::Status");
  ASSERT_TRUE(status);
  auto vrfWatch = watching<VrfIntfWatch>(status);
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(status)};
  ref.entryIs("ipIntfStatus", "Vlan10", "");
  std::optional<Lum::GenericRef> intf = ref.element("ipIntfStatus", "Vlan10");
  ASSERT_TRUE(intf);
  auto vlan10 = status->ipIntfStatus(IntfId("Vlan10"));
  ASSERT_TRUE(vlan10);
  EXPECT_EQ(vlan10->intfId(), IntfId("Vlan10"));
  auto watch = watching<IpIntfWatch>(vlan10);

  intf->attributeIs("activeAddrWithMask", "10.0.0.1/24");
  intf->entryIs("activeSecondaryWithMask", "10.1.0.1/24", "");
  intf->entryIs("activeSecondaryWithMask", "10.2.0.1/24", "");
  intf->entryDel("activeSecondaryWithMask", "10.1.0.1/24");
  intf->attributeIs("activeVirtualAddrWithMask", "10.0.0.254/24");
  EXPECT_EQ(vlan10->activeAddrWithMask(), IpAddrWithMask::fromString("10.0.0.1/24"));
  EXPECT_FALSE(vlan10->activeSecondaryWithMask(IpAddrWithMask::fromString("10.1.0.1/24")));
  EXPECT_TRUE(vlan10->activeSecondaryWithMask(IpAddrWithMask::fromString("10.2.0.1/24")));
  EXPECT_EQ(watch->events,
            (std::vector<std::string>{"10.1.0.1/24", "10.2.0.1/24", "10.1.0.1/24", "virtual"}));
  EXPECT_THROW(intf->attributeIs("activeAddrWithMask", "10.0.0.1"), Lum::RangeException);
  intf->attributeIs("vrf", "red");
  EXPECT_EQ(vlan10->vrf(), L3::VrfName("red"));

  ref.entryIs("vrfIpIntfStatus", "red", "");
  ref.element("vrfIpIntfStatus", "red")->entryIs("ipIntfStatus", "Vlan10", "");
  auto inRed = status->vrfIpIntfStatus(L3::VrfName("red"))->ipIntfStatus(IntfId("Vlan10"));
  ASSERT_TRUE(inRed);
  EXPECT_NE(inRed, vlan10) << "the per-VRF entry is an entity of its own";
  EXPECT_EQ(inRed->fullName(), "mnt/red/Vlan10");
  ref.entryDel("vrfIpIntfStatus", "red");
  EXPECT_FALSE(status->vrfIpIntfStatus(L3::VrfName("red")));
  EXPECT_EQ(vrfWatch->vrfs, (std::vector<std::string>{"red", "red"}));
}

struct VrfWatch : Ip::AllVrfStatusLocal::NotifieeConst {
  std::vector<std::string> vrfs;
  void onVrf(const L3::VrfName& v) override { vrfs.push_back(std::string(v.view())); }
};

struct VrfStateWatch : Ip::VrfStatusLocal::NotifieeConst {
  int state = 0;
  int ns = 0;
  void onState() override { ++state; }
  void onNetworkNamespace() override { ++ns; }
};

// Guards the VRF list: VRFs come and go by text with one notification each, and
// state and namespace each notify their own handler, state by its number.
TEST(IpStatusTest, VrfStateAndNamespace) {
  auto all = mounted<Ip::AllVrfStatusLocal>("Ip::AllVrfStatusLocal");
  ASSERT_TRUE(all);
  auto watch = watching<VrfWatch>(all);
  Lum::GenericRef ref{Lum::Ptr<Lum::Entity>(all)};
  ref.entryIs("vrf", "blue", "");
  ref.entryIs("vrf", "blue", "");
  auto blue = all->vrf(L3::VrfName("blue"));
  ASSERT_TRUE(blue);
  auto state = watching<VrfStateWatch>(blue);
  std::optional<Lum::GenericRef> vrf = ref.element("vrf", "blue");
  vrf->attributeIs("state", "1");
  vrf->attributeIs("networkNamespace", "ns-blue");
  vrf->attributeIs("state", "1");
  EXPECT_EQ(blue->state(), Ip::VrfState::vrfActive);
  EXPECT_EQ(blue->networkNamespace(), Wire::NamespaceName("ns-blue"));
  EXPECT_EQ(state->state, 1);
  EXPECT_EQ(state->ns, 1);
  EXPECT_EQ(vrf->attribute("state"), "1");
  EXPECT_THROW(vrf->attributeIs("networkNamespace", std::string(151, 'n')), Lum::RangeException);
  all->vrfDel(L3::VrfName("blue"));
  EXPECT_EQ(watch->vrfs, (std::vector<std::string>{"blue", "blue"}));
}

}  // namespace
