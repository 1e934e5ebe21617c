// The remote-to-local manager on a full set of inputs, with packet sockets replaced by
// socket pairs (TestSupport::SocketPairs: devices "lo1" and "txraw"); FakeRawSockets
// also fails a write, or cuts a batch write short, on demand.
#pragma once

#include <linux/if_ether.h>
#include <net/if.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "forwarding/Remote2LocalForwarderSm.h"
#include "tests/support/SocketPairs.h"

namespace Vxlan {

class FakeRawSockets : public TestSupport::SocketPairs {
 public:
  FakeRawSockets() : SocketPairs({AF_PACKET}) { devices = {{"lo1", 3}, {"txraw", 7}}; }
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

  int failWriteOnce = 0;  // errno of the next write
  unsigned shortSendOnce = 0;
  int failSendAfterShort = 0;
  int failNextSend = 0;
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
  // With "txraw" present: the VTI, up or not, then the manager.
  Lum::Ptr<VtiStatus> startWithVti(bool up) {
    txrawIs(true);
    Lum::Ptr<VtiStatus> s = vti(up);
    start();
    return s;
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
