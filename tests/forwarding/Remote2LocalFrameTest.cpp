#include <fcntl.h>

#include <cerrno>

#include "R2LFixture.h"
#include "platform/os/SysCalls.h"
#include "platform/os/TimeSource.h"

namespace Vxlan {
namespace {

using TestSupport::VxlanFrameBuilder;
using Moved = std::vector<std::pair<int, uint64_t>>;

// The "txraw" frame expected for the inner frame of `b` on VLAN `vlan`, port `glort`.
std::vector<uint8_t> txRaw(const VxlanFrameBuilder& b, uint16_t vlan, uint16_t glort) {
  return TestSupport::txRawFrame(b.inner, Bridging::VlanId(vlan), HwPortId(glort));
}

class Remote2LocalFrameTest : public R2LFixture {};

// Guards the whole path: exact "txraw" bytes, and the four counters of a written
// frame. A tag and IP options on the outer frame change nothing in the output.
TEST_F(Remote2LocalFrameTest, WritesTheTxRawForm) {
  VxlanFrameBuilder plain;
  VxlanFrameBuilder tagged;
  tagged.tagged = true;
  tagged.ipHdrWords = 6;
  const Counts before = counts();
  send(plain.build());
  send(tagged.build());
  loop_.runOnce(0);
  auto out = written();
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[0], txRaw(plain, 10, 0x0102));
  EXPECT_EQ(out[1], out[0]);
  const uint64_t rx = plain.build().size() + tagged.build().size();
  const uint64_t tx = 2 * (plain.inner.size() + 8);
  EXPECT_EQ(moved(before), (Moved{{11, rx}, {12, 2}, {13, tx}, {14, 2}}));
}

// Guards the length checks at their boundaries: at the limit is a drop (27), one
// byte more passes on.
TEST_F(Remote2LocalFrameTest, LengthBoundaries) {
  VxlanFrameBuilder b;
  const std::vector<uint8_t> full = b.build();
  VxlanFrameBuilder t;
  t.tagged = true;
  const std::vector<uint8_t> fullTagged = t.build();
  const size_t emptyAt = b.vxlanOffset() + 22;
  struct Case {
    std::vector<uint8_t> frame;
    bool dropped;
  };
  std::vector<Case> cases = {
      {{full.begin(), full.begin() + 14}, true},
      {{full.begin(), full.begin() + 42}, true},
      {{fullTagged.begin(), fullTagged.begin() + 46}, true},
      {{full.begin(), full.begin() + emptyAt}, true},
      {{full.begin(), full.begin() + emptyAt + 1}, false},
  };
  for (const Case& c : cases) {
    const Counts before = counts();
    send(c.frame);
    loop_.runOnce(0);
    const size_t n = written().size();
    if (c.dropped) {
      EXPECT_EQ(moved(before), (Moved{{11, c.frame.size()}, {12, 1}, {27, 1}})) << c.frame.size();
      EXPECT_EQ(n, 0u);
    } else {
      EXPECT_EQ(n, 1u) << c.frame.size();
    }
  }
}

// Guards the filters and their order: each moves 28 and 29 (after 11 and 12), the
// own source wins over a matching destination, and the flood group is a destination.
TEST_F(Remote2LocalFrameTest, FilterOrder) {
  sm_->floodMcastGrpIs(Wire::IpAddr::fromString("239.1.1.1"));
  VxlanFrameBuilder arp;
  arp.ethType = 0x0806;
  VxlanFrameBuilder own;
  own.saddr = 0x0a000001;  // our VTEP address as source, to our address
  VxlanFrameBuilder elsewhere;
  elsewhere.daddr = 0x0a000009;
  VxlanFrameBuilder wrongPort;
  wrongPort.dport = 4790;
  for (const VxlanFrameBuilder* b : {&arp, &own, &elsewhere, &wrongPort}) {
    const Counts before = counts();
    const std::vector<uint8_t> f = b->build();
    send(f);
    loop_.runOnce(0);
    EXPECT_EQ(moved(before), (Moved{{11, f.size()}, {12, 1}, {28, 1}, {29, f.size()}}));
  }
  EXPECT_TRUE(written().empty());
  VxlanFrameBuilder flood;
  flood.daddr = 0xef010101;
  send(flood.build());
  loop_.runOnce(0);
  EXPECT_EQ(written().size(), 1u);
}

// Guards the two drops after the filter: flags clear is 30 without a lookup, an
// unknown VNI is 31; portId 0xFFFF still forwards with glort 0xFFFF.
TEST_F(Remote2LocalFrameTest, FlagsVniAndUnknownPort) {
  VxlanFrameBuilder noFlag;
  noFlag.vxlanFlags = 0x00;
  noFlag.vni = 77;  // unknown too: must not count as 31
  VxlanFrameBuilder unknown;
  unknown.vni = 77;
  Counts before = counts();
  send(noFlag.build());
  loop_.runOnce(0);
  EXPECT_EQ(moved(before)[2], (std::pair<int, uint64_t>{30, 1}));
  before = counts();
  send(unknown.build());
  loop_.runOnce(0);
  EXPECT_EQ(moved(before)[2], (std::pair<int, uint64_t>{31, 1}));
  EXPECT_TRUE(written().empty());

  sm_->portIdIs(HwPortId::unknown());
  VxlanFrameBuilder b;
  send(b.build());
  loop_.runOnce(0);
  auto out = written();
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0], txRaw(b, 10, 0xffff));
}

