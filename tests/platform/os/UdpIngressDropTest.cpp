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

#include "tests/support/Shell.h"
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
    if (!TestSupport::kernelAtLeast(6, 6)) GTEST_SKIP() << "no tcx before Linux 6.6";
    prog_ = Lum::loadUdpIngressDrop(Lum::sysCalls(), htonl(kVtep), htons(kPort));
    ASSERT_GE(prog_, 0) << std::strerror(errno);
  }
  void TearDown() override { ::close(prog_); }  // -1 when it was never loaded: EBADF

  // What the program answers for `frame`.
  int verdict(std::vector<uint8_t> frame) const {
    bpf_attr attr;
    std::memset(&attr, 0, sizeof attr);  // every byte: the kernel refuses any left set
    attr.test.prog_fd = static_cast<uint32_t>(prog_);
    attr.test.data_in = reinterpret_cast<uintptr_t>(frame.data());
    attr.test.data_size_in = static_cast<uint32_t>(frame.size());
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

// Left to the kernel's input (the port sink takes those): another port or address,
// fragments, options, a tag, another protocol, a short frame.
TEST_F(UdpIngressDropTest, DropsThePlainDatagramsForTheAddressAndPortAlone) {
  EXPECT_EQ(verdict(datagram().build()), kDrop);
  const auto patched = [](size_t at, uint8_t value, size_t size = 0) {
    std::vector<uint8_t> f = datagram().build();
    f[at] = value;
    if (size != 0) f.resize(size);
    return f;
  };
  const std::pair<const char*, std::vector<uint8_t>> kept[] = {
      {"another port", patched(37, kPort % 256 + 1)},
      {"another address", patched(33, kVtep % 256 + 1)},
      {"IPv4 options", patched(14, 0x46)},
      {"a tagged frame", patched(12, 0x81)},
      {"a first fragment", patched(20, 0x20)},  // more fragments, no don't-fragment
      {"a later fragment", patched(21, 0x10)},
      {"TCP", patched(23, 6)},
      {"the UDP header cut", patched(0, 0, 41)},
  };
  for (const auto& [what, frame] : kept) EXPECT_EQ(verdict(frame), kNext) << what;
}

}  // namespace
