// The remote-to-local manager on a full set of inputs, with raw sockets replaced by
// socket pairs: FakeRawSockets answers socket(AF_PACKET) with one end of a pair (the
// test reaches the other through peer()), SIOCGIFINDEX from its own device table
// (reading the name as the kernel does, at most 15 bytes), records the protocols asked
// for, binds and closes, and fails a bind or a write on demand.
#pragma once

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "forwarding/Remote2LocalForwarderSm.h"
#include "platform/os/SysCalls.h"

namespace Vxlan {

class FakeRawSockets : public Lum::SysCalls {
 public:
  ~FakeRawSockets() override {
    for (auto [fd, other] : peer_) ::close(fd), ::close(other);
  }
  int socket(int domain, int type, int protocol) override {
    if (domain != AF_PACKET) return SysCalls::socket(domain, type, protocol);
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_DGRAM, 0, fds) < 0) return -1;
    peer_[fds[0]] = fds[1];
    ++opened;
    openProtocols.insert(protocol);
    return fds[0];
  }
  int ioctl(int fd, unsigned long request, void* arg) override {
    if (request != SIOCGIFINDEX || !peer_.count(fd)) return SysCalls::ioctl(fd, request, arg);
    auto* req = static_cast<ifreq*>(arg);
    auto it = devices.find(std::string(req->ifr_name, strnlen(req->ifr_name, IFNAMSIZ - 1)));
    if (it == devices.end()) {
      errno = ENODEV;
      return -1;
    }
    req->ifr_ifindex = it->second;
    return 0;
  }
  int bind(int fd, const sockaddr* addr, socklen_t len) override {
    if (!peer_.count(fd)) return SysCalls::bind(fd, addr, len);
    if (failBind) return errno = failBind, -1;
    const auto* ll = reinterpret_cast<const sockaddr_ll*>(addr);
    boundIndex[fd] = ll->sll_ifindex;
    boundProtocol[fd] = ntohs(ll->sll_protocol);
    return 0;
  }
  int close(int fd) override {
    if (auto it = peer_.find(fd); it != peer_.end()) {
      ::close(it->second);
      peer_.erase(it);
      boundIndex.erase(fd);
    }
    return SysCalls::close(fd);
  }
  Lum::SysResult write(int fd, const void* buf, size_t len) override {
    if (failWriteOnce) return {-1, std::exchange(failWriteOnce, 0)};
    return SysCalls::write(fd, buf, len);
  }
  // A batch write: `shortSendOnce` frames of the next one go out, then the following
  // write fails with `failSendAfterShort`.
  int sendmmsg(int fd, mmsghdr* msgs, unsigned int count, int flags) override {
    if (failNextSend) return errno = std::exchange(failNextSend, 0), -1;
    if (shortSendOnce) {
      count = std::min(count, std::exchange(shortSendOnce, 0u));
      failNextSend = failSendAfterShort;
    }
    return SysCalls::sendmmsg(fd, msgs, count, flags);
  }
  size_t openCount() const { return peer_.size(); }
  bool isOpen(int fd) const { return peer_.count(fd) != 0; }
  int peer(int fd) const { return peer_.at(fd); }

  std::map<std::string, int> devices{{"lo1", 3}, {"txraw", 7}};
  std::map<int, int> boundIndex;
  std::map<int, int> boundProtocol;
  std::set<int> openProtocols;
  int opened = 0;
  int failBind = 0;       // errno of every bind of a packet socket while set
  int failWriteOnce = 0;  // errno of the next write
  unsigned shortSendOnce = 0;
  int failSendAfterShort = 0;
  int failNextSend = 0;

 private:
  std::map<int, int> peer_;
};

class R2LManagerFixture : public ::testing::Test {
 protected:
  using Sm = Remote2LocalForwarderSm::LumVtiStatusSm;
  static inline const Wire::IntfId kVti{"Vxlan1"};
  static inline const Wire::IntfId kSrc{"Loopback1"};

  void start() {
    r2l_ = new Remote2LocalForwarderSm(Remote2LocalForwarderSm::Inputs{
        dir_, hw_, igmp_, pim_, bum_, maps_, kni_, counter_, mlag_});
  }
  // The VTI with its source interface; up or not.
  Lum::Ptr<VtiStatus> vti(bool up) {
    Lum::Ptr<VtiStatus> s = dir_->vtiStatusIs(kVti);
    s->srcIpIntfIs(kSrc);
    s->srcIntfKernelNameIs(Lum::String8("lo1"));
    s->localVtepAddrIs(ip("10.0.0.1"));
    if (up) s->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    return s;
  }
  void txrawIs(bool present) {
    if (present) {
      kni_->interfaceIs(KernelNetworkInfo::InterfaceState{
          Wire::IfIndex(7), Lum::String8("txraw"), IFF_UP, 6, {}, 1500});
    } else {
      kni_->interfaceDel(Wire::IfIndex(7));
    }
  }
  Lum::Ptr<Sm> sm() const { return r2l_ ? r2l_->vtiStatusSm(kVti) : nullptr; }
  static Wire::IpAddr ip(const char* text) { return Wire::IpAddr::fromString(text); }
  bool joined(const char* group) const {
    auto entry = igmp_->intfConfig(kSrc);
    return entry && entry->group(Routing::Igmp::SourceGroup(Wire::IpAddr(), ip(group)));
  }
  Routing::Pim::Mode pimMode() const { return pim_->intfMode(Lum::Name("Loopback1")); }
  // Whether the loop would call the frame loop for a datagram on the remote socket.
  bool remoteWatched() const {
    auto* r = sm() ? sm()->fileDescriptor() : nullptr;
    return r && r->notifier() && r->notifier()->descriptor() == sm()->remoteSock() &&
           r->notifier()->notifyOnReadable();
  }
  uint64_t count(VxlanCounterId id) const { return counter_->storage().vxlanCount(uint16_t(id)); }

  FakeRawSockets sys_;
  Lum::ScopedSysCalls guard_{sys_};
  Lum::Ptr<VtiStatusDir> dir_{new VtiStatusDir("vtiStatus")};
  Lum::Ptr<VxlanHwStatusDir> hw_{new VxlanHwStatusDir("vxHwStatus")};
  Lum::Ptr<Routing::Igmp::Application::Config> igmp_{
      new Routing::Igmp::Application::Config("vxlan")};
  Lum::Ptr<Routing::Pim::Application::Config> pim_{new Routing::Pim::Application::Config("vxlan")};
  Lum::Ptr<BumStatus> bum_ = hw_->bumStatus();
  Lum::Ptr<VniToVlanMaps> maps_{new VniToVlanMaps("vniToVlanMaps")};
  Lum::Ptr<KernelNetworkInfo::Root> kni_{new KernelNetworkInfo::Root("kni")};
  Lum::Ptr<VxlanAgentCounter> counter_{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<Mlag::Status> mlag_{new Mlag::Status("mlag")};
  // Last: gone before the fake, so that its sockets close through it.
  Lum::Ptr<Remote2LocalForwarderSm> r2l_;
};

}  // namespace Vxlan
