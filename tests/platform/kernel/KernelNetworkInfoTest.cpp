// KernelNetworkInfo::Manager against a scripted kernel: its netlink socket is one end of
// a datagram socket pair, and the fake system calls answer dump requests and let the
// test write events, lose them (ENOBUFS) or spoof their sender. Messages are built
// with libmnl as the kernel lays them out.
#include "platform/kernel/KernelNetworkInfoManager.h"

// glibc's interface header first: the kernel's then leaves out what it defines.
#include <net/if.h>

#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/os/SysCalls.h"
#include "tests/support/SocketPairs.h"
#include "tests/support/Throws.h"

namespace KernelNetworkInfo {
namespace {

using Wire::IfIndex;

constexpr uint32_t kPort = 4242;

struct Device {
  InterfaceState s;
  size_t addrLen = 6;  // 4 for a tunnel's IPv4 address, 0 for none
};

InterfaceState dev(unsigned i, const char* name, uint32_t flags, uint32_t mtu,
                   Wire::EthAddr mac = {}, uint8_t oper = IF_OPER_UNKNOWN) {
  return {IfIndex(i), name, flags, oper, mac, mtu};
}

// One message as the kernel lays it out: a link, or without one the end of a dump.
// Messages of a dump (seq set) come from the kernel's port, events from port 0.
void put(std::vector<uint8_t>& out, uint16_t type, uint32_t seq, const Device* d,
         uint8_t family = AF_UNSPEC, uint16_t flags = 0) {
  alignas(nlmsghdr) uint8_t buf[512] = {};
  nlmsghdr* nlh = mnl_nlmsg_put_header(buf);
  nlh->nlmsg_type = type;
  nlh->nlmsg_flags = (seq ? NLM_F_MULTI : 0) | flags;
  nlh->nlmsg_seq = seq;
  nlh->nlmsg_pid = seq ? kPort : 0;
  if (d == nullptr) {
    mnl_nlmsg_put_extra_header(nlh, sizeof(int));
    out.insert(out.end(), buf, buf + nlh->nlmsg_len);
    return;
  }
  auto* ifi = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifinfomsg)));
  ifi->ifi_family = family;
  ifi->ifi_index = static_cast<int>(d->s.ifindex.value());
  ifi->ifi_flags = d->s.flags;
  if (!d->s.name.empty()) mnl_attr_put_strz(nlh, IFLA_IFNAME, d->s.name.charPtr());
  mnl_attr_put_u32(nlh, IFLA_MTU, d->s.mtu);
  mnl_attr_put_u8(nlh, IFLA_OPERSTATE, d->s.operState);
  const uint8_t tunnelAddr[4] = {192, 0, 2, 1};
  if (d->addrLen == 6) mnl_attr_put(nlh, IFLA_ADDRESS, 6, d->s.hwAddr.bytes().data());
  if (d->addrLen == 4) mnl_attr_put(nlh, IFLA_ADDRESS, 4, tunnelAddr);
  out.insert(out.end(), buf, buf + nlh->nlmsg_len);
}

// The netlink socket is a socket pair (TestSupport::SocketPairs); the kernel's end is
// its peer.
struct FakeKernel : TestSupport::SocketPairs {
  std::map<unsigned, Device> links;  // what a dump lists
  int mine = -1;                     // the manager's socket
  uint32_t dumpSeq = 0;              // of the last request
  int dumps = 0;
  bool answerDumps = true;
  int nextRecvErrno = 0;
  uint32_t nextSender = 0;  // the port the next datagram seems to come from
  int socketErrno = 0;
  std::vector<std::string> steps;      // namespace handles opened, entered, closed; the socket
  std::map<int, std::string> handles;  // open namespace handles

  void add(const InterfaceState& s, size_t addrLen = 6) { links[s.ifindex.value()] = {s, addrLen}; }

