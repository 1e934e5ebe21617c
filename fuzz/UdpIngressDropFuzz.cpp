// Fuzz target of the ingress drop's classifier program (platform/os/UdpIngressDrop),
// run by the kernel on each input as a frame (BPF_PROG_TEST_RUN) for the VTEP address
// 10.99.0.201 (its last byte has the high bit set, which a 64-bit compare would miss)
// and port 4789.
//
// Checks: the program drops exactly the plain datagrams for that address and port:
// Ethernet type IPv4, a header without options, UDP, not a fragment, the address and
// the port, read here from the frame's bytes as the layouts define them. Loading the
// program needs root and Linux 6.6 (tcx); without them each input is run by nothing,
// which the target says once. Frames the kernel's test runner refuses are skipped.
#include <arpa/inet.h>
#include <linux/bpf.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/os/UdpIngressDrop.h"

namespace {

constexpr uint32_t kVtep = 0x0a6300c9;
constexpr uint16_t kPort = 4789;
constexpr int kDrop = 2;
constexpr int kNext = -1;
// The kernel runs a frame of at least an Ethernet header, and of at most about a page.
constexpr size_t kMinFrame = 14;
constexpr size_t kMaxFrame = 2048;

uint32_t be(const std::vector<uint8_t>& f, size_t at, size_t n) {
  uint32_t v = 0;
  for (size_t i = 0; i < n; ++i) v = v << 8 | f[at + i];
  return v;
}

// Ethernet (type at 12), IPv4 from 14 (version and length, fragment word at 20,
// protocol at 23, destination at 30), UDP from 34 (destination port at 36).
bool plainDatagramForUs(const std::vector<uint8_t>& f) {
  return f.size() >= 42 && be(f, 12, 2) == 0x0800 && f[14] == 0x45 && f[23] == IPPROTO_UDP &&
         (be(f, 20, 2) & 0x3fff) == 0 && be(f, 30, 4) == kVtep && be(f, 36, 2) == kPort;
}

// The kernel's test runner refuses a frame typed IPv4 or IPv6 that is shorter than
// the network header (a device would hand it to the program all the same).
bool cutNetworkHeader(const std::vector<uint8_t>& f) {
  const uint32_t type = be(f, 12, 2);
  return (type == 0x0800 && f.size() < 34) || (type == 0x86dd && f.size() < 54);
}

int loadOnce() {
  static const int prog = [] {
    const int fd = Lum::loadUdpIngressDrop(Lum::sysCalls(), htonl(kVtep), htons(kPort));
    if (fd < 0) std::fprintf(stderr, "udp_ingress_drop: not loaded (%s)\n", std::strerror(errno));
    return fd;
  }();
  return prog;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int prog = loadOnce();
  if (prog < 0 || size < kMinFrame || size > kMaxFrame) return 0;
  std::vector<uint8_t> frame(data, data + size);
  bpf_attr attr;
  std::memset(&attr, 0, sizeof attr);  // every byte: the kernel refuses any left set
  attr.test.prog_fd = static_cast<uint32_t>(prog);
  attr.test.data_in = reinterpret_cast<uintptr_t>(frame.data());
  attr.test.data_size_in = static_cast<uint32_t>(frame.size());
  if (Lum::sysCalls().bpf(BPF_PROG_TEST_RUN, &attr, sizeof attr) != 0) {
    if (errno == EINVAL && cutNetworkHeader(frame)) return 0;
    std::abort();
  }
  const int verdict = static_cast<int>(attr.test.retval);
  if (verdict != (plainDatagramForUs(frame) ? kDrop : kNext)) std::abort();
  return 0;
}
