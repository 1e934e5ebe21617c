// vxrelayctl trace packet against a running host on the example state: the JSON
// answer for a datagram that the state forwards, by keys and types and the exact frame
// that would leave, with no counter moved; the same frame taken from a capture file;
// a HEX that is not hex is a usage error.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/host/HostProcess.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace {

using namespace TestSupport;

// A pcap file (microsecond stamps, Ethernet) holding `frames`.
void writePcap(const std::string& file, const std::vector<std::vector<uint8_t>>& frames) {
  std::ofstream out(file, std::ios::binary);
  const auto put32 = [&out](uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  put32(0xa1b2c3d4);
  put32(0x00040002);  // version 2.4
  put32(0);
  put32(0);
  put32(65535);
  put32(1);  // Ethernet
  for (const auto& f : frames) {
    for (uint32_t v : {0u, 0u, uint32_t(f.size()), uint32_t(f.size())}) put32(v);
    out.write(reinterpret_cast<const char*>(f.data()), static_cast<std::streamsize>(f.size()));
  }
}

TEST(TracePacket, AnswersWithoutMovingACounterAndRefusesBadHex) {
  Host host;
  ASSERT_TRUE(host.ready()) << host.child().errors();
  VxlanFrameBuilder b;
  b.vni = 5010;  // VLAN 10 in the example state
  const std::string hex = hexOf(b.build());
  const auto counters = [&host] { return json::parse(host.ctl({"counters", "-j"}).out); };
  const json before = counters();

  // As an operator pastes it: a 0x in front, colons and spaces between.
  ToolRun r = host.ctl(
      {"trace", "packet", "-j", "0x" + hex.substr(0, 2) + ":" + hex.substr(2, 4), hex.substr(6)});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const json a = json::parse(r.out);
  EXPECT_EQ(a["agent"], host.name());
  EXPECT_EQ(a["direction"], "r2l");
  EXPECT_EQ(a["verdict"], "forwarded");
  EXPECT_EQ(a["counter"], "r2lTxFrames");
  EXPECT_EQ(a["vni"], 5010);
  EXPECT_EQ(a["vlan"], 10);
  ASSERT_TRUE(a["steps"].is_array() && a["steps"].size() >= 5) << a.dump();
  for (const json& s : a["steps"]) {
    EXPECT_TRUE(s["check"].is_string() && s["passed"].is_boolean() && s["text"].is_string());
  }
  ASSERT_EQ(a["output"].size(), 1u);
  const auto frame = txRawFrame(b.inner, Bridging::VlanId(10), Vxlan::HwPortId(16));
  EXPECT_EQ(a["output"][0]["length"], frame.size());
  EXPECT_EQ(a["output"][0]["hex"], hexOf(frame));

  b.vni = 77;
  TempDir dir;
  writePcap(dir.file("in.pcap"), {b.build(), VxlanFrameBuilder{.vni = 5010}.build()});
  r = host.ctl({"trace", "packet", "--pcap", dir.file("in.pcap")});
  EXPECT_NE(r.out.find("verdict: dropped (r2lUnknownVlan: no VLAN for VNI 77)\n"),
            std::string::npos)
      << r.out;
  r = host.ctl({"trace", "packet", "-j", "--pcap", dir.file("in.pcap"), "--index", "2"});
  EXPECT_EQ(json::parse(r.out)["output"][0]["hex"], hexOf(frame)) << r.out;
  EXPECT_EQ(counters()["vxlanCounter"], before["vxlanCounter"]);

  r = host.ctl({"trace", "packet", "00:1g"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err.substr(0, r.err.find('\n')), "vxrelayctl: HEX: 'g' at 5 is not a hex digit");
}

}  // namespace
