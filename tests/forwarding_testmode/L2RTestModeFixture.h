// The fixture of the local-to-remote test-mode tests: the machine of one VTI in test mode, on a
// system-call fake: packet, raw and Unix sockets are socket pairs, socket options and binds are
// recorded (options and requests fail on demand), and every sendto is captured. Frames are written
// into the peers of the local sockets; time stands still unless a test makes it move.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "forwarding/Local2RemoteForwarderSm.h"
#include "forwarding/PacketTrace.h"
#include "forwarding/TestMode.h"
#include "platform/loop/EventLoop.h"
#include "platform/os/TimeSource.h"
#include "tests/support/SocketPairs.h"
#include "tests/support/Throws.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

using Bytes = std::vector<uint8_t>;
using Id = VxlanCounterId;
using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;

Wire::IpAddr ip(const char* text) {
  return Wire::IpAddr::fromString(text);
}

// Every socket a pair (TestSupport::SocketPairs), on device "vxlan" (index 7).
struct FakeNet : TestSupport::SocketPairs {
  struct Sent {
    int fd;
    Bytes bytes;
    std::string to;  // dotted IPv4, or the Unix path
    socklen_t toLen;
  };
  struct Option {
    int fd, level, name, value;
  };

  FakeNet() { devices = {{"vxlan", 7}}; }
  int setsockopt(int fd, int level, int name, const void* v, socklen_t len) override {
    options.push_back({fd, level, name, len == sizeof(int) ? *static_cast<const int*>(v) : -1});
    return level == failOption.first && name == failOption.second ? (errno = EPERM, -1) : 0;
  }
  int ioctl(int fd, unsigned long request, void* arg) override {
    if (request == failRequest) return errno = EPERM, -1;
    return request == SIOCGIFINDEX ? SocketPairs::ioctl(fd, request, arg) : 0;
  }
  int bind(int fd, const sockaddr* a, socklen_t len) override {
    options.push_back({fd, -1, -1, 0});  // the bind's place among the options
    return SocketPairs::bind(fd, a, len);
  }
  Lum::SysResult sendto(int fd, const void* buf, size_t len, int, const sockaddr* to,
                        socklen_t toLen) override {
    std::string where;
    if (to->sa_family == AF_INET) {
      char text[INET_ADDRSTRLEN];
      ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(to)->sin_addr, text, sizeof text);
      where = text;
    } else {
      where = reinterpret_cast<const sockaddr_un*>(to)->sun_path;
    }
    const auto* p = static_cast<const uint8_t*>(buf);
    sent.push_back({fd, Bytes(p, p + len), where, toLen});
    const auto err = sendError.find(fd);
    if (err != sendError.end()) return {-1, err->second};
    return {static_cast<ssize_t>(len), 0};
  }

  // Each message as one sendto; stops at the first failure as the kernel does.
  int sendmmsg(int fd, mmsghdr* msgs, unsigned int count, int) override {
    for (unsigned i = 0; i < count; ++i) {
      const msghdr& m = msgs[i].msg_hdr;
      Bytes joined;
      for (size_t v = 0; v < m.msg_iovlen; ++v) {
        const auto* p = static_cast<const uint8_t*>(m.msg_iov[v].iov_base);
        joined.insert(joined.end(), p, p + m.msg_iov[v].iov_len);
      }
      const Lum::SysResult r = sendto(fd, joined.data(), joined.size(), 0,
                                      static_cast<const sockaddr*>(m.msg_name), m.msg_namelen);
      if (r.failed()) return i > 0 ? static_cast<int>(i) : (errno = r.err, -1);
      msgs[i].msg_len = static_cast<unsigned>(r.rc);
    }
    return static_cast<int>(count);
  }

  std::pair<int, int> failOption{-2, -2};
  unsigned long failRequest = 0;
  std::map<int, int> sendError;
  std::vector<Option> options;
  std::vector<Sent> sent;
};

