// EthDevPam and UdpPam against a system-call fake whose sockets are one end of a
// datagram socket pair: the test writes frames into the other end.
#include <linux/if_ether.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/core/Exception.h"
#include "platform/wire/EthDevPam.h"
#include "platform/wire/UdpPam.h"
#include "tests/support/SocketPairs.h"
#include "tests/support/Throws.h"

namespace Wire {
namespace {

using TestSupport::thrown;
using TestSupport::thrownText;

struct Fake : TestSupport::SocketPairs {
  int setsockopt(int fd, int level, int opt, const void* v, socklen_t len) override {
    if (level == SOL_PACKET) return 0;  // the stand-in is no packet socket
    return SysCalls::setsockopt(fd, level, opt, v, len);
  }
};

class PamTest : public ::testing::Test {
 protected:
  Fake fake;
  Lum::ScopedSysCalls guard{fake};
};

// A failed step of enabling closes what it opened, names itself and leaves the PAM
// disabled; a missing device is told apart from the other failures by its id.
TEST_F(PamTest, EthDevPamFailedEnableLeavesNothingOpen) {
  Lum::Ptr<EthDevPam> pam = EthDevPam::EthDevPamIs("veth1");
  const sock_filter accept = BPF_STMT(BPF_RET | BPF_K, 0xffff);
  pam->filterProgramIs(1, &accept);
  const auto enable = [&] { pam->enabledIs(true); };
  auto missing = thrown<Lum::Exception>(enable);
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->id(), Lum::ExceptionId::deviceMissing);
  EXPECT_NE(std::string(missing->what()).find("veth1"), std::string::npos);
  fake.devices["veth1"] = 7;
  fake.failBind = EADDRINUSE;
  EXPECT_EQ(thrownText<Lum::ErrnoException>(enable).rfind("bind for device veth1", 0), 0u);
  EXPECT_EQ(fake.openCount(), 0u);
  EXPECT_FALSE(pam->enabled());
}

// A frame arrives whole behind head room for a reply's headers; one longer than the
// limit, or one that finds no packet free, is read off the socket and counted, so the
// loop is not woken for it again.
TEST_F(PamTest, EthDevPamReceivesAndDrainsWhatItDrops) {
  fake.devices["veth1"] = 7;
  Lum::Ptr<EthDevPam> pam = EthDevPam::EthDevPamIs("veth1");
  pam->maxRxPktDataIs(100);
  pam->enabledIs(true);
  const int peer = fake.peer(fake.boundIndex.begin()->first);
  const std::string frame(101, 'z');
  const auto put = [&](size_t n) { ASSERT_EQ(::send(peer, frame.data(), n, 0), ssize_t(n)); };
  put(100);
  Lum::Ptr<Pkt> pkt = pam->rxPkt();
  ASSERT_TRUE(pkt);
  EXPECT_EQ(std::string(pkt->data(), pkt->data() + pkt->bytes()), frame.substr(1));
  EXPECT_GE(pkt->headRoom(), 64u);

  put(101);
  EXPECT_FALSE(pam->rxPkt());
  const uint32_t limit = globalPktManager().limit();
  globalPktManager().limitIs(0);
  put(60);
  EXPECT_FALSE(pam->rxPkt());
  globalPktManager().limitIs(limit);
  EXPECT_EQ(pam->rxErrors(), 2u);
  EXPECT_FALSE(pam->rxPkt());
  EXPECT_EQ(pam->rxErrors(), 2u) << "an empty socket is no error";
}

// A failed bind closes the socket and names its port; a send while off is a drop.
TEST_F(PamTest, UdpPamFailedSetUpLeavesItOff) {
  Lum::Ptr<UdpPam> pam(new UdpPam("udp"));
  pam->rxPortLocalIs(4789);
  fake.failBind = EADDRINUSE;
  const std::string text = thrownText<Lum::ErrnoException>([&] { pam->modeIs(3); });
  EXPECT_EQ(text.rfind("bind to port 4789", 0), 0u) << text;
  EXPECT_EQ(fake.openCount(), 0u);
  EXPECT_EQ(pam->mode(), UdpPam::kModeOff);
  EXPECT_FALSE(pam->sendPkt(globalPktManager().newPkt()));
  EXPECT_EQ(pam->txDrops(), 1u);
}

}  // namespace
}  // namespace Wire
