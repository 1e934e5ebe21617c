// KernelNetworkInfo::Manager against the real kernel, in a network namespace made for
// the test and removed after it (on failure too). Devices are made with `ip -n`, so
// the host's own interfaces are never touched. Needs root; skipped without it.
#include <linux/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/kernel/KernelNetworkInfoManager.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Shell.h"

namespace KernelNetworkInfo {
namespace {

using TestSupport::ScopedNetns;

bool sh(const std::string& command) {
  return TestSupport::run(command).first == 0;
}

ino_t ownNamespace() {
  struct stat st {};
  return ::stat("/proc/thread-self/ns/net", &st) == 0 ? st.st_ino : 0;
}

class KernelWatcherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "creating a network namespace needs root; CI runs these as root";
    }
    ASSERT_NO_THROW(ns_ = std::make_unique<ScopedNetns>("vxr-kni-" + std::to_string(::getpid())));
    const ino_t home = ownNamespace();
    manager_ = std::make_unique<Manager>(nullptr, root_, Wire::NamespaceName(ns_->name()), loop_);
    ASSERT_EQ(ownNamespace(), home) << "the thread was left in the test namespace";
  }

  bool ip(const std::string& args) { return sh("ip -n " + ns_->name() + " " + args); }
  // Many commands in one ip process (read from stdin), so that their events come in
  // one burst.
  bool ipBatch(const std::string& lines) {
    return sh("printf '" + lines + "' | ip -n " + ns_->name() + " -batch -");
  }
  // Runs the loop until `done` holds, for at most about five seconds.
  bool runUntil(const std::function<bool()>& done) {
    return TestSupport::eventually([&] { return loop_.runOnce(0.05), done(); },
                                   std::chrono::seconds(5));
  }
  Lum::Ptr<Interface> byName(const char* n) const { return root_->interfaceByName(n); }

  Lum::EventLoop loop_;
  Lum::Ptr<Root> root_{new Root("kernel")};
  std::unique_ptr<ScopedNetns> ns_;
  std::unique_ptr<Manager> manager_;  // declared last: closed before its namespace goes
};

// Guards the whole path on a real kernel: the socket watches the test namespace and
// not the host's, and additions, renames, flag changes and removals all reach the root.
TEST_F(KernelWatcherTest, FollowsDevicesOfItsNamespace) {
  ASSERT_EQ(root_->interfaceCount(), 1u) << "a new namespace holds only lo";
  ASSERT_TRUE(byName("lo"));

  ASSERT_TRUE(ip("link add vxk0 type veth peer name vxk1"));
  ASSERT_TRUE(runUntil([&] { return byName("vxk0") && byName("vxk1"); }));
  EXPECT_FALSE(sh("ip link show vxk0")) << "the device appeared in the host's namespace";
  Lum::Ptr<Interface> vxk0 = byName("vxk0");
  EXPECT_EQ(root_->interface(vxk0->ifindex()), vxk0);

  Lum::Ptr<Interface> vxk1 = byName("vxk1");
  ASSERT_TRUE(ip("link set vxk1 name vxk9"));
  ASSERT_TRUE(runUntil([&] { return !byName("vxk1") && byName("vxk9"); }));
  EXPECT_EQ(byName("vxk9"), vxk1);

  ASSERT_TRUE(ip("link set vxk0 mtu 1400 up"));
  ASSERT_TRUE(runUntil([&] { return (vxk0->flags() & IFF_UP) != 0 && vxk0->mtu() == 1400; }));

  ASSERT_TRUE(ip("link del vxk0"));  // takes its peer with it
  ASSERT_TRUE(runUntil([&] { return !byName("vxk0") && !byName("vxk9"); }));
  EXPECT_FALSE(root_->interface(vxk0->ifindex()));
}

// Guards the resync on a real kernel: with a socket queue too small for a burst of
// events the kernel reports ENOBUFS, and the dumps that follow still bring the root
// to the namespace's state, for a burst of additions and one of removals.
TEST_F(KernelWatcherTest, ResyncsAfterLostEvents) {
  const int tiny = 1;  // the kernel raises it to its minimum, a few kilobytes
  ASSERT_EQ(::setsockopt(manager_->descriptor(), SOL_SOCKET, SO_RCVBUF, &tiny, sizeof tiny), 0);
  constexpr size_t kPairs = 16;
  std::string add;
  std::string del;
  for (size_t i = 0; i < kPairs; ++i) {
    const std::string n = std::to_string(i);
    add += "link add vxa" + n + " type veth peer name vxb" + n + "\\n";
    del += "link del vxa" + n + "\\n";
  }
  const uint64_t first = manager_->dumpRequests();
  ASSERT_TRUE(ipBatch(add));
  ASSERT_TRUE(runUntil([&] {
    return root_->interfaceCount() == 1 + 2 * kPairs && !manager_->dumpInProgress();
  })) << root_->interfaceCount()
      << " devices";
  EXPECT_GT(manager_->dumpRequests(), first) << "no events were lost: the resync went untried";

  const uint64_t second = manager_->dumpRequests();
  ASSERT_TRUE(ipBatch(del));
  ASSERT_TRUE(runUntil([&] { return root_->interfaceCount() == 1 && !manager_->dumpInProgress(); }))
      << root_->interfaceCount() << " devices";
  EXPECT_GT(manager_->dumpRequests(), second) << "no events were lost: the resync went untried";
  EXPECT_TRUE(byName("lo"));
}

}  // namespace
}  // namespace KernelNetworkInfo
