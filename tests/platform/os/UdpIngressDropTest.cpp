// The ingress drop's program, run by the kernel on frames of our making
// (BPF_PROG_TEST_RUN): exactly the plain datagrams for the address and port are
// dropped; everything else goes on. Loading a program needs root (or CAP_BPF).
#include "platform/os/UdpIngressDrop.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/bpf.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "tests/support/VxlanFrameBuilder.h"

namespace {

// Its last byte has the high bit set: the address as loaded is negative as a 32-bit
// number, which a compare in 64 bits (the constant sign-extended) would miss.
constexpr uint32_t kVtep = 0x0a6300c9;  // 10.99.0.201
constexpr uint16_t kPort = 4789;
constexpr int kDrop = 2;
constexpr int kNext = -1;

class UdpIngressDropTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "loading a BPF program needs root";
    prog_ = Lum::loadUdpIngressDrop(Lum::sysCalls(), htonl(kVtep), htons(kPort));
    ASSERT_GE(prog_, 0) << std::strerror(errno);
  }
  void TearDown() override {
    if (prog_ >= 0) ::close(prog_);
  }

  // What the program answers for `frame`.
  int verdict(std::vector<uint8_t> frame) const {
    bpf_attr attr;
    std::memset(&attr, 0, sizeof attr);
    attr.test.prog_fd = static_cast<uint32_t>(prog_);
    attr.test.data_in = reinterpret_cast<uintptr_t>(frame.data());
    attr.test.data_size_in = static_cast<uint32_t>(frame.size());
    attr.test.repeat = 1;
    EXPECT_EQ(Lum::sysCalls().bpf(BPF_PROG_TEST_RUN, &attr, sizeof attr), 0)
        << std::strerror(errno);
    return static_cast<int>(attr.test.retval);
  }
  static TestSupport::VxlanFrameBuilder datagram() {
    TestSupport::VxlanFrameBuilder b;
    b.daddr = kVtep;
    b.dport = kPort;
    return b;
  }

  int prog_ = -1;
};

TEST_F(UdpIngressDropTest, DropsThePlainDatagramsForTheAddressAndPortAlone) {
  EXPECT_EQ(verdict(datagram().build()), kDrop);

  TestSupport::VxlanFrameBuilder b = datagram();
  b.dport = kPort + 1;
  EXPECT_EQ(verdict(b.build()), kNext) << "another port";
  b = datagram();
  b.daddr = kVtep + 1;
  EXPECT_EQ(verdict(b.build()), kNext) << "another address";
}

// What the kernel's input must still see: the port sink takes those.
TEST_F(UdpIngressDropTest, LeavesFragmentsOptionsTagsAndShortFrames) {
  TestSupport::VxlanFrameBuilder b = datagram();
  std::vector<uint8_t> f = b.build();
  f[20] = 0x20;  // more fragments
  EXPECT_EQ(verdict(f), kNext) << "a first fragment";
  f[20] = 0x00;
  f[21] = 0x10;  // a later fragment
  EXPECT_EQ(verdict(f), kNext) << "a later fragment";

  b.ipHdrWords = 6;
  EXPECT_EQ(verdict(b.build()), kNext) << "IPv4 options";
  b = datagram();
  b.tagged = true;
  EXPECT_EQ(verdict(b.build()), kNext) << "a tagged frame";
  f = datagram().build();
  f[23] = 6;  // TCP
  EXPECT_EQ(verdict(f), kNext) << "not UDP";
  f = datagram().build();
  f.resize(41);  // the UDP header cut
  EXPECT_EQ(verdict(f), kNext) << "a short frame";
}

}  // namespace