// Time that moves on by `step` each time it is read.
struct SteppingTime : Lum::TimeSource {
  double step;
  mutable double t = 1000.0;
  explicit SteppingTime(double s) : step(s) {}
  double now() const override { return t += step; }
};

// Guards the time budget: a run stops behind a written frame once the budget is
// spent (33), the rest waits for the next run and nothing is lost; a run that only
// discards ignores the budget and drains the socket.
TEST_F(Remote2LocalFrameTest, TimeBudget) {
  SteppingTime time(0.06);
  Lum::ScopedTimeSource scope(time);
  VxlanFrameBuilder b;
  for (int i = 0; i < 3; ++i) send(b.build());
  Counts before = counts();
  loop_.runOnce(0);
  EXPECT_EQ(written().size(), 2u);
  EXPECT_FALSE(remoteDrained());
  loop_.runOnce(0);
  EXPECT_EQ(written().size(), 1u);
  EXPECT_EQ(counts()[33] - before[33], 1u);
  EXPECT_EQ(counts()[14] - before[14], 3u);

  VxlanFrameBuilder unknown;
  unknown.vni = 99;
  for (int i = 0; i < 5; ++i) send(unknown.build());
  before = counts();
  loop_.runOnce(0);
  EXPECT_TRUE(remoteDrained());
  EXPECT_EQ(counts()[31] - before[31], 5u);
  EXPECT_EQ(counts()[33], before[33]);
}

// A system-call service whose writes fail once with a chosen errno, and whose socket,
// ioctl and bind stand in for a raw socket on a missing device.
struct FailingWrite : Lum::SysCalls {
  int failOnce = 0;
  int nextSocket = -1;
  Lum::SysResult write(int fd, const void* buf, size_t len) override {
    if (failOnce) return {-1, std::exchange(failOnce, 0)};
    return Lum::SysCalls::write(fd, buf, len);
  }
  int socket(int, int, int) override { return nextSocket; }
  int ioctl(int, unsigned long, void*) override {
    errno = ENODEV;
    return -1;
  }
  int bind(int, const sockaddr*, socklen_t) override {
    errno = EINVAL;
    return -1;
  }
};

// Guards the one recovery: ENETDOWN reopens the local socket (index and bind failures
// counted as 34, the socket kept) and the frame goes out on the new one.
TEST_F(Remote2LocalFrameTest, NetDownReopensTheLocalSocket) {
  int fresh[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM, 0, fresh), 0);
  FailingWrite sys;
  sys.failOnce = ENETDOWN;
  sys.nextSocket = fresh[0];
  Lum::ScopedSysCalls scope(sys);
  const int old = sm_->localSock();
  const Counts before = counts();
  VxlanFrameBuilder b;
  send(b.build());
  loop_.runOnce(0);
  EXPECT_EQ(sm_->localSock(), fresh[0]);
  EXPECT_EQ(::fcntl(old, F_GETFD), -1) << "the old socket must be closed";
  uint8_t buf[256];
  EXPECT_EQ(::recv(fresh[1], buf, sizeof buf, MSG_DONTWAIT), ssize_t(b.inner.size() + 8));
  EXPECT_EQ(moved(before),
            (Moved{{11, b.build().size()}, {12, 1}, {13, b.inner.size() + 8}, {14, 1}, {34, 2}}));
  ::close(fresh[1]);
}

// Guards the failure path: a send error other than ENETDOWN ends the run with 34 and
// leaves the following frames in the socket.
TEST_F(Remote2LocalFrameTest, SendErrorEndsTheRun) {
  FailingWrite sys;
  sys.failOnce = EMSGSIZE;
  Lum::ScopedSysCalls scope(sys);
  VxlanFrameBuilder b;
  send(b.build());
  send(b.build());
  const Counts before = counts();
  loop_.runOnce(0);
  EXPECT_EQ(counts()[34] - before[34], 1u);
  EXPECT_EQ(counts()[14], before[14]);
  EXPECT_FALSE(remoteDrained());
  loop_.runOnce(0);
  EXPECT_EQ(written().size(), 1u);
}

}  // namespace
}  // namespace Vxlan
