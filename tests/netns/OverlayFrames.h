// Frames of the namespace tests: the "txraw" form the agent must write for an inner
// frame, an ICMP echo request to send through a kernel VXLAN device, and the reading
// of a VXLAN datagram captured on the underlay. Layouts as frames/LocalFrameHdr.h and
// the VXLAN header draw them; numbers in network order on the wire.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "frames/LocalFrameHdr.h"
#include "platform/types/HwPortId.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"
#include "tests/netns/PacketSocket.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace TestSupport {

using MacBytes = std::array<uint8_t, 6>;

inline void put16(Frame& f, uint16_t v) {
  f.push_back(static_cast<uint8_t>(v >> 8));
  f.push_back(static_cast<uint8_t>(v));
}
inline void put32(Frame& f, uint32_t v) {
  put16(f, static_cast<uint16_t>(v >> 16));
  put16(f, static_cast<uint16_t>(v));
}
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
  put16(f, 0x0800);
  const size_t ip = f.size();
  put16(f, 0x4500);
  put16(f, static_cast<uint16_t>(20 + 8 + kPayload));
  put32(f, 0x00004000);  // id 0, don't fragment
  put16(f, 0x4001);      // TTL 64, ICMP
  put16(f, 0);
  put32(f, srcIp);
  put32(f, dstIp);
  const uint16_t ipSum = inetChecksum(f, ip, ip + 20);
  f[ip + 10] = static_cast<uint8_t>(ipSum >> 8);
  f[ip + 11] = static_cast<uint8_t>(ipSum);
  const size_t icmp = f.size();
  put16(f, 0x0800);  // echo request, code 0
  put16(f, 0);
  put16(f, 0x1234);
  put16(f, sequence);
  for (size_t i = 0; i < kPayload; ++i) f.push_back(static_cast<uint8_t>(i));
  const uint16_t icmpSum = inetChecksum(f, icmp, f.size());
  f[icmp + 2] = static_cast<uint8_t>(icmpSum >> 8);
  f[icmp + 3] = static_cast<uint8_t>(icmpSum);
  return f;
}

struct VxlanDatagram {
  Vxlan::Vni vni;
  Frame inner;
};

// The VNI and inner frame of an untagged IPv4/UDP datagram to `udpPort` with the
// VNI flag set; empty for anything else.
inline std::optional<VxlanDatagram> vxlanDatagramOf(const Frame& f, uint16_t udpPort) {
  if (f.size() < 14 + 20 + 8 + 8 || get16(f, 12) != 0x0800) return std::nullopt;
  const size_t ip = 14;
  const size_t ipLen = (f[ip] & 0x0f) * 4u;
  if ((f[ip] >> 4) != 4 || f[ip + 9] != 17 || f.size() < ip + ipLen + 16) return std::nullopt;
  const size_t udp = ip + ipLen;
  if (get16(f, udp + 2) != udpPort) return std::nullopt;
  const size_t vx = udp + 8;
  if ((f[vx] & 0x08) == 0) return std::nullopt;
  const uint32_t vni = static_cast<uint32_t>(f[vx + 4]) << 16 | f[vx + 5] << 8 | f[vx + 6];
  return VxlanDatagram{Vxlan::Vni(vni), Frame(f.begin() + vx + 8, f.end())};
}

}  // namespace TestSupport
