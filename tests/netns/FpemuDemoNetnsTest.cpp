// The demo topology (scripts/demo.sh --keep) with each far side, and with an MLAG pair
// facing the kernel's: ping both ways without loss, 1 MB over TCP intact, the counters
// of the emulator, the agent and the far VTEP in agreement, ARP from the overlay
// answered or handed on and every trapped ARP counted as one outcome, what switch 1
// learns at its MLAG peer, a tagged frame through a trunk port, and nothing left once
// it is stopped. Needs root; skipped without.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "agent/CounterTableReader.h"
#include "tests/netns/PacketSocket.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Shell.h"
#include "tools/fpemu/FpCounters.h"

namespace TestSupport {
namespace {

using namespace std::chrono_literals;
using Counts = std::map<std::string, uint64_t>;

const std::string kDemo = std::string("VXRELAY_BIN=") + VXRELAY_BIN + " " + VXRELAY_DEMO;

class FpemuDemoNetnsTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "network namespaces need root; CI runs these as root";
    kernel_ = std::string(GetParam()) != "vxrelay";
    mlag_ = std::string(GetParam()) == "mlag";
    tag_ = "vxdt" + std::to_string(::getpid()) + GetParam();
    work_ = "/tmp/vxrelay-demo-" + tag_;
  }
  void TearDown() override {
    if (!tag_.empty()) run(kDemo + " --stop " + tag_);
  }

  std::string in(const std::string& ns, const std::string& command) const {
    return "ip netns exec " + tag_ + "-" + ns + " " + command;
  }
  std::string agent(int i) const { return "demo-" + tag_ + "-" + std::to_string(i); }
  std::map<std::string, pid_t> pids() const {
    std::map<std::string, pid_t> p;
    std::ifstream f(work_ + "/pids");
    for (std::string name; f >> name;) f >> p[name];
    return p;
  }
  std::string log(int i) const { return fileText(work_ + "/fpemu-" + std::to_string(i) + ".log"); }
  // Switch i's counters: the emulator's (printed into its log on SIGUSR1) by name, the
  // agent's as "agent.<name>"; on the kernel side the far VTEP's as "vx0.rx" and "vx0.tx".
  Counts counters(int i) const {
    const size_t before = log(i).rfind("counters\n");
    ::kill(pids().at("fpemu-" + std::to_string(i)), SIGUSR1);
    Counts c;
    for (int tries = 0; tries < 100 && c.size() < Fpemu::Counters::kCount; ++tries) {
      std::this_thread::sleep_for(20ms);
      const std::string text = log(i);
      const size_t at = text.rfind("counters\n");
      if (at == std::string::npos || at == before) continue;
      std::istringstream rows(text.substr(at + 9));
      c.clear();
      for (std::string name; rows >> name;) rows >> c[name];
    }
    const auto tables = Vxlan::CounterTableReader(agent(i)).counts();
    for (const auto& r : tables.vxlan) c["agent." + std::string(r.name)] = r.count;
    for (const auto& r : tables.varp) c["varp." + std::string(r.name)] = r.count;
    // What the kernel dropped for want of room in the agent's sockets on "vxlan".
    c["vxlanSocketDrops"] =
        std::stoull(run(in("sw" + std::to_string(i),
                           "ss -0 -m -p | awk '/[*]:vxlan / && /vxrelay-host/ "
                           "{match($0, /,d[0-9]+[)]/); n += substr($0, RSTART + 2, RLENGTH - 3)} "
                           "END {print n + 0}'"))
                        .second);
    if (kernel_) {
      std::istringstream vx0(run(in("vtep",
                                    "cat /sys/class/net/vx0/statistics/rx_packets "
                                    "/sys/class/net/vx0/statistics/tx_packets"))
                                 .second);
      vx0 >> c["vx0.rx"] >> c["vx0.tx"];
    }
    return c;
  }
  static Counts delta(Counts after, const Counts& before) {
    for (auto& [name, n] : after) n -= before.count(name) ? before.at(name) : 0;
    return after;
  }
  static bool running(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string state;
    return stat >> state >> state >> state && state != "Z";
  }

