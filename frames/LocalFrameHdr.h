// The frames exchanged with the forwarding plane on the local devices.
//
// Read from the device "vxlan" (local-to-remote): the user frame's MAC addresses, then
// a 12-byte header in place of nothing, then the rest of the user frame.
//
//   0     6     12          14           16          20            24
//   | dst | src | encapType | encapFlags | userVlan  | srcIfIndex  | rest of user frame
//
// Written to the device "txraw" (remote-to-local): the inner frame's MAC addresses,
// then the 8-byte `f64`, then the inner frame from its Ethernet type on.
//
//   0     6     12    14     16      18         20
//   | dst | src | tag | vlan | glort | reserved | inner type and payload
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/EthHdr.h"
#include "platform/types/NetInt.h"

namespace Vxlan {

// Ethernet types of the device "vxlan", one socket each.
inline constexpr uint16_t kEncapTypeHi = 0x0041;
inline constexpr uint16_t kEncapTypeLo = 0x0033;
// ARP inside VXLAN delivered for this VTEP.
inline constexpr uint16_t kEncapTypeVxlanArp = 0x0040;
// The private type of the device "txraw": bytes 0x00 0x08 (not IPv4's 0x08 0x00).
inline constexpr uint16_t kTxRawTag = 0x0008;

struct LocalFrameHdr {
  static constexpr uint16_t kArpFlag = 0x8000;
  static constexpr uint16_t kStripTag = 0x4000;
  static constexpr uint16_t kStripTagInTrunk = 0x2000;
  static constexpr uint16_t kDot1qFlag = 0x1000;

  Wire::EthAddr dst;
  Wire::EthAddr src;
  Wire::NetU16 encapType;
  Wire::NetU16 encapFlags;
  Wire::NetU32 userVlan;
  Wire::NetU32 srcIfIndex;
};
static_assert(sizeof(LocalFrameHdr) == 24 && alignof(LocalFrameHdr) == 1);
static_assert(offsetof(LocalFrameHdr, userVlan) == 16 && offsetof(LocalFrameHdr, srcIfIndex) == 20);

// The header of the device "txraw" that stands after the MAC addresses.
struct f64 {
  Wire::NetU16 tag;
  Wire::NetU16 vlan;
  Wire::NetU16 glort;
  Wire::NetU16 reserved;
};
static_assert(sizeof(f64) == 8 && alignof(f64) == 1);

struct TxRawHdr {
  Wire::EthAddr dst;
  Wire::EthAddr src;
  f64 hdr;
};
static_assert(sizeof(TxRawHdr) == 20 && alignof(TxRawHdr) == 1);

}  // namespace Vxlan
