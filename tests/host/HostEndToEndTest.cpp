// The agent host and the operator tool, run as programs the way a user runs them:
// vxrelay-host as a child with the example state file, its own control socket and its
// own counter table; vxrelayctl as a child for every operation, judged by its exit
// status and output. Each host is killed, and its folder and counter table removed,
// when its test ends, also when the test fails.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <sys/socket.h>
#include <sys/un.h>

#include <thread>

#include "agent/CounterTableReader.h"
#include "agent/VxlanAgentCounter.h"
#include "tests/host/HostProcess.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace {

using nlohmann::json;
using namespace TestSupport;

bool allZero(const auto& readings) {
  return std::ranges::all_of(readings, [](const auto& r) { return r.count == 0; });
}

// Guards a running host end to end: it takes its state file, its control socket
// answers, a change applied through the tool reads back, a change request with a
// refused part is taken not at all and names the path, and SIGTERM ends the host with
// status 0 and without its socket left behind. (A live socket is not taken over: the
// control server's test.)
TEST(HostEndToEnd, RunningHostAppliesGetsAndEndsOnSigterm) {
  Host host;
  ASSERT_TRUE(host.ready()) << host.child().errors();

  const json vti = host.stateOf(kVtiPath);
  ASSERT_TRUE(vti.contains("vtiStatus")) << vti.dump();
  const json& vxlan1 = vti["vtiStatus"]["Vxlan1"];
  EXPECT_EQ(vxlan1["udpPort"], 4789);
  EXPECT_EQ(vxlan1["vlanToVniMap"], json({{"10", 5010}, {"20", 5020}}));

  // A valid change beside the refused one: a request taken piecemeal shows in the get.
  ToolRun r = host.apply(
      {{kVtiPath, {{"vtiStatus", {{"Vxlan1", {{"udpPort", 4790}, {"noSuchAttribute", 1}}}}}}}});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_EQ(r.err.rfind("vxrelayctl: ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find("interface/status/eth/vxlan/vtiStatus/Vxlan1/noSuchAttribute"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(host.stateOf(kVtiPath), vti);

  r = host.apply({{kVtiPath, {{"vtiStatus", {{"Vxlan1", {{"udpPort", 4790}}}}}}}});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const json changed = host.stateOf(kVtiPath)["vtiStatus"]["Vxlan1"];
  EXPECT_EQ(changed["udpPort"], 4790);
  EXPECT_EQ(changed["vlanToVniMap"], vxlan1["vlanToVniMap"]);
  // The example file, comments and all, applies to a running host as it starts one.
  r = host.ctl({"state", "apply", std::string(VXRELAY_EXAMPLES) + "/switch.json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(host.stateOf(kVtiPath)["vtiStatus"]["Vxlan1"]["udpPort"], 4789);

  ASSERT_EQ(::kill(host.child().pid(), SIGTERM), 0);
  const std::optional<int> status = host.child().exitWithin(kExitBound);
  ASSERT_TRUE(status) << "still running after SIGTERM";
  ASSERT_TRUE(WIFEXITED(*status)) << "wait status " << *status;
  EXPECT_EQ(WEXITSTATUS(*status), 0) << host.child().errors();
  EXPECT_FALSE(std::filesystem::exists(host.control()));
}

// Guards against a counter table that other programs cannot find or read, a clear
// that does not reach the host or reaches the other table, and JSON output that loses
// counts. (The words of each table's clear, and every id cleared: the agent's command
// test.)
TEST(HostEndToEnd, CounterTableIsSharedAndClearedOneTableAtATime) {
  Host host;
  ASSERT_TRUE(host.ready()) << host.child().errors();
  // A second mapping of the agent's table, writing as the frame paths would. Naming the
  // type through kTableType also links in its registration.
  LumMemtab::Mount writerMount(host.name());
  writerMount.doMount(Vxlan::kCounterTablePath, Vxlan::VxlanAgentCounter::kTableType.typeName,
                      Vxlan::counterMountInfo());
  auto writer =
      Lum::ptrCast<Vxlan::VxlanAgentCounter>(writerMount.getEntity(Vxlan::kCounterTablePath));
  ASSERT_TRUE(writer);
  writer->vxlanCounterIs({Vxlan::VxlanCounterId(12), 1012});
  writer->varpCounterIs({Vxlan::VarpCounterId(7), 2007});

  const ToolRun asJson = host.ctl({"counters", "--json"});
  ASSERT_EQ(asJson.exitCode, 0) << asJson.err;
  const json counters = json::parse(asJson.out);
  ASSERT_EQ(counters["vxlanCounter"].size(), Vxlan::kVxlanCounterIds);
  ASSERT_EQ(counters["varpCounter"].size(), Vxlan::kVarpCounterIds);
  EXPECT_EQ(counters["vxlanCounter"][12]["count"], 1012);
  EXPECT_EQ(counters["varpCounter"][7]["count"], 2007);

  const ToolRun r = host.ctl({"clear", "vxlan"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Vxlan::CounterTableReader reader(host.name());
  EXPECT_TRUE(eventually([&] { return allZero(reader.counts().vxlan); }, kStartBound));
  EXPECT_EQ(reader.counts().varp[7].count, 2007u);
}

// Guards the tool's watch mode against frames the host really reads (its remote socket
// in test mode): JSON behind the agent's envelope, then, every interval until
// interrupted, what moved since the interval before, with its rate.
TEST(HostEndToEnd, CountersFollowAStreamOfFrames) {
  Host host(HostOptions{.env = {"VXLAN_R2L_TEST=1"}});
  ASSERT_TRUE(host.ready()) << host.child().errors();
  const json asJson = json::parse(host.ctl({"counters", "-j"}).out);
  EXPECT_EQ(asJson["agent"], host.name());
  EXPECT_EQ(asJson["running"], true);
  EXPECT_TRUE(asJson["time"].is_string());

  // The host's remote socket in test mode: a Unix path named by its process id, in its
  // working folder, which is ours.
  sockaddr_un in{.sun_family = AF_UNIX};
  const std::string path = "./VxlanR2LSM-inbound-" + std::to_string(host.child().pid());
  path.copy(in.sun_path, sizeof in.sun_path - 1);
  struct Unlink {
    std::string path;
    ~Unlink() { ::unlink(path.c_str()); }
  } leftBehind{path};
  const int s = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  const std::vector<uint8_t> frame = VxlanFrameBuilder{.vni = 5010}.build();
  auto send = [&] {
    return ::sendto(s, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&in), sizeof in);
  };
  ASSERT_TRUE(eventually([&] { return send() > 0; }, kStartBound)) << path;

  TempDir dir("vxr-watch");
  ChildProcess watch({VXRELAY_CTL, "--agent", host.name(), "--control", host.control(), "counters",
                      "--interval", "0.25"},
                     dir.file("out"), kChildEnv);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1200);
  while (std::chrono::steady_clock::now() < end) {
    send();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  watch.stop();
  ::close(s);
  host.child().stop();
  EXPECT_FALSE(std::filesystem::exists(path)) << "the path goes with its socket";
  const std::string out = watch.output();
  // The totals, then what moved in each interval (at least three in 1.2 s), the frames
  // among it.
  const auto times = [&out](const std::string& text) {
    size_t n = 0;
    for (size_t at = out.find(text); at != std::string::npos; at = out.find(text, at + 1)) ++n;
    return n;
  };
  EXPECT_GE(times("bytes   (per second)\n"), 3u) << out;
  EXPECT_GE(times("\n  r2lRx "), 3u) << out;
}

// Guards against a state file whose fault is found late, reported in several lines or
// not named at all, or that leaves a counter table behind; and against what is no
// file at all: a FIFO blocked the host before its socket was up. (A directory or a
// device, refused by the same check: the state document test.)
TEST(HostEndToEnd, BadStateFileEndsTheHostWithOneLine) {
  TempDir files;
  const std::string late = files.file("state.json"), fifo = files.file("fifo");
  std::ofstream(late)
      << R"({"interface/status/eth/vxlan": {"vtiStatus": {"Vxlan1": {"udpPort": 70000}}}})";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::pair<std::string, std::string> cases[] = {
      {late, "interface/status/eth/vxlan/vtiStatus/Vxlan1/udpPort: value 70000 out of range"},
      {fifo, "a FIFO, not a state file"}};
  for (const auto& [file, named] : cases) {
    Host host({.stateFile = file});
    const std::string err = refusalLine(host.child());
    EXPECT_NE(err.find(named), std::string::npos) << err;
    EXPECT_FALSE(std::filesystem::exists("/dev/shm" + host.counterObject()));
  }
}

}  // namespace