  int open(const char* path, int, mode_t) override {
    const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    steps.push_back(std::string("open ") + (handles[fd] = path));
    return fd;
  }
  int setns(int fd, int) override { return steps.push_back("setns " + handles[fd]), 0; }
  int socket(int d, int t, int p) override {
    if (socketErrno) return errno = socketErrno, -1;
    steps.push_back("socket");
    return mine = SocketPairs::socket(d, t, p);
  }
  int getsockname(int fd, sockaddr* a, socklen_t* l) override {
    if (fd != mine) return SysCalls::getsockname(fd, a, l);
    *reinterpret_cast<sockaddr_nl*>(a) = sockaddr_nl{AF_NETLINK, 0, kPort, 0};
    *l = sizeof(sockaddr_nl);
    return 0;
  }
  int close(int fd) override {
    if (fd == mine) steps.push_back("close socket");
    if (auto it = handles.find(fd); it != handles.end()) {
      steps.push_back("close " + it->second);
      handles.erase(it);
    }
    return SocketPairs::close(fd);
  }
  ssize_t send(int fd, const void* buf, size_t len, int flags) override {
    if (fd != mine) return SysCalls::send(fd, buf, len, flags);
    const auto* nlh = static_cast<const nlmsghdr*>(buf);
    EXPECT_EQ(nlh->nlmsg_type, RTM_GETLINK);
    EXPECT_EQ(nlh->nlmsg_flags & NLM_F_DUMP, NLM_F_DUMP);
    dumpSeq = nlh->nlmsg_seq;
    ++dumps;
    if (answerDumps) answerDump();
    return static_cast<ssize_t>(len);
  }
  ssize_t recvfrom(int fd, void* buf, size_t len, int flags, sockaddr* from,
                   socklen_t* fromLen) override {
    if (fd != mine) return SysCalls::recvfrom(fd, buf, len, flags, from, fromLen);
    if (nextRecvErrno) return errno = std::exchange(nextRecvErrno, 0), -1;
    const ssize_t n = ::recv(fd, buf, len, flags);
    if (n < 0) return n;
    *reinterpret_cast<sockaddr_nl*>(from) =
        sockaddr_nl{AF_NETLINK, 0, std::exchange(nextSender, 0), 0};
    *fromLen = sizeof(sockaddr_nl);
    return n;
  }

  // The dump as the kernel sends it: several links in one datagram, then DONE.
  void answerDump(uint16_t doneFlags = 0) {
    std::vector<uint8_t> d, done;
    for (const auto& [i, device] : links) put(d, RTM_NEWLINK, dumpSeq, &device);
    put(done, NLMSG_DONE, dumpSeq, nullptr, AF_UNSPEC, doneFlags);
    write(d), write(done);
  }
  void event(uint16_t type, const InterfaceState& s, uint8_t family = AF_UNSPEC) {
    std::vector<uint8_t> d;
    const Device device{s};
    put(d, type, 0, &device, family);
    write(d);
  }
  void write(const std::vector<uint8_t>& d) {
    ASSERT_EQ(::send(peer(mine), d.data(), d.size(), 0), static_cast<ssize_t>(d.size()));
  }
};

struct RootLog : Root::NotifieeConst {
  std::vector<std::string> byName;
  void onInterfaceByName(const Lum::String8& n) override { byName.push_back(n.str()); }
};

const Wire::EthAddr kMac2(0x001c, 0x7300, 0x0002);
constexpr uint32_t kUp = IFF_UP | IFF_BROADCAST | IFF_RUNNING | IFF_MULTICAST;

class KernelNetworkInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kernel_.add(dev(1, "lo", IFF_UP | IFF_LOOPBACK | IFF_RUNNING, 65536));
    kernel_.add(dev(2, "eth0", kUp, 9214, kMac2, IF_OPER_UP));
    kernel_.add(dev(3, "tun0", IFF_UP | IFF_POINTOPOINT, 1476), 4);
  }
  void start() {
    manager_ = std::make_unique<Manager>(nullptr, root_, Wire::NamespaceName(), loop_);
    log_->notifierIs(root_);
    log_->isRegisteredNotifieeIs(true);
  }

  FakeKernel kernel_;
  Lum::ScopedSysCalls guard_{kernel_};
  Lum::EventLoop loop_;
  Lum::Ptr<Root> root_{new Root("kernel")};
  Lum::Ptr<RootLog> log_{new RootLog};
  std::unique_ptr<Manager> manager_;
};

// Guards the rename: the by-name entry moves (old key notified, then new), the object
// keeps its identity with every attribute read from its IFLA_* type, and a reaction to
// the Interface sees both maps already moved.
TEST_F(KernelNetworkInfoTest, RenameMovesTheNameEntry) {
  start();
  Lum::Ptr<Interface> eth0 = root_->interface(IfIndex(2));
  struct NameCheck : Interface::NotifieeConst {
    Lum::Ptr<Root> root;
    int consistent = 0;  // reactions that saw both maps moved
    void onName() override {
      consistent += !root->interfaceByName("eth0") && root->interfaceByName("uplink") == notifier();
    }
  };
  Lum::Ptr<NameCheck> il(new NameCheck);
  il->root = root_;
  il->notifierIs(eth0);
  il->isRegisteredNotifieeIs(true);
  kernel_.event(RTM_NEWLINK, dev(2, "uplink", kUp, 9214, kMac2, IF_OPER_UP));
  loop_.runOnce(0);
  EXPECT_EQ(log_->byName, (std::vector<std::string>{"eth0", "uplink"}));
  EXPECT_EQ(eth0->state(), dev(2, "uplink", kUp, 9214, kMac2, IF_OPER_UP));
  EXPECT_EQ(il->consistent, 1);
}

