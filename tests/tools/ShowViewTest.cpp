// The text of vxrelayctl show: one block per VTI with aligned values, the reasons of a
// direction that does not forward on their own line under it, and virtual ARP in one
// short section.
#include <gtest/gtest.h>

#include "tools/ctl/ShowView.h"

namespace Ctl {
namespace {

using nlohmann::json;

json vti(const std::string& name, bool forwarding, json reasons) {
  json sockets = {{"remote", forwarding}, {"local", true}};
  return {
      {"name", name},
      {"operUp", true},
      {"localVtepAddr", "10.0.0.1"},
      {"srcIpIntf", "Loopback0"},
      {"udpPort", 4789},
      {"devices",
       {{{"name", "vtep0"},
         {"use", "underlay"},
         {"exists", forwarding},
         {"ifindex", forwarding ? 4 : 0}}}},
      {"remoteToLocal", {{"forwarding", forwarding}, {"sockets", sockets}, {"reasons", reasons}}},
      {"localToRemote",
       {{"forwarding", true},
        {"sockets", {{"localHi", true}}},
        {"reads", "ring"},
        {"reasons", json::array()}}},
      {"vniToVlan", {{{"vni", 5010}, {"vlan", 10}}}},
      {"replicationMode", 0},
      {"floodLists",
       {{{"mac", "00:00:00:00:00:00"},
         {"vlan", 10},
         {"sendToAny", false},
         {"vteps", {"10.0.0.2", "10.0.0.3"}}}}},
      {"learnedHosts", json::array()},
      {"multicast", {{"floodGroup", nullptr}, {"joined", json::array()}}}};
}

TEST(ShowViewTest, ABlockPerVtiWithTheReasonsUnderTheDirection) {
  const json show = {
      {"interfaces",
       {{"frameMode", "batch"},
        {"vtis",
         {vti("Vxlan1", true, json::array()),
          vti("Vxlan2", false, {"waiting for device vtep0", "waiting for device txraw"})}}}},
      {"arp",
       {{"pendingLists", {{{"vni", 5010}, {"ip", "10.1.1.9"}, {"timeLeft", 4}, {"macs", {"m"}}}}},
        {"vrfs", {{{"name", "default"}, {"namespace", ""}, {"netlinkOpen", true}}}},
        {"mlagSync", {{"mlagState", 3}, {"vtis", {{{"syncing", true}}}}}},
        {"replication",
         {{{"interfaces", {{{"filterInstalled", true}}, {{"filterInstalled", false}}}}}}}}}};
  const std::string block =
      "  state:              up, VTEP 10.0.0.1, UDP port 4789\n"
      "  source interface:   Loopback0\n";
  const std::string tables =
      "  local-to-remote:    forwarding; sockets open: localHi; reads: ring\n"
      "  VNI to VLAN:        5010->10\n"
      "  replication mode:   0\n"
      "  flood 00:00:00:00:00:00/10: 10.0.0.2 10.0.0.3\n"
      "  multicast:          flood group none, joined none\n";
  EXPECT_EQ(showView(show, true),
            "frame mode: batch\nVxlan1\n" + block +
                "  device vtep0:       underlay, ifindex 4\n"
                "  remote-to-local:    forwarding; sockets open: local remote\n" +
                tables + "Vxlan2\n" + block +
                "  device vtep0:       underlay, missing\n"
                "  remote-to-local:    stopped; sockets open: local\n"
                "    not forwarding: waiting for device vtep0, waiting for device txraw\n" +
                tables +
                "\nARP\n"
                "  pending lists:      1\n"
                "  VRFs:               1\n"
                "  MLAG sync:          primary (3), 1 VTI(s) syncing\n"
                "  reply replication:  1 of 2 interface filter(s) installed\n");
  // In full, each list with its time left; no VTI is said as such.
  const std::string arp = showView({{"arp", show["arp"]}}, false);
  EXPECT_NE(arp.find("  5010/10.1.1.9:      time left 4 s, asked by m\n"), std::string::npos)
      << arp;
  EXPECT_NE(arp.find("  default:            namespace (the agent's), netlink open\n"),
            std::string::npos)
      << arp;
  EXPECT_EQ(showView({{"interfaces", {{"vtis", json::array()}}}}, true), "no VTIs\n");
}

}  // namespace
}  // namespace Ctl