class L2RTestModeTest : public ::testing::Test {
 protected:
  L2RTestModeTest() {
    status_->localVtepAddrIs(ip("10.99.0.1"));
    status_->srcIntfKernelNameIs("under0");
    status_->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(Vni(5010)));
    status_->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    Local2RemoteForwarderSm::Inputs in;
    in.vxHwStatusDir = hw_;
    in.vxBumStatus = hw_->bumStatus();
    in.vxAgentCounter = counter_;
    in.vtepStatusDirV2 = vteps_;
    rebuild(in);
  }
  ~L2RTestModeTest() override { sm_->doDisconnectSockets(); }

  // A new machine (and owner) on `in`, in the one-frame loop; batch mode has a case of
  // its own.
  void rebuild(const Local2RemoteForwarderSm::Inputs& in) {
    if (sm_) sm_->doDisconnectSockets();
    sm_ = nullptr;
    owner_ = new Local2RemoteForwarderSm(in);
    sm_ = new Sm(nullptr, status_, owner_.ptr());
    sm_->batchModeIs(false);
  }

  BumStatus& bum() { return *hw_->bumStatus(); }
  void floodList(const char* mac, std::vector<const char*> vteps, uint32_t type = 0) {
    const Lum::Ptr<BumVtepList> l =
        bum().bumVtepListIs(MacVlanPair(Wire::EthAddr::fromString(mac), Bridging::VlanId(10)));
    for (const char* v : vteps) l->remoteVtepAddrIs(ip(v));
    l->listTypeIs(type);
  }
  // Writes a local frame for `dst` into the high (or low) socket and runs its handler.
  void forward(const char* dst, bool high = true, uint16_t flags = 0) {
    write(dst, high, flags);
    high ? sm_->handleFileDescriptorHi() : sm_->handleFileDescriptorLo();
  }
  void write(const char* dst, bool high = true, uint16_t flags = 0, size_t pad = 40) {
    const auto d = Wire::EthAddr::fromString(dst).bytes();
    Bytes user(d.begin(), d.end());
    user.insert(user.end(), {0x02, 0, 0, 0, 0, 0x02, 0x08, 0x00});  // source, IPv4
    user.resize(user.size() + pad, 0x33);
    const Bytes f = TestSupport::localFrame(user, high ? 0x0041 : 0x0033, flags, 10);
    const int peer = net_.peer(high ? sm_->localSockHi() : sm_->localSockLo());
    ASSERT_EQ(::send(peer, f.data(), f.size(), 0), ssize_t(f.size()));
  }
  // The VTEPs that packets went to, in order (resolver messages left out).
  std::vector<std::string> vtepsReached() const {
    std::vector<std::string> to;
    for (const auto& s : net_.sent) {
      if (s.fd == sm_->remoteSockHi() || s.fd == sm_->remoteSockLo()) to.push_back(s.to);
    }
    return to;
  }
  uint64_t count(Id id) const { return counter_->storage().vxlanCount(static_cast<uint16_t>(id)); }
  std::vector<uint64_t> counts() const {
    std::vector<uint64_t> c;
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) c.push_back(count(Id(i)));
    return c;
  }
  int optionValue(int fd, int level, int name) const {
    for (const auto& x : net_.options) {
      if (x.fd == fd && x.level == level && x.name == name) return x.value;
    }
    return -999;
  }

  Lum::ManualTimeSource clock_{100.0};
  Lum::ScopedTimeSource clockGuard_{clock_};
  FakeNet net_;
  Lum::ScopedSysCalls netGuard_{net_};
  Lum::Ptr<VtiStatus> status_{new VtiStatus(Wire::IntfId("Vxlan1"))};
  Lum::Ptr<VxlanHwStatusDir> hw_{new VxlanHwStatusDir("hw")};
  Lum::Ptr<VxlanController::VtepStatusDirV2> vteps_{new VxlanController::VtepStatusDirV2("v2")};
  Lum::Ptr<VxlanAgentCounter> counter_{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<Local2RemoteForwarderSm> owner_;
  Lum::Ptr<Sm> sm_;
};

}  // namespace
}  // namespace Vxlan
