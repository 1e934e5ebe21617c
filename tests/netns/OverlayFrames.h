// Frames of the namespace tests: an ICMP echo request to send through a kernel VXLAN
// device, with the checksums a bridge that checks IPv4 headers wants; numbers in
// network order on the wire.
#pragma once

#include <array>
#include <cstdint>

#include "tests/netns/PacketSocket.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace TestSupport {

using MacBytes = std::array<uint8_t, 6>;

inline uint16_t get16(const Frame& f, size_t at) {
  return static_cast<uint16_t>(f[at] << 8 | f[at + 1]);
}

// The ones' complement sum that IPv4 and ICMP carry.
inline uint16_t inetChecksum(const Frame& f, size_t from, size_t to) {
  uint32_t sum = 0;
  for (size_t i = from; i + 1 < to; i += 2) sum += get16(f, i);
  if ((to - from) % 2) sum += static_cast<uint32_t>(f[to - 1]) << 8;
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

// What `ping` sends: an IPv4 ICMP echo request with valid checksums and a counting
// payload; addresses in host order.
inline Frame icmpEchoFrame(const MacBytes& dst, const MacBytes& src, uint32_t srcIp, uint32_t dstIp,
                           uint16_t sequence) {
  constexpr size_t kPayload = 56;
  Frame f(dst.begin(), dst.end());
  f.insert(f.end(), src.begin(), src.end());
  push16(f, 0x0800);
  const size_t ip = f.size();
  push16(f, 0x4500);
  push16(f, static_cast<uint16_t>(20 + 8 + kPayload));
  push32(f, 0x00004000);  // id 0, don't fragment
  push16(f, 0x4001);      // TTL 64, ICMP
  push16(f, 0);
  push32(f, srcIp);
  push32(f, dstIp);
  const uint16_t ipSum = inetChecksum(f, ip, ip + 20);
  f[ip + 10] = static_cast<uint8_t>(ipSum >> 8);
  f[ip + 11] = static_cast<uint8_t>(ipSum);
  const size_t icmp = f.size();
  push16(f, 0x0800);  // echo request, code 0
  push16(f, 0);
  push16(f, 0x1234);
  push16(f, sequence);
  for (size_t i = 0; i < kPayload; ++i) f.push_back(static_cast<uint8_t>(i));
  const uint16_t icmpSum = inetChecksum(f, icmp, f.size());
  f[icmp + 2] = static_cast<uint8_t>(icmpSum >> 8);
  f[icmp + 3] = static_cast<uint8_t>(icmpSum);
  return f;
}

}  // namespace TestSupport
