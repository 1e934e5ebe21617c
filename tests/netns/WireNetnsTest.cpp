// The packet services against the real kernel, in a namespace of the test's own with
// the switch's two hand-over devices as veth pairs: "txraw" and "fabric", whose peers
// ("-p") a capture socket watches. Needs root; skipped without it.
#include <net/if.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "platform/os/SysCalls.h"
#include "platform/wire/ArpNeighbor.h"
#include "platform/wire/NetlinkSocket.h"
#include "tests/netns/NamespaceSwitch.h"
#include "tests/netns/PacketSocket.h"
#include "tests/support/Shell.h"
#include "tests/support/VxlanFrameBuilder.h"
#include "varp/LocalSend.h"

namespace {

using TestSupport::Frame;
using TestSupport::PacketSocket;

class WireNetnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "network namespaces need root; CI runs these as root";
    ns_ = std::make_unique<TestSupport::ScopedNetns>("vxw-" + std::to_string(::getpid()));
    for (const char* dev : {"txraw", "fabric"}) {
      ip("link add " + std::string(dev) + " type veth peer name " + dev + "-p");
      ip("link set " + std::string(dev) + " up");
      ip("link set " + std::string(dev) + "-p up");
    }
    ip("addr add 10.1.1.1/24 dev txraw");
  }
  void ip(const std::string& args) { TestSupport::runOrThrow("ip -n " + name() + " " + args); }
  std::string neigh(const char* addr) {
    return TestSupport::run("ip -n " + name() + " neigh show " + addr + " dev txraw").second;
  }
  int ifindex(const char* dev) {
    TestSupport::NamespaceSwitch in(name());
    return static_cast<int>(::if_nametoindex(dev));
  }
  const std::string& name() const { return ns_->name(); }

  std::unique_ptr<TestSupport::ScopedNetns> ns_;
};

// A socket made for the namespace writes there: the entry shows as REACHABLE with the
// MAC given, a second write replaces the MAC, and a device that does not exist comes
// back as the kernel's negative errno.
TEST_F(WireNetnsTest, NeighborWritesLandInTheNamespacesTable) {
  int fd = -1;
  Wire::createNetlinkSocket(fd, 0, name(), 2, true);
  const Wire::IpAddr host = Wire::IpAddr::fromHostOrder(0x0a010105);
  const int dev = ifindex("txraw");
  EXPECT_EQ(Arp::ipNeighAdd(fd, dev, host, Wire::EthAddr(0x0200, 0, 0x0a0a), Arp::kNeighReachable),
            0);
  EXPECT_NE(neigh("10.1.1.5").find("lladdr 02:00:00:00:0a:0a REACHABLE"), std::string::npos)
      << neigh("10.1.1.5");
  EXPECT_EQ(Arp::ipNeighAdd(fd, dev, host, Wire::EthAddr(0x0200, 0, 0x0b0b), Arp::kNeighReachable),
            0);
  EXPECT_NE(neigh("10.1.1.5").find("lladdr 02:00:00:00:0b:0b REACHABLE"), std::string::npos)
      << neigh("10.1.1.5");
  EXPECT_EQ(Arp::ipNeighAdd(fd, 9999, host, Wire::EthAddr(0x0200, 0, 1), Arp::kNeighReachable),
            -ENODEV);
  Lum::sysCalls().close(fd);
  EXPECT_EQ(neigh("10.1.1.5").find("0a:0a"), std::string::npos);
}

// The local send through a raw PAM opened for the namespace: the peer of "txraw"
// receives the inner frame behind its header, the peer of "fabric" the datagram
// exactly as it was received.
TEST_F(WireNetnsTest, LocalSendReachesThePeerOfEachDevice) {
  Lum::Ptr<Wire::RawTxPam> pam(new Wire::RawTxPam(Lum::Name("RawTxPam")));
  pam->netNsIs(Wire::NamespaceName(name()));
  pam->enabledIs(true);
  Lum::Ptr<Vxlan::VxlanHwStatusDir> hw(new Vxlan::VxlanHwStatusDir("hw"));
  const Wire::IntfId vti("Vxlan1");
  hw->vxlanHwStatusIs(vti)->cpuSourcePortIdIs(Vxlan::HwPortId(0x0102));
  Lum::Ptr<Bridging::HwCapabilities> caps(new Bridging::HwCapabilities("caps"));
  Lum::Ptr<Vxlan::VxlanAgentCounter> counters(
      new Vxlan::VxlanAgentCounter("counter", std::make_unique<Vxlan::MemoryCounterStorage>()));
  const TestSupport::VxlanFrameBuilder builder;
  const Frame datagram = builder.build();
  auto sendOn = [&](bool txRaw, const char* peer) {
    caps->vxlanTxRawSupportedIs(txRaw);
    PacketSocket capture(name(), peer, PacketSocket::Mode::capture);
    Lum::Ptr<Wire::Pkt> pkt = Wire::globalPktManager().newPkt();
    pkt->newSharedHeadData(static_cast<uint32_t>(datagram.size()));
    std::memcpy(pkt->data(), datagram.data(), datagram.size());
    {
      // The device is looked up by name in the thread's namespace, as the agent does.
      TestSupport::NamespaceSwitch in(name());
      Vxlan::decapAndSendLocal({vti, hw.ptr(), caps.ptr(), pam.ptr(), counters.ptr()}, pkt,
                               pkt->data() + builder.vxlanOffset(), Bridging::VlanIdOrNone(20));
    }
    return capture.receive([](const Frame&) { return true; }, std::chrono::seconds(2));
  };
  const std::optional<Frame> txRaw = sendOn(true, "txraw-p");
  ASSERT_TRUE(txRaw);
  Frame want(builder.inner.begin(), builder.inner.begin() + 12);
  want.insert(want.end(), {0x00, 0x08, 0x00, 20, 0x01, 0x02, 0x00, 0x00});
  want.insert(want.end(), builder.inner.begin() + 12, builder.inner.end());
  EXPECT_EQ(*txRaw, want);
  EXPECT_EQ(sendOn(false, "fabric-p"), datagram);
  EXPECT_EQ(counters->varpCounter(Vxlan::VarpCounterId::decapTxPkts).count, 2u);
}

}  // namespace