// Guards what must be ignored: the bridge's per-port RTM_DELLINK (AF_BRIDGE) for a
// live device, a datagram not sent by the kernel, a link message without a name, and
// a tunnel's 4-byte address as a MAC; a message after a bad one in the same datagram is
// still applied.
TEST_F(KernelNetworkInfoTest, IgnoresForeignAndMalformedMessages) {
  start();
  kernel_.nextSender = 31337;
  kernel_.event(RTM_DELLINK, dev(1, "lo", 0, 65536));
  kernel_.event(RTM_DELLINK, dev(2, "eth0", kUp, 9214), AF_BRIDGE);
  std::vector<uint8_t> d;
  const Device unnamed{dev(8, "", kUp, 1500)}, after{dev(9, "after", kUp, 1500)};
  put(d, RTM_NEWLINK, 0, &unnamed);
  put(d, RTM_NEWLINK, 0, &after);
  kernel_.write(d);
  loop_.runOnce(0);
  EXPECT_TRUE(root_->interfaceByName("after"));
  EXPECT_FALSE(root_->interface(IfIndex(8)));
  EXPECT_TRUE(root_->interfaceByName("tun0")->hwAddr().isZero())
      << "a tunnel address read as a MAC";
  EXPECT_EQ(root_->interfaceCount(), 4u) << "a foreign or bridge deletion was applied";
}

// Guards the dump bookkeeping: a loss during a dump asks for one more dump after it,
// not a second one at once; a device an event adds while a dump runs survives that
// dump's end; an interrupted dump deletes nothing and is repeated.
TEST_F(KernelNetworkInfoTest, DumpsRunOneAtATime) {
  start();
  kernel_.answerDumps = false;
  kernel_.nextRecvErrno = ENOBUFS;
  kernel_.event(RTM_NEWLINK, kernel_.links[1].s);
  loop_.runOnce(0);
  ASSERT_EQ(kernel_.dumps, 2);
  ASSERT_TRUE(manager_->dumpInProgress());
  kernel_.nextRecvErrno = ENOBUFS;
  kernel_.event(RTM_NEWLINK, dev(6, "late0", kUp, 1500));  // after the dump passed index 6
  loop_.runOnce(0);
  EXPECT_EQ(kernel_.dumps, 2) << "a second dump while one runs";
  kernel_.answerDump();
  loop_.runOnce(0);
  EXPECT_TRUE(root_->interface(IfIndex(6))) << "a device announced during the dump was deleted";
  EXPECT_EQ(kernel_.dumps, 3) << "the loss during the dump was not followed by a dump";
  kernel_.add(dev(6, "late0", kUp, 1500));
  kernel_.links.erase(3);
  kernel_.answerDump(NLM_F_DUMP_INTR);
  loop_.runOnce(0);
  EXPECT_TRUE(root_->interface(IfIndex(3))) << "an interrupted dump deleted a device";
  EXPECT_EQ(kernel_.dumps, 4);
  kernel_.answerDump();
  loop_.runOnce(0);
  EXPECT_EQ(kernel_.dumps, 4);
  EXPECT_FALSE(manager_->dumpInProgress());
  EXPECT_FALSE(root_->interface(IfIndex(3)));
  EXPECT_TRUE(root_->interface(IfIndex(6)));
}

// Guards the namespace switch: the socket is made between entering the namespace and
// going back, the thread goes back when socket() fails, no handle is left open, and a
// name cannot reach outside /run/netns.
TEST_F(KernelNetworkInfoTest, SocketIsMadeInsideAndTheThreadGoesBack) {
  const std::vector<std::string> around = {
      "open /run/netns/blue",           "open /proc/thread-self/ns/net",
      "setns /run/netns/blue",          "socket",
      "setns /proc/thread-self/ns/net", "close /run/netns/blue",
      "close /proc/thread-self/ns/net", "close socket"};
  { Manager m(nullptr, root_, Wire::NamespaceName("blue"), loop_); }
  EXPECT_EQ(kernel_.steps, around);

  kernel_.steps.clear();
  kernel_.socketErrno = EMFILE;
  const auto failed = TestSupport::thrown<Lum::ErrnoException>(
      [&] { Manager(nullptr, root_, Wire::NamespaceName("blue"), loop_); });
  EXPECT_TRUE(failed && failed->errNo() == EMFILE);
  EXPECT_EQ(kernel_.steps, (std::vector<std::string>{around[0], around[1], around[2], around[4],
                                                     around[5], around[6]}));
  kernel_.steps.clear();
  EXPECT_THROW(Manager(nullptr, root_, Wire::NamespaceName("../proc/1/ns/net"), loop_),
               Lum::RangeException);
  EXPECT_TRUE(kernel_.steps.empty());
}

}  // namespace
}  // namespace KernelNetworkInfo
