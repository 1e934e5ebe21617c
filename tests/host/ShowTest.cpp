// vxrelayctl show against a running host: the answers typed as documented, the reasons
// of a direction most basic first, a missing device named in the text, an unknown VTI
// refused, a stopped host said as such; and the host's warning, once, while a VTI
// waits for a device.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/host/HostProcess.h"

namespace {

using namespace TestSupport;

// Vxlan1 up on a device that does not exist, Vxlan2 down with nothing set.
HostOptions twoVtis(const TempDir& dir) {
  const json vtis = {{"Vxlan1",
                      {{"operStatus", 1},
                       {"localVtepAddr", "10.0.0.1"},
                       {"srcIpIntf", "Loopback0"},
                       {"srcIntfKernelName", "vxr-nodev0"},
                       {"vlanToVniMap", {{"10", 5010}}}}},
                     {"Vxlan2", {{"operStatus", 2}}}};
  const json state = {
      {kVtiPath, {{"vtiStatus", vtis}}},
      {"vxlan/hardware/status",
       {{"bumStatus",
         {{"bumVtepList",
           {{"00:00:00:00:00:00/10", {{"remoteVtepAddr", {{"10.0.0.2", true}}}}}}}}}}}};
  std::ofstream(dir.file("state.json")) << state.dump();
  return {.stateFile = dir.file("state.json")};
}

TEST(Show, TypedAnswersReasonsInOrderAndAStoppedHost) {
  TempDir dir;
  Host host(twoVtis(dir));
  ASSERT_TRUE(host.ready()) << host.child().errors();
  ToolRun r = host.ctl({"show", "-j"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const json out = json::parse(r.out);
  EXPECT_EQ(out["agent"], host.name());
  EXPECT_TRUE(out["time"].is_string());
  EXPECT_EQ(out["running"], true);
  EXPECT_EQ(out["interfaces"]["frameMode"], "batch");
  const json& vtis = out["interfaces"]["vtis"];
  ASSERT_EQ(vtis.size(), 2u) << out.dump(2);
  const json& v1 = vtis[0];
  EXPECT_EQ(v1["name"], "Vxlan1");
  EXPECT_TRUE(v1["operUp"].is_boolean() && v1["operUp"].get<bool>());
  EXPECT_TRUE(v1["udpPort"].is_number_unsigned() && v1["udpPort"] == 4789);
  for (const json& d : v1["devices"]) {
    EXPECT_TRUE(d["exists"].is_boolean() && d["ifindex"].is_number()) << d.dump();
  }
  EXPECT_EQ(v1["devices"][0],
            json({{"name", "vxr-nodev0"}, {"use", "underlay"}, {"exists", false}, {"ifindex", 0}}));
  const json& r2l = v1["remoteToLocal"];
  EXPECT_EQ(r2l["forwarding"], false);
  EXPECT_EQ(r2l["reasons"][0], "waiting for device vxr-nodev0");
  for (const auto& [name, open] : r2l["sockets"].items()) EXPECT_TRUE(open.is_boolean()) << name;
  EXPECT_EQ(r2l["reads"], "");  // sockets closed: nothing to read from
  EXPECT_EQ(v1["vniToVlan"], json::parse(R"([{"vni": 5010, "vlan": 10}])"));
  EXPECT_EQ(v1["floodLists"][0]["vteps"], json({"10.0.0.2"}));
  EXPECT_TRUE(v1["learnedHosts"].is_array());
  // Most basic first: down, then no address, then the device.
  const std::vector<std::string> basic = {"VTI is down", "local VTEP address is 0.0.0.0"};
  for (const char* way : {"remoteToLocal", "localToRemote"}) {
    const auto reasons = vtis[1][way]["reasons"].get<std::vector<std::string>>();
    ASSERT_GE(reasons.size(), 2u) << way;
    EXPECT_EQ(std::vector<std::string>(reasons.begin(), reasons.begin() + 2), basic) << way;
  }
  EXPECT_EQ(vtis[1]["remoteToLocal"]["reasons"][2], "no source interface device");
  const json& arp = out["arp"];
  EXPECT_TRUE(arp["pendingLists"].is_array());
  EXPECT_EQ(arp["vrfs"][0]["name"], "default");
  EXPECT_TRUE(arp["vrfs"][0]["netlinkOpen"].is_boolean());
  EXPECT_TRUE(arp["mlagSync"]["mlagState"].is_number());

  r = host.ctl({"show", "interface", "Vxlan1"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\n    not forwarding: waiting for device vxr-nodev0"), std::string::npos)
      << r.out;
  EXPECT_EQ(r.out.find("Vxlan2"), std::string::npos) << r.out;
  r = host.ctl({"show", "interface", "Nope"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "vxrelayctl: no VTI Nope\n");

  host.child().stop();
  r = host.ctl({"show", "-j"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(json::parse(r.out)["running"], false);
  r = host.ctl({"show", "arp"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "vxrelayctl: agent " + host.name() + " is not running (no answer on " +
                       host.control() + ")\n");
}

// The machines look the device up only once they may open packet sockets (root).
TEST(Show, TheHostWarnsOnceOfADeviceItWaitsFor) {
  if (::geteuid() != 0) GTEST_SKIP() << "packet sockets need root";
  TempDir dir;
  Host host(twoVtis(dir));
  ASSERT_TRUE(host.ready()) << host.child().errors();
  // A new port rebuilds the remote socket, which looks the device up again.
  ASSERT_EQ(host.apply({{kVtiPath, {{"vtiStatus", {{"Vxlan1", {{"udpPort", 4790}}}}}}}}).exitCode,
            0);
  host.child().stop();
  const std::string err = host.child().errors();
  const std::string line = "vxrelay-host: warning: Vxlan1: waiting for device vxr-nodev0\n";
  const size_t at = err.find(line);
  EXPECT_NE(at, std::string::npos) << err;
  EXPECT_EQ(err.find(line, at + 1), std::string::npos) << err;
}

}  // namespace