  bool kernel_ = true;
  bool mlag_ = false;
  std::string tag_;
  std::string work_;
};

TEST_P(FpemuDemoNetnsTest, TrafficBothWaysArrivesAndEveryCounterAgrees) {
  const int switches = kernel_ ? 1 : 2;
  const std::string variant = mlag_ ? " --mlag" : std::string(" --peer ") + GetParam();
  const auto [rc, out] = run(kDemo + " --keep" + variant + " --tag " + tag_);
  ASSERT_EQ(rc, 0) << out;
  // Virtual ARP answered host-b's ARP for the virtual router address (virtual MAC) and
  // for the SVI's address (bridge MAC) from inside the overlay, and learnt host-b on the
  // switch's SVI.
  EXPECT_NE(out.find("host-b:   192.168.50.254 dev eth0 lladdr 00:00:5e:00:01:01"),
            std::string::npos)
      << out;
  if (kernel_) {
    EXPECT_NE(out.find("host-b:   192.168.50.253 dev eth0 lladdr 00:1c:73:00:00:01"),
              std::string::npos)
        << out;
  }
  const std::string learnt = run(in("sw1", "ip neigh show 192.168.50.2 dev vlan10")).second;
  EXPECT_NE(learnt.find("lladdr"), std::string::npos) << learnt;
  if (mlag_) {
    // The kernel's VTEP sends to switch 1 only: its MLAG peer knows host-b from it.
    const std::string mac = learnt.substr(learnt.find("lladdr"), 24);
    const std::string synced = run(in("sw2", "ip neigh show 192.168.50.2 dev vlan10")).second;
    EXPECT_NE(synced.find(mac), std::string::npos) << synced;
    EXPECT_GT(counters(2)["varp.arpSyncNeighborAdded"], 0u);
  }

  // host-b, its neighbors forgotten, asks again: for the virtual router address
  // (answered from the overlay) and for host-a (handed on through "txraw", and host-a
  // answers). Each ARP that switch 1's forwarding plane trapped was read as well-formed
  // ARP and became one outcome: answered (one reply each: the flood list holds only the
  // far VTEP), handed on or replicated. (The fourth, a reply for the switch itself that
  // is only learnt, needs ARP from the switch's own kernel, which sends none here.)
  const Counts beforeArp = counters(1);
  run(in("b", "ip neigh flush dev eth0"));
  run(in("b", "ping -c 1 -W 1 192.168.50.254"));
  const std::string handedOn = run(in("b", "ping -c 3 -i 0.2 -W 2 192.168.50.1")).second;
  EXPECT_NE(handedOn.find(" 0% packet loss"), std::string::npos) << handedOn;
  std::this_thread::sleep_for(200ms);
  Counts arp = delta(counters(1), beforeArp);
  EXPECT_GT(arp["varp.decapTxPkts"], 0u);
  EXPECT_GT(arp["overlayArpTrapped"], 0u);
  EXPECT_EQ(arp["overlayArpTrapped"], arp["varp.vxlanArpRx"]);
  EXPECT_EQ(arp["varp.vxlanArpRx"], arp["varp.arpReplyFloodTx"] + arp["varp.arpReplyUnicastTx"] +
                                        arp["varp.decapTxPkts"] + arp["varp.decapTxErrors"] +
                                        arp["varp.varpVtepReplyRx"]);
  const std::map<std::string, pid_t> started = pids();
  std::vector<Counts> before;
  for (int i = 1; i <= switches; ++i) before.push_back(counters(i));

  for (const auto& [from, to] : {std::pair{"a", "192.168.50.2"}, std::pair{"b", "192.168.50.1"}}) {
    const std::string ping = run(in(from, std::string("ping -q -c 20 -i 0.05 -W 2 ") + to)).second;
    EXPECT_NE(ping.find(" 0% packet loss"), std::string::npos) << ping;
  }
  const auto [trc, transfer] =
      run("cd " + work_ + " && head -c 1048576 /dev/urandom >big && (" +
          in("b", "socat -u TCP-LISTEN:5002,reuseaddr OPEN:big.rx,creat,trunc") + " & l=$!; " +
          "for i in $(seq 50); do " + in("b", "ss -ltn") +
          " | grep -q :5002 && break; sleep 0.1; done; " +
          in("a", "timeout 20 socat -u OPEN:big TCP:192.168.50.2:5002") + "; wait $l) && " +
          "sha256sum <big && sha256sum <big.rx");
  ASSERT_EQ(trc, 0) << transfer;
  EXPECT_EQ(transfer.substr(0, 64), transfer.substr(transfer.find('\n') + 1, 64));

  // Over this traffic, each switch: the emulator handed the agent every frame for a
  // remote; the agent read every local frame the emulator wrote (but those the kernel
  // dropped when the agent's socket was full, which the transfer's bursts cause); the
  // emulator read every frame the agent wrote on "txraw". The far side got all of it.
  // (Each side's own books: the emulator's fuzz target, the agent's namespace tests.)
  std::this_thread::sleep_for(300ms);
  std::vector<Counts> d;
  for (int i = 1; i <= switches; ++i) {
    SCOPED_TRACE("switch " + std::to_string(i));
    d.push_back(delta(counters(i), before[static_cast<size_t>(i - 1)]));
    Counts& e = d.back();
    // Besides the local frames, the emulator hands the agent the ARP it traps from the
    // overlay; on "txraw" come the agent's decapsulated frames and virtual ARP's.
    const uint64_t local = e["agentTxFrames"] - e["overlayArpTrapped"];
    EXPECT_EQ(local, e["portRemoteFrames"] + e["portFloodFrames"]);
    // The frames a full receive ring lost are in the kernel's drops and, as received and
    // read errors, in the agent's counts.
    EXPECT_EQ(local, e["agent.l2rRxFrames"] - e["agent.l2rReadErrors"] + e["vxlanSocketDrops"]);
    EXPECT_EQ(e["txRawRxFrames"], e["agent.r2lTxFrames"] + e["varp.decapTxPkts"]);
    EXPECT_EQ(e["sendErrors"] + e["readErrors"], 0u);
  }
  const Counts& far =
      kernel_ ? Counts{{"agent.r2lTxFrames", d[0]["vx0.rx"]}, {"agent.l2rTxFrames", d[0]["vx0.tx"]}}
              : d[1];
  EXPECT_EQ(d[0]["agent.l2rTxFrames"], far.at("agent.r2lTxFrames"));
  EXPECT_EQ(d[0]["agent.r2lTxFrames"], far.at("agent.l2rTxFrames"));

  if (!kernel_) {
    // A tagged frame into switch 2's trunk port (the kernel hands it over with the tag in
    // its metadata) reaches host-b on the access port and host-a through both agents,
    // untagged.
    Frame tagged = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0,    0,
                    0,    0x77, 0x01, 0x81, 0x00, 0x00, 10,   0x88, 0xb5};
    tagged.resize(64, 0x5a);
    Frame plain = tagged;
    plain.erase(plain.begin() + 12, plain.begin() + 16);
    PacketSocket hostA(tag_ + "-a", "eth0", PacketSocket::Mode::capture);
    PacketSocket hostB(tag_ + "-b", "eth0", PacketSocket::Mode::capture);
    PacketSocket(tag_ + "-sw2", "tr-p", PacketSocket::Mode::sendOnly).send(tagged);
    const auto same = [&plain](const Frame& f) { return f == plain; };
    EXPECT_TRUE(hostB.receive(same, 3s).has_value());
    EXPECT_TRUE(hostA.receive(same, 3s).has_value());
  }

  const auto [src, stopped] = run(kDemo + " --stop " + tag_);
  ASSERT_EQ(src, 0) << stopped;
  for (const std::string& ns : listNetworkNamespaces()) {
    EXPECT_NE(ns.rfind(tag_, 0), 0u) << ns << " left";
  }
  for (const auto& [name, pid] : started) EXPECT_FALSE(running(pid)) << name << " left";
  EXPECT_FALSE(std::filesystem::exists(work_));
}

INSTANTIATE_TEST_SUITE_P(Peers, FpemuDemoNetnsTest, ::testing::Values("kernel", "vxrelay", "mlag"));

}  // namespace
}  // namespace TestSupport
