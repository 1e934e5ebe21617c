// EthDevPam and UdpPam against a system-call fake whose sockets are one end of a
// datagram socket pair: the test writes frames into the other end.
#include <linux/if_ether.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "platform/core/Exception.h"
#include "platform/wire/EthDevPam.h"
#include "platform/wire/UdpPam.h"
#include "tests/support/SocketPairs.h"
#include "tests/support/Throws.h"

namespace Wire {
namespace {

using TestSupport::thrown;

struct Fake : TestSupport::SocketPairs {
  int failOpt = 0;  // the socket option whose setting fails with EPERM
  int failSend = 0;
  int setsockopt(int fd, int level, int opt, const void* v, socklen_t len) override {
    if (opt == failOpt) return errno = EPERM, -1;
    if (level == SOL_PACKET) return 0;  // the stand-in is no packet socket
    return SysCalls::setsockopt(fd, level, opt, v, len);
  }
  ssize_t sendmsg(int, const msghdr*, int) override { return errno = failSend, -1; }
};

// Runs a classic BPF program of loads, compares and returns over a frame.
uint32_t runFilter(const std::vector<sock_filter>& prog, const std::vector<uint8_t>& frame) {
  uint32_t a = 0;
  for (size_t pc = 0; pc < prog.size(); ++pc) {
    const sock_filter& i = prog[pc];
    if (i.code == (BPF_LD | BPF_H | BPF_ABS)) {
      a = uint32_t{frame.at(i.k)} << 8 | frame.at(i.k + 1);
    } else if (i.code == (BPF_LD | BPF_B | BPF_ABS)) {
      a = frame.at(i.k);
    } else if (i.code == (BPF_JMP | BPF_JEQ | BPF_K)) {
      pc += a == i.k ? i.jt : i.jf;
    } else if (i.code == (BPF_RET | BPF_K)) {
      return i.k;
    } else {
      ADD_FAILURE() << "instruction " << i.code << " not known here";
    }
  }
  ADD_FAILURE() << "the program ran off its end";
  return 0;
}

std::vector<uint8_t> frame(uint16_t type, uint8_t dst0, size_t bytes = 60) {
  std::vector<uint8_t> f(bytes, 0x5a);
  f[0] = dst0;
  f[12] = static_cast<uint8_t>(type >> 8);
  f[13] = static_cast<uint8_t>(type);
  return f;
}

class EthDevPamTest : public ::testing::Test {
 protected:
  void SetUp() override { fake_.devices["veth1"] = 7; }
  // The PAM's socket: the one bound socket of the fake.
  int last() const { return fake_.boundIndex.begin()->first; }
  void put(const std::vector<uint8_t>& f) {
    ASSERT_GT(::send(fake_.peer(last()), f.data(), f.size(), 0), 0);
  }

  Fake fake_;
  Lum::ScopedSysCalls guard_{fake_};
  Lum::EventLoop loop_;
  Lum::Ptr<EthDevPam> pam_{new EthDevPam("veth1", loop_)};
};

// Every failed step of enabling closes what it opened and leaves the PAM disabled; a
// missing device is told apart from the other failures by its id; the PAM enables
// once the step succeeds, and only once.
TEST_F(EthDevPamTest, FailedEnableLeavesNothingOpen) {
  const sock_filter accept = BPF_STMT(BPF_RET | BPF_K, 0xffff);
  pam_->filterProgramIs(1, &accept);
  fake_.devices.clear();
  auto missing = thrown<Lum::Exception>([&] { pam_->enabledIs(true); });
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->id(), Lum::ExceptionId::deviceMissing);
  EXPECT_NE(std::string(missing->what()).find("veth1"), std::string::npos);
  fake_.devices["veth1"] = 7;
  fake_.failOpt = SO_ATTACH_FILTER;
  auto attach = thrown<Lum::ErrnoException>([&] { pam_->enabledIs(true); });
  ASSERT_TRUE(attach);
  EXPECT_NE(attach->step().find("SO_ATTACH_FILTER"), std::string::npos);
  fake_.failOpt = 0;
  fake_.failBind = EADDRINUSE;
  auto bind = thrown<Lum::ErrnoException>([&] { pam_->enabledIs(true); });
  ASSERT_TRUE(bind);
  EXPECT_EQ(bind->step().rfind("bind", 0), 0u);
  EXPECT_EQ(fake_.openCount(), 0u);
  EXPECT_FALSE(pam_->enabled());

