// Neighbor writes against the real kernel, in a namespace of the test's own with a veth
// pair "txraw". (The local send through "txraw" and "fabric": its unit test byte for
// byte, and the virtual ARP namespace test through the emulator.) Needs root; skipped
// without it.
#include <net/if.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/os/SysCalls.h"
#include "platform/wire/ArpNeighbor.h"
#include "platform/wire/NetlinkSocket.h"
#include "tests/netns/NamespaceSwitch.h"
#include "tests/support/Shell.h"

namespace {

class WireNetnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "network namespaces need root; CI runs these as root";
    ns_ = std::make_unique<TestSupport::ScopedNetns>("vxw-" + std::to_string(::getpid()));
    ip("link add txraw type veth peer name txraw-p");
    ip("link set txraw up");
    ip("link set txraw-p up");
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

}  // namespace
