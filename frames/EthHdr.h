// Ethernet header, with and without one 802.1Q tag.
//
//   0      6      12          14        16
//   | dst  | src  | typeOrLen | (tci    | inner type)   when typeOrLen is 0x8100
//
// Header structs in frames/ are made of byte fields and Wire::NetU16/NetU32 only, so
// they have alignment 1 and lay over a frame buffer at any offset.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/types/EthAddr.h"
#include "platform/types/NetInt.h"

namespace Wire {

inline constexpr uint16_t kEthTypeIpv4 = 0x0800;
inline constexpr uint16_t kEthTypeArp = 0x0806;
inline constexpr uint16_t kEthTypeIpv6 = 0x86dd;
inline constexpr uint16_t kEthTypeDot1q = 0x8100;

struct EthHdr {
  EthAddr dst;
  EthAddr src;
  NetU16 typeOrLen;

  bool tagged() const { return typeOrLen.value() == kEthTypeDot1q; }
};
static_assert(sizeof(EthHdr) == 14 && alignof(EthHdr) == 1);

// The tag that follows the addresses when typeOrLen is 0x8100.
struct Dot1qHdr {
  EthAddr dst;
  EthAddr src;
  NetU16 tpid;       // 0x8100
  NetU16 tci;        // priority, drop eligible, VLAN in the low 12 bits
  NetU16 innerType;  // the Ethernet type behind the tag

  uint16_t vlan() const { return vlanFromTci(tci.value()); }
  static constexpr uint16_t vlanFromTci(uint16_t tci) { return tci & 0x0fff; }
};
static_assert(sizeof(Dot1qHdr) == 18 && alignof(Dot1qHdr) == 1);

inline constexpr uint32_t kEthHdrLen = sizeof(EthHdr);
inline constexpr uint32_t kDot1qTagLen = sizeof(Dot1qHdr) - sizeof(EthHdr);
inline constexpr uint32_t kEthMacBytes = 12;

// Moves the two MAC addresses from `from` to `to`; the ranges may overlap, as they do
// where a header is taken out of or put into a frame in place. Through a copy of
// fixed size the compiler makes it a few loads and stores: std::memmove of the same
// 12 bytes is a library call on a frame path.
inline void moveMacAddrs(uint8_t* to, const uint8_t* from) {
  uint8_t macs[kEthMacBytes];
  std::memcpy(macs, from, sizeof macs);
  std::memcpy(to, macs, sizeof macs);
}

// Lays a header over the bytes at `p`. The caller has checked the length.
template <class Hdr>
Hdr* hdrAt(uint8_t* p) {
  return reinterpret_cast<Hdr*>(p);
}
template <class Hdr>
const Hdr* hdrAt(const uint8_t* p) {
  return reinterpret_cast<const Hdr*>(p);
}

}  // namespace Wire
