// The agent host against real kernel VXLAN traffic: a switch namespace running
// vxrelay-host and remote namespaces whose kernel VXLAN devices send to its VTEP (see
// SwitchTopology.h). Needs root; skipped without it.
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "agent/VxlanCounterId.h"
#include "frames/EthHdr.h"
#include "tests/netns/OverlayFrames.h"
#include "tests/netns/PacketSocket.h"
#include "tests/netns/SwitchTopology.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace TestSupport {
namespace {

using namespace std::chrono_literals;
using Vxlan::VxlanCounterId;

constexpr auto kFrameWait = 3s;
constexpr MacBytes kRemoteMac = {0x02, 0x00, 0x00, 0x00, 0x10, 0x02};
constexpr MacBytes kSwitchSideMac = {0x02, 0x00, 0x00, 0x00, 0x10, 0x01};
constexpr uint32_t kRemoteOverlayIp = 0xc0a80a02;  // 192.168.10.2
constexpr uint32_t kSwitchOverlayIp = 0xc0a80a01;  // 192.168.10.1

uint64_t count(const Vxlan::CounterTablesReading& r, VxlanCounterId id) {
  return r.vxlan.at(static_cast<size_t>(id)).count;
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

class R2LKernelVxlanTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "network namespaces need root; CI runs these as root";
    }
    topo_ = make();
  }
  void TearDown() override { topo_.reset(); }

  static std::unique_ptr<SwitchTopology> make(SwitchTopologyConfig config = {}) {
    try {
      return std::make_unique<SwitchTopology>(config);
    } catch (const std::exception& e) {
      ADD_FAILURE() << "building the topology failed: " << e.what();
      return nullptr;
    }
  }

  // What the remote's kernel sends when its overlay address pings the switch side.
  static Frame echoFromRemote() {
    return icmpEchoFrame(kSwitchSideMac, kRemoteMac, kRemoteOverlayIp, kSwitchOverlayIp, 1);
  }

  std::unique_ptr<SwitchTopology> topo_;
};

// Guards the host start: state file refused, socket dead or counter table not mounted.
TEST_F(R2LKernelVxlanTest, HostStartsWithCounterTableAndControlSocket) {
  ASSERT_TRUE(topo_);
  ASSERT_NO_THROW(topo_->startHost());
  const Vxlan::CounterTablesReading r = topo_->counters();
  ASSERT_EQ(r.vxlan.size(), Vxlan::kVxlanCounterIds);
  // The underlay carries neighbour discovery, which is read and filtered; nothing
  // has been forwarded yet.
  EXPECT_EQ(count(r, VxlanCounterId::r2lTxFrames), 0u);

  const nlohmann::json answer =
      topo_->apply({{"interface/status/eth/vxlan", {{"vtiStatus", {{"Vxlan1", {{"ttl", 32}}}}}}}});
  EXPECT_TRUE(answer.value("ok", false)) << answer.dump();
  EXPECT_TRUE(topo_->hostRunning()) << topo_->hostOutput();
}

// Guards the capture path and the expected txraw form the forwarding check relies on.
TEST_F(R2LKernelVxlanTest, TxRawPeerCapturesWhatIsWrittenToTxRaw) {
  ASSERT_TRUE(topo_);
  const Frame inner = VxlanFrameBuilder::defaultInner();
  const Frame expected = txRawFrame(inner, topo_->config().vlan, topo_->config().portId);
  ASSERT_EQ(expected.size(), inner.size() + sizeof(Vxlan::f64));
  const auto* hdr = Wire::hdrAt<Vxlan::TxRawHdr>(expected.data());
  EXPECT_EQ(hdr->hdr.tag.value(), Vxlan::kTxRawTag);
  EXPECT_EQ(expected[12], 0x00);
  EXPECT_EQ(expected[13], 0x08);
  EXPECT_EQ(hdr->hdr.vlan.value(), topo_->config().vlan.value());
  EXPECT_EQ(hdr->hdr.glort.value(), topo_->config().portId.value());
  EXPECT_EQ(hdr->hdr.reserved.value(), 0u);
  EXPECT_TRUE(std::equal(inner.begin() + 12, inner.end(), expected.begin() + 20));

  PacketSocket peer(topo_->switchNs(), SwitchTopology::kTxRawPeer, PacketSocket::Mode::capture);
  PacketSocket(topo_->switchNs(), SwitchTopology::kTxRawDevice, PacketSocket::Mode::sendOnly)
      .send(expected);
  const auto got = peer.receive([&](const Frame& f) { return f == expected; }, kFrameWait);
  EXPECT_TRUE(got.has_value()) << "the frame written to txraw never reached its peer";
}

