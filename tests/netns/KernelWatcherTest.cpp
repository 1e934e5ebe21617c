// KernelNetworkInfo::Manager against the real kernel, in a network namespace made for
// the test and removed after it (on failure too). Devices are made with `ip -n`, so
// the host's own interfaces are never touched. Needs root; skipped without it.
#include <sys/socket.h>
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

  Lum::EventLoop loop_;
  Lum::Ptr<Root> root_{new Root("kernel")};
  std::unique_ptr<ScopedNetns> ns_;
  std::unique_ptr<Manager> manager_;  // declared last: closed before its namespace goes
};

// Guards the resync on a real kernel: with a socket queue too small for a burst of
// events the kernel reports ENOBUFS, and the dumps that follow still bring the root
// to the namespace's state; the devices are those of the test namespace, not the
// host's. (Renames, single events and devices a dump no longer lists: the unit test on
// a scripted kernel.)
TEST_F(KernelWatcherTest, ResyncsAfterLostEvents) {
  const int tiny = 1;  // the kernel raises it to its minimum, a few kilobytes
  ASSERT_EQ(::setsockopt(manager_->descriptor(), SOL_SOCKET, SO_RCVBUF, &tiny, sizeof tiny), 0);
  constexpr size_t kPairs = 16;
  std::string add;
  for (size_t i = 0; i < kPairs; ++i) {
    const std::string n = std::to_string(i);
    add += "link add vxa" + n + " type veth peer name vxb" + n + "\\n";
  }
  ASSERT_EQ(root_->interfaceCount(), 1u) << "a new namespace holds only lo";
  const uint64_t first = manager_->dumpRequests();
  ASSERT_TRUE(ipBatch(add));
  ASSERT_TRUE(runUntil([&] {
    return root_->interfaceCount() == 1 + 2 * kPairs && !manager_->dumpInProgress();
  })) << root_->interfaceCount()
      << " devices";
  EXPECT_FALSE(sh("ip link show vxa0")) << "the device appeared in the host's namespace";
  EXPECT_GT(manager_->dumpRequests(), first) << "no events were lost: the resync went untried";
}

}  // namespace
}  // namespace KernelNetworkInfo
