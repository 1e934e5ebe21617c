// A remote-to-local state machine for one VTI, wired to socket pairs: the test writes
// datagrams into `remotePeer()` and reads what the machine wrote from `localPeer()`.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "forwarding/Remote2LocalForwarderSm.h"
#include "platform/loop/ActivityManager.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {

class R2LFixture : public ::testing::Test {
 protected:
  using Counts = std::array<uint64_t, kVxlanCounterIds>;

  void SetUp() override {
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM, 0, remote_), 0);
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM, 0, local_), 0);
    status_->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
    status_->udpPortIs(4789);
    sm_ = new Remote2LocalForwarderSm::LumVtiStatusSm(nullptr, status_, parent_.ptr());
    maps_->vtiVniToVlanMap(status_->intfId())
        ->vniToVlanMapIs(Vni(5000), Bridging::VlanIdOrNone(10));
    sm_->portIdIs(HwPortId(0x0102));
    sm_->remoteSockIs(remote_[0]);
    sm_->localSockIs(local_[0]);
    fd_->descriptorIs(remote_[0]);
    fd_->nonBlockingIs(true);
    fd_->notifyOnReadableIs(true);
    sm_->fileDescriptorIs(fd_);
  }
  void TearDown() override {
    fd_->descriptorIs(-1);
    for (int fd : {remote_[0], remote_[1], local_[1], sm_->localSock()}) ::close(fd);
  }

  void send(const std::vector<uint8_t>& frame) {
    ASSERT_EQ(::send(remote_[1], frame.data(), frame.size(), 0), ssize_t(frame.size()));
  }
  // The frames the machine wrote so far.
  std::vector<std::vector<uint8_t>> written() {
    std::vector<std::vector<uint8_t>> frames;
    uint8_t buf[10000];
    ssize_t n;
    while ((n = ::recv(local_[1], buf, sizeof buf, MSG_DONTWAIT)) >= 0) {
      frames.emplace_back(buf, buf + n);
    }
    return frames;
  }
  bool remoteDrained() {
    uint8_t b;
    return ::recv(remote_[0], &b, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
  }
  Counts counts() const {
    Counts c{};
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) c[i] = counter_->storage().vxlanCount(i);
    return c;
  }
  // Counter changes since `before`, as (id, delta) pairs of the ids that moved.
  std::vector<std::pair<int, uint64_t>> moved(const Counts& before) const {
    std::vector<std::pair<int, uint64_t>> m;
    Counts now = counts();
    for (int i = 0; i < kVxlanCounterIds; ++i) {
      if (now[i] != before[i]) m.emplace_back(i, now[i] - before[i]);
    }
    return m;
  }

  int remote_[2] = {-1, -1};
  int local_[2] = {-1, -1};
  Lum::EventLoop loop_;
  Lum::Ptr<VtiStatus> status_{new VtiStatus(Wire::IntfId("Vxlan1"))};
  Lum::Ptr<VniToVlanMaps> maps_{new VniToVlanMaps("vniToVlanMaps")};
  Lum::Ptr<VxlanAgentCounter> counter_{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<Remote2LocalForwarderSm> parent_{
      new Remote2LocalForwarderSm(Remote2LocalForwarderSm::inputs(maps_, counter_))};
  Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> sm_;
  Lum::Ptr<Lum::FileDescriptor> fd_{new Lum::FileDescriptor("VxlanR2LSmMulticast", loop_)};
};

}  // namespace Vxlan