// Guards the remote side: its kernel VXLAN device must reach the switch VTEP with the VNI.
TEST_F(R2LKernelVxlanTest, RemoteKernelVxlanReachesSwitchUnderlay) {
  ASSERT_TRUE(topo_);
  PacketSocket underlay(topo_->switchNs(), topo_->underlayDevice(), PacketSocket::Mode::capture);
  const Frame echo = echoFromRemote();
  PacketSocket(topo_->remoteNs(0), SwitchTopology::kRemoteVxlanDevice, PacketSocket::Mode::sendOnly)
      .send(echo);
  const uint16_t port = topo_->config().udpPort;
  const auto got = underlay.receive(
      [&](const Frame& f) { return vxlanDatagramOf(f, port).has_value(); }, kFrameWait);
  ASSERT_TRUE(got.has_value()) << "no VXLAN datagram reached the switch underlay";
  const auto datagram = vxlanDatagramOf(*got, port);
  EXPECT_EQ(datagram->vni, topo_->config().vni);
  EXPECT_EQ(datagram->inner, echo);
}

// Guards teardown: no namespace, counter table or folder may outlive the topology.
TEST_F(R2LKernelVxlanTest, TeardownLeavesNothingBehind) {
  topo_.reset();
  SwitchTopologyConfig config;
  config.remotes = 2;
  auto topo = make(config);
  ASSERT_TRUE(topo);
  ASSERT_NO_THROW(topo->startHost());
  const std::vector<std::string> made = topo->namespaces();
  ASSERT_EQ(made.size(), 4u);
  std::vector<std::string> listed = listNetworkNamespaces();
  for (const std::string& ns : made) EXPECT_TRUE(contains(listed, ns)) << ns;
  const std::string shm = "/dev/shm/vxrelay-" + topo->agentName() + "-vxlan-counter";
  const std::string control = topo->controlSocket();
  EXPECT_TRUE(std::filesystem::exists(shm));

  topo.reset();
  listed = listNetworkNamespaces();
  for (const std::string& ns : made) EXPECT_FALSE(contains(listed, ns)) << ns << " left behind";
  EXPECT_FALSE(std::filesystem::exists(shm));
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(control).parent_path()));
}

// Guards the remote-to-local path end to end: txraw form, VLAN, glort and counts.
TEST_F(R2LKernelVxlanTest, RemoteEchoArrivesOnTxRawPeer) {
  ASSERT_TRUE(topo_);
  ASSERT_NO_THROW(topo_->startHost());
  PacketSocket peer(topo_->switchNs(), SwitchTopology::kTxRawPeer, PacketSocket::Mode::capture);
  const Frame echo = echoFromRemote();
  const Frame expected = txRawFrame(echo, topo_->config().vlan, topo_->config().portId);
  PacketSocket(topo_->remoteNs(0), SwitchTopology::kRemoteVxlanDevice, PacketSocket::Mode::sendOnly)
      .send(echo);
  const auto got = peer.receive(
      [](const Frame& f) { return f.size() > 14 && f[12] == 0x00 && f[13] == 0x08; }, kFrameWait);
  ASSERT_TRUE(got.has_value()) << "nothing in the txraw form reached the peer";
  EXPECT_EQ(*got, expected);

  // The counts are stored after the write: wait for them, bounded.
  const auto deadline = std::chrono::steady_clock::now() + kFrameWait;
  Vxlan::CounterTablesReading r;
  for (;;) {
    r = topo_->counters();
    if (count(r, VxlanCounterId::r2lTxFrames) >= 1) break;
    if (std::chrono::steady_clock::now() > deadline) break;
    std::this_thread::sleep_for(50ms);
  }
  // A run stopped by its time budget drops nothing, so it is no term of the sum.
  const uint64_t dropped =
      count(r, VxlanCounterId::r2lBadLength) + count(r, VxlanCounterId::r2lBadFlags) +
      count(r, VxlanCounterId::r2lUnknownVlan) + count(r, VxlanCounterId::r2lSocketErrors);
  EXPECT_GE(count(r, VxlanCounterId::r2lTxFrames), 1u);
  EXPECT_EQ(count(r, VxlanCounterId::r2lRxFrames), count(r, VxlanCounterId::r2lTxFrames) +
                                                       count(r, VxlanCounterId::r2lFilteredFrames) +
                                                       dropped);
}

}  // namespace
}  // namespace TestSupport
