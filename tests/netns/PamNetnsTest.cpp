// EthDevPam on a veth pair between two network namespaces of the test's own, driven by
// an event loop and a reactor as the agent drives it. (A compiled filter, a device that
// comes late and the UDP PAM between namespaces: the virtual ARP namespace tests.)
// Needs root; skipped without it.
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "platform/wire/EthDevPam.h"
#include "tests/netns/PacketSocket.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Shell.h"

namespace Wire {
namespace {

using TestSupport::PacketSocket;

// Takes every packet the PAM has on each readable pass, as the agent's reactor will,
// and keeps the last byte of each: the mark the test put there.
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

// A frame to 00:00:5e:00:01:01 of `type`, whose payload is the one letter `mark`.
TestSupport::Frame frame(uint16_t type, char mark) {
  return {0, 0, 0x5e, 0, 1, 1, 2, 0, 0, 0, 0, 9, uint8_t(type >> 8), uint8_t(type), uint8_t(mark)};
}

// Only frames of the bound type below 0x0600 arrive, not those the namespace sends out
// itself.
TEST(PamNetnsTest, EthDevPamTakesItsTypeOnly) {
  if (::geteuid() != 0) GTEST_SKIP() << "network namespaces need root; CI runs these as root";
  const std::string a = "vxr-pam-a-" + std::to_string(::getpid());
  const std::string b = "vxr-pam-b-" + std::to_string(::getpid());
  TestSupport::ScopedNetns nsA(a), nsB(b);
  TestSupport::runOrThrow("ip -n " + a + " link add pa type veth peer name pb netns " + b);
  TestSupport::runOrThrow("ip -n " + a + " link set pa up");
  TestSupport::runOrThrow("ip -n " + b + " link set pb up");
  Lum::EventLoop loop;  // declared after the namespaces: the PAM closes before they go
  Lum::Ptr<EthDevPam> pam(new EthDevPam("pb", loop));
  pam->netNsIs(NamespaceName(b));
  pam->ethProtocolIs(0x0040);
  pam->enabledIs(true);
  Taker taker(pam);
  PacketSocket peer(a, "pa", PacketSocket::Mode::sendOnly);
  PacketSocket(b, "pb", PacketSocket::Mode::sendOnly).send(frame(0x0040, 'a'));
  peer.send(frame(0x0800, 'b'));
  peer.send(frame(0x0041, 'c'));
  peer.send(frame(0x0040, 'd'));
  TestSupport::eventually([&] { return loop.runOnce(0.05), !taker.got.empty(); },
                          std::chrono::seconds(3));
  for (int i = 0; i < 4; ++i) loop.runOnce(0.05);  // a little longer, for strays
  EXPECT_EQ(taker.got, "d");
}

}  // namespace
}  // namespace Wire
