// The message to the switch's ARP resolver: exactly 146 bytes, all zero but for the
// fields below.
//
//   0        12    14     16       18            32
//   | zero   | tag | vlan | zero   | EthHdr      | first bytes of the packet (<= 114)
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/EthHdr.h"

namespace Vxlan {

struct ArpResolverMsg {
  static constexpr uint16_t kTag = 0x002b;
  static constexpr uint32_t kPacketBytes = 114;

  uint8_t zero0[12];
  Wire::NetU16 tag;
  Wire::NetU16 vlan;
  uint8_t zero1[2];
  Wire::EthHdr eth;  // addresses zero, type 0x0800
  uint8_t packet[kPacketBytes];
};
static_assert(sizeof(ArpResolverMsg) == 146 && alignof(ArpResolverMsg) == 1);
static_assert(offsetof(ArpResolverMsg, tag) == 12 && offsetof(ArpResolverMsg, vlan) == 14 &&
              offsetof(ArpResolverMsg, eth) + offsetof(Wire::EthHdr, typeOrLen) == 30 &&
              offsetof(ArpResolverMsg, packet) == 32);

}  // namespace Vxlan
