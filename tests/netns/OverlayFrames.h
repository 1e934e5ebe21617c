// Frame fields of the namespace tests: numbers in network order on the wire, and the
// IPv4 header checksum that a bridge which checks IPv4 headers wants.
#pragma once

#include <cstdint>

#include "tests/netns/PacketSocket.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace TestSupport {

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

}  // namespace TestSupport
