// EthDevPam and UdpPam on a veth pair between two network namespaces of the test's own,
// driven by an event loop and a reactor as the agent drives them. Needs root; skipped
// without it.
#include <pcap/pcap.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "platform/core/Exception.h"
#include "platform/wire/EthDevPam.h"
#include "platform/wire/UdpPam.h"
#include "tests/netns/PacketSocket.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Shell.h"
#include "tests/support/Throws.h"

namespace Wire {
namespace {

using TestSupport::PacketSocket;

// Takes every packet a PAM has on each readable pass, as the agent's reactor will, and
// keeps the last byte of each: the mark the test put there.
struct Taker : Pam::NotifieeConst {
  explicit Taker(const Lum::Ptr<Pam>& p) : pam(p) {
    notifierIs(p);
    isRegisteredNotifieeIs(true);
  }
  void onReadableCount() override {
    while (Lum::Ptr<Pkt> pkt = pam->rxPkt())
      got += static_cast<char>(pkt->data()[pkt->bytes() - 1]);
  }
  Lum::Ptr<Pam> pam;
  std::string got;
};

// A frame to 00:00:5e:00:01:<dst> of `type`, whose payload is the one letter `mark`.
TestSupport::Frame frame(uint8_t dst, uint16_t type, char mark) {
  return {
      0, 0, 0x5e, 0, 1, dst, 2, 0, 0, 0, 0, 9, uint8_t(type >> 8), uint8_t(type), uint8_t(mark)};
}

// A datagram of the one letter `mark`.
Lum::Ptr<Pkt> payload(char mark) {
  Lum::Ptr<Pkt> pkt = globalPktManager().newPkt();
  pkt->newSharedHeadData(1);
  return *pkt->data() = static_cast<uint8_t>(mark), pkt;
}

class PamNetnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "network namespaces need root; CI runs these as root";
    ASSERT_NO_THROW(nsA_ = std::make_unique<TestSupport::ScopedNetns>(a_));
    ASSERT_NO_THROW(nsB_ = std::make_unique<TestSupport::ScopedNetns>(b_));
    ASSERT_TRUE(makeVeth());
  }
  bool sh(const std::string& ns, const std::string& c) {
    return !TestSupport::run("ip -n " + ns + " " + c).first;
  }
  bool makeVeth() {
    return sh(a_, "link add pa type veth peer name pb netns " + b_) && sh(a_, "link set pa up") &&
           sh(b_, "link set pb up");
  }
  // Runs the loop until `want` was taken, then a little longer for strays.
  std::string takes(const Taker& t, const std::string& want) {
    TestSupport::eventually([&] { return loop_.runOnce(0.05), t.got.size() >= want.size(); },
                            std::chrono::seconds(3));
    for (int i = 0; i < 4; ++i) loop_.runOnce(0.05);
    return t.got;
  }

  const std::string a_ = "vxr-pam-a-" + std::to_string(::getpid());
  const std::string b_ = "vxr-pam-b-" + std::to_string(::getpid());
  std::unique_ptr<TestSupport::ScopedNetns> nsA_, nsB_;
  Lum::EventLoop loop_;  // the PAMs are locals of each test: closed before both go
};

// Only frames of the bound type below 0x0600 arrive, not those the namespace sends out
// itself; a compiled filter then narrows them to one destination. A device that went
// away cannot be enabled on; once it is back, enabling finds it and the filter again.
TEST_F(PamNetnsTest, EthDevPamTakesItsTypeAndWhatItsFilterPasses) {
  Lum::Ptr<EthDevPam> pam(new EthDevPam("pb", loop_));
  pam->netNsIs(NamespaceName(b_));
  pam->ethProtocolIs(0x0040);
  pam->enabledIs(true);
  Taker taker(pam);
  PacketSocket peer(a_, "pa", PacketSocket::Mode::sendOnly);
  PacketSocket(b_, "pb", PacketSocket::Mode::sendOnly).send(frame(1, 0x0040, 'a'));
  peer.send(frame(1, 0x0800, 'b'));
  peer.send(frame(1, 0x0041, 'c'));
  peer.send(frame(1, 0x0040, 'd'));
  EXPECT_EQ(takes(taker, "d"), "d");

  pcap_t* dead = pcap_open_dead(DLT_EN10MB, 65535);
  bpf_program bpf{};
  ASSERT_EQ(pcap_compile(dead, &bpf, "ether dst host 00:00:5e:00:01:01", 1, 0), 0);
  pam->filterProgramIs(uint16_t(bpf.bf_len), reinterpret_cast<sock_filter*>(bpf.bf_insns));
  pcap_freecode(&bpf);
  pcap_close(dead);
  peer.send(frame(2, 0x0040, 'e'));
  peer.send(frame(1, 0x0806, 'x'));
  peer.send(frame(1, 0x0040, 'f'));
  EXPECT_EQ(takes(taker, "df"), "df");

  pam->enabledIs(false);
  ASSERT_TRUE(sh(b_, "link del pb"));
  auto missing = TestSupport::thrown<Lum::Exception>([&] { pam->enabledIs(true); });
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->id(), Lum::ExceptionId::deviceMissing);
  ASSERT_TRUE(makeVeth());
  pam->enabledIs(true);
  PacketSocket(a_, "pa", PacketSocket::Mode::sendOnly).send(frame(2, 0x0040, 'g'));
  PacketSocket(a_, "pa", PacketSocket::Mode::sendOnly).send(frame(1, 0x0040, 'h'));
  EXPECT_EQ(takes(taker, "dfh"), "dfh");
}

// Two PAMs on one chosen port answer each other, one with the limited broadcast; the
// receiver sees the source address the sender chose.
TEST_F(PamNetnsTest, UdpPamsExchangeDatagramsFromTheChosenSource) {
  ASSERT_TRUE(sh(a_, "addr add 10.9.0.1/24 dev pa") && sh(a_, "addr add 10.9.0.11/24 dev pa") &&
              sh(b_, "addr add 10.9.0.2/24 dev pb"));
  Lum::Ptr<UdpPam> pa(new UdpPam("pa", loop_)), pb(new UdpPam("pb", loop_));
  for (auto [pam, ns] : {std::pair{pa, a_}, std::pair{pb, b_}}) {
    pam->netNsIs(NamespaceName(ns));
    pam->rxPortLocalIs(4790);
    pam->txPortIs(4790);
    pam->modeIs(UdpPam::kModeTxRx);
  }
  Taker ta(pa), tb(pb);
  pa->txDstIpAddrIs(IpAddr::fromString("10.9.0.2"));
  pa->txSrcIpAddrIs(IpAddr::fromString("10.9.0.11"));
  ASSERT_TRUE(pa->sendPkt(payload('p')));
  EXPECT_EQ(takes(tb, "p"), "p");
  EXPECT_EQ(pb->rxSrcIpAddr(), IpAddr::fromString("10.9.0.11"));

  pb->txSrcIpAddrIs(IpAddr::fromString("10.9.0.2"));
  pb->txDstIpAddrIs(IpAddr::fromString("255.255.255.255"));
  ASSERT_TRUE(pb->sendPkt(payload('b')));
  EXPECT_EQ(takes(ta, "b"), "b");
  EXPECT_EQ(pa->rxSrcPort(), 4790);
  EXPECT_EQ(pa->rxPkts(), 1u);
}

}  // namespace
}  // namespace Wire