  fake_.failBind = 0;
  pam_->ethProtocolIs(0x0040);
  pam_->enabledIs(true);
  pam_->enabledIs(true);
  EXPECT_EQ(fake_.opened, 4);
  EXPECT_EQ(pam_->ifIndex(), 7u);
  EXPECT_EQ(fake_.boundProtocol.at(last()), ETH_P_ALL);
  pam_->enabledIs(false);
  EXPECT_EQ(fake_.openCount(), 0u);
}

// A type below 0x0600 is checked first, then the user's program decides with its own
// jumps intact; other types get the user's program as it is.
TEST_F(EthDevPamTest, LengthTypeCheckComesBeforeTheUserProgram) {
  const std::vector<sock_filter> user = {
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x02, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, 100),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  const auto prog = EthDevPam::composedFilter(0x0040, user);
  EXPECT_EQ(runFilter(prog, frame(0x0040, 0x02)), 100u);
  EXPECT_EQ(runFilter(prog, frame(0x0040, 0x04)), 0u);
  EXPECT_EQ(runFilter(prog, frame(0x0041, 0x02)), 0u);
  EXPECT_EQ(runFilter(prog, frame(0x0800, 0x02)), 0u);
  EXPECT_NE(runFilter(EthDevPam::composedFilter(0x0040, {}), frame(0x0040, 0x04)), 0u);
  EXPECT_EQ(runFilter(EthDevPam::composedFilter(0x0040, {}), frame(0x0806, 0x04)), 0u);
  EXPECT_EQ(EthDevPam::composedFilter(0x0806, user).size(), user.size());
  EXPECT_TRUE(EthDevPam::composedFilter(ETH_P_ALL, {}).empty());
  EXPECT_EQ(EthDevPam::bindProtocol(0x0806), htons(0x0806));
  std::vector<sock_filter> huge(EthDevPam::kMaxFilterInsns + 1, user[3]);
  EXPECT_THROW(pam_->filterProgramIs(static_cast<uint16_t>(huge.size()), huge.data()),
               Lum::RangeException);
}

// A frame arrives whole behind head room for a reply's headers; one longer than the
// limit, or one that finds no packet free, is read off the socket and counted, so the
// loop is not woken for it again.
TEST_F(EthDevPamTest, ReceivesWithHeadRoomAndDrainsWhatItDrops) {
  pam_->maxRxPktDataIs(100);
  pam_->enabledIs(true);
  const auto f = frame(0x0806, 0x02, 100);
  put(f);
  Lum::Ptr<Pkt> pkt = pam_->rxPkt();
  ASSERT_TRUE(pkt);
  ASSERT_EQ(pkt->bytes(), 100u);
  EXPECT_EQ(std::memcmp(pkt->data(), f.data(), f.size()), 0);
  EXPECT_GE(pkt->headRoom(), 64u);

  put(frame(0x0806, 0x02, 101));
  EXPECT_FALSE(pam_->rxPkt());
  EXPECT_EQ(pam_->rxErrors(), 1u);
  const uint32_t limit = globalPktManager().limit();
  globalPktManager().limitIs(0);
  put(f);
  EXPECT_FALSE(pam_->rxPkt());
  globalPktManager().limitIs(limit);
  EXPECT_EQ(pam_->rxErrors(), 2u);
  EXPECT_FALSE(pam_->rxPkt());
  EXPECT_EQ(pam_->rxErrors(), 2u) << "an empty socket is no error";
}

// A failed bind closes the socket and names the port; a send while off is a drop, a
// failed send an error, each with its errno.
TEST(UdpPamTest, FailedSetUpAndSendsAreCounted) {
  Fake fake;
  Lum::ScopedSysCalls guard(fake);
  Lum::EventLoop loop;
  Lum::Ptr<UdpPam> pam(new UdpPam("udp", loop));
  pam->rxPortLocalIs(4789);
  fake.failBind = EADDRINUSE;
  auto bind = thrown<Lum::ErrnoException>([&] { pam->modeIs(UdpPam::kModeTxRx); });
  ASSERT_TRUE(bind);
  EXPECT_EQ(bind->step().rfind("bind to port 4789", 0), 0u);
  EXPECT_EQ(fake.openCount(), 0u);
  EXPECT_EQ(pam->fileDesc(), -1);
  EXPECT_EQ(pam->mode(), UdpPam::kModeOff);
  EXPECT_THROW(pam->modeIs(2), Lum::RangeException);

  Lum::Ptr<Pkt> pkt = globalPktManager().newPkt();
  EXPECT_FALSE(pam->sendPkt(pkt));
  EXPECT_EQ(errno, ENOTCONN);
  EXPECT_EQ(pam->txDrops(), 1u);
  pam->modeIs(UdpPam::kModeTx);
  fake.failSend = ENETUNREACH;
  EXPECT_FALSE(pam->sendPkt(pkt));
  EXPECT_EQ(errno, ENETUNREACH);
  EXPECT_EQ(pam->txErrors(), 1u);
  EXPECT_EQ(pam->txPkts(), 0u);
}

}  // namespace
}  // namespace Wire
